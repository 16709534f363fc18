// qlm-calib refine: one calibration run over one image pair, as a caller of
// the exported functions gets it (INIT, PROCESS, GET_RESULT), with the
// engine's intermediate results shown beside the outcome.
#pragma once

#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

struct RefineOptions {
  std::string params, record, fileRecord, select = "caller";
  std::string out, json, saveMatches;
  std::string mainImage, secondImage;
};

void AddRefineOptions(CLI::App& command, RefineOptions& options);
// Returns the exit status: 0 when the estimate met the limits, 3 when the
// run completed but did not (count check failed or limits not met).
int RunRefine(const RefineOptions& options);

// The readable meaning of a PROCESS or INIT code.
const char* RefineCodeMeaning(int code);
