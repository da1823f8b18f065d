// The 27 NIST StRD nonlinear regression problems as programs of the
// modelling language: the model of each, the reader of a problem file
// (starting values, certified values, where the data begin) and the program
// text that fits it from either start.  Shared by the programs test and the
// analysis benchmark.
#pragma once

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace vexor::nist {

// The folder of the problem files: $VEXOR_NIST_DIR when set, else fallback.
inline std::string directory(const char* fallback) {
  const char* env = std::getenv("VEXOR_NIST_DIR");
  return env && *env ? env : fallback;
}

struct Problem {
  std::string name;
  int npar = 0;
  std::vector<double> start1, start2, cert, certsd;
  int datastart = 0;  // lines before the first data record
  int npred = 1;
};

// The model of each problem.  A unary minus binds tighter than a power, so
// -(x-b4)^2 is written -((x-b4)^2).
inline const std::map<std::string, std::string>& models() {
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

// Reads the starting values, the certified values and the position of the
// data from a problem file; false when it cannot be read or has neither.
inline bool parse(const std::string& path, const std::string& name, Problem* pr) {
  std::ifstream in(path);
  if (!in) return false;
  pr->name = name;
  std::string line;
  int lineno = 0;
  bool datahead = false;
  while (std::getline(in, line)) {
    ++lineno;
    if (!line.empty() && line.back() == '\r') line.pop_back();
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
    if (w1 == "Data:" && (w2 == "y" || w2 == "Y")) {
      pr->datastart = lineno;
      datahead = true;
      int cols = 0;
      std::istringstream h(line.substr(5));
      std::string c;
      while (h >> c) ++cols;
      pr->npred = cols - 1;
      break;
    }
  }
  pr->npar = static_cast<int>(pr->cert.size());
  return datahead && pr->npar > 0;
}

// The program that fits the problem from start 1 or 2, reading the data
// from dir; with parfile not empty it also writes the estimates there.
inline std::string program(const Problem& pr, int start, const std::string& dir,
                           const std::string& parfile = "") {
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
  prog += "FUNCTION " + models().at(pr.name) + ";\n";
  if (!parfile.empty()) prog += "POUTPUT \"" + parfile + "\";\n";
  prog += "DATASKIP " + std::to_string(pr.datastart) + ";\n";
  prog += "DATA \"" + dir + "/" + pr.name + ".dat\";\n";
  return prog;
}

}  // namespace vexor::nist
