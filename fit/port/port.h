// Adaptive nonlinear least-squares (NL2SOL) routines, double precision.
//
// The routines keep their library names (in lower case) and argument lists.
// IV and V are the caller's integer and real work arrays; every subscript
// named below is 1-based, as in the library's documentation, and the helpers
// I(iv, k) and R(v, k) read element k.  Arrays that live inside V are given
// by their 1-based starting position, held in an IV element.
//
// Storage: dn2_livneed and dn2_lvneed (below) tell what dn2f and dn2fb need.
// The routines allocate nothing; all state is in IV and V.
//
// Final values of IV(1):
//   3 x-convergence                    4 relative function convergence
//   5 both 3 and 4                     6 absolute function convergence
//   7 singular convergence             8 false convergence
//   9 function evaluation limit       10 iteration limit
//  13 r cannot be computed at the start x
//  14 LIV or LV too small (IV(IVNEED), IV(VNEED) say how much is needed)
//  15 the Jacobian cannot be computed
//  19..45 V(IV(1)) out of range         50 IV(1) out of range on entry
//  66 n or p out of range, or rows not supplied all at once
//  67 divset given an algorithm kind other than 1 (regression)
//  82 a lower bound above its upper bound
// A residual function that sets NF < 0 leaves IV(1) at 1 or 2.
//
// Structure.  The drivers (dn2f, dn2fb), the regression cores (drn2g,
// drn2gb), the iterations (dg7lit, dg7itb), the step assessment (da7sst),
// the Levenberg-Marquardt and Goldfeld-Quandt-Trotter steps (dl7mst,
// dg7qts) and their bounded forms (dl7msb, dg7qsb, built on the bounded
// Newton step ds7bqn and the QR column shift dq7rsh), the secant update
// (ds7lup), the QR update (dq7rad), the Cholesky factor (dl7srt), divset
// and the vector, permutation and triangular kernels keep the library's
// names and argument lists and its rules: the model switch by FUZZ, the
// radius tests by TUNER1 to TUNER5, the singular convergence test with a
// step of length LMAXS, the sizing and the Fletcher and Al-Baali update
// direction of S; with bounds, the free variables first in IPIVOT, R and
// Q'r, each step followed along the box, fixing the variables it meets.
// Differences: permutation arrays hold 0-based indices; the library's
// STEP(P,3) work array of dl7msb and dg7qsb is passed as its columns; the
// singular value estimates dl7svn and dl7svx are inverse and power
// iterations; the covariance and the regression diagnostics are formed by
// this implementation's covariance_begin and covariance_continue, in the
// core, in place of the library's finite-difference Hessian routines in the
// iteration (df7hes, dc7vfn, dn2lrd); the QR of the Jacobian has no column
// pivoting (dq7rad's, as in the library).  RD holds r at the last accepted
// point during the run and the regression diagnostics after it (see
// covariance.cpp; none with bounds, as no covariance is computed).  The
// print routines (ditsum, dn2cvp, dn2rdp) and the check of nondefault
// values print nothing: the analysis driver sets every print control to 0.
#pragma once

#include <functional>
#include <vector>

