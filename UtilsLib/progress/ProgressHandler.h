#pragma once

#include <UtilsLib/Export.h>
#include <UtilsLib/ThreadAnnotations.h>
#include <UtilsLib/progress/IProgressView.h>
#include <UtilsLib/threading/Lock.h>

#include <cstdint>
#include <string>

namespace UtilsLib
{

/// How far one piece of work has got. Its workers write, any number of views read, from any threads.
///
/// Every operation takes the handler's lock for its whole duration and calls nobody while it holds it: no count is ever
/// seen half written. Counts are in a unit of the worker's choice. Not copied.
class UTILSLIB_API ProgressHandler : public IProgressView
{
public:
    /// What becomes of a count. Any other value leaves the count as it is.
    enum UpdateType : std::int32_t
    {
        Absolute = 0, // it is set to the value
        Relative = 1  // the value is added to it
    };

    /// Both counts are 0 and the sub-message is empty. `data` is copied and never changes.
    explicit ProgressHandler(const Progress::Data& data);
    /// No thread may use the handler any more.
    ~ProgressHandler() override;
    ProgressHandler(const ProgressHandler&) = delete;
    ProgressHandler& operator=(const ProgressHandler&) = delete;

    /// Sets both counts in one step, as they are given: `current` may exceed `end`.
    void Begin(unsigned long long end, unsigned long long current);
    /// Sets both counts to 0; the sub-message stays.
    void Reset();
    /// Sets or adds to the end; a sum over 64 bits becomes the greatest number. The current count is not adjusted, also
    /// when it is past the end now.
    void UpdateProgressEnd(unsigned long long value, UpdateType type);
    /// Sets or adds to the current count and then, for every `type`, brings it down to the end when it is past it. A
    /// sum over 64 bits becomes the end, too.
    void UpdateProgressCurrent(unsigned long long value, UpdateType type);
    /// Replaces the sub-message; nothing changes when `message` is the handler's own string. When memory runs out it
    /// throws `std::bad_alloc` and the old text stays.
    void UpdateSubMessage(const std::string& message);

    /// Whether the end is not 0.
    bool IsValid() const override;
    /// Whether the current count is the end; true of a handler at 0 of 0 as well, so ask `IsValid` first.
    bool AppearsComplete() const;
    /// The end.
    unsigned long long GetProgressEnd() const override;
    /// The current count; past the end after the end was lowered, until the next `UpdateProgressCurrent`.
    unsigned long long GetProgressCurrent() const override;
    /// What the constructor was given. Takes no lock.
    const Progress::Data& GetData() const override;
    /// A copy of the sub-message.
    std::string GetSubMessage() override;

private:
    const Progress::Data m_data;
    mutable Lock m_lock;
    unsigned long long m_end UTILSLIB_GUARDED_BY(m_lock) = 0;
    unsigned long long m_current UTILSLIB_GUARDED_BY(m_lock) = 0;
    std::string m_subMessage UTILSLIB_GUARDED_BY(m_lock);
};

} // namespace UtilsLib
