// The report: the "Final Results" section of the analysis listing rendered
// from the results record of the analysis, with its optional matrices and
// intervals, and the parameter file.  Nothing here computes a result.
#pragma once

#include "analysis/analysis.h"

namespace vexor {

// The reason text of a result code ("" for a code outside the table).
const char* stopreasontext(int code);
// "Stopped due to: <reason>" with its line end to the listing file and the
// Listing (one line per call); with flag non-zero and stopsuppress clear also
// once more, without a line end, as a status notice on the console (when
// echo is on), never a second time into the Listing.
void stopreason(int code, int flag);
extern int stopsuppress;     // 1 keeps stopreason's console copy out
// The covariance warning for the record's covariance status, and the
// constraints hint.
void covwarning();
// The Analysis of Variance table of the record.
void anovatable();
// The whole "Final Results" section of the record (results.ready set).
void finalreport();
// The name of the open listing file (lstfile), for the console notice at the
// end of the section; set by whoever opens the listing file, null otherwise.
extern const char* lstfilename;

// The matrices and intervals of the record.
void centername(const char* name, char* field);  // field: room for 11 + name
void corrmatrix();
void covmatrix();
void confintervals();

// The parameter file (POUTPUT): written at its place in the section, whose
// notice of a file that cannot be opened it writes.
void writeparfile();

}  // namespace vexor
