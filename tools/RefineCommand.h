// qlm-calib refine: one calibration run over one image pair, as a caller of
// the exported functions gets it (INIT, PROCESS, GET_RESULT), with the
// engine's intermediate results shown beside the outcome.
#pragma once

#include <string>

#include <CLI/CLI.hpp>
#include <opencv2/core.hpp>
#include <nlohmann/json.hpp>

#include "engine/FeaturePointCalibration.h"

struct RefineOptions {
  std::string params, record, fileRecord, select = "caller";
  std::string out, json, saveMatches;
  std::string mainImage, secondImage;
};

struct RefineOutcome {
  int code = 0;
  FeaturePointReport report;
  int refineCount = 0;
};

void AddRefineOptions(CLI::App& command, RefineOptions& options);
// Runs the calibration, prints the summary and writes the requested files.
RefineOutcome Refine(const RefineOptions& options);
// Refine, answered with the exit status: 0 when the estimate met the
// limits, 3 when the run completed but did not (counts or limits).
int RunRefine(const RefineOptions& options);

// The readable meaning of a PROCESS or INIT code.
const char* RefineCodeMeaning(int code);
