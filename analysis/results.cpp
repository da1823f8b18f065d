// The results record of an analysis, computed once the fits and the final
// pass are done, in the order the report shows them:
//   residual statistics and the fit summary (regression only),
//   the completion time and the runtime,
//   the descriptive statistics of the input variables (regression only),
//   the correlation matrix (regression, at least two CORRELATE variables),
//   each parameter's standard error, t and Prob(t),
//   the analysis of variance (regression only),
//   the confidence intervals (covariance computed, a CONFIDENCE level set).
// The order matters where a step changes what a later one sees: the
// correlations of symbols that are not both input variables run the program
// (their run-time messages are set aside with the row they belong to), and
// the intervals raise a confidence level below 0.50001 to 0.50001.
//
// Values a run does not compute are stored as 0: the residual statistics,
// R^2, Ra^2, Durbin-Watson, the sum and maximum of the deviations in a
// minimisation; the variance when n - p <= 0 or in a minimisation; the
// standard error, t and Prob(t) when the full statistics are not computed
// (no covariance, a minimisation, or n <= p).
#include <cmath>
#include <cstring>

#include "analysis/analysis.h"

namespace vexor {

Results results{};

namespace {

void release(void* p) {
  if (p) memfree(p);
}

// Frees the record's arrays and clears the record.
void clearrecord() {
  release(results.columns);
  release(results.corr);
  release(results.corrnotes);
  results = Results{};
}

void descriptive() {
  results.columns = static_cast<ColumnStats*>(
      memalloc(sizeof(ColumnStats) * static_cast<std::size_t>(nvar > 0 ? nvar : 1), "comp"));
  if (!results.columns) return;
  results.ncolumns = nvar;
  for (int32_t i = 0; i < nvar; ++i) results.columns[i] = colstats(datamat, nobs, nvar, i);
}

// Appends a set-aside text to the notes (the array grows by doubling).
void addnote(int32_t block, int32_t row, LstCapture text, int32_t* room) {
  if (results.ncorrnotes == *room) {
    const int32_t grown = *room ? *room * 2 : 8;
    void* m = results.corrnotes
                  ? memresize(results.corrnotes, sizeof(CorrNote) * static_cast<std::size_t>(grown))
                  : memalloc(sizeof(CorrNote) * static_cast<std::size_t>(grown), "comp");
    if (!m) return;  // the messages are lost, the results are not
    results.corrnotes = static_cast<CorrNote*>(m);
    *room = grown;
  }
  results.corrnotes[results.ncorrnotes++] = CorrNote{block, row, text};
}

// Every coefficient, block of CORRBLOCK columns by block and row by row:
// the order in which the matrix is shown, so the program runs, and its
// messages come, in the order they always have.  The symmetric half is
// computed again, not copied: with the program involved, a pass may not
// give the same value twice.
void correlations() {
  const std::size_t m = static_cast<std::size_t>(ncorr);
  results.corr = static_cast<double*>(memalloc(sizeof(double) * m * m, "comp"));
  if (!results.corr) return;
  results.ncorrvars = ncorr;
  int32_t room = 0;
  for (int32_t start = 0, block = 0; start < ncorr; start += CORRBLOCK, ++block) {
    const int32_t end = start + CORRBLOCK < ncorr ? start + CORRBLOCK : ncorr;
    for (int32_t r = 0; r < ncorr; ++r) {
      lstcapture();
      for (int32_t c = start; c < end; ++c)
        results.corr[static_cast<std::size_t>(r) * m + c] = corrcoef(corrvars[r], corrvars[c]);
      LstCapture text = lstcaptured();
      if (text.first) addnote(block, r, text, &room);
    }
  }
}

void parameterstats() {
  const int32_t df = nobs - nparm;
  for (int32_t k = 0; k < nparm; ++k) {
    Symbol* s = parms[k];
    if (results.full && !results.held.empty() && results.held[k]) {
      s->stderror = s->tval = s->pval = 0.0;
    } else if (results.full) {
      ParmStats ps = parmstats(s->value, covmat[static_cast<std::size_t>(k) * nparm + k], df);
      s->stderror = ps.stderror;
      s->tval = ps.tval;
      s->pval = ps.pval;
    } else {
      s->stderror = 0.0;
      s->tval = 0.0;
      s->pval = 0.0;
    }
  }
}

// Limits estimate -/+ sqrt(C(k,k)) * t with t the two-sided quantile of the
// level on n - p degrees of freedom.  A level below 0.50001 is raised to
// 0.50001 (the setting itself changes) after the title's level is taken,
// so CONFIDENCE 50 is titled 50.000.
void intervals() {
  const int32_t n = nobs;
  const int32_t p = nparm;
  if (n <= p) {
    results.ci = CI_FEWOBS;
    return;
  }
  results.ci = CI_SHOWN;
  results.cilevel = conflevel;
  if (conflevel < 0.50001) conflevel = 0.50001;
  const double t = tinv((conflevel + 1) / 2, n - p);
  for (int32_t k = 0; k < p; ++k) {
    Symbol* s = parms[k];
    const double h = !results.held.empty() && results.held[k] ? 0.0 : std::sqrt(covmat[static_cast<std::size_t>(k) * p + k]) * t;
    s->cilow = s->value - h;
    s->cihigh = s->value + h;
  }
}

}  // namespace

void collectresults(int code) {
  clearrecord();
  const int32_t n = nobs;
  const int32_t p = nparm;
  results.code = code;
  results.n = n;
  results.p = p;
  results.minimize = minimize;
  results.full = covstatus > 0 && !minimize && n > p;
  results.iterations = iterations;
  results.evaluations = nevaluations;
  results.covstatus = covstatus;
  results.covariance = covmat;
  results.nconstrain = nconstrain;
  if (covstatus > 0 && heldparms.size() == static_cast<std::size_t>(p)) results.held = heldparms;

  FitSummary& sum = results.summary;
  ResidualStats& rs = results.rs;
  if (!minimize) rs = fitstats(obsvec, predvec, n, p);
  else results.funcvalue = (predvec && n > 0) ? predvec[0] : 0.0;
  sum.rsquare = rs.rsquare;
  sum.adjrsquare = rs.adjrsquare;
  sum.durbinwatson = rs.durbinwatson;
  sum.sumsq = finalsumsq;
  sum.sumdev = rs.sumdev;
  sum.variance = n - p > 0 && !minimize ? rs.sse / (n - p) : 0.0;
  sum.maxdev = rs.maxdev;

  results.completed = anaclock();
  sum.runtime = results.completed - starttime;

  if (!minimize) descriptive();
  if (ncorr > 1 && !minimize) correlations();
  parameterstats();
  if (!minimize) results.anova = anova(rs.regss, rs.sse, rs.stot, n, p);
  if (covstatus > 0 && conflevel != 0) intervals();
  results.ready = 1;
}

void clearresults() { clearrecord(); }

}  // namespace vexor
