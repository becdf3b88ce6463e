#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <dbghelp.h>

#include <string>
#include <vector>

namespace DumpTests
{

/// A crash dump as a debugger reads it. Throws where something in the file lies outside of it or is not what it says.
class DumpFile
{
public:
    explicit DumpFile(const std::string& path);

    /// The type that the dump was asked for.
    unsigned long long Type() const;
    const MINIDUMP_SYSTEM_INFO& System() const;
    const MINIDUMP_EXCEPTION_STREAM& Exception() const;
    /// The registers at the exception.
    CONTEXT Registers() const;
    std::vector<unsigned long> ThreadIds() const;
    /// File names without folders, lower case.
    std::vector<std::string> Modules() const;
    /// The module that `address` lies in, likewise; empty when there is none.
    std::string ModuleAt(unsigned long long address) const;
    /// Process memory from the dump, empty when it does not hold all of it.
    std::string Memory(unsigned long long address, std::size_t size) const;

private:
    template <typename Record>
    const Record& At(unsigned long offset) const;
    template <typename List>
    const List& Stream(MINIDUMP_STREAM_TYPE type) const;
    template <typename List, typename Record>
    std::vector<Record> Records(MINIDUMP_STREAM_TYPE type, ULONG32 List::*count) const;
    std::string NameOf(const MINIDUMP_MODULE& module) const;
    void Need(unsigned long long offset, unsigned long long size) const;

    std::string m_bytes;
};

/// The dump files that lie in the root folder of drive C, whole paths.
std::vector<std::string> DumpsOnDriveC();

} // namespace DumpTests
