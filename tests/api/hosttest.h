// A host's view of the analysis object for the tests: each call with plain
// C++ values in and out, through VARIANTs exactly as a host passes them.
#pragma once

#include <string>

#include "vartest.h"

namespace vartest {

struct Host {
  VEXOR obj;

  long init() {
    Var in, out;
    obj.Initialize(in.p(), out.p());
    return out.v.lVal;
  }
  long compile(const std::string& source) {
    Var in, out;
    setbstr(in.p(), wide(source));
    obj.Compile(in.p(), out.p());
    return out.v.vt == VT_I4 ? out.v.lVal : -999;
  }
  long compilefile(const std::string& path) {
    Var in, out;
    setbstr(in.p(), wide(path));
    obj.CompileFile(in.p(), out.p());
    return out.v.vt == VT_I4 ? out.v.lVal : -999;
  }
  std::string report() {
    Var in, out;
    obj.GetAnalysisReport(in.p(), out.p());
    return out.v.vt == VT_BSTR ? narrow(out.v.bstrVal) : "<not a string>";
  }
  long compute() {
    Var out;
    obj.Compute(out.p());
    return out.v.vt == VT_I4 ? out.v.lVal : -999;
  }
  long numvars() {
    Var out;
    obj.NumInputVariables(out.p());
    return out.v.lVal;
  }
  std::string varname(long i) {
    Var in, out;
    setlong(in.p(), i);
    obj.InputVariableName(in.p(), out.p());
    return narrow(out.v.bstrVal);
  }
  long numparms() {
    Var out;
    obj.NumParameters(out.p());
    return out.v.lVal;
  }
  std::string parmname(long i) {
    Var in, out;
    setlong(in.p(), i);
    obj.ParameterName(in.p(), out.p());
    return narrow(out.v.bstrVal);
  }
  double parm(long i, long kind) {
    Var a, b, out;
    setlong(a.p(), i);
    setlong(b.p(), kind);
    obj.ParameterValue(a.p(), b.p(), out.p());
    return out.v.vt == VT_R8 ? out.v.dblVal : -999.0;
  }
  double stat(long kind) {
    Var in, out;
    setlong(in.p(), kind);
    obj.GetStatistic(in.p(), out.p());
    return out.v.vt == VT_R8 ? out.v.dblVal : -999.0;
  }
  long setrows(long n) {
    Var in, out;
    setlong(in.p(), n);
    obj.SetDataRows(in.p(), out.p());
    return out.v.lVal;
  }
  // The HRESULT; *result gets outResult's VT_I4 value, or -999 when the
  // method left it untouched.
  HRESULT setvalue(long row, long col, double x, long* result = nullptr) {
    Var r, c, v, out;
    setlong(r.p(), row);
    setlong(c.p(), col);
    setdouble(v.p(), x);
    setlong(out.p(), -999);
    HRESULT hr = obj.SetDataValue(r.p(), c.p(), v.p(), out.p());
    if (result) *result = out.v.lVal;
    return hr;
  }
  double getvalue(long row, long col) {
    Var r, c, out;
    setlong(r.p(), row);
    setlong(c.p(), col);
    obj.GetDataValue(r.p(), c.p(), out.p());
    return out.v.dblVal;
  }
  double corr(long row, long col) {
    Var r, c, out;
    setlong(r.p(), row);
    setlong(c.p(), col);
    obj.GetCorrelationValue(r.p(), c.p(), out.p());
    return out.v.vt == VT_R8 ? out.v.dblVal : -999.0;
  }
  double cov(long row, long col) {
    Var r, c, out;
    setlong(r.p(), row);
    setlong(c.p(), col);
    obj.GetCovarianceValue(r.p(), c.p(), out.p());
    return out.v.vt == VT_R8 ? out.v.dblVal : -999.0;
  }
  void evalvalue(long i, double x) {
    Var a, b;
    setlong(a.p(), i);
    setdouble(b.p(), x);
    obj.EvaluateValue(a.p(), b.p());
  }
  double evalfn() {
    Var in, out;
    obj.EvaluateFunction(in.p(), out.p());
    return out.v.vt == VT_R8 ? out.v.dblVal : -999.0;
  }
  long numrows() {
    Var out;
    obj.NumDataRows(out.p());
    return out.v.lVal;
  }
};

}  // namespace vartest
