// The analysis object's methods.  Each coerces its arguments (coerce.h),
// reads or drives the one engine of the process, and writes its results.
// Calls out of the intended order never fail: before a compile counts are 0,
// names empty and values 0.0.
#include "vexor/vexor.h"

#include <cmath>
#include <cstdint>

#include "api/coerce.h"
#include "api/engine.h"
#include "code/code.h"
#include "exec/exec.h"
#include "fit/driver.h"
#include "lang/lang.h"
#include "report/report.h"
#include "support/support.h"

using namespace vexor;

namespace {

// SetDataValue keeps the capacity this many rows ahead of the row it grows
// for.
constexpr int64_t DATAAHEAD = 501;

// The count of observations never runs ahead of the data, on purpose.
// SetDataValue and SetDataRows could set the count first and then try to
// allocate; but a count left standing after a failed allocation would have
// Compute, the statistics and the correlations walk that many rows of a
// matrix that is not there, and a negative count (from a negative row or row
// count) is no number of observations at all.  So:
//   - a negative row grows nothing and changes nothing (SetDataValue returns
//     7);
//   - a failed allocation or resize, in SetDataValue or SetDataRows, leaves
//     no matrix and 0 observations (freedata) and gives the result 5.
// A host sees the same result codes either way; it never sees a count that
// the data does not back.
//
// The capacity follows the rule row + 501; the memory behind it grows by
// doubling with the rows set (datamatrix.cpp), and rows a host skips read
// 0.0.

// SetDataValue's growth for a row >= 0 (see SetDataValue).
void growdata(int32_t row) {
  const int64_t cap = static_cast<int64_t>(row) + DATAAHEAD;
  const int32_t capped = cap < INT32_MAX ? static_cast<int32_t>(cap) : INT32_MAX;
  if (!datamat) {
    if (!datanew(capped, nvar, static_cast<int64_t>(row) + 1, 1)) return freedata();
    nobs = row + 1;
  } else {
    if (!dataroom(static_cast<int64_t>(row) + 1, 1)) return freedata();
    if (row >= datacap) datacap = capped;
    if (row >= nobs) {
      dataexpose(nobs, row + 1);
      nobs = row + 1;
    }
  }
}

}  // namespace

// 1. Initialize: the engine reset; the input is ignored.
HRESULT VEXOR::Initialize(VARIANT* /*inv*/, VARIANT* outv) {
  enginereset();
  putlong(outv, 0);
  return S_OK;
}

// 2. Compile: the program text becomes the source and is compiled.  A null
// string is an empty program.
HRESULT VEXOR::Compile(VARIANT* inSource, VARIANT* outResult) {
  char* text = nullptr;
  vartonewstring(inSource, &text);
  int ok = compilesource(text);
  if (text) memfree(text);
  putlong(outResult, ok);
  return S_OK;
}

// 3. CompileFile: the file name is cut to 499 characters (a 500-character
// buffer).  A file that cannot be read leaves its message in the listing, 0
// in the result and the compiled-successfully flag as it was.
HRESULT VEXOR::CompileFile(VARIANT* inFile, VARIANT* outResult) {
  char name[500];
  vartostring(inFile, name, sizeof name);
  putlong(outResult, compilefile(name));
  return S_OK;
}

// 4. GetAnalysisReport: the listing joined into one string; the listing
// itself is unchanged.
HRESULT VEXOR::GetAnalysisReport(VARIANT* /*inDummy*/, VARIANT* outReport) {
  long len = lstlength();
  auto* buf = static_cast<char*>(memalloc(static_cast<std::size_t>(len) + 1, "Analysis"));
  if (!buf) {
    putstring(outReport, "");
    return S_OK;
  }
  lstcopy(buf);
  putstring(outReport, buf);
  memfree(buf);
  return S_OK;
}

// 5. Compute: the analysis driver's result code, or 0 when no program has
// compiled.
HRESULT VEXOR::Compute(VARIANT* outResult) {
  int code = compiledok ? analyze() : 0;
  putlong(outResult, code);
  return S_OK;
}

