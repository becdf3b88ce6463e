// std::exception and its children, as in the run-time library: with a constructor from a text.
#pragma once
#pragma clang system_header
#include <stddef.h>
struct __std_exception_data { const char* _What; bool _DoFree; };
namespace std {
class exception {
public:
    exception() noexcept : _Data() {}
    explicit exception(const char* m) noexcept : _Data() { _Data._What = m; }
    exception(const char* m, int) noexcept : _Data() { _Data._What = m; }
    exception(const exception& o) noexcept : _Data(o._Data) {}
    exception& operator=(const exception& o) noexcept { _Data = o._Data; return *this; }
    virtual ~exception() noexcept {}
    virtual const char* what() const { return _Data._What ? _Data._What : "Unknown exception"; }
private:
    __std_exception_data _Data;
};
class bad_exception : public exception { public: bad_exception() noexcept : exception("bad exception", 1) {} };
class bad_alloc : public exception {
public:
    bad_alloc() noexcept : exception("bad allocation", 1) {}
private:
    friend class bad_array_new_length;
    bad_alloc(const char* m) noexcept : exception(m, 1) {}
};
class bad_array_new_length : public bad_alloc { public: bad_array_new_length() noexcept : bad_alloc("bad array new length") {} };
}
