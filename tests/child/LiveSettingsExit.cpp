// A host that ends without shutting the live settings down: child_live_settings_exit WAY.
#include <UtilsLib/registry/LiveRegSettings.h>

#include <tests/support/ImportPatch.h>
#include <tests/support/ScopedMachineHive.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>

using UtilsLib::LiveRegSettings;

namespace
{

std::atomic<bool> g_called = false;

HANDLE WINAPI NoSemaphore(SECURITY_ATTRIBUTES*, LONG, LONG, const char*)
{
    return nullptr;
}

void Run(const std::string& way)
{
    LiveRegSettings& settings = LiveRegSettings::GetInstance();
    settings.RegisterRegSettingChanged("disable_udp", [way](const std::string&) {
        g_called = true;
        if (way == "callback-hangs")
        {
            Sleep(INFINITE);
        }
        if (way == "callback-exits")
        {
            std::exit(9);
        }
    });
    settings.SetRegSetting("disable_udp", 1);
    if (way == "not-started")
    {
        return;
    }
    settings.Start();
    while (!g_called)
    {
        Sleep(1);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string way = argc == 2 ? argv[1] : "";
    const TestSupport::ScopedMachineHive machine;
    std::unique_ptr<TestSupport::ImportPatch> patch;
    if (way == "no-semaphore")
    {
        patch = std::make_unique<TestSupport::ImportPatch>("KERNEL32.dll", "CreateSemaphoreA", &NoSemaphore);
    }
    Run(way);
    if (way == "callback-exits")
    {
        Sleep(INFINITE);
    }
    return 7;
}
