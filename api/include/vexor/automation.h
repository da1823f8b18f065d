// Automation types for hosts of the VEXOR object.
//
// On Windows this header brings the real OLE automation types (VARIANT, BSTR,
// HRESULT, IErrorInfo ...) from the system headers.  Elsewhere it declares a
// small portable set under the same names, with the same type codes, field
// names and helper functions, so that host code written against the VEXOR
// object compiles unchanged on both:
//
//   VARIANT in;  VariantInit(&in);
//   in.vt = VT_BSTR;  in.bstrVal = SysAllocString(OLESTR("x.vex"));
//   ...
//   VariantClear(&in);
//
// Portable representation:
//   - OLECHAR is char16_t and OLESTR("...") a UTF-16 literal (u"...").
//   - BSTR points at the first character of a length-prefixed UTF-16 string:
//     the 4 bytes before it hold the byte length, and a NUL character follows
//     the text.  A null BSTR is the empty string.
//   - LONG, ULONG and HRESULT are 32 bits wide, as on Windows.
//   - The error-information object is kept per thread: SetErrorInfo stores
//     it, GetErrorInfo hands it over (once) and clears the slot.
//   - Interfaces are C++ classes with virtual methods and reference counts;
//     there is no class registry, marshalling or apartment.
#pragma once

// VEXOR_API marks what the shared library exports: the engine is built with
// hidden visibility, so that only the names these headers declare are
// visible to hosts (on Windows the component exports through its module
// definition file, and the mark is empty).
#if !defined(VEXOR_API)
#if defined(_WIN32) || !defined(__GNUC__)
#define VEXOR_API
#else
#define VEXOR_API __attribute__((visibility("default")))
#endif
#endif

#if defined(_WIN32)

#include <windows.h>
#include <oleauto.h>

#else

#include <cstddef>
#include <cstdint>

// Scalar types -------------------------------------------------------------
typedef char CHAR;
typedef uint8_t BYTE;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef int32_t INT;
typedef uint32_t UINT;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef float FLOAT;
typedef double DOUBLE;
typedef double DATE;
typedef int32_t HRESULT;
typedef int32_t SCODE;
typedef uint16_t VARTYPE;
typedef int16_t VARIANT_BOOL;

typedef char16_t OLECHAR;
typedef OLECHAR* LPOLESTR;
typedef const OLECHAR* LPCOLESTR;
typedef OLECHAR* BSTR;

#define OLESTR(str) u##str

#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

// HRESULTs -----------------------------------------------------------------
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)
#define S_OK ((HRESULT)0)
#define S_FALSE ((HRESULT)1)
#define E_NOTIMPL ((HRESULT)0x80004001L)
#define E_NOINTERFACE ((HRESULT)0x80004002L)
#define E_POINTER ((HRESULT)0x80004003L)
#define E_FAIL ((HRESULT)0x80004005L)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFL)
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#define E_INVALIDARG ((HRESULT)0x80070057L)
#define DISP_E_BADVARTYPE ((HRESULT)0x80020008L)
#define DISP_E_PARAMNOTFOUND ((HRESULT)0x80020004L)

// Variant type codes ---------------------------------------------------------
enum VARENUM : VARTYPE {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_CY = 6,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_DECIMAL = 14,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_VOID = 24,
  VT_HRESULT = 25,
  VT_ARRAY = 0x2000,
  VT_BYREF = 0x4000,
  VT_RESERVED = 0x8000,
  VT_TYPEMASK = 0x0FFF,
};

// Interface identifiers -------------------------------------------------------
struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
typedef GUID IID;
typedef GUID CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;

inline bool IsEqualGUID(REFGUID a, REFGUID b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }

extern VEXOR_API const IID IID_IUnknown;
extern VEXOR_API const IID IID_IErrorInfo;
extern VEXOR_API const IID IID_ICreateErrorInfo;
extern VEXOR_API const GUID GUID_NULL;

// Interfaces ------------------------------------------------------------------
struct IUnknown {
  virtual HRESULT QueryInterface(REFIID riid, void** object) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

 protected:
  ~IUnknown() = default;  // objects go away through Release
};

struct IErrorInfo : IUnknown {
  virtual HRESULT GetGUID(GUID* guid) = 0;
  virtual HRESULT GetSource(BSTR* source) = 0;
  virtual HRESULT GetDescription(BSTR* description) = 0;
  virtual HRESULT GetHelpFile(BSTR* helpfile) = 0;
  virtual HRESULT GetHelpContext(DWORD* helpcontext) = 0;

 protected:
  ~IErrorInfo() = default;
};

struct ICreateErrorInfo : IUnknown {
  virtual HRESULT SetGUID(REFGUID guid) = 0;
  virtual HRESULT SetSource(LPOLESTR source) = 0;
  virtual HRESULT SetDescription(LPOLESTR description) = 0;
  virtual HRESULT SetHelpFile(LPOLESTR helpfile) = 0;
  virtual HRESULT SetHelpContext(DWORD helpcontext) = 0;

 protected:
  ~ICreateErrorInfo() = default;
};

// VARIANT -----------------------------------------------------------------------
// The tag, three reserved words and one value: held directly, or, with
// VT_BYREF set in vt, through the pointer member of the same type.
struct VARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    LONGLONG llVal;
    LONG lVal;
    BYTE bVal;
    SHORT iVal;
    FLOAT fltVal;
    DOUBLE dblVal;
    VARIANT_BOOL boolVal;
    SCODE scode;
    DATE date;
    BSTR bstrVal;
    IUnknown* punkVal;
    BYTE* pbVal;
    SHORT* piVal;
    LONG* plVal;
    LONGLONG* pllVal;
    FLOAT* pfltVal;
    DOUBLE* pdblVal;
    VARIANT_BOOL* pboolVal;
    SCODE* pscode;
    DATE* pdate;
    BSTR* pbstrVal;
    IUnknown** ppunkVal;
    VARIANT* pvarVal;
    void* byref;
    CHAR cVal;
    USHORT uiVal;
    ULONG ulVal;
    ULONGLONG ullVal;
    INT intVal;
    UINT uintVal;
    CHAR* pcVal;
    USHORT* puiVal;
    ULONG* pulVal;
    ULONGLONG* pullVal;
    INT* pintVal;
    UINT* puintVal;
  };
};
typedef VARIANT VARIANTARG;
typedef VARIANT* LPVARIANT;

// Helpers ---------------------------------------------------------------------
// System strings.  SysAllocStringLen with a null text leaves len NULs.
VEXOR_API BSTR SysAllocString(const OLECHAR* text);
VEXOR_API BSTR SysAllocStringLen(const OLECHAR* text, UINT len);
VEXOR_API UINT SysStringLen(BSTR s);
VEXOR_API UINT SysStringByteLen(BSTR s);
VEXOR_API void SysFreeString(BSTR s);

// Variants.  VariantClear frees a BSTR and releases an interface held by
// value (nothing held by reference), then leaves VT_EMPTY.
VEXOR_API void VariantInit(VARIANT* v);
VEXOR_API HRESULT VariantClear(VARIANT* v);

// Error information (per thread).
VEXOR_API HRESULT CreateErrorInfo(ICreateErrorInfo** info);
VEXOR_API HRESULT SetErrorInfo(ULONG reserved, IErrorInfo* info);
VEXOR_API HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** info);

#endif
