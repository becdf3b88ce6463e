// COM interfaces carry their identifier.
#pragma clang system_header
#include_next <rpcndr.h>
#undef MIDL_INTERFACE
#define MIDL_INTERFACE(x) struct __declspec(uuid(x)) __declspec(novtable)
