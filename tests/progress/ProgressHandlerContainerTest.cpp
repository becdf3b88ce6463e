#include <UtilsLib/progress/ProgressHandlerContainer.h>

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/LockRecorder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

using TestSupport::FieldsOf;
using TestSupport::LockRecorder;
using UtilsLib::IProgressView;
using UtilsLib::ProgressHandler;
using UtilsLib::ProgressHandlerContainer;

using Stage = ProgressHandlerContainer::ProgressHandlerData;

static_assert(std::is_aggregate_v<Stage>);
static_assert(std::is_same_v<decltype(Stage::id), unsigned int>);
static_assert(std::is_base_of_v<IProgressView, ProgressHandlerContainer>);
static_assert(!std::is_copy_constructible_v<ProgressHandlerContainer>);
static_assert(!std::is_copy_assignable_v<ProgressHandlerContainer>);
static_assert(
    std::is_same_v<decltype(std::declval<ProgressHandlerContainer&>().GetProgressHandler(0u)), ProgressHandler&>);
static_assert(
    std::is_same_v<decltype(std::declval<ProgressHandlerContainer&>().GetActiveProgressHandler()), ProgressHandler&>);
static_assert(
    std::is_same_v<decltype(std::declval<ProgressHandlerContainer&>().GetActiveProgressHandlerId()), unsigned int>);

namespace
{

constexpr unsigned int kNone = 0xFFFFFFFF;
constexpr auto kAbsolute = ProgressHandler::Absolute;
constexpr auto kRelative = ProgressHandler::Relative;

struct ContainerFields
{
    void* functions;
    CRITICAL_SECTION lock;
    alignas(ProgressHandler) unsigned char defaultHandler[sizeof(ProgressHandler)];
    std::map<unsigned int, std::shared_ptr<ProgressHandler>> handlers;
    unsigned int activeId;
};
static_assert(sizeof(ContainerFields) == sizeof(ProgressHandlerContainer));

/// The handler's lock stands behind its description.
const void* LockOf(const ProgressHandler& handler)
{
    return &handler.GetData() + 1;
}

class ProgressHandlerContainerTest : public testing::Test
{
protected:
    const ContainerFields& Fields() const
    {
        return FieldsOf<ContainerFields>(m_container);
    }

    const Stage m_stages[2] = {{1, {"snapshot", 11, "of the company"}}, {2, {"compression", 12, "of a file"}}};
    ProgressHandlerContainer m_container{m_stages, 2};
};

void ExpectView(IProgressView& view, bool valid, unsigned long long end, unsigned long long current,
                const std::string& title, const std::string& subMessage)
{
    EXPECT_EQ(view.IsValid(), valid);
    EXPECT_EQ(view.GetProgressEnd(), end);
    EXPECT_EQ(view.GetProgressCurrent(), current);
    EXPECT_EQ(view.GetData().title, title);
    EXPECT_EQ(view.GetSubMessage(), subMessage);
}

} // namespace

TEST_F(ProgressHandlerContainerTest, FieldsAreInTheirOrder)
{
    EXPECT_EQ(Fields().activeId, kNone);
    m_container.SetActiveProgressHandler(9);

    EXPECT_EQ(Fields().activeId, 9u);
    EXPECT_EQ(static_cast<const void*>(&Fields().defaultHandler), &m_container.GetProgressHandler(9));
    ASSERT_EQ(Fields().handlers.size(), 2u);
    EXPECT_EQ(Fields().handlers.at(1).get(), &m_container.GetProgressHandler(1));
    EXPECT_EQ(Fields().handlers.at(2).get(), &m_container.GetProgressHandler(2));
}

TEST_F(ProgressHandlerContainerTest, EveryStageGetsAFreshHandlerWithItsData)
{
    for (const Stage& stage : m_stages)
    {
        ProgressHandler& handler = m_container.GetProgressHandler(stage.id);
        ExpectView(handler, false, 0, 0, stage.data.title, "");
        EXPECT_EQ(handler.GetData().identifier, stage.data.identifier);
        EXPECT_EQ(handler.GetData().message, stage.data.message);
        EXPECT_EQ(&m_container.GetProgressHandler(stage.id), &handler);
    }
}

TEST_F(ProgressHandlerContainerTest, OnlyTheFirstCountElementsAreTaken)
{
    ProgressHandlerContainer one(m_stages, 1);

    EXPECT_EQ(one.GetProgressHandler(1).GetData().title, "snapshot");
    EXPECT_EQ(one.GetProgressHandler(2).GetData().title, "");
}

