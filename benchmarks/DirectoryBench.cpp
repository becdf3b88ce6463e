#include <benchmarks/Job.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/files/Directory.h>
#include <tests/support/TempFolder.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

using TestSupport::TempFolder;

namespace Bench
{
namespace
{

/// A flat folder of equal files, made when it is first used.
class Source
{
public:
    Source(int files, std::size_t bytes) : m_files(files), m_bytes(bytes)
    {
    }

    const TempFolder& Folder()
    {
        if (!m_folder)
        {
            m_folder = std::make_unique<TempFolder>();
            const std::string content(m_bytes, 'x');
            for (int i = 0; i < m_files; ++i)
            {
                m_folder->Write("data\\file" + std::to_string(i) + ".dat", content);
            }
        }
        return *m_folder;
    }

private:
    int m_files;
    std::size_t m_bytes;
    std::unique_ptr<TempFolder> m_folder;
};

bool CopyByOurs(const std::string& from, const std::string& to)
{
    unsigned long error = 0;
    UtilsLib::Directory copy(from, "data", to, /*keep=*/true);
    return copy.Execute(error);
}

bool CopyByFilesystem(const std::string& from, const std::string& to)
{
    std::error_code error;
    std::filesystem::copy(from + "\\data", to + "\\data", std::filesystem::copy_options::recursive, error);
    return !error;
}

bool CopyByCopyFile(const std::string& from, const std::string& to)
{
    CreateDirectoryA((to + "\\data").c_str(), nullptr);
    WIN32_FIND_DATAA entry;
    const HANDLE find = FindFirstFileA((from + "\\data\\*.*").c_str(), &entry);
    bool copied = find != INVALID_HANDLE_VALUE;
    do
    {
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        {
            const std::string name = std::string("\\data\\") + entry.cFileName;
            copied = copied && CopyFileA((from + name).c_str(), (to + name).c_str(), FALSE);
        }
    } while (FindNextFileA(find, &entry));
    FindClose(find);
    return copied;
}

using Copy = bool(const std::string& from, const std::string& to);

/// Measures the copy alone; the target is deleted outside the measured time.
Job::Body Measured(std::shared_ptr<Source> source, Copy* copy)
{
    return [source, copy](benchmark::State& state) {
        const TempFolder& from = source->Folder();
        for (auto _ : state)
        {
            const TempFolder to;
            const auto start = std::chrono::steady_clock::now();
            if (!copy(from.Path(), to.Path()))
            {
                state.SkipWithError("the copy failed");
            }
            state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
    };
}

void AddCopy(const std::string& name, int files, std::size_t bytes, double mostOfFloor)
{
    const auto source = std::make_shared<Source>(files, bytes);
    Job::Add(name, {.mostOfFloor = mostOfFloor})
        .OwnClock()
        .Operations(1)
        .BytesAnOperation(static_cast<double>(files) * static_cast<double>(bytes))
        .Ours(Measured(source, &CopyByOurs))
        .Alternative("std::filesystem::copy", Measured(source, &CopyByFilesystem))
        .Floor("CopyFileA, no locks", Measured(source, &CopyByCopyFile));
}

} // namespace

void AddDirectoryJobs()
{
    AddCopy("Directory: copy 2,000 files of 4 KiB", 2000, 4096, 1.15);
    AddCopy("Directory: copy 5 files of 50 MiB", 5, 50 << 20, 1.1);
}

} // namespace Bench
