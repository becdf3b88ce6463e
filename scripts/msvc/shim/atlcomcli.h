// Declarations of the ATL classes; nothing of them is linked.
#pragma once
#pragma clang system_header
#include <windows.h>
#include <ole2.h>
#include <oleauto.h>
class CComBSTR {
public:
    BSTR m_str;
    CComBSTR() throw();
    explicit CComBSTR(int size);
    CComBSTR(int size, LPCOLESTR s);
    CComBSTR(int size, LPCSTR s);
    CComBSTR(LPCOLESTR s);
    CComBSTR(LPCSTR s);
    CComBSTR(const CComBSTR& s);
    CComBSTR(CComBSTR&& s) throw();
    CComBSTR(REFGUID g);
    ~CComBSTR() throw();
    CComBSTR& operator=(const CComBSTR& s);
    CComBSTR& operator=(LPCOLESTR s);
    CComBSTR& operator=(LPCSTR s);
    CComBSTR& operator=(CComBSTR&& s) throw();
    unsigned int Length() const throw();
    unsigned int ByteLength() const throw();
    operator BSTR() const throw();
    BSTR* operator&() throw();
    BSTR Copy() const throw();
    HRESULT CopyTo(BSTR* p) const throw();
    void Attach(BSTR s) throw();
    BSTR Detach() throw();
    void Empty() throw();
    bool operator!() const throw();
    HRESULT Append(LPCOLESTR s) throw();
    HRESULT AppendBSTR(BSTR s) throw();
    CComBSTR& operator+=(LPCOLESTR s);
};
template <class T> class CComPtr {
public:
    T* p;
    CComPtr() throw() : p(nullptr) {}
    CComPtr(T* q) throw() : p(q) { if (p) p->AddRef(); }
    CComPtr(const CComPtr& o) throw() : CComPtr(o.p) {}
    ~CComPtr() throw() { if (p) p->Release(); }
    T* operator=(T* q) throw();
    T* operator=(const CComPtr& o) throw();
    operator T*() const throw() { return p; }
    T& operator*() const { return *p; }
    T** operator&() throw() { return &p; }
    T* operator->() const throw() { return p; }
    bool operator!() const throw() { return !p; }
    void Release() throw();
    void Attach(T* q) throw() { p = q; }
    T* Detach() throw() { T* q = p; p = nullptr; return q; }
    HRESULT CopyTo(T** o) throw();
    HRESULT CoCreateInstance(REFCLSID id, LPUNKNOWN outer = nullptr, DWORD context = CLSCTX_ALL) throw();
    HRESULT CoCreateInstance(LPCOLESTR id, LPUNKNOWN outer = nullptr, DWORD context = CLSCTX_ALL) throw();
    template <class Q> HRESULT QueryInterface(Q** o) const throw() { return p->QueryInterface(__uuidof(Q), (void**)o); }
};
class CComVariant : public tagVARIANT {
public:
    CComVariant() throw();
    CComVariant(const VARIANT& v);
    CComVariant(const CComVariant& v);
    CComVariant(LPCOLESTR s);
    CComVariant(LPCSTR s);
    CComVariant(bool b);
    CComVariant(int n, VARTYPE t = VT_I4) throw();
    CComVariant(long n, VARTYPE t = VT_I4) throw();
    ~CComVariant() throw();
    HRESULT Clear();
    HRESULT ChangeType(VARTYPE t, const VARIANT* from = nullptr);
    HRESULT Detach(VARIANT* to);
};
