// The results of a run in machine-readable form: one JSON document
// (--format json) or the parameter table as CSV (--format csv).  Numbers
// are written in the shortest form that reads back to the same double
// (%.17g when nothing shorter does); a value that is not finite, or not
// computed, is null in JSON and an empty field in CSV.  The README gives the
// schema.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "api/tool.h"
#include "cli/cli.h"

namespace vexor::cli {

namespace {

std::string quoted(const std::string& s) {
  std::string o = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': o += "\\\""; break;
      case '\\': o += "\\\\"; break;
      case '\n': o += "\\n"; break;
      case '\r': o += "\\r"; break;
      case '\t': o += "\\t"; break;
      default:
        if (c < 0x20) {
          char b[8];
          std::snprintf(b, sizeof b, "\\u%04x", c);
          o += b;
        } else {
          o += static_cast<char>(c);
        }
    }
  }
  return o + "\"";
}

// A JSON object written member by member.
class Object {
 public:
  explicit Object(std::string* out, int indent) : out_(out), indent_(indent) { *out_ += "{"; }
  void key(const char* k) {
    *out_ += first_ ? "\n" : ",\n";
    first_ = false;
    out_->append(static_cast<std::size_t>(indent_ + 2), ' ');
    *out_ += quoted(k) + ": ";
  }
  void num(const char* k, double v) { key(k), *out_ += number(v); }
  void integer(const char* k, long v) { key(k), *out_ += std::to_string(v); }
  void str(const char* k, const std::string& v) { key(k), *out_ += quoted(v); }
  void boolean(const char* k, bool v) { key(k), *out_ += v ? "true" : "false"; }
  void null(const char* k) { key(k), *out_ += "null"; }
  void raw(const char* k, const std::string& v) { key(k), *out_ += v; }
  void close() {
    *out_ += "\n";
    out_->append(static_cast<std::size_t>(indent_), ' ');
    *out_ += "}";
  }

 private:
  std::string* out_;
  int indent_;
  bool first_ = true;
};

// An array of objects, one per item, each filled by fill(object, item);
// the members at the document's second level.
template <class T, class F>
std::string objects(const std::vector<T>& items, F fill) {
  std::string v = "[";
  for (std::size_t k = 0; k < items.size(); ++k) {
    v += k ? ",\n    " : "\n    ";
    Object o(&v, 4);
    fill(o, items[k]);
    o.close();
  }
  return v + (items.empty() ? "]" : "\n  ]");
}

std::string numbers(const std::vector<double>& v, std::size_t from, std::size_t count) {
  std::string o = "[";
  for (std::size_t i = 0; i < count; ++i) o += (i ? ", " : "") + number(v[from + i]);
  return o + "]";
}

std::string strings(const std::vector<std::string>& v) {
  std::string o = "[";
  for (std::size_t i = 0; i < v.size(); ++i) o += (i ? ", " : "") + quoted(v[i]);
  return o + "]";
}

// {"names": [...], "matrix": [[...], ...]}
std::string matrix(const std::vector<std::string>& names, const std::vector<double>& m, int indent) {
  std::string o;
  Object obj(&o, indent);
  obj.raw("names", strings(names));
  std::string rows = "[";
  const std::size_t n = names.size();
  for (std::size_t r = 0; r < n; ++r) {
    rows += r ? ",\n" : "\n";
    rows.append(static_cast<std::size_t>(indent + 4), ' ');
    rows += numbers(m, r * n, n);
  }
  rows += "\n";
  rows.append(static_cast<std::size_t>(indent + 2), ' ');
  rows += "]";
  obj.raw("matrix", rows);
  obj.close();
  return o;
}

}  // namespace

std::string number(double v, const char* none) {
  if (!std::isfinite(v)) return none;
  char buf[32];
  for (int digits = 15; digits <= 17; ++digits) {
    std::snprintf(buf, sizeof buf, "%.*g", digits, v);
    if (std::strtod(buf, nullptr) == v) break;
  }
  return buf;
}

