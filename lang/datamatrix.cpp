// The data matrix: nobs rows of nvar doubles, row-major, the one store of
// the observations.  The DATA statement fills it, and a host sets and reads
// it cell by cell (SetDataRows, SetDataValue, GetDataValue).
//
// Two capacities are kept apart.  datacap is the capacity the language's
// rules give: DATACOUNT (or 200) when DATA starts, grown by nobs / 10 + 2000
// rows when reading reaches it (datareadroom), the row count of SetDataRows
// (datahostrows), and kept 500 rows ahead of the highest row a host has set
// (datahostrow).  The memory behind the matrix (datarows rows) follows the
// rows actually stored instead: it starts small and doubles when a row
// beyond it is stored, through a resize that the heap does in place or by
// remapping for a large block (no copy of the data), or, where the new rows
// must read 0.0, in a new block the heap clears.  So DATACOUNT 1e9 before three
// records costs three rows, and a million rows set one at a time cost about
// twenty resizes.
#include <cstring>

#include "lang/lang.h"

namespace vexor {

double* datamat = nullptr;
int32_t nobs = 0;
int32_t datacap = 0;
int64_t datarows = 0;
int32_t datawidth = 0;

namespace {

// Rows from here on are known to hold zeros (memory the heap cleared and
// nothing has written since); rows below may hold anything.
int64_t datadirty = 0;

// Rows allocated when a matrix is made without a known row count.
constexpr int64_t DATAFIRSTROWS = 1024;

// A host's row keeps the capacity this many rows ahead of it.
constexpr int64_t HOSTAHEAD = 501;

std::size_t rowbytes() {
  return static_cast<std::size_t>(datawidth > 0 ? datawidth : 1) * sizeof(double);
}

}  // namespace

void freedata() {
  if (datamat) memfree(datamat);
  datamat = nullptr;
  datacap = 0;
  datarows = 0;
  datawidth = 0;
  datadirty = 0;
  nobs = 0;
}

int datanew(int32_t cap, int32_t width, int64_t rows, int zeroed) {
  freedata();
  if (rows < 0) return 0;
  datawidth = width;
  const std::size_t bytes = static_cast<std::size_t>(rows) * rowbytes();
  void* m = zeroed ? memalloczero(bytes, "obs") : memalloc(bytes, "obs");
  if (!m) {
    datawidth = 0;
    return 0;
  }
  datamat = static_cast<double*>(m);
  datarows = rows;
  datacap = cap;
  datadirty = zeroed ? 0 : rows;
  return 1;
}

int datanew(int32_t cap, int32_t width) {
  return datanew(cap, width, cap < DATAFIRSTROWS ? (cap > 0 ? cap : 1) : DATAFIRSTROWS, 0);
}

// The heap's resize for rows that will be written before they are read
// (DATA); for rows that must read 0.0 until written (a host's cells), a new
// block that the heap clears, with the rows so far copied over: its untouched
// part costs nothing, where clearing the new rows by hand would touch all of
// them.
int dataroom(int64_t rows, int zeroed) {
  if (!datamat) return 0;
  if (rows <= datarows) return 1;
  int64_t grown = datarows * 2;
  if (grown < rows) grown = rows;
  if (grown < DATAFIRSTROWS) grown = DATAFIRSTROWS;
  for (int attempt = 0; attempt < 2; ++attempt, grown = rows) {
    const std::size_t bytes = static_cast<std::size_t>(grown) * rowbytes();
    void* m = nullptr;
    if (!zeroed) {
      m = memresize(datamat, bytes);
    } else if ((m = memalloczero(bytes, "obs")) != nullptr) {
      std::memcpy(m, datamat, static_cast<std::size_t>(datarows) * rowbytes());
      memfree(datamat);
    }
    if (m) {
      datamat = static_cast<double*>(m);
      if (!zeroed) datadirty = grown;
      datarows = grown;
      return 1;
    }
    if (grown == rows) break;  // less room: exactly what was asked for
  }
  return 0;
}

int datareadroom() {
  if (nobs == datacap) {
    const int64_t cap = static_cast<int64_t>(datacap) + nobs / 10 + 2000;
    datacap = cap < INT32_MAX ? static_cast<int32_t>(cap) : INT32_MAX;
  }
  return nobs < INT32_MAX && dataroom(static_cast<int64_t>(nobs) + 1, 0);
}

// The count of observations never runs ahead of the data, on purpose.  A
// count left standing after a failed allocation would have the analysis,
// the statistics and the correlations walk rows of a matrix that is not
// there, and a negative count is no number of observations at all; so a
// failure leaves no matrix and 0 observations.
int datahostrows(int32_t rows) {
  if (rows < 0 || !datanew(rows, nvar, rows, 1)) {
    freedata();
    return 0;
  }
  nobs = rows;
  return 1;
}

int datahostrow(int32_t row) {
  if (row < 0) return 0;
  const int64_t cap = static_cast<int64_t>(row) + HOSTAHEAD;
  const int32_t capped = cap < INT32_MAX ? static_cast<int32_t>(cap) : INT32_MAX;
  if (!datamat) {
    if (!datanew(capped, nvar, static_cast<int64_t>(row) + 1, 1)) {
      freedata();
      return 0;
    }
    nobs = row + 1;
    return 1;
  }
  if (!dataroom(static_cast<int64_t>(row) + 1, 1)) {
    freedata();
    return 0;
  }
  if (row >= datacap) datacap = capped;
  if (row >= nobs) {
    dataexpose(nobs, row + 1);
    nobs = row + 1;
  }
  return 1;
}

void datawritten(int64_t row) {
  if (row + 1 > datadirty) datadirty = row + 1;
}

void dataexpose(int32_t from, int32_t to) {
  const int64_t end = to < datadirty ? to : datadirty;
  if (!datamat || end <= from || nvar <= 0) return;
  std::memset(datamat + static_cast<std::size_t>(from) * nvar, 0,
              static_cast<std::size_t>(end - from) * nvar * sizeof(double));
}

}  // namespace vexor
