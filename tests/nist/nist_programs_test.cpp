// The 27 NIST StRD nonlinear regression problems, written as programs of the
// modelling language (kit/kit.h) and run from both starting points by
// `vexor run`.  The estimates are read from the parameter file (POUTPUT, full
// precision) and the standard errors from the listing's parameter table.
// Each is scored by the log relative error against the certified value,
//   LRE = -log10(|estimate - certified| / |certified|), capped at 11,
// estimates and standard errors separately: a run whose parameter file is
// complete has its estimates scored even when the listing shows no standard
// errors (no covariance matrix), and those then score 0.
//
// Target: exit status 0, every estimate at LRE >= 6 and every standard error
// at LRE >= 4.  The cases below target are listed in `floors` with the
// figures they reach; each is held to them so none can slip back unseen.
// Every case, its estimates' LREs, its exit status, iterations and stop
// reason go to nist_programs_lre.txt.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kit/kit.h"

namespace {

using vexor::kit::NistProblem;

// The cases below target and what they reach: the smallest estimate LRE and
// the smallest standard-error LRE (each the figure reached less 0.1, rounded
// down to a tenth) and the exit status.  The optimizer is being worked on:
// when a case's figures change, edit its row; when it reaches the target,
// remove it (the test says so).
//
// Why they fall short (tests/fit/nist_test.cpp has the figures behind it):
// Lanczos1's residuals sit at the rounding level of the model, so the
// residual sum of squares and the standard errors keep at most 4 digits;
// forward differences alone move the estimates of Lanczos3 and Bennett5 to
// 5.5 and 4.9 digits about their solutions and ENSO's to 6.0, so those runs
// end by a convergence test among noisy steps (4.8 to 5.6 digits); Nelson
// start 2 stops on the relative function tolerance 1e-10 with 5.9 digits;
// Lanczos2 start 1 reaches the certified sum of squares and ends in false
// convergence, without standard errors; from the far starts MGH10 is still
// descending its curved valley at the iteration limit and MGH17 crawls
// along its minimum's neighbourhood.
// How a case below target fails, beyond its floors:
// - FLOORS: it converges, with its smallest LREs held at the floors;
// - NOSE: no standard errors are printed (false convergence or the
//   iteration limit: no covariance matrix);
// - SHORTRSS: absolute function convergence (f <= 1e-20) ends it with a
//   residual sum of squares far above the certified one (Lanczos1, whose
//   certified RSS is 1.4e-25), so the standard errors, which scale with the
//   square root of the RSS, are that factor too large;
// - LIMIT: the iteration limit (500) ends it away from the solution, with
//   no standard errors.
enum How { FLOORS, NOSE, SHORTRSS, LIMIT };
struct Floor {
  const char* name;
  int start;
  double estimates;  // smallest estimate LRE
  double stderrors;  // smallest standard-error LRE (FLOORS only)
  int status;        // exit status of vexor run
  How how;
  const char* reason;  // the stop reason of the Final Results
};
const char* const RFC = "Relative function convergence.";
const char* const AFC = "Absolute function convergence.";
const char* const LIM = "Function did not converge before iteration limit reached.";
const Floor floors[] = {
    // name      start  est   se   exit
    {"Bennett5", 1, 4.8, 4.7, 0, FLOORS, RFC},
    {"Bennett5", 2, 5.1, 4.5, 0, FLOORS, RFC},
    {"ENSO", 1, 4.7, 5.4, 0, FLOORS, RFC},
    {"ENSO", 2, 5.4, 6.3, 0, FLOORS, RFC},
    {"Lanczos1", 1, 9.0, 0.0, 0, SHORTRSS, AFC},
    {"Lanczos1", 2, 10.4, 3.6, 0, FLOORS, AFC},
    {"Lanczos2", 1, 7.0, 0.0, 0, NOSE, "False convergence. (Answers may not be correct.)"},
    {"Lanczos3", 2, 5.3, 4.1, 0, FLOORS, RFC},
    {"MGH10", 1, 0.0, 0.0, 1, LIMIT, LIM},
    {"MGH17", 1, 2.0, 0.0, 1, LIMIT, LIM},
    {"Nelson", 2, 5.7, 5.8, 0, FLOORS, RFC},
};

// The row of a case in a table of n floors, or null.
const Floor* floorof(const Floor* table, std::size_t n, const std::string& name, int start) {
  for (std::size_t k = 0; k < n; ++k)
    if (name == table[k].name && start == table[k].start) return &table[k];
  return nullptr;
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
  int status = -1;  // exit status of vexor run (-1 when it did not exit)
  std::vector<double> est, se;
  std::string reason;  // the stop reason of the Final Results
  long iterations = -1;
  long evaluations = -1;  // passes over the data (residuals, and Jacobians in exact mode)
  double rss = -1;  // the final sum of squared deviations
  std::string listing;
};

// tag: a suffix for the case's files, so that runs of two tests at once
// keep apart.
// statements: added to the program before its FUNCTION statement.
Outcome runcase(const NistProblem& pr, int start, const std::string& dir, const std::string& options = "",
                const std::string& tag = "", const std::string& statements = "") {
  std::string base = pr.name + "_" + std::to_string(start) + tag;
  std::ofstream(base + ".vex") << vexor::kit::nistprogram(pr, start, dir, base + ".par", statements);
  std::remove((base + ".par").c_str());
  std::string cmd = std::string(VEXOR_BIN) + " run --format json " + options + " " + base + ".vex > " + base +
                    ".json 2> " + base + ".lst";
  Outcome o;
  int rc = std::system(cmd.c_str());
  o.status = rc != -1 && WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
  o.listing = slurp(base + ".lst");
  // The residual evaluations from the JSON document's "evaluations".
  const std::string json = slurp(base + ".json");
  const std::size_t ev = json.find("\"evaluations\":");
  if (ev != std::string::npos) o.evaluations = std::atol(json.c_str() + ev + 14);
  std::istringstream par(slurp(base + ".par"));
  double v;
  while (par >> v) o.est.push_back(v);
  std::size_t results = o.listing.find("----  Final Results  ----");
  if (results != std::string::npos) {
    const std::string stop = "Stopped due to: ";
    std::size_t at = o.listing.find(stop, results);
    if (at != std::string::npos) {
      at += stop.size();
      o.reason = o.listing.substr(at, o.listing.find('\n', at) - at);
    }
    const std::string rss = "Final sum of squared deviations = ";
    at = o.listing.find(rss, results);
    if (at != std::string::npos) o.rss = std::atof(o.listing.c_str() + at + rss.size());
    const std::string iters = "Number of iterations performed = ";
    at = o.listing.find(iters, results);
    if (at != std::string::npos) o.iterations = std::atol(o.listing.c_str() + at + iters.size());
  }
  // The parameter table: name, initial guess, final estimate and, when the
  // covariance matrix was computed, standard error, t, Prob(t).
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

// A case's scores: the smallest estimate and standard-error LRE (0 when the
// parameter file or the standard errors are missing), each estimate's LRE
// (also appended to all), and whether the case is on target.
struct Score {
  double minest = 0, minse = 0;
  bool estimates = false, stderrors = false, ok = false;
  std::vector<double> each;
};
Score score(const Outcome& o, const NistProblem& pr, std::vector<double>* all) {
  Score sc;
  sc.estimates = static_cast<int>(o.est.size()) == pr.npar;
  sc.stderrors = static_cast<int>(o.se.size()) == pr.npar;
  sc.minest = sc.estimates ? 11 : 0;
  sc.minse = sc.stderrors ? 11 : 0;
  for (int k = 0; sc.estimates && k < pr.npar; ++k) {
    const double e = lre(o.est[k], pr.cert[k]);
    sc.each.push_back(e);
    all->push_back(e);
    sc.minest = std::min(sc.minest, e);
  }
  for (int k = 0; sc.stderrors && k < pr.npar; ++k) sc.minse = std::min(sc.minse, lre(o.se[k], pr.certsd[k]));
  sc.ok = o.status == 0 && sc.estimates && sc.stderrors && sc.minest >= 6 && sc.minse >= 4;
  return sc;
}

// The folder of the problem files, "" when they are not there.
std::string nistfiles() {
  const std::string dir = vexor::kit::nistdir(VEXOR_NIST_DIR_DEFAULT);
  std::ifstream probe(dir + "/Misra1a.dat");
  return probe ? dir : "";
}

// Calls each(problem, start) for every problem from both starts.
template <class Each>
void everycase(const std::string& dir, Each each) {
  for (const auto& [name, model] : vexor::kit::nistmodels()) {
    NistProblem pr;
    ASSERT_TRUE(vexor::kit::nistparse(dir + "/" + name + ".dat", name, &pr)) << name;
    for (int start = 1; start <= 2; ++start) each(pr, start);
  }
}

TEST(NistPrograms, AllProblemsBothStarts) {
  const std::string dir = nistfiles();
  if (dir.empty()) GTEST_SKIP() << "NIST StRD files not found (set VEXOR_NIST_DIR)";
  std::ofstream table("nist_programs_lre.txt");
  table << "# problem start exit iterations | min LRE(estimates) | min LRE(std errors) |"
           " LRE of every estimate | stop reason\n";
  int cases = 0, ontarget = 0;
  std::vector<double> estlres;
  everycase(dir, [&](const NistProblem& pr, int start) {
    const std::string& name = pr.name;
    {
      ++cases;
      Outcome o = runcase(pr, start, dir);
      const Score sc = score(o, pr, &estlres);
      const bool stderrors = sc.stderrors, ok = sc.ok;
      const double minest = sc.minest, minse = sc.minse;
      std::string each;
      for (double e : sc.each) {
        char b[16];
        std::snprintf(b, sizeof b, " %4.1f", e);
        each += b;
      }
      if (!sc.estimates) each = " (no parameter file)";
      if (ok) ++ontarget;
      char row[200];
      std::snprintf(row, sizeof row, "%-9s %d %4d %5ld | %5.2f | %5.2f |", name.c_str(), start,
                    o.status, o.iterations, minest, stderrors ? minse : 0.0);
      table << row << each << " | " << o.reason << (ok ? "" : "   <- below target") << "\n";

      const Floor* f = floorof(floors, std::size(floors), name, start);
      const std::string what = name + " start " + std::to_string(start);
      if (!f) {
        EXPECT_TRUE(ok) << what << ": exit " << o.status << ", min estimate LRE " << minest
                        << ", min std error LRE " << minse << "\n" << o.listing;
        return;
      }
      EXPECT_EQ(o.status, f->status) << what << "\n" << o.listing;
      EXPECT_EQ(o.reason, f->reason) << what;
      if (f->how != LIMIT) {
        EXPECT_GE(minest, f->estimates) << what << ": estimates fell below their floor\n" << o.listing;
      } else {
        EXPECT_EQ(o.iterations, 500) << what;
      }
      switch (f->how) {
        case FLOORS:
          EXPECT_GE(minse, f->stderrors) << what << ": standard errors fell below their floor\n"
                                         << o.listing;
          break;
        case NOSE:
        case LIMIT:
          EXPECT_TRUE(o.se.empty()) << what << ": standard errors printed\n" << o.listing;
          break;
        case SHORTRSS: {
          ASSERT_TRUE(stderrors) << what;
          const double ratio = o.rss / pr.certrss;
          EXPECT_GT(ratio, 100.0) << what;
          for (int k = 0; k < pr.npar; ++k)
            EXPECT_NEAR(o.se[k] / pr.certsd[k], std::sqrt(ratio), 0.2 * std::sqrt(ratio)) << what << " b" << k + 1;
          break;
        }
      }
      if (ok) std::printf("%s now reaches the target: remove it from the floors\n", what.c_str());
    }
  });
  std::sort(estlres.begin(), estlres.end());
  double median = estlres.empty() ? 0 : estlres[estlres.size() / 2];
  table << "# cases " << cases << ", on target " << ontarget << ", median estimate LRE " << median
        << "\n";
  std::printf("NIST programs: %d cases, %d on target, median estimate LRE %.2f\n", cases,
              ontarget, median);
  EXPECT_EQ(cases, 54);
  EXPECT_GE(ontarget, cases - static_cast<int>(std::size(floors)));
  EXPECT_GE(median, 7.6);
}

}  // namespace

namespace {

// The same 54 cases with `vexor run --derivatives exact`: the Jacobian from
// the programs' exact derivatives.  Target: at least 53 cases with every
// estimate at LRE >= 6 and every standard error at LRE >= 4, and a median
// estimate LRE of 9 or more.  Each table, with the passes over the data of
// each fit beside those of forward differences, goes to a file of the build
// folder and standard output.
//
// Lanczos1 cannot reach the target in any double-precision computation: its
// data (y = 2.5134 ...) are not doubles, and the least-squares solution of
// the data as read into doubles, computed exactly, has standard errors that
// agree with the certified ones to 3.36 digits (lanczos1_ceiling.py checks
// this with mpmath).  So 52 of 54 is the most any run can reach.  The cases
// below it are Floors as above (FLOORS or LIMIT).

// The programs as written (TOLERANCE 1e-10, ITERATIONS 500).  Below target:
// - ENSO (both starts): relative function convergence (the relative
//   tolerance 1e-10 of the sum of squares) leaves its poorly determined
//   b6 and b8 at 4.8 to 5.6 digits, as with forward differences (the
//   tighter tolerance below takes it to 6.9 and 7.2).
// - Lanczos1 (both): the estimates reach LRE 10.5; the sum of squares
//   reached, 1.429e-25 and 1.434e-25 (certified 1.4308e-25), and the
//   standard errors, which scale with its square root, 3 digits (see
//   above).
// - MGH10 and MGH17 from start 1: the iteration limit (500), as with
//   forward differences.
const Floor exactfloors[] = {
    {"ENSO", 1, 4.7, 5.4, 0, FLOORS, RFC},
    {"ENSO", 2, 5.5, 6.3, 0, FLOORS, RFC},
    {"Lanczos1", 1, 10.4, 3.1, 0, FLOORS, AFC},
    {"Lanczos1", 2, 10.4, 2.9, 0, FLOORS, AFC},
    {"MGH10", 1, 0.0, 0.0, 1, LIMIT, LIM},
    {"MGH17", 1, 0.0, 0.0, 1, LIMIT, LIM},
};

// The programs with "TOLERANCE 1E-15; ITERATIONS 1000;", as a user after
// every digit writes them.  With exact derivatives the singular-convergence
// test follows the tolerance, so the fits go on to the solution (forward
// differences with the same statements stop most fits in singular
// convergence: their count is printed beside).  Below target: Lanczos1 (the
// ceiling above) and MGH10 from start 1, which runs off along its valley
// (b1 towards 0, b2 and b3 growing) until the iteration limit.
const Floor tightfloors[] = {
    {"Lanczos1", 1, 10.4, 3.1, 0, FLOORS, AFC},
    {"Lanczos1", 2, 10.4, 2.9, 0, FLOORS, AFC},
    {"MGH10", 1, 0.0, 0.0, 1, LIMIT, LIM},
};

struct ExactTable {
  const char* file;        // the table's file
  const char* statements;  // added to every program
  const char* tag;         // the runs' file names
  long limit;              // the iteration limit
  const Floor* floors;
  std::size_t nfloors;
  double median;  // the median estimate LRE reached, less a little
};

void exacttable(const ExactTable& t) {
  const std::string dir = nistfiles();
  if (dir.empty()) GTEST_SKIP() << "NIST StRD files not found (set VEXOR_NIST_DIR)";
  std::ofstream table(t.file);
  table << "# problem start exit iterations | passes exact / forward | min LRE(estimates) | min LRE(std "
           "errors) | stop reason\n";
  int cases = 0, ontarget = 0, fdontarget = 0;
  long passes = 0, fdpasses = 0;
  std::vector<double> estlres, fdlres;
  const std::string tag = t.tag;
  everycase(dir, [&](const NistProblem& pr, int start) {
    const std::string& name = pr.name;
    ++cases;
    const Outcome o = runcase(pr, start, dir, "--derivatives exact", tag + "_exact", t.statements);
    const Outcome fd = runcase(pr, start, dir, "", tag + "_forward", t.statements);
    const Score sc = score(o, pr, &estlres);
    const bool stderrors = sc.stderrors, ok = sc.ok;
    const double minest = sc.minest, minse = sc.minse;
    if (ok) ++ontarget;
    if (score(fd, pr, &fdlres).ok) ++fdontarget;
    passes += o.evaluations;
    fdpasses += fd.evaluations;
    char row[240];
    std::snprintf(row, sizeof row, "%-9s %d %4d %5ld | %5ld / %5ld | %5.2f | %5.2f | %s%s\n", name.c_str(), start,
                  o.status, o.iterations, o.evaluations, fd.evaluations, minest, stderrors ? minse : 0.0,
                  o.reason.c_str(), ok ? "" : "   <- below target");
    table << row;
    std::printf("%s", row);
    const std::string what = name + " start " + std::to_string(start);
    const Floor* f = floorof(t.floors, t.nfloors, name, start);
    if (!f) {
      EXPECT_TRUE(ok) << what << ": exit " << o.status << ", min estimate LRE " << minest
                      << ", min std error LRE " << minse << "\n" << o.listing;
      return;
    }
    EXPECT_EQ(o.status, f->status) << what;
    EXPECT_EQ(o.reason, f->reason) << what;
    if (f->how == LIMIT) {
      EXPECT_EQ(o.iterations, t.limit) << what;
      EXPECT_TRUE(o.se.empty()) << what;
    } else {
      EXPECT_GE(minest, f->estimates) << what;
      EXPECT_GE(minse, f->stderrors) << what;
    }
    if (ok) std::printf("%s now reaches the target: remove it from the floors\n", what.c_str());
  });
  std::sort(estlres.begin(), estlres.end());
  std::sort(fdlres.begin(), fdlres.end());
  const double median = estlres.empty() ? 0 : estlres[estlres.size() / 2];
  const double fdmedian = fdlres.empty() ? 0 : fdlres[fdlres.size() / 2];
  char summary[300];
  std::snprintf(summary, sizeof summary,
                "exact derivatives: %d cases, %d on target, median estimate LRE %.2f, %ld passes over the data "
                "(forward differences: %d on target, median %.2f, %ld passes)\n",
                cases, ontarget, median, passes, fdontarget, fdmedian, fdpasses);
  table << "# " << summary;
  std::printf("%s", summary);
  EXPECT_EQ(cases, 54);
  EXPECT_GE(ontarget, cases - static_cast<int>(t.nfloors));
  EXPECT_GE(median, t.median);
}

// The aim is 53 cases on target and a median of 9; reached: 48 cases (the
// six floors above) and a median of 8.8.
TEST(NistPrograms, ExactDerivatives) {
  exacttable({"nist_programs_exact.txt", "", "", 500, exactfloors, std::size(exactfloors), 8.7});
}

// Reached: 51 cases and a median of 9.8; 52 is the ceiling.
TEST(NistPrograms, ExactDerivativesTightTolerance) {
  exacttable({"nist_programs_exact_tight.txt", "TOLERANCE 1E-15;\nITERATIONS 1000;\n", "_tight", 1000, tightfloors,
              std::size(tightfloors), 9.7});
}

}  // namespace
