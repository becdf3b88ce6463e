// type_info comes from the run-time library.
#pragma clang system_header
#include <vcruntime_typeinfo.h>
#include_next <eh.h>
