/* VEXOR from C: the analysis engine behind plain functions, numbers and
 * UTF-8 strings.
 *
 *   #include <vexor/vexor_c.h>
 *
 *   vx_engine* e = vx_create();
 *   if (vx_compile(e, "VARIABLES x, y; PARAMETERS a = 1, b = 1;\n"
 *                     "FUNCTION y = a * exp(b * x);\n") != VX_OK)
 *     fprintf(stderr, "%s\n", vx_error(e));
 *   double data[] = {1, 2.7, 2, 7.4, 3, 20.1};   rows of x, y
 *   vx_set_data(e, data, 3, 2);
 *   int code;
 *   vx_compute(e, &code);                          code: the result code
 *   double b[2];
 *   vx_parameter_values(e, VX_ESTIMATE, b, 2);
 *   vx_destroy(e);
 *
 * Every function but vx_version, vx_create and vx_cancel returns VX_OK (0)
 * or one of the VX_ERROR_ codes, and then vx_error(e) says what went wrong
 * in a sentence.  Strings handed back (names, messages, the listing) belong
 * to the handle and stay valid until the next call with it.
 *
 * One engine per process.  The engine holds one program, one data set and
 * one set of results for the whole process, whatever handle drives it: a
 * handle owns it from its vx_compile or vx_compile_file until another
 * handle compiles, and then calls that read or use the program answer
 * VX_ERROR_STATE ("another handle has compiled a program since").  Calls
 * from several threads are serialised by one lock; they are safe, but they
 * run one at a time.  To fit in parallel, use processes.
 *
 * Order: compile, optionally hand over data (the program's own DATA
 * otherwise), compute, read.  Calls out of order answer VX_ERROR_STATE:
 * unlike the analysis object, vx_compute refuses to run when the last
 * compilation failed, even if an earlier one succeeded.
 *
 * Numbers: the engine's own doubles, bit for bit what the analysis object
 * and the listing's results are computed from.
 */
#ifndef VEXOR_VEXOR_C_H
#define VEXOR_VEXOR_C_H

#include <stdint.h>

/* What the shared library exports (the engine is built with hidden
 * visibility). */
#if defined(_WIN32) || !defined(__GNUC__)
#define VX_API
#else
#define VX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Return codes. */
enum {
  VX_OK = 0,
  VX_ERROR_ARGUMENT = 1,    /* a null pointer, a size or an index out of range, a
                               data shape that does not fit the program */
  VX_ERROR_STATE = 2,       /* out of order: nothing compiled, no fit computed, or
                               another handle has compiled since */
  VX_ERROR_COMPILE = 3,     /* the program did not compile (vx_message) */
  VX_ERROR_FILE = 4,        /* the program file could not be read */
  VX_ERROR_MEMORY = 5,      /* memory ran out */
  VX_ERROR_UNAVAILABLE = 6  /* the fit did not compute this result (standard
                               errors of a bounded fit, a covariance matrix
                               that is singular, ...): the listing says why */
};

/* What vx_parameter_values reads: the codes of the object's ParameterValue. */
enum {
  VX_ESTIMATE = 0,
  VX_STDERR = 1,
  VX_TVALUE = 2,
  VX_PVALUE = 3,   /* Prob(t) */
  VX_LOWER = 4,    /* confidence limits at the program's CONFIDENCE level */
  VX_UPPER = 5,
  VX_START = 6
};

/* What vx_statistic reads: 0 to 10 are the codes of the object's
 * GetStatistic (same values); the rest are the listing's other figures. */
enum {
  VX_STAT_OBSERVATIONS = 0,
  VX_STAT_ITERATIONS = 1,
  VX_STAT_FUNCTION = 2,          /* final function value: a fit's residual
                                    sum of squares */
  VX_STAT_SUM_DEVIATIONS = 3,    /* sum of residuals */
  VX_STAT_MAX_DEVIATION = 4,     /* largest |residual| */
  VX_STAT_STDERR = 5,            /* standard error of estimate */
  VX_STAT_R2 = 6,
  VX_STAT_ADJ_R2 = 7,
  VX_STAT_DURBIN_WATSON = 8,
  VX_STAT_RUNTIME = 9,           /* seconds */
  VX_STAT_VERSION = 10,          /* 5.4 */
  VX_STAT_EVALUATIONS = 11,      /* function evaluations of the fit */
  VX_STAT_AVG_DEVIATION = 12,    /* average |residual| */
  VX_STAT_DF = 13,               /* residual degrees of freedom, n - p */
  VX_STAT_F = 14,                /* analysis of variance: F (NaN when the listing
                                    shows none) */
  VX_STAT_PROB_F = 15
};

/* What a computed fit holds (vx_available). */
enum {
  VX_HAS_STATISTICS = 1,   /* standard errors, t values and Prob(t) */
  VX_HAS_INTERVALS = 2,    /* confidence limits */
  VX_HAS_COVARIANCE = 4,   /* the covariance matrix of the estimates */
  VX_HAS_CORRELATION = 8,  /* the CORRELATE matrix */
  VX_HAS_RESIDUALS = 16    /* observed and predicted values (a fit, not a minimisation) */
};

typedef struct vx_engine vx_engine;

/* "5.4" */
VX_API const char* vx_version(void);

/* A new handle (null when memory ran out); vx_destroy(null) does nothing. */
VX_API vx_engine* vx_create(void);
VX_API void vx_destroy(vx_engine* e);

