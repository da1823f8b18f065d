// A C++ client of the VEXOR automation component, run under Windows (or
// Wine) after the component has been registered.
//
//   vexorcom_client check PROGRAM_FILE
//       creates VEXORCOM.VEXOR with CoCreateInstance and checks the component
//       through both faces of its dual interface (the vtable, and
//       IDispatch::Invoke by DISPID and by name), its type library, its
//       error information, its class factory and DllCanUnloadNow; the
//       program file (a program with DATA) is compiled with CompileFile.
//       Prints one line per failed check and a summary; exit status 0 when
//       every check passed, 1 otherwise.
//
//   vexorcom_client listing PROGRAM_FILE
//       compiles and fits the program through the component and writes the
//       listing (GetAnalysisReport) to standard output as it is, CR LF line
//       ends included.  Exit status 0 when the program compiled, 2 when not.
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#include <oleauto.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "vexorcom.h"

namespace {

int failures = 0;
int checks = 0;

void check(bool ok, const std::string& what) {
  ++checks;
  if (!ok) {
    ++failures;
    std::printf("FAIL: %s\n", what.c_str());
  }
}

std::string narrow(const wchar_t* w, std::size_t n) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s += w[i] < 0x80 ? static_cast<char>(w[i]) : '?';
  return s;
}
std::string narrow(BSTR b) { return b ? narrow(b, SysStringLen(b)) : std::string(); }
std::string hex(HRESULT hr) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08lX", static_cast<unsigned long>(hr));
  return buf;
}
std::string num(double d) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", d);
  return buf;
}

// VARIANT arguments and result slots that clean up after themselves.
struct Var {
  VARIANT v;
  Var() { VariantInit(&v); }
  explicit Var(long x) : Var() { v.vt = VT_I4, v.lVal = x; }
  explicit Var(double x) : Var() { v.vt = VT_R8, v.dblVal = x; }
  explicit Var(const wchar_t* s) : Var() { v.vt = VT_BSTR, v.bstrVal = SysAllocString(s); }
  explicit Var(bool b) : Var() { v.vt = VT_BOOL, v.boolVal = b ? VARIANT_TRUE : VARIANT_FALSE; }
  Var(const Var&) = delete;
  Var& operator=(const Var&) = delete;
  ~Var() { VariantClear(&v); }
  VARIANT* operator&() { return &v; }
};

// The library's file name from a program file name in the same folder.
std::wstring widen(const char* s) {
  int n = MultiByteToWideChar(CP_ACP, 0, s, -1, nullptr, 0);
  std::wstring w(static_cast<std::size_t>(n), L'\0');
  MultiByteToWideChar(CP_ACP, 0, s, -1, w.data(), n);
  w.resize(static_cast<std::size_t>(n > 0 ? n - 1 : 0));
  return w;
}

// ---------------------------------------------------------------------------
// IDispatch calls
// ---------------------------------------------------------------------------

// Invokes a method by DISPID with the arguments in their written order.
HRESULT invoke(IDispatch* d, DISPID id, std::vector<VARIANT*> args, VARIANT* result) {
  std::vector<VARIANT> rev;
  for (auto it = args.rbegin(); it != args.rend(); ++it) rev.push_back(**it);  // shallow: the caller owns them
  DISPPARAMS params = {rev.data(), nullptr, static_cast<UINT>(rev.size()), 0};
  EXCEPINFO excep;
  std::memset(&excep, 0, sizeof excep);
  UINT argerr = 0;
  if (result) VariantClear(result);
  return d->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result, &excep, &argerr);
}

DISPID idof(IDispatch* d, const wchar_t* name) {
  LPOLESTR n = const_cast<LPOLESTR>(name);
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = d->GetIDsOfNames(IID_NULL, &n, 1, LOCALE_USER_DEFAULT, &id);
  return SUCCEEDED(hr) ? id : DISPID_UNKNOWN;
}

// ---------------------------------------------------------------------------
// The interface as the type library must describe it
// ---------------------------------------------------------------------------

struct Method {
  const wchar_t* name;
  int ins;       // [in] arguments
  bool retval;   // an [out, retval] argument at the end
  const char* help;
};

