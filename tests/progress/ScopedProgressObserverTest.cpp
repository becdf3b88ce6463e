#include <UtilsLib/progress/ScopedProgressObserver.h>

#include <UtilsLib/progress/ProgressHandler.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/SlotOf.h>

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using TestSupport::FieldsOf;
using TestSupport::SlotOf;
using UtilsLib::IGlobalProgressManager;
using UtilsLib::IProgressView;
using UtilsLib::ProgressHandler;
using UtilsLib::ScopedProgressObserver;

static_assert(std::is_abstract_v<IGlobalProgressManager> && !std::has_virtual_destructor_v<IGlobalProgressManager>);
static_assert(sizeof(IGlobalProgressManager) == sizeof(void*), "no data");
static_assert(!std::is_copy_constructible_v<ScopedProgressObserver>);
static_assert(!std::is_copy_assignable_v<ScopedProgressObserver>);
static_assert(
    std::is_same_v<decltype(std::declval<const ScopedProgressObserver&>().GetObserverId()), unsigned long long>);
static_assert(
    std::is_same_v<decltype(std::declval<const ScopedProgressObserver&>().GetProgressView()), const IProgressView&>);

namespace
{

struct Call
{
    std::string operation;
    const ScopedProgressObserver* observer;
    unsigned long long id; // as the observer told during the call
    const IProgressView* view;
    bool operator==(const Call&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Call& call)
{
    return out << call.operation << " of " << call.id;
}

/// Notes the calls, and throws after one of them on demand.
class RecordingManager : public IGlobalProgressManager
{
public:
    void AddObserver(ScopedProgressObserver& observer) override
    {
        Note("add", observer);
    }
    void UpdateObserver(ScopedProgressObserver& observer) override
    {
        Note("update", observer);
    }
    void RemoveObserver(ScopedProgressObserver& observer) override
    {
        Note("remove", observer);
    }

    std::vector<Call> calls;
    std::string failing; // an operation

private:
    void Note(const std::string& operation, ScopedProgressObserver& observer)
    {
        calls.push_back({operation, &observer, observer.GetObserverId(), &observer.GetProgressView()});
        if (operation == failing)
        {
            throw std::runtime_error(operation);
        }
    }
};

struct ObserverFields
{
    unsigned long long id;
    const IProgressView* view;
    const IGlobalProgressManager* manager;
};
static_assert(sizeof(ObserverFields) == sizeof(ScopedProgressObserver));

class ScopedProgressObserverTest : public testing::Test
{
protected:
    RecordingManager m_manager;
    ProgressHandler m_view{{"first", 0, ""}};
    ProgressHandler m_otherView{{"second", 0, ""}};
};

} // namespace

#if defined(__GNUC__)
TEST_F(ScopedProgressObserverTest, SlotsOfTheManagerAreInTheirOrder)
{
    EXPECT_EQ(SlotOf(&IGlobalProgressManager::AddObserver), 0u);
    EXPECT_EQ(SlotOf(&IGlobalProgressManager::UpdateObserver), 1u);
    EXPECT_EQ(SlotOf(&IGlobalProgressManager::RemoveObserver), 2u);
}
#endif

TEST_F(ScopedProgressObserverTest, FieldsAreInTheirOrder)
{
    const ScopedProgressObserver observer(m_manager, 0x123456789ABCDEF0, m_view);

    EXPECT_EQ(FieldsOf<ObserverFields>(observer).id, 0x123456789ABCDEF0u);
    EXPECT_EQ(FieldsOf<ObserverFields>(observer).view, &m_view);
    EXPECT_EQ(FieldsOf<ObserverFields>(observer).manager, &m_manager);
}

TEST_F(ScopedProgressObserverTest, KeepsItsIdAndItsView)
{
    for (const unsigned long long id : {0ull, 1ull, 0x100000000ull, 0xFFFFFFFFFFFFFFFFull})
    {
        const ScopedProgressObserver observer(m_manager, id, m_view);
        EXPECT_EQ(observer.GetObserverId(), id);
        EXPECT_EQ(&observer.GetProgressView(), &m_view);
    }
}

TEST_F(ScopedProgressObserverTest, AddsUpdatesAndRemovesItselfWithItsIdAndView)
{
    std::optional<ScopedProgressObserver> observer(std::in_place, m_manager, 5, m_view);
    const ScopedProgressObserver* const address = &*observer;
    EXPECT_EQ(m_manager.calls, (std::vector<Call>{{"add", address, 5, &m_view}}));

    observer->ForceUpdate();
    observer->ForceUpdate();
    observer.reset();

    EXPECT_EQ(m_manager.calls, (std::vector<Call>{{"add", address, 5, &m_view},
                                                  {"update", address, 5, &m_view},
                                                  {"update", address, 5, &m_view},
                                                  {"remove", address, 5, &m_view}}));
}

TEST_F(ScopedProgressObserverTest, EachOfTwoObserversSpeaksForItself)
{
    std::optional<ScopedProgressObserver> first(std::in_place, m_manager, 1, m_view);
    std::optional<ScopedProgressObserver> second(std::in_place, m_manager, 1, m_otherView);
    const ScopedProgressObserver* const addresses[] = {&*first, &*second};

    first->ForceUpdate();
    second.reset();
    first.reset();

    EXPECT_EQ(m_manager.calls, (std::vector<Call>{{"add", addresses[0], 1, &m_view},
                                                  {"add", addresses[1], 1, &m_otherView},
                                                  {"update", addresses[0], 1, &m_view},
                                                  {"remove", addresses[1], 1, &m_otherView},
                                                  {"remove", addresses[0], 1, &m_view}}));
}

TEST_F(ScopedProgressObserverTest, AnObserverThatTheManagerRefusesIsNotRemoved)
{
    m_manager.failing = "add";

    EXPECT_THROW(ScopedProgressObserver(m_manager, 5, m_view), std::runtime_error);

    ASSERT_EQ(m_manager.calls.size(), 1u);
    EXPECT_EQ(m_manager.calls[0].operation, "add");
}

TEST_F(ScopedProgressObserverTest, WhatAnUpdateThrowsReachesTheCaller)
{
    m_manager.failing = "update";
    ScopedProgressObserver observer(m_manager, 5, m_view);

    EXPECT_THROW(observer.ForceUpdate(), std::runtime_error);
}

TEST_F(ScopedProgressObserverTest, WhatARemovalThrowsIsDropped)
{
    m_manager.failing = "remove";
    {
        const ScopedProgressObserver observer(m_manager, 5, m_view);
    }

    ASSERT_EQ(m_manager.calls.size(), 2u);
    EXPECT_EQ(m_manager.calls[1].operation, "remove");
}

TEST_F(ScopedProgressObserverTest, AScopeLeftByAnExceptionRemovesTheObserver)
{
    try
    {
        const ScopedProgressObserver observer(m_manager, 5, m_view);
        throw std::runtime_error("the work failed");
    }
    catch (const std::runtime_error&)
    {
        ASSERT_EQ(m_manager.calls.size(), 2u);
        EXPECT_EQ(m_manager.calls[1].operation, "remove");
    }
}
