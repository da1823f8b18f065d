/* A host in C: the decay of a counting sample fitted through the C
 * interface, the observations handed over in one call, the results read as
 * plain numbers, the model evaluated at new points, and a program with an
 * error reported with its line. */
#include <stdio.h>
#include <stdlib.h>

#include <vexor/vexor_c.h>

static const char* const program =
    "TITLE \"Decay of a counting sample\";\n"
    "VARIABLES t, counts;\n"
    "PARAMETERS a = 1000, k = 0.3, bg = 50;\n"
    "CONFIDENCE 95;\n"
    "COVARIANCE;\n"
    "FUNCTION counts = a * exp(-k * t) + bg;\n";

static const double data[12][2] = {
    {0.0, 1051.2}, {0.5, 877.4}, {1.0, 741.9}, {1.5, 632.0}, {2.0, 545.3}, {3.0, 415.8},
    {4.0, 326.1},  {5.0, 262.5}, {6.0, 219.7}, {8.0, 162.0}, {10.0, 131.9}, {12.0, 113.6}};

static void check(vx_engine* e, int status, const char* what) {
  if (status != VX_OK) {
    fprintf(stderr, "%s: %s\n", what, vx_error(e));
    exit(1);
  }
}

int main(void) {
  vx_engine* e = vx_create();
  int code = 0;
  int32_t p = 0, k = 0, line = 0;
  double est[3], se[3], lo[3], hi[3], sse = 0, n = 0, cov[9];
  double at[2][2] = {{2.5, 0}, {20.0, 0}}, y[2];
  const char *name, *reason, *report, *message;

  check(e, vx_compile(e, program), "compile");
  check(e, vx_set_data(e, &data[0][0], 12, 2), "data");
  check(e, vx_compute(e, &code), "compute");
  check(e, vx_stop_reason(e, &reason), "stop reason");
  printf("result code %d: %s\n", code, reason);
  check(e, vx_parameter_count(e, &p), "parameters");
  check(e, vx_parameter_values(e, VX_ESTIMATE, est, p), "estimates");
  check(e, vx_parameter_values(e, VX_STDERR, se, p), "standard errors");
  check(e, vx_parameter_values(e, VX_LOWER, lo, p), "limits");
  check(e, vx_parameter_values(e, VX_UPPER, hi, p), "limits");
  for (k = 0; k < p; ++k) {
    check(e, vx_parameter_name(e, k, &name), "name");
    printf("%-3s = %10.4f  (standard error %.4g, limits %.4f to %.4f)\n", name, est[k], se[k], lo[k], hi[k]);
  }
  check(e, vx_statistic(e, VX_STAT_OBSERVATIONS, &n), "n");
  check(e, vx_statistic(e, VX_STAT_FUNCTION, &sse), "sse");
  printf("observations %.0f, sum of squares %.3f\n", n, sse);
  check(e, vx_covariance(e, cov, 9), "covariance");
  printf("var(k) = %.3e\n", cov[4]);
  check(e, vx_evaluate(e, &at[0][0], 2, 2, y), "evaluate");
  printf("counts(2.5) = %.2f\ncounts(20.0) = %.2f\n", y[0], y[1]);
  check(e, vx_report(e, &report), "report");
  printf("%s", report);

  /* A program with an error: the message and its line. */
  if (vx_compile(e, "VARIABLES t, counts;\nPARAMETERS a = 1;\nFUNCTION counts = a * q;\n") == VX_ERROR_COMPILE) {
    check(e, vx_message(e, 0, &message, &line), "message");
    printf("compile error on line %d: %s\n", (int)line, message);
  }
  vx_destroy(e);
  return 0;
}
