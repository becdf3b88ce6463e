#pragma once

#include <ctime>
#include <string>

namespace UtilsLib::Platform
{

/// What `std::put_time` writes, with every conversion of C and for every year, whatever the C run-time knows.
///
/// Names are English unless the global C++ locale has a time facet of its own. Unlike the stream it does not switch the
/// process's C locale for a moment under the eyes of other threads (but for %z, %Z and conversions that do not exist).
std::string FormatTime(const std::tm& fields, const std::string& format);

/// `format` for `std::get_time`, with %F written out.
std::string ReadFormat(const std::string& format);

} // namespace UtilsLib::Platform
