// Helpers for tests that compile whole programs.
#pragma once

#include <string>
#include <vector>

namespace vexor::test {

// Resets the engine and compiles the program; 1 on success.
int compileprog(const std::string& text);
// The listing with CR LF turned into LF.
std::string listing();
// The compiled program as dumpprog writes it.
std::string dump();
// The dump's opcode names in slot order ("LINE", "JUMPF", ...).
std::vector<std::string> opcodes();
// Runs the compiled program over every observation (or once with no data),
// after resetwork; returns the number of runs that failed.
int runall();
// The value of a symbol after the last run.
double value(const char* name);
// Writes text into a file in the test's working directory.
void writefile(const std::string& name, const std::string& text);

}  // namespace vexor::test
