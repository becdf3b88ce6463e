#include <UtilsLib/platform/StructuredGuard.h>

#if !defined(_MSC_VER)
#include <cstddef>
#endif

namespace UtilsLib::Platform
{

#if defined(_MSC_VER)

bool CallGuarded(GuardedBody body, GuardFilter filter, void* argument)
{
    __try
    {
        body(argument);
        return true;
    }
    __except (filter(GetExceptionInformation(), argument))
    {
        return false;
    }
}

#else

// Windows keeps a chain of registration records on each thread's stack, innermost first, its head at fs:[0]. At an
// exception it calls the records' handlers in that order. A handler that takes the exception has the system unwind the
// records inside its own and then jumps back into the function that registered it.
namespace
{

struct Guard
{
    EXCEPTION_REGISTRATION_RECORD link;
    void* frame; // ebp of the function that returns when the body is given up
    GuardFilter filter;
    void* argument;
};
static_assert(offsetof(Guard, link) == 0 && offsetof(EXCEPTION_REGISTRATION_RECORD, Next) == 0);
static_assert(offsetof(Guard, frame) == 8); // the assembly below writes here

} // namespace

extern "C"
{
    /// Links `guard` into the chain, calls the body and unlinks. 1 when the body came to its end, 0 when it was given
    /// up.
    int UtilsLibEnterGuard(Guard* guard, GuardedBody body, void* argument) asm("UtilsLibEnterGuard");
    /// Makes the `UtilsLibEnterGuard` of `guard` return 0, from any depth of its body's calls.
    [[noreturn]] void UtilsLibLeaveGuard(Guard* guard) asm("UtilsLibLeaveGuard");
}

// RtlUnwind promises to keep the stack pointer only, so the guard waits on the stack while it runs. The frame of
// UtilsLibEnterGuard holds the caller's registers; the frames below it are forgotten.
asm(R"(
    .text
    .p2align 4
UtilsLibEnterGuard:
    .cfi_startproc
    pushl %ebp
    .cfi_def_cfa_offset 8
    .cfi_offset 5, -8
    movl %esp, %ebp
    .cfi_def_cfa_register 5
    pushl %ebx
    .cfi_offset 3, -12
    pushl %esi
    .cfi_offset 6, -16
    pushl %edi
    .cfi_offset 7, -20
    movl 8(%ebp), %eax
    movl %fs:0, %ecx
    movl %ecx, (%eax)
    movl %ebp, 8(%eax)
    movl %eax, %fs:0
    pushl 16(%ebp)
    call *12(%ebp)
    movl $1, %eax
.LUtilsLibGuardEnd:
    movl 8(%ebp), %ecx
    movl (%ecx), %ecx
    movl %ecx, %fs:0
    leal -12(%ebp), %esp
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    .cfi_def_cfa 4, 4
    ret
    .cfi_endproc

    .p2align 4
UtilsLibLeaveGuard:
    pushl 4(%esp)
    movl (%esp), %eax
    pushl $0
    pushl $0
    pushl $.LUtilsLibUnwound
    pushl %eax
    call _RtlUnwind@16
.LUtilsLibUnwound:
    popl %eax
    movl 8(%eax), %ebp
    xorl %eax, %eax
    cld
    jmp .LUtilsLibGuardEnd
)");

namespace
{

extern "C" EXCEPTION_DISPOSITION __cdecl OnGuardedException(EXCEPTION_RECORD* record, void* frame, CONTEXT* context,
                                                            void*)
{
    if ((record->ExceptionFlags & (EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND)) != 0)
    {
        return ExceptionContinueSearch; // an outer handler has taken it; there is nothing to clean up
    }
    auto* const guard = static_cast<Guard*>(frame);
    EXCEPTION_POINTERS pointers = {record, context};
    const LONG answer = guard->filter(&pointers, guard->argument);
    if (answer == EXCEPTION_CONTINUE_SEARCH)
    {
        return ExceptionContinueSearch;
    }
    if (answer < 0)
    {
        return ExceptionContinueExecution;
    }
    UtilsLibLeaveGuard(guard);
}

} // namespace

bool CallGuarded(GuardedBody body, GuardFilter filter, void* argument)
{
    Guard guard = {};
    // NOLINTNEXTLINE(clang-diagnostic-cast-calling-convention): the header's type is wrong, the system calls it so
    guard.link.Handler = reinterpret_cast<PEXCEPTION_ROUTINE>(&OnGuardedException);
    guard.filter = filter;
    guard.argument = argument;
    return UtilsLibEnterGuard(&guard, body, argument) != 0;
}

#endif

#if defined(__GNUC__)
__attribute__((no_sanitize("undefined"))) // the write is meant
#endif
void WriteToAddressZero()
{
    // Read at run time, so that no compiler sees the null pointer.
    int* volatile nowhere = nullptr;
    *static_cast<volatile int*>(nowhere) = 0; // NOLINT(clang-analyzer-core.NullDereference)
}

} // namespace UtilsLib::Platform
