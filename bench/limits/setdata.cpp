// A host that hands over N rows (default 1,000,000) of two columns through
// SetDataValue, row by row, as the README's host does, then fits y = a x.
// Prints the seconds the cells took.
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <vexor/vexor.h>

int main(int argc, char** argv) {
  const long n = argc > 1 ? std::atol(argv[1]) : 1000000;
  VEXOR v;
  VARIANT in, out;
  VariantInit(&in);
  VariantInit(&out);
  in.vt = VT_BSTR;
  in.bstrVal = SysAllocString(OLESTR("VARIABLES x, y;\nPARAMETERS a;\nFUNCTION y = a*x;\n"));
  v.Compile(&in, &out);
  VariantClear(&in);
  VARIANT row, col, val;
  VariantInit(&row);
  VariantInit(&col);
  VariantInit(&val);
  row.vt = col.vt = VT_I4;
  val.vt = VT_R8;
  const auto t0 = std::chrono::steady_clock::now();
  for (long i = 0; i < n; ++i) {
    row.lVal = static_cast<int32_t>(i);
    col.lVal = 0;
    val.dblVal = 1e-6 * static_cast<double>(i);
    v.SetDataValue(&row, &col, &val, &out);
    col.lVal = 1;
    val.dblVal = 2e-6 * static_cast<double>(i) + 0.385;
    v.SetDataValue(&row, &col, &val, &out);
  }
  const double cells = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  v.Compute(&out);
  std::printf("%.3f\n", cells);
  return out.lVal > 0 ? 0 : 1;
}
