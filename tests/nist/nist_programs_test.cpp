// The 27 NIST StRD nonlinear regression problems, written as programs of the
// modelling language and run from both starting points by `vexor run`.  The
// estimates are read from the parameter file (POUTPUT, full precision) and
// the standard errors from the listing's parameter table; both are scored by
// the log relative error against the certified values,
//   LRE = -log10(|estimate - certified| / |certified|), capped at 11.
// The levels asserted are those the optimizer reaches on the same problems
// with hand-written residuals (tests/fit/nist_test.cpp): every estimate at
// LRE >= 6 and every standard error at LRE >= 4, except for the cases listed
// there as below target.  A table of every case is written to
// nist_programs_lre.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string nistdir() {
  const char* env = std::getenv("VEXOR_NIST_DIR");
  return env && *env ? env : VEXOR_NIST_DIR_DEFAULT;
}

struct Problem {
  std::string name;
  int npar = 0;
  std::vector<double> start1, start2, cert, certsd;
  int datastart = 0;  // lines before the first data record
  int npred = 1;
};

// The model of each problem in the modelling language.  Note that a unary
// minus binds tighter than a power, so -(x-b4)^2 is written -((x-b4)^2).
const std::map<std::string, std::string>& models() {
  static const std::map<std::string, std::string> m = {
      {"Misra1a", "y = b1*(1-exp(-b2*x))"},
      {"Chwirut2", "y = exp(-b1*x)/(b2+b3*x)"},
      {"Chwirut1", "y = exp(-b1*x)/(b2+b3*x)"},
      {"Lanczos3", "y = b1*exp(-b2*x) + b3*exp(-b4*x) + b5*exp(-b6*x)"},
      {"Lanczos2", "y = b1*exp(-b2*x) + b3*exp(-b4*x) + b5*exp(-b6*x)"},
      {"Lanczos1", "y = b1*exp(-b2*x) + b3*exp(-b4*x) + b5*exp(-b6*x)"},
      {"Gauss1", "y = b1*exp(-b2*x) + b3*exp(-((x-b4)^2)/b5^2) + b6*exp(-((x-b7)^2)/b8^2)"},
      {"Gauss2", "y = b1*exp(-b2*x) + b3*exp(-((x-b4)^2)/b5^2) + b6*exp(-((x-b7)^2)/b8^2)"},
      {"Gauss3", "y = b1*exp(-b2*x) + b3*exp(-((x-b4)^2)/b5^2) + b6*exp(-((x-b7)^2)/b8^2)"},
      {"DanWood", "y = b1*x^b2"},
      {"Misra1b", "y = b1 * (1-(1+b2*x/2)^(-2))"},
      {"Kirby2", "y = (b1 + b2*x + b3*x^2) / (1 + b4*x + b5*x^2)"},
      {"Hahn1", "y = (b1+b2*x+b3*x^2+b4*x^3) / (1+b5*x+b6*x^2+b7*x^3)"},
      {"Nelson", "ly = b1 - b2*x1 * exp(-b3*x2)"},
      {"MGH17", "y = b1 + b2*exp(-x*b4) + b3*exp(-x*b5)"},
      {"Misra1c", "y = b1 * (1-(1+2*b2*x)^(-.5))"},
      {"Misra1d", "y = b1*b2*x*((1+b2*x)^(-1))"},
      {"Roszman1", "y = b1 - b2*x - arctan(b3/(x-b4))/pi"},
      {"ENSO",
       "y = b1 + b2*cos(2*pi*x/12) + b3*sin(2*pi*x/12) + b5*cos(2*pi*x/b4) + b6*sin(2*pi*x/b4)"
       " + b8*cos(2*pi*x/b7) + b9*sin(2*pi*x/b7)"},
      {"MGH09", "y = b1*(x^2+x*b2) / (x^2+x*b3+b4)"},
      {"Thurber", "y = (b1 + b2*x + b3*x^2 + b4*x^3) / (1 + b5*x + b6*x^2 + b7*x^3)"},
      {"BoxBOD", "y = b1*(1-exp(-b2*x))"},
      {"Rat42", "y = b1 / (1+exp(b2-b3*x))"},
      {"MGH10", "y = b1 * exp(b2/(x+b3))"},
      {"Eckerle4", "y = (b1/b2) * exp(-0.5*((x-b3)/b2)^2)"},
      {"Rat43", "y = b1 / ((1+exp(b2-b3*x))^(1/b4))"},
      {"Bennett5", "y = b1 * (b2+x)^(-1/b3)"},
  };
  return m;
}

