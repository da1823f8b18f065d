// The C interface (vexor/vexor_c.h): handles over the one engine of the
// process.  Every call takes the lock, checks that the handle owns the
// engine and that the call comes in order, and reads the engine's own
// records, so the numbers are those the analysis object returns.
#include "vexor/vexor_c.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

#include "api/engine.h"
#include "report/report.h"
#include "vexor/vexor.h"

struct vx_engine {
  std::string error;    // the last failure's message
  std::string text;     // the last string handed back
  double timelimit = 0.0;
  int threads = 0;
  bool vectormath = false;
  bool exact = false;          // exact derivatives (vexor::setderivatives)
  bool boundederrors = false;  // standard errors with bounds (vexor::setboundederrors)
  bool compiled = false;  // this handle's last compilation succeeded
  bool computed = false;  // vx_compute ran since (with these data)
  int code = 0;           // its result code
};

namespace {

using namespace vexor;

std::mutex engine;            // one call at a time
vx_engine* owner = nullptr;   // the handle whose program the engine holds

int fail(vx_engine* e, int code, const char* format, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  e->error = buf;
  return code;
}

int done(vx_engine* e) {
  e->error.clear();
  return VX_OK;
}

int handback(vx_engine* e, const char* s, const char** out) {
  e->text = s ? s : "";
  *out = e->text.c_str();
  return done(e);
}

// The handle owns the engine (its program may be read).
int owns(vx_engine* e) {
  if (owner != e)
    return fail(e, VX_ERROR_STATE,
                owner ? "another handle has compiled a program since this one did"
                      : "no program has been compiled with this handle");
  return VX_OK;
}

// ... and its last compilation succeeded.
int program(vx_engine* e) {
  if (int r = owns(e)) return r;
  if (!e->compiled) return fail(e, VX_ERROR_STATE, "the last compilation failed: there is no program");
  return VX_OK;
}

// ... and a fit ran since.
int fitted(vx_engine* e) {
  if (int r = program(e)) return r;
  if (!e->computed) return fail(e, VX_ERROR_STATE, "no fit has been computed: call vx_compute first");
  if (!results.ready)
    return fail(e, VX_ERROR_STATE, "the last vx_compute ran no fit (result code %d): the listing says why",
                e->code);
  return VX_OK;
}

int flags() {
  int f = 0;
  if (!results.ready) return 0;
  if (results.full) f |= VX_HAS_STATISTICS;
  if (results.ci == CI_SHOWN) f |= VX_HAS_INTERVALS;
  if (results.covstatus > 0 && results.covariance) f |= VX_HAS_COVARIANCE;
  if (results.corr) f |= VX_HAS_CORRELATION;
  if (obsvec && predvec && !results.minimize) f |= VX_HAS_RESIDUALS;
  return f;
}

int unavailable(vx_engine* e, const char* what) {
  return fail(e, VX_ERROR_UNAVAILABLE, "the fit has no %s: the listing says why", what);
}

// A comment left open at the end of the program ends the process unless
// the host says otherwise; a library must not, so the compilation just
// fails.
void noexit(int) {}

int aftercompile(vx_engine* e, int ok) {
  owner = e;
  e->compiled = ok != 0;
  e->computed = false;
  if (ok) return done(e);
  if (ncompmsgs == 0) return fail(e, VX_ERROR_COMPILE, "the program did not compile");
  const CompMsg& m = compmsgs[0];
  char where[32] = "";
  if (m.fileline > 0) std::snprintf(where, sizeof where, "line %d: ", static_cast<int>(m.fileline));
  return fail(e, VX_ERROR_COMPILE, "the program did not compile (%d error%s): %s%s",
              static_cast<int>(compmsgtotal), compmsgtotal == 1 ? "" : "s", where, m.text);
}

// The handle's settings over one engine run (the engine's as they were
// after it).
struct RunSettings {
  double before;
  int threadsbefore;
  int vectorbefore;
  bool exactbefore, boundedbefore;
  explicit RunSettings(const vx_engine* e)
      : before(timelimit()), threadsbefore(runthreads), vectorbefore(vecmath),
        exactbefore(exactderivatives()), boundedbefore(boundederrors()) {
    settimelimit(e->timelimit);
    runthreads = e->threads;
    vecmath = e->vectormath ? 1 : 0;
    setderivatives(e->exact);
    setboundederrors(e->boundederrors);
  }
  ~RunSettings() {
    settimelimit(before);
    runthreads = threadsbefore;
    vecmath = vectorbefore;
    setderivatives(exactbefore);
    setboundederrors(boundedbefore);
  }
};

int checkpoints(vx_engine* e, const double* inputs, int64_t rows, int32_t cols, const double* out) {
  if (rows < 0) return fail(e, VX_ERROR_ARGUMENT, "a negative number of points (%lld)", static_cast<long long>(rows));
  if (cols != nvar)
    return fail(e, VX_ERROR_ARGUMENT, "the points have %d columns; the program has %d variables",
                static_cast<int>(cols), static_cast<int>(nvar));
  if (rows > 0 && (!out || (cols > 0 && !inputs))) return fail(e, VX_ERROR_ARGUMENT, "a null array");
  return VX_OK;
}

}  // namespace

