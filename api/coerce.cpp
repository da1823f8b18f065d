// Argument converters, result writers and the unusable-argument report.
#include "api/coerce.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "support/support.h"

namespace vexor {

namespace {

// The BSTR a VT_BSTR variant holds, directly or through a pointer (null for a
// null string or a null pointer).
BSTR bstrof(const VARIANT* v) {
  if (v->vt & VT_BYREF) return v->pbstrVal ? *v->pbstrVal : nullptr;
  return v->bstrVal;
}

VARTYPE basetype(const VARIANT* v) { return static_cast<VARTYPE>(v->vt & ~VT_BYREF); }

// A double truncated toward zero into 32 bits.  Values beyond the range
// saturate and NaN gives 0, so that every input has a defined result on
// every platform.
int32_t truncdouble(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 2147483647.0) return INT32_MAX;
  if (d <= -2147483648.0) return INT32_MIN;
  return static_cast<int32_t>(d);
}

// atol on a narrow text, with the result saturated to 32 bits (the C
// library's long is 64 bits wide on Linux, 32 on Windows).
int32_t readlong(const char* text) {
  long long n = std::strtoll(text, nullptr, 10);
  if (n > INT32_MAX) return INT32_MAX;
  if (n < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(n);
}

#if !defined(_WIN32)

// One code point from UTF-16 at text[*i] (advancing *i); an unpaired
// surrogate gives U+FFFD.
char32_t nextcode(const OLECHAR* text, std::size_t n, std::size_t* i) {
  char32_t c = text[(*i)++];
  if (c >= 0xD800 && c <= 0xDBFF) {
    if (*i < n && text[*i] >= 0xDC00 && text[*i] <= 0xDFFF) {
      char32_t lo = text[(*i)++];
      return 0x10000 + ((c - 0xD800) << 10) + (lo - 0xDC00);
    }
    return 0xFFFD;
  }
  if (c >= 0xDC00 && c <= 0xDFFF) return 0xFFFD;
  return c;
}

int utf8len(char32_t c) { return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4; }

void utf8put(char32_t c, char* d) {
  switch (utf8len(c)) {
    case 1: d[0] = static_cast<char>(c); break;
    case 2:
      d[0] = static_cast<char>(0xC0 | (c >> 6));
      d[1] = static_cast<char>(0x80 | (c & 0x3F));
      break;
    case 3:
      d[0] = static_cast<char>(0xE0 | (c >> 12));
      d[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      d[2] = static_cast<char>(0x80 | (c & 0x3F));
      break;
    default:
      d[0] = static_cast<char>(0xF0 | (c >> 18));
      d[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      d[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      d[3] = static_cast<char>(0x80 | (c & 0x3F));
      break;
  }
}

// One code point from UTF-8 at s[*i] (advancing *i).  A byte that does not
// start a well-formed sequence (overlong forms and surrogates included) gives
// U+FFFD and is skipped alone.
char32_t utf8next(const unsigned char* s, std::size_t n, std::size_t* i) {
  unsigned char b = s[*i];
  int len;
  char32_t c, min;
  if (b < 0x80) {
    ++*i;
    return b;
  } else if ((b & 0xE0) == 0xC0) {
    len = 2, c = b & 0x1F, min = 0x80;
  } else if ((b & 0xF0) == 0xE0) {
    len = 3, c = b & 0x0F, min = 0x800;
  } else if ((b & 0xF8) == 0xF0) {
    len = 4, c = b & 0x07, min = 0x10000;
  } else {
    ++*i;
    return 0xFFFD;
  }
  if (*i + len > n) {
    ++*i;
    return 0xFFFD;
  }
  for (int k = 1; k < len; ++k) {
    unsigned char t = s[*i + k];
    if ((t & 0xC0) != 0x80) {
      ++*i;
      return 0xFFFD;
    }
    c = (c << 6) | (t & 0x3F);
  }
  if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
    ++*i;
    return 0xFFFD;
  }
  *i += len;
  return c;
}

#endif

}  // namespace

// ---------------------------------------------------------------------------
// Narrow and wide text
// ---------------------------------------------------------------------------

#if !defined(_WIN32)

std::size_t narrowlen(const OLECHAR* text, std::size_t n) {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < n;) bytes += utf8len(nextcode(text, n, &i));
  return bytes;
}

std::size_t tonarrow(const OLECHAR* text, std::size_t n, char* dst, std::size_t size) {
  if (size == 0) return 0;
  std::size_t used = 0;
  for (std::size_t i = 0; i < n;) {
    char32_t c = nextcode(text, n, &i);
    std::size_t len = utf8len(c);
    if (used + len > size - 1) break;  // the whole character or nothing
    utf8put(c, dst + used);
    used += len;
  }
  dst[used] = '\0';
  return used;
}

BSTR towide(const char* text) {
  if (!text) text = "";
  auto* s = reinterpret_cast<const unsigned char*>(text);
  std::size_t n = std::strlen(text);
  std::size_t units = 0;
  for (std::size_t i = 0; i < n;) units += utf8next(s, n, &i) >= 0x10000 ? 2 : 1;
  if (units > UINT32_MAX / 4) return nullptr;
  BSTR out = SysAllocStringLen(nullptr, static_cast<UINT>(units));
  if (!out) return nullptr;
  std::size_t k = 0;
  for (std::size_t i = 0; i < n;) {
    char32_t c = utf8next(s, n, &i);
    if (c >= 0x10000) {
      c -= 0x10000;
      out[k++] = static_cast<OLECHAR>(0xD800 + (c >> 10));
      out[k++] = static_cast<OLECHAR>(0xDC00 + (c & 0x3FF));
    } else {
      out[k++] = static_cast<OLECHAR>(c);
    }
  }
  return out;
}

#else

std::size_t narrowlen(const OLECHAR* text, std::size_t n) {
  if (n == 0) return 0;
  int len = WideCharToMultiByte(CP_ACP, 0, text, static_cast<int>(n), nullptr, 0, nullptr, nullptr);
  return len > 0 ? static_cast<std::size_t>(len) : 0;
}

std::size_t tonarrow(const OLECHAR* text, std::size_t n, char* dst, std::size_t size) {
  if (size == 0) return 0;
  std::size_t used = 0;
  // One character at a time, so that a character that does not fit whole is
  // dropped with everything after it.
  for (std::size_t i = 0; i < n; ++i) {
    int units = (text[i] >= 0xD800 && text[i] <= 0xDBFF && i + 1 < n) ? 2 : 1;
    char buf[8];
    int len = WideCharToMultiByte(CP_ACP, 0, text + i, units, buf, sizeof buf, nullptr, nullptr);
    if (len <= 0 || used + static_cast<std::size_t>(len) > size - 1) break;
    std::memcpy(dst + used, buf, static_cast<std::size_t>(len));
    used += static_cast<std::size_t>(len);
    i += units - 1;
  }
  dst[used] = '\0';
  return used;
}

BSTR towide(const char* text) {
  if (!text) text = "";
  int n = static_cast<int>(std::strlen(text));
  int units = n ? MultiByteToWideChar(CP_ACP, 0, text, n, nullptr, 0) : 0;
  BSTR out = SysAllocStringLen(nullptr, static_cast<UINT>(units));
  if (out && units) MultiByteToWideChar(CP_ACP, 0, text, n, out, units);
  return out;
}

#endif

// ---------------------------------------------------------------------------
// Error report
// ---------------------------------------------------------------------------

void argerror(const char* text) {
  ICreateErrorInfo* create = nullptr;
  if (FAILED(CreateErrorInfo(&create)) || !create) return;
  BSTR desc = towide(text);
  if (desc) create->SetDescription(desc);
  SysFreeString(desc);
  IErrorInfo* info = nullptr;
  if (SUCCEEDED(create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info))) && info) {
    SetErrorInfo(0, info);
    info->Release();
  }
  create->Release();
}

