#include <UtilsLib/platform/UniqueFileHandle.h>
#include <UtilsLib/platform/UniqueFindHandle.h>
#include <UtilsLib/platform/UniqueHandle.h>
#include <UtilsLib/platform/UniqueLocalMemory.h>
#include <UtilsLib/platform/UniqueModule.h>
#include <UtilsLib/platform/UniqueRegKey.h>
#include <UtilsLib/platform/UniqueServiceHandle.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/OpenHandles.h>
#include <tests/support/TempFolder.h>

#include <gtest/gtest.h>

namespace Platform = UtilsLib::Platform;
using TestSupport::OpenHandles;

namespace
{

const TestSupport::TempFolder& SharedFolder()
{
    static TestSupport::TempFolder folder;
    return folder;
}

// One per owner: how to make a live one, and how many there are.
struct KernelOwner
{
    static unsigned long Open()
    {
        return OpenHandles();
    }
};

struct EventOwner : KernelOwner
{
    using Owner = Platform::UniqueHandle;
    static HANDLE Make()
    {
        return CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
};

struct FileOwner : KernelOwner
{
    using Owner = Platform::UniqueFileHandle;
    static HANDLE Make()
    {
        return CreateFileA((SharedFolder() / "file").c_str(), GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    }
};

struct KeyOwner : KernelOwner
{
    using Owner = Platform::UniqueRegKey;
    static HKEY Make()
    {
        HKEY key = nullptr;
        RegOpenKeyExA(HKEY_CURRENT_USER, "Software", 0, KEY_READ, &key);
        return key;
    }
};

/// The service control manager's handles are no kernel handles: the calls are counted.
struct ServiceOwner
{
    using Owner = Platform::UniqueServiceHandle;
    static SC_HANDLE Make()
    {
        const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
        ms_open += manager != nullptr ? 1 : 0;
        return manager;
    }
    static unsigned long Open()
    {
        static const TestSupport::ImportPatch closing("ADVAPI32.dll", "CloseServiceHandle", &CountClosing,
                                                      "platform_tests.exe");
        ms_close = closing.Original<decltype(CountClosing)>();
        return ms_open;
    }
    static BOOL WINAPI CountClosing(SC_HANDLE handle)
    {
        const BOOL closed = ms_close(handle);
        ms_open -= closed ? 1 : 0;
        SetLastError(ERROR_GEN_FAILURE); // for the owner to keep from its caller
        return closed;
    }
    inline static unsigned long ms_open = 0;
    inline static decltype(&CountClosing) ms_close = nullptr;
};

template <typename Case>
class UniqueResourceTest : public testing::Test
{
protected:
    UniqueResourceTest()
    {
        Case::Open();
        const typename Case::Owner warmUp(Case::Make()); // opens what the system itself keeps
    }
};

using Owners = testing::Types<EventOwner, FileOwner, KeyOwner, ServiceOwner>;
TYPED_TEST_SUITE(UniqueResourceTest, Owners);

} // namespace

TYPED_TEST(UniqueResourceTest, ClosesOnceAtScopeEnd)
{
    const unsigned long before = TypeParam::Open();
    {
        const typename TypeParam::Owner owner(TypeParam::Make());
        ASSERT_TRUE(owner);
        EXPECT_EQ(TypeParam::Open(), before + 1);
    }

    EXPECT_EQ(TypeParam::Open(), before);
}

TYPED_TEST(UniqueResourceTest, MovesLeaveTheSourceEmpty)
{
    const unsigned long before = TypeParam::Open();
    {
        typename TypeParam::Owner source(TypeParam::Make());
        const auto value = source.Get();
        const typename TypeParam::Owner target(std::move(source));
        EXPECT_EQ(target.Get(), value);
        EXPECT_FALSE(source);
        EXPECT_EQ(TypeParam::Open(), before + 1);
    }

    EXPECT_EQ(TypeParam::Open(), before);
}

TYPED_TEST(UniqueResourceTest, MovedOntoALiveOneClosesIt)
{
    const unsigned long before = TypeParam::Open();
    {
        typename TypeParam::Owner target(TypeParam::Make());
        target = typename TypeParam::Owner(TypeParam::Make());
        EXPECT_TRUE(target);
        EXPECT_EQ(TypeParam::Open(), before + 1);
    }

    EXPECT_EQ(TypeParam::Open(), before);
}

TYPED_TEST(UniqueResourceTest, AnEmptyOneSurvivesEverything)
{
    const unsigned long before = TypeParam::Open();
    {
        typename TypeParam::Owner empty;
        EXPECT_FALSE(empty);
        typename TypeParam::Owner moved(std::move(empty));
        moved.Reset();
        moved = typename TypeParam::Owner();
        *moved.Put() = TypeParam::Make();
        EXPECT_TRUE(moved);
    }

    EXPECT_EQ(TypeParam::Open(), before);
}

TYPED_TEST(UniqueResourceTest, KeepsTheLastErrorWhenItCloses)
{
    {
        const typename TypeParam::Owner owner(TypeParam::Make());
        SetLastError(ERROR_DISK_FULL);
    }

    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_DISK_FULL));
}

TEST(UniqueFindHandleTest, ClosesItsSearch)
{
    SharedFolder().Write("a.txt", "1");
    WIN32_FIND_DATAA data = {};
    const unsigned long before = OpenHandles();
    {
        const Platform::UniqueFindHandle search(FindFirstFileA((SharedFolder() / "*").c_str(), &data));
        EXPECT_TRUE(search);
    }

    EXPECT_EQ(OpenHandles(), before);
    EXPECT_FALSE(Platform::UniqueFindHandle(FindFirstFileA((SharedFolder() / "none*").c_str(), &data)));
}

TEST(UniqueLocalMemoryTest, FreesItsBlock)
{
    const HLOCAL block = LocalAlloc(LMEM_MOVEABLE, 16);
    {
        const Platform::UniqueLocalMemory owner(block);
        EXPECT_EQ(LocalFlags(block) & LMEM_INVALID_HANDLE, 0u);
    }

    EXPECT_EQ(LocalFlags(block), static_cast<UINT>(LMEM_INVALID_HANDLE));
}

TEST(UniqueModuleTest, UnloadsItsLibrary)
{
    constexpr const char* kName = "lz32.dll"; // nothing else loads it
    ASSERT_EQ(GetModuleHandleA(kName), nullptr);
    {
        const Platform::UniqueModule library(LoadLibraryA(kName));
        EXPECT_TRUE(library) << TestSupport::LastErrorText(kName);
    }

    EXPECT_EQ(GetModuleHandleA(kName), nullptr);
    EXPECT_FALSE(Platform::UniqueModule(LoadLibraryA("no such library.dll")));
}
