// qlm-calib chart: the chessboard stereo calibration of the engine over
// image pairs, with a summary table, JSON and a rectified preview.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "station/ChartRun.h"

void AddChartOptions(CLI::App& command, ChartOptions& options);
// The three ways to give image pairs (station/PairList.h), shared with verify.
void AddPairOptions(CLI::App& command, std::vector<std::string>& images, std::string& pairsDir, std::string& pairsFile);
// Runs the chart calibration on the global engine, prints each pair's result
// and the summary of each run, and writes the requested files.
ChartOutcome CalibrateChart(const ChartOptions& options);
// CalibrateChart answered with the exit status of its final run: 0 when every limit check passed, 3 when
// the calibration ran but failed or a check did not pass.
int RunChart(const ChartOptions& options);