const Method methods[19] = {
    {L"Initialize", 1, true, "Initialize for a new analysis"},
    {L"Compile", 1, true, "Compile program passed in as string"},
    {L"CompileFile", 1, true, "Compile a program stored in a file"},
    {L"GetAnalysisReport", 1, true, "Get status report for compilation or analysis run"},
    {L"Compute", 0, true, "Perform the analysis"},
    {L"NumInputVariables", 0, true, "Get count of input variables specified in program"},
    {L"InputVariableName", 1, true, "Get the name of an input variable"},
    {L"NumParameters", 0, true, "Get number of parameters specified in program"},
    {L"ParameterName", 1, true, "Get the name of a parameter"},
    {L"ParameterValue", 2, true, "Get a computed value for a parameter"},
    {L"GetStatistic", 1, true, "Get the value of a computed statistic"},
    {L"SetDataRows", 1, true, "Set number of data rows (obversations)"},
    {L"SetDataValue", 3, true, "Set data value for specified row and column"},
    {L"GetDataValue", 2, true, "Get data value from specified row and column"},
    {L"GetCorrelationValue", 2, true, "Get correlation value from (row,col) of correlation matrix"},
    {L"GetCovarianceValue", 2, true, "Get value from (row,col) of covariance matrix"},
    {L"EvaluateValue", 2, false, "Set variable value for EvaluateFunction"},
    {L"EvaluateFunction", 1, true, "Evaluate function for a set of data values"},
    {L"NumDataRows", 0, true, "Get the number of rows of data"},
};

std::string docstring(ITypeInfo* ti, MEMBERID id, std::string* name = nullptr) {
  BSTR n = nullptr, doc = nullptr;
  if (FAILED(ti->GetDocumentation(id, &n, &doc, nullptr, nullptr))) return "<none>";
  if (name) *name = narrow(n);
  std::string d = narrow(doc);
  SysFreeString(n);
  SysFreeString(doc);
  return d;
}

