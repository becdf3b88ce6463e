#pragma once

#include <UtilsLib/platform/UniqueHandle.h>

#include <chrono>
#include <string>

namespace TestSupport
{

/// A second process: a program of the tests' own folder with arguments. Killed at scope end if it still runs.
///
/// The child can say that it has come to a certain point by signalling the event whose name stands in its environment
/// as UTILSLIB_READY (see `SignalReady`), and can be told to go on by the one of UTILSLIB_GO (see `WaitForGo`).
class ChildProcess
{
public:
    /// `program` without folder and ".exe". Throws when it cannot be started.
    explicit ChildProcess(const std::string& program, const std::string& arguments = "");
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] bool WaitUntilReady(std::chrono::milliseconds limit = std::chrono::seconds(10));
    void LetGo();
    /// False when the child still runs after `limit`.
    [[nodiscard]] bool WaitForExit(std::chrono::milliseconds limit = std::chrono::seconds(20));
    /// After `WaitForExit`.
    unsigned long ExitCode() const;
    unsigned long Id() const;

private:
    UtilsLib::Platform::UniqueHandle m_ready;
    UtilsLib::Platform::UniqueHandle m_go;
    UtilsLib::Platform::UniqueHandle m_process;
    unsigned long m_id = 0;
};

struct ChildResult
{
    bool ended = false;
    unsigned long exitCode = 0;
    std::chrono::milliseconds duration{};
};

/// Runs a child to its end.
ChildResult RunChild(const std::string& program, const std::string& arguments = "",
                     std::chrono::milliseconds limit = std::chrono::seconds(20));

/// The folder of the test programs, without a separator at its end.
std::string ProgramFolder();

} // namespace TestSupport
