#include <SnapshotStage.h>

#include <CompanyFolder.h>

#include <UtilsLib/compression/DataSnapshot.h>
#include <UtilsLib/progress/ScopedSubProgress.h>

#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

using UtilsLib::DataSnapshot;
using UtilsLib::DataSnapshotStatus;
using UtilsLib::ProgressHandler;
using UtilsLib::ScopedSubProgress;

namespace
{

namespace fs = std::filesystem;

using Digest = std::optional<unsigned long long>;

constexpr int kLedgers = 0x1;
constexpr int kReports = 0x2;
constexpr int kLayouts = 0x4;

/// What came of the stage.
struct Outcome
{
    std::string failure; // empty: the snapshot was taken
    std::string path;
    std::size_t files = 0;
    unsigned long long bytes = 0;
    std::string comparison; // of the company with what it was
};

std::string ComparisonText(const Digest& before, const Digest& after)
{
    if (!before || !after)
    {
        return "The company was not compared: a file of it cannot be read.";
    }
    return *before == *after ? "The company is byte for byte what it was." : "THE COMPANY HAS CHANGED.";
}

unsigned long long TotalSize(const std::string& folder)
{
    unsigned long long bytes = 0;
    for (const CompanyFile& file : ListCompany(folder))
    {
        bytes += file.size;
    }
    return bytes;
}

/// The copying tells nobody how far it is, so another task does it and this one measures.
bool Copy(Job& job, DataSnapshot& snapshot, const std::string& company, ProgressHandler& progress, unsigned long& error)
{
    ScopedSubProgress part(progress, "copying");
    part.Begin(TotalSize(company));
    const std::string target = snapshot.GetSnapshotPath(); // the snapshot itself is the other task's meanwhile
    bool copied = false;
    job.RunMeanwhile([&] { copied = snapshot.Execute(error); },
                     [&] { part.UpdateProgressCurrent(TotalSize(target), ProgressHandler::Absolute); });
    return copied;
}

void Take(Job& job, DataSnapshot& snapshot, const std::string& company, const std::string& root,
          ProgressHandler& progress, Outcome& outcome)
{
    if (snapshot.Enumerate(root) != DataSnapshotStatus::Success)
    {
        outcome.failure = "The snapshot folder cannot be made in " + root;
        return;
    }
    outcome.path = snapshot.GetSnapshotPath();
    unsigned long error = 0;
    if (!Copy(job, snapshot, company, progress, error))
    {
        outcome.failure = error == 0 ? "A file is being written by another program: nothing is taken."
                                     : "The copy failed with error " + std::to_string(error);
        return;
    }
    const std::vector<CompanyFile> files = ListCompany(outcome.path);
    outcome.files = files.size();
    outcome.bytes = TotalSize(outcome.path);
}

Outcome TakeAndUndo(Job& job, const std::string& company, const std::string& root, ProgressHandler& progress)
{
    Outcome outcome;
    progress.Begin(4, 0); // steps
    const Digest before = CompanyDigest(company, progress, "reading");
    progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
    {
        DataSnapshot snapshot(company, kLedgers | kReports | kLayouts);
        Take(job, snapshot, company, root, progress, outcome);
        progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
        progress.UpdateSubMessage("undoing");
    } // undone here
    progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
    outcome.comparison = ComparisonText(before, CompanyDigest(company, progress, "comparing"));
    progress.UpdateProgressCurrent(1, ProgressHandler::Relative);
    progress.UpdateSubMessage("");
    return outcome;
}

} // namespace

void SnapshotCompany(Console& console, Job& job, const std::string& company, const std::string& outFolder)
{
    const std::string root = outFolder + "\\snapshots";
    std::error_code error;
    fs::create_directories(root, error);
    Outcome outcome;
    job.RunStage(TakingSnapshot,
                 [&](ProgressHandler& progress) { outcome = TakeAndUndo(job, company, root, progress); });
    if (!outcome.failure.empty())
    {
        console.Line(outcome.failure);
    }
    else
    {
        console.Value("taken", std::to_string(outcome.files) + " files, " + BytesText(outcome.bytes));
        console.Value("in", outcome.path);
    }
    if (!outcome.path.empty())
    {
        console.Line(fs::exists(outcome.path, error)
                         ? "Undone, but " + outcome.path + " is still there (is the retain switch on?)."
                         : "Undone: the snapshot folder is gone.");
    }
    console.Line(outcome.comparison);
}