TEST_F(ProgressHandlerContainerTest, ACountOfZeroOrANullPointerMakesAnEmptyContainer)
{
    ProgressHandlerContainer zero(m_stages, 0);
    ProgressHandlerContainer null(nullptr, 5);

    for (ProgressHandlerContainer* const container : {&zero, &null})
    {
        EXPECT_TRUE(FieldsOf<ContainerFields>(*container).handlers.empty());
        EXPECT_EQ(container->GetActiveProgressHandlerId(), kNone);
        ExpectView(*container, false, 0, 0, "", "");
    }
}

TEST_F(ProgressHandlerContainerTest, OfARepeatedIdTheLastStays)
{
    const Stage stages[] = {{3, {"first", 0, ""}}, {4, {"between", 0, ""}}, {3, {"last", 0, ""}}};
    ProgressHandlerContainer container(stages, 3);

    EXPECT_EQ(container.GetProgressHandler(3).GetData().title, "last");
    EXPECT_EQ(container.GetProgressHandler(4).GetData().title, "between");
    EXPECT_EQ(FieldsOf<ContainerFields>(container).handlers.size(), 2u);
}

TEST_F(ProgressHandlerContainerTest, UnknownIdsShareTheDefaultHandlerOfTheirContainer)
{
    ProgressHandlerContainer other(m_stages, 2);
    ProgressHandler& unknown = m_container.GetProgressHandler(7);

    for (const unsigned int id : {0u, 3u, 0x7FFFFFFFu, kNone - 1, kNone})
    {
        EXPECT_EQ(&m_container.GetProgressHandler(id), &unknown) << id;
    }
    EXPECT_NE(&other.GetProgressHandler(7), &unknown);
    ExpectView(unknown, false, 0, 0, "", "");
    EXPECT_EQ(unknown.GetData().identifier, 0u);
    EXPECT_EQ(unknown.GetData().message, "");
}

TEST_F(ProgressHandlerContainerTest, NoStageIsActiveAtFirstAndAfterAReset)
{
    EXPECT_EQ(m_container.GetActiveProgressHandlerId(), kNone);
    EXPECT_EQ(&m_container.GetActiveProgressHandler(), &m_container.GetProgressHandler(kNone));

    m_container.SetActiveProgressHandler(2);
    EXPECT_EQ(m_container.GetActiveProgressHandlerId(), 2u);
    EXPECT_EQ(&m_container.GetActiveProgressHandler(), &m_container.GetProgressHandler(2));

    m_container.ResetActiveProgressHandler();
    EXPECT_EQ(m_container.GetActiveProgressHandlerId(), kNone);
    EXPECT_EQ(&m_container.GetActiveProgressHandler(), &m_container.GetProgressHandler(kNone));
}

TEST_F(ProgressHandlerContainerTest, TheActiveIdIsNotChecked)
{
    for (const unsigned int id : {7u, 0u, kNone - 1})
    {
        m_container.SetActiveProgressHandler(id);
        EXPECT_EQ(m_container.GetActiveProgressHandlerId(), id);
        EXPECT_EQ(&m_container.GetActiveProgressHandler(), &m_container.GetProgressHandler(kNone));
    }
}

TEST_F(ProgressHandlerContainerTest, WithoutAnActiveStageTheCountsAreZeroAlsoWhenTheDefaultHandlerHasSome)
{
    m_container.GetProgressHandler(1).Begin(10, 4);
    ExpectView(m_container, false, 0, 0, "", "");

    m_container.GetProgressHandler(kNone).Begin(30, 20);
    m_container.GetProgressHandler(kNone).UpdateSubMessage("of the default handler");

    ExpectView(m_container, false, 0, 0, "", "of the default handler");
}

TEST_F(ProgressHandlerContainerTest, ShowsTheActiveStage)
{
    m_container.SetActiveProgressHandler(2);
    m_container.GetProgressHandler(2).UpdateProgressEnd(10, kAbsolute);
    m_container.GetProgressHandler(2).UpdateProgressCurrent(4, kAbsolute);
    m_container.GetProgressHandler(2).UpdateSubMessage("ledger.dta");
    m_container.GetProgressHandler(1).Begin(99, 98);

    ExpectView(m_container, true, 10, 4, "compression", "ledger.dta");
    EXPECT_EQ(&m_container.GetData(), &m_container.GetProgressHandler(2).GetData());

    m_container.SetActiveProgressHandler(1);
    ExpectView(m_container, true, 99, 98, "snapshot", "");
}

