#include <tests/support/HeldLoader.h>

#include <UtilsLib/WindowsTypes.h>

#include <gtest/gtest.h>

extern "C" __declspec(dllimport) LONG NTAPI LdrLockLoaderLock(ULONG flags, ULONG* state, ULONG_PTR* cookie);
extern "C" __declspec(dllimport) LONG NTAPI LdrUnlockLoaderLock(ULONG flags, ULONG_PTR cookie);

namespace TestSupport
{

HeldLoader::HeldLoader() : m_thread(&HeldLoader::Hold, this)
{
    EXPECT_TRUE(m_held.Wait());
}

HeldLoader::~HeldLoader()
{
    m_release.Open();
    m_thread.join();
}

void HeldLoader::Hold()
{
    ULONG_PTR cookie = 0;
    EXPECT_GE(LdrLockLoaderLock(0, nullptr, &cookie), 0);
    m_held.Open();
    EXPECT_TRUE(m_release.Wait());
    EXPECT_GE(LdrUnlockLoaderLock(0, cookie), 0);
}

} // namespace TestSupport