void checktypelib(IVEXOR* v) {
  UINT count = 0;
  check(SUCCEEDED(v->GetTypeInfoCount(&count)) && count == 1, "GetTypeInfoCount is 1");
  ITypeInfo* bad = nullptr;
  check(v->GetTypeInfo(1, 0, &bad) == DISP_E_BADINDEX, "GetTypeInfo(1) is DISP_E_BADINDEX");

  ITypeInfo* disp = nullptr;
  HRESULT hr = v->GetTypeInfo(0, LOCALE_USER_DEFAULT, &disp);
  check(SUCCEEDED(hr) && disp, "GetTypeInfo(0) " + hex(hr));
  if (!disp) return;
  TYPEATTR* ta = nullptr;
  disp->GetTypeAttr(&ta);
  check(ta && IsEqualGUID(ta->guid, IID_IVEXOR), "type information of IVEXOR");
  check(ta && ta->typekind == TKIND_DISPATCH, "dispatch face of a dual interface");
  check(ta && (ta->wTypeFlags & TYPEFLAG_FDUAL) && (ta->wTypeFlags & TYPEFLAG_FDISPATCHABLE),
        "IVEXOR is dual and dispatchable (flags " + std::to_string(ta ? ta->wTypeFlags : 0) + ")");
  if (ta) disp->ReleaseTypeAttr(ta);
  std::string name;
  check(docstring(disp, MEMBERID_NIL, &name) == "IVEXOR Interface" && name == "IVEXOR", "IVEXOR help string");

  // The vtable face: exactly the 19 methods, in order.
  HREFTYPE ref = 0;
  ITypeInfo* vt = nullptr;
  if (SUCCEEDED(disp->GetRefTypeOfImplType(static_cast<UINT>(-1), &ref))) disp->GetRefTypeInfo(ref, &vt);
  check(vt != nullptr, "vtable face of IVEXOR");
  if (vt) {
    vt->GetTypeAttr(&ta);
    check(ta && ta->typekind == TKIND_INTERFACE && ta->cFuncs == 19,
          "IVEXOR has 19 methods (" + std::to_string(ta ? ta->cFuncs : -1) + ")");
    check(ta && (ta->wTypeFlags & TYPEFLAG_FDUAL) && (ta->wTypeFlags & TYPEFLAG_FOLEAUTOMATION),
          "IVEXOR is dual and automation-compatible (flags " + std::to_string(ta ? ta->wTypeFlags : 0) + ")");
    int n = ta ? ta->cFuncs : 0;
    vt->ReleaseTypeAttr(ta);
    for (int i = 0; i < n && i < 19; ++i) {
      const Method& m = methods[i];
      FUNCDESC* fd = nullptr;
      if (FAILED(vt->GetFuncDesc(static_cast<UINT>(i), &fd))) {
        check(false, "GetFuncDesc " + std::to_string(i));
        continue;
      }
      std::string mname;
      std::string help = docstring(vt, fd->memid, &mname);
      std::string label = narrow(m.name, wcslen(m.name));
      check(fd->memid == i + 1, label + " has DISPID " + std::to_string(i + 1) + " (" + std::to_string(fd->memid) + ")");
      check(mname == label, "method " + std::to_string(i + 1) + " is " + label + " (" + mname + ")");
      check(help == m.help, label + " help string \"" + help + "\"");
      check(fd->invkind == INVOKE_FUNC && fd->elemdescFunc.tdesc.vt == VT_HRESULT,
            label + " is a method returning HRESULT");
      check(fd->oVft == static_cast<SHORT>((7 + i) * sizeof(void*)), label + " vtable slot");
      int params = m.ins + (m.retval ? 1 : 0);
      check(fd->cParams == params, label + " takes " + std::to_string(params) + " arguments");
      for (int p = 0; p < fd->cParams && p < params; ++p) {
        const ELEMDESC& e = fd->lprgelemdescParam[p];
        bool ptrvariant = e.tdesc.vt == VT_PTR && e.tdesc.lptdesc && e.tdesc.lptdesc->vt == VT_VARIANT;
        USHORT flags = e.paramdesc.wParamFlags;
        bool isout = p == m.ins;
        bool ok = ptrvariant && (isout ? (flags & PARAMFLAG_FOUT) && (flags & PARAMFLAG_FRETVAL)
                                       : (flags & PARAMFLAG_FIN) && !(flags & PARAMFLAG_FOUT));
        check(ok, label + " argument " + std::to_string(p + 1) + (isout ? " is [out, retval] VARIANT*" : " is [in] VARIANT*"));
      }
      vt->ReleaseFuncDesc(fd);
      // The same DISPID by name, in any case.
      std::wstring upper(m.name);
      for (auto& c : upper) c = static_cast<wchar_t>(towupper(c));
      check(idof(v, m.name) == i + 1 && idof(v, upper.c_str()) == i + 1, "GetIDsOfNames(" + label + ")");
    }
    vt->Release();
  }
  check(idof(v, L"NoSuchMethod") == DISPID_UNKNOWN, "GetIDsOfNames of an unknown name fails");

  // The library and the class.
  ITypeLib* lib = nullptr;
  UINT index = 0;
  disp->GetContainingTypeLib(&lib, &index);
  check(lib != nullptr, "containing type library");
  if (lib) {
    TLIBATTR* la = nullptr;
    lib->GetLibAttr(&la);
    check(la && IsEqualGUID(la->guid, LIBID_VEXORCOMLib) && la->wMajorVerNum == 1 && la->wMinorVerNum == 0,
          "type library VEXORCOMLib 1.0");
    if (la) lib->ReleaseTLibAttr(la);
    BSTR lname = nullptr;
    lib->GetDocumentation(-1, &lname, nullptr, nullptr, nullptr);
    check(narrow(lname) == "VEXORCOMLib", "library name VEXORCOMLib");
    SysFreeString(lname);
    ITypeInfo* cls = nullptr;
    lib->GetTypeInfoOfGuid(CLSID_VEXOR, &cls);
    check(cls != nullptr, "coclass VEXOR in the library");
    if (cls) {
      std::string cname;
      check(docstring(cls, MEMBERID_NIL, &cname) == "VEXOR Class" && cname == "VEXOR", "VEXOR Class help string");
      cls->GetTypeAttr(&ta);
      check(ta && ta->typekind == TKIND_COCLASS && ta->cImplTypes == 1, "VEXOR implements one interface");
      cls->ReleaseTypeAttr(ta);
      INT flags = 0;
      HREFTYPE iref = 0;
      ITypeInfo* itf = nullptr;
      cls->GetImplTypeFlags(0, &flags);
      cls->GetRefTypeOfImplType(0, &iref);
      cls->GetRefTypeInfo(iref, &itf);
      std::string iname;
      if (itf) docstring(itf, MEMBERID_NIL, &iname);
      check((flags & IMPLTYPEFLAG_FDEFAULT) && iname == "IVEXOR", "IVEXOR is the default interface of VEXOR");
      if (itf) itf->Release();
      cls->Release();
    }
    lib->Release();
  }
  disp->Release();
}

// ---------------------------------------------------------------------------
// Error information
// ---------------------------------------------------------------------------

// The description of the thread's error information (taking it), or "".
std::string takeerror() {
  IErrorInfo* info = nullptr;
  if (GetErrorInfo(0, &info) != S_OK || !info) return "";
  BSTR d = nullptr;
  info->GetDescription(&d);
  std::string s = narrow(d);
  SysFreeString(d);
  info->Release();
  return s;
}

