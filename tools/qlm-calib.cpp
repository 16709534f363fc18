// qlm-calib: runs the calibration library's capabilities from the command line.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "api/Exports.h"
#include "engine/dualCalibration.h"

namespace {

int RunVersion() {
  std::printf("library version %d (0x%x)\nqlm-calib %s\n", kLibraryVersion, kLibraryVersion,
              QLM_TOOL_VERSION);
  return 0;
}

// Writes the engine's default parameter section to outPath, or to standard output.
int RunParams(const std::string& outPath) {
  auto engine = std::make_unique<dualCalibration>();
  if (outPath.empty()) return engine->SaveParameters(stdout) ? 0 : 1;
  if (SaveParametersToFile(*engine, outPath.c_str()) != 1) return 2;
  std::printf("wrote %s\n", outPath.c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"qlm-calib: dual-camera calibration from the command line"};
  app.require_subcommand(1);
  CLI::App* version = app.add_subcommand("version", "Print the library and tool versions");
  CLI::App* params = app.add_subcommand("params", "Write the engine's default parameter section");
  std::string paramsOut;
  params->add_option("--out", paramsOut, "Output file (standard output when omitted)");
  CLI11_PARSE(app, argc, argv);
  if (version->parsed()) return RunVersion();
  if (params->parsed()) return RunParams(paramsOut);
  return 2;
}
