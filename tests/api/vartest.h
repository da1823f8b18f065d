// Helpers for the tests of the analysis object: VARIANTs of every kind, the
// results read back, and the thread's error information.
#pragma once

#include <cstdint>
#include <string>

#include "vexor/vexor.h"

namespace vartest {

// An owning VARIANT (cleared when it goes out of scope).
struct Var {
  VARIANT v;
  Var() { VariantInit(&v); }
  ~Var() { VariantClear(&v); }
  Var(const Var&) = delete;
  Var& operator=(const Var&) = delete;
  VARIANT* p() { return &v; }
};

// The setters clear what the (initialised) variant held before.
inline void setlong(VARIANT* v, LONG x) { VariantClear(v); v->vt = VT_I4; v->lVal = x; }
inline void setdouble(VARIANT* v, double x) { VariantClear(v); v->vt = VT_R8; v->dblVal = x; }
inline void setbstr(VARIANT* v, const std::u16string& s) {
  VariantClear(v);
  v->vt = VT_BSTR;
  v->bstrVal = SysAllocStringLen(s.data(), static_cast<UINT>(s.size()));
}

// UTF-8 text as UTF-16 (for ASCII and the few non-ASCII texts of the tests).
inline std::u16string wide(const std::string& s) {
  std::u16string w;
  for (std::size_t i = 0; i < s.size();) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    char32_t c;
    int n;
    if (b < 0x80) c = b, n = 1;
    else if ((b & 0xE0) == 0xC0) c = b & 0x1F, n = 2;
    else if ((b & 0xF0) == 0xE0) c = b & 0x0F, n = 3;
    else c = b & 0x07, n = 4;
    for (int k = 1; k < n; ++k) c = (c << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += n;
    if (c >= 0x10000) {
      c -= 0x10000;
      w += static_cast<char16_t>(0xD800 + (c >> 10));
      w += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    } else {
      w += static_cast<char16_t>(c);
    }
  }
  return w;
}

// A BSTR's text as UTF-8.
inline std::string narrow(BSTR s) {
  std::string out;
  UINT n = SysStringLen(s);
  for (UINT i = 0; i < n; ++i) {
    char32_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n) c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
    if (c < 0x80) out += static_cast<char>(c);
    else if (c < 0x800) out += static_cast<char>(0xC0 | (c >> 6)), out += static_cast<char>(0x80 | (c & 0x3F));
    else if (c < 0x10000)
      out += static_cast<char>(0xE0 | (c >> 12)), out += static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
          out += static_cast<char>(0x80 | (c & 0x3F));
    else
      out += static_cast<char>(0xF0 | (c >> 18)), out += static_cast<char>(0x80 | ((c >> 12) & 0x3F)),
          out += static_cast<char>(0x80 | ((c >> 6) & 0x3F)), out += static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

// The description of the thread's error information, handed over and
// released; "" when there is none.
inline std::string takeerror() {
  IErrorInfo* info = nullptr;
  if (GetErrorInfo(0, &info) != S_OK || !info) return "";
  BSTR d = nullptr;
  info->GetDescription(&d);
  std::string text = narrow(d);
  SysFreeString(d);
  info->Release();
  return text;
}

}  // namespace vartest