void checkerrors(IVEXOR* v) {
  ISupportErrorInfo* sei = nullptr;
  HRESULT hr = v->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(&sei));
  check(SUCCEEDED(hr) && sei, "ISupportErrorInfo");
  if (sei) {
    check(sei->InterfaceSupportsErrorInfo(IID_IVEXOR) == S_OK, "error information for IVEXOR: S_OK");
    check(sei->InterfaceSupportsErrorInfo(IID_IDispatch) == S_FALSE, "error information for IDispatch: S_FALSE");
    check(sei->InterfaceSupportsErrorInfo(IID_IUnknown) == S_FALSE, "error information for IUnknown: S_FALSE");
    sei->Release();
  }

  // Through the vtable: the call succeeds, the argument reads as 0, and the
  // description tells what was wrong.
  SetErrorInfo(0, nullptr);
  Var which(true), out;
  hr = v->GetStatistic(&which, &out);
  std::string d = takeerror();
  check(hr == S_OK, "GetStatistic(VT_BOOL) succeeds");
  check(d == "Invalid data type passed where long integer expected", "long argument error: \"" + d + "\"");
  Var zero(0L), nobs;
  v->GetStatistic(&zero, &nobs);
  check(out.v.vt == VT_R8 && nobs.v.vt == VT_R8 && out.v.dblVal == nobs.v.dblVal,
        "a VT_BOOL selector reads as 0");

  SetErrorInfo(0, nullptr);
  Var var0(0L), empty;
  v->EvaluateValue(&var0, &empty);
  d = takeerror();
  check(d == "Invalid data type passed where double (float) expected", "double argument error: \"" + d + "\"");

  SetErrorInfo(0, nullptr);
  Var number(5L), res;
  hr = v->CompileFile(&number, &res);
  d = takeerror();
  check(hr == S_OK && d == "Invalid data type passed where string expected", "string argument error: \"" + d + "\"");

  // A good call leaves no error behind.
  SetErrorInfo(0, nullptr);
  Var ten(10L), ver;
  v->GetStatistic(&ten, &ver);
  check(takeerror().empty(), "no error information after a good call");
  check(ver.v.vt == VT_R8 && ver.v.dblVal == 5.4, "GetStatistic(10) is 5.4");

  // Through IDispatch::Invoke, with the error information the same.
  SetErrorInfo(0, nullptr);
  Var b(true), r2;
  hr = invoke(v, 11, {&b}, &r2.v);
  d = takeerror();
  check(SUCCEEDED(hr) && d == "Invalid data type passed where long integer expected",
        "long argument error through Invoke: " + hex(hr) + " \"" + d + "\"");
}

// ---------------------------------------------------------------------------
// An analysis through both faces
// ---------------------------------------------------------------------------

// The program's observations, also handed over cell by cell.
const double xs[] = {0.5, 1.0, 1.5, 2.0, 2.5, 3.0, 3.5, 4.0, 4.5, 5.0};
const double ys[] = {4.21, 5.07, 6.12, 7.43, 9.11, 10.79, 13.21, 16.02, 19.57, 23.85};
const int NOBS = 10;

const wchar_t* const model =
    L"TITLE \"Growth\";\n"
    L"VARIABLES x, y;\n"
    L"PARAMETERS a = 1, b = 0.1;\n"
    L"COVARIANCE;\n"
    L"CORRELATE x, y;\n"
    L"FUNCTION y = a * exp(b * x);\n";

// Every result of an analysis, read through one face.
struct Results {
  long compiled = -1, code = -99, nvar = -1, npar = -1, nrows = -1;
  std::vector<std::string> varnames, parnames;
  std::vector<double> values;  // parameter values, statistics, matrices, data, evaluations
  std::string report;
};

// The calls, as a table: the vtable face and the dispatch face each fill it.
struct Face {
  virtual ~Face() = default;
  virtual HRESULT call(int dispid, std::vector<VARIANT*> args, VARIANT* out) = 0;
};

struct VtableFace : Face {
  IVEXOR* v;
  explicit VtableFace(IVEXOR* p) : v(p) {}
  HRESULT call(int id, std::vector<VARIANT*> a, VARIANT* out) override {
    switch (id) {
      case 1: return v->Initialize(a[0], out);
      case 2: return v->Compile(a[0], out);
      case 3: return v->CompileFile(a[0], out);
      case 4: return v->GetAnalysisReport(a[0], out);
      case 5: return v->Compute(out);
      case 6: return v->NumInputVariables(out);
      case 7: return v->InputVariableName(a[0], out);
      case 8: return v->NumParameters(out);
      case 9: return v->ParameterName(a[0], out);
      case 10: return v->ParameterValue(a[0], a[1], out);
      case 11: return v->GetStatistic(a[0], out);
      case 12: return v->SetDataRows(a[0], out);
      case 13: return v->SetDataValue(a[0], a[1], a[2], out);
      case 14: return v->GetDataValue(a[0], a[1], out);
      case 15: return v->GetCorrelationValue(a[0], a[1], out);
      case 16: return v->GetCovarianceValue(a[0], a[1], out);
      case 17: return v->EvaluateValue(a[0], a[1]);
      case 18: return v->EvaluateFunction(a[0], out);
      case 19: return v->NumDataRows(out);
      default: return E_INVALIDARG;
    }
  }
};

