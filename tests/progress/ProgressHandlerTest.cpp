#include <UtilsLib/progress/ProgressHandler.h>

#include <UtilsLib/WindowsTypes.h>
#include <tests/support/AllocationFault.h>
#include <tests/support/FieldsOf.h>
#include <tests/support/LockRecorder.h>
#include <tests/support/SlotOf.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using TestSupport::AllocationFault;
using TestSupport::FieldsOf;
using TestSupport::LockRecorder;
using TestSupport::SlotOf;
using UtilsLib::IProgressView;
using UtilsLib::ProgressHandler;

namespace Progress = UtilsLib::Progress;

static_assert(std::is_aggregate_v<Progress::Data>);
static_assert(std::is_abstract_v<IProgressView> && std::has_virtual_destructor_v<IProgressView>);
static_assert(sizeof(IProgressView) == sizeof(void*), "no data");
static_assert(std::is_base_of_v<IProgressView, ProgressHandler>);
static_assert(!std::is_copy_constructible_v<ProgressHandler> && !std::is_copy_assignable_v<ProgressHandler>);
static_assert(std::is_same_v<decltype(std::declval<const IProgressView&>().IsValid()), bool>);
static_assert(std::is_same_v<decltype(std::declval<const IProgressView&>().GetProgressEnd()), unsigned long long>);
static_assert(std::is_same_v<decltype(std::declval<const IProgressView&>().GetProgressCurrent()), unsigned long long>);
static_assert(std::is_same_v<decltype(std::declval<const IProgressView&>().GetData()), const Progress::Data&>);
static_assert(std::is_same_v<decltype(std::declval<IProgressView&>().GetSubMessage()), std::string>);
static_assert(std::is_enum_v<ProgressHandler::UpdateType> && sizeof(ProgressHandler::UpdateType) == 4);
static_assert(static_cast<int>(ProgressHandler::UpdateType::Absolute) == 0);
static_assert(static_cast<int>(ProgressHandler::UpdateType::Relative) == 1);

