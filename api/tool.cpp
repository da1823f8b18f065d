// The command-line tool's door (see tool.h): thin passages to the parts that
// hold what the tool needs.
#include "api/tool.h"

#include "api/coerce.h"
#include "report/report.h"

namespace vexor::tool {

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

}  // namespace vexor::tool
