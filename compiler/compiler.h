// The statement compiler: it reads the program statement by statement
// through the lexer, declares the symbols, builds the code with the
// expression parser, and records what the statements ask for (options,
// plots, the SWEEP grid, bounds, the data).
//
// State is process-wide and rebuilt by every compilation.
#pragma once

#include <cstdint>

#include "code/code.h"
#include "lang/lang.h"

namespace vexor {

// ---------------------------------------------------------------------------
// What the statements record
// ---------------------------------------------------------------------------

// One swept parameter of the SWEEP statement.
struct SweepEntry {
  Symbol* parm;
  double start;
  double end;
  double step;
  int32_t current;
  int32_t count;  // trunc((end - start + step * 0.0001) / step)
};
inline constexpr int MAXSWEEPS = 2000;

extern int hasfunc;          // a FUNCTION statement has been compiled
extern int32_t loopdepth;    // loops open at the statement being compiled
extern int32_t nconstrain;   // CONSTRAIN statements compiled
extern SweepEntry sweeps[MAXSWEEPS];
extern int32_t nsweep;

// The bytes of a data file read at most: MAXDATAREAD unless a host or a
// test lowers it (the bound then holds as it does at its usual size).
extern long long datareadbound;

// The file the DATA statement read, as it was opened ("" for inline data,
// none, or host-set data); cleared by every compilation.
extern char datafile[MAXPATH];

// ---------------------------------------------------------------------------
// Plot requests
// ---------------------------------------------------------------------------

enum : uint8_t { PLOT_PLOT = 1, PLOT_RPLOT = 2, PLOT_NPLOT = 3, PLOT_SPLOT = 4 };
enum : uint8_t {
  PF_GRID = 1, PF_RESIDUAL = 2, PF_ITERATIONS = 4, PF_PRINT = 8,
  PF_NOPAUSE = 16, PF_DOMAIN = 32, PF_NOTITLE = 64, PF_VALUES = 128,
};
enum : uint8_t {
  PF2_NOXLABEL = 1, PF2_NOYLABEL = 2, PF2_CONNECT = 4, PF2_CONNECT2 = 8,
  PF2_NOMARK = 16, PF2_NOMARK2 = 32,
};
inline constexpr int PLOTTEXT = 200;

// One PLOT, RPLOT, NPLOT or SPLOT request (tag "plot", zero-filled).
struct PlotRequest {
  PlotRequest* next;
  Symbol* xvar;
  Symbol* yvar;
  Symbol* xvar2;
  Symbol* yvar2;
  double domainlo;
  double domainhi;
  uint8_t kind;
  char title[PLOTTEXT];
  char xlabel[PLOTTEXT];
  char ylabel[PLOTTEXT];
  uint8_t flags;
  uint8_t flags2;
};

extern PlotRequest* plotfirst;
extern PlotRequest* plotlast;
extern int32_t nplotiter;    // requests with ITERATIONS
extern int32_t nplotvalues;  // requests with VALUES
void freeplots();

// ---------------------------------------------------------------------------
// The statement compiler
// ---------------------------------------------------------------------------

// Compiles the whole program whose text srcset (or the engine) has put in
// place; returns the start of the code, or null when any error occurred.
// The previous program's code and expression trees are freed first, and a
// failed compilation frees what it made of them.
OpInstr* compile();
// Statements that hold statements (blocks, IF, WHILE, FOR, DO) nest at most
// this deep: a statement of that kind inside MAXSTMTNEST open ones gives
// "Statements are nested too deeply" at its line and is dropped with all it
// holds.  Loops have a lower limit of their own, 29 open loop levels
// (control.cpp), with the same message.
inline constexpr int32_t MAXSTMTNEST = 100000;

}  // namespace vexor
