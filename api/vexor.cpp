// The analysis object's methods.  Each coerces its arguments (coerce.h),
// reads or drives the one engine of the process, and writes its results.
// Calls out of the intended order never fail: before a compile counts are 0,
// names empty and values 0.0.
#include "vexor/vexor.h"

#include <cmath>
#include <cstdint>

#include "api/coerce.h"
#include "api/engine.h"
#include "report/report.h"

using namespace vexor;

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
  int code = compiledok ? compute() : 0;
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
    case 2: value = results.summary.sumsq; break;
    case 3: value = results.summary.sumdev; break;
    case 4: value = results.summary.maxdev; break;
    case 5: value = std::sqrt(results.summary.variance); break;
    case 6: value = results.summary.rsquare; break;
    case 7: value = results.summary.adjrsquare; break;
    case 8: value = results.summary.durbinwatson; break;
    case 9: value = results.summary.runtime; break;
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
// datahostrows).
HRESULT VEXOR::SetDataRows(VARIANT* inNumrows, VARIANT* outResult) {
  int32_t rows = vartolong(inNumrows);
  freedata();
  for (int32_t i = 0; i < nvar; ++i) {
    invars[i]->lower = 1e30;
    invars[i]->upper = -1e30;
  }
  putlong(outResult, datahostrows(rows) ? 0 : 5);
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
// count never runs ahead of the data (see datahostrow).
HRESULT VEXOR::SetDataValue(VARIANT* inRow, VARIANT* inCol, VARIANT* inValue, VARIANT* outResult) {
  int32_t row = vartolong(inRow);
  int32_t col = vartolong(inCol);
  double value = vartodouble(inValue);
  if (row < 0) return 7;
  datahostrow(row);
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
