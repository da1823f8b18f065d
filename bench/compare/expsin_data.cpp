// Writes the observations of the exp+sin benchmarks (bench/fit and
// bench/analysis: the same generator, seed and order of draws) as n pairs
// of little-endian doubles (x, y), so that another tool can fit exactly the
// same data.  Usage: expsin_data N FILE
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

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
  std::mt19937_64 gen(20240611u);
  std::uniform_real_distribution<double> ux(0.0, 10.0);
  std::normal_distribution<double> noise(0.0, 0.1);
  for (long i = 0; i < n; ++i) {
    const double x = ux(gen);
    const double xy[2] = {x, 3.0 * std::exp(-0.4 * x) + 1.5 * std::sin(2.2 * x) + noise(gen)};
    std::fwrite(xy, sizeof xy, 1, f);
  }
  return std::fclose(f) == 0 ? 0 : 1;
}
