// The plots of a run (--plots DIR): each PLOT, RPLOT, NPLOT and SPLOT
// request of the program drawn as an SVG file, or, when it makes none, the
// fit and the residuals.
//   PLOT   the observations of Y against X and the fitted curve, the model
//          evaluated at 201 points over DOMAIN or the range of X (the other
//          input variables at their values in the first observation);
//   RPLOT  the residuals (observed - predicted) against X, with the zero line;
//   NPLOT  the residuals in increasing order against their expected values
//          under normality, s z_i with z_i the normal quantile of
//          (i - 3/8) / (n + 1/4) (Blom) and s the standard error of estimate,
//          with the line y = x;
//   SPLOT  Y against X, and Y2 against X2 when given; CONNECT joins the
//          points in order of X, NOMARK leaves the marks out (CONNECT2,
//          NOMARK2 for the second series).
// The request's title, labels and GRID are kept; the width follows
// PLOTWIDTH (80 pixels an inch), the height is three quarters of it.
// ITERATIONS, PRINT, NOPAUSE, VALUES and RESIDUAL concern an interactive
// display and are not drawn.  File names: <program>-<n>-<kind>.svg, or
// <program>-fit.svg and <program>-residuals.svg.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>

#include "api/tool.h"
#include "cli/cli.h"

