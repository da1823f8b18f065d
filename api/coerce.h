// Method arguments and results of the analysis object.
//
// The converters turn a VARIANT argument into a long, a double or a narrow
// string.  Each accepts its types held directly or by reference (VT_BYREF
// set), choosing the conversion by the type with that flag ignored.  A value
// of any other type is reported through the automation error-information
// object with the converter's text, and the neutral value (0, 0.0, the empty
// string) is used; the method still succeeds.  A null VARIANT pointer counts
// as a value of no usable type (like VT_EMPTY).
//
// The writers VariantInit their target and fill it with a VT_I4, VT_R8 or
// VT_BSTR; a null target is left alone, so a host that passes no result slot
// gets the method's side effects and no result.
//
// Narrow text is UTF-8 on Linux and the active code page on Windows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vexor/automation.h"

namespace vexor {

// The texts of the error-information reports.
inline constexpr const char* BADSTRING = "Invalid data type passed where string expected";
inline constexpr const char* BADLONG = "Invalid data type passed where long integer expected";
inline constexpr const char* BADDOUBLE = "Invalid data type passed where double (float) expected";

// VT_I2 (sign-extended), VT_I4, VT_R4 and VT_R8 (truncated toward zero),
// VT_BSTR (its first 19 characters read like atol), VT_UI2 (zero-extended),
// VT_UI4, VT_INT, VT_UINT.
int32_t vartolong(const VARIANT* v);

// VT_R8, VT_R4, VT_I2, VT_I4, VT_BSTR (read like atof), VT_UI2, VT_UI4
// (unsigned), VT_INT, VT_UINT.
double vartodouble(const VARIANT* v);

// VT_BSTR into buf, at most size - 1 bytes and always NUL-terminated (a
// character that would not fit whole is dropped with all that follows); a
// null string gives "".  Any other type: buf = "", error report, false.
bool vartostring(const VARIANT* v, char* buf, std::size_t size);

// VT_BSTR into a new block of length + 1 bytes (tag "DynamicString") that
// the caller frees with memfree; a null string gives *out = null and true.
// Any other type: *out = null, error report, false.
bool vartonewstring(const VARIANT* v, char** out);

void putlong(VARIANT* v, int32_t value);
void putdouble(VARIANT* v, double value);
void putstring(VARIANT* v, const char* text);  // null: the empty string

// Reports an unusable argument: a new error-information object with the text
// as its description becomes this thread's current error information.
void argerror(const char* text);

// UTF-16 <-> narrow text (exposed for the tests).
// Bytes of the narrow form of n UTF-16 units (not counting a NUL).
std::size_t narrowlen(const OLECHAR* text, std::size_t n);
// Writes at most size - 1 bytes and a NUL; returns the bytes written.
std::size_t tonarrow(const OLECHAR* text, std::size_t n, char* dst, std::size_t size);
// A new system string holding the narrow text (null for a failed allocation).
BSTR towide(const char* text);

}  // namespace vexor