#define HANDLE(e)                    \
  if (!(e)) return VX_ERROR_ARGUMENT; \
  std::lock_guard<std::mutex> hold(engine)

extern "C" {

const char* vx_version(void) { return "5.4"; }

vx_engine* vx_create(void) { return new (std::nothrow) vx_engine; }

void vx_destroy(vx_engine* e) {
  if (!e) return;
  {
    std::lock_guard<std::mutex> hold(engine);
    if (owner == e) owner = nullptr;
  }
  delete e;
}

const char* vx_error(const vx_engine* e) { return e ? e->error.c_str() : "no handle (null)"; }

int vx_compile(vx_engine* e, const char* text) {
  HANDLE(e);
  if (!text) return fail(e, VX_ERROR_ARGUMENT, "no program text (null)");
  LexExitHandler keep = setlexexithandler(noexit);
  const int ok = compilesource(text);
  setlexexithandler(keep);
  return aftercompile(e, ok);
}

int vx_compile_file(vx_engine* e, const char* path) {
  HANDLE(e);
  if (!path) return fail(e, VX_ERROR_ARGUMENT, "no file name (null)");
  LexExitHandler keep = setlexexithandler(noexit);
  bool unreadable = false;
  const int ok = compilefile(path, &unreadable);
  setlexexithandler(keep);
  const int r = aftercompile(e, ok);
  if (unreadable)
    return fail(e, VX_ERROR_FILE, "%s", ncompmsgs > 0 ? compmsgs[0].text : "the file cannot be read");
  return r;
}

int vx_message_count(vx_engine* e, int32_t* count) {
  HANDLE(e);
  if (!count) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = owns(e)) return r;
  *count = ncompmsgs;
  return done(e);
}

int vx_message(vx_engine* e, int32_t i, const char** text, int32_t* line) {
  HANDLE(e);
  if (!text) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = owns(e)) return r;
  if (i < 0 || i >= ncompmsgs)
    return fail(e, VX_ERROR_ARGUMENT, "no message %d (there are %d)", static_cast<int>(i), static_cast<int>(ncompmsgs));
  if (line) *line = compmsgs[i].fileline;
  return handback(e, compmsgs[i].text, text);
}

int vx_variable_count(vx_engine* e, int32_t* count) {
  HANDLE(e);
  if (!count) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = program(e)) return r;
  *count = nvar;
  return done(e);
}

int vx_variable_name(vx_engine* e, int32_t i, const char** name) {
  HANDLE(e);
  if (!name) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = program(e)) return r;
  if (i < 0 || i >= nvar)
    return fail(e, VX_ERROR_ARGUMENT, "no variable %d (there are %d)", static_cast<int>(i), static_cast<int>(nvar));
  return handback(e, invars[i]->name, name);
}

int vx_dependent(vx_engine* e, int32_t* index) {
  HANDLE(e);
  if (!index) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = program(e)) return r;
  *index = -1;
  for (int32_t i = 0; i < nvar; ++i)
    if (invars[i] == depvar) *index = i;
  return done(e);
}

int vx_parameter_count(vx_engine* e, int32_t* count) {
  HANDLE(e);
  if (!count) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = program(e)) return r;
  *count = nparm;
  return done(e);
}

int vx_parameter_name(vx_engine* e, int32_t i, const char** name) {
  HANDLE(e);
  if (!name) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = program(e)) return r;
  if (i < 0 || i >= nparm)
    return fail(e, VX_ERROR_ARGUMENT, "no parameter %d (there are %d)", static_cast<int>(i), static_cast<int>(nparm));
  return handback(e, parms[i]->name, name);
}