/* The message of the last call that failed ("" after one that succeeded). */
VX_API const char* vx_error(const vx_engine* e);

/* Compiling.  VX_ERROR_COMPILE when the program has errors: vx_error names
 * the first, vx_message_count and vx_message give each (the listing has them
 * too). */
VX_API int vx_compile(vx_engine* e, const char* text);
VX_API int vx_compile_file(vx_engine* e, const char* path);
VX_API int vx_message_count(vx_engine* e, int32_t* count);
/* Message i: its text and the line of the program text it is about (from 1;
 * 0 when the message names no line, as the data errors). */
VX_API int vx_message(vx_engine* e, int32_t i, const char** text, int32_t* line);

/* The compiled program. */
VX_API int vx_variable_count(vx_engine* e, int32_t* count);
VX_API int vx_variable_name(vx_engine* e, int32_t i, const char** name);
/* The dependent variable's index among the variables, -1 for none. */
VX_API int vx_dependent(vx_engine* e, int32_t* index);
VX_API int vx_parameter_count(vx_engine* e, int32_t* count);
VX_API int vx_parameter_name(vx_engine* e, int32_t i, const char** name);

/* The observations in one call: `rows` rows of `cols` doubles, row-major,
 * columns in VARIABLES order (cols must equal the variable count).  They
 * replace the program's own data; copied, so `values` may go at once. */
VX_API int vx_set_data(vx_engine* e, const double* values, int64_t rows, int32_t cols);

/* Host settings.  The time limit (seconds, 0 for none) applies to this
 * handle's later vx_compute and vx_evaluate calls: a run that takes longer
 * stops with the result code -10, as vx_cancel stops it.  vx_cancel may be
 * called from any thread or a signal handler while a run is going on. */
VX_API int vx_set_time_limit(vx_engine* e, double seconds);
VX_API void vx_cancel(void);
/* Threads for this handle's fits (0, the default: one per core; the
 * results are the same for any count) and vector math (SLEEF's exp, sin,
 * cos and ln in the block evaluator; off by default; results may move in
 * their last digits): see vexor::setthreads and vexor::setvectormath in
 * <vexor/vexor.h>. */
VX_API int vx_set_threads(vx_engine* e, int count);
VX_API int vx_set_vector_math(vx_engine* e, int on);
/* Exact derivatives (1) or forward differences (0, the default) for the
 * fits of this handle, and standard errors in a fit with bounds (1) or
 * none (0, the default): see vexor::setderivatives and
 * vexor::setboundederrors in <vexor/vexor.h>.  After a fit with exact
 * derivatives, vx_differenced_columns names the parameters whose columns
 * were differenced and why ("" when none). */
VX_API int vx_set_derivatives(vx_engine* e, int exact);
VX_API int vx_set_bounded_errors(vx_engine* e, int on);
VX_API int vx_differenced_columns(vx_engine* e, const char** text);

/* The fit.  *code is the analysis's result code (1 to 6 the kinds of
 * convergence, negative a failure, -10 stopped); VX_OK whenever the fit ran,
 * whatever the code. */
VX_API int vx_compute(vx_engine* e, int* code);
/* The stop reason as the listing words it. */
VX_API int vx_stop_reason(vx_engine* e, const char** text);
/* VX_HAS_ flags of the last fit. */
VX_API int vx_available(vx_engine* e, int* flags);

/* One value of each parameter, in program order: `count` must be the
 * parameter count. */
VX_API int vx_parameter_values(vx_engine* e, int what, double* out, int32_t count);
VX_API int vx_statistic(vx_engine* e, int what, double* value);
/* p x p, row-major, count = p * p. */
VX_API int vx_covariance(vx_engine* e, double* out, int64_t count);
/* The CORRELATE matrix: its size and names, then m x m values. */
VX_API int vx_correlation_size(vx_engine* e, int32_t* size);
VX_API int vx_correlation_name(vx_engine* e, int32_t i, const char** name);
VX_API int vx_correlation(vx_engine* e, double* out, int64_t count);
/* Per observation (count = the observation count): the observed value of
 * the dependent variable (the fit's target) and the model's value. */
VX_API int vx_observation_count(vx_engine* e, int64_t* count);
VX_API int vx_observed(vx_engine* e, double* out, int64_t count);
VX_API int vx_predicted(vx_engine* e, double* out, int64_t count);

/* The model at new points: `rows` rows of `cols` input values (cols = the
 * variable count, the dependent's column ignored), one value each in out,
 * with the parameters at their estimates.  A point where the program fails
 * gives NaN.  With band 1 (confidence) or 2 (prediction), lower and upper
 * (may be null with band 0) get the band's limits at `level` (0.95 for 95%)
 * by the delta method; VX_ERROR_UNAVAILABLE when the fit has no covariance. */
VX_API int vx_evaluate(vx_engine* e, const double* inputs, int64_t rows, int32_t cols, double* out);
VX_API int vx_predict(vx_engine* e, const double* inputs, int64_t rows, int32_t cols, int band,
                      double level, double* out, double* lower, double* upper);
/* Sets the parameters' values (count = the parameter count) for
 * vx_evaluate: to evaluate a model at estimates found earlier. */
VX_API int vx_set_parameters(vx_engine* e, const double* values, int32_t count);

/* The analysis listing, lines ending in "\n" (the object's
 * GetAnalysisReport has CR LF). */
VX_API int vx_report(vx_engine* e, const char** text);

#ifdef __cplusplus
}
#endif

#endif
