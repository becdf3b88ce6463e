#include <UtilsLib/files/FileOperations.h>

#include <UtilsLib/platform/UniqueFileHandle.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/OpenFile.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::ImportPatch;
using TestSupport::LastErrorText;
using TestSupport::OpenFile;
using TestSupport::OpenHandles;
using UtilsLib::FileOperations;
using UtilsLib::Platform::UniqueFileHandle;

namespace
{

bool SetSize(HANDLE file, long long size)
{
    LARGE_INTEGER end;
    end.QuadPart = size;
    return SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file);
}

bool WriteAt(HANDLE file, long long offset, const std::string& text)
{
    LARGE_INTEGER place;
    place.QuadPart = offset;
    DWORD written = 0;
    return SetFilePointerEx(file, place, nullptr, FILE_BEGIN) &&
           WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

class FileOperationsTest : public testing::Test
{
protected:
    /// Runs over "a.dat"; the chunks arrive in m_chunks, the last one with a "|" behind it.
    bool Operate(unsigned int chunkSize)
    {
        m_chunks.clear();
        return FileOperations::OperateOnFile(m_path, chunkSize,
                                             [this](const unsigned char* data, unsigned int length, bool last) {
                                                 const std::string chunk(reinterpret_cast<const char*>(data), length);
                                                 m_chunks.push_back(last ? chunk + "|" : chunk);
                                                 if (m_then)
                                                 {
                                                     m_then();
                                                 }
                                                 return m_answer;
                                             });
    }
    UniqueFileHandle OpenWriterBeside() const
    {
        return UniqueFileHandle(CreateFileA(m_path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                            OPEN_ALWAYS, 0, nullptr));
    }

    TestSupport::TempFolder m_folder;
    const std::string m_path = m_folder / "a.dat";
    std::vector<std::string> m_chunks;
    std::function<void()> m_then; // run in each call
    bool m_answer = true;
};

BOOL WINAPI SeekEndFails(HANDLE, LARGE_INTEGER, LARGE_INTEGER*, DWORD)
{
    SetLastError(ERROR_GEN_FAILURE);
    return FALSE;
}

int g_readsBeforeFault = 0;

/// For huge files: enough to recognise the place, as if all had been read.
BOOL WINAPI ReadOnlyTheStart(HANDLE file, void* buffer, DWORD size, DWORD* done, OVERLAPPED*)
{
    ReadFile(file, buffer, std::min<DWORD>(size, 5), done, nullptr);
    LARGE_INTEGER rest = {};
    rest.QuadPart = static_cast<long long>(size) - *done;
    *done = size;
    return SetFilePointerEx(file, rest, nullptr, FILE_CURRENT);
}

BOOL WINAPI ReadWithAFault(HANDLE file, void* buffer, DWORD size, DWORD* done, OVERLAPPED* place)
{
    if (g_readsBeforeFault-- == 0)
    {
        SetLastError(ERROR_CRC);
        *done = 0;
        return FALSE;
    }
    return ReadFile(file, buffer, size, done, place);
}

} // namespace

TEST_F(FileOperationsTest, CutsTheFileIntoChunksAndMarksTheLast)
{
    m_folder.Write("a.dat", "0123456789");
    EXPECT_TRUE(Operate(4));
    EXPECT_THAT(m_chunks, ElementsAre("0123", "4567", "89|"));
    EXPECT_TRUE(Operate(5));
    EXPECT_THAT(m_chunks, ElementsAre("01234", "56789|")); // an exact multiple: the last one is full
    EXPECT_TRUE(Operate(9));
    EXPECT_THAT(m_chunks, ElementsAre("012345678", "9|"));
    EXPECT_TRUE(Operate(10));
    EXPECT_THAT(m_chunks, ElementsAre("0123456789|"));
    EXPECT_TRUE(Operate(11));
    EXPECT_THAT(m_chunks, ElementsAre("0123456789|"));
    EXPECT_TRUE(Operate(0xFFFFFFFF)); // no room is taken beyond the file's size
    EXPECT_THAT(m_chunks, ElementsAre("0123456789|"));
    EXPECT_TRUE(Operate(1));
    EXPECT_EQ(m_chunks.size(), 10u);
    EXPECT_EQ(m_chunks.back(), "9|");
}

TEST_F(FileOperationsTest, BytesArriveAsTheyAre)
{
    const std::string bytes("a\r\nb\x1A\0\xFF\n", 8);
    m_folder.Write("a.dat", bytes);

    EXPECT_TRUE(Operate(100));

    EXPECT_THAT(m_chunks, ElementsAre(bytes + "|"));
}

