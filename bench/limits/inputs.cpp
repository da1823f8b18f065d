// Writes the large inputs of the limits benchmark into a directory:
//   statements.vex  a program of 1,000,000 statements (and three records)
//   obs.vex, obs.dat  y = a exp(-b x) + c sin(d x) on 10,000,000 records
//   errors.vex, errors.dat  a model that fails on each of 1,000,000 records
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

int main(int argc, char** argv) {
  const std::string dir = argc > 1 ? argv[1] : ".";
  auto open = [&](const char* name) { return std::fopen((dir + "/" + name).c_str(), "w"); };
  FILE* f = open("statements.vex");
  std::fputs("VARIABLES x, y;\nPARAMETERS a;\nDOUBLE w;\n", f);
  for (int i = 0; i < 1000000; ++i) std::fputs("w = x + 1;\n", f);
  std::fputs("FUNCTION y = a*x;\nDATA;\n1 2\n2 4.1\n3 5.9\n", f);
  std::fclose(f);

  f = open("obs.vex");
  std::fputs("VARIABLES x, y;\nPARAMETERS a = 1, b = 1, c = 1, d = 2;\n"
             "FUNCTION y = a*exp(-b*x) + c*sin(d*x);\nDATA \"obs.dat\";\n", f);
  std::fclose(f);
  f = open("obs.dat");
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> ux(0.0, 10.0);
  std::normal_distribution<double> noise(0.0, 0.1);
  for (int i = 0; i < 10000000; ++i) {
    const double x = ux(rng);
    std::fprintf(f, "%.9g %.9g\n", x, 3 * std::exp(-0.4 * x) + 1.5 * std::sin(2.2 * x) + noise(rng));
  }
  std::fclose(f);

  f = open("errors.vex");
  std::fputs("VARIABLES x, y;\nPARAMETERS a = 1;\nFUNCTION y = a*sqrt(x - 2);\nDATA \"errors.dat\";\n", f);
  std::fclose(f);
  f = open("errors.dat");
  for (int i = 0; i < 1000000; ++i) std::fprintf(f, "%d 1\n", i % 2);
  std::fclose(f);
  return 0;
}
