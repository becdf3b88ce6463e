#pragma once

#include <UtilsLib/Export.h>

#include <string>

namespace UtilsLib
{

/// Another program, run beside this one. A plain value: copies have the same texts and process id.
///
/// The destructor is not virtual, on purpose: do not delete a derived object through this class. Texts are in the ANSI
/// code page. An object belongs to one thread at a time.
class UTILSLIB_API BackgroundTask
{
public:
    BackgroundTask();
    /// Copies all three fields.
    BackgroundTask(const BackgroundTask& other);
    /// Copies all three fields.
    BackgroundTask& operator=(const BackgroundTask& other);
    ~BackgroundTask();

    /// Starts the program and, when `wait` is true, blocks without a time limit until it has ended. The result is its
    /// exit code then; 1 when it was started and not waited for; -1 for every failure. The last error is that of the
    /// failed step.
    ///
    /// First makes the folder of the program that runs this the current directory of the whole process, and the
    /// child's: meant so. Logs the command line. The child gets this process's environment and none of its handles.
    virtual int RunProcess(bool wait);

    /// The id of the process last started, 0 before the first; a failed start leaves it. Valid as soon as the process
    /// exists, so while another thread is in `RunProcess` too. The system gives ids of ended processes to new ones.
    unsigned int GetProcessID();
    /// Whether a process of that id exists and has not ended. False for 0, and when it may not be asked. True also for
    /// one that ended with the code 259, which stands for "still active", as long as somebody has it open. Any thread.
    static bool IsPIDRunning(unsigned int pid);

    std::string executablePath; ///< Full path of the program to start, without quotation marks.
    /// What follows the path and a blank on the command line. The path stands there as it is: in a child with a blank
    /// in its path, `argv` begins with the parts of the path.
    std::string arguments;

private:
    /// The folder of this process's program, without a separator at its end.
    std::string GetWorkingDirectory();

    unsigned int m_processId; // set by the thread in RunProcess, read by any
};

} // namespace UtilsLib
