// The argument converters, the result writers and the unusable-argument
// report, type by type, held directly and by reference.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "api/coerce.h"
#include "support/support.h"
#include "vartest.h"

using namespace vexor;
using namespace vartest;

namespace {

class Coerce : public ::testing::Test {
 protected:
  void SetUp() override { takeerror(); }  // start with no error information
};

// A by-reference variant of base type t pointing at p.
VARIANT byref(VARTYPE t, void* p) {
  VARIANT v;
  VariantInit(&v);
  v.vt = static_cast<VARTYPE>(t | VT_BYREF);
  v.byref = p;
  return v;
}

VARIANT typed(VARTYPE t) {
  VARIANT v;
  VariantInit(&v);
  v.vt = t;
  return v;
}

}  // namespace

// ---------------------------------------------------------------------------
// To long
// ---------------------------------------------------------------------------

TEST_F(Coerce, LongFromEveryAcceptedTypeByValue) {
  VARIANT v = typed(VT_I2);
  v.iVal = -1234;
  EXPECT_EQ(vartolong(&v), -1234);  // sign-extended
  v = typed(VT_I4);
  v.lVal = -2385017;
  EXPECT_EQ(vartolong(&v), -2385017);
  v = typed(VT_R4);
  v.fltVal = 7.9f;
  EXPECT_EQ(vartolong(&v), 7);
  v = typed(VT_R8);
  v.dblVal = 2385.999;
  EXPECT_EQ(vartolong(&v), 2385);
  v = typed(VT_UI2);
  v.uiVal = 65000;
  EXPECT_EQ(vartolong(&v), 65000);  // zero-extended
  v = typed(VT_UI4);
  v.ulVal = 3000017;
  EXPECT_EQ(vartolong(&v), 3000017);
  v = typed(VT_INT);
  v.intVal = -47;
  EXPECT_EQ(vartolong(&v), -47);
  v = typed(VT_UINT);
  v.uintVal = 4711;
  EXPECT_EQ(vartolong(&v), 4711);
  Var s;
  setbstr(s.p(), u" 385xyz");
  EXPECT_EQ(vartolong(s.p()), 385);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, LongFromEveryAcceptedTypeByReference) {
  SHORT i2 = -32768;
  LONG i4 = 123457;
  FLOAT r4 = -3.75f;
  DOUBLE r8 = 19.5;
  USHORT ui2 = 65535;
  ULONG ui4 = 70001;
  INT in = -8;
  UINT ui = 99;
  BSTR b = SysAllocString(OLESTR("-2385"));
  VARIANT v = byref(VT_I2, &i2);
  EXPECT_EQ(vartolong(&v), -32768);
  v = byref(VT_I4, &i4);
  EXPECT_EQ(vartolong(&v), 123457);
  v = byref(VT_R4, &r4);
  EXPECT_EQ(vartolong(&v), -3);
  v = byref(VT_R8, &r8);
  EXPECT_EQ(vartolong(&v), 19);
  v = byref(VT_UI2, &ui2);
  EXPECT_EQ(vartolong(&v), 65535);
  v = byref(VT_UI4, &ui4);
  EXPECT_EQ(vartolong(&v), 70001);
  v = byref(VT_INT, &in);
  EXPECT_EQ(vartolong(&v), -8);
  v = byref(VT_UINT, &ui);
  EXPECT_EQ(vartolong(&v), 99);
  v = byref(VT_BSTR, &b);
  EXPECT_EQ(vartolong(&v), -2385);
  SysFreeString(b);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, DigitsThenLettersReadAsTheNumber) {
  Var s;
  setbstr(s.p(), u"12abc");
  EXPECT_EQ(vartolong(s.p()), 12);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, LettersOnlyReadAsZeroWithoutReport) {
  Var s;
  setbstr(s.p(), u"abc");
  EXPECT_EQ(vartolong(s.p()), 0);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, NegativeDoubleTruncatesTowardZero) {
  VARIANT v = typed(VT_R8);
  v.dblVal = -2.7;
  EXPECT_EQ(vartolong(&v), -2);
  DOUBLE d = -2.7;
  v = byref(VT_R8, &d);
  EXPECT_EQ(vartolong(&v), -2);
}

TEST_F(Coerce, StringReadAsLongUsesOnlyNineteenCharacters) {
  Var s;
  setbstr(s.p(), u"000000000000000012345");  // 21 characters
  EXPECT_EQ(vartolong(s.p()), 123);         // the first 19: ...0123
  setbstr(s.p(), u"   0000000000000000987");  // 3 blanks + 19 characters
  EXPECT_EQ(vartolong(s.p()), 0);
}

