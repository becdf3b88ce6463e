#include <tests/logging/DumpFile.h>

#include <UtilsLib/platform/UniqueFindHandle.h>

#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace DumpTests
{

namespace
{

constexpr unsigned long kSignature = 0x504D444D; // "MDMP"
constexpr unsigned long kVersion = 0xA793;

std::string ReadAll(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        throw std::runtime_error("cannot open " + path);
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

} // namespace

void DumpFile::Need(unsigned long long offset, unsigned long long size) const
{
    if (offset > m_bytes.size() || size > m_bytes.size() - offset)
    {
        throw std::runtime_error("the dump ends before " + std::to_string(offset) + " + " + std::to_string(size));
    }
}

template <typename Record>
const Record& DumpFile::At(unsigned long offset) const
{
    Need(offset, sizeof(Record));
    return *reinterpret_cast<const Record*>(m_bytes.data() + offset);
}

template <typename List>
const List& DumpFile::Stream(MINIDUMP_STREAM_TYPE type) const
{
    const auto& header = At<MINIDUMP_HEADER>(0);
    for (unsigned long i = 0; i < header.NumberOfStreams; ++i)
    {
        const auto& entry = At<MINIDUMP_DIRECTORY>(header.StreamDirectoryRva + i * sizeof(MINIDUMP_DIRECTORY));
        if (entry.StreamType == static_cast<unsigned long>(type))
        {
            Need(entry.Location.Rva, entry.Location.DataSize);
            return At<List>(entry.Location.Rva);
        }
    }
    throw std::runtime_error("no stream " + std::to_string(type));
}

template <typename List, typename Record>
std::vector<Record> DumpFile::Records(MINIDUMP_STREAM_TYPE type, ULONG32 List::*count) const
{
    const List& list = Stream<List>(type);
    const auto begin = static_cast<unsigned long>(reinterpret_cast<const char*>(&list) - m_bytes.data() +
                                                  sizeof(unsigned long)); // the records follow their number
    std::vector<Record> records;
    for (unsigned long i = 0; i < list.*count; ++i)
    {
        records.push_back(At<Record>(begin + i * sizeof(Record)));
    }
    return records;
}

DumpFile::DumpFile(const std::string& path) : m_bytes(ReadAll(path))
{
    const auto& header = At<MINIDUMP_HEADER>(0);
    if (header.Signature != kSignature || (header.Version & 0xFFFF) != kVersion)
    {
        throw std::runtime_error("not a dump: " + path);
    }
    for (unsigned long i = 0; i < header.NumberOfStreams; ++i)
    {
        const auto& entry = At<MINIDUMP_DIRECTORY>(header.StreamDirectoryRva + i * sizeof(MINIDUMP_DIRECTORY));
        Need(entry.Location.Rva, entry.Location.DataSize);
    }
}

unsigned long long DumpFile::Type() const
{
    return At<MINIDUMP_HEADER>(0).Flags;
}

const MINIDUMP_SYSTEM_INFO& DumpFile::System() const
{
    return Stream<MINIDUMP_SYSTEM_INFO>(SystemInfoStream);
}

const MINIDUMP_EXCEPTION_STREAM& DumpFile::Exception() const
{
    return Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
}

CONTEXT DumpFile::Registers() const
{
    const MINIDUMP_LOCATION_DESCRIPTOR& location = Exception().ThreadContext;
    if (location.DataSize != sizeof(CONTEXT))
    {
        throw std::runtime_error("registers of " + std::to_string(location.DataSize) + " bytes");
    }
    return At<CONTEXT>(location.Rva);
}

std::vector<unsigned long> DumpFile::ThreadIds() const
{
    std::vector<unsigned long> ids;
    for (const MINIDUMP_THREAD& thread :
         Records<MINIDUMP_THREAD_LIST, MINIDUMP_THREAD>(ThreadListStream, &MINIDUMP_THREAD_LIST::NumberOfThreads))
    {
        Need(thread.ThreadContext.Rva, thread.ThreadContext.DataSize);
        Need(thread.Stack.Memory.Rva, thread.Stack.Memory.DataSize);
        ids.push_back(thread.ThreadId);
    }
    return ids;
}

std::string DumpFile::NameOf(const MINIDUMP_MODULE& module) const
{
    const unsigned long size = At<unsigned long>(module.ModuleNameRva); // bytes of UTF-16
    Need(module.ModuleNameRva + sizeof(size), size);
    std::string name;
    for (unsigned long i = 0; i < size; i += 2)
    {
        const auto unit = static_cast<unsigned char>(m_bytes[module.ModuleNameRva + sizeof(size) + i]);
        name += static_cast<char>(std::tolower(unit));
    }
    return name.substr(name.rfind('\\') + 1);
}

std::vector<std::string> DumpFile::Modules() const
{
    std::vector<std::string> names;
    for (const MINIDUMP_MODULE& module :
         Records<MINIDUMP_MODULE_LIST, MINIDUMP_MODULE>(ModuleListStream, &MINIDUMP_MODULE_LIST::NumberOfModules))
    {
        names.push_back(NameOf(module));
    }
    return names;
}

std::string DumpFile::ModuleAt(unsigned long long address) const
{
    for (const MINIDUMP_MODULE& module :
         Records<MINIDUMP_MODULE_LIST, MINIDUMP_MODULE>(ModuleListStream, &MINIDUMP_MODULE_LIST::NumberOfModules))
    {
        if (address >= module.BaseOfImage && address - module.BaseOfImage < module.SizeOfImage)
        {
            return NameOf(module);
        }
    }
    return "";
}

std::string DumpFile::Memory(unsigned long long address, std::size_t size) const
{
    std::string found;
    for (const MINIDUMP_MEMORY_DESCRIPTOR& range : Records<MINIDUMP_MEMORY_LIST, MINIDUMP_MEMORY_DESCRIPTOR>(
             MemoryListStream, &MINIDUMP_MEMORY_LIST::NumberOfMemoryRanges))
    {
        Need(range.Memory.Rva, range.Memory.DataSize);
        const unsigned long long offset = address - range.StartOfMemoryRange;
        if (address >= range.StartOfMemoryRange && offset + size <= range.Memory.DataSize)
        {
            found = m_bytes.substr(static_cast<std::size_t>(range.Memory.Rva + offset), size);
        }
    }
    return found;
}

std::vector<std::string> DumpsOnDriveC()
{
    std::vector<std::string> paths;
    WIN32_FIND_DATAA data = {};
    const UtilsLib::Platform::UniqueFindHandle search(FindFirstFileA("c:\\hx41svc crashdump *", &data));
    for (BOOL more = static_cast<bool>(search); more; more = FindNextFileA(search.Get(), &data))
    {
        paths.push_back(std::string("c:\\") + data.cFileName);
    }
    return paths;
}

} // namespace DumpTests
