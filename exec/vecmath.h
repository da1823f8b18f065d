// Elementary functions over arrays for the block evaluator: y[i] = f(x[i])
// for i < n.
//
// With SLEEF (the vectorised elementary-function library, its 1.0-ULP
// functions) these run 2, 4 or 8 lanes at a time, chosen once from what the
// processor offers (AVX-512F: SLEEF's 8-lane functions; AVX: its 4-lane
// functions, which pick AVX2 or AVX themselves; otherwise its 2-lane SSE2
// functions).  The widths give the same value for every argument (checked
// by vecmath_test on every width the processor has), and every element, the
// last ones included, goes through the same vector function, so a value
// does not depend on its place in a block.  SLEEF's results may differ
// from the C library's in the last bit (both are within 1 ULP of the true
// value): the block evaluator's values then differ in the last bits from
// the interpreter's, which keeps the C library.  Without SLEEF (the
// Windows build), or with vecmath off (the default), the C library's functions are
// used here too and the two agree bit for bit.
#pragma once

namespace vexor {

// 1: SLEEF's functions when the build has them; 0 (the default): the C
// library's, so that the block evaluator's values are the interpreter's
// bit for bit and every listing is as without blocks.  A host setting
// (vexor::setvectormath, vexor run --vector-math).  2: SLEEF's 2-lane
// functions even where the processor has AVX, and 3: its 4-lane ones even
// where it has AVX-512, so that the path of an older processor can be
// tested on a newer one.
extern int vecmath;

// The implementation in use: "SLEEF AVX-512", "SLEEF AVX", "SLEEF SSE2" or
// "C library";
// vecmathactive() tells whether it is one of SLEEF's.
const char* vecmathname();
bool vecmathactive();

void vexp(const double* x, double* y, int n);
void vsin(const double* x, double* y, int n);
void vcos(const double* x, double* y, int n);
void vlog(const double* x, double* y, int n);

}  // namespace vexor
