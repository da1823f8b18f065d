// The portable automation helpers: system strings, variants and the
// per-thread error-information object.  Windows builds use the system's own.
//
// These stand in for the operating system's automation library, so their
// memory comes from the C++ runtime, not from the engine's tagged allocator:
// a BSTR handed to a host is the host's to free with SysFreeString.
#include "vexor/automation.h"

#if !defined(_WIN32)

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

// Published interface identifiers.
const IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
const IID IID_IErrorInfo = {0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
const IID IID_ICreateErrorInfo = {0x22F03340, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
const GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

// ---------------------------------------------------------------------------
// System strings: [uint32 byte length][UTF-16 text][NUL]
// ---------------------------------------------------------------------------

namespace {

uint32_t* prefixof(BSTR s) { return reinterpret_cast<uint32_t*>(s) - 1; }

std::size_t textlen(const OLECHAR* text) {
  std::size_t n = 0;
  while (text[n]) ++n;
  return n;
}

}  // namespace

BSTR SysAllocStringLen(const OLECHAR* text, UINT len) {
  // The byte length must fit the 32-bit prefix.
  if (len > (UINT32_MAX - 8) / sizeof(OLECHAR)) return nullptr;
  std::size_t bytes = sizeof(uint32_t) + (static_cast<std::size_t>(len) + 1) * sizeof(OLECHAR);
  auto* block = static_cast<uint32_t*>(std::malloc(bytes));
  if (!block) return nullptr;
  block[0] = static_cast<uint32_t>(len * sizeof(OLECHAR));
  auto* s = reinterpret_cast<OLECHAR*>(block + 1);
  if (text)
    std::memcpy(s, text, len * sizeof(OLECHAR));
  else
    std::memset(s, 0, len * sizeof(OLECHAR));
  s[len] = 0;
  return s;
}

BSTR SysAllocString(const OLECHAR* text) {
  if (!text) return nullptr;
  std::size_t n = textlen(text);
  if (n > UINT32_MAX) return nullptr;
  return SysAllocStringLen(text, static_cast<UINT>(n));
}

UINT SysStringByteLen(BSTR s) { return s ? *prefixof(s) : 0; }

UINT SysStringLen(BSTR s) { return SysStringByteLen(s) / sizeof(OLECHAR); }

void SysFreeString(BSTR s) {
  if (s) std::free(prefixof(s));
}

// ---------------------------------------------------------------------------
// Variants
// ---------------------------------------------------------------------------

void VariantInit(VARIANT* v) {
  if (!v) return;
  v->vt = VT_EMPTY;
  v->wReserved1 = v->wReserved2 = v->wReserved3 = 0;
  v->llVal = 0;
}

HRESULT VariantClear(VARIANT* v) {
  if (!v) return E_INVALIDARG;
  if (!(v->vt & VT_BYREF)) {
    switch (v->vt) {
      case VT_BSTR: SysFreeString(v->bstrVal); break;
      case VT_UNKNOWN:
      case VT_DISPATCH:
        if (v->punkVal) v->punkVal->Release();
        break;
      default: break;
    }
  }
  VariantInit(v);
  return S_OK;
}

// ---------------------------------------------------------------------------
// Error information
// ---------------------------------------------------------------------------

namespace {

// One object answers both the writer's and the reader's interface.
class ErrorInfo final : public ICreateErrorInfo, public IErrorInfo {
 public:
  // IUnknown, reached through either base.
  HRESULT QueryInterface(REFIID riid, void** object) override {
    if (!object) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_ICreateErrorInfo) {
      *object = static_cast<ICreateErrorInfo*>(this);
    } else if (riid == IID_IErrorInfo) {
      *object = static_cast<IErrorInfo*>(this);
    } else {
      *object = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG AddRef() override { return ++refs_; }
  ULONG Release() override {
    ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
  }

  // ICreateErrorInfo
  HRESULT SetGUID(REFGUID guid) override {
    guid_ = guid;
    return S_OK;
  }
  HRESULT SetSource(LPOLESTR source) override { return store(source_, source); }
  HRESULT SetDescription(LPOLESTR description) override { return store(description_, description); }
  HRESULT SetHelpFile(LPOLESTR helpfile) override { return store(helpfile_, helpfile); }
  HRESULT SetHelpContext(DWORD helpcontext) override {
    helpcontext_ = helpcontext;
    return S_OK;
  }

  // IErrorInfo
  HRESULT GetGUID(GUID* guid) override {
    if (!guid) return E_INVALIDARG;
    *guid = guid_;
    return S_OK;
  }
  HRESULT GetSource(BSTR* source) override { return fetch(source_, source); }
  HRESULT GetDescription(BSTR* description) override { return fetch(description_, description); }
  HRESULT GetHelpFile(BSTR* helpfile) override { return fetch(helpfile_, helpfile); }
  HRESULT GetHelpContext(DWORD* helpcontext) override {
    if (!helpcontext) return E_INVALIDARG;
    *helpcontext = helpcontext_;
    return S_OK;
  }

 private:
  ~ErrorInfo() = default;

  static HRESULT store(std::u16string& field, LPCOLESTR text) {
    field = text ? std::u16string(text) : std::u16string();
    return S_OK;
  }
  static HRESULT fetch(const std::u16string& field, BSTR* out) {
    if (!out) return E_INVALIDARG;
    *out = SysAllocStringLen(field.data(), static_cast<UINT>(field.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
  }

  std::atomic<ULONG> refs_{1};
  GUID guid_ = GUID_NULL;
  std::u16string source_, description_, helpfile_;
  DWORD helpcontext_ = 0;
};

// The current error object of this thread; released when the thread ends.
struct ErrorSlot {
  IErrorInfo* info = nullptr;
  ~ErrorSlot() {
    if (info) info->Release();
  }
};
thread_local ErrorSlot errorslot;

}  // namespace

HRESULT CreateErrorInfo(ICreateErrorInfo** info) {
  if (!info) return E_INVALIDARG;
  auto* e = new (std::nothrow) ErrorInfo;
  *info = e;
  return e ? S_OK : E_OUTOFMEMORY;
}

HRESULT SetErrorInfo(ULONG /*reserved*/, IErrorInfo* info) {
  if (info) info->AddRef();
  if (errorslot.info) errorslot.info->Release();
  errorslot.info = info;
  return S_OK;
}

HRESULT GetErrorInfo(ULONG /*reserved*/, IErrorInfo** info) {
  if (!info) return E_INVALIDARG;
  *info = errorslot.info;  // the reference moves to the caller
  errorslot.info = nullptr;
  return *info ? S_OK : S_FALSE;
}

#endif
