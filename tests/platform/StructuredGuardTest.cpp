#include <UtilsLib/platform/StructuredGuard.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

using UtilsLib::Platform::CallGuarded;

namespace
{

constexpr DWORD kCode = 0xE0001234;

struct Guarded
{
    LONG answer = EXCEPTION_EXECUTE_HANDLER;
    int filtered = 0;
    int ended = 0;
    DWORD code = 0;
    void (*inner)(Guarded&) = nullptr;
};

void Raise(void* argument) noexcept
{
    RaiseException(kCode, 0, 0, nullptr);
    ++static_cast<Guarded*>(argument)->ended;
}

LONG Filter(EXCEPTION_POINTERS* exception, void* argument) noexcept
{
    auto& guarded = *static_cast<Guarded*>(argument);
    ++guarded.filtered;
    guarded.code = exception->ExceptionRecord->ExceptionCode;
    return guarded.answer;
}

void DoNothing(void* argument) noexcept
{
    ++static_cast<Guarded*>(argument)->ended;
}

void Violate(void*) noexcept
{
    int* volatile address = reinterpret_cast<int*>(0x20);
    *static_cast<volatile int*>(address) = 1;
}

void RunInner(void* argument) noexcept
{
    auto& guarded = *static_cast<Guarded*>(argument);
    guarded.inner(guarded);
    ++guarded.ended;
}

void ThrowAndCatch(void* argument) noexcept
{
    try
    {
        throw std::runtime_error("within");
    }
    catch (const std::runtime_error&)
    {
        ++static_cast<Guarded*>(argument)->ended;
    }
}

/// Raises in a filter: the exception of an exception.
LONG RaiseAgain(EXCEPTION_POINTERS* exception, void* argument) noexcept
{
    auto& guarded = *static_cast<Guarded*>(argument);
    if (guarded.filtered++ == 0)
    {
        RaiseException(kCode + 1, 0, 0, nullptr);
    }
    guarded.code = exception->ExceptionRecord->ExceptionCode;
    return EXCEPTION_CONTINUE_SEARCH;
}

void* HeadOfChain()
{
    return reinterpret_cast<NT_TIB*>(NtCurrentTeb())->ExceptionList;
}

std::vector<DWORD> g_flags; // that the handler below was called with

EXCEPTION_DISPOSITION __cdecl OnException(EXCEPTION_RECORD* record, void*, CONTEXT*, void*)
{
    g_flags.push_back(record->ExceptionFlags & EXCEPTION_UNWINDING);
    return ExceptionContinueSearch;
}

/// Another library's frame that wants to clean up.
void RaiseBelowAForeignHandler(void* argument) noexcept
{
    auto& head = reinterpret_cast<NT_TIB*>(NtCurrentTeb())->ExceptionList;
    EXCEPTION_REGISTRATION_RECORD record = {head, reinterpret_cast<PEXCEPTION_ROUTINE>(&OnException)};
    head = &record;
    Raise(argument);
    head = record.Next;
}

bool RaiseUnder(LONG answer, Guarded& guarded)
{
    guarded.answer = answer;
    return CallGuarded(&Raise, &Filter, &guarded);
}

} // namespace

TEST(StructuredGuardTest, BodyWithoutExceptionComesToItsEnd)
{
    Guarded guarded;
    const void* const chain = HeadOfChain();

    EXPECT_TRUE(CallGuarded(&DoNothing, &Filter, &guarded));

    EXPECT_EQ(guarded.ended, 1);
    EXPECT_EQ(guarded.filtered, 0);
    EXPECT_EQ(HeadOfChain(), chain);
}

TEST(StructuredGuardTest, TakenExceptionGivesTheBodyUp)
{
    Guarded guarded;
    const void* const chain = HeadOfChain();

    EXPECT_FALSE(RaiseUnder(EXCEPTION_EXECUTE_HANDLER, guarded));
    EXPECT_EQ(guarded.code, kCode);
    EXPECT_EQ(guarded.ended, 0);
    EXPECT_FALSE(CallGuarded(&Violate, &Filter, &guarded));
    EXPECT_EQ(guarded.code, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));

    EXPECT_EQ(guarded.filtered, 2);
    EXPECT_EQ(HeadOfChain(), chain);
}

TEST(StructuredGuardTest, ContinuedExceptionGoesOnInTheBody)
{
    Guarded guarded;
    EXPECT_TRUE(RaiseUnder(EXCEPTION_CONTINUE_EXECUTION, guarded));

    EXPECT_EQ(guarded.filtered, 1);
    EXPECT_EQ(guarded.ended, 1);
}

TEST(StructuredGuardTest, ExceptionThatIsPassedOnReachesTheOuterGuard)
{
    Guarded outer;
    outer.inner = [](Guarded&) {
        Guarded inner;
        RaiseUnder(EXCEPTION_CONTINUE_SEARCH, inner);
        ADD_FAILURE() << "came back";
    };
    const void* const chain = HeadOfChain();

    EXPECT_FALSE(CallGuarded(&RunInner, &Filter, &outer));

    EXPECT_EQ(outer.filtered, 1);
    EXPECT_EQ(outer.code, kCode);
    EXPECT_EQ(outer.ended, 0);
    EXPECT_EQ(HeadOfChain(), chain);
}