// By DISPID, or by the DISPID GetIDsOfNames gives for the method's name;
// arguments either as they are or, as scripting hosts pass variables, by
// reference (VT_BYREF | VT_VARIANT).
struct DispatchFace : Face {
  IDispatch* d;
  bool byname, byref;
  DispatchFace(IDispatch* p, bool name, bool ref) : d(p), byname(name), byref(ref) {}
  HRESULT call(int id, std::vector<VARIANT*> a, VARIANT* out) override {
    DISPID dispid = byname ? idof(d, methods[id - 1].name) : id;
    std::vector<VARIANT> refs(a.size());
    std::vector<VARIANT*> args;
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (byref) {
        VariantInit(&refs[i]);
        refs[i].vt = VT_BYREF | VT_VARIANT;
        refs[i].pvarVal = a[i];
        args.push_back(&refs[i]);
      } else {
        args.push_back(a[i]);
      }
    }
    Var result;
    HRESULT hr = invoke(d, dispid, args, out ? &result.v : nullptr);
    if (out) {
      VariantClear(out);
      *out = result.v;  // hand the result over
      VariantInit(&result.v);
    }
    return hr;
  }
};

long getlong(Face& f, int id, std::vector<VARIANT*> a, const std::string& what) {
  Var out;
  f.call(id, a, &out);
  check(out.v.vt == VT_I4, what + " gives a long");
  return out.v.vt == VT_I4 ? out.v.lVal : -12345;
}
double getdouble(Face& f, int id, std::vector<VARIANT*> a, const std::string& what) {
  Var out;
  f.call(id, a, &out);
  check(out.v.vt == VT_R8, what + " gives a double");
  return out.v.vt == VT_R8 ? out.v.dblVal : -12345.0;
}
std::string getstring(Face& f, int id, std::vector<VARIANT*> a, const std::string& what) {
  Var out;
  f.call(id, a, &out);
  check(out.v.vt == VT_BSTR, what + " gives a string");
  return out.v.vt == VT_BSTR ? narrow(out.v.bstrVal) : "<not a string>";
}

// Compiles (the program with DATA from a file, or the model above with the
// observations handed over cell by cell), fits and reads every result.
Results analyse(Face& f, const std::wstring& file, const std::string& label) {
  Results r;
  Var zero(0L);
  f.call(1, {&zero}, nullptr);
  if (!file.empty()) {
    Var name(file.c_str());
    r.compiled = getlong(f, 3, {&name}, label + " CompileFile");
  } else {
    Var src(model);
    r.compiled = getlong(f, 2, {&src}, label + " Compile");
    Var rows(static_cast<long>(NOBS));
    check(getlong(f, 12, {&rows}, label + " SetDataRows") == 0, label + " SetDataRows result 0");
    for (long i = 0; i < NOBS; ++i) {
      Var row(i), c0(0L), c1(1L), x(xs[i]), y(ys[i]);
      check(getlong(f, 13, {&row, &c0, &x}, label + " SetDataValue") == 0, label + " SetDataValue result 0");
      check(getlong(f, 13, {&row, &c1, &y}, label + " SetDataValue") == 0, label + " SetDataValue result 0");
    }
  }
  r.code = getlong(f, 5, {}, label + " Compute");
  r.nvar = getlong(f, 6, {}, label + " NumInputVariables");
  for (long i = 0; i < r.nvar; ++i) {
    Var idx(i);
    r.varnames.push_back(getstring(f, 7, {&idx}, label + " InputVariableName"));
  }
  r.npar = getlong(f, 8, {}, label + " NumParameters");
  for (long i = 0; i < r.npar; ++i) {
    Var idx(i);
    r.parnames.push_back(getstring(f, 9, {&idx}, label + " ParameterName"));
    for (long k = 0; k <= 7; ++k) {
      Var kind(k);
      r.values.push_back(getdouble(f, 10, {&idx, &kind}, label + " ParameterValue"));
    }
    // A double index and a string selector read as their long values.
    Var didx(static_cast<double>(i) + 0.75), skind(L"0");
    r.values.push_back(getdouble(f, 10, {&didx, &skind}, label + " ParameterValue"));
  }
  for (long k = -1; k <= 11; ++k) {
    if (k == 9) continue;  // the runtime
    Var kind(k);
    r.values.push_back(getdouble(f, 11, {&kind}, label + " GetStatistic"));
  }
  for (long i = -1; i <= r.npar; ++i)
    for (long j = -1; j <= r.npar; ++j) {
      Var row(i), col(j);
      r.values.push_back(getdouble(f, 16, {&row, &col}, label + " GetCovarianceValue"));
    }
  for (long i = -1; i <= r.nvar; ++i)
    for (long j = -1; j <= r.nvar; ++j) {
      Var row(i), col(j);
      r.values.push_back(getdouble(f, 15, {&row, &col}, label + " GetCorrelationValue"));
    }
  r.nrows = getlong(f, 19, {}, label + " NumDataRows");
  for (long i = -1; i <= r.nrows; ++i)
    for (long j = -1; j <= r.nvar; ++j) {
      Var row(i), col(j);
      r.values.push_back(getdouble(f, 14, {&row, &col}, label + " GetDataValue"));
    }
  for (double x : {0.0, 1.25, 6.0}) {
    Var var(0L), value(x), dummy(0L);
    f.call(17, {&var, &value}, nullptr);
    r.values.push_back(getdouble(f, 18, {&dummy}, label + " EvaluateFunction"));
  }
  r.report = getstring(f, 4, {&zero}, label + " GetAnalysisReport");
  return r;
}

