// The assessment of each trial step of the iteration (da7sst): accept it,
// retry with the other model or another radius, or stop on convergence.
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

// Assesses the candidate step x = x0 + step from the scalars in V (F, F0,
// PREDUC, GTSTEP, DSTNRM, STPPAR, NREDUC, DST0, RELDX) and recommends the
// next action in IV(IRC) (codes above).  Up to IV(STGLIM) models are tried
// per iteration; the best point found so far is remembered (V(FLSTGD),
// IV(MLSTGD), V(PLSTGD), V(GTSLST), V(DSTSAV)), and IV(RESTOR) tells the
// caller what to do with x: 0 keep it, 1 restore x0, 2 save the step, 3
// restore the saved step.  IV(SWITCH) = 1 when a new model did worse and the
// previous one is reinstated.  Radius factors: after a poor step the
// minimizer of the quadratic through f0, g's and f along the step (at least
// RDFCMN); after a good one up to RDFCMX, or 1 when the ratio of actual to
// predicted reduction is below TUNER3 (IRC 3 then asks for the gradient
// tests).  The convergence tests follow: absolute (|f| < AFCTOL), singular
// (the reduction predicted for a step of length LMAXS is at most
// SCTOL*|f0|), relative (Newton step's predicted reduction at most
// RFCTOL*|f0|), x-convergence (a Newton step with RELDX <= XCTOL), and
// false convergence (no decrease with RELDX <= XFTOL); they are made only
// when the actual reduction is at most twice the predicted one.
void da7sst(int* iv, int liv, int lv, double* v) {
  (void)liv;
  (void)lv;
  int nfc = I(iv, NFCALL);
  I(iv, SWITCH) = 0;
  I(iv, RESTOR) = 0;
  double rfac1 = 1.0;
  bool goodx = true;
  const double f0 = R(v, F0);

  enum Step { NEW_ITER, SMALLER, NEW_MODEL, SAME_MODEL, OVERSIZE, COMPARE, RESTORE_BEST,
              DECREASE, FALSE_TEST, CONVERGENCE_TESTS, RESTART, LMAXS_TEST };
  Step at;
  int i = I(iv, IRC);
  switch (i) {
    case 1: at = SMALLER; break;
    case 2: at = NEW_MODEL; break;
    case 3:
    case 4: at = NEW_ITER; break;
    case 5: at = SAME_MODEL; break;
    case 6: at = LMAXS_TEST; break;
    case 7: case 8: case 9: case 10: case 11: at = RESTART; break;
    case 12: at = FALSE_TEST; break;
    default: I(iv, IRC) = IRC_BAD; return;
  }

  // Sets RADFAC by Fletcher's decrease factor and goes on to the tests.
  auto fletcher = [&]() {
    I(iv, XIRC) = I(iv, IRC);
    const double emax = R(v, GTSTEP) + R(v, FDIF);
    R(v, RADFAC) = 0.5 * rfac1;
    if (emax < R(v, GTSTEP))
      R(v, RADFAC) = rfac1 * std::max(R(v, RDFCMN), 0.5 * R(v, GTSTEP) / emax);
  };
  auto oversize = [&]() {  // step too big: shrink by DECFAC, restore x0
    R(v, RADFAC) = R(v, DECFAC);
    I(iv, RADINC) -= 1;
    I(iv, IRC) = IRC_RECOMPUTE;
    I(iv, RESTOR) = 1;
  };
  auto save_good = [&]() {
    R(v, FLSTGD) = R(v, F);
    I(iv, MLSTGD) = I(iv, MODEL);
    if (I(iv, RESTOR) != 1) I(iv, RESTOR) = 2;
    R(v, DSTSAV) = R(v, DSTNRM);
    I(iv, NFGCAL) = nfc;
    R(v, PLSTGD) = R(v, PREDUC);
    R(v, GTSLST) = R(v, GTSTEP);
  };

  bool tests = false;      // go on to the convergence tests
  bool set_xirc = false;   // IV(XIRC) = IV(IRC) before them
  for (bool more = true; more;) {
    switch (at) {
      case NEW_ITER:
        I(iv, STAGE) = 1;
        I(iv, RADINC) = 0;
        R(v, FLSTGD) = f0;
        if (I(iv, TOOBIG) == 0) { at = DECREASE; break; }
        I(iv, STAGE) = -1;
        I(iv, XIRC) = i;
        oversize();
        return;
      case SMALLER:
        if (I(iv, MODEL) != I(iv, MLSTGD)) { at = NEW_MODEL; break; }
        // The old model was kept and a smaller radius tried: no more new
        // models this iteration.
        I(iv, STAGE) = I(iv, STGLIM);
        I(iv, RADINC) = -1;
        at = DECREASE;
        break;
      case NEW_MODEL:
        I(iv, STAGE) += 1;
        at = SAME_MODEL;
        break;
      case SAME_MODEL:
        if (I(iv, STAGE) > 0) { at = OVERSIZE; break; }
        // The step was recomputed because it was too big.
        if (I(iv, TOOBIG) != 0) { oversize(); return; }
        I(iv, STAGE) = -I(iv, STAGE);
        switch (I(iv, XIRC)) {
          case 1: at = SMALLER; break;
          case 2: at = NEW_MODEL; break;
          case 5: at = COMPARE; break;
          default: at = DECREASE; break;
        }
        break;
      case OVERSIZE:
        if (I(iv, TOOBIG) == 0) { at = COMPARE; break; }
        if (I(iv, RADINC) > 0) { at = RESTORE_BEST; break; }
        I(iv, STAGE) = -I(iv, STAGE);
        I(iv, XIRC) = I(iv, IRC);
        oversize();
        return;
      case COMPARE:
        if (R(v, F) < R(v, FLSTGD)) { at = DECREASE; break; }
        // The new step is a loser: reinstate the old model.
        if (I(iv, MODEL) != I(iv, MLSTGD)) {
          I(iv, MODEL) = I(iv, MLSTGD);
          I(iv, SWITCH) = 1;
        }
        at = RESTORE_BEST;
        break;
      case RESTORE_BEST:
        // Go back to the best step only if it decreased f.
        if (R(v, FLSTGD) < f0) {
          I(iv, RESTOR) = 1;
          R(v, F) = R(v, FLSTGD);
          R(v, PREDUC) = R(v, PLSTGD);
          R(v, GTSTEP) = R(v, GTSLST);
          if (I(iv, SWITCH) == 0) rfac1 = R(v, DSTNRM) / R(v, DSTSAV);
          R(v, DSTNRM) = R(v, DSTSAV);
          nfc = I(iv, NFGCAL);
          goodx = false;
        }
        at = DECREASE;
        break;
      case DECREASE: {
        R(v, FDIF) = f0 - R(v, F);
        if (R(v, FDIF) > R(v, TUNER2) * R(v, PREDUC) || I(iv, RADINC) > 0) {
          // A nontrivial decrease.
          I(iv, NFGCAL) = nfc;
          rfac1 = 1.0;
          R(v, DSTSAV) = R(v, DSTNRM);
          if (R(v, FDIF) > R(v, PREDUC) * R(v, TUNER1)) {
            // A good decrease: grow the radius unless the ratio is modest,
            // the radius was just decreased, or a step was restored.
            if (R(v, FDIF) < -R(v, TUNER3) * R(v, GTSTEP) || I(iv, RADINC) < 0 ||
                I(iv, RESTOR) == 1) {
              R(v, RADFAC) = 1.0;
              I(iv, IRC) = IRC_ACCEPT_TEST;
              set_xirc = tests = true;
              more = false;
              break;
            }
            R(v, RADFAC) = R(v, RDFCMX);
            const double gts = R(v, GTSTEP);
            if (R(v, FDIF) < (0.5 / R(v, RADFAC) - 1.0) * gts)
              R(v, RADFAC) = std::max(R(v, INCFAC), 0.5 * gts / (gts + R(v, FDIF)));
            I(iv, IRC) = IRC_ACCEPT;
            const double dst0 = R(v, DST0);
            if (R(v, STPPAR) == 0.0 ||
                (dst0 >= 0.0 && (dst0 < 2.0 * R(v, DSTNRM) ||
                                 R(v, NREDUC) < 1.2 * R(v, FDIF)))) {
              set_xirc = tests = true;
              more = false;
              break;
            }
            // Not a Newton step: try it again with a larger radius.
            I(iv, IRC) = IRC_RECOMPUTE;
            I(iv, RADINC) += 1;
            save_good();
            set_xirc = tests = true;
            more = false;
            break;
          }
          // Much less decrease than predicted: switch models or accept with
          // a smaller radius.
          I(iv, IRC) = I(iv, STAGE) >= I(iv, STGLIM) ? IRC_ACCEPT : IRC_SWITCH_OR_ACCEPT;
        } else {
          // No (or only a trivial) decrease: new model or smaller radius.
          if (R(v, F) < f0) {
            I(iv, NFGCAL) = nfc;
          } else {
            I(iv, MLSTGD) = I(iv, MODEL);
            R(v, FLSTGD) = R(v, F);
            R(v, F) = f0;
            I(iv, RESTOR) = 1;
          }
          I(iv, IRC) = IRC_SMALLER;
          if (I(iv, STAGE) >= I(iv, STGLIM)) {
            I(iv, IRC) = IRC_RECOMPUTE;
            I(iv, RADINC) -= 1;
          }
        }
        fletcher();
        at = FALSE_TEST;
        break;
      }
      case FALSE_TEST:
        if (R(v, RELDX) <= R(v, XFTOL)) {
          I(iv, IRC) = IRC_FALSE;
          tests = true;
          more = false;
          break;
        }
        I(iv, IRC) = I(iv, XIRC);
        if (R(v, F) < f0) save_good();
        set_xirc = tests = true;
        more = false;
        break;
      case RESTART:
        I(iv, IRC) = I(iv, XIRC);
        if (R(v, DSTSAV) < 0.0) I(iv, IRC) = IRC_FALSE;
        tests = true;
        more = false;
        break;
      case LMAXS_TEST:
        // The step of length LMAXS was computed: finish the singular
        // convergence test with its predicted reduction.
        R(v, GTSTEP) = R(v, GTSLST);
        R(v, DSTNRM) = std::fabs(R(v, DSTSAV));
        I(iv, IRC) = I(iv, XIRC);
        if (R(v, DSTSAV) <= 0.0) I(iv, IRC) = IRC_FALSE;
        R(v, NREDUC) = -R(v, PREDUC);
        R(v, PREDUC) = R(v, PLSTGD);
        I(iv, RESTOR) = 3;
        if (-R(v, NREDUC) <= R(v, SCTOL) * std::fabs(f0)) I(iv, IRC) = 11;
        return;
      default:
        return;
    }
  }
  if (!tests) return;
  if (set_xirc) I(iv, XIRC) = I(iv, IRC);

  // Convergence tests.
  if (I(iv, RESTOR) == 1 && R(v, FLSTGD) < f0) I(iv, RESTOR) = 3;
  if (std::fabs(R(v, F)) < R(v, AFCTOL)) I(iv, IRC) = 10;
  if (0.5 * R(v, FDIF) > R(v, PREDUC)) return;
  const double emax = R(v, RFCTOL) * std::fabs(f0);
  const double emaxs = R(v, SCTOL) * std::fabs(f0);
  if (R(v, PREDUC) <= emaxs && (R(v, DSTNRM) > R(v, LMAXS) || R(v, STPPAR) == 0.0))
    I(iv, IRC) = 11;
  if (R(v, DST0) >= 0.0) {
    int c = 0;
    if ((R(v, NREDUC) > 0.0 && R(v, NREDUC) <= emax) ||
        (R(v, NREDUC) == 0.0 && R(v, PREDUC) == 0.0))
      c = 2;
    if (R(v, STPPAR) == 0.0 && R(v, RELDX) <= R(v, XCTOL) && goodx) c += 1;
    if (c > 0) I(iv, IRC) = c + 6;
  }

  // Consider recomputing the step with length LMAXS for the singular
  // convergence test.
  if (I(iv, IRC) > 5 && I(iv, IRC) != IRC_FALSE) return;
  if (R(v, STPPAR) == 0.0) return;
  if (R(v, DSTNRM) > R(v, LMAXS)) {
    if (0.5 * R(v, DSTNRM) <= R(v, LMAXS)) return;
    const double xmax = R(v, LMAXS) / R(v, DSTNRM);
    if (xmax * (2.0 - xmax) * R(v, PREDUC) >= emaxs) return;
  } else {
    if (R(v, PREDUC) >= emaxs) return;
    if (R(v, DST0) > 0.0 && 0.5 * R(v, DST0) <= R(v, LMAXS)) return;
  }
  if (R(v, NREDUC) < 0.0) {
    if (-R(v, NREDUC) <= R(v, SCTOL) * std::fabs(f0)) I(iv, IRC) = 11;
    return;
  }
  R(v, GTSLST) = R(v, GTSTEP);
  R(v, DSTSAV) = R(v, DSTNRM);
  if (I(iv, IRC) == IRC_FALSE) R(v, DSTSAV) = -R(v, DSTSAV);
  R(v, PLSTGD) = R(v, PREDUC);
  const int was = I(iv, RESTOR);
  I(iv, RESTOR) = was == 3 ? 0 : 2;
  I(iv, IRC) = IRC_LMAXS;
}

}  // namespace vexor::port