TEST_F(Coerce, OutOfRangeLongsSaturate) {
  VARIANT v = typed(VT_R8);
  v.dblVal = 1e300;
  EXPECT_EQ(vartolong(&v), INT32_MAX);
  v.dblVal = -1e300;
  EXPECT_EQ(vartolong(&v), INT32_MIN);
  v.dblVal = std::nan("");
  EXPECT_EQ(vartolong(&v), 0);
  Var s;
  setbstr(s.p(), u"9999999999");
  EXPECT_EQ(vartolong(s.p()), INT32_MAX);
  v = typed(VT_UI4);
  v.ulVal = 4294967295u;
  EXPECT_EQ(vartolong(&v), -1);  // the bits of the unsigned value
}

TEST_F(Coerce, NullStringReadsAsZero) {
  VARIANT v = typed(VT_BSTR);
  v.bstrVal = nullptr;
  EXPECT_EQ(vartolong(&v), 0);
  EXPECT_EQ(vartodouble(&v), 0.0);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, BoolAndEmptyAreRejectedWhereALongIsExpected) {
  VARIANT v = typed(VT_BOOL);
  v.boolVal = VARIANT_TRUE;
  EXPECT_EQ(vartolong(&v), 0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
  v = typed(VT_EMPTY);
  EXPECT_EQ(vartolong(&v), 0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
}

TEST_F(Coerce, OtherTypesAreRejectedWhereALongIsExpected) {
  for (VARTYPE t : {VT_NULL, VT_CY, VT_DATE, VT_DISPATCH, VT_ERROR, VT_VARIANT, VT_DECIMAL, VT_I1, VT_UI1,
                    VT_I8, VT_UI8}) {
    VARIANT v = typed(t);
    v.llVal = 5;
    EXPECT_EQ(vartolong(&v), 0) << t;
    EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected") << t;
  }
  LONGLONG big = 5;
  VARIANT v = byref(VT_I8, &big);
  EXPECT_EQ(vartolong(&v), 0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
  VARIANT_BOOL b = VARIANT_TRUE;
  v = byref(VT_BOOL, &b);
  EXPECT_EQ(vartolong(&v), 0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
  EXPECT_EQ(vartolong(nullptr), 0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
  v = byref(VT_I4, nullptr);
  EXPECT_EQ(vartolong(&v), 0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
}

// ---------------------------------------------------------------------------
// To double
// ---------------------------------------------------------------------------

TEST_F(Coerce, DoubleFromEveryAcceptedTypeByValue) {
  VARIANT v = typed(VT_R8);
  v.dblVal = 2.385;
  EXPECT_EQ(vartodouble(&v), 2.385);
  v = typed(VT_R4);
  v.fltVal = 0.375f;
  EXPECT_EQ(vartodouble(&v), 0.375);
  v = typed(VT_I2);
  v.iVal = -129;
  EXPECT_EQ(vartodouble(&v), -129.0);
  v = typed(VT_I4);
  v.lVal = -70001;
  EXPECT_EQ(vartodouble(&v), -70001.0);
  v = typed(VT_UI2);
  v.uiVal = 65535;
  EXPECT_EQ(vartodouble(&v), 65535.0);
  v = typed(VT_UI4);
  v.ulVal = 4000000000u;
  EXPECT_EQ(vartodouble(&v), 4000000000.0);  // unsigned
  v = typed(VT_INT);
  v.intVal = -17;
  EXPECT_EQ(vartodouble(&v), -17.0);
  v = typed(VT_UINT);
  v.uintVal = 3000000000u;
  EXPECT_EQ(vartodouble(&v), 3000000000.0);
  Var s;
  setbstr(s.p(), u"2.385e1xyz");
  EXPECT_EQ(vartodouble(s.p()), 23.85);
  setbstr(s.p(), u"pi");
  EXPECT_EQ(vartodouble(s.p()), 0.0);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, DoubleFromEveryAcceptedTypeByReference) {
  DOUBLE r8 = -0.0625;
  FLOAT r4 = 1.5f;
  SHORT i2 = -3;
  LONG i4 = 1000003;
  USHORT ui2 = 40000;
  ULONG ui4 = 4294967295u;
  INT in = 12;
  UINT ui = 4000000001u;
  BSTR b = SysAllocString(OLESTR("  -7.25"));
  VARIANT v = byref(VT_R8, &r8);
  EXPECT_EQ(vartodouble(&v), -0.0625);
  v = byref(VT_R4, &r4);
  EXPECT_EQ(vartodouble(&v), 1.5);
  v = byref(VT_I2, &i2);
  EXPECT_EQ(vartodouble(&v), -3.0);
  v = byref(VT_I4, &i4);
  EXPECT_EQ(vartodouble(&v), 1000003.0);
  v = byref(VT_UI2, &ui2);
  EXPECT_EQ(vartodouble(&v), 40000.0);
  v = byref(VT_UI4, &ui4);
  EXPECT_EQ(vartodouble(&v), 4294967295.0);
  v = byref(VT_INT, &in);
  EXPECT_EQ(vartodouble(&v), 12.0);
  v = byref(VT_UINT, &ui);
  EXPECT_EQ(vartodouble(&v), 4000000001.0);
  v = byref(VT_BSTR, &b);
  EXPECT_EQ(vartodouble(&v), -7.25);
  SysFreeString(b);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, OtherTypesAreRejectedWhereADoubleIsExpected) {
  for (VARTYPE t : {VT_EMPTY, VT_NULL, VT_CY, VT_DATE, VT_BOOL, VT_ERROR, VT_VARIANT, VT_I1, VT_UI1, VT_I8,
                    VT_UI8}) {
    VARIANT v = typed(t);
    v.llVal = 5;
    EXPECT_EQ(vartodouble(&v), 0.0) << t;
    EXPECT_EQ(takeerror(), "Invalid data type passed where double (float) expected") << t;
  }
  VARIANT_BOOL b = VARIANT_TRUE;
  VARIANT v = byref(VT_BOOL, &b);
  EXPECT_EQ(vartodouble(&v), 0.0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where double (float) expected");
  EXPECT_EQ(vartodouble(nullptr), 0.0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where double (float) expected");
  v = byref(VT_R8, nullptr);
  EXPECT_EQ(vartodouble(&v), 0.0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where double (float) expected");
}

// ---------------------------------------------------------------------------
// To strings
// ---------------------------------------------------------------------------

TEST_F(Coerce, FixedStringByValueAndByReference) {
  char buf[8];
  Var s;
  setbstr(s.p(), u"decay.vex");
  EXPECT_TRUE(vartostring(s.p(), buf, sizeof buf));
  EXPECT_STREQ(buf, "decay.v");  // at most size - 1 characters
  BSTR b = SysAllocString(OLESTR("ab"));
  VARIANT v = byref(VT_BSTR, &b);
  EXPECT_TRUE(vartostring(&v, buf, sizeof buf));
  EXPECT_STREQ(buf, "ab");
  SysFreeString(b);
  b = nullptr;
  EXPECT_TRUE(vartostring(&v, buf, sizeof buf));
  EXPECT_STREQ(buf, "");
  v = typed(VT_BSTR);
  v.bstrVal = nullptr;
  std::strcpy(buf, "junk");
  EXPECT_TRUE(vartostring(&v, buf, sizeof buf));
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, FixedStringIsUtf8AndNeverSplitsACharacter) {
  char buf[4];
  Var s;
  setbstr(s.p(), wide("a\xc3\xa9\xc3\xa9"));  // a, e-acute, e-acute
  EXPECT_TRUE(vartostring(s.p(), buf, sizeof buf));
  EXPECT_STREQ(buf, "a\xc3\xa9");  // the second e-acute would not fit whole
  char big[16];
  setbstr(s.p(), wide("x\xf0\x9f\x98\x80y"));  // a character beyond the BMP
  EXPECT_TRUE(vartostring(s.p(), big, sizeof big));
  EXPECT_STREQ(big, "x\xf0\x9f\x98\x80y");
  std::u16string lone = u"a";
  lone += static_cast<char16_t>(0xD800);
  lone += u"b";
  setbstr(s.p(), lone);
  EXPECT_TRUE(vartostring(s.p(), big, sizeof big));
  EXPECT_STREQ(big, "a\xef\xbf\xbd" "b");  // an unpaired surrogate becomes U+FFFD
}

TEST_F(Coerce, FixedStringRejectsOtherTypes) {
  char buf[8] = "junk";
  VARIANT v = typed(VT_I4);
  v.lVal = 5;
  EXPECT_FALSE(vartostring(&v, buf, sizeof buf));
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
  std::strcpy(buf, "junk");
  EXPECT_FALSE(vartostring(nullptr, buf, sizeof buf));
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
}

// By reference, empty and Boolean: the by-reference flag does not make a
// long a string.
TEST_F(Coerce, FixedStringRejectsByReferenceEmptyAndBoolean) {
  LONG x = 2385;
  VARIANT cases[3] = {byref(VT_I4, &x), typed(VT_EMPTY), typed(VT_BOOL)};
  cases[2].boolVal = VARIANT_TRUE;
  for (const VARIANT& v : cases) {
    char buf[8] = "junk";
    EXPECT_FALSE(vartostring(&v, buf, sizeof buf)) << "type " << v.vt;
    EXPECT_STREQ(buf, "") << "type " << v.vt;
    EXPECT_EQ(takeerror(), "Invalid data type passed where string expected") << "type " << v.vt;
  }
  EXPECT_EQ(x, 2385);
}

TEST_F(Coerce, NewStringByValueAndByReference) {
  Var s;
  setbstr(s.p(), wide("VARIABLES x; \xc3\xa9"));
  char* text = nullptr;
  EXPECT_TRUE(vartonewstring(s.p(), &text));
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "VARIABLES x; \xc3\xa9");
  EXPECT_STREQ(memtag(text), "DynamicString");
  memfree(text);
  BSTR b = SysAllocString(OLESTR("y"));
  VARIANT v = byref(VT_BSTR, &b);
  EXPECT_TRUE(vartonewstring(&v, &text));
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "y");
  memfree(text);
  SysFreeString(b);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, NewStringOfANullStringIsNull) {
  long live = memlivecount();
  VARIANT v = typed(VT_BSTR);
  v.bstrVal = nullptr;
  char* text = reinterpret_cast<char*>(&v);
  EXPECT_TRUE(vartonewstring(&v, &text));
  EXPECT_EQ(text, nullptr);
  BSTR* none = nullptr;
  v = byref(VT_BSTR, none);
  EXPECT_TRUE(vartonewstring(&v, &text));
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(memlivecount(), live);  // nothing left allocated
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Coerce, NewStringRejectsOtherTypes) {
  char* text = nullptr;
  VARIANT v = typed(VT_R8);
  v.dblVal = 1.0;
  EXPECT_FALSE(vartonewstring(&v, &text));
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
  text = reinterpret_cast<char*>(&v);
  EXPECT_FALSE(vartonewstring(nullptr, &text));
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
}

TEST_F(Coerce, NewStringRejectsByReferenceEmptyAndBoolean) {
  long live = memlivecount();
  LONG x = 2385;
  VARIANT cases[3] = {byref(VT_I4, &x), typed(VT_EMPTY), typed(VT_BOOL)};
  cases[2].boolVal = VARIANT_TRUE;
  for (const VARIANT& v : cases) {
    char* text = reinterpret_cast<char*>(&x);  // must be overwritten
    EXPECT_FALSE(vartonewstring(&v, &text)) << "type " << v.vt;
    EXPECT_EQ(text, nullptr) << "type " << v.vt;
    EXPECT_EQ(takeerror(), "Invalid data type passed where string expected") << "type " << v.vt;
  }
  EXPECT_EQ(memlivecount(), live);  // nothing allocated
  EXPECT_EQ(x, 2385);
}

// ---------------------------------------------------------------------------
// Writers
// ---------------------------------------------------------------------------

TEST_F(Coerce, WritersSetTypeAndValue) {
  Var r;
  r.v.vt = VT_R4;
  r.v.wReserved1 = 9;
  putlong(r.p(), -2385);
  EXPECT_EQ(r.v.vt, VT_I4);
  EXPECT_EQ(r.v.lVal, -2385);
  EXPECT_EQ(r.v.wReserved1, 0);
  putdouble(r.p(), 0.3125);
  EXPECT_EQ(r.v.vt, VT_R8);
  EXPECT_EQ(r.v.dblVal, 0.3125);
  putstring(r.p(), "Line 1\r\n\xc3\xa9\xf0\x9f\x98\x80");
  EXPECT_EQ(r.v.vt, VT_BSTR);
  EXPECT_EQ(SysStringLen(r.v.bstrVal), 11u);  // 8 + 1 + a surrogate pair
  EXPECT_EQ(narrow(r.v.bstrVal), "Line 1\r\n\xc3\xa9\xf0\x9f\x98\x80");
  VariantClear(r.p());
  putstring(r.p(), nullptr);
  EXPECT_EQ(r.v.vt, VT_BSTR);
  EXPECT_EQ(SysStringLen(r.v.bstrVal), 0u);
  VariantClear(r.p());
  putstring(r.p(), "a\xff" "b");  // a byte that is no UTF-8 becomes U+FFFD
  EXPECT_EQ(narrow(r.v.bstrVal), "a\xef\xbf\xbd" "b");
  putlong(nullptr, 1);  // no target: nothing happens
  putdouble(nullptr, 1.0);
  putstring(nullptr, "x");
}

TEST_F(Coerce, ErrorReportKeepsOnlyTheLatest) {
  argerror(BADLONG);
  argerror(BADSTRING);
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
  EXPECT_EQ(takeerror(), "");  // handed over once
}