// The whole matrix in one copy, as SetDataRows and SetDataValue for every
// cell would leave it: the variables' minima and maxima primed for the
// statistics to fill.
int vx_set_data(vx_engine* e, const double* values, int64_t rows, int32_t cols) {
  HANDLE(e);
  if (int r = program(e)) return r;
  if (nvar == 0) return fail(e, VX_ERROR_ARGUMENT, "the program has no VARIABLES (a minimisation): it takes no data");
  if (cols != nvar)
    return fail(e, VX_ERROR_ARGUMENT, "the data have %d columns; the program has %d variables",
                static_cast<int>(cols), static_cast<int>(nvar));
  if (rows < 0 || rows > INT32_MAX - 1)
    return fail(e, VX_ERROR_ARGUMENT, "%lld rows: the data take 0 to %d rows", static_cast<long long>(rows),
                INT32_MAX - 1);
  if (rows > 0 && !values) return fail(e, VX_ERROR_ARGUMENT, "no data (null)");
  e->computed = false;
  freedata();
  for (int32_t i = 0; i < nvar; ++i) {
    invars[i]->lower = 1e30;
    invars[i]->upper = -1e30;
  }
  if (!datahostrows(static_cast<int32_t>(rows)))
    return fail(e, VX_ERROR_MEMORY, "no memory for %lld rows of data", static_cast<long long>(rows));
  if (rows > 0) {
    std::memcpy(datamat, values, static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols) * sizeof(double));
    datawritten(rows - 1);
  }
  return done(e);
}

int vx_set_time_limit(vx_engine* e, double seconds) {
  HANDLE(e);
  if (!(seconds >= 0.0) || std::isinf(seconds))
    return fail(e, VX_ERROR_ARGUMENT, "a time limit is a number of seconds, 0 or more");
  e->timelimit = seconds;
  return done(e);
}

void vx_cancel(void) { cancel(); }

int vx_set_threads(vx_engine* e, int count) {
  HANDLE(e);
  if (count < 0 || count > MAXTHREADS)
    return fail(e, VX_ERROR_ARGUMENT, "a thread count is 0 (one per core) to %d, not %d", static_cast<int>(MAXTHREADS),
                count);
  e->threads = count;
  return done(e);
}

int vx_set_vector_math(vx_engine* e, int on) {
  HANDLE(e);
  e->vectormath = on != 0;
  return done(e);
}

int vx_set_derivatives(vx_engine* e, int exact) {
  HANDLE(e);
  e->exact = exact != 0;
  return done(e);
}

int vx_set_bounded_errors(vx_engine* e, int on) {
  HANDLE(e);
  e->boundederrors = on != 0;
  return done(e);
}

int vx_differenced_columns(vx_engine* e, const char** text) {
  HANDLE(e);
  if (!text) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = fitted(e)) return r;
  return handback(e, e->exact ? differencedcolumns() : "", text);
}

int vx_compute(vx_engine* e, int* code) {
  HANDLE(e);
  if (int r = program(e)) return r;
  RunSettings settings(e);
  const int c = compute();
  e->computed = true;
  e->code = c;
  if (code) *code = c;
  return done(e);
}

int vx_stop_reason(vx_engine* e, const char** text) {
  HANDLE(e);
  if (!text) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = fitted(e)) return r;
  return handback(e, stopreasontext(results.code), text);
}

int vx_available(vx_engine* e, int* out) {
  HANDLE(e);
  if (!out) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = fitted(e)) return r;
  *out = flags();
  return done(e);
}

