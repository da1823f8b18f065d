// Number literals for differential tests of the two number readers (the
// lexer's and the data reader's), and an independent reading to hold them
// against.
//
// Both readers build a number as m = m * 10 + digit in doubles and then
// multiply by 10^e, or divide by 10^-e when e < 0, where e is the written
// exponent less the digits after the point.  The independent reading is the
// C library's strtod (after D is mapped to E), which rounds the exact
// decimal value once.  Where the readers' arithmetic is exact (every digit
// gathered without rounding, m < 2^53, and |e| <= 22 so that 10^|e| is an
// exact double) a single rounding remains and the two must agree bit for
// bit.  Elsewhere they may differ by the roundings the readers' rule makes,
// and by what it gives past the range of 10^e (see literalfault).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vexor::kit {

// `count` literals from the seed: 0 to 25 digits before the point (leading
// zeros among them), an optional point with 0 to 25 digits after it
// (trailing zeros among them), at least one digit in all, and an optional
// exponent of E, e, D or d with no sign, + or -, and 0 to 330 (now and then
// with leading zeros).  No signs in front of the number: the caller adds
// them where its reader takes one.
std::vector<std::string> numberliterals(uint32_t seed, int count);

// Where a reader's value of a literal may differ from strtod's, and by how
// much.
enum LiteralClass {
  LIT_EXACT,      // the rule is exact up to its one rounding: equal to strtod
  LIT_ROUNDED,    // the rule rounds more than once: within a few units
  LIT_NOPOWER,    // 10^|e| is beyond the doubles: 0 for e < 0, NaN for 0 * 10^e
  LIT_OVERFLOW,   // the value is beyond the doubles
};

struct LiteralVerdict {
  LiteralClass cls = LIT_EXACT;
  double reference = 0.0;  // strtod's value
  double ulps = 0.0;       // |value - reference| in units of reference's last place
  std::string fault;       // empty when the value is what the rule allows
};

// Judges `value`, a reader's value of the unsigned literal `text`.  The
// bounds: exact class, bit for bit; rounded class, (k + 3) * 2^-53 relative
// plus one unit of the smallest subnormal, k being the digit steps taken
// at or above 2^53; no power, 0 (v / infinity) or NaN (0 * infinity) or
// infinity (v * infinity); overflow, infinity.
LiteralVerdict literalfault(const std::string& text, double value);

}  // namespace vexor::kit