// The listing without its completion time and runtime line.
std::string withouttime(const std::string& s) {
  std::string out;
  std::size_t pos = 0;
  while (pos < s.size()) {
    std::size_t end = s.find('\n', pos);
    std::size_t next = end == std::string::npos ? s.size() : end + 1;
    std::string line = s.substr(pos, next - pos);
    if (line.rfind("Analysis completed ", 0) != 0) out += line;
    pos = next;
  }
  return out;
}

void checksame(const Results& a, const Results& b, const std::string& what) {
  check(a.compiled == b.compiled && a.code == b.code && a.nvar == b.nvar && a.npar == b.npar &&
            a.nrows == b.nrows && a.varnames == b.varnames && a.parnames == b.parnames,
        what + ": counts, codes and names agree");
  bool same = a.values.size() == b.values.size();
  for (std::size_t i = 0; same && i < a.values.size(); ++i)
    if (std::memcmp(&a.values[i], &b.values[i], sizeof(double)) != 0) {
      same = false;
      check(false, what + ": value " + std::to_string(i) + " " + num(a.values[i]) + " vs " + num(b.values[i]));
    }
  check(same, what + ": every value agrees to the bit");
  check(withouttime(a.report) == withouttime(b.report), what + ": the listings agree");
}

void checkanalysis(IVEXOR* v, const std::wstring& file) {
  VtableFace vt(v);
  DispatchFace byid(v, false, false), byname(v, true, false), byref(v, true, true);

  // The program from the file (it has DATA), through every face.
  Results a = analyse(vt, file, "vtable");
  check(a.compiled == 1, "the program file compiled");
  check(a.code >= 1 && a.code <= 6, "the fit converged (" + std::to_string(a.code) + ")");
  check(a.npar > 0 && a.nvar > 0 && a.nrows > a.npar, "the program has parameters, variables and data");
  check(a.report.find("\r\n") != std::string::npos && a.report.find("Final Results") != std::string::npos,
        "the listing has CR LF line ends and the final results");
  checksame(a, analyse(byid, file, "Invoke by DISPID"), "file, vtable and Invoke by DISPID");
  checksame(a, analyse(byname, file, "Invoke by name"), "file, vtable and Invoke by name");
  checksame(a, analyse(byref, file, "Invoke by reference"), "file, vtable and Invoke with arguments by reference");

  // The model with the observations handed over cell by cell.
  Results m = analyse(vt, L"", "cells vtable");
  check(m.compiled == 1 && m.code >= 1 && m.code <= 6, "the model compiled and the fit converged");
  check(m.nrows == NOBS && m.nvar == 2 && m.npar == 2, "10 observations of 2 variables, 2 parameters");
  check(m.parnames == std::vector<std::string>({"a", "b"}) && m.varnames == std::vector<std::string>({"x", "y"}),
        "the names of the parameters and variables");
  checksame(m, analyse(byref, L"", "cells Invoke"), "cells, vtable and Invoke by reference");

  // Some values that follow from the data: the estimates reproduce the
  // observations, and EvaluateFunction is the model at the estimates.
  VtableFace& f = vt;
  Var k0(0L), k1(1L), k6(6L), k7(7L), i0(0L), i1(1L);
  double a0 = getdouble(f, 10, {&i0, &k0}, "a");
  double b0 = getdouble(f, 10, {&i1, &k0}, "b");
  // The least-squares estimates, computed independently (Gauss-Newton in
  // double precision): a = 3.4063373437, b = 0.38852501678.
  check(std::fabs(a0 / 3.4063373437 - 1) < 1e-8 && std::fabs(b0 / 0.38852501678 - 1) < 1e-8,
        "the least-squares estimates: " + num(a0) + ", " + num(b0));
  check(getdouble(f, 10, {&i0, &k6}, "start") == 1.0 && getdouble(f, 10, {&i1, &k6}, "start") == 0.1,
        "ParameterValue(i, 6) is the starting value");
  check(getdouble(f, 10, {&i0, &k7}, "kind 7") == 0.0, "ParameterValue(0, 7) is 0");
  double se = getdouble(f, 10, {&i0, &k1}, "se");
  double var = getdouble(f, 16, {&i0, &i0}, "cov");
  check(se > 0 && std::fabs(se * se - var) <= 1e-9 * var, "the standard error of a is the root of its variance");
  check(getdouble(f, 15, {&i0, &i0}, "corr") > 0.999999, "x correlates with itself");
  Var x(2.0), d(0L);
  f.call(17, {&i0, &x}, nullptr);
  double y = getdouble(f, 18, {&d}, "EvaluateFunction");
  check(std::fabs(y - a0 * std::exp(b0 * 2.0)) < 1e-9 * y, "EvaluateFunction is a * exp(b * x)");
  Var n0(0L), n10(10L), n11(11L), nm(-1L);
  check(getdouble(f, 11, {&n0}, "stat 0") == NOBS, "GetStatistic(0) is the number of observations");
  check(getdouble(f, 11, {&n10}, "stat 10") == 5.4, "GetStatistic(10) is 5.4");
  check(getdouble(f, 11, {&n11}, "stat 11") == 0.0 && getdouble(f, 11, {&nm}, "stat -1") == 0.0,
        "GetStatistic(11) and (-1) are 0");
  Var r3(3L), c1(1L);
  check(getdouble(f, 14, {&r3, &c1}, "data") == ys[3], "GetDataValue(3, 1) is the observation");

  // SetDataValue's own HRESULTs for a bad column (8) and a bad row (7),
  // leaving the result as the caller passed it.
  Var row0(0L), badcol(2L), badrow(-1L), value(1.5);
  Var out(424242L);
  HRESULT hr = v->SetDataValue(&row0, &badcol, &value, &out);
  check(hr == 8 && out.v.vt == VT_I4 && out.v.lVal == 424242, "SetDataValue with a bad column returns 8: " + hex(hr));
  hr = v->SetDataValue(&badrow, &i0, &value, &out);
  check(hr == 7 && out.v.vt == VT_I4 && out.v.lVal == 424242, "SetDataValue with a bad row returns 7: " + hex(hr));
  Var dout;
  hr = invoke(v, 13, {&row0, &badcol, &value}, &dout.v);
  check(SUCCEEDED(hr) && dout.v.vt == VT_EMPTY, "SetDataValue with a bad column through Invoke: " + hex(hr));
  Var rows;
  v->NumDataRows(&rows);
  check(rows.v.vt == VT_I4 && rows.v.lVal == NOBS, "nothing stored by the bad calls");

  // A second object drives the same engine.
  IVEXOR* other = nullptr;
  CoCreateInstance(CLSID_VEXOR, nullptr, CLSCTX_INPROC_SERVER, IID_IVEXOR, reinterpret_cast<void**>(&other));
  check(other != nullptr, "a second object");
  if (other) {
    Var np;
    other->NumParameters(&np);
    check(np.v.vt == VT_I4 && np.v.lVal == 2, "the second object sees the first one's program");
    other->Release();
  }
}

