// qlm-calib verify: checks a stereo calibration on board pairs, which may be
// pairs it never saw, by the row error of their rectified corners; prints
// the figures and the health verdict, and with --max-row-error passes or
// fails on its own exit status.
#pragma once

#include <CLI/CLI.hpp>

#include "station/VerifyRun.h"

void AddVerifyOptions(CLI::App& command, VerifyOptions& options);
// Exit status 0, or kExitRowErrorOverLimit when the p95 row error is over --max-row-error.
int RunVerify(const VerifyOptions& options);
// The health limits' two options, shared with chart.
void AddHealthOptions(CLI::App& command, HealthLimits& limits);
// "row error:        rms 0.0412 px, p95 0.0850 px, max 0.1203 px (1080 corners, 20 views)" and the
// epipolar and health lines after it.
void PrintRowErrorFigures(const StereoVerification& figures, const HealthLimits& limits);
