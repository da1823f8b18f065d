// Engine-wide analysis settings, and the kind of program compiled.
#include <cstring>

#include "lang/lang.h"

namespace vexor {

int minimize = 0;

int32_t maxiter = 500;
double tolerance = 1e-10;
double conflevel = 0.0;
int32_t covreq = -3;
int covprint = 0;
Symbol* corrvars[MAXCORR];
int32_t ncorr = 0;
int degrees = 0;
int srclist = 1;
int32_t presolution = 1;
double plotwidth = 8.0;
char title[MAXTITLE];
int32_t outmode = 0;
char outfile[MAXPATH];
Symbol* outvars[MAXOUTVARS];
int32_t noutvars = 0;
char parfile[MAXPATH];

int32_t skiprecs = 0;
int32_t datacount = 0;
int32_t ndataerr = 0;

// Defaults of every engine-wide setting; the engine reset calls this.
void resetsettings() {
  maxiter = 500;
  tolerance = 1e-10;
  conflevel = 0.0;
  covreq = -3;
  covprint = 0;
  ncorr = 0;
  degrees = 0;
  echo = 0;
  srclist = 1;
  presolution = 1;
  plotwidth = 8.0;
  title[0] = '\0';
  outmode = 0;
  outfile[0] = '\0';
  noutvars = 0;
  parfile[0] = '\0';
  skiprecs = 0;
  datacount = 0;
}

}  // namespace vexor
