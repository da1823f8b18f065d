// Machine constants for IEEE 754 binary64 arithmetic and 32-bit integers.
#include <cfloat>
#include <climits>
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

// d1mach(1) smallest positive normal, (2) largest finite, (3) 2^-53 (smallest
// relative spacing), (4) 2^-52 (largest relative spacing), (5) log10(2).
double d1mach(int i) {
  switch (i) {
    case 1: return DBL_MIN;
    case 2: return DBL_MAX;
    case 3: return DBL_EPSILON / 2.0;
    case 4: return DBL_EPSILON;
    case 5: return 0.30102999566398119521;
    default: return 0.0;
  }
}

// The constants the regression routines use: (1) eta, the smallest positive
// number, (2) sqrt(256 eta) / 16, (3) machep, (4) sqrt(machep),
// (5) sqrt(big / 256) * 16, (6) big.
double dr7mdc(int k) {
  const double big = d1mach(2), eta = d1mach(1), machep = d1mach(4);
  switch (k) {
    case 1: return eta;
    case 2: return std::sqrt(256.0 * eta) / 16.0;
    case 3: return machep;
    case 4: return std::sqrt(machep);
    case 5: return std::sqrt(big / 256.0) * 16.0;
    case 6: return big;
    default: return 0.0;
  }
}

// i1mach(1..4) I/O units (input, output, punch, error), (5) bits per integer
// storage unit, (6) characters per unit, (7) integer base, (8) integer digits,
// (9) largest integer, (10) floating base, (11) single digits, (12) single
// minimum exponent, (13) single maximum exponent, (14) double digits,
// (15) double minimum exponent, (16) double maximum exponent.
int i1mach(int i) {
  switch (i) {
    case 1: return 5;
    case 2: return 6;
    case 3: return 7;
    case 4: return 6;
    case 5: return 32;
    case 6: return 4;
    case 7: return 2;
    case 8: return 31;
    case 9: return INT_MAX;
    case 10: return 2;
    case 11: return FLT_MANT_DIG;
    case 12: return FLT_MIN_EXP;
    case 13: return FLT_MAX_EXP;
    case 14: return DBL_MANT_DIG;
    case 15: return DBL_MIN_EXP;
    case 16: return DBL_MAX_EXP;
    default: return 0;
  }
}

}  // namespace vexor::port
