// What the fuzz targets share: the engine driven as a host drives it, with
// the settings that keep one input from holding the fuzzer (a time limit
// on every run, a memory limit on the large arrays, a comment left open
// that does not end the process).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "vexor/vexor.h"

namespace vexor::fuzz {

// Once per process: the settings above.
void setup(double timelimit = 1.0);

// The engine's calls with plain values.
long compile(const std::string& text);
long compute();
std::string report();
double parmvalue(long index, long kind);
double statistic(long kind);
double datavalue(long row, long col);
double correlation(long row, long col);
double covariance(long row, long col);
long count(HRESULT (VEXOR::*method)(VARIANT*));
void evaluate(long variable, double value);
double evaluatefunction();

// Reads every result a host can read after a Compute.
void readresults();

}  // namespace vexor::fuzz
