// The observations of the exp+sin benchmarks: y = 3 exp(-0.4 x) +
// 1.5 sin(2.2 x) + noise, x uniform on [0, 10], Gaussian noise with sd 0.1,
// drawn in this order from a fixed seed, so that every benchmark (and every
// tool compared with them) fits exactly the same data.
#pragma once

#include <cmath>
#include <map>
#include <random>
#include <vector>

namespace vexor::bench {

inline void expsindata(long n, std::vector<double>& x, std::vector<double>& y) {
  std::mt19937_64 gen(20240611u);
  std::uniform_real_distribution<double> ux(0.0, 10.0);
  std::normal_distribution<double> noise(0.0, 0.1);
  x.resize(static_cast<std::size_t>(n));
  y.resize(static_cast<std::size_t>(n));
  for (long i = 0; i < n; ++i) {
    const double xi = ux(gen);
    x[i] = xi;
    y[i] = 3.0 * std::exp(-0.4 * xi) + 1.5 * std::sin(2.2 * xi) + noise(gen);
  }
}

struct ExpSinData {
  std::vector<double> x, y;
};

// The data for n observations, made once per n and kept.
inline const ExpSinData& expsin(int n) {
  static std::map<int, ExpSinData> cache;
  auto it = cache.find(n);
  if (it != cache.end()) return it->second;
  ExpSinData d;
  expsindata(n, d.x, d.y);
  return cache.emplace(n, std::move(d)).first->second;
}

}  // namespace vexor::bench
