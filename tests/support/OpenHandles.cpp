#include <tests/support/OpenHandles.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tlhelp32.h>
#include <winternl.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace TestSupport
{

namespace
{

constexpr auto kSystemHandleInformation = static_cast<SYSTEM_INFORMATION_CLASS>(16);
constexpr NTSTATUS kTooShort = static_cast<NTSTATUS>(0xC0000004);

struct HandleEntry
{
    std::uint32_t processId;
    std::uint8_t type;
    std::uint8_t flags;
    std::uint16_t handle;
    void* object;
    std::uint32_t access;
};

struct HandleTable
{
    std::uint32_t count;
    HandleEntry entries[1];
};

} // namespace

unsigned long OpenHandles()
{
    std::vector<unsigned char> buffer(1 << 16);
    ULONG needed = 0;
    NTSTATUS status = 0;
    while ((status = NtQuerySystemInformation(kSystemHandleInformation, buffer.data(),
                                              static_cast<ULONG>(buffer.size()), &needed)) == kTooShort)
    {
        buffer.resize(buffer.size() * 2);
    }
    if (status != 0)
    {
        throw std::runtime_error("NtQuerySystemInformation failed");
    }
    const auto* const table = reinterpret_cast<const HandleTable*>(buffer.data());
    unsigned long count = 0;
    for (std::uint32_t i = 0; i < table->count; ++i)
    {
        count += table->entries[i].processId == GetCurrentProcessId() ? 1 : 0;
    }
    return count;
}

unsigned long RunningThreads()
{
    const UtilsLib::Platform::UniqueFileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof(entry);
    unsigned long count = 0;
    for (BOOL more = Thread32First(snapshot.Get(), &entry); more; more = Thread32Next(snapshot.Get(), &entry))
    {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    return count;
}

} // namespace TestSupport
