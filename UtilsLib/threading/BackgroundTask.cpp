#include <UtilsLib/threading/BackgroundTask.h>

#include <UtilsLib/WindowsTypes.h>
#include <UtilsLib/logging/Logger.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/system/HelperUtils.h>

#include <atomic>

namespace UtilsLib
{

namespace
{

constexpr int kFailed = -1;
constexpr int kStarted = 1;

/// Empty when the process could not be created. `line` may be changed by the system.
PROCESS_INFORMATION CreateChild(const std::string& program, std::string& line, const std::string& folder)
{
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION child = {};
    if (!CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(), &startup,
                        &child))
    {
        return {};
    }
    return child;
}

int WaitForExitCode(HANDLE process)
{
    DWORD code = 0;
    if (WaitForSingleObject(process, INFINITE) != WAIT_OBJECT_0 || !GetExitCodeProcess(process, &code))
    {
        return kFailed;
    }
    return static_cast<int>(code);
}

} // namespace

BackgroundTask::BackgroundTask() : m_processId(0)
{
}

BackgroundTask::BackgroundTask(const BackgroundTask& other) = default;
BackgroundTask& BackgroundTask::operator=(const BackgroundTask& other) = default;
BackgroundTask::~BackgroundTask() = default;

int BackgroundTask::RunProcess(bool wait)
{
    const std::string folder = GetWorkingDirectory();
    SetCurrentDirectoryA(folder.c_str()); // kept: for the whole process
    std::string line = executablePath + " " + arguments;
    ILogger& logger = Logger::GetInstance();
    logger.Log(LogCategory::General, LogTraceLevel::Information, "BackgroundTask::RunProcess() %s: %s",
               executablePath.c_str(), line.c_str());

    const PROCESS_INFORMATION child = CreateChild(executablePath, line, folder);
    const Platform::UniqueHandle process(child.hProcess);
    const Platform::UniqueHandle thread(child.hThread);
    if (!process)
    {
        return kFailed;
    }
    // Before the wait, so that others can ask for it meanwhile.
    std::atomic_ref<unsigned int>(m_processId).store(child.dwProcessId);
    // kept: 1 is also what a program that was waited for may end with
    return wait ? WaitForExitCode(process.Get()) : kStarted;
}

unsigned int BackgroundTask::GetProcessID()
{
    return std::atomic_ref<unsigned int>(m_processId).load();
}

bool BackgroundTask::IsPIDRunning(unsigned int pid)
{
    if (pid == 0)
    {
        return false;
    }
    const HANDLE opened = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, pid);
    if (opened == INVALID_HANDLE_VALUE)
    {
        return false; // the caller's own process, if it were taken for a handle
    }
    const Platform::UniqueHandle process(opened);
    DWORD code = 0;
    // kept: a process that ended with this very code counts as running
    return process && GetExitCodeProcess(process.Get(), &code) && code == STILL_ACTIVE;
}

std::string BackgroundTask::GetWorkingDirectory()
{
    const std::string path = HelperUtils::GetBinaryPath();
    return path.substr(0, path.rfind('\\')); // the whole path when there is none
}

} // namespace UtilsLib
