#include <UtilsLib/files/BatchFile.h>

#include <UtilsLib/WindowsTypes.h>

#include <tests/support/Gate.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

using TestSupport::Eventually;
using UtilsLib::BatchFile;

TEST(BatchFileRunTest, TheShellRunsTheLines)
{
    TestSupport::TempFolder folder;
    const std::string name = "utilslib_batch_run_" + std::to_string(GetCurrentProcessId()) + ".bat";
    BatchFile batch(name);
    batch.PushOp("@echo first> \"" + (folder / "first.txt") + "\"");
    batch.PushOp("@echo second> \"" + (folder / "second.txt") + "\"");

    batch.Execute();

    EXPECT_TRUE(Eventually([&] { return folder.Read("second.txt") == "second\r\n"; }, std::chrono::seconds(20)));
    EXPECT_EQ(folder.Read("first.txt"), "first\r\n");
    const std::string path = (std::filesystem::temp_directory_path() / name).string();
    EXPECT_TRUE(Eventually([&] { return DeleteFileA(path.c_str()) != FALSE; })); // the shell may still read it
}