// ---------------------------------------------------------------------------
// Converters
// ---------------------------------------------------------------------------

int32_t vartolong(const VARIANT* v) {
  if (!v) {
    argerror(BADLONG);
    return 0;
  }
  const bool byref = (v->vt & VT_BYREF) != 0;
  // A by-reference value with a null pointer has no value to read.
  if (byref && !v->byref && basetype(v) != VT_BSTR) {
    argerror(BADLONG);
    return 0;
  }
  switch (basetype(v)) {
    case VT_I2: return byref ? *v->piVal : v->iVal;
    case VT_I4: return byref ? *v->plVal : v->lVal;
    case VT_R4: return truncdouble(byref ? *v->pfltVal : v->fltVal);
    case VT_R8: return truncdouble(byref ? *v->pdblVal : v->dblVal);
    case VT_BSTR: {
      // The narrow text goes through a 20-character buffer, so only the
      // first 19 characters are read.
      char buf[20];
      BSTR s = bstrof(v);
      tonarrow(s, SysStringLen(s), buf, sizeof buf);
      return readlong(buf);
    }
    case VT_UI2: return byref ? *v->puiVal : v->uiVal;
    case VT_UI4: return static_cast<int32_t>(byref ? *v->pulVal : v->ulVal);
    case VT_INT: return byref ? *v->pintVal : v->intVal;
    case VT_UINT: return static_cast<int32_t>(byref ? *v->puintVal : v->uintVal);
    default: argerror(BADLONG); return 0;
  }
}

