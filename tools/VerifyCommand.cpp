#include "tools/VerifyCommand.h"

#include <cstdio>
#include <iostream>

#include "api/Globals.h"
#include "station/StationError.h"
#include "tools/ChartCommand.h"
#include "tools/ToolInput.h"

namespace {

void PrintFigures(const char* label, const ErrorFigures& figures) {
  std::printf("%-18srms %.4f px, p95 %.4f px, max %.4f px (%zu corners)\n", label, figures.rms, figures.p95,
              figures.max, figures.count);
}

}  // namespace

void AddHealthOptions(CLI::App& command, HealthLimits& limits) {
  command.add_option("--good-row-error", limits.goodPx, "Health 'good' up to this p95 row error (px)")
      ->check(FiniteWithin(0.0, 1e6))
      ->capture_default_str();
  command.add_option("--improvable-row-error", limits.improvablePx,
                     "Health 'improvable' up to this p95 row error (px), 'recalibrate' above")
      ->check(FiniteWithin(0.0, 1e6))
      ->capture_default_str();
}

void PrintRowErrorFigures(const StereoVerification& figures, const HealthLimits& limits) {
  PrintFigures("row error:", figures.rowError);
  PrintFigures("epipolar error:", figures.epipolarError);
  std::printf("health:           %s\n", HealthLine(figures.rowError.p95, limits).c_str());
}

void AddVerifyOptions(CLI::App& command, VerifyOptions& options) {
  command.add_option("--params", options.params, "Parameter file (section ParameterList): the board")->required();
  command.add_option("--calibration", options.calibration, "The JSON of a chart run (--json)");
  command.add_option("--opencv", options.openCvFiles, "intrinsics.yml and extrinsics.yml (OpenCV's stereo sample)")
      ->expected(2)
      ->allow_extra_args(false);
  AddPairOptions(command, options.images, options.pairsDir, options.pairsFile);
  command.add_option("--json", options.json, "Figures as JSON, with every corner's row error");
  command.add_option("--map", options.map, "Row error over the main image (PNG)");
  command.add_option("--max-row-error", options.maxRowErrorPx,
                     "Fail (exit status 5) when the p95 row error is above this (px)")
      ->check(FiniteWithin(1e-6, 1e6));
  AddHealthOptions(command, options.health);
}

int RunVerify(const VerifyOptions& options) {
  if (options.health.goodPx > options.health.improvablePx) {
    throw StationError("--good-row-error: above --improvable-row-error");
  }
  VerifyRun run(g_dualCalib, options);
  const std::vector<std::string>& images = run.Images();
  const VerifyOutcome& outcome = run.Verify([&](size_t k, bool view) {
    std::cout.flush();
    std::printf("pair %zu: %s %s: %s\n", k + 1, images[2 * k].c_str(), images[2 * k + 1].c_str(),
                view ? "board found in both" : "board not found");
    std::fflush(stdout);
  });
  std::cout.flush();
  std::printf("\n== verify\nviews:            %zu of %zu\n", outcome.viewPairs.size(), images.size() / 2);
  PrintRowErrorFigures(outcome.figures, options.health);
  if (options.maxRowErrorPx > 0.0) {
    std::printf("row error check:  %s (p95 %.4f px, limit %g px)\n", run.Passed() ? "pass" : "FAIL",
                outcome.figures.rowError.p95, options.maxRowErrorPx);
  }
  run.WriteOutputs();
  if (!options.map.empty()) std::printf("row error map:    %s\n", options.map.c_str());
  return run.Passed() ? kExitSuccess : kExitRowErrorOverLimit;
}