TEST_F(ProgressHandlerContainerTest, AnActiveStageThatHasNotBegunIsNotValid)
{
    m_container.SetActiveProgressHandler(1);

    ExpectView(m_container, false, 0, 0, "snapshot", "");
}

TEST_F(ProgressHandlerContainerTest, AnUnknownActiveStageShowsTheDefaultHandler)
{
    m_container.SetActiveProgressHandler(7);
    ExpectView(m_container, false, 0, 0, "", "");

    m_container.GetActiveProgressHandler().Begin(30, 20);
    m_container.GetActiveProgressHandler().UpdateSubMessage("of the default handler");

    ExpectView(m_container, true, 30, 20, "", "of the default handler");
}

TEST_F(ProgressHandlerContainerTest, EveryOperationTakesItsLockBeforeTheHandlersLock)
{
    m_container.SetActiveProgressHandler(1);
    const ProgressHandler& handler = m_container.GetProgressHandler(1);
    const std::pair<std::string, std::function<void()>> operations[] = {
        {"+c-c", [this] { m_container.GetProgressHandler(1); }},
        {"+c+c-c-c", [this] { m_container.GetActiveProgressHandler(); }},
        {"+c-c", [this] { m_container.GetActiveProgressHandlerId(); }},
        {"+c-c", [this] { m_container.SetActiveProgressHandler(1); }},
        {"+c+c-c+h-h-c", [this] { m_container.IsValid(); }},
        {"+c+c-c+h-h-c", [this] { m_container.GetProgressEnd(); }},
        {"+c+c-c+h-h-c", [this] { m_container.GetProgressCurrent(); }},
        {"+c+c-c-c", [this] { m_container.GetData(); }},
        {"+c+c+c-c-c+h-h-c", [this] { m_container.GetSubMessage(); }},
    };
    for (const auto& [steps, operation] : operations)
    {
        LockRecorder locks;
        locks.Name(&Fields().lock, 'c');
        locks.Name(LockOf(handler), 'h');

        operation();

        EXPECT_EQ(locks.Steps(), steps) << "operation " << &steps - &operations[0].first;
    }
}

TEST_F(ProgressHandlerContainerTest, ResetTakesTheLockTwiceAroundItsStore)
{
    m_container.SetActiveProgressHandler(1);
    LockRecorder locks;
    locks.Name(&Fields().lock, 'c');

    m_container.ResetActiveProgressHandler();

    EXPECT_EQ(locks.Steps(), "+c+c-c-c");
    EXPECT_EQ(m_container.GetActiveProgressHandlerId(), kNone);
}

TEST_F(ProgressHandlerContainerTest, ManyThreadsSwitchUpdateAndLookWithoutHinderingEachOther)
{
    constexpr unsigned long long kEnds[] = {0, 0x1111111111111111, 0x2222222222222222};
    m_container.GetProgressHandler(1).Begin(kEnds[1], 0);
    m_container.GetProgressHandler(2).Begin(kEnds[2], 0);
    std::atomic<bool> stop = false;
    std::atomic<int> wrong = 0;
    std::atomic<int> looks = 0;
    const auto work = [&](unsigned int id) {
        while (!stop)
        {
            m_container.SetActiveProgressHandler(id);
            m_container.GetActiveProgressHandler().UpdateProgressCurrent(1, kRelative);
            m_container.GetProgressHandler(id).UpdateSubMessage(std::string(50, static_cast<char>('0' + id)));
            m_container.ResetActiveProgressHandler();
        }
    };
    const auto look = [&] {
        IProgressView& view = m_container;
        const std::set<std::string> texts = {"", std::string(50, '1'), std::string(50, '2')};
        const std::set<std::string> titles = {"", "snapshot", "compression"};
        while (!stop)
        {
            const unsigned long long end = view.GetProgressEnd();
            wrong += end != kEnds[0] && end != kEnds[1] && end != kEnds[2] ? 1 : 0;
            wrong += texts.contains(view.GetSubMessage()) && titles.contains(view.GetData().title) ? 0 : 1;
            ++looks;
        }
    };
    {
        const std::jthread first(work, 1);
        const std::jthread second(work, 2);
        const std::jthread third(look);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        stop = true;
    }

    EXPECT_EQ(wrong, 0);
    EXPECT_GT(looks, 100);
}
