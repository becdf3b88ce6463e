// Operator new lives in the run-time library.
#pragma once
#include <vcruntime_new.h>
