#include <tests/support/ChildProcess.h>

#include <tests/support/TempFolder.h>

#include <atomic>
#include <stdexcept>
#include <vector>

namespace TestSupport
{

namespace
{

constexpr UINT kKilled = 98;

UtilsLib::Platform::UniqueHandle MakeEvent(const char* variable)
{
    static std::atomic<unsigned int> count = 0;
    const std::string name =
        std::string(variable) + "_" + std::to_string(GetCurrentProcessId()) + "_" + std::to_string(++count);
    UtilsLib::Platform::UniqueHandle event(CreateEventA(nullptr, TRUE, FALSE, name.c_str()));
    if (!event || !SetEnvironmentVariableA(variable, name.c_str()))
    {
        throw std::runtime_error(LastErrorText("CreateEventA " + name));
    }
    return event;
}

bool Signalled(HANDLE handle, std::chrono::milliseconds limit)
{
    return WaitForSingleObject(handle, static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
}

} // namespace

ChildProcess::ChildProcess(const std::string& program, const std::string& arguments)
    : m_ready(MakeEvent("UTILSLIB_READY")), m_go(MakeEvent("UTILSLIB_GO"))
{
    const std::string path = ProgramFolder() + "\\" + program + ".exe";
    std::string line = "\"" + path + "\" " + arguments;
    std::vector<char> writable(line.c_str(), line.c_str() + line.size() + 1);
    STARTUPINFOA startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION information = {};
    if (!CreateProcessA(path.c_str(), writable.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &information))
    {
        throw std::runtime_error(LastErrorText("CreateProcessA " + path));
    }
    m_process.Reset(information.hProcess);
    const UtilsLib::Platform::UniqueHandle thread(information.hThread);
    m_id = information.dwProcessId;
}

ChildProcess::~ChildProcess()
{
    if (!Signalled(m_process.Get(), std::chrono::milliseconds(0)))
    {
        TerminateProcess(m_process.Get(), kKilled);
        WaitForSingleObject(m_process.Get(), 5000);
    }
}

bool ChildProcess::WaitUntilReady(std::chrono::milliseconds limit)
{
    const HANDLE either[] = {m_ready.Get(), m_process.Get()};
    return WaitForMultipleObjects(2, either, FALSE, static_cast<DWORD>(limit.count())) == WAIT_OBJECT_0;
}

void ChildProcess::LetGo()
{
    SetEvent(m_go.Get());
}

bool ChildProcess::WaitForExit(std::chrono::milliseconds limit)
{
    return Signalled(m_process.Get(), limit);
}

unsigned long ChildProcess::ExitCode() const
{
    DWORD code = 0;
    GetExitCodeProcess(m_process.Get(), &code);
    return code;
}

unsigned long ChildProcess::Id() const
{
    return m_id;
}

ChildResult RunChild(const std::string& program, const std::string& arguments, std::chrono::milliseconds limit)
{
    const auto start = std::chrono::steady_clock::now();
    ChildProcess child(program, arguments);
    ChildResult result;
    result.ended = child.WaitForExit(limit);
    result.exitCode = result.ended ? child.ExitCode() : kKilled;
    result.duration = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    return result;
}

std::string ProgramFolder()
{
    char path[MAX_PATH] = "";
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string whole = path;
    return whole.substr(0, whole.rfind('\\'));
}

} // namespace TestSupport
