// The picture report of a chart calibration, for reading at a glance: per
// camera a coverage map (every detected corner over the image area, the grid
// cells no corner reached shaded), per view the corners of both cameras with
// their reprojection residuals magnified and the scale given, a bar chart of
// the per-view errors with each camera's outlier limit, and report.json with
// the numbers behind the pictures.
#pragma once

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

struct ReportInput {
  std::vector<std::vector<cv::Point3f>> objectPoints;  // per view
  ReportCamera cameras[2];                             // main, second
  std::vector<std::string> viewImages;                 // per view: "MAIN SECOND" (may be empty)
  std::vector<int32_t> viewPairs;                      // per view: its pair's number (PairNumbersOfViews)
};

// The views of a finished run: the engine's view lists with the mono
// stage's intrinsics from the summary; images (main1 second1 ...) name the
// pairs, of which the ones that became views are kept.
ReportInput ChartReportInput(const dualCalibration& engine, const ChartSummary& summary,
                             const std::vector<std::string>& images);

// Writes coverage_main.png, coverage_second.png, pair_NN.png per view (NN
// its pair's number),
// errors.png and report.json into directory (created when missing) and
// returns report.json's content. A view's residuals come from its board pose
// fitted under the camera's intrinsics; its error is their RMS, and it is an
// outlier when either camera's error is above ViewOutlierLimit. Throws
// StationError when a file cannot be written.
nlohmann::json WriteChartReport(const std::string& directory, const ReportInput& input);
