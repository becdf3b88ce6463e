// The part of ATL that a plain Win32 library borrows; declarations only.
#pragma once
#include <atlcomcli.h>
