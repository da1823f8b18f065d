// A figure as an SVG document: a frame with ticks at 1, 2 or 5 times a power
// of ten, their labels, an optional grid, the title and axis labels, and
// each series as marks, a polyline through its points in order of x, or a
// curve (a polyline that a NaN breaks).
//
// Layout, in pixels (the document's user units): a margin of 70 on the left
// for the tick labels and the Y label, 20 on the right, 40 at the top for
// the title, 55 at the bottom for the tick labels and the X label.  The data
// range is padded by 4% on each side (a range of zero width becomes +/- 1
// about its value, or +/- 1% of it).  The plot area's <g> carries the range
// and its pixel box as data- attributes.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "cli/cli.h"

namespace vexor::cli {

namespace {

constexpr double LEFT = 70, RIGHT = 20, TOP = 40, BOTTOM = 55;

std::string escape(const std::string& s) {
  std::string o;
  for (char c : s) {
    switch (c) {
      case '&': o += "&amp;"; break;
      case '<': o += "&lt;"; break;
      case '>': o += "&gt;"; break;
      case '"': o += "&quot;"; break;
      default: o += c;
    }
  }
  return o;
}

std::string fmt(double v) {
  char b[32];
  std::snprintf(b, sizeof b, "%.2f", v);
  return b;
}

struct Range {
  double lo, hi;
};

Range padded(double lo, double hi) {
  if (!(lo < hi)) {
    const double d = lo != 0.0 ? std::fabs(lo) * 0.01 : 1.0;
    return {lo - d, hi + d};
  }
  const double pad = (hi - lo) * 0.04;
  return {lo - pad, hi + pad};
}

// Ticks at multiples of 1, 2 or 5 times a power of ten, about five to
// eight of them inside the range.
std::vector<double> ticks(Range r, double* step) {
  const double span = r.hi - r.lo;
  const double raw = span / 6.0;
  const double mag = std::pow(10.0, std::floor(std::log10(raw)));
  double s = mag;
  for (double m : {1.0, 2.0, 5.0, 10.0}) {
    s = m * mag;
    if (span / s <= 8.0) break;
  }
  *step = s;
  std::vector<double> t;
  for (double v = std::ceil(r.lo / s) * s; v <= r.hi + s * 1e-9; v += s)
    t.push_back(std::fabs(v) < s * 1e-9 ? 0.0 : v);
  return t;
}

// A tick label: as many decimals as the step needs, no exponent between
// 1e-4 and 1e6.
std::string ticklabel(double v, double step) {
  char b[32];
  const double a = std::max(std::fabs(v), step);
  if (a >= 1e6 || a < 1e-4) {
    std::snprintf(b, sizeof b, "%.3g", v);
  } else {
    const int dec = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
    std::snprintf(b, sizeof b, "%.*f", dec, v);
  }
  return b;
}

}  // namespace

std::string svg(const Figure& f) {
  // The data range over every finite point.
  double xlo = INFINITY, xhi = -INFINITY, ylo = INFINITY, yhi = -INFINITY;
  for (const Series& s : f.series) {
    for (std::size_t i = 0; i < s.x.size() && i < s.y.size(); ++i) {
      if (!std::isfinite(s.x[i]) || !std::isfinite(s.y[i])) continue;
      xlo = std::min(xlo, s.x[i]);
      xhi = std::max(xhi, s.x[i]);
      ylo = std::min(ylo, s.y[i]);
      yhi = std::max(yhi, s.y[i]);
    }
  }
  if (!std::isfinite(xlo)) xlo = 0, xhi = 1, ylo = 0, yhi = 1;
  const Range xr = padded(xlo, xhi), yr = padded(ylo, yhi);
  const double w = f.width, h = f.height;
  const double pw = w - LEFT - RIGHT, ph = h - TOP - BOTTOM;
  auto px = [&](double x) { return LEFT + (x - xr.lo) / (xr.hi - xr.lo) * pw; };
  auto py = [&](double y) { return TOP + (yr.hi - y) / (yr.hi - yr.lo) * ph; };

  std::string o;
  o += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  o += "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + fmt(w) + "\" height=\"" + fmt(h) +
       "\" viewBox=\"0 0 " + fmt(w) + " " + fmt(h) + "\" font-family=\"DejaVu Sans, Arial, sans-serif\">\n";
  o += "<rect x=\"0\" y=\"0\" width=\"" + fmt(w) + "\" height=\"" + fmt(h) + "\" fill=\"#ffffff\"/>\n";
  char attrs[512];
  std::snprintf(attrs, sizeof attrs,
                "<g id=\"plot-area\" data-xmin=\"%.17g\" data-xmax=\"%.17g\" data-ymin=\"%.17g\" "
                "data-ymax=\"%.17g\" data-left=\"%.17g\" data-top=\"%.17g\" data-width=\"%.17g\" "
                "data-height=\"%.17g\">\n",
                xr.lo, xr.hi, yr.lo, yr.hi, LEFT, TOP, pw, ph);
  o += attrs;

  double xstep = 1, ystep = 1;
  const std::vector<double> xt = ticks(xr, &xstep), yt = ticks(yr, &ystep);
  if (f.grid) {
    for (double t : xt)
      o += "<line x1=\"" + fmt(px(t)) + "\" y1=\"" + fmt(TOP) + "\" x2=\"" + fmt(px(t)) + "\" y2=\"" +
           fmt(TOP + ph) + "\" stroke=\"#dddddd\" stroke-width=\"1\"/>\n";
    for (double t : yt)
      o += "<line x1=\"" + fmt(LEFT) + "\" y1=\"" + fmt(py(t)) + "\" x2=\"" + fmt(LEFT + pw) +
           "\" y2=\"" + fmt(py(t)) + "\" stroke=\"#dddddd\" stroke-width=\"1\"/>\n";
  }
  // Series: lines first, marks on top.
  for (const Series& s : f.series) {
    if (!s.line && !s.curve) continue;
    std::vector<std::size_t> order(std::min(s.x.size(), s.y.size()));
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    if (s.line)
      std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return s.x[a] < s.x[b]; });
    std::string pts;
    auto flush = [&]() {
      if (pts.find(' ') != std::string::npos)
        o += std::string("<polyline class=\"") + (s.curve ? "curve" : "line") + "\" points=\"" + pts +
             "\" fill=\"none\" stroke=\"" + s.colour + "\" stroke-width=\"2\"/>\n";
      pts.clear();
    };
    for (std::size_t i : order) {
      if (!std::isfinite(s.x[i]) || !std::isfinite(s.y[i])) {
        flush();
        continue;
      }
      if (!pts.empty()) pts += " ";
      pts += fmt(px(s.x[i])) + "," + fmt(py(s.y[i]));
    }
    flush();
  }
  for (const Series& s : f.series) {
    if (!s.marks) continue;
    for (std::size_t i = 0; i < s.x.size() && i < s.y.size(); ++i) {
      if (!std::isfinite(s.x[i]) || !std::isfinite(s.y[i])) continue;
      o += "<circle class=\"point\" cx=\"" + fmt(px(s.x[i])) + "\" cy=\"" + fmt(py(s.y[i])) +
           "\" r=\"4\" fill=\"" + s.colour + "\"/>\n";
    }
  }
  o += "</g>\n";
  // The frame, ticks and their labels.
  o += "<rect x=\"" + fmt(LEFT) + "\" y=\"" + fmt(TOP) + "\" width=\"" + fmt(pw) + "\" height=\"" + fmt(ph) +
       "\" fill=\"none\" stroke=\"#000000\" stroke-width=\"1\"/>\n";
  for (double t : xt) {
    o += "<line x1=\"" + fmt(px(t)) + "\" y1=\"" + fmt(TOP + ph) + "\" x2=\"" + fmt(px(t)) + "\" y2=\"" +
         fmt(TOP + ph + 5) + "\" stroke=\"#000000\"/>\n";
    o += "<text x=\"" + fmt(px(t)) + "\" y=\"" + fmt(TOP + ph + 18) +
         "\" font-size=\"12\" text-anchor=\"middle\">" + escape(ticklabel(t, xstep)) + "</text>\n";
  }
  for (double t : yt) {
    o += "<line x1=\"" + fmt(LEFT - 5) + "\" y1=\"" + fmt(py(t)) + "\" x2=\"" + fmt(LEFT) + "\" y2=\"" +
         fmt(py(t)) + "\" stroke=\"#000000\"/>\n";
    o += "<text x=\"" + fmt(LEFT - 8) + "\" y=\"" + fmt(py(t) + 4) +
         "\" font-size=\"12\" text-anchor=\"end\">" + escape(ticklabel(t, ystep)) + "</text>\n";
  }
  if (!f.title.empty())
    o += "<text x=\"" + fmt(LEFT + pw / 2) + "\" y=\"24\" font-size=\"16\" text-anchor=\"middle\">" +
         escape(f.title) + "</text>\n";
  if (!f.xlabel.empty())
    o += "<text x=\"" + fmt(LEFT + pw / 2) + "\" y=\"" + fmt(h - 12) +
         "\" font-size=\"13\" text-anchor=\"middle\">" + escape(f.xlabel) + "</text>\n";
  if (!f.ylabel.empty())
    o += "<text x=\"16\" y=\"" + fmt(TOP + ph / 2) + "\" font-size=\"13\" text-anchor=\"middle\" transform=\"rotate(-90 16 " +
         fmt(TOP + ph / 2) + ")\">" + escape(f.ylabel) + "</text>\n";
  o += "</svg>\n";
  return o;
}

}  // namespace vexor::cli