namespace vexor::port {

// Storage this implementation needs for dn2f and dn2fb with n residuals and
// p parameters: V elements (RD, n of them, only when keeprd), IV elements.
// For p >= 84 V needs more than LV = (n + 21 + 2p) p + 200 + 2n, the
// library's figure, because the QR's row block is placed in V as well; for
// small p it needs less, the n elements of RD aside.  dn2_keeprd tells from
// RDREQ and COVREQ (as given to the driver) whether RD is kept: for
// regression diagnostics (RDREQ % 4 >= 2) and for a covariance from a
// finite-difference Hessian (|COVREQ| 1 or 2), which keeps r at x in RD
// while it differences.  Without RD a run that ends on a rejected trial
// step leaves r at that trial point (V(F) and x are the accepted ones).
bool dn2_keeprd(int rdreq, int covreq);
long long dn2_lvneed(int n, int p, bool keeprd);
int dn2_livneed(int p);
// The core's own shares of those (after IV(NEXTV) and IV(NEXTIV)).
long long core_vneed(int p);
int core_ivneed(int p);

// Residual function: given x (p values) compute r (n values).  nf holds the
// evaluation number on entry; set it to 0 when r cannot be computed at x
// (the step is then shortened), or to a negative value to stop at once.
using Calcr = std::function<void(int n, int p, const double* x, int& nf, double* r)>;
// Told by a Jacobian function, while it computes dr, that rows 0 .. k-1 of
// dr are final (k from 0 to n, never decreasing); k = -1 takes that back
// (rows told of have changed).  The core then factors those rows at once,
// so that the factorization goes on beside the computing of the rest; the
// factors are those of factoring the finished dr.
using JacobianRows = std::function<void(int k)>;
// Jacobian function of dn2g and dn2gb: dr (n by p, column j at dr + j n)
// gets dr_i/dx_j at x, the point of the last residual request.  nf as for
// Calcr: the evaluation number on entry (IV(NGCALL)); set 0 when the
// Jacobian cannot be computed at x, negative to stop the run.  rows, when
// not null, may be told of the rows finished (it need not be).
using Calcj =
    std::function<void(int n, int p, const double* x, int& nf, double* dr, const JacobianRows* rows)>;

// Called first thing by ditsum at every iteration summary.
using ItsumHook = std::function<void(const int* iv, const double* v)>;

// Installs the hook called by ditsum; returns the previous one.
ItsumHook set_itsum_hook(ItsumHook hook);

// ---- IV subscripts ------------------------------------------------------
enum IvSub : int {
  IV_STATUS = 1,  // in: 12 fresh start (after divset), 0 call divset first;
                  // out: 1 or 2 requests, >= 3 final (see below)
  TOOBIG = 2,     // set to 1 by the caller when r(x) could not be computed
  IVNEED = 3,     // IV elements needed (set when LIV is too small)
  VNEED = 4,      // V elements needed (set when LV is too small)
  MODEL = 5,      // current model: 1 Gauss-Newton, 2 augmented (secant S)
  NFCALL = 6,     // residual evaluations requested (Jacobian ones excluded)
  NFGCAL = 7,     // NFCALL of the best point of the iteration; caller sets 0
                  // when the Jacobian cannot be computed
  RADINC = 8,     // radius increases (or minus the decreases) this iteration
  RESTOR = 9,     // what to do with x after an assessment: 0 keep, 1 restore
                  // x0, 2 save the step, 3 restore the saved step
  STAGE = 10,     // models tried so far in this iteration
  STGLIM = 11,    // models to try per iteration (2)
  SWITCH = 12,    // 1 when a new model did worse and the old one is back
  XIRC = 13,      // IRC in the absence of convergence and oversized steps
  COVPRT = 14,    // print covariance (0: no; default 3)
  COVREQ = 15,    // covariance request: +-1 H^-1 J'J H^-1, +-2 H^-1, +-3 (J'J)^-1; 0 none
  DTYPE = 16,     // 1: update scale D from the Jacobian every iteration; 0: keep D
  MXFCAL = 17,    // function evaluation limit
  MXITER = 18,    // iteration limit
  OUTLEV = 19,    // iteration summary print level
  PARPRT = 20,    // print nondefault V values
  PRUNIT = 21,    // output unit
  SOLPRT = 22,    // print solution
  STATPR = 23,    // print statistics
  X0PRT = 24,     // print initial x
  INITS = 25,     // initial S: 0 means S = 0
  COVMAT = 26,    // out: position of the packed covariance; <= 0 when not computed
  D_POS = 27,     // position of the scale vector D
  G_POS = 28,     // position of the gradient J'r
  IRC = 29,       // reason of the last step assessment (see da7sst)
  NGCALL = 30,    // Jacobian evaluations
  NITER = 31,     // iterations performed
  MLSTGD = 32,    // model of the best step of the iteration
  KAGQT = 33,     // dg7qts's restart state (-1: new H and g)
  KALM = 34,      // dl7mst's restart state (-1: new R and Q'r)
  MODE = 35,      // internal phase of the reverse-communication loop
  STEP_POS = 40,  // position of the current step (x final during the covariance)
  STLSTG = 41,    // position of the saved best step (no bounds)
  PC = 41,        // bounds: number of free variables at the start of the iteration
  LMAT_POS = 42,  // position of the packed model Hessian work area
  X0_POS = 43,    // position of x at the start of the iteration
  LASTIV = 44,    // last IV element used
  LASTV = 45,     // last V element used
  NEXTIV = 46,    // next free IV element
  NEXTV = 47,     // next free V element
  Y_POS = 48,     // no bounds: position of J_old' r_new (secant update; g
                  // final during the covariance)
  P0 = 48,        // bounds: free variables of the last step computation
  ALGSAV = 51,    // algorithm kind given to divset (1 regression)
  NFCOV = 52,     // residual evaluations spent on the covariance
  NGCOV = 53,     // Jacobian evaluations spent on the covariance
  CNVCOD = 55,    // convergence code held while the covariance is computed
  H_POS = 56,     // position of the augmented model's scaled Hessian (<= 0: out of date)
  RDREQ = 57,     // 0 neither covariance nor regression diagnostics, 1 the
                  // covariance, 2 the diagnostics, 3 (default) both
  PERM = 58,      // position in IV of the saved inverse of IPIVOT and two
                  // scratch permutations (3p elements)
  VSAVE = 60,     // position of V(1..9) saved while the other model is tried
  W_POS = 65,     // position of the p-vector work area
  JCN = 66,       // position of the largest |J_ij| seen so far in each column
  REGD = 67,      // out: 1 when RD holds the regression diagnostics, else 0
  R_POS = 61,     // position of the residual vector r
  S_POS = 62,     // position of the packed secant matrix S
  SUSED = 64,     // models used this iteration (+2 for each switch back)
  DR_POS = 70,    // position of the Jacobian (n x p, column-major)
  RD_POS = 71,    // position of the n-vector holding r at the last accepted x
  IPIVOT = 76,    // position in IV of the variables' order in R (bounds:
                  // the free ones first); 0-based indices
  QTR_POS = 77,   // position of Q'r (first p elements)
  RMAT_POS = 78,  // position of the packed upper triangle R of J = QR
  // Positions 83 to 95 are this implementation's own bookkeeping, kept
  // clear of the subscripts the library's regression routines define (up to
  // IV(82), REGD0).
  BOUNDED = 84,   // 1 when the run has bounds (drn2gb)
  FDSTEP = 85,    // index of the Hessian column being differenced
  NFTOTL = 86,    // every residual evaluation, Jacobian columns included
  JCUR = 87,      // 1 when G, RMAT and QTR belong to the current x
  GLAST_POS = 88, // position of g at the last accepted point
  LWORK_POS = 90, // position of the second packed work triangle
  COVPH = 91,     // covariance phase of the core (0: none pending)
  JOLD = 92,      // 1 when DR holds a Jacobian (for J_old' r_new)
  FLIPPED = 93,   // 1 when the current Hessian difference step was reversed
  BLK_POS = 94,   // position of the row-block buffer of the QR (dq7rad)
  BLK_ROWS = 95,  // rows per block
  QRDONE = 96,    // 1 when RMAT, QTR, G and the scale were formed from DR
                  // while the caller computed it (RowFactor)
  IVLAST_FIXED = 100
};

// ---- V subscripts -------------------------------------------------------
enum VSub : int {
  DGNORM = 1,   // ||D^-1 g|| at the start of the iteration
  DSTNRM = 2,   // ||D step||
  DST0 = 3,     // ||D Newton step|| (negative when not available)
  GTSTEP = 4,   // g' step
  STPPAR = 5,   // Levenberg-Marquardt parameter of the step (0: Newton step)
  NREDUC = 6,   // reduction predicted for the Newton step (0: not available)
  PREDUC = 7,   // reduction predicted for the step taken
  RADIUS = 8,   // trust radius, in the norm ||D s||
  RAD0 = 9,     // radius of the previous step computation
  F = 10,       // half the sum of squares at x
  FDIF = 11,    // f0 - f of the last step
  FLSTGD = 12,  // f at the last good point
  F0 = 13,      // f at the start of the iteration
  GTSLST = 14,  // g' step of the last good step
  PLSTGD = 15,  // predicted reduction of the last good step
  RADFAC = 16,  // factor applied to the radius
  RELDX = 17,   // relative change of x in the last step
  DSTSAV = 18,  // ||D s|| of the last good step
  EPSLON = 19,  // relative tolerance on ||D s|| versus the radius
  PHMNFC = 20,  // lower relative tolerance (step length)
  PHMXFC = 21,  // upper relative tolerance (step length)
  DECFAC = 22,  // radius decrease factor
  INCFAC = 23,  // radius increase factor
  RDFCMN = 24,  // minimum radius factor
  RDFCMX = 25,  // maximum radius factor
  TUNER1 = 26,  // ratio below which a step counts as poor
  TUNER2 = 27,  // ratio needed to accept a step
  TUNER3 = 28,  // ratio above which the radius may grow
  TUNER4 = 29,  // first gradient test of a step (radius growth), see iterate.cpp
  TUNER5 = 30,  // second gradient test of a step (radius growth)
  AFCTOL = 31,  // absolute function convergence tolerance
  RFCTOL = 32,  // relative function convergence tolerance
  XCTOL = 33,   // x-convergence tolerance
  XFTOL = 34,   // false convergence tolerance
  LMAX0 = 35,   // initial radius
  LMAXS = 36,   // radius of the singular convergence test
  SCTOL = 37,   // singular convergence tolerance
  DINIT = 38,   // initial D when >= 0
  DTINIT = 39,  // initial D for the diagonal update
  D0INIT = 40,  // D used where a Jacobian column is zero
  DFAC = 41,    // D update damping: d_i = max(dfac*d_i, ||J_i||)
  DLTFDC = 42,  // relative step for the function-value Hessian
  DLTFDJ = 43,  // relative step for the forward-difference Jacobian
  DELTA0 = 44,  // the library's relative step for gradient-difference
                //  Hessians (the covariance here uses DLTFDC, see there)
  FUZZ = 45,    // model switch: the other model predicted FUZZ times better
  RLIMIT = 46,  // largest acceptable residual norm
  COSMIN = 47,  // smallest cosine kept for the switch test
  HUBERC = 48,  // (robust variants)
  RSPTOL = 49,  // (robust variants)
  SIGMIN = 50,  // (robust variants)
  NVDFLT = 50,  // last V element with a regression default
  RCOND = 53,   // out: estimate of 1/cond of the Cholesky factor behind the
                //   covariance (0 when none was formed)
  SIZE = 55,    // sizing factor of the last secant update
  WSCALE = 56,  // damping factor of the last secant update
  // V(99) is this implementation's own, clear of the library's subscripts.
  FHESS = 99,   // f at the point where the covariance Hessian is differenced
  VLAST_FIXED = 100
};

// V(1) to V(NVSAVE) hold the step quantities saved while a second model is
// tried in the same iteration.
constexpr int NVSAVE = 9;

// Codes of IV(IRC), left by da7sst:
//   1 switch models or try a smaller step      2 switch models or accept
//   3 accept, set RADFAC by the gradient tests  4 accept, RADFAC is set
//   5 recompute the step with the same model    6 recompute the step with
//     radius LMAXS for the singular convergence test, without evaluating f
//   7 x-convergence  8 relative function convergence  9 both
//  10 absolute function convergence  11 singular convergence
//  12 false convergence  13 IV(IRC) out of range on entry
enum IrcCode : int {
  IRC_SMALLER = 1, IRC_SWITCH_OR_ACCEPT = 2, IRC_ACCEPT_TEST = 3, IRC_ACCEPT = 4,
  IRC_RECOMPUTE = 5, IRC_LMAXS = 6, IRC_FALSE = 12, IRC_BAD = 13, IRC_GRADIENT = 14
};

// Element k (1-based) of IV or V.
inline int& I(int* iv, int k) { return iv[k - 1]; }
inline int I(const int* iv, int k) { return iv[k - 1]; }
inline double& R(double* v, int k) { return v[k - 1]; }
inline double R(const double* v, int k) { return v[k - 1]; }

// ---- machine constants ----------------------------------------------------
double d1mach(int i);
int i1mach(int i);
double dr7mdc(int k);

// The QR of the Jacobian that the core has asked for (IV(1) = 2), formed by
// whole row blocks as the Jacobian function tells of finished rows (rows),
// in its own storage; finish, after the function, hands it to the core
// when every row came and the Jacobian was computed (IV(NFGCAL) != 0):
// RMAT, QTR, G, V(JCN) and the scale d are then what the core's own
// factoring would give, bit for bit, and the core skips it (IV(QRDONE)).
// Off in a covariance phase, which factors otherwise.
class RowFactor {
 public:
  RowFactor(int* iv, double* v, int n, int nd, int p, const double* dr, const double* r);
  void rows(int k);
  void finish(double* d);

