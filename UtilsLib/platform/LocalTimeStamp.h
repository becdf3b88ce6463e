#pragma once

#include <UtilsLib/WindowsTypes.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace UtilsLib::Platform
{

/// A local time as log lines start with it, "15/11/2026 04:38:29.123": printf's "%02d/%02d/%4d %02d:%02d:%02d.%03d"
/// without its cost, and without an allocation.
class LocalTimeStamp
{
public:
    static constexpr std::size_t kLength = 23;

    /// Now. Any thread, no lock. The clock is read on every call, the zone asked for once in a tenth of a second.
    LocalTimeStamp();
    /// A time in the years 1601 to 9999.
    explicit LocalTimeStamp(const SYSTEMTIME& time);

    /// `kLength` characters, valid as long as this object.
    std::string_view Text() const;

private:
    std::array<char, kLength> m_text;
};

} // namespace UtilsLib::Platform
