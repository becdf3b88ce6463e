// Operator new with Visual C++'s calling convention.
#pragma once
#pragma clang system_header
#include <vcruntime_exception.h>
namespace std {
enum class align_val_t : size_t {};
struct nothrow_t { explicit nothrow_t() = default; };
extern const nothrow_t nothrow;
using new_handler = void (__cdecl*)();
new_handler __cdecl set_new_handler(new_handler) noexcept;
new_handler __cdecl get_new_handler() noexcept;
}
void* __cdecl operator new(size_t);
void* __cdecl operator new(size_t, const std::nothrow_t&) noexcept;
void* __cdecl operator new(size_t, std::align_val_t);
void __cdecl operator delete(void*) noexcept;
void __cdecl operator delete(void*, size_t) noexcept;
void __cdecl operator delete(void*, const std::nothrow_t&) noexcept;
void __cdecl operator delete(void*, std::align_val_t) noexcept;
void __cdecl operator delete(void*, size_t, std::align_val_t) noexcept;
inline void* __cdecl operator new(size_t, void* p) noexcept { return p; }
inline void __cdecl operator delete(void*, void*) noexcept {}
void* __cdecl operator new[](size_t);
void* __cdecl operator new[](size_t, const std::nothrow_t&) noexcept;
void* __cdecl operator new[](size_t, std::align_val_t);
void __cdecl operator delete[](void*) noexcept;
void __cdecl operator delete[](void*, size_t) noexcept;
void __cdecl operator delete[](void*, const std::nothrow_t&) noexcept;
void __cdecl operator delete[](void*, std::align_val_t) noexcept;
void __cdecl operator delete[](void*, size_t, std::align_val_t) noexcept;
inline void* __cdecl operator new[](size_t, void* p) noexcept { return p; }
inline void __cdecl operator delete[](void*, void*) noexcept {}
