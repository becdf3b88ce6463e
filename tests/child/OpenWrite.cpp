// Opens a set of files with logging on: child_open_write LOG FOLDER NAME... First denies others to write them, then
// opens them for writing. The exit code is the last error after the first of the two that fails, 0 when none does.
#include <UtilsLib/files/ScopedFiles.h>
#include <UtilsLib/logging/Logger.h>

#include <tests/files/RecordingWatcher.h>
#include <tests/support/ScopedMachineHive.h>

#include <string>
#include <vector>

namespace
{

int OpenBothWays(const std::string& folder, const std::vector<std::string>& names)
{
    RecordingWatcher watcher;
    UtilsLib::ScopedFiles set(&watcher, folder, names);
    const bool denied = set.LockFilesDenyWrite();
    const int errorOfDenying = static_cast<int>(GetLastError());
    set.Close();
    if (!set.OpenWrite())
    {
        return static_cast<int>(GetLastError());
    }
    return denied ? 0 : errorOfDenying;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
    {
        return 1000;
    }
    const TestSupport::ScopedMachineHive machine;
    machine.SetDword("hx41svc_logging", 1);
    UtilsLib::Logger& logger = UtilsLib::Logger::GetInstance();
    logger.SetPath(argv[1]);
    logger.Start();
    const int error = OpenBothWays(argv[2], {argv + 3, argv + argc});
    logger.Shutdown();
    return error;
}
