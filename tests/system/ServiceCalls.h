#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What UtilsLib.dll asks of the service control manager until scope end. Calls go on to the real one unless they are
/// to fail or to be answered here; the library's plain sleeps are counted and last no time. One at a time, one thread.
class ServiceCalls
{
public:
    static constexpr DWORD kRefused = 1265; // what a failing call leaves as last error

    ServiceCalls();
    ~ServiceCalls();
    ServiceCalls(const ServiceCalls&) = delete;
    ServiceCalls& operator=(const ServiceCalls&) = delete;

    std::string failing; // the function whose calls fail
    /// Answers a query of the status; the number counts from 1. Returns 0 for a query that fails, else the state.
    std::function<DWORD(int number)> state;
    std::function<void()> onSleep; // in place of no time

    std::vector<std::string> calls; // in order, without queries and sleeps, each with what matters in its arguments
    int queries = 0;
    std::vector<DWORD> sleeps; // ms
    std::vector<SC_HANDLE> opened;

    /// Handles that were opened and not closed again.
    std::size_t Open() const;
    int Count(const std::string& call) const;

private:
    struct Patches;
    std::unique_ptr<Patches> m_patches;
};