int vx_parameter_values(vx_engine* e, int what, double* out, int32_t count) {
  HANDLE(e);
  if (what < VX_ESTIMATE || what > VX_START)
    return fail(e, VX_ERROR_ARGUMENT, "no parameter value of kind %d (0 to 6)", what);
  if (int r = what == VX_ESTIMATE || what == VX_START ? program(e) : fitted(e)) return r;
  if (!out || count != nparm)
    return fail(e, VX_ERROR_ARGUMENT, "room for %d values; the program has %d parameters", static_cast<int>(count),
                static_cast<int>(nparm));
  const int f = what == VX_ESTIMATE || what == VX_START ? 0 : flags();
  if ((what == VX_STDERR || what == VX_TVALUE || what == VX_PVALUE) && !(f & VX_HAS_STATISTICS))
    return unavailable(e, "standard errors");
  if ((what == VX_LOWER || what == VX_UPPER) && !(f & VX_HAS_INTERVALS)) return unavailable(e, "confidence limits");
  for (int32_t k = 0; k < nparm; ++k) {
    const Symbol* s = parms[k];
    switch (what) {
      case VX_ESTIMATE: out[k] = s->value; break;
      case VX_STDERR: out[k] = s->stderror; break;
      case VX_TVALUE: out[k] = s->tval; break;
      case VX_PVALUE: out[k] = s->pval; break;
      case VX_LOWER: out[k] = s->cilow; break;
      case VX_UPPER: out[k] = s->cihigh; break;
      default: out[k] = s->initval; break;
    }
  }
  return done(e);
}

int vx_statistic(vx_engine* e, int what, double* value) {
  HANDLE(e);
  if (!value) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (what == VX_STAT_VERSION) {
    *value = VEXOR_VERSION;
    return done(e);
  }
  if (what < 0 || what > VX_STAT_PROB_F) return fail(e, VX_ERROR_ARGUMENT, "no statistic %d (0 to 15)", what);
  if (int r = fitted(e)) return r;
  const FitSummary& s = results.summary;
  const bool anova = results.anova.shown && results.anova.full && !results.minimize;
  switch (what) {
    case VX_STAT_OBSERVATIONS: *value = nobs; break;
    case VX_STAT_ITERATIONS: *value = iterations; break;
    case VX_STAT_FUNCTION: *value = s.sumsq; break;
    case VX_STAT_SUM_DEVIATIONS: *value = s.sumdev; break;
    case VX_STAT_MAX_DEVIATION: *value = s.maxdev; break;
    case VX_STAT_STDERR: *value = std::sqrt(s.variance); break;
    case VX_STAT_R2: *value = s.rsquare; break;
    case VX_STAT_ADJ_R2: *value = s.adjrsquare; break;
    case VX_STAT_DURBIN_WATSON: *value = s.durbinwatson; break;
    case VX_STAT_RUNTIME: *value = s.runtime; break;
    case VX_STAT_EVALUATIONS: *value = static_cast<double>(results.evaluations); break;
    case VX_STAT_AVG_DEVIATION: *value = results.rs.avgdev; break;
    case VX_STAT_DF: *value = results.n - results.p; break;
    case VX_STAT_F: *value = anova ? results.anova.f : NAN; break;
    default: *value = anova ? results.anova.probf : NAN; break;
  }
  return done(e);
}

int vx_covariance(vx_engine* e, double* out, int64_t count) {
  HANDLE(e);
  if (int r = fitted(e)) return r;
  if (!(flags() & VX_HAS_COVARIANCE)) return unavailable(e, "covariance matrix");
  const int64_t n = static_cast<int64_t>(results.p) * results.p;
  if (!out || count != n)
    return fail(e, VX_ERROR_ARGUMENT, "room for %lld values; the matrix has %lld", static_cast<long long>(count),
                static_cast<long long>(n));
  std::memcpy(out, results.covariance, static_cast<std::size_t>(n) * sizeof(double));
  return done(e);
}

int vx_correlation_size(vx_engine* e, int32_t* size) {
  HANDLE(e);
  if (!size) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = fitted(e)) return r;
  *size = results.corr ? results.ncorrvars : 0;
  return done(e);
}

int vx_correlation_name(vx_engine* e, int32_t i, const char** name) {
  HANDLE(e);
  if (!name) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = fitted(e)) return r;
  const int32_t m = results.corr ? results.ncorrvars : 0;
  if (i < 0 || i >= m)
    return fail(e, VX_ERROR_ARGUMENT, "no correlation variable %d (there are %d)", static_cast<int>(i),
                static_cast<int>(m));
  return handback(e, corrvars[i]->name, name);
}

int vx_correlation(vx_engine* e, double* out, int64_t count) {
  HANDLE(e);
  if (int r = fitted(e)) return r;
  if (!results.corr) return unavailable(e, "correlation matrix (CORRELATE)");
  const int64_t n = static_cast<int64_t>(results.ncorrvars) * results.ncorrvars;
  if (!out || count != n)
    return fail(e, VX_ERROR_ARGUMENT, "room for %lld values; the matrix has %lld", static_cast<long long>(count),
                static_cast<long long>(n));
  std::memcpy(out, results.corr, static_cast<std::size_t>(n) * sizeof(double));
  return done(e);
}