namespace
{

using Count = unsigned long long;

constexpr Count kMost = std::numeric_limits<Count>::max();
constexpr auto kAbsolute = ProgressHandler::UpdateType::Absolute;
constexpr auto kRelative = ProgressHandler::UpdateType::Relative;

struct HandlerFields
{
    void* functions;
    Progress::Data data;
    CRITICAL_SECTION lock;
    Count end;
    Count current;
    std::string subMessage;
};
static_assert(sizeof(HandlerFields) == sizeof(ProgressHandler));

const HandlerFields& Fields(const ProgressHandler& handler)
{
    return FieldsOf<HandlerFields>(handler);
}

/// For what a second thread would do meanwhile.
HandlerFields& MutableFields(ProgressHandler& handler)
{
    return const_cast<HandlerFields&>(FieldsOf<HandlerFields>(handler));
}

struct Counts
{
    Count end;
    Count current;
    bool operator==(const Counts&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Counts& counts)
{
    return out << counts.current << " of " << counts.end;
}

Counts CountsOf(const ProgressHandler& handler)
{
    return {handler.GetProgressEnd(), handler.GetProgressCurrent()};
}

struct UpdateCase
{
    Counts before;
    Count value;
    int type;
    Counts after;
};

ProgressHandler::UpdateType Type(int value)
{
    return static_cast<ProgressHandler::UpdateType>(value);
}

std::ostream& operator<<(std::ostream& out, const UpdateCase& update)
{
    return out << update.before << ", value " << update.value << ", type " << update.type;
}

template <typename View>
concept HasSubMessage = requires(View& view)
{
    view.GetSubMessage();
};

class ProgressHandlerTest : public testing::Test
{
protected:
    ProgressHandler m_handler{Progress::Data{"title", 7, "text"}};
};

} // namespace

#if defined(__GNUC__)
TEST_F(ProgressHandlerTest, SlotsOfTheViewAreInTheirOrderAndTheDestructorIsLast)
{
    EXPECT_EQ(SlotOf(&IProgressView::IsValid), 0u);
    EXPECT_EQ(SlotOf(&IProgressView::GetProgressEnd), 1u);
    EXPECT_EQ(SlotOf(&IProgressView::GetProgressCurrent), 2u);
    EXPECT_EQ(SlotOf(&IProgressView::GetData), 3u);
    EXPECT_EQ(SlotOf(&IProgressView::GetSubMessage), 4u);
    EXPECT_EQ(SlotOf(&ProgressHandler::GetSubMessage), 4u);
}
#endif

TEST_F(ProgressHandlerTest, GetSubMessageOfTheViewIsNotConst)
{
    EXPECT_TRUE(HasSubMessage<IProgressView>);
    EXPECT_FALSE(HasSubMessage<const IProgressView>);
}

TEST_F(ProgressHandlerTest, FieldsAreInTheirOrder)
{
    m_handler.Begin(11, 5);
    m_handler.UpdateSubMessage("file");

    EXPECT_EQ(Fields(m_handler).data.title, "title");
    EXPECT_EQ(Fields(m_handler).data.identifier, 7u);
    EXPECT_EQ(Fields(m_handler).data.message, "text");
    EXPECT_EQ(Fields(m_handler).end, 11u);
    EXPECT_EQ(Fields(m_handler).current, 5u);
    EXPECT_EQ(Fields(m_handler).subMessage, "file");
}

TEST_F(ProgressHandlerTest, AFreshOneIsNotValidAndAppearsComplete)
{
    EXPECT_FALSE(m_handler.IsValid());
    EXPECT_TRUE(m_handler.AppearsComplete());
    EXPECT_EQ(CountsOf(m_handler), (Counts{0, 0}));
    EXPECT_EQ(m_handler.GetSubMessage(), "");
}

TEST_F(ProgressHandlerTest, DataIsCopiedAtConstructionAndStaysInItsPlace)
{
    Progress::Data data{"copy", 4'294'967'295u, "of files"};
    const ProgressHandler handler(data);
    data = {"other", 1, "thing"};

    const Progress::Data& first = handler.GetData();

    EXPECT_EQ(first.title, "copy");
    EXPECT_EQ(first.identifier, 4'294'967'295u);
    EXPECT_EQ(first.message, "of files");
    EXPECT_EQ(&handler.GetData(), &first);
}

TEST_F(ProgressHandlerTest, BeginSetsBothCountsAsTheyAreGiven)
{
    for (const Counts& counts : {Counts{10, 4}, Counts{4, 10}, Counts{0, 1}, Counts{kMost, 0}, Counts{0, kMost}})
    {
        m_handler.Begin(counts.end, counts.current);
        EXPECT_EQ(CountsOf(m_handler), counts);
    }
}

TEST_F(ProgressHandlerTest, ResetSetsBothCountsToZeroAndKeepsTheSubMessage)
{
    m_handler.Begin(kMost, 4);
    m_handler.UpdateSubMessage("file");

    m_handler.Reset();

    EXPECT_EQ(CountsOf(m_handler), (Counts{0, 0}));
    EXPECT_EQ(m_handler.GetSubMessage(), "file");
}

TEST_F(ProgressHandlerTest, UpdateProgressEndSetsOrAddsAndStopsAtTheGreatestNumber)
{
    const UpdateCase cases[] = {
        {{0, 0}, 100, 0, {100, 0}},         {{100, 0}, 7, 0, {7, 0}},
        {{100, 0}, kMost, 0, {kMost, 0}},   {{100, 0}, 0, 1, {100, 0}},
        {{100, 0}, 7, 1, {107, 0}},         {{0xFFFFFFFF, 0}, 1, 1, {0x100000000, 0}},
        {{kMost - 1, 0}, 1, 1, {kMost, 0}}, {{kMost - 1, 0}, 2, 1, {kMost, 0}},
        {{kMost, 0}, kMost, 1, {kMost, 0}},
    };
    for (const UpdateCase& update : cases)
    {
        m_handler.Begin(update.before.end, update.before.current);
        m_handler.UpdateProgressEnd(update.value, Type(update.type));
        EXPECT_EQ(CountsOf(m_handler), update.after) << update;
    }
}

TEST_F(ProgressHandlerTest, UpdateProgressEndLeavesCurrentAboveEndUntilTheNextUpdateOfCurrent)
{
    m_handler.Begin(100, 40);

    m_handler.UpdateProgressEnd(0, kAbsolute);
    EXPECT_EQ(CountsOf(m_handler), (Counts{0, 40}));
    m_handler.UpdateProgressEnd(30, kRelative);
    EXPECT_EQ(CountsOf(m_handler), (Counts{30, 40}));

    m_handler.UpdateProgressCurrent(1, kRelative);
    EXPECT_EQ(CountsOf(m_handler), (Counts{30, 30}));
}

TEST_F(ProgressHandlerTest, UpdateProgressCurrentSetsOrAddsAndStopsAtTheEnd)
{
    const UpdateCase cases[] = {
        {{100, 0}, 99, 0, {100, 99}},
        {{100, 0}, 100, 0, {100, 100}},
        {{100, 0}, 150, 0, {100, 100}},
        {{100, 70}, 20, 0, {100, 20}},
        {{100, 70}, 0, 0, {100, 0}},
        {{0, 0}, 5, 0, {0, 0}},
        {{kMost, 0}, kMost, 0, {kMost, kMost}},
        {{100, 70}, 0, 1, {100, 70}},
        {{100, 70}, 29, 1, {100, 99}},
        {{100, 70}, 30, 1, {100, 100}},
        {{100, 70}, 31, 1, {100, 100}},
        {{0, 0}, 5, 1, {0, 0}},
        {{0x200000000, 0xFFFFFFFF}, 1, 1, {0x200000000, 0x100000000}},
        {{100, 70}, kMost, 1, {100, 100}},
        {{100, 70}, kMost - 69, 1, {100, 100}},
        {{kMost, kMost - 1}, 1, 1, {kMost, kMost}},
        {{kMost, kMost - 1}, 3, 1, {kMost, kMost}},
        {{kMost, kMost}, kMost, 1, {kMost, kMost}},
    };
    for (const UpdateCase& update : cases)
    {
        m_handler.Begin(update.before.end, update.before.current);
        m_handler.UpdateProgressCurrent(update.value, Type(update.type));
        EXPECT_EQ(CountsOf(m_handler), update.after) << update;
    }
}

TEST_F(ProgressHandlerTest, TwiceThirtyOfFiftyStopsAtFifty)
{
    m_handler.UpdateProgressEnd(50, kAbsolute);

    m_handler.UpdateProgressCurrent(30, kRelative);
    m_handler.UpdateProgressCurrent(30, kRelative);

    EXPECT_EQ(CountsOf(m_handler), (Counts{50, 50}));
}

TEST_F(ProgressHandlerTest, OtherUpdateTypesChangeNothingButCurrentStillComesDownToTheEnd)
{
    for (const int type : {2, 3, -1, 256, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()})
    {
        m_handler.Begin(100, 40);
        m_handler.UpdateProgressEnd(7, Type(type));
        EXPECT_EQ(CountsOf(m_handler), (Counts{100, 40})) << type;
        m_handler.UpdateProgressCurrent(7, Type(type));
        EXPECT_EQ(CountsOf(m_handler), (Counts{100, 40})) << type;

        m_handler.UpdateProgressEnd(30, kAbsolute);
        m_handler.UpdateProgressCurrent(7, Type(type));
        EXPECT_EQ(CountsOf(m_handler), (Counts{30, 30})) << type;
    }
}

TEST_F(ProgressHandlerTest, IsValidAsksForTheEndAndAppearsCompleteForEquality)
{
    const struct
    {
        Counts counts;
        bool valid;
        bool complete;
    } cases[] = {
        {{0, 0}, false, true}, {{1, 0}, true, false},           {{1, 1}, true, true},         {{0, 1}, false, false},
        {{5, 6}, true, false}, {{0x100000000, 0}, true, false}, {{kMost, kMost}, true, true},
    };
    for (const auto& [counts, valid, complete] : cases)
    {
        m_handler.Begin(counts.end, counts.current);
        EXPECT_EQ(m_handler.IsValid(), valid) << counts;
        EXPECT_EQ(m_handler.AppearsComplete(), complete) << counts;
    }
}

TEST_F(ProgressHandlerTest, SubMessageIsReplacedAndHandedOutAsACopy)
{
    m_handler.UpdateSubMessage("a sub-message that is longer than any small buffer of a string");
    std::string copy = m_handler.GetSubMessage();
    copy[0] = 'X';
    m_handler.UpdateSubMessage(std::string("with\0zero", 9));
    EXPECT_EQ(copy, "X sub-message that is longer than any small buffer of a string");
    EXPECT_EQ(m_handler.GetSubMessage(), std::string("with\0zero", 9));

    m_handler.UpdateSubMessage("");
    EXPECT_EQ(m_handler.GetSubMessage(), "");
}

TEST_F(ProgressHandlerTest, UpdateSubMessageWithItsOwnStringChangesNothing)
{
    const std::string text = "a sub-message that is longer than any small buffer of a string";
    m_handler.UpdateSubMessage(text);
    const char* const place = Fields(m_handler).subMessage.data();

    m_handler.UpdateSubMessage(Fields(m_handler).subMessage);

    EXPECT_EQ(m_handler.GetSubMessage(), text);
    EXPECT_EQ(Fields(m_handler).subMessage.data(), place);
}

TEST_F(ProgressHandlerTest, UpdateSubMessageKeepsTheOldTextAndLeavesTheLockWhenMemoryRunsOut)
{
    const std::string longText(1000, 'x');
    m_handler.UpdateSubMessage("old");
    {
        const AllocationFault fault(1);
        EXPECT_THROW(m_handler.UpdateSubMessage(longText), std::bad_alloc);
    }

    EXPECT_EQ(m_handler.GetSubMessage(), "old");
    EXPECT_EQ(Fields(m_handler).lock.OwningThread, nullptr);
}

TEST_F(ProgressHandlerTest, WritersChangeTheFieldsOnlyUnderOneHoldOfTheLock)
{
    const std::pair<const char*, std::function<void()>> writers[] = {
        {"Begin", [this] { m_handler.Begin(20, 10); }},
        {"Reset", [this] { m_handler.Reset(); }},
        {"UpdateProgressEnd", [this] { m_handler.UpdateProgressEnd(50, kAbsolute); }},
        {"UpdateProgressCurrent", [this] { m_handler.UpdateProgressCurrent(1, kRelative); }},
        {"UpdateSubMessage", [this] { m_handler.UpdateSubMessage("new"); }},
    };
    for (const auto& [name, write] : writers)
    {
        m_handler.Begin(100, 40);
        m_handler.UpdateSubMessage("old");
        std::string taken;
        std::string leaving;
        const auto state = [this] {
            const HandlerFields& fields = Fields(m_handler);
            return std::to_string(fields.current) + " of " + std::to_string(fields.end) + " " + fields.subMessage;
        };
        LockRecorder locks;
        locks.Name(&Fields(m_handler).lock, 'h');
        locks.OnTaken([&] { taken = state(); });
        locks.OnLeaving([&] { leaving = state(); });

        write();

        EXPECT_EQ(locks.Steps(), "+h-h") << name;
        EXPECT_EQ(taken, "40 of 100 old") << name;
        EXPECT_NE(leaving, taken) << name;
        EXPECT_EQ(leaving, state()) << name;
    }
}

TEST_F(ProgressHandlerTest, ReadersSeeWhatTheFieldsAreUnderTheLock)
{
    const std::pair<const char*, std::function<bool()>> readers[] = {
        {"IsValid", [this] { return m_handler.IsValid(); }},
        {"AppearsComplete", [this] { return m_handler.AppearsComplete(); }},
        {"GetProgressEnd", [this] { return m_handler.GetProgressEnd() == 8; }},
        {"GetProgressCurrent", [this] { return m_handler.GetProgressCurrent() == 8; }},
        {"GetSubMessage", [this] { return m_handler.GetSubMessage() == "under the lock"; }},
    };
    HandlerFields& fields = MutableFields(m_handler);
    const auto set = [&fields](Count end, Count current, const char* subMessage) {
        fields.end = end;
        fields.current = current;
        fields.subMessage = subMessage;
    };
    for (const auto& [name, read] : readers)
    {
        set(0, 1, "before");
        LockRecorder locks;
        locks.Name(&fields.lock, 'h');
        locks.OnTaken([&] { set(8, 8, "under the lock"); });
        locks.OnLeaving([&] { set(0, 1, "after"); });

        EXPECT_TRUE(read()) << name;
        EXPECT_EQ(locks.Steps(), "+h-h") << name;
    }
}

TEST_F(ProgressHandlerTest, GetDataTakesNoLock)
{
    const LockRecorder locks;

    EXPECT_EQ(m_handler.GetData().identifier, 7u);

    EXPECT_EQ(locks.Steps(), "");
}

TEST_F(ProgressHandlerTest, AViewDestroysTheHandlerBehindIt)
{
    const AllocationFault heap;
    {
        std::unique_ptr<IProgressView> view = std::make_unique<ProgressHandler>(m_handler.GetData());
        static_cast<ProgressHandler&>(*view).UpdateSubMessage(std::string(1000, 'x'));
    }

    EXPECT_EQ(heap.Live(), 0);
}

TEST_F(ProgressHandlerTest, ReadersOfOtherThreadsNeverSeeHalfAValue)
{
    const std::string texts[] = {std::string(300, 'a'), std::string(200, 'b')};
    m_handler.UpdateSubMessage(texts[0]);
    const auto stop = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    std::atomic<int> halves = 0;
    std::atomic<int> rounds = 0;
    const auto read = [&] {
        while (std::chrono::steady_clock::now() < stop)
        {
            const Count end = m_handler.GetProgressEnd();
            const Count current = m_handler.GetProgressCurrent();
            const std::string text = m_handler.GetSubMessage();
            // Whole values have equal halves; an appearance of completeness would be a mixture of two states.
            halves += (end >> 32) != (end & 0xFFFFFFFF) || (current >> 32) != (current & 0xFFFFFFFF) ? 1 : 0;
            halves += m_handler.AppearsComplete() || !m_handler.IsValid() ? 1 : 0;
            halves += text != texts[0] && text != texts[1] ? 1 : 0;
            ++rounds;
        }
    };
    m_handler.Begin(0x1111111111111111, 0x2222222222222222);
    {
        const std::jthread first(read);
        const std::jthread second(read);
        for (Count i = 0; std::chrono::steady_clock::now() < stop; ++i)
        {
            const Count half = i % 0xFFFFFFFE + 1;
            m_handler.Begin(half << 32 | half, (half + 1) << 32 | (half + 1));
            m_handler.UpdateSubMessage(texts[i % 2]);
        }
    }

    EXPECT_EQ(halves, 0);
    EXPECT_GT(rounds, 100);
}

TEST_F(ProgressHandlerTest, NoAdditionOfFourThreadsIsLost)
{
    constexpr int kAdditions = 5'000;
    m_handler.Begin(kMost, 0xFFFFFFFF);
    {
        std::vector<std::jthread> workers;
        for (int i = 0; i < 4; ++i)
        {
            workers.emplace_back([this] {
                for (int done = 0; done < kAdditions; ++done)
                {
                    m_handler.UpdateProgressCurrent(3, kRelative);
                }
            });
        }
    }

    EXPECT_EQ(m_handler.GetProgressCurrent(), 0xFFFFFFFF + 4ull * kAdditions * 3);
}
