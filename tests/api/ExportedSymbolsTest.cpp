// The shared library exports the four entry points and nothing else: no
// OpenCV, standard library or engine symbol leaves it.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <sstream>
#include <string>

namespace {

struct PipeCloser {
  void operator()(FILE* pipe) const { pclose(pipe); }
};

std::string CommandOutput(const std::string& command) {
  std::unique_ptr<FILE, PipeCloser> pipe(popen(command.c_str(), "r"));
  std::string output;
  if (!pipe) return output;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), pipe.get())) > 0;)
    output.append(buffer, n);
  return output;
}

// The symbol names of `nm -D --defined-only` lines: "<address> <type> <name>".
std::set<std::string> DefinedDynamicSymbols(const std::string& library) {
  std::istringstream lines(CommandOutput("nm -D --defined-only '" + library + "'"));
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string address, type, name;
    if (fields >> address >> type >> name) names.insert(name);
  }
  return names;
}

}  // namespace

TEST(ExportedSymbols, ExactlyTheFourEntryPoints) {
  const std::set<std::string> expected = {
      "_Z21QLM_Get_Calib_Vertionv",
      "_Z14QLM_Calib_INITPhS_S_iiii",
      "_Z17QLM_Calib_PROCESSPhS_iiiii",
      "_Z20QLM_Get_Calib_ResultPh",
  };
  EXPECT_EQ(DefinedDynamicSymbols(QLM_SERVICE_LIBRARY), expected);
}