int vx_observation_count(vx_engine* e, int64_t* count) {
  HANDLE(e);
  if (!count) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = program(e)) return r;
  *count = e->computed && results.ready ? results.n : nobs;
  return done(e);
}

namespace {

int pervalue(vx_engine* e, const double* from, double* out, int64_t count) {
  if (int r = fitted(e)) return r;
  if (!(flags() & VX_HAS_RESIDUALS)) return unavailable(e, "observed and predicted values (a minimisation)");
  if (!out || count != results.n)
    return fail(e, VX_ERROR_ARGUMENT, "room for %lld values; there are %d observations",
                static_cast<long long>(count), static_cast<int>(results.n));
  if (count > 0) std::memcpy(out, from, static_cast<std::size_t>(count) * sizeof(double));
  return done(e);
}

}  // namespace

int vx_observed(vx_engine* e, double* out, int64_t count) {
  HANDLE(e);
  return pervalue(e, obsvec, out, count);
}

int vx_predicted(vx_engine* e, double* out, int64_t count) {
  HANDLE(e);
  return pervalue(e, predvec, out, count);
}

// The model at each point, each a run like the object's EvaluateFunction.
int vx_evaluate(vx_engine* e, const double* inputs, int64_t rows, int32_t cols, double* out) {
  HANDLE(e);
  if (int r = program(e)) return r;
  if (int r = checkpoints(e, inputs, rows, cols, out)) return r;
  RunSettings settings(e);
  char message[200];
  double none = 0.0;
  for (int64_t i = 0; i < rows; ++i) {
    const double* at = cols > 0 ? inputs + i * cols : &none;
    if (!evalat(at, &out[i], message, sizeof message)) out[i] = NAN;
  }
  return done(e);
}

int vx_predict(vx_engine* e, const double* inputs, int64_t rows, int32_t cols, int band, double level, double* out,
               double* lower, double* upper) {
  HANDLE(e);
  if (band < BAND_NONE || band > BAND_PREDICTION)
    return fail(e, VX_ERROR_ARGUMENT, "no band %d (0 none, 1 confidence, 2 prediction)", band);
  if (band != BAND_NONE && (!(level > 0.0 && level < 1.0) || !lower || !upper))
    return fail(e, VX_ERROR_ARGUMENT, "a band needs a level between 0 and 1 and arrays for its limits");
  if (int r = band == BAND_NONE ? program(e) : fitted(e)) return r;
  if (int r = checkpoints(e, inputs, rows, cols, out)) return r;
  if (band != BAND_NONE && (!(flags() & VX_HAS_COVARIANCE) || results.minimize || results.n <= results.p))
    return unavailable(e, "covariance matrix of the estimates");
  RunSettings settings(e);
  double none = 0.0;
  for (int64_t i = 0; i < rows; ++i) {
    const double* at = cols > 0 ? inputs + i * cols : &none;
    Prediction p{};
    const bool ok = predictat(at, band, level, &p);
    out[i] = ok ? p.value : NAN;
    if (lower) lower[i] = ok ? p.lower : NAN;
    if (upper) upper[i] = ok ? p.upper : NAN;
  }
  return done(e);
}

int vx_set_parameters(vx_engine* e, const double* values, int32_t count) {
  HANDLE(e);
  if (int r = program(e)) return r;
  if ((count > 0 && !values) || count != nparm)
    return fail(e, VX_ERROR_ARGUMENT, "%d values; the program has %d parameters", static_cast<int>(count),
                static_cast<int>(nparm));
  for (int32_t k = 0; k < nparm; ++k) parms[k]->value = values[k];
  return done(e);
}

// The listing with "\n" line ends (the records end theirs in CR LF).
int vx_report(vx_engine* e, const char** text) {
  HANDLE(e);
  if (!text) return fail(e, VX_ERROR_ARGUMENT, "a null pointer");
  if (int r = owns(e)) return r;
  e->text.clear();
  e->text.reserve(static_cast<std::size_t>(lstlength()));
  lstforeach([&](const char* line) {
    for (const char* p = line; *p; ++p)
      if (*p != '\r') e->text.push_back(*p);
  });
  *text = e->text.c_str();
  return done(e);
}

}  // extern "C"
