// The "Final Results" section of the analysis listing, rendered from the
// results record: the stop reason, the fit statistics, the covariance
// warning, the descriptive statistics, the parameter table and the analysis
// of variance, followed by the optional matrices and intervals
// (matrices.cpp) and the parameter file (parfile.cpp).
//
// Every line goes through outprintf (console when echo is on, the listing
// file when one is open, the Listing when it is enabled) unless its comment
// names fewer channels.  The formats are the listing's own layout, blanks
// included.
#include <cmath>
#include <string>
#include <cstdio>

#include "report/report.h"

namespace vexor {

const char* lstfilename = nullptr;
int stopsuppress = 0;

namespace {

// Writes text to the console only (the console is live when echo is on).
void consoleprintf(const char* format, const char* arg) {
  if (!echo) return;
  std::printf(format, arg);
  std::fflush(stdout);
}

// t and F values switch to exponent form at 1e6 upwards and at -1e5
// downwards; the two bounds differ on purpose.
bool expform(double v) { return v >= 1000000.0 || v <= -100000.0; }

// The descriptive statistics of every input variable.
void descstats() {
  outprintf("\n\n             ----  Descriptive Statistics for Variables  ----\n\n");
  outprintf(" Variable    Minimum value   Maximum value    Mean value     Standard dev.\n");
  outprintf("----------  --------------  --------------  --------------  --------------\n");
  for (int32_t i = 0; i < results.ncolumns; ++i) {
    const ColumnStats& c = results.columns[i];
    outprintf("%10s  %14.7lG  %14.7lG  %14.7lG  %14.7lG\n", invars[i]->name, c.min, c.max,
              c.mean, c.sd);
  }
}

// The parameter table.  With full statistics each row also carries the
// standard error, t and Prob(t).
void parmtable(bool full) {
  if (full)
    outprintf("\n\n                   ----  Calculated Parameter Values  ----\n\n");
  else
    outprintf("\n\n  ----  Calculated Parameter Values  ----\n\n");
  outprintf(full ? " Parameter  Initial guess   Final estimate "
                      "  Standard error      t      Prob(t)\n"
                 : " Parameter  Initial guess   Final estimate \n");
  outprintf(full ? "----------  -------------  ----------------"
                      "  --------------  ---------  -------\n"
                 : "----------  -------------  ----------------\n");
  for (int32_t k = 0; k < nparm; ++k) {
    Symbol* s = parms[k];
    char line[LSTMAXTEXT];
    int len = std::snprintf(line, sizeof line, "%10s  %13.6lG  %16.9lG", s->name, s->initval,
                            s->value);
    if (full && !results.held.empty() && results.held[k]) {
      std::snprintf(line + len, sizeof line - len, "  held at a bound: no standard error");
    } else if (full) {
      double prob = s->pval < 0.00001 ? 0.00001 : s->pval;
      std::snprintf(line + len, sizeof line - len,
                    expform(s->tval) ? "  %14.7lG  %9.1lE  %7.5lf" : "  %14.7lG  %9.2lf  %7.5lf",
                    s->stderror, s->tval, prob);
    }
    outprintf("%s\n", line);
  }
}

}  // namespace

const char* stopreasontext(int code) {
  switch (code) {
    case -10: return "Analysis was aborted";
    case -6: return "Function did not converge before max allowed function calls.";
    case -5: return "Singular matrix.  Possibly mutually dependent parameters";
    case -4: return "Jacobian could not be computed.";
    case -3: return "Bad parameter values.";
    case -2: return "Function cannot be computed at starting parameter values.";
    case -1: return "Function did not converge before iteration limit reached.";
    case 1: return "False convergence. (Answers may not be correct.)";
    case 2: return "Singular convergence.  Mutually dependent parameters?";
    case 3: return "Absolute function convergence.";
    case 4: return "Relative function convergence.";
    case 5: return "Parameter convergence.";
    case 6: return "Both parameter and relative function convergence.";
    default: return "";
  }
}

// "Stopped due to: <reason>" goes with its line end to the listing file and
// to the Listing, once per call.  The extra copy that a non-zero flag asks
// for (without a line end, unless stopsuppress is set) is the status notice
// of a running analysis: it goes to the console, when echo is on, and never
// into the Listing.  So the driver's call with flag 1 leaves exactly one line
// "Stopped due to: ..." in the Listing before the Final Results, and
// finalreport's call with flag 0 writes the second copy inside the section.
void stopreason(int code, int flag) {
  char line[LSTMAXTEXT];
  std::snprintf(line, sizeof line, "Stopped due to: %s", stopreasontext(code));
  if (lstfile) std::fprintf(lstfile, "%s\n", line);
  if (lstenabled) lstprintf("%s\n", line);
  if (flag && !stopsuppress && echo) {
    std::fputs(line, stdout);
    std::fflush(stdout);
  }
}

// The warning for a covariance status below 0; then, whenever the program
// holds a CONSTRAIN statement, the hint about constraints.  The hint does not
// depend on a warning: a bounded run never computes the covariance matrix,
// so a program with bounds and no COVARIANCE statement has status 0 and no
// standard errors, and the hint is what tells why.
void covwarning() {
  const int32_t covstatus = results.covstatus;
  const char* text = nullptr;
  switch (covstatus) {
    case -1:
      text = "\nWarning: Covariance matrix could not be computed because\n"
             "the finite-difference Hessian was indefinite.\n";
      break;
    case -2:
      text = "\nWarning: Covariance matrix could not be computed because a\n"
             "successful finite-differencing step could not be found.\n";
      break;
    case -3:
      text = "\nWarning: Covariance matrix could not be computed because\n"
             "constraints were specified for parameters.\n";
      break;
    default:
      if (covstatus < 0) text = "\nWarning: Covariance matrix could not be computed.\n";
      break;
  }
  if (text) outprintf("%s", text);
  if (!results.held.empty()) {
    // Standard errors with bounds (asked for by the host): say which
    // parameters have none.
    std::string names;
    for (int32_t k = 0; k < results.p; ++k)
      if (results.held[k]) names += std::string(names.empty() ? "" : ", ") + parms[k]->name;
    outprintf("Standard errors are those of the parameters not held at a bound%s%s.\n",
              names.empty() ? "" : "; held: ", names.c_str());
  } else if (results.nconstrain > 0) {
    outprintf("Try removing constraints on parameters.\n");
  }
}

// The table is left out when Stot <= 0 or p < 2.  It is "full" (mean
// squares, F and Prob(F), and the title indented by 18 blanks) when the
// error mean square is positive and both degrees of freedom are at least 1.
void anovatable() {
  const Anova& a = results.anova;
  const double regss = results.rs.regss, sse = results.rs.sse, stot = results.rs.stot;
  if (!a.shown) return;
  outprintf(a.full ? "\n\n                  ----  Analysis of Variance  ----\n\n"
                   : "\n\n----  Analysis of Variance  ----\n\n");
  outprintf(a.full ? "  Source     DF   Sum of Squares"
                      "    Mean Square    F value   Prob(F)\n"
                   : "  Source     DF   Sum of Squares\n");
  outprintf(a.full ? "----------  ----  --------------"
                      "  --------------  ---------  -------\n"
                   : "----------  ----  --------------\n");
  if (a.full) {
    double prob = a.probf < 0.00001 ? 0.00001 : a.probf;
    outprintf(expform(a.f) ? "Regression  %4d  %14.7lG  %14.7lG  %9.1lE  %7.5lf\n"
                           : "Regression  %4d  %14.7lG  %14.7lG  %9.2lf  %7.5lf\n",
              static_cast<int>(a.regdf), regss, a.regms, a.f, prob);
    outprintf("Error       %4ld  %14.7lG  %14.7lG\n", static_cast<long>(a.errdf), sse, a.errms);
  } else {
    outprintf("Regression  %4d  %14.7lG\n", static_cast<int>(a.regdf), regss);
    outprintf("Error       %4ld  %14.7lG\n", static_cast<long>(a.errdf), sse);
  }
  outprintf("Total       %4ld  %14.7lG\n", static_cast<long>(a.totdf), stot);
}

void finalreport() {
  const Results& r = results;
  const ResidualStats& rs = r.rs;
  const int minimize = r.minimize;

  // 1-3. Heading.
  outprintf("\n\n   ----  Final Results  ----\n\n");
  outprintf("VEXOR version %3.1lf\n", VEXOR_VERSION);
  if (title[0]) outprintf("%s\n", title);

  // 4. Residual statistics (regression only).
  if (!minimize) outprintf("Number of observations = %ld\n", static_cast<long>(r.n));

  // 5-8.
  outprintf("Maximum allowed number of iterations = %ld\n", static_cast<long>(maxiter));
  outprintf("Convergence tolerance factor = %12.6lE\n", tolerance);
  stopreason(r.code, 0);
  if (!minimize && rs.oneside) {
    outprintf("Warning: All data points are on one side of the curve.\n");
    outprintf("This indicates the model does not fit the data well.\n");
  }

  // 9-10.
  outprintf("Number of iterations performed = %ld\n", static_cast<long>(r.iterations));
  if (!minimize) {
    outprintf("Final sum of squared deviations = %14.7lE\n", r.summary.sumsq);
    outprintf("Final sum of deviations = %14.7lE\n", rs.sumdev);
  } else {
    outprintf("Final function value = %14.7lE\n", r.funcvalue);
  }

  // 11. Standard error of estimate.
  if (r.n - r.p > 0 && !minimize) outprintf("Standard error of estimate = %lG\n", std::sqrt(r.summary.variance));

  // 12. Deviations, R^2 and Durbin-Watson, covariance warning.
  if (!minimize) {
    outprintf("Average deviation = %lG\n", rs.avgdev);
    outprintf("Maximum deviation for any observation = %lG\n", rs.maxdev);
    if (rs.rsquare > 0) {
      outprintf("Proportion of variance explained (R^2) = %.4lf  (%.2lf%%)\n", rs.rsquare,
                100 * rs.rsquare);
      outprintf("Adjusted coefficient of multiple determination (Ra^2) = %.4lf  (%.2lf%%)\n",
                rs.adjrsquare, 100 * rs.adjrsquare);
      outprintf("Durbin-Watson test for autocorrelation = %.3lf\n", rs.durbinwatson);
      // One-sided: only small values warn.
      if (rs.durbinwatson < 0.8)
        outprintf("This Durbin-Watson value indicates autocorrelation or inappropriate function.\n");
    }
    covwarning();
  }

  // 13-14. Files to come.
  if (outmode > 0) outprintf("Output values will be written to %s\n", outfile);
  if (parfile[0]) outprintf("Parameter values will be written to %s\n", parfile);

  // 15. Completion time and runtime.
  char when[64];
  timefmt(when, sizeof when, "%Z", r.completed);
  outprintf("Analysis completed %s.  Runtime = %.2lf seconds.\n", when, r.summary.runtime);

  // 16-17. Variables.
  if (!minimize) descstats();
  if (r.corr) corrmatrix();

  // 18-19. Parameters.
  parmtable(r.full);
  if (parfile[0]) writeparfile();

  // 20-22. Analysis of variance, intervals, covariance matrix.  The last two
  // need the covariance matrix: when it could not be computed they are left
  // out (covwarning has said why).
  if (!minimize) anovatable();
  if (r.ci != CI_NONE) confintervals();
  if (covprint && r.covstatus > 0) covmatrix();

  // 23.
  outprintf("\n");

  // 24. Console only.
  if (lstfile && lstfilename) consoleprintf("VEXOR analysis listing has been written to %s\n", lstfilename);
  if (outfile[0]) consoleprintf("Output values have been written to %s\n", outfile);
  if (parfile[0]) consoleprintf("Parameter values have been written to %s\n", parfile);
}

}  // namespace vexor
