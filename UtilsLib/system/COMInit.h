#pragma once

#include <UtilsLib/Export.h>

namespace UtilsLib
{

/// COM on the calling thread, in the multithreaded apartment, for the object's life; belongs to that thread.
///
/// What Windows answers is not looked at, and COM is undone once at the end whatever it was: on a thread that is in
/// another apartment already that takes an initialisation of somebody else's away. Meant so.
class UTILSLIB_API COMInit
{
public:
    COMInit();
    /// Initialises for itself, as every object undoes for itself.
    COMInit(const COMInit& other);
    ~COMInit();
    /// Nothing to copy.
    COMInit& operator=(const COMInit& other) = default;
};

} // namespace UtilsLib
