// The command-line tool's door (see tool.h): thin passages to the parts that
// hold what the tool needs, copied into plain records.
#include "api/tool.h"

#include <cmath>

#include "api/coerce.h"
#include "report/report.h"

namespace vexor::tool {

namespace {

Symbol* byname(const std::string& name) { return name.empty() ? nullptr : symfind(name.c_str()); }

std::string nameof(const Symbol* s) { return s ? s->name : ""; }

}  // namespace

BSTR widen(const char* utf8) { return towide(utf8); }

bool narrow(const VARIANT& v, char* buf, std::size_t size) { return vartostring(&v, buf, size); }

void eachline(void (*line)(const char* text, void* context), void* context) {
  lstforeach([&](const char* text) { line(text, context); });
}

void dump(FILE* f) { dumpprog(f); }

void setprogress(void (*progress)(int32_t iteration, double sumsq)) { progresshook = progress; }

void plannedfiles(char* output, char* parameters, std::size_t size) {
  plannedoutputs(output, parameters, size);
}

const char* datafile() { return vexor::datafile; }

FileWrite outputwrite() { return {outrecord.name, outrecord.status}; }

FileWrite parameterwrite() { return {parrecord.name, parrecord.status}; }

Program program() {
  Program p{};
  p.compiled = progstart != nullptr;
  p.minimize = minimize != 0;
  p.dependent = -1;
  for (int32_t i = 0; i < nvar; ++i) {
    p.variables.emplace_back(invars[i]->name);
    if (invars[i] == depvar) p.dependent = i;
  }
  for (int32_t k = 0; k < nparm; ++k) p.parameters.emplace_back(parms[k]->name);
  p.title = title;
  p.confidence = conflevel;
  p.plotwidth = plotwidth;
  return p;
}

std::vector<Trap> traps() {
  std::vector<Trap> v;
  for (int32_t i = 0; i < ntraps; ++i) {
    const vexor::Trap& t = vexor::traps[i];
    v.push_back({t.kind, t.where == TRAPIN_DATAFILE, t.fileline, t.number, t.count, t.text});
  }
  return v;
}

Limits limits() { return {MAXLINE, MAXDATAREC}; }

const double* data(int32_t* rows, int32_t* cols) {
  *rows = datamat ? nobs : 0;
  *cols = nvar;
  return datamat;
}

Results results() {
  const vexor::Results& r = vexor::results;
  Results o{};
  o.ready = r.ready != 0;
  if (!o.ready) {
    // No fit ran: the parameters with their starting values.
    for (int32_t k = 0; k < nparm; ++k)
      o.parameters.push_back({parms[k]->name, parms[k]->initval, parms[k]->value, NAN, NAN, NAN, NAN, NAN});
    return o;
  }
  o.code = r.code;
  o.stopreason = stopreasontext(r.code);
  o.iterations = r.iterations;
  o.evaluations = r.evaluations;
  o.observations = r.n;
  o.minimize = r.minimize != 0;
  o.full = r.full != 0;
  o.intervals = r.ci == CI_SHOWN;
  o.level = r.cilevel;
  for (int32_t k = 0; k < r.p && k < nparm; ++k) {
    const Symbol* s = parms[k];
    Parameter q{s->name, s->initval, s->value, NAN, NAN, NAN, NAN, NAN};
    // A parameter held on a bound (standard errors with bounds) has none.
    const bool held = !r.held.empty() && r.held[k];
    if (o.full && !held) {
      q.stderror = s->stderror;
      q.t = s->tval;
      q.prob = s->pval;
    }
    if (o.intervals && !held) {
      q.lower = s->cilow;
      q.upper = s->cihigh;
    }
    o.parameters.push_back(q);
  }
  o.sumsq = r.summary.sumsq;
  o.sumdev = r.rs.sumdev;
  o.avgdev = r.rs.avgdev;
  o.maxdev = r.rs.maxdev;
  o.haserror = !r.minimize && r.n - r.p > 0;
  o.stderror = std::sqrt(r.summary.variance);
  o.rsquare = r.rs.rsquare;
  o.adjrsquare = r.rs.adjrsquare;
  o.durbinwatson = r.rs.durbinwatson;
  o.runtime = r.summary.runtime;
  o.funcvalue = r.funcvalue;
  o.hasanova = !r.minimize && r.anova.shown;
  if (o.hasanova) {
    const vexor::Anova& a = r.anova;
    o.anova = {a.regdf, a.errdf, a.totdf, r.rs.regss, r.rs.sse, r.rs.stot,
               a.full, a.regms, a.errms, a.f, a.probf};
  }
  for (int32_t i = 0; i < r.ncolumns && i < nvar; ++i) {
    const ColumnStats& c = r.columns[i];
    o.variables.push_back({invars[i]->name, c.min, c.max, c.mean, c.sd});
  }
  if (r.corr) {
    for (int32_t i = 0; i < r.ncorrvars; ++i) o.corrnames.emplace_back(corrvars[i]->name);
    o.correlation.assign(r.corr, r.corr + static_cast<std::size_t>(r.ncorrvars) * r.ncorrvars);
  }
  o.hascovariance = r.covstatus > 0 && r.covariance;
  if (o.hascovariance)
    o.covariance.assign(r.covariance, r.covariance + static_cast<std::size_t>(r.p) * r.p);
  if (obsvec && predvec && !r.minimize) {
    o.observed.assign(obsvec, obsvec + r.n);
    o.predicted.assign(predvec, predvec + r.n);
  }
  return o;
}

std::vector<Plot> plots() {
  std::vector<Plot> v;
  for (const PlotRequest* q = plotfirst; q; q = q->next) {
    Plot p{};
    p.kind = q->kind;
    p.x = nameof(q->xvar);
    p.y = nameof(q->yvar);
    p.x2 = nameof(q->xvar2);
    p.y2 = nameof(q->yvar2);
    p.title = q->title;
    p.xlabel = q->xlabel;
    p.ylabel = q->ylabel;
    p.grid = q->flags & PF_GRID;
    p.notitle = q->flags & PF_NOTITLE;
    p.noxlabel = q->flags2 & PF2_NOXLABEL;
    p.noylabel = q->flags2 & PF2_NOYLABEL;
    p.connect = q->flags2 & PF2_CONNECT;
    p.connect2 = q->flags2 & PF2_CONNECT2;
    p.nomark = q->flags2 & PF2_NOMARK;
    p.nomark2 = q->flags2 & PF2_NOMARK2;
    p.domain = q->flags & PF_DOMAIN;
    p.domainlo = q->domainlo;
    p.domainhi = q->domainhi;
    v.push_back(p);
  }
  return v;
}

double normalquantile(double p) { return vexor::normalquantile(p); }

bool values(const std::string& name, std::vector<double>* out) {
  Symbol* s = byname(name);
  out->assign(static_cast<std::size_t>(nobs > 0 ? nobs : 0), 0.0);
  if (!s || nobs <= 0) return s != nullptr;
  lstcapture();  // what the runs report is not the listing's
  const bool ok = symbolvalues(s, out->data());
  lstcaptured();
  return ok;
}

bool predict(const std::vector<double>& inputs, int band, double level, Point* out,
             std::string* message) {
  std::vector<double> in(static_cast<std::size_t>(nvar > 0 ? nvar : 1), 0.0);
  for (std::size_t i = 0; i < in.size() && i < inputs.size(); ++i) in[i] = inputs[i];
  Prediction p{};
  const bool ok = predictat(in.data(), band, level, &p);
  *out = {p.value, p.se, p.lower, p.upper};
  if (!ok && message) *message = p.message;
  return ok;
}

}  // namespace vexor::tool