namespace vexor::cli {

namespace {

constexpr const char* BLUE = "#1f77b4";
constexpr const char* RED = "#d62728";
constexpr const char* GREEN = "#2ca02c";
constexpr const char* GREY = "#7f7f7f";
constexpr int CURVEPOINTS = 201;

std::string lower(std::string s) {
  for (char& ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  return s;
}

int indexof(const std::vector<std::string>& names, const std::string& name) {
  for (std::size_t i = 0; i < names.size(); ++i)
    if (lower(names[i]) == lower(name)) return static_cast<int>(i);
  return -1;
}

struct Context {
  Session* s;
  tool::Program program;
  tool::Results results;
  std::vector<double> first;  // the first observation's input values
  bool failed = false;        // a run of the program failed while drawing
};

std::vector<double> valuesof(Context& c, const std::string& name) {
  std::vector<double> v;
  if (!tool::values(name, &v)) c.failed = true;
  return v;
}

std::vector<double> residuals(const Context& c) {
  std::vector<double> r(c.results.observed.size());
  for (std::size_t i = 0; i < r.size(); ++i) r[i] = c.results.observed[i] - c.results.predicted[i];
  return r;
}

// The fitted curve over [lo, hi] with input x at index xi.
Series curve(Context& c, int xi, double lo, double hi) {
  Series s;
  s.marks = false;
  s.curve = true;
  s.colour = RED;
  for (int k = 0; k < CURVEPOINTS; ++k) {
    const double x = lo + (hi - lo) * k / (CURVEPOINTS - 1);
    std::vector<double> in = c.first;
    if (xi >= 0 && static_cast<std::size_t>(xi) < in.size()) in[static_cast<std::size_t>(xi)] = x;
    tool::Point p{};
    std::string why;
    s.x.push_back(x);
    s.y.push_back(tool::predict(in, 0, 0.0, &p, &why) ? p.value : NAN);
  }
  return s;
}

Series points(std::vector<double> x, std::vector<double> y, const char* colour) {
  Series s;
  s.x = std::move(x);
  s.y = std::move(y);
  s.colour = colour;
  return s;
}

Series line(double x0, double y0, double x1, double y1, const char* colour) {
  Series s;
  s.x = {x0, x1};
  s.y = {y0, y1};
  s.marks = false;
  s.curve = true;
  s.colour = colour;
  return s;
}

std::pair<double, double> span(const std::vector<double>& v) {
  double lo = INFINITY, hi = -INFINITY;
  for (double x : v)
    if (std::isfinite(x)) lo = std::min(lo, x), hi = std::max(hi, x);
  if (!std::isfinite(lo)) return {0.0, 1.0};
  return {lo, hi};
}

Figure fitfigure(Context& c, const std::string& xname, const std::string& yname, bool domain, double dlo,
                 double dhi) {
  Figure f;
  std::vector<double> xs = valuesof(c, xname);
  f.series.push_back(points(xs, valuesof(c, yname), BLUE));
  auto [lo, hi] = domain ? std::make_pair(dlo, dhi) : span(xs);
  f.series.insert(f.series.begin(), curve(c, indexof(c.program.variables, xname), lo, hi));
  return f;
}

Figure rfigure(Context& c, const std::string& xname) {
  Figure f;
  std::vector<double> xs = valuesof(c, xname);
  auto [lo, hi] = span(xs);
  f.series.push_back(line(lo, 0.0, hi, 0.0, GREY));
  f.series.push_back(points(xs, residuals(c), BLUE));
  return f;
}

Figure nfigure(Context& c) {
  Figure f;
  std::vector<double> r = residuals(c);
  std::sort(r.begin(), r.end());
  const double n = static_cast<double>(r.size());
  double scale = c.results.haserror ? c.results.stderror : 0.0;
  if (!(scale > 0.0)) {
    double ss = 0.0;
    for (double v : r) ss += v * v;
    scale = n > 1 ? std::sqrt(ss / (n - 1)) : 1.0;
  }
  std::vector<double> z(r.size());
  for (std::size_t i = 0; i < r.size(); ++i) z[i] = scale * tool::normalquantile((i + 1 - 0.375) / (n + 0.25));
  auto [lo, hi] = span(z);
  f.series.push_back(line(lo, lo, hi, hi, GREY));
  f.series.push_back(points(z, r, BLUE));
  return f;
}

Figure sfigure(Context& c, const tool::Plot& p) {
  Figure f;
  Series one = points(valuesof(c, p.x), valuesof(c, p.y), BLUE);
  one.marks = !p.nomark;
  one.line = p.connect;
  f.series.push_back(one);
  if (!p.y2.empty()) {
    Series two = points(valuesof(c, p.x2.empty() ? p.x : p.x2), valuesof(c, p.y2), GREEN);
    two.marks = !p.nomark2;
    two.line = p.connect2;
    f.series.push_back(two);
  }
  return f;
}

bool write(Context& c, const std::string& dir, const std::string& name, Figure f,
           std::vector<std::string>* written) {
  f.width = c.program.plotwidth > 0 ? c.program.plotwidth * 80.0 : 640.0;
  if (f.width < 320) f.width = 320;
  if (f.width > 4000) f.width = 4000;
  f.height = f.width * 0.75;
  const std::string path = (std::filesystem::path(dir) / name).string();
  std::string why;
  if (!writeatomic(path, svg(f), &why)) {
    error("cannot write the plot %s: %s", path.c_str(), why.c_str());
    return false;
  }
  written->push_back(path);
  return true;
}

}  // namespace

bool drawplots(Session& s, const std::string& dir, std::vector<std::string>* written) {
  Context c{&s, tool::program(), tool::results(), {}, false};
  if (c.program.minimize || !c.results.ready || c.results.observed.empty()) {
    warning("%s: no plots: %s", s.shown.c_str(),
            c.program.minimize ? "the program asks for a minimum, not a fit of observations"
                               : "the fit did not run");
    return true;
  }
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    error("cannot make the folder %s for the plots: %s", dir.c_str(), ec.message().c_str());
    return false;
  }
  for (const std::string& v : c.program.variables) {
    std::vector<double> x = valuesof(c, v);
    c.first.push_back(x.empty() ? 0.0 : x[0]);
  }
  std::string stem = s.program == "-" ? "stdin" : std::filesystem::path(s.program).stem().string();
  bool ok = true;
  const std::vector<tool::Plot> requests = tool::plots();
  static const char* const kinds[] = {"", "plot", "rplot", "nplot", "splot"};
  int n = 0;
  for (const tool::Plot& p : requests) {
    ++n;
    Figure f;
    switch (p.kind) {
      case tool::PLOT_PLOT: f = fitfigure(c, p.x, p.y, p.domain, p.domainlo, p.domainhi); break;
      case tool::PLOT_RPLOT: f = rfigure(c, p.x); break;
      case tool::PLOT_NPLOT: f = nfigure(c); break;
      default: f = sfigure(c, p); break;
    }
    f.title = p.notitle ? "" : p.title;
    f.xlabel = p.noxlabel ? "" : p.xlabel;
    f.ylabel = p.noylabel ? "" : p.ylabel;
    f.grid = p.grid;
    const int k = p.kind >= 1 && p.kind <= 4 ? p.kind : 4;
    ok = write(c, dir, stem + "-" + std::to_string(n) + "-" + kinds[k] + ".svg", f, written) && ok;
  }
  if (requests.empty()) {
    // The fit: against the one independent variable, else observed against
    // predicted; the residuals against the predicted values.
    const tool::Program& p = c.program;
    std::vector<std::string> independent;
    for (std::size_t i = 0; i < p.variables.size(); ++i)
      if (static_cast<int>(i) != p.dependent) independent.push_back(p.variables[i]);
    const std::string dep = p.dependent >= 0 ? p.variables[static_cast<std::size_t>(p.dependent)] : "";
    Figure fit;
    if (independent.size() == 1 && !dep.empty()) {
      fit = fitfigure(c, independent[0], dep, false, 0, 0);
      fit.xlabel = independent[0];
      fit.ylabel = dep;
    } else {
      auto [lo, hi] = span(c.results.observed);
      fit.series.push_back(line(lo, lo, hi, hi, GREY));
      fit.series.push_back(points(c.results.predicted, c.results.observed, BLUE));
      fit.xlabel = "Predicted";
      fit.ylabel = "Observed";
    }
    fit.title = p.title.empty() ? "Fit" : p.title;
    ok = write(c, dir, stem + "-fit.svg", fit, written) && ok;
    Figure res;
    auto [lo, hi] = span(c.results.predicted);
    res.series.push_back(line(lo, 0.0, hi, 0.0, GREY));
    res.series.push_back(points(c.results.predicted, residuals(c), BLUE));
    res.title = "Residuals";
    res.xlabel = "Predicted";
    res.ylabel = "Residual";
    ok = write(c, dir, stem + "-residuals.svg", res, written) && ok;
  }
  if (c.failed) warning("%s: the program failed for some observations while the plots were drawn", s.shown.c_str());
  return ok;
}

}  // namespace vexor::cli
