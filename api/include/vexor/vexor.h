// The VEXOR analysis object: what a host program sees of the engine.
//
//   #include <vexor/vexor.h>
//
//   VEXOR v;
//   VARIANT src, res;
//   VariantInit(&src);
//   src.vt = VT_BSTR;
//   src.bstrVal = SysAllocString(OLESTR("VARIABLES x, y; ...\n"));
//   v.Compile(&src, &res);          // res: VT_I4, 1 when the program compiled
//   VariantClear(&src);
//
// Every argument and result is a VARIANT passed by pointer, exactly as
// through the IVEXOR automation interface on Windows.  Arguments are accepted
// in exactly these types, held directly or by reference (VT_BYREF):
//   - where a number is expected: VT_I2, VT_I4, VT_R4, VT_R8, VT_BSTR,
//     VT_UI2, VT_UI4, VT_INT, VT_UINT (a real is truncated toward zero where
//     a whole number is wanted; a string is read like atol or atof, so "12ab"
//     is 12 and "ab" is 0);
//   - where a string is expected (a program text, a file name): VT_BSTR only.
// Any other type is not converted: Boolean (VT_BOOL), Byte (VT_UI1), VT_I1,
// Currency (VT_CY), VT_DECIMAL, Date (VT_DATE), the 64-bit integers (VT_I8,
// VT_UI8), VT_EMPTY, VT_NULL, and a number where a string is expected.  Such
// an argument is reported through the thread's error information
// (GetErrorInfo) and read as 0, 0.0 or the empty string, and the call still
// succeeds.  Results are VT_I4, VT_R8 or VT_BSTR; a BSTR result belongs to
// the host (VariantClear it).  A null result pointer is allowed: the method
// does its work and writes nothing.  Indexes are 0-based.
//
// The object holds no state of its own: all instances drive the one engine
// of the process, so two objects see and change the same analysis.  The
// engine is single-threaded; do not call it from two threads at once.
//
// Methods, in interface (DISPID 1 to 19) order:
//    1 Initialize(in, out)            reset the engine; out = 0
//    2 Compile(source, out)           compile a program text; out = 1 or 0
//    3 CompileFile(file, out)         compile a program file; out = 1 or 0
//    4 GetAnalysisReport(in, out)     the listing, lines ending in CR LF
//    5 Compute(out)                   fit; out = the result code (0 when no
//                                     program has compiled)
//    6 NumInputVariables(out)
//    7 InputVariableName(index, out)
//    8 NumParameters(out)
//    9 ParameterName(index, out)
//   10 ParameterValue(index, kind, out)   kind 0 estimate, 1 standard error,
//                                     2 t, 3 Prob(t), 4 lower and 5 upper
//                                     confidence limit, 6 starting value
//   11 GetStatistic(kind, out)        0 observations, 1 iterations, 2 final
//                                     function value, 3 sum of deviations,
//                                     4 largest absolute deviation, 5
//                                     standard error of estimate, 6 R^2, 7
//                                     adjusted R^2, 8 Durbin-Watson, 9
//                                     runtime in seconds, 10 version (5.4);
//                                     any other kind 0.0.  Code 4 is the
//                                     maximum of |observed - predicted|
//                                     over the observations, not the
//                                     average deviation (the listing prints
//                                     that one; no code returns it).
//                                     Initialize, Compile and CompileFile
//                                     set codes 0 to 9 back to 0.0.
//   12 SetDataRows(rows, out)         new zero-filled data; out = 0, or 5
//   13 SetDataValue(row, col, value, out)  grows the data as needed; returns
//                                     7 for a negative row, 8 for a column
//                                     out of range (out untouched then)
//   14 GetDataValue(row, col, out)
//   15 GetCorrelationValue(row, col, out)  over the CORRELATE list
//   16 GetCovarianceValue(row, col, out)   of the parameter estimates
//   17 EvaluateValue(variable, value)  set an input variable's value
//   18 EvaluateFunction(in, out)      the model at those values
//   19 NumDataRows(out)
#pragma once

#include "vexor/automation.h"

class VEXOR_API VEXOR {
 public:
  HRESULT Initialize(VARIANT* inv, VARIANT* outv);
  HRESULT Compile(VARIANT* inSource, VARIANT* outResult);
  HRESULT CompileFile(VARIANT* inFile, VARIANT* outResult);
  HRESULT GetAnalysisReport(VARIANT* inDummy, VARIANT* outReport);
  HRESULT Compute(VARIANT* outResult);
  HRESULT NumInputVariables(VARIANT* outNumvar);
  HRESULT InputVariableName(VARIANT* inIndex, VARIANT* outVarname);
  HRESULT NumParameters(VARIANT* outNumparam);
  HRESULT ParameterName(VARIANT* inIndex, VARIANT* outName);
  HRESULT ParameterValue(VARIANT* inIndex, VARIANT* inValtype, VARIANT* outResult);
  HRESULT GetStatistic(VARIANT* inValtype, VARIANT* outValue);
  HRESULT SetDataRows(VARIANT* inNumrows, VARIANT* outResult);
  HRESULT SetDataValue(VARIANT* inRow, VARIANT* inCol, VARIANT* inValue, VARIANT* outResult);
  HRESULT GetDataValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue);
  HRESULT GetCorrelationValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue);
  HRESULT GetCovarianceValue(VARIANT* inRow, VARIANT* inCol, VARIANT* outValue);
  HRESULT EvaluateValue(VARIANT* inVariable, VARIANT* inValue);
  HRESULT EvaluateFunction(VARIANT* inDummy, VARIANT* outValue);
  HRESULT NumDataRows(VARIANT* outNumrows);
};

