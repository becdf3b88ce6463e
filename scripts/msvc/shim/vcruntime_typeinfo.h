// type_info stands outside std.
#pragma once
#pragma clang system_header
#include <vcruntime_exception.h>
struct __std_type_info_data { const char* _UndecoratedName; const char _DecoratedName[1]; };
class type_info {
public:
    type_info(const type_info&) = delete;
    type_info& operator=(const type_info&) = delete;
    size_t hash_code() const noexcept;
    bool operator==(const type_info& o) const noexcept;
    bool before(const type_info& o) const noexcept;
    const char* name() const;
    const char* raw_name() const noexcept;
    virtual ~type_info() noexcept;
private:
    mutable __std_type_info_data _Data;
};
namespace std {
using ::type_info;
class bad_cast : public exception { public: bad_cast() noexcept : exception("bad cast", 1) {} };
class bad_typeid : public exception { public: bad_typeid() noexcept : exception("bad typeid", 1) {} };
}