TEST_F(FileOperationsTest, AnEmptyFileSucceedsWithoutACall)
{
    m_folder.Write("a.dat", "");

    EXPECT_TRUE(Operate(4));
    EXPECT_TRUE(FileOperations::OperateOnFile(m_path, 4, nullptr));

    EXPECT_THAT(m_chunks, IsEmpty());
}

TEST_F(FileOperationsTest, AFileThatCannotBeOpenedIsFalseWithoutACall)
{
    EXPECT_FALSE(Operate(4));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_FALSE(m_folder.Exists("a.dat"));
    m_folder.MakeFolder("a.dat");
    EXPECT_FALSE(Operate(4));
    EXPECT_FALSE(FileOperations::OperateOnFile("", 4, nullptr));

    EXPECT_THAT(m_chunks, IsEmpty());
}

TEST_F(FileOperationsTest, AChunkSizeOfZeroIsRefused)
{
    m_folder.Write("a.dat", "0123456789");

    EXPECT_FALSE(Operate(0));

    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_THAT(m_chunks, IsEmpty());
}

TEST_F(FileOperationsTest, ACallbackThatReturnsFalseEndsItAtOnce)
{
    m_folder.Write("a.dat", "0123456789");
    m_answer = false;

    EXPECT_FALSE(Operate(4));
    EXPECT_THAT(m_chunks, ElementsAre("0123"));
    EXPECT_FALSE(Operate(10)); // also on the last
    EXPECT_THAT(m_chunks, ElementsAre("0123456789|"));
}

TEST_F(FileOperationsTest, WhatTheCallbackThrowsGoesToTheCallerAndTheFileIsClosed)
{
    m_folder.Write("a.dat", "0123456789");
    m_then = [] { throw std::runtime_error("callback"); };

    EXPECT_THROW(Operate(4), std::runtime_error);
    EXPECT_THROW(FileOperations::OperateOnFile(m_path, 4, nullptr), std::bad_function_call);

    EXPECT_EQ(m_chunks.size(), 1u);
    EXPECT_TRUE(OpenFile(m_path, GENERIC_READ, 0)) << LastErrorText("CreateFileA"); // nobody has it open
}

TEST_F(FileOperationsTest, LeavesNoHandleBehind)
{
    m_folder.Write("a.dat", "0123456789");
    const unsigned long before = OpenHandles();

    EXPECT_TRUE(Operate(4));
    m_answer = false;
    EXPECT_FALSE(Operate(4));
    {
        const ImportPatch noEnd("KERNEL32.dll", "SetFilePointerEx", &SeekEndFails);
        EXPECT_FALSE(Operate(4));
        EXPECT_EQ(GetLastError(), DWORD{ERROR_GEN_FAILURE});
    }

    EXPECT_EQ(OpenHandles(), before);
}