// ---------------------------------------------------------------------------
// The class factory and DllCanUnloadNow
// ---------------------------------------------------------------------------

void checkmodule(IVEXOR* v) {
  HMODULE dll = GetModuleHandleW(L"vexorcom.dll");
  check(dll != nullptr, "vexorcom.dll is loaded");
  if (!dll) return;
  using CanUnload = HRESULT(STDAPICALLTYPE*)();
  using GetClass = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
  auto canunload = reinterpret_cast<CanUnload>(reinterpret_cast<void*>(GetProcAddress(dll, "DllCanUnloadNow")));
  auto getclass = reinterpret_cast<GetClass>(reinterpret_cast<void*>(GetProcAddress(dll, "DllGetClassObject")));
  check(canunload && getclass && GetProcAddress(dll, "DllRegisterServer") && GetProcAddress(dll, "DllUnregisterServer"),
        "the four exports");
  if (!canunload || !getclass) return;

  check(canunload() == S_FALSE, "DllCanUnloadNow is S_FALSE while an object lives");
  IClassFactory* cf = nullptr;
  void* p = nullptr;
  check(getclass(IID_IVEXOR, IID_IClassFactory, &p) == CLASS_E_CLASSNOTAVAILABLE && !p,
        "DllGetClassObject of another class: CLASS_E_CLASSNOTAVAILABLE");
  check(SUCCEEDED(getclass(CLSID_VEXOR, IID_IClassFactory, reinterpret_cast<void**>(&cf))) && cf,
        "DllGetClassObject gives the class factory");
  if (!cf) return;
  IUnknown* outer = v;
  check(cf->CreateInstance(outer, IID_IUnknown, &p) == CLASS_E_NOAGGREGATION, "no aggregation");
  check(cf->CreateInstance(nullptr, IID_IClassFactory, &p) == E_NOINTERFACE && !p, "CreateInstance of another interface");
  IUnknown* obj = nullptr;
  check(SUCCEEDED(cf->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&obj))) && obj,
        "CreateInstance");
  IUnknown* a = nullptr;
  IUnknown* b = nullptr;
  v->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&a));
  IDispatch* disp = nullptr;
  v->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&disp));
  if (disp) disp->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&b));
  check(a && a == b, "one IUnknown for every face");
  check(v->QueryInterface(IID_IClassFactory, &p) == E_NOINTERFACE && !p, "E_NOINTERFACE for another interface");
  if (a) a->Release();
  if (b) b->Release();
  if (disp) disp->Release();

  check(cf->LockServer(TRUE) == S_OK, "LockServer(TRUE)");
  cf->Release();
  v->Release();
  obj->Release();
  check(canunload() == S_FALSE, "DllCanUnloadNow is S_FALSE while the server is locked");
  getclass(CLSID_VEXOR, IID_IClassFactory, reinterpret_cast<void**>(&cf));
  cf->LockServer(FALSE);
  check(canunload() == S_FALSE, "DllCanUnloadNow is S_FALSE while the class factory is held");
  cf->Release();
  check(canunload() == S_OK, "DllCanUnloadNow is S_OK with no object and no lock");
}