// 6.
HRESULT VEXOR::NumInputVariables(VARIANT* outNumvar) {
  putlong(outNumvar, nvar);
  return S_OK;
}

// 7.
HRESULT VEXOR::InputVariableName(VARIANT* inIndex, VARIANT* outVarname) {
  int32_t i = vartolong(inIndex);
  putstring(outVarname, i >= 0 && i < nvar ? invars[i]->name : "");
  return S_OK;
}

// 8.
HRESULT VEXOR::NumParameters(VARIANT* outNumparam) {
  putlong(outNumparam, nparm);
  return S_OK;
}

// 9.
HRESULT VEXOR::ParameterName(VARIANT* inIndex, VARIANT* outName) {
  int32_t i = vartolong(inIndex);
  putstring(outName, i >= 0 && i < nparm ? parms[i]->name : "");
  return S_OK;
}

// 10. ParameterValue: 0 current value (the estimate after Compute), 1
// standard error, 2 t, 3 Prob(t), 4 lower and 5 upper confidence limit, 6
// starting value.
HRESULT VEXOR::ParameterValue(VARIANT* inIndex, VARIANT* inValtype, VARIANT* outResult) {
  int32_t i = vartolong(inIndex);
  int32_t kind = vartolong(inValtype);
  double value = 0.0;
  if (i >= 0 && i < nparm) {
    const Symbol* p = parms[i];
    switch (kind) {
      case 0: value = p->value; break;
      case 1: value = p->stderror; break;
      case 2: value = p->tval; break;
      case 3: value = p->pval; break;
      case 4: value = p->cilow; break;
      case 5: value = p->cihigh; break;
      case 6: value = p->initval; break;
      default: break;
    }
  }
  putdouble(outResult, value);
  return S_OK;
}

// 11. GetStatistic.  Code 4 returns the largest absolute deviation: the
// statistics record keeps that one (the average deviation is printed in the
// listing but not kept).
HRESULT VEXOR::GetStatistic(VARIANT* inValtype, VARIANT* outValue) {
  double value = 0.0;
  switch (vartolong(inValtype)) {
    case 0: value = nobs; break;
    case 1: value = iterations; break;
    case 2: value = fitsummary.sumsq; break;
    case 3: value = fitsummary.sumdev; break;
    case 4: value = fitsummary.maxdev; break;
    case 5: value = std::sqrt(fitsummary.variance); break;
    case 6: value = fitsummary.rsquare; break;
    case 7: value = fitsummary.adjrsquare; break;
    case 8: value = fitsummary.durbinwatson; break;
    case 9: value = fitsummary.runtime; break;
    case 10: value = VEXOR_VERSION; break;
    default: break;
  }
  putdouble(outValue, value);
  return S_OK;
}

// 12. SetDataRows: a new zero-filled matrix of inNumrows rows; every input
// variable's minimum and maximum primed to 1e30 and -1e30.  A count that
// cannot be allocated (negative ones included) gives 5 and leaves no matrix
// and 0 observations: the count never runs ahead of the data (see
// growdata).
HRESULT VEXOR::SetDataRows(VARIANT* inNumrows, VARIANT* outResult) {
  int32_t rows = vartolong(inNumrows);
  freedata();
  for (int32_t i = 0; i < nvar; ++i) {
    invars[i]->lower = 1e30;
    invars[i]->upper = -1e30;
  }
  if (rows < 0 || !datanew(rows, nvar, rows, 1)) {
    freedata();
    putlong(outResult, 5);
    return S_OK;
  }
  nobs = rows;
  putlong(outResult, 0);
  return S_OK;
}

