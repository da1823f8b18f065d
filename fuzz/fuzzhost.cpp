#include "fuzzhost.h"

#include <string>

namespace vexor::fuzz {

namespace {

VEXOR engine;

void nothing(int) {}

BSTR wide(const std::string& text) {
  // The inputs are bytes; each byte becomes one UTF-16 unit, so every byte
  // value reaches the engine (the conversion back gives the same bytes for
  // the ASCII range and something for the rest, as a host's text would).
  std::u16string w;
  w.reserve(text.size());
  for (unsigned char c : text) w.push_back(static_cast<char16_t>(c ? c : ' '));
  return SysAllocStringLen(reinterpret_cast<const OLECHAR*>(w.data()), static_cast<UINT>(w.size()));
}

VARIANT longv(long v) {
  VARIANT x;
  VariantInit(&x);
  x.vt = VT_I4;
  x.lVal = static_cast<int32_t>(v);
  return x;
}

}  // namespace

void setup(double timelimit) {
  static bool done = false;
  if (done) return;
  done = true;
  setlexexithandler(nothing);
  settimelimit(timelimit);
  setmemorylimit(256.0 * 1024 * 1024);
}

long compile(const std::string& text) {
  VARIANT in, out;
  VariantInit(&in);
  VariantInit(&out);
  in.vt = VT_BSTR;
  in.bstrVal = wide(text);
  engine.Compile(&in, &out);
  VariantClear(&in);
  return out.vt == VT_I4 ? out.lVal : -1;
}

long compute() {
  VARIANT out;
  VariantInit(&out);
  engine.Compute(&out);
  return out.vt == VT_I4 ? out.lVal : -1;
}

std::string report() {
  VARIANT in, out;
  VariantInit(&in);
  VariantInit(&out);
  engine.GetAnalysisReport(&in, &out);
  std::string r;
  if (out.vt == VT_BSTR && out.bstrVal) r.resize(SysStringLen(out.bstrVal));
  VariantClear(&out);
  return r;
}

double parmvalue(long index, long kind) {
  VARIANT i = longv(index), k = longv(kind), out;
  VariantInit(&out);
  engine.ParameterValue(&i, &k, &out);
  return out.dblVal;
}

double statistic(long kind) {
  VARIANT k = longv(kind), out;
  VariantInit(&out);
  engine.GetStatistic(&k, &out);
  return out.dblVal;
}

// A method that takes a row and a column and answers a double.
double cell(HRESULT (VEXOR::*method)(VARIANT*, VARIANT*, VARIANT*), long row, long col) {
  VARIANT r = longv(row), c = longv(col), out;
  VariantInit(&out);
  (engine.*method)(&r, &c, &out);
  return out.dblVal;
}

double datavalue(long row, long col) { return cell(&VEXOR::GetDataValue, row, col); }
double correlation(long row, long col) { return cell(&VEXOR::GetCorrelationValue, row, col); }
double covariance(long row, long col) { return cell(&VEXOR::GetCovarianceValue, row, col); }

long count(HRESULT (VEXOR::*method)(VARIANT*)) {
  VARIANT out;
  VariantInit(&out);
  (engine.*method)(&out);
  return out.vt == VT_I4 ? out.lVal : 0;
}

void evaluate(long variable, double value) {
  VARIANT v = longv(variable), x;
  VariantInit(&x);
  x.vt = VT_R8;
  x.dblVal = value;
  engine.EvaluateValue(&v, &x);
}

double evaluatefunction() {
  VARIANT in, out;
  VariantInit(&in);
  VariantInit(&out);
  engine.EvaluateFunction(&in, &out);
  return out.dblVal;
}

void readresults() {
  const long np = count(&VEXOR::NumParameters);
  const long nv = count(&VEXOR::NumInputVariables);
  const long nr = count(&VEXOR::NumDataRows);
  for (long i = -1; i <= np && i < 50; ++i)
    for (long k = -1; k <= 7; ++k) parmvalue(i, k);
  for (long k = -1; k <= 11; ++k) statistic(k);
  for (long r = -1; r <= nr && r < 20; ++r)
    for (long c = -1; c <= nv && c < 20; ++c) datavalue(r, c);
  for (long a = -1; a <= 4; ++a)
    for (long b = -1; b <= 4; ++b) {
      correlation(a, b);
      covariance(a, b);
    }
  for (long v = 0; v < nv && v < 20; ++v) evaluate(v, 0.385 * (v + 1));
  evaluatefunction();
  report();
}

}  // namespace vexor::fuzz