std::string resultsjson(Session& s, int result, bool residuals) {
  const tool::Program p = tool::program();
  const tool::Results r = tool::results();
  std::string o;
  Object doc(&o, 0);
  doc.str("vexor", "5.4");
  doc.str("program", s.shown);
  doc.str("title", p.title);
  {
    std::string v;
    Object res(&v, 2);
    res.integer("code", result);
    res.boolean("converged", result > 0);
    if (r.ready) res.str("stop_reason", r.stopreason); else res.null("stop_reason");
    res.integer("iterations", r.ready ? r.iterations : 0);
    res.integer("evaluations", r.ready ? r.evaluations : 0);
    res.close();
    doc.raw("result", v);
  }
  doc.boolean("minimization", p.minimize);
  doc.integer("observations", r.ready ? r.observations : 0);
  if (!p.minimize && p.dependent >= 0)
    doc.str("dependent_variable", p.variables[static_cast<std::size_t>(p.dependent)]);
  else
    doc.null("dependent_variable");
  if (r.intervals) doc.num("confidence_level", r.level); else doc.null("confidence_level");
  doc.raw("parameters", objects(r.parameters, [](Object& par, const tool::Parameter& q) {
            par.str("name", q.name);
            par.num("start", q.start);
            par.num("estimate", q.estimate);
            par.num("std_error", q.stderror);
            par.num("t", q.t);
            par.num("prob_t", q.prob);
            par.num("lower", q.lower);
            par.num("upper", q.upper);
          }));
  if (r.ready) {
    std::string v;
    Object st(&v, 2);
    if (r.minimize) {
      st.num("function_value", r.funcvalue);
    } else {
      st.num("sum_of_squares", r.sumsq);
      st.num("sum_of_deviations", r.sumdev);
      st.num("average_deviation", r.avgdev);
      st.num("maximum_deviation", r.maxdev);
      if (r.haserror) st.num("std_error_of_estimate", r.stderror); else st.null("std_error_of_estimate");
      st.num("r_squared", r.rsquare);
      st.num("adjusted_r_squared", r.adjrsquare);
      st.num("durbin_watson", r.durbinwatson);
    }
    st.num("runtime_seconds", r.runtime);
    st.close();
    doc.raw("statistics", v);
  } else {
    doc.null("statistics");
  }
  if (r.hasanova) {
    const tool::Anova& a = r.anova;
    std::string v;
    Object an(&v, 2);
    auto source = [&](const char* k, int df, double ss, double ms, bool withms) {
      std::string w;
      Object src(&w, 4);
      src.integer("df", df);
      src.num("sum_of_squares", ss);
      if (withms) src.num("mean_square", ms);
      src.close();
      an.raw(k, w);
    };
    source("regression", a.regdf, a.regss, a.regms, a.full);
    source("error", a.errdf, a.sse, a.errms, a.full);
    source("total", a.totdf, a.stot, 0.0, false);
    if (a.full) {
      an.num("f", a.f);
      an.num("prob_f", a.probf);
    } else {
      an.null("f");
      an.null("prob_f");
    }
    an.close();
    doc.raw("anova", v);
  } else {
    doc.null("anova");
  }
  doc.raw("variables", objects(r.variables, [](Object& var, const tool::Variable& x) {
            var.str("name", x.name);
            var.num("min", x.min);
            var.num("max", x.max);
            var.num("mean", x.mean);
            var.num("sd", x.sd);
          }));
  if (r.hascovariance) {
    std::vector<std::string> names;
    for (const tool::Parameter& q : r.parameters) names.push_back(q.name);
    doc.raw("covariance", matrix(names, r.covariance, 2));
  } else {
    doc.null("covariance");
  }
  if (!r.correlation.empty())
    doc.raw("correlation", matrix(r.corrnames, r.correlation, 2));
  else
    doc.null("correlation");
  if (residuals) {
    if (!r.observed.empty()) {
      std::vector<double> res(r.observed.size());
      for (std::size_t i = 0; i < res.size(); ++i) res[i] = r.observed[i] - r.predicted[i];
      std::string v;
      Object rs(&v, 2);
      rs.raw("observed", numbers(r.observed, 0, r.observed.size()));
      rs.raw("predicted", numbers(r.predicted, 0, r.predicted.size()));
      rs.raw("residual", numbers(res, 0, res.size()));
      rs.close();
      doc.raw("residuals", v);
    } else {
      doc.null("residuals");
    }
  }
  doc.close();
  return o + "\n";
}

std::string parameterscsv() {
  const tool::Results r = tool::results();
  std::string o = "name,start,estimate,std_error,t,prob_t,lower,upper\n";
  for (const tool::Parameter& q : r.parameters) {
    o += q.name;
    for (double v : {q.start, q.estimate, q.stderror, q.t, q.prob, q.lower, q.upper})
      o += "," + number(v, "");
    o += "\n";
  }
  return o;
}

}  // namespace vexor::cli
