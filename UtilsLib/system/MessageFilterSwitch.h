#pragma once

#include <UtilsLib/Export.h>

struct IMessageFilter;

namespace UtilsLib
{

/// Removes the calling thread's COM message filter for the object's life and then puts it back, in the place of
/// whichever filter was registered meanwhile. Belongs to that thread.
///
/// A thread has filters only in a single-threaded apartment; elsewhere nothing happens, and nothing is reported.
class UTILSLIB_API MessageFilterSwitch
{
public:
    MessageFilterSwitch();
    ~MessageFilterSwitch();
    MessageFilterSwitch(const MessageFilterSwitch&) = delete;
    MessageFilterSwitch& operator=(const MessageFilterSwitch&) = delete;

private:
    IMessageFilter* m_previousFilter = nullptr; // a reference of ours; null when there was none
};

} // namespace UtilsLib
