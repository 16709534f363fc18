// The picture report of a chart calibration, for reading at a glance: per
// camera a coverage map (every detected corner over the image area, the grid
// cells no corner reached shaded), per view the corners of both cameras over
// the view's own images with their reprojection residuals magnified (one
// magnification for the whole run) and the worst corners circled with their
// error, a bar chart of the per-view errors with each camera's outlier limit,
// and report.json with the numbers behind the pictures, every corner's
// residual and the pairs that gave no view with the reason.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "chart/ChartDriver.h"

class dualCalibration;

// One camera's views and the intrinsics its residuals are measured with.
struct ReportCamera {
  std::string name;
  cv::Size imageSize;
  cv::Mat K, D;
  std::vector<std::vector<cv::Point2f>> corners;  // per view, board order
};

// A pair that gave no view, numbered as the views' pairs are.
struct ReportRejectedPair {
  int32_t pair = 0;
  std::string images;  // "MAIN SECOND"
  std::string why;     // "board not found", "corner order not decided", ...
};

struct ReportInput {
  std::vector<std::vector<cv::Point3f>> objectPoints;  // per view
  ReportCamera cameras[2];                             // main, second
  std::vector<std::array<std::string, 2>> viewImages;  // per view: main and second image file (may be empty)
  std::vector<std::array<cv::Mat, 2>> viewPixels;      // per view, its images when held in memory (viewImages name them)
  std::vector<int32_t> viewPairs;                      // per view: its pair's number (PairNumbersOfViews)
  std::vector<std::vector<float>> rowErrors;           // per view and corner, rectified px; empty when not measured
  std::vector<ReportRejectedPair> rejectedPairs;       // ascending pair numbers
  std::string recapture;                               // the run's recapture advice; empty when not given
};

// The views of a finished run: the engine's view lists with the mono
// stage's intrinsics from summary; images (main1 second1 ...) name the
// pairs. Every pair that is not a view of summary is rejected with what its
// search found, or, when it was a view of firstRun (the run before outliers
// were dropped; summary itself when none were), as an outlier left out.
// The row errors are the caller's to add.
ReportInput ChartReportInput(const dualCalibration& engine, const ChartSummary& summary,
                             const ChartSummary& firstRun, const std::vector<std::string>& images);

// Writes coverage_main.png, coverage_second.png, pair_NN.png per view (NN
// its pair's number), errors.png and report.json into directory (created
// when missing) and returns report.json's content. A view's error is the
// RMS of its residuals under its board pose fitted to all its corners with
// the camera's intrinsics, and it is an outlier when either camera's error
// is above ViewOutlierLimit. A corner is over the limit as the run drops
// corners: its error above CornerOutlierLimit of those residuals, under a
// pose fitted without the corners already over it; the corners' residuals
// in the panels and in report.json are those under that last pose. Each
// view panel circles the corners over the limit, or else the view's worst
// corner, with their error. Every view panel draws its arrows at the run's
// one magnification (arrow_scale: the largest 1-2-5 value that draws the
// 95th percentile residual of all corners of both cameras at most 40 px),
// an arrow longer than 160 px cut there, over its image file read one view
// at a time, grey and dimmed; a file that cannot be read or is not of the
// camera's size leaves the panel blank and its "image" null, with
// "image_problem" saying why. Throws StationError when a file cannot be
// written, when viewPairs, either camera's corners, or rowErrors when given,
// do not hold one entry per view, or a view's corners are fewer than four
// or not one per board point.
nlohmann::json WriteChartReport(const std::string& directory, const ReportInput& input);
