#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/progress/ProgressHandler.h>

#include <string>

namespace UtilsLib
{

/// Lends a handler to a part of its work, which counts in a range of its own and says what it does:
///
///     ScopedSubProgress part(handler, "ledger.dta");
///     part.Begin(size);
///     part.UpdateProgressCurrent(read, ProgressHandler::Relative);
///
/// At the scope's end the handler shows what it showed at the beginning, whatever happened to it meanwhile; only a
/// current count that was past the end comes back as the end. Each step takes the handler's lock for itself, so a view
/// can see the state between two steps. Not copied; belongs to the thread that made it.
class UTILSLIB_API ScopedSubProgress
{
public:
    /// Keeps the handler's counts and sub-message, and sets its sub-message. The counts stay until `Begin`. `handler`
    /// must outlive the object.
    ScopedSubProgress(ProgressHandler& handler, const std::string& subMessage);
    /// Puts back the end, then the current count, then the sub-message. Never fails.
    ~ScopedSubProgress();
    ScopedSubProgress(const ScopedSubProgress&) = delete;
    ScopedSubProgress& operator=(const ScopedSubProgress&) = delete;

    /// Sets the handler to 0 of `end`.
    void Begin(unsigned long long end);
    /// The handler's own operation.
    void UpdateProgressCurrent(unsigned long long value, ProgressHandler::UpdateType type);

private:
    ProgressHandler& m_handler;
    unsigned long long m_end;
    unsigned long long m_current;
    std::string m_subMessage;
};

} // namespace UtilsLib
