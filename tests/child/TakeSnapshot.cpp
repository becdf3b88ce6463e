// Takes a snapshot and is ended in the middle: child_take_snapshot DATASET SNAPSHOTROOT FLAGS CALL. Ends itself without
// any clean-up at the library's CALLth file operation; 0 when there were fewer.
#include <UtilsLib/compression/DataSnapshot.h>

#include <tests/support/FileFaults.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 5)
    {
        return 2;
    }
    const TestSupport::FileFaults faults(std::atoi(argv[4]), TestSupport::FileFaults::Fault::EndProcess);
    UtilsLib::DataSnapshot snapshot(argv[1], std::atoi(argv[3]));
    if (snapshot.Enumerate(argv[2]) != UtilsLib::DataSnapshotStatus::Success)
    {
        return 3;
    }
    unsigned long error = 0;
    return snapshot.Execute(error) ? 0 : 4;
}