 private:
  int* iv_;
  double* v_;
  int n_, nd_, p_;
  const double* dr_;
  const double* r_;
  int m_ = 0;
  int done_ = 0;  // rows factored
  bool update_d_ = false;
  bool on_ = false;
  std::vector<double> work_;  // R, Q'r, the column maxima, the row block
};

// ---- defaults, checks, printing --------------------------------------------
void divset(int alg, int* iv, int liv, int lv, double* v);
void dv7dfl(int alg, int lv, double* v);
void dparck(int alg, const double* d, int* iv, int liv, int lv, int n, double* v);
void ditsum(const double* d, const double* g, int* iv, int liv, int lv, int p,
            const double* v, const double* x);
void dn2cvp(int* iv, int liv, int lv, int p, const double* v);
void dn2rdp(int* iv, int liv, int lv, int n, const double* rd, const double* v);

// ---- vector kernels -------------------------------------------------------
double dd7tpr(int p, const double* x, const double* y);
// dd7tpr of each of the p columns of a (leading dimension lda) with r.
void dd7tprs(int n, int p, const double* a, long lda, const double* r, double* y);
double dv2nrm(int p, const double* x);
void dv7cpy(int p, double* y, const double* x);
void dv7scp(int p, double* y, double s);
void dv2axy(int p, double* w, double a, const double* x, const double* y);
double drldst(int p, const double* d, const double* x, const double* x0);

// ---- packed triangular kernels -------------------------------------------
// Packed storage: an upper triangle R (row i <= column j) is kept by columns,
// R(i, j) at pk(i, j) = j*(j+1)/2 + i, which is also the lower triangle
// L = R' by rows.  Symmetric matrices keep their lower triangle by rows.
inline int pk(int i, int j) { return j * (j + 1) / 2 + i; }  // i <= j, 0-based
void dq7row(int p, double* rmat, double* qtr, double* a, double b, double* c);
// Adds the n rows of w (n x p, leading dimension nn) to the triangle RMAT of
// a QR factorization by Householder reflections, and, when qtrset, applies
// them to y (n values) and adds the result to QTR.  w and y are overwritten.
void dq7rad(int n, int nn, int p, double* qtr, bool qtrset, double* rmat, double* w,
            double* y);
void dl7ivm(int p, double* x, const double* l, const double* y);
void dl7itv(int p, double* x, const double* l, const double* y);
void dl7vml(int p, double* x, const double* l, const double* y);
void dl7tvm(int p, double* x, const double* l, const double* y);
// Cholesky factor L of the packed symmetric A, rows n1..n (1-based); irc = 0,
// or the row at which A is not positive definite.
void dl7srt(int n1, int n, double* l, const double* a, int& irc);
void dl7nvr(int p, double* lin, const double* l);
void dl7tsq(int p, double* a, const double* l);
void dl7sqr(int p, double* a, const double* l);
void ds7lvm(int p, double* y, const double* s, const double* x);

// ---- step computation, assessment, secant update ---------------------------
double dl7svn(int p, const double* l, double* x, double* y);
double dl7svx(int p, const double* l, double* x, double* y);
void dl7mst(const double* d, const double* g, int ierr, const int* ipivot, int& ka, int p,
            const double* qtr, const double* r, double* step, double* v, double* w);
void dg7qts(const double* d, const double* dig, double* dihdi, int& ka, double* l, int p,
            double* step, double* v, double* w);
// Bounded steps and the permutation kernels they use (bounded.cpp).
// Permutations hold 0-based indices.
void i7shft(int n, int k, int* x);
void dv7shf(int n, int k, double* x);
void i7pnvr(int n, int* x, const int* y);
void dv7ipr(int n, int* ip, double* x);
void ds7ipr(int p, int* ip, double* h);
void dv7vmp(int n, double* x, const double* y, const double* z, int k);
void dd7mlp(int n, double* x, const double* y, const double* z, int k);
void ds7dmp(int n, double* x, const double* y, const double* z, int k);
void dq7rsh(int k, int p, bool havqtr, double* qtr, double* r, double* w);
void ds7bqn(const double* b, const double* d, double* dst, int* ipiv, int* ipiv1,
            int* ipiv2, int& kb, double* l, int& ns, int p, int& p1, double* step,
            double* td, double* tg, double* v, double* w, double* x, const double* x0);
void dl7msb(const double* b, const double* d, const double* g, int ierr, int* ipiv,
            int* ipiv1, int* ipiv2, int& ka, double* lmat, int p, int& p0, int pc,
            double* qtr, double* rmat, double* step, double* dst, double* qcopy, double* td,
            double* tg, double* v, double* w, double* wlm, double* x, const double* x0);
void dg7qsb(const double* b, const double* d, double* dihdi, const double* g, int* ipiv,
            int* ipiv1, int* ipiv2, int& ka, double* l, int p, int& p0, int pc,
            double* step, double* dst, double* td, double* tg, double* v, double* w,
            double* x, const double* x0);
void ds7lup(double* a, double cosmin, int p, double size, const double* step, double* u,
            double* w, const double* wchmtd, double& wscale, const double* y);
void da7sst(int* iv, int liv, int lv, double* v);

// ---- covariance (covariance.cpp) -------------------------------------------
void covariance_begin(int* iv, int n, int nd, int p, const double* d, double* dr,
                      double* r, double* rd, double* v, double* x);
void covariance_continue(int* iv, int n, int nd, int p, const double* d, double* dr,
                         double* r, double* rd, double* v, double* x);

// ---- iteration, regression cores, drivers ----------------------------------
// dg7lit: the iteration without bounds; dg7itb: the same with bounds b (p
// pairs lower, upper).  y: J_old' r at the new point (the secant update's
// right-hand side; V(IV(Y)) when called by drn2g and drn2gb).
void dg7lit(double* d, const double* g, int* iv, int liv, int lv, int p, int ps,
            double* v, double* x, const double* y);
void dg7itb(const double* b, double* d, const double* g, int* iv, int liv, int lv, int p,
            int ps, double* v, double* x, const double* y);
void drn2g(double* d, double* dr, int* iv, int liv, int lv, int n, int nd, int n1,
           int n2, int p, double* r, double* rd, double* v, double* x);
void drn2gb(const double* b, double* d, double* dr, int* iv, int liv, int lv, int n,
            int nd, int n1, int n2, int p, double* r, double* rd, double* v, double* x);
void dn2f(int n, int p, double* x, const Calcr& calcr, int* iv, int liv, int lv,
          double* v);
void dn2fb(int n, int p, double* x, const double* b, const Calcr& calcr, int* iv,
           int liv, int lv, double* v);
// The same iterations with the Jacobian from calcj instead of forward
// differences (the library's dn2g and dn2gb); storage and IV, V as for
// dn2f and dn2fb.
void dn2g(int n, int p, double* x, const Calcr& calcr, const Calcj& calcj, int* iv, int liv,
          int lv, double* v);
void dn2gb(int n, int p, double* x, const double* b, const Calcr& calcr, const Calcj& calcj,
           int* iv, int liv, int lv, double* v);

}  // namespace vexor::port
