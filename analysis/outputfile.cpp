// The output data file of the OUTPUT statement, and what the writers of
// the output files share (their names and their records).
//
// Output data: one line per observation, each column's value in the
// column's own format (colformat), columns separated by two blanks, no
// header.  With a file name (outmode 1) the data go to that file; without
// one (outmode -1) they go to the listing file only, never into the Listing.
// The values are computed as they are written, by running the program for
// each observation, because what the program prints (PRINTF, run-time
// errors) belongs between the lines of its observation.
//
// While the output data are written, outfp is the destination, so PRINTF and
// run-time error reports of the passes over the observations land there
// too; it is null again afterwards.
//
// Files are opened with mode "w": text mode on every platform we build for
// (the "t" of "wt" is not a standard mode letter).
#include <cassert>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "analysis/analysis.h"

namespace vexor {

namespace {

bool samenocase(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b)
    if (std::toupper(static_cast<unsigned char>(*a)) != std::toupper(static_cast<unsigned char>(*b)))
      return false;
  return *a == *b;
}

inline constexpr int FORMATSIZE = 8;  // "%13.5lE" and its NUL

// The name a writer uses for a setting, without completing the setting.
void plannedname(const char* setting, const char* ext, char* result, std::size_t size) {
  char name[MAXPATH];
  std::snprintf(name, sizeof name, "%s", setting);
  defext(name, ext, sizeof name);
  srcpath(name, result, size);
}

}  // namespace

void setoutputrecord(OutputRecord& r, const char* name, int status) {
  std::snprintf(r.name, sizeof r.name, "%s", name);
  r.status = status;
}

void outputname(char* setting, std::size_t settingsize, const char* ext, char* result,
                std::size_t size) {
  defext(setting, ext, settingsize);
  srcpath(setting, result, size);
}

OutputRecord outrecord{};
OutputRecord parrecord{};

void clearoutputrecords() {
  outrecord = OutputRecord{};
  parrecord = OutputRecord{};
}

void plannedoutputs(char* out, char* par, std::size_t size) {
  out[0] = par[0] = '\0';
  if (outmode >= 1) plannedname(outfile, "OUT", out, size);
  if (parfile[0]) plannedname(parfile, "PAR", par, size);
}

// The pseudo-variables first (any letter case), then input variables from
// the data matrix, then any other symbol's current value (the program has
// just been run for observation i).
double obsvalue(Symbol* column, int32_t i) {
  if (samenocase(column->name, "$OBS")) return i + 1.0;
  if (samenocase(column->name, "$PREDICTED")) return predvec[i];
  if (samenocase(column->name, "$RESIDUAL")) return obsvec[i] - predvec[i];
  if (column->kind == SYM_INPUT && datamat)
    return datamat[static_cast<std::size_t>(i) * nvar + column->index];
  return column->value;
}

// A column's format from its values:
//   - decimals d: the most any value needs, counting k = 0, 1, ... up to 6
//     and stopping at the first k where f = fmod(|v| 10^k, 1) + 10^k 1e-14
//     is below 10^k 1e-12 or reaches 1 (6 when none below 6 stops);
//   - largest magnitude above 1e9, or between 1e-30 and 1e-5 (exclusive):
//     "%12.5lE", "%13.5lE" with a negative value;
//   - otherwise width w = integer digits (1 to 10), plus 1 for a sign, plus
//     1 for the point when d > 0; when w + d > 9, d = max(9 - w, 0); the
//     format is "%<w+d>.<d>lf".
void colformat(const double* values, int32_t count, char* format) {
  static const double pow10[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
  double max = -1e20;
  bool negative = false;
  int d = 0;
  for (int32_t i = 0; i < count; ++i) {
    double a = std::fabs(values[i]);
    if (a > max) max = a;
    if (values[i] < 0) negative = true;
    int k = 0;
    for (; k < 6; ++k) {
      double f = std::fmod(a * pow10[k], 1.0) + pow10[k] * 1e-14;
      if (f < pow10[k] * 1e-12 || f >= 1.0) break;
    }
    if (k > d) d = k;
  }
  if (max > 1e9 || (max > 1e-30 && max < 1e-5)) {
    std::snprintf(format, FORMATSIZE, "%s", negative ? "%13.5lE" : "%12.5lE");
    return;
  }
  int w = 1;
  for (int j = 1; j <= 9; ++j)
    if (max >= pow10[j]) ++w;
  if (negative) ++w;
  if (d > 0) ++w;
  if (w + d > 9) {
    d = 9 - w;
    if (d < 0) d = 0;
  }
  // w + d is at most 12 and d at most 6, so the format has at most 7
  // characters.
  char text[32];
  int len = std::snprintf(text, sizeof text, "%%%d.%dlf", w + d, d);
  assert(len > 0 && len < FORMATSIZE);
  std::memcpy(format, text, static_cast<std::size_t>(len) + 1);
}

// When the output file cannot be opened the message is reported and nothing
// more is done: there is nowhere to write the data.
void writeoutput() {
  FILE* dest;
  char name[MAXPATH];
  if (outmode >= 1) {
    outputname(outfile, sizeof outfile, "OUT", name, sizeof name);
    dest = std::fopen(name, "w");
    if (!dest) {
      outprintf("Error: unable to open output file: %s\n", name);
      setoutputrecord(outrecord, name, -1);
      return;
    }
  } else {
    dest = lstfile;
    if (!dest) return;
    if (outmode < 0) std::fputs("\n\n   ---   Output Data   ---\n", dest);
  }
  outfp = dest;

  const int32_t n = nobs;
  double* scratch = thirdvec;
  if (!scratch && n > 0) scratch = static_cast<double*>(memcalloc(sizeof(double) * n, "outvec"));
  char* formats = static_cast<char*>(
      memalloc(static_cast<std::size_t>(noutvars > 0 ? noutvars : 1) * FORMATSIZE, "outfmt"));
  double predicted, observed;

  // One pass per column to choose its format.
  for (int32_t c = 0; c < noutvars; ++c) {
    resetwork();
    for (int32_t i = 0; i < n; ++i) {
      runprog(i, nullptr, &predicted, &observed);
      scratch[i] = obsvalue(outvars[c], i);
    }
    colformat(scratch, n, formats + c * FORMATSIZE);
  }

  // The data.
  resetwork();
  for (int32_t i = 0; i < n; ++i) {
    runprog(i, nullptr, &predicted, &observed);
    for (int32_t c = 0; c < noutvars; ++c) {
      std::fprintf(dest, formats + c * FORMATSIZE, obsvalue(outvars[c], i));
      if (c + 1 < noutvars) std::fputs("  ", dest);
    }
    std::fputs("\n", dest);
  }

  memfree(formats);
  if (scratch != thirdvec) memfree(scratch);
  outfp = nullptr;
  if (outmode > 0) {
    // Nothing is reported in the listing about a failed write (a full
    // disk); the record tells the host.
    const bool bad = std::ferror(dest) != 0;
    setoutputrecord(outrecord, name, std::fclose(dest) != 0 || bad ? -1 : 1);
  }
}

}  // namespace vexor