TEST(StructuredGuardTest, HandlersWithinTheBodyAreToldThatItIsGivenUp)
{
    Guarded guarded;
    const void* const chain = HeadOfChain();
    g_flags.clear();

    EXPECT_FALSE(CallGuarded(&RaiseBelowAForeignHandler, &Filter, &guarded));

    EXPECT_EQ(g_flags, (std::vector<DWORD>{0, EXCEPTION_UNWINDING}));
    EXPECT_EQ(HeadOfChain(), chain);
}

TEST(StructuredGuardTest, InnerGuardTakesWhatTheOuterOneNeverSees)
{
    Guarded outer;
    outer.inner = [](Guarded&) {
        Guarded inner;
        EXPECT_FALSE(RaiseUnder(EXCEPTION_EXECUTE_HANDLER, inner));
        EXPECT_EQ(inner.filtered, 1);
    };

    EXPECT_TRUE(CallGuarded(&RunInner, &Filter, &outer));
    EXPECT_EQ(outer.filtered, 0);
    EXPECT_EQ(outer.ended, 1);
}

TEST(StructuredGuardTest, GuardWithinAFilterWorks)
{
    Guarded guarded;
    const auto filter = [](EXCEPTION_POINTERS* exception, void* argument) noexcept -> LONG {
        Guarded inner;
        EXPECT_FALSE(RaiseUnder(EXCEPTION_EXECUTE_HANDLER, inner));
        EXPECT_FALSE(CallGuarded(&Violate, &Filter, &inner));
        EXPECT_EQ(inner.filtered, 2);
        return Filter(exception, argument);
    };
    const void* const chain = HeadOfChain();

    EXPECT_FALSE(CallGuarded(&Raise, filter, &guarded));
    EXPECT_EQ(guarded.filtered, 1);
    EXPECT_EQ(guarded.code, kCode);
    EXPECT_EQ(HeadOfChain(), chain);
}

TEST(StructuredGuardTest, ExceptionOfAFilterIsShownToItAgainAndThenPassedOn)
{
    static Guarded raising;
    raising = {};
    Guarded outer;
    outer.inner = [](Guarded&) { CallGuarded(&Raise, &RaiseAgain, &raising); };

    EXPECT_FALSE(CallGuarded(&RunInner, &Filter, &outer));

    EXPECT_EQ(raising.filtered, 2);
    EXPECT_EQ(raising.code, kCode + 1);
    EXPECT_EQ(outer.code, kCode + 1);
}

TEST(StructuredGuardTest, RegistersThatACallKeepsAreKept)
{
    Guarded guarded;
    unsigned long base = 0;
    unsigned long source = 0;
    unsigned long destination = 0;
    unsigned long moved = 0;
    const auto take = +[](Guarded* argument) { CallGuarded(&Raise, &Filter, argument); };
    asm volatile("pushl %%ebp\n\t"
                 "movl %%esp, %%ebp\n\t"
                 "movl $0x11111111, %%ebx\n\t"
                 "movl $0x22222222, %%esi\n\t"
                 "movl $0x33333333, %%edi\n\t"
                 "pushl %%ecx\n\t"
                 "call *%%eax\n\t"
                 "addl $4, %%esp\n\t"
                 "movl %%ebp, %%eax\n\t"
                 "subl %%esp, %%eax\n\t"
                 "popl %%ebp\n\t"
                 : "=b"(base), "=S"(source), "=D"(destination), "=a"(moved)
                 : "a"(take), "c"(&guarded)
                 : "edx", "memory", "cc");

    EXPECT_EQ(guarded.filtered, 1);
    EXPECT_EQ(base, 0x11111111u);
    EXPECT_EQ(source, 0x22222222u);
    EXPECT_EQ(destination, 0x33333333u);
    EXPECT_EQ(moved, 0u); // ebp and esp
}

TEST(StructuredGuardTest, LanguageExceptionsWorkInsideAndAround)
{
    Guarded guarded;
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_FALSE(RaiseUnder(EXCEPTION_EXECUTE_HANDLER, guarded));
        EXPECT_TRUE(CallGuarded(&ThrowAndCatch, &Filter, &guarded));
        EXPECT_THROW(throw std::runtime_error("between"), std::runtime_error);
        try
        {
            throw 7;
        }
        catch (int number)
        {
            EXPECT_FALSE(RaiseUnder(EXCEPTION_EXECUTE_HANDLER, guarded));
            EXPECT_EQ(number, 7);
        }
    }

    EXPECT_EQ(guarded.filtered, 6);
    EXPECT_EQ(guarded.ended, 3);
}

TEST(StructuredGuardTest, ThreadsDoNotMeet)
{
    std::vector<Guarded> guarded(8);
    std::vector<std::thread> threads;
    for (Guarded& each : guarded)
    {
        threads.emplace_back([&each] {
            for (int i = 0; i < 100; ++i)
            {
                RaiseUnder(EXCEPTION_EXECUTE_HANDLER, each);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }

    for (const Guarded& each : guarded)
    {
        EXPECT_EQ(each.filtered, 100);
        EXPECT_EQ(each.ended, 0);
    }
}
