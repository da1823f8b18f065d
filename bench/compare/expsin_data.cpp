// Writes the observations of the exp+sin benchmarks (bench/expsin.h) as n
// pairs of native doubles (x, y), so that another tool can fit exactly the
// same data.  Usage: expsin_data N FILE
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/expsin.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: expsin_data N FILE\n");
    return 2;
  }
  const long n = std::atol(argv[1]);
  std::FILE* f = std::fopen(argv[2], "wb");
  if (!f || n <= 0) {
    std::fprintf(stderr, "expsin_data: cannot write %s\n", argv[2]);
    return 2;
  }
  std::vector<double> x, y;
  vexor::bench::expsindata(n, x, y);
  for (long i = 0; i < n; ++i) {
    const double xy[2] = {x[i], y[i]};
    std::fwrite(xy, sizeof xy, 1, f);
  }
  return std::fclose(f) == 0 ? 0 : 1;
}
