#include <UtilsLib/system/COMInit.h>

#include <UtilsLib/WindowsTypes.h>

#include <objbase.h>

namespace UtilsLib
{

COMInit::COMInit()
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
}

COMInit::COMInit(const COMInit&) : COMInit()
{
}

COMInit::~COMInit()
{
    CoUninitialize(); // kept: also when the initialisation failed
}

} // namespace UtilsLib
