// The portable automation helpers: system strings, variants and error
// information, used exactly as a host uses the system's own.
#include <gtest/gtest.h>

#include <cstring>

#include "vartest.h"

using namespace vartest;

TEST(Automation, SystemStringsAreLengthPrefixed) {
  BSTR s = SysAllocString(OLESTR("VEXOR"));
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(SysStringLen(s), 5u);
  EXPECT_EQ(SysStringByteLen(s), 10u);
  uint32_t prefix;
  std::memcpy(&prefix, reinterpret_cast<const char*>(s) - 4, 4);
  EXPECT_EQ(prefix, 10u);
  EXPECT_EQ(s[5], 0);  // NUL after the text
  EXPECT_EQ(std::u16string(s), u"VEXOR");
  SysFreeString(s);
}

TEST(Automation, SystemStringEdgeCases) {
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);
  BSTR z = SysAllocStringLen(nullptr, 3);  // room for three, zeroed
  ASSERT_NE(z, nullptr);
  EXPECT_EQ(SysStringLen(z), 3u);
  EXPECT_EQ(z[0], 0);
  SysFreeString(z);
  const char16_t with_nul[] = {u'a', 0, u'b'};
  BSTR n = SysAllocStringLen(with_nul, 3);  // embedded NULs count
  EXPECT_EQ(SysStringLen(n), 3u);
  EXPECT_EQ(n[2], u'b');
  SysFreeString(n);
  BSTR e = SysAllocString(OLESTR(""));
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(SysStringLen(e), 0u);
  SysFreeString(e);
}

TEST(Automation, VariantInitAndClear) {
  VARIANT v;
  std::memset(&v, 0xAB, sizeof v);
  VariantInit(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
  v.vt = VT_BSTR;
  v.bstrVal = SysAllocString(OLESTR("freed by VariantClear"));
  EXPECT_EQ(VariantClear(&v), S_OK);  // the sanitizers see a leak otherwise
  EXPECT_EQ(v.vt, VT_EMPTY);
  BSTR kept = SysAllocString(OLESTR("held by reference"));
  v.vt = VT_BSTR | VT_BYREF;
  v.pbstrVal = &kept;
  EXPECT_EQ(VariantClear(&v), S_OK);  // the referenced string stays
  EXPECT_EQ(SysStringLen(kept), 17u);
  SysFreeString(kept);
  EXPECT_EQ(VariantClear(nullptr), E_INVALIDARG);
  EXPECT_EQ(sizeof(LONG), 4u);
  EXPECT_EQ(sizeof(HRESULT), 4u);
  EXPECT_EQ(VT_I2, 2);
  EXPECT_EQ(VT_I4, 3);
  EXPECT_EQ(VT_R4, 4);
  EXPECT_EQ(VT_R8, 5);
  EXPECT_EQ(VT_BSTR, 8);
  EXPECT_EQ(VT_BOOL, 11);
  EXPECT_EQ(VT_VARIANT, 12);
  EXPECT_EQ(VT_UI2, 18);
  EXPECT_EQ(VT_UI4, 19);
  EXPECT_EQ(VT_INT, 22);
  EXPECT_EQ(VT_UINT, 23);
  EXPECT_EQ(VT_BYREF, 0x4000);
}

TEST(Automation, ErrorInformationRoundTrip) {
  IErrorInfo* none = reinterpret_cast<IErrorInfo*>(&none);
  GetErrorInfo(0, &none);  // clear whatever was there
  if (none) none->Release();
  EXPECT_EQ(GetErrorInfo(0, &none), S_FALSE);
  EXPECT_EQ(none, nullptr);

  ICreateErrorInfo* create = nullptr;
  ASSERT_EQ(CreateErrorInfo(&create), S_OK);
  create->SetDescription(const_cast<LPOLESTR>(OLESTR("description text")));
  create->SetSource(const_cast<LPOLESTR>(OLESTR("VEXORCOM.VEXOR")));
  create->SetHelpContext(17);
  IErrorInfo* info = nullptr;
  ASSERT_EQ(create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info)), S_OK);
  void* other = &other;
  EXPECT_EQ(create->QueryInterface(GUID_NULL, &other), E_NOINTERFACE);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(SetErrorInfo(0, info), S_OK);
  info->Release();
  create->Release();

  IErrorInfo* got = nullptr;
  ASSERT_EQ(GetErrorInfo(0, &got), S_OK);
  ASSERT_NE(got, nullptr);
  BSTR d = nullptr, s = nullptr;
  got->GetDescription(&d);
  got->GetSource(&s);
  DWORD ctx = 0;
  got->GetHelpContext(&ctx);
  EXPECT_EQ(narrow(d), "description text");
  EXPECT_EQ(narrow(s), "VEXORCOM.VEXOR");
  EXPECT_EQ(ctx, 17u);
  SysFreeString(d);
  SysFreeString(s);
  got->Release();
  EXPECT_EQ(GetErrorInfo(0, &got), S_FALSE);  // handed over once
  EXPECT_EQ(takeerror(), "");
}

TEST(Automation, ErrorInformationIsPerThreadAndReleasedAtExit) {
  ICreateErrorInfo* create = nullptr;
  ASSERT_EQ(CreateErrorInfo(&create), S_OK);
  IErrorInfo* info = nullptr;
  create->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info));
  SetErrorInfo(0, info);  // left in the slot: released when the thread ends
  info->Release();
  create->Release();
  SetErrorInfo(0, nullptr);  // or cleared explicitly
  EXPECT_EQ(takeerror(), "");
}