// Cases the optimizer itself leaves below target, with the reason found
// (tests/fit/nist_test.cpp): Lanczos1's residuals sit at the rounding level
// of the model, so the residual sum of squares and the standard errors keep
// few digits; Lanczos3 start 2 and Nelson start 2 stop where the
// forward-difference gradient vanishes (Nelson's b3 column has a norm of
// about 4e-3, so its difference step DLTFDJ * 1/D(3) is 6e-5 relative to b3
// and the column carries a truncation error near 1e-4); ENSO and Bennett5
// start 1 stop on RFCTOL = 1e-10 while still converging linearly; Lanczos2
// start 1 ends in false convergence (a rejected trial step with RELDX <=
// XFTOL: the estimates are good, but no covariance is computed); MGH10 and
// MGH17 from the far start end in a flat region or a singular valley.  Which
// of these borderline cases (LRE 5 to 6) fall below 6 changes with rounding:
// the interpreter evaluates the models with other rounding than the C++
// residuals of tests/fit.
const std::set<std::pair<std::string, int>> belowtarget = {
    {"Lanczos1", 1}, {"Lanczos1", 2}, {"Lanczos2", 1}, {"Lanczos3", 2}, {"ENSO", 1},
    {"ENSO", 2},     {"Bennett5", 1}, {"MGH10", 1},    {"MGH17", 1},    {"Nelson", 2}};

bool parse(const std::string& path, const std::string& name, Problem* pr) {
  std::ifstream in(path);
  if (!in) return false;
  pr->name = name;
  std::string line;
  int lineno = 0;
  bool datahead = false;
  while (std::getline(in, line)) {
    ++lineno;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::istringstream l(line);
    std::string w1, w2;
    l >> w1 >> w2;
    if (w1.size() >= 2 && w1[0] == 'b' && std::isdigit(static_cast<unsigned char>(w1[1])) &&
        w2 == "=") {
      double s1, s2, c, sd;
      if (l >> s1 >> s2 >> c >> sd) {
        pr->start1.push_back(s1);
        pr->start2.push_back(s2);
        pr->cert.push_back(c);
        pr->certsd.push_back(sd);
      }
    }
    if (w1 == "Data:" && (w2 == "y" || w2 == "Y")) {
      pr->datastart = lineno;
      datahead = true;
      int cols = 0;
      std::istringstream h(line.substr(5));
      std::string c;
      while (h >> c) ++cols;
      pr->npred = cols - 1;
      break;
    }
  }
  pr->npar = static_cast<int>(pr->cert.size());
  return datahead && pr->npar > 0;
}

