// The growth model the object's and the C interface's tests fit: an
// exponential without DATA (the host supplies the observations), with its
// six observations.
#pragma once

#include <vector>

namespace vartest {

inline const char* const growth =
    "VARIABLES x, y;\n"
    "PARAMETERS a = 1, b = 0.5;\n"
    "COVARIANCE;\n"
    "CORRELATE x, y;\n"
    "FUNCTION y = a * exp(b * x);\n";

inline const std::vector<double> xs = {0.5, 1.1, 1.7, 2.3, 2.9, 3.6};
inline const std::vector<double> ys = {3.1, 4.9, 8.2, 13.6, 22.4, 40.3};

}  // namespace vartest
