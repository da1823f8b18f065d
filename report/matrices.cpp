// The correlation matrix of the CORRELATE variables, the variance-covariance
// matrix of the estimates and the confidence intervals of the estimates.
//
// Matrices are printed in column blocks (5 correlation columns, 4 covariance
// columns per block); every block repeats all rows.  Each line is built in a
// buffer and written with one outprintf call.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "report/report.h"

namespace vexor {

namespace {

// Appends formatted text to a line buffer of LSTMAXTEXT bytes.
#if defined(__GNUC__)
__attribute__((format(printf, 3, 4)))
#endif
void addf(char* line, int* len, const char* format, ...) {
  if (*len >= LSTMAXTEXT - 1) return;
  va_list ap;
  va_start(ap, format);
  int n = std::vsnprintf(line + *len, LSTMAXTEXT - *len, format, ap);
  va_end(ap);
  if (n > 0) *len = std::min(*len + n, LSTMAXTEXT - 1);
}

}  // namespace

// pad = (11 - length) / 2 blanks, the name, then blanks up to 10 characters;
// a name of 10 characters or more is copied whole.
void centername(const char* name, char* field) {
  int len = static_cast<int>(std::strlen(name));
  int pad = (11 - len) / 2;
  int k = 0;
  for (int j = 0; j < pad; ++j) field[k++] = ' ';
  std::memcpy(field + k, name, static_cast<std::size_t>(len));
  k += len;
  while (k < 10) field[k++] = ' ';
  field[k] = '\0';
}

// Each row line is preceded by the messages set aside while its values
// were computed (the notes come in the order of block and row).
void corrmatrix() {
  const int32_t ncorr = results.ncorrvars;
  int32_t note = 0;
  for (int32_t start = 0, block = 0; start < ncorr; start += CORRBLOCK, ++block) {
    int32_t end = std::min(start + CORRBLOCK, ncorr);
    outprintf(start == 0 ? "\n\n           ----  Correlation Matrix  ----\n\n"
                         : "\n\n           ----  Correlation Matrix (continued)  ----\n\n");
    // The head starts with " Variable    " in the listing file and the
    // Listing, with " Variable " on the console.
    char line[LSTMAXTEXT];
    int len = 0;
    line[0] = '\0';
    for (int32_t c = start; c < end; ++c) {
      char field[MAXNAME + 16];
      centername(corrvars[c]->name, field);
      addf(line, &len, "%10s  ", field);
    }
    if (echo) {
      std::printf(" Variable %s", line);
      std::fflush(stdout);
    }
    if (lstfile) std::fprintf(lstfile, " Variable    %s", line);
    if (lstenabled) lstprintf(" Variable    %s", line);

    len = 0;
    addf(line, &len, "\n---------- ");
    for (int32_t c = start; c < end; ++c) addf(line, &len, "  ----------");
    outprintf("%s\n", line);

    for (int32_t r = 0; r < ncorr; ++r) {
      if (note < results.ncorrnotes && results.corrnotes[note].block == block &&
          results.corrnotes[note].row == r)
        lstreplay(results.corrnotes[note++].text);
      len = 0;
      addf(line, &len, "%10s:", corrvars[r]->name);
      for (int32_t c = start; c < end; ++c)
        addf(line, &len, "    %6.3lf  ", results.corr[static_cast<std::size_t>(r) * ncorr + c]);
      outprintf("%s\n", line);
    }
  }
}

void covmatrix() {
  const int32_t p = results.p;
  for (int32_t start = 0; start < p; start += 4) {
    int32_t end = std::min(start + 4, p);
    outprintf(start == 0 ? "\n\n           ----  Variance-Covariance Matrix  ----\n\n"
                         : "\n\n           ----  Variance-Covariance Matrix (continued)  ----\n\n");
    char line[LSTMAXTEXT];
    int len = 0;
    addf(line, &len, " Parameter ");
    for (int32_t c = start; c < end; ++c) {
      char field[MAXNAME + 16];
      centername(parms[c]->name, field);
      addf(line, &len, "    %10s ", field);
    }
    outprintf("%s", line);

    len = 0;
    addf(line, &len, "\n---------- ");
    for (int32_t c = start; c < end; ++c) addf(line, &len, "  -------------");
    outprintf("%s\n", line);

    for (int32_t r = 0; r < p; ++r) {
      len = 0;
      addf(line, &len, "%10s:", parms[r]->name);
      for (int32_t c = start; c < end; ++c)
        addf(line, &len, "  %13.5lG", results.covariance[static_cast<std::size_t>(r) * p + c]);
      outprintf("%s\n", line);
    }
  }
}

// The intervals' limits are the parameters' (see intervals in the
// analysis); the title shows the level as requested.
void confintervals() {
  if (results.ci == CI_FEWOBS) {
    outprintf("\nUnable to compute confidence interval with this few observations.\n");
    return;
  }
  if (results.ci != CI_SHOWN) return;
  outprintf("\n\n         ---- %7.3lf%% Confidence Intervals  ----\n\n", 100 * results.cilevel);
  outprintf(" Parameter     Lower limit      Best estimate      Upper limit\n");
  outprintf("----------  ----------------  ----------------  ----------------\n");
  for (int32_t k = 0; k < results.p; ++k) {
    const Symbol* s = parms[k];
    if (!results.held.empty() && results.held[k])
      outprintf("%10s  %16s  %16.9lG  %16s\n", s->name, "(held)", s->value, "(held)");
    else
      outprintf("%10s  %16.9lG  %16.9lG  %16.9lG\n", s->name, s->cilow, s->value, s->cihigh);
  }
}

}  // namespace vexor