int runchecks(const char* file) {
  CLSID clsid;
  check(SUCCEEDED(CLSIDFromProgID(L"VEXORCOM.VEXOR", &clsid)) && IsEqualCLSID(clsid, CLSID_VEXOR),
        "VEXORCOM.VEXOR names the class");
  check(SUCCEEDED(CLSIDFromProgID(L"VEXORCOM.VEXOR.1", &clsid)) && IsEqualCLSID(clsid, CLSID_VEXOR),
        "VEXORCOM.VEXOR.1 names the class");
  IVEXOR* v = nullptr;
  HRESULT hr = CoCreateInstance(CLSID_VEXOR, nullptr, CLSCTX_INPROC_SERVER, IID_IVEXOR, reinterpret_cast<void**>(&v));
  check(SUCCEEDED(hr) && v, "CoCreateInstance " + hex(hr));
  if (!v) return 1;
  checktypelib(v);
  checkerrors(v);
  checkanalysis(v, widen(file));
  checkmodule(v);  // releases v
  std::printf("%d checks, %d failed\n", checks, failures);
  return failures ? 1 : 0;
}

int listing(const char* file) {
  IVEXOR* v = nullptr;
  HRESULT hr = CoCreateInstance(CLSID_VEXOR, nullptr, CLSCTX_INPROC_SERVER, IID_IVEXOR, reinterpret_cast<void**>(&v));
  if (FAILED(hr) || !v) {
    std::fprintf(stderr, "CoCreateInstance failed: %s\n", hex(hr).c_str());
    return 3;
  }
  Var name(widen(file).c_str()), compiled, code, zero(0L), report;
  v->CompileFile(&name, &compiled);
  bool ok = compiled.v.vt == VT_I4 && compiled.v.lVal == 1;
  if (ok) v->Compute(&code);
  v->GetAnalysisReport(&zero, &report);
  if (report.v.vt == VT_BSTR && report.v.bstrVal) {
    UINT n = SysStringLen(report.v.bstrVal);
    int bytes = WideCharToMultiByte(CP_ACP, 0, report.v.bstrVal, static_cast<int>(n), nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_ACP, 0, report.v.bstrVal, static_cast<int>(n), text.data(), bytes, nullptr, nullptr);
    _setmode(_fileno(stdout), _O_BINARY);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
  }
  v->Release();
  return ok ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || (std::strcmp(argv[1], "check") != 0 && std::strcmp(argv[1], "listing") != 0)) {
    std::fputs("Usage: vexorcom_client check|listing PROGRAM_FILE\n", stderr);
    return 2;
  }
  CoInitialize(nullptr);
  int rc = std::strcmp(argv[1], "check") == 0 ? runchecks(argv[2]) : listing(argv[2]);
  CoUninitialize();
  return rc;
}
