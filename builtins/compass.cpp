// The compass conversion of PTOC, CTOP and their D forms: a polar angle to a
// compass bearing and back (the mapping is its own inverse),
//
//   c = pi/2 - theta;  while (c < 0) c += 2 pi;  while (c >= 2 pi) c -= 2 pi;
//
// Each step of those loops rounds, so for a large angle the result differs
// visibly from the remainder fmod would give (PTOC(1e7) is 5.146284501593044
// stepped, 5.146437998132981 by fmod), and the stepping is what defines the
// conversion.  Taken one by one the steps cost time in proportion to |c|
// (3e8 steps for PTOC(2e9)), so far from [0, 2 pi) they are counted instead
// of taken, with the same result bit for bit:
//
// Within one binade [B, 2B) of |c| every value is a multiple of the spacing
// u = ulp(B), and c - 2 pi rounds to c - D, where D is 2 pi rounded to a
// multiple of u; D is the same for every c of the binade (barring a tie,
// when 2 pi / u ends in exactly one half, which happens only for u = 2^-46,
// far below where counting starts, and is then stepped literally).  So the
// k steps that keep |c| within [B, 2B) subtract exactly k D, and the step
// after them, which leaves the binade, is taken literally.
//
// From |c| = 2^56 on (u >= 16), 2 pi rounds to no step at all and the loops
// would never end; there the remainder by fmod is taken first, the nearest
// thing to a result such a loop has.
#include <cmath>

#include "builtins/builtins.h"

namespace vexor {

namespace {

constexpr double HALFPI = 1.5707963267948966;
constexpr double TWOPI = 6.283185307179586;
constexpr double NOSTEP = 72057594037927936.0;  // 2^56: 2 pi rounds to 0 from here on

// a > 0: what `while (a >= countfrom) a -= 2 pi` leaves, with the steps of
// each binade counted.  The caller's literal loop takes it from there.
double countsteps(double a, double countfrom) {
  while (a >= countfrom) {
    int e = 0;
    std::frexp(a, &e);  // a in [2^(e-1), 2^e)
    const double b = std::ldexp(1.0, e - 1);
    const double u = std::ldexp(1.0, e - 53);
    const double q = TWOPI / u;  // exact: u is a power of two
    const double whole = std::floor(q);
    if (q - whole == 0.5) {  // a tie: the rounding depends on a's last bit
      a -= TWOPI;
      continue;
    }
    const double d = (q - whole < 0.5 ? whole : whole + 1.0) * u;
    // k steps stay within the binade when a - k d >= b; every quantity here
    // is a multiple of u below 2b, so each is exact.
    double k = std::floor((a - b) / d);
    while (k > 0 && a - k * d < b) k -= 1;
    while (a - (k + 1) * d >= b) k += 1;
    if (k <= 0) {
      a -= TWOPI;  // the step that leaves the binade
      continue;
    }
    a -= k * d;
  }
  return a;
}

}  // namespace

double compasssteps(double c, double countfrom) {
  if (std::fabs(c) >= NOSTEP) c = std::fmod(c, TWOPI);
  if (c < 0.0) {
    // c += 2 pi is -(|c| - 2 pi) in round-to-nearest; 0.0 - a keeps the sign
    // of a zero the loop would have produced (+0).
    c = 0.0 - countsteps(-c, countfrom);
    while (c < 0.0) c += TWOPI;
  }
  c = countsteps(c, countfrom);
  while (c >= TWOPI) c -= TWOPI;
  return c;
}

double compass(double theta) { return compasssteps(HALFPI - theta, COMPASSCOUNT); }

}  // namespace vexor