TEST_F(FileOperationsTest, OthersMayWriteBesideAndAnExclusiveHolderIsInTheWay)
{
    m_folder.Write("a.dat", "0123456789");
    {
        const UniqueFileHandle writer = OpenWriterBeside();
        EXPECT_TRUE(Operate(10));
    }
    {
        const UniqueFileHandle deleter = OpenFile(m_path, DELETE);
        EXPECT_FALSE(Operate(10)); // as an input stream does not share deletion
    }
    const UniqueFileHandle alone = OpenFile(m_path, GENERIC_READ, 0);

    EXPECT_FALSE(Operate(10));

    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(FileOperationsTest, TheCallbackMayOpenTheFileForWritingButNotDeleteIt)
{
    m_folder.Write("a.dat", "0123456789");
    m_then = [this] {
        EXPECT_TRUE(OpenWriterBeside()) << LastErrorText("CreateFileA");
        EXPECT_FALSE(DeleteFileA(m_path.c_str()));
    };

    EXPECT_TRUE(Operate(10));
}

TEST_F(FileOperationsTest, EachChunkIsReadRightBeforeItsCall)
{
    m_folder.Write("a.dat", "0123456789");
    const UniqueFileHandle writer = OpenWriterBeside();
    m_then = [&] { EXPECT_TRUE(WriteAt(writer.Get(), 0, "abcdefghij")); };

    EXPECT_TRUE(Operate(4));

    EXPECT_THAT(m_chunks, ElementsAre("0123", "efgh", "ij|"));
}

TEST_F(FileOperationsTest, AFileThatShrinksGivesZerosFromItsEndOn)
{
    m_folder.Write("a.dat", "0123456789");
    const UniqueFileHandle writer = OpenWriterBeside();
    m_then = [&] { EXPECT_TRUE(SetSize(writer.Get(), 5)); };

    EXPECT_TRUE(Operate(4));

    EXPECT_THAT(m_chunks, ElementsAre("0123", std::string("4\0\0\0", 4), std::string("\0\0|", 3)));
}

TEST_F(FileOperationsTest, AfterAShortReadNothingMoreIsRead)
{
    m_folder.Write("a.dat", "0123456789");
    const UniqueFileHandle writer = OpenWriterBeside();
    m_then = [&] {
        EXPECT_TRUE(m_chunks.size() == 1 ? SetSize(writer.Get(), 5) : WriteAt(writer.Get(), 0, "abcdefghij"));
    };

    EXPECT_TRUE(Operate(4));

    EXPECT_THAT(m_chunks, ElementsAre("0123", std::string("4\0\0\0", 4), std::string("\0\0|", 3)));
}

TEST_F(FileOperationsTest, AFileThatGrowsKeepsTheChunksOfItsFirstSize)
{
    m_folder.Write("a.dat", "0123456789");
    const UniqueFileHandle writer = OpenWriterBeside();
    m_then = [&] { EXPECT_TRUE(WriteAt(writer.Get(), 10, "abcdefghij")); };

    EXPECT_TRUE(Operate(4));

    EXPECT_THAT(m_chunks, ElementsAre("0123", "4567", "89|"));
}

TEST_F(FileOperationsTest, AFailedReadIsSeenAsZerosOnly)
{
    m_folder.Write("a.dat", "0123456789");
    g_readsBeforeFault = 1;
    const ImportPatch fault("KERNEL32.dll", "ReadFile", &ReadWithAFault);

    EXPECT_TRUE(Operate(4));

    EXPECT_THAT(m_chunks, ElementsAre("0123", std::string(4, '\0'), std::string("\0\0|", 3)));
}

// Kept: offsets are counted in 32 bits, so the chunks from 4 GiB on show the beginning of the file again.
TEST_F(FileOperationsTest, OffsetsWrapAtFourGiB)
{
    constexpr unsigned int chunk = 0x10000000;
    const UniqueFileHandle writer = OpenWriterBeside();
    ASSERT_TRUE(WriteAt(writer.Get(), 0, "begin") && WriteAt(writer.Get(), 15ll * chunk, "last!") &&
                WriteAt(writer.Get(), 16ll * chunk, "beyond"))
        << LastErrorText("WriteFile");
    const ImportPatch fast("KERNEL32.dll", "ReadFile", &ReadOnlyTheStart);
    std::vector<std::string> starts;
    std::vector<unsigned int> lengths;

    const auto noteStart = [&](const unsigned char* data, unsigned int length, bool last) {
        lengths.push_back(length);
        starts.emplace_back(reinterpret_cast<const char*>(data), 5);
        EXPECT_EQ(last, lengths.size() == 17);
        return true;
    };
    EXPECT_TRUE(FileOperations::OperateOnFile(m_path, chunk, noteStart));

    std::vector<std::string> expectedStarts(17, std::string(5, '\0'));
    expectedStarts[0] = expectedStarts[16] = "begin";
    expectedStarts[15] = "last!";
    std::vector<unsigned int> expectedLengths(17, chunk);
    expectedLengths[16] = 6;
    EXPECT_EQ(starts, expectedStarts);
    EXPECT_EQ(lengths, expectedLengths);
}

// Kept: the number of chunks is counted in 32 bits too.
TEST_F(FileOperationsTest, TheNumberOfChunksWrapsAtFourGi)
{
    {
        const UniqueFileHandle writer = OpenWriterBeside();
        ASSERT_TRUE(SetSize(writer.Get(), 0x100000003)) << LastErrorText("SetEndOfFile");
        ASSERT_TRUE(WriteAt(writer.Get(), 0, "abc"));
    }

    EXPECT_TRUE(Operate(1));

    EXPECT_THAT(m_chunks, ElementsAre("a", "b", "c|"));
}

TEST_F(FileOperationsTest, AChunkThatDoesNotFitInMemoryIsBadAllocAndNothingStaysOpen)
{
    {
        const UniqueFileHandle writer = OpenWriterBeside();
        ASSERT_TRUE(SetSize(writer.Get(), 0xFFFFFFFF)) << LastErrorText("SetEndOfFile");
    }

    EXPECT_THROW(Operate(0xFFFFFFFF), std::bad_alloc);

    EXPECT_TRUE(OpenFile(m_path, GENERIC_READ, 0)) << LastErrorText("CreateFileA");
}
