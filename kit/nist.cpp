// The NIST StRD problem files: the model of each problem in the modelling
// language, the reader of a problem file, and the program that fits it.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "kit/kit.h"

namespace vexor::kit {

std::string nistdir(const char* fallback) {
  const char* env = std::getenv("VEXOR_NIST_DIR");
  return env && *env ? env : fallback;
}

// The model of each problem.  A unary minus binds tighter than a power, so
// -(x-b4)^2 is written -((x-b4)^2).
const std::map<std::string, std::string>& nistmodels() {
  static const std::map<std::string, std::string> m = {
      {"Misra1a", "y = b1*(1-exp(-b2*x))"},
      {"Chwirut2", "y = exp(-b1*x)/(b2+b3*x)"},
      {"Chwirut1", "y = exp(-b1*x)/(b2+b3*x)"},
      {"Lanczos3", "y = b1*exp(-b2*x) + b3*exp(-b4*x) + b5*exp(-b6*x)"},
      {"Lanczos2", "y = b1*exp(-b2*x) + b3*exp(-b4*x) + b5*exp(-b6*x)"},
      {"Lanczos1", "y = b1*exp(-b2*x) + b3*exp(-b4*x) + b5*exp(-b6*x)"},
      {"Gauss1", "y = b1*exp(-b2*x) + b3*exp(-((x-b4)^2)/b5^2) + b6*exp(-((x-b7)^2)/b8^2)"},
      {"Gauss2", "y = b1*exp(-b2*x) + b3*exp(-((x-b4)^2)/b5^2) + b6*exp(-((x-b7)^2)/b8^2)"},
      {"Gauss3", "y = b1*exp(-b2*x) + b3*exp(-((x-b4)^2)/b5^2) + b6*exp(-((x-b7)^2)/b8^2)"},
      {"DanWood", "y = b1*x^b2"},
      {"Misra1b", "y = b1 * (1-(1+b2*x/2)^(-2))"},
      {"Kirby2", "y = (b1 + b2*x + b3*x^2) / (1 + b4*x + b5*x^2)"},
      {"Hahn1", "y = (b1+b2*x+b3*x^2+b4*x^3) / (1+b5*x+b6*x^2+b7*x^3)"},
      {"Nelson", "ly = b1 - b2*x1 * exp(-b3*x2)"},
      {"MGH17", "y = b1 + b2*exp(-x*b4) + b3*exp(-x*b5)"},
      {"Misra1c", "y = b1 * (1-(1+2*b2*x)^(-.5))"},
      {"Misra1d", "y = b1*b2*x*((1+b2*x)^(-1))"},
      {"Roszman1", "y = b1 - b2*x - arctan(b3/(x-b4))/pi"},
      {"ENSO",
       "y = b1 + b2*cos(2*pi*x/12) + b3*sin(2*pi*x/12) + b5*cos(2*pi*x/b4) + b6*sin(2*pi*x/b4)"
       " + b8*cos(2*pi*x/b7) + b9*sin(2*pi*x/b7)"},
      {"MGH09", "y = b1*(x^2+x*b2) / (x^2+x*b3+b4)"},
      {"Thurber", "y = (b1 + b2*x + b3*x^2 + b4*x^3) / (1 + b5*x + b6*x^2 + b7*x^3)"},
      {"BoxBOD", "y = b1*(1-exp(-b2*x))"},
      {"Rat42", "y = b1 / (1+exp(b2-b3*x))"},
      {"MGH10", "y = b1 * exp(b2/(x+b3))"},
      {"Eckerle4", "y = (b1/b2) * exp(-0.5*((x-b3)/b2)^2)"},
      {"Rat43", "y = b1 / ((1+exp(b2-b3*x))^(1/b4))"},
      {"Bennett5", "y = b1 * (b2+x)^(-1/b3)"},
  };
  return m;
}

// A parameter line is "b<k> = start1 start2 certified certified-sd"; the
// data heading is the line "Data: y x..." (the header's "Data:" line, which
// counts the variables, has no "y" after it), and every line after it with
// numbers is a record.
bool nistparse(const std::string& path, const std::string& name, NistProblem* pr) {
  std::ifstream in(path);
  if (!in) return false;
  pr->name = name;
  std::string line;
  int lineno = 0;
  bool indata = false;
  while (std::getline(in, line)) {
    ++lineno;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (indata) {
      std::istringstream l(line);
      std::vector<double> row;
      double t;
      while (l >> t) row.push_back(t);
      if (!row.empty()) pr->rows.push_back(row);
      continue;
    }
    std::istringstream l(line);
    std::string w1, w2;
    l >> w1 >> w2;
    if (w1.size() >= 2 && w1[0] == 'b' && std::isdigit(static_cast<unsigned char>(w1[1])) &&
        w2 == "=") {
      double s1, s2, c, sd;
      if (l >> s1 >> s2 >> c >> sd) {
        pr->start1.push_back(s1);
        pr->start2.push_back(s2);
        pr->cert.push_back(c);
        pr->certsd.push_back(sd);
      }
    }
    const std::string rss = "Residual Sum of Squares:";
    const std::size_t at = line.find(rss);
    if (at != std::string::npos && line.find_first_not_of(' ') == at)
      pr->certrss = std::strtod(line.c_str() + at + rss.size(), nullptr);
    if (w1 == "Data:" && (w2 == "y" || w2 == "Y")) {
      pr->datastart = lineno;
      indata = true;
      int cols = 0;
      std::istringstream h(line.substr(line.find("Data:") + 5));
      std::string c;
      while (h >> c) ++cols;
      pr->npred = cols - 1;
    }
  }
  pr->npar = static_cast<int>(pr->cert.size());
  return indata && pr->npar > 0;
}

std::string nistprogram(const NistProblem& pr, int start, const std::string& dir,
                        const std::string& parfile, const std::string& statements) {
  std::string prog;
  prog += pr.npred == 1 ? "VARIABLES y, x;\n" : "VARIABLES y, x1, x2;\n";
  prog += "PARAMETERS";
  const auto& s = start == 1 ? pr.start1 : pr.start2;
  for (int k = 0; k < pr.npar; ++k) {
    char b[64];
    std::snprintf(b, sizeof b, "%s b%d = %.17g", k ? "," : "", k + 1, s[k]);
    prog += b;
  }
  prog += ";\n";
  if (pr.name == "Nelson") prog += "DOUBLE ly;\nly = log(y);\n";
  prog += statements;
  prog += "FUNCTION " + nistmodels().at(pr.name) + ";\n";
  if (!parfile.empty()) prog += "POUTPUT \"" + parfile + "\";\n";
  prog += "DATASKIP " + std::to_string(pr.datastart) + ";\n";
  prog += "DATA \"" + dir + "/" + pr.name + ".dat\";\n";
  return prog;
}

}  // namespace vexor::kit
