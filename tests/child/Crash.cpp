// A host with the last-chance functions installed that dies: child_crash WAY FILE. What the parent cannot know goes to
// FILE before: the dying thread's id, and the address and the content of a text on its stack.
#include <UtilsLib/logging/MiniDump.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr int kThreads = 8;
constexpr unsigned int kOuterFilter = 55;

std::string g_file;
std::atomic<int> g_ready = 0;

void Note(const char* text)
{
    std::ofstream(g_file) << GetCurrentThreadId() << ' ' << reinterpret_cast<std::uintptr_t>(text) << ' ' << text;
}

void MeetTheOthers()
{
    ++g_ready;
    while (g_ready < kThreads)
    {
        Sleep(0);
    }
}

void WriteTo(int* address)
{
    *static_cast<volatile int*>(address) = 1;
}

void ViolateAccess()
{
    char text[] = "a text on the stack";
    Note(text);
    WriteTo(reinterpret_cast<int*>(0x10)); // not 0: that is the library's own fault
    std::printf("%s", text);
}

__attribute__((no_sanitize("undefined"))) int DivideByZero()
{
    const volatile int zero = 0;
    return 100 / zero;
}

[[noreturn]] void Throw()
{
    throw std::runtime_error("nobody catches this");
}

void ThrowIntoNothing() noexcept
{
    Throw();
}

/// So deep that no optimiser makes it a loop.
int Recurse(volatile int* depth)
{
    volatile int space[1024];
    space[*depth % 1024] = *depth + 1;
    *depth = *depth + 1;
    return *depth == 0 ? 0 : Recurse(depth) + space[0];
}

void OverflowStack()
{
    Note("overflow");
    volatile int depth = 0;
    Recurse(&depth);
}

/// Ends the process in a way of its own, so that the parent sees that the library's fault came here.
LONG WINAPI EndByOwnFilter(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    const bool expected = record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.ExceptionInformation[0] == 1 &&
                          record.ExceptionInformation[1] == 0;
    TerminateProcess(GetCurrentProcess(), expected ? kOuterFilter : 1);
    return EXCEPTION_EXECUTE_HANDLER;
}

void OnEveryThread(void (*action)())
{
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
    {
        threads.emplace_back([action] {
            MeetTheOthers();
            action();
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

/// As the system calls a filter, which it does not under a debugger.
void CallFilter()
{
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_FULL;
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = 0xE0005678;
    EXCEPTION_POINTERS pointers = {&record, &context};
    LastChanceMiniDumpProcess(&pointers);
}

int Die(const std::string& way)
{
    if (way == "access-violation")
    {
        ViolateAccess();
    }
    else if (way == "divide")
    {
        return DivideByZero();
    }
    else if (way == "raise")
    {
        RaiseException(0xE0001234, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    }
    else if (way == "on-another-thread")
    {
        std::thread(ViolateAccess).join();
    }
    else if (way == "terminate" || way == "terminate-with-filter")
    {
        Note("terminate");
        ThrowIntoNothing();
    }
    else if (way == "violate-on-all-threads")
    {
        OnEveryThread(ViolateAccess);
    }
    else if (way == "terminate-on-all-threads")
    {
        OnEveryThread(ThrowIntoNothing);
    }
    else if (way == "filter")
    {
        CallFilter();
    }
    else if (way == "handler")
    {
        LastChanceTerminate();
        return 77;
    }
    else if (way == "overflow-stack")
    {
        OverflowStack();
    }
    else if (way == "overflow-on-another-thread")
    {
        std::thread(OverflowStack).join();
    }
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        return 2;
    }
    const std::string way = argv[1];
    g_file = argv[2];
    std::set_terminate(&LastChanceTerminate);
    if (way == "terminate-with-filter")
    {
        SetUnhandledExceptionFilter(&EndByOwnFilter);
    }
    else if (way != "terminate")
    {
        SetUnhandledExceptionFilter(&LastChanceMiniDumpProcess);
    }
    return Die(way);
}