double vartodouble(const VARIANT* v) {
  if (!v) {
    argerror(BADDOUBLE);
    return 0.0;
  }
  const bool byref = (v->vt & VT_BYREF) != 0;
  if (byref && !v->byref && basetype(v) != VT_BSTR) {
    argerror(BADDOUBLE);
    return 0.0;
  }
  switch (basetype(v)) {
    case VT_R8: return byref ? *v->pdblVal : v->dblVal;
    case VT_R4: return byref ? *v->pfltVal : v->fltVal;
    case VT_I2: return byref ? *v->piVal : v->iVal;
    case VT_I4: return byref ? *v->plVal : v->lVal;
    case VT_BSTR: {
      char* text = nullptr;
      vartonewstring(v, &text);
      double d = text ? std::atof(text) : 0.0;
      if (text) memfree(text);
      return d;
    }
    case VT_UI2: return byref ? *v->puiVal : v->uiVal;
    case VT_UI4: return byref ? *v->pulVal : v->ulVal;
    case VT_INT: return byref ? *v->pintVal : v->intVal;
    case VT_UINT: return byref ? *v->puintVal : v->uintVal;
    default: argerror(BADDOUBLE); return 0.0;
  }
}

bool vartostring(const VARIANT* v, char* buf, std::size_t size) {
  if (size > 0) buf[0] = '\0';
  if (!v || basetype(v) != VT_BSTR) {
    argerror(BADSTRING);
    return false;
  }
  BSTR s = bstrof(v);
  if (s) tonarrow(s, SysStringLen(s), buf, size);
  return true;
}

bool vartonewstring(const VARIANT* v, char** out) {
  *out = nullptr;
  if (!v || basetype(v) != VT_BSTR) {
    argerror(BADSTRING);
    return false;
  }
  // A null string gives a null result.  (No block is allocated for it: the
  // result could never be freed.)
  BSTR s = bstrof(v);
  if (!s) return true;
  std::size_t n = SysStringLen(s);
  std::size_t len = narrowlen(s, n);
  auto* text = static_cast<char*>(memalloc(len + 1, "DynamicString"));
  if (!text) return true;
  tonarrow(s, n, text, len + 1);
  *out = text;
  return true;
}

// ---------------------------------------------------------------------------
// Writers
// ---------------------------------------------------------------------------

void putlong(VARIANT* v, int32_t value) {
  if (!v) return;
  VariantInit(v);
  v->vt = VT_I4;
  v->lVal = value;
}

void putdouble(VARIANT* v, double value) {
  if (!v) return;
  VariantInit(v);
  v->vt = VT_R8;
  v->dblVal = value;
}

void putstring(VARIANT* v, const char* text) {
  if (!v) return;
  VariantInit(v);
  v->vt = VT_BSTR;
  v->bstrVal = towide(text);
}

}  // namespace vexor