double lre(double est, double cert) {
  if (!std::isfinite(est)) return 0.0;
  if (est == cert) return 11.0;
  double rel = std::fabs(est - cert) / std::fabs(cert);
  double v = -std::log10(rel);
  return std::max(0.0, std::min(11.0, v));
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

struct Outcome {
  int status = -1;
  std::vector<double> est, se;
  std::string listing;
};

Outcome runcase(const Problem& pr, int start) {
  std::string base = pr.name + "_" + std::to_string(start);
  std::string prog;
  prog += pr.npred == 1 ? "VARIABLES y, x;\n" : "VARIABLES y, x1, x2;\n";
  prog += "PARAMETERS";
  const auto& s = start == 1 ? pr.start1 : pr.start2;
  for (int k = 0; k < pr.npar; ++k) {
    char b[64];
    std::snprintf(b, sizeof b, "%s b%d = %.17g", k ? "," : "", k + 1, s[k]);
    prog += b;
  }
  prog += ";\n";
  if (pr.name == "Nelson") prog += "DOUBLE ly;\nly = log(y);\n";
  prog += "FUNCTION " + models().at(pr.name) + ";\n";
  prog += "POUTPUT \"" + base + ".par\";\n";
  prog += "DATASKIP " + std::to_string(pr.datastart) + ";\n";
  prog += "DATA \"" + nistdir() + "/" + pr.name + ".dat\";\n";
  std::ofstream(base + ".vex") << prog;
  std::remove((base + ".par").c_str());
  std::string cmd = std::string(VEXOR_BIN) + " run " + base + ".vex > " + base + ".lst 2>&1";
  Outcome o;
  int rc = std::system(cmd.c_str());
  o.status = rc;
  o.listing = slurp(base + ".lst");
  std::istringstream par(slurp(base + ".par"));
  double v;
  while (par >> v) o.est.push_back(v);
  // The parameter table: name, initial guess, final estimate, standard
  // error, t, Prob(t).
  std::size_t at = o.listing.find("Calculated Parameter Values");
  if (at != std::string::npos) {
    std::istringstream t(o.listing.substr(at));
    std::string line;
    for (int k = 0; k < 4 && std::getline(t, line); ++k) {
    }
    for (int k = 0; k < pr.npar && std::getline(t, line); ++k) {
      std::istringstream l(line);
      std::string name;
      double init, fin, se;
      if (l >> name >> init >> fin >> se) o.se.push_back(se);
    }
  }
  return o;
}

TEST(NistPrograms, AllProblemsBothStarts) {
  std::string dir = nistdir();
  std::ifstream probe(dir + "/Misra1a.dat");
  if (!probe) GTEST_SKIP() << "NIST StRD files not found in " << dir << " (set VEXOR_NIST_DIR)";
  std::ofstream table("nist_programs_lre.txt");
  table << "# problem start exit | min LRE(estimates) | min LRE(std errors)\n";
  int cases = 0, ontarget = 0;
  std::vector<double> estlres;
  for (const auto& [name, model] : models()) {
    Problem pr;
    ASSERT_TRUE(parse(dir + "/" + name + ".dat", name, &pr)) << name;
    for (int start = 1; start <= 2; ++start) {
      ++cases;
      Outcome o = runcase(pr, start);
      double minest = 11, minse = 11;
      bool complete = static_cast<int>(o.est.size()) == pr.npar &&
                      static_cast<int>(o.se.size()) == pr.npar;
      if (!complete) minest = minse = 0;
      for (int k = 0; complete && k < pr.npar; ++k) {
        double e = lre(o.est[k], pr.cert[k]);
        estlres.push_back(e);
        minest = std::min(minest, e);
        minse = std::min(minse, lre(o.se[k], pr.certsd[k]));
      }
      bool ok = o.status == 0 && complete && minest >= 6 && minse >= 4;
      if (ok) ++ontarget;
      char row[160];
      std::snprintf(row, sizeof row, "%-9s %d %4d | %5.1f | %5.1f%s\n", name.c_str(), start,
                    o.status, minest, minse, ok ? "" : "   <- below target");
      table << row;
      if (!belowtarget.count({name, start})) {
        EXPECT_TRUE(ok) << name << " start " << start << ": exit " << o.status
                        << ", min estimate LRE " << minest << ", min std error LRE " << minse
                        << "\n" << o.listing;
      }
    }
  }
  std::sort(estlres.begin(), estlres.end());
  double median = estlres.empty() ? 0 : estlres[estlres.size() / 2];
  table << "# cases " << cases << ", on target " << ontarget << ", median estimate LRE " << median
        << "\n";
  std::printf("NIST programs: %d cases, %d on target, median estimate LRE %.2f\n", cases,
              ontarget, median);
  EXPECT_GE(ontarget, 44);
  EXPECT_GE(median, 7.0);
}

}  // namespace
