#pragma once

#include <tests/logging/DumpFile.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace DumpTests
{

/// No dump lies in the root folder of drive C before a test and after it.
class DumpFolder : public testing::Test
{
protected:
    DumpFolder()
    {
        Clear();
    }
    ~DumpFolder() override
    {
        Clear();
    }

    /// The path of the one dump there is. Throws when there is none or more.
    static std::string OnlyDump()
    {
        return DumpsOnDriveC().size() == 1 ? DumpsOnDriveC().front() : throw std::runtime_error("not one dump");
    }
    static std::string ReadOnlyDump()
    {
        return TestSupport::ContentOf(OnlyDump());
    }
    static void Clear()
    {
        for (const std::string& path : DumpsOnDriveC())
        {
            DeleteFileA(path.c_str());
            RemoveDirectoryA(path.c_str());
        }
    }
};

} // namespace DumpTests