// 13. SetDataValue, growing the matrix as needed:
//   no matrix:          nobs = row + 1, capacity = row + 501, a new
//                       zero-filled matrix;
//   row >= capacity:    nobs = row + 1, capacity = row + 501, the matrix
//                       resized;
//   row >= nobs:        nobs = row + 1.
// Then a negative row returns 7, an absent matrix gives the result 5, a
// column outside 0 .. nvars-1 returns 8 (the result untouched in both
// cases), and otherwise the value is stored and the result is 0.  A bad
// column still grows the matrix for its row.  A negative row grows nothing
// and a failed allocation leaves no data and 0 observations, so that the
// count never runs ahead of the data (see growdata).
HRESULT VEXOR::SetDataValue(VARIANT* inRow, VARIANT* inCol, VARIANT* inValue, VARIANT* outResult) {
  int32_t row = vartolong(inRow);
  int32_t col = vartolong(inCol);
  double value = vartodouble(inValue);
  if (row >= 0) growdata(row);
  if (row < 0) return 7;
  if (!datamat) {
    putlong(outResult, 5);
    return S_OK;
  }
  if (col < 0 || col >= nvar) return 8;
  datamat[static_cast<int64_t>(row) * nvar + col] = value;
  datawritten(row);
  putlong(outResult, 0);
  return S_OK;
}

// 14.
HRESULT VEXOR::GetDataValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue) {
  int32_t row = vartolong(inRow);
  int32_t col = vartolong(inCol);
  double value = 0.0;
  if (datamat && row >= 0 && row < nobs && col >= 0 && col < nvar)
    value = datamat[static_cast<int64_t>(row) * nvar + col];
  putdouble(outValue, value);
  return S_OK;
}

// 15. GetCorrelationValue: the correlation of two CORRELATE variables over
// the observations, computed now.
HRESULT VEXOR::GetCorrelationValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue) {
  int32_t row = vartolong(inRow);
  int32_t col = vartolong(inCol);
  double value = 0.0;
  if (ncorr >= 1 && !minimize && row >= 0 && row < ncorr && col >= 0 && col < ncorr) {
    startrun();
    value = corrcoef(corrvars[row], corrvars[col]);
  }
  putdouble(outValue, value);
  return S_OK;
}

// 16. GetCovarianceValue: an element of the last fit's covariance matrix;
// 0.0 when the fit produced none (or there has been no fit since the reset).
HRESULT VEXOR::GetCovarianceValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue) {
  int32_t row = vartolong(inRow);
  int32_t col = vartolong(inCol);
  double value = 0.0;
  if (covmat && covstatus >= 0 && covreq != 0 && !minimize && nobs > nparm && row >= 0 &&
      row < nparm && col >= 0 && col < nparm)
    value = covmat[static_cast<int64_t>(row) * nparm + col];
  putdouble(outValue, value);
  return S_OK;
}

// 17. EvaluateValue: an input variable's current value, for EvaluateFunction.
HRESULT VEXOR::EvaluateValue(VARIANT* inVariable, VARIANT* inValue) {
  int32_t i = vartolong(inVariable);
  double value = vartodouble(inValue);
  if (i >= 0 && i < nvar) invars[i]->value = value;
  return S_OK;
}

// 18. EvaluateFunction: the program run once on the input variables'
// current values with the parameters at theirs.  The values are copied
// first, since preparing the interpreter loads the first observation.  A run
// that never reaches the FUNCTION statement gives 0.0 (not a value left from
// an earlier run), and so does a call with no program.
HRESULT VEXOR::EvaluateFunction(VARIANT* /*inDummy*/, VARIANT* outValue) {
  double value = 0.0;
  if (progstart) {
    startrun();
    double* input = memallocdoubles("evlfun", nvar);
    if (input) {
      for (int32_t i = 0; i < nvar; ++i) input[i] = invars[i]->value;
      resetwork();
      lastpredicted = lastobserved = 0.0;
      runprog(0, input, &value, nullptr);
      memfree(input);
    }
  }
  putdouble(outValue, value);
  return S_OK;
}

// 19.
HRESULT VEXOR::NumDataRows(VARIANT* outNumrows) {
  putlong(outNumrows, nobs);
  return S_OK;
}