namespace vexor {

// A comment left open at the end of a program ends the process (status 1)
// unless the host installs a handler that returns; the compilation then
// fails like any other.  Returns the handler it replaces.
using LexExitHandler = void (*)(int status);
VEXOR_API LexExitHandler setlexexithandler(LexExitHandler handler);

// Stopping a run.  Compute and EvaluateFunction run the compiled program,
// which may loop for ever (WHILE (1);) or simply take long.
//   cancel(): stops the run in progress as soon as it looks (before every
//     instruction, every block of observations, every residual request):
//     Compute then returns -10 and the listing says "Aborting analysis..."
//     and "Stopped due to: Analysis was aborted"; EvaluateFunction returns
//     0.0.  Safe to call from any thread and from a signal handler.  A
//     cancel while nothing runs is forgotten: every run starts afresh.
//   settimelimit(seconds): every later Compute, EvaluateFunction and
//     GetCorrelationValue stops as by cancel() once it has run that long
//     (0, the default: no limit).  timelimit() returns the setting.
//   timedout(): whether the last run was stopped by the time limit.
VEXOR_API void cancel();
VEXOR_API void settimelimit(double seconds);
VEXOR_API double timelimit();
VEXOR_API bool timedout();

// A limit on the memory of the engine's large arrays (the data matrix, the
// work arrays of a fit and the per-observation results), in bytes; 0, the
// default, is none.  A matrix or a fit that would pass it fails as if the
// memory had run out: SetDataRows and SetDataValue answer 5, DATA reports
// "Insufficient memory space available", Compute returns -3.
VEXOR_API void setmemorylimit(double bytes);

// Vector math: with it on, the block evaluator (which runs a model without
// side effects over blocks of observations) computes exp, sin, cos and ln
// with SLEEF's vectorised functions (1.0 ULP) where the build has them,
// several times faster than the C library's.  Results may then differ from
// those with it off in the last bits, and a fit's estimates by about its
// convergence tolerance (1e-9 relative or less on the examples and the NIST
// problems); every printed digit can move accordingly.  Off by default, so
// that listings are as the language defines them.  vectormath() tells
// whether SLEEF's functions are in use.
VEXOR_API void setvectormath(bool on);
VEXOR_API bool vectormath();

// Threads: a Compute whose model has no side effects (the block evaluator
// takes it) and at least 4096 observations spreads each pass over the
// observations across this many threads, made once per Compute; other
// programs run on the caller's thread alone.  0 (the default) is one per core (at most 64).  Every
// result and printed digit is the same for any count.  threads() gives
// the count a Compute would use.
VEXOR_API void setthreads(int count);
VEXOR_API int threads();

// Derivatives: off (the default), the optimizer differences the residuals
// for its Jacobian (forward differences), as the language defines the fit.
// On, every later Compute takes the Jacobian from the program's exact
// derivatives in the parameters (forward-mode automatic
// differentiation through assignments, arrays, IF/ELSE, loops and the
// built-ins' derivative rules), which needs fewer passes over the data and
// reaches the minimum more precisely; columns whose derivative meets a
// built-in argument without a rule (the modulus of EI1, EI2, EIC1, EIC2,
// the shapes of BETAI and GAMMP) are differenced.  differencedcolumns()
// then names them and says why ("b, c: EI1 has no derivative rule for its
// argument 1"), and is empty when every column was exact.  Listings and
// numbers move accordingly (fewer evaluations, other last digits).
// Standard errors in a fit with CONSTRAIN bounds: off (the default), such
// a fit has no covariance matrix, as the language defines it.  On, the
// covariance of the parameters that are not held on a bound is computed at
// the solution as for an unbounded fit (sigma^2 (J'J)^-1 over them, with
// sigma^2 = SSE / (n - p)); a parameter on its bound gets no standard
// error, and the listing names the parameters held.
VEXOR_API void setboundederrors(bool on);
VEXOR_API bool boundederrors();
VEXOR_API void setderivatives(bool exact);
VEXOR_API bool exactderivatives();
VEXOR_API const char* differencedcolumns();

}  // namespace vexor
