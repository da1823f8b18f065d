// Special functions behind the statistical built-ins and the fit statistics:
// log-gamma, the reciprocal gamma function, the regularised incomplete gamma
// and beta functions, the error function and normal area, Student's t and
// Fisher's F probabilities and the inverse of the t probability.
//
// The iterative routines stop at a relative change of 3e-7 (EPS below), so
// their results are good to about six or seven significant digits; the
// reciprocal gamma series carries the coefficients to the 16 decimals of the
// Abramowitz and Stegun table, which limits it to about 2e-8 relative near
// x = 2.  A failing routine yields 0.0 and records its failure code in
// *fail (when given): the caller reports it, at run time with the line
// (evlcall), and leaves a constant call unfolded.
#include <cmath>

#include "builtins/builtins.h"

namespace vexor {

namespace {

constexpr double EPS = 3e-7;      // relative convergence of gser, gcf, betacf
constexpr int GAMMAITMAX = 400;   // terms of gser, iterations of gcf
constexpr int BETAITMAX = 120;    // iterations of betacf

// 1/Gamma(z) = sum c_k z^k (Abramowitz and Stegun 6.1.34), c_1 = 1 and
// c_2 .. c_26 as printed there (16 decimals).  Index k - 1.
constexpr double RGAMMACOEF[26] = {
    1.0,
    0.5772156649015329,
    -0.6558780715202538,
    -0.0420026350340952,
    0.1665386113822915,
    -0.0421977345555443,
    -0.0096219715278770,
    0.0072189432466630,
    -0.0011651675918591,
    -0.0002152416741149,
    0.0001280502823882,
    -0.0000201348547807,
    -0.0000012504934821,
    0.0000011330272320,
    -0.0000002056338417,
    0.0000000061160950,
    0.0000000050020075,
    -0.0000000011812746,
    0.0000000001043427,
    0.0000000000077823,
    -0.0000000000036968,
    0.0000000000005100,
    -0.0000000000000206,
    -0.0000000000000054,
    0.0000000000000014,
    0.0000000000000001,
};

}  // namespace

// ln Gamma(x), x > 0: Lanczos' approximation with six coefficients,
//   Gamma(y+1) ~ (y+5.5)^(y+0.5) e^-(y+5.5) sqrt(2 pi) (1 + sum c_j/(y+j)).
double gammln(double x) {
  static constexpr double cof[6] = {76.18009173,    -86.50532033,   24.01409822,
                                    -1.231739516, 0.00120858003, -5.36382e-06};
  double y = x - 1.0;
  double tmp = y + 5.5;
  tmp -= (y + 0.5) * std::log(tmp);
  double ser = 1.0;
  for (double c : cof) {
    y += 1.0;
    ser += c / y;
  }
  return -tmp + std::log(2.50662827465 * ser);
}

// 1/Gamma(x).  Above 2 the recurrence 1/Gamma(x) = 1/((x-1) Gamma(x-1))
// brings the argument down to (1, 2] first; the series is then summed at the
// reduced argument.  Arguments of 2 or less (negative ones too) go straight
// into the series, whose 26 terms are accurate only for small |x|; the
// callers keep x within -4..171.  A result of 0 marks a pole of Gamma.
double rgamma(double x) {
  double prod = 1.0;
  while (x > 2.0) {
    x -= 1.0;
    prod *= x;
  }
  // x + sum_{k=2..26} c_k x^k by Horner's rule.
  double sum = 0.0;
  for (int k = 25; k >= 0; --k) sum = sum * x + RGAMMACOEF[k];
  return sum * x / prod;
}

// d/dx gammln(x), the derivative of the six-term form itself (not of
// ln Gamma): with y = x - 1, t = y + 5.5 and ser = 1 + sum c_k / (y + k),
// gammln = -(t - (y + 0.5) ln t) + ln(2.50662827465 ser), so
// gammln' = ln t + (y + 0.5) / t - 1 - (sum c_k / (y + k)^2) / ser.
double gammlnderiv(double x) {
  static constexpr double cof[6] = {76.18009173,    -86.50532033,   24.01409822,
                                    -1.231739516, 0.00120858003, -5.36382e-06};
  double y = x - 1.0;
  const double t = y + 5.5;
  const double dtmp = 1.0 - std::log(t) - (y + 0.5) / t;
  double ser = 1.0, dser = 0.0;
  for (double c : cof) {
    y += 1.0;
    ser += c / y;
    dser -= c / (y * y);
  }
  return -dtmp + dser / ser;
}

// d/dx rgamma(x), the derivative of the series with its reduction: for
// x > 2, rgamma = S(z) / P with z = x - m and P = (x - 1) ... (x - m), so
// rgamma' = (S'(z) - S(z) sum_i 1 / (x - i)) / P.
double rgammaderiv(double x) {
  double prod = 1.0, logd = 0.0;
  while (x > 2.0) {
    x -= 1.0;
    prod *= x;
    logd += 1.0 / x;
  }
  // S(z) = sum c_k z^(k+1) and S'(z) = sum (k+1) c_k z^k by Horner's rule.
  double sum = 0.0, dsum = 0.0;
  for (int k = 25; k >= 0; --k) {
    sum = sum * x + RGAMMACOEF[k];
    dsum = dsum * x + (k + 1) * RGAMMACOEF[k];
  }
  return (dsum - sum * x * logd) / prod;
}

// Records a routine's failure (the first one of a computation counts).
static void failwith(SpecFail* fail, uint8_t code, double bad = 0.0) {
  if (fail && fail->code == BF_NONE) {
    fail->code = code;
    fail->bad = bad;
  }
}

// P(a, x) by its series: P = e^-x x^a / Gamma(a) * sum x^n / (a (a+1) ... (a+n)).
double gser(double a, double x, SpecFail* fail) {
  if (x <= 0.0) {
    if (x < 0.0) failwith(fail, BF_GSERNEG, x);
    return 0.0;
  }
  double gln = gammln(a);
  double ap = a;
  double del = 1.0 / a;
  double sum = del;
  for (int n = 1; n <= GAMMAITMAX; ++n) {
    ap += 1.0;
    del *= x / ap;
    sum += del;
    if (std::fabs(del) < std::fabs(sum) * EPS)
      return sum * std::exp(-x + a * std::log(x) - gln);
  }
  failwith(fail, BF_GSERITER);
  return 0.0;
}

// Q(a, x) = 1 - P(a, x) by its continued fraction
//   Q = e^-x x^a / Gamma(a) * 1/(x+ (1-a)/(1+ 1/(x+ (2-a)/(1+ 2/(x+ ...)))))
// The convergents A_n/B_n follow the three-term recurrence
// A_n = b_n A_{n-1} + a_n A_{n-2}; after each pair of steps both are divided
// by the latest A (the renormalisation), which keeps them in range.
double gcf(double a, double x, SpecFail* fail) {
  double gln = gammln(a);
  double aprev = 1.0, acur = x;  // A_{n-1}, A_n (renormalised)
  double bprev = 0.0, bcur = 1.0;
  double scale = 1.0;
  double gold = 0.0;
  for (int n = 1; n <= GAMMAITMAX; ++n) {
    double an = n;
    double ana = an - a;
    // Partial numerator (n - a) over denominator 1.
    aprev = (acur + aprev * ana) * scale;
    bprev = (bcur + bprev * ana) * scale;
    // Partial numerator n over denominator x.
    double anf = an * scale;
    acur = x * aprev + anf * acur;
    bcur = x * bprev + anf * bcur;
    if (acur != 0.0) {
      scale = 1.0 / acur;
      double g = bcur * scale;
      if (std::fabs((g - gold) / g) < EPS) return std::exp(-x + a * std::log(x) - gln) * g;
      gold = g;
    }
  }
  failwith(fail, BF_GCFITER);
  return 0.0;
}

// Regularised lower incomplete gamma P(a, x): the series converges fast for
// x < a + 1, the continued fraction for the complement elsewhere.
double gammp(double a, double x, SpecFail* fail) {
  if (x < 0.0 || a <= 0.0) {
    failwith(fail, BF_GAMMP);
    return 0.0;
  }
  if (x < a + 1.0) return gser(a, x, fail);
  return 1.0 - gcf(a, x, fail);
}

// Continued fraction of the incomplete beta function,
//   I_x(a,b) = x^a (1-x)^b / (a B(a,b)) * 1/(1+ d1/(1+ d2/(1+ ...)))
// with d_{2m+1} = -(a+m)(a+b+m) x / ((a+2m)(a+2m+1)) and
// d_{2m} = m (b-m) x / ((a+2m-1)(a+2m)), evaluated by the even/odd
// recurrence and renormalised at every step.  Stops when the change is at
// most EPS times the value, or silently after BETAITMAX steps.
double betacf(double a, double b, double x) {
  double qab = a + b, qap = a + 1.0, qam = a - 1.0;
  double am = 1.0, bm = 1.0, az = 1.0;
  double bz = 1.0 - qab * x / qap;
  for (int m = 1; m <= BETAITMAX; ++m) {
    double em = m, tem = em + em;
    double d = em * (b - em) * x / ((qam + tem) * (a + tem));  // even step
    double ap = az + d * am;
    double bp = bz + d * bm;
    d = -(a + em) * (qab + em) * x / ((a + tem) * (qap + tem));  // odd step
    double app = ap + d * az;
    double bpp = bp + d * bz;
    double aold = az;
    am = ap / bpp;
    bm = bp / bpp;
    az = app / bpp;
    bz = 1.0;
    if (std::fabs(az - aold) <= EPS * std::fabs(az)) break;
  }
  return az;
}

// Regularised incomplete beta I_x(a, b).  The continued fraction converges
// quickly for x < (a+1)/(a+b+2); beyond that the symmetry
// I_x(a,b) = 1 - I_{1-x}(b,a) is used.  x outside 0..1 yields -1.0 (the
// callers test the range first).
double betai(double a, double b, double x) {
  if (x < 0.0 || x > 1.0) return -1.0;
  double bt = 0.0;
  if (x != 0.0 && x != 1.0)
    bt = std::exp(gammln(a + b) - gammln(a) - gammln(b) + a * std::log(x) +
                  b * std::log(1.0 - x));
  if (x < (a + 1.0) / (a + b + 2.0)) return bt * betacf(a, b, x) / a;
  return 1.0 - bt * betacf(b, a, 1.0 - x) / b;
}

// erf(x) = P(1/2, x^2), odd in x.
double erf1(double x, SpecFail* fail) {
  double e = gammp(0.5, x * x, fail);
  return x < 0.0 ? -e : e;
}

// Standard normal distribution function Phi(x) = (1 + erf(x/sqrt 2))/2.
double parea(double x, SpecFail* fail) { return (1.0 + erf1(x / 1.4142135623730951, fail)) / 2.0; }

// P(T <= |t|) for Student's t with df degrees of freedom:
// 1 - I_{df/(df+t^2)}(df/2, 1/2)/2.
double tprob(double t, double df) {
  return 1.0 - betai(df / 2.0, 0.5, df / (df + t * t)) / 2.0;
}

// Upper-tail probability of F with (df1, df2) degrees of freedom:
// I_{df2/(df2+df1 F)}(df2/2, df1/2).
double fprob(double f, double df1, double df2) {
  return betai(df2 / 2.0, df1 / 2.0, df2 / (df2 + df1 * f));
}

// The t with tprob(t, df) = p, by bracketing and bisection to a width of
// 0.0001.  The bracket grows (or shrinks) by 20 for fewer than 5 degrees of
// freedom, by 3 otherwise.  p must lie in (0.5, 1): the two bracket loops
// also stop when the bound stops changing (p of 1 or more, or 0.5 or less,
// has no finite answer), so they always end.
double tinv(double p, double df) {
  double g = df < 5.0 ? 20.0 : 3.0;
  double lo, hi;
  if (tprob(2.0, df) <= p) {
    lo = 2.0;
    hi = 2.0 * g;
    while (tprob(hi, df) <= p && std::isfinite(hi)) hi *= g;
  } else {
    hi = 2.0;
    lo = g * 0.5;
    while (tprob(lo, df) >= p && lo > 0.0) lo /= g;
  }
  for (int i = 0; i < 40; ++i) {
    if (std::fabs(lo - hi) <= 0.0001) break;
    double mid = (lo + hi) / 2.0;
    if (tprob(mid, df) < p)
      lo = mid;
    else
      hi = mid;
  }
  return (lo + hi) / 2.0;
}

}  // namespace vexor
