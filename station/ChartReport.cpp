#include "station/ChartReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "chart/ViewOutliers.h"
#include "engine/dualCalibration.h"
#include "station/RunOutputs.h"
#include "station/StationError.h"

namespace {

constexpr int kCoverageColumns = 8;
constexpr int kPanelWidthPx = 640;
constexpr int kTitleHeightPx = 28;
constexpr int kMarginPx = 12;
constexpr double kLongestArrowPx = 40.0;
constexpr int kChartWidthPx = 800, kChartHeightPx = 360;
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kFontScale = 0.45;

const cv::Scalar kBackground(255, 255, 255), kImageArea(236, 236, 236), kGridLine(200, 200, 200);
const cv::Scalar kShade(170, 170, 235), kText(20, 20, 20), kCorner(180, 90, 20), kArrow(30, 30, 210);
const cv::Scalar kCameraColours[2] = {cv::Scalar(180, 110, 40), cv::Scalar(40, 150, 240)};
const cv::Scalar kOutlier(30, 30, 210);

struct CameraFit {
  std::vector<std::vector<cv::Point2f>> residuals;  // per view: detected minus projected, pixels
  std::vector<float> errors;                        // per view: RMS of the residuals
  double limit = 0.0;
  std::vector<bool> outliers;
  std::vector<std::vector<int>> cellCounts;  // [row][column]: corners per coverage cell
};

CameraFit FitCamera(const std::vector<std::vector<cv::Point3f>>& objectPoints, const ReportCamera& camera) {
  CameraFit fit;
  for (size_t k = 0; k < camera.corners.size(); ++k) {
    cv::Mat rvec, tvec;
    std::vector<cv::Point2f> projected;
    cv::solvePnP(objectPoints[k], camera.corners[k], camera.K, camera.D, rvec, tvec);
    cv::projectPoints(objectPoints[k], rvec, tvec, camera.K, camera.D, projected);
    std::vector<cv::Point2f> residuals;
    double sumOfSquares = 0.0;
    for (size_t i = 0; i < projected.size(); ++i) {
      residuals.push_back(camera.corners[k][i] - projected[i]);
      sumOfSquares += residuals.back().dot(residuals.back());
    }
    fit.residuals.push_back(residuals);
    fit.errors.push_back(static_cast<float>(std::sqrt(sumOfSquares / std::max<size_t>(projected.size(), 1))));
  }
  fit.limit = ViewOutlierLimit(fit.errors);
  fit.outliers = ViewOutliers(fit.errors);
  return fit;
}

cv::Size CoverageGrid(const cv::Size& imageSize) {
  const int rows = std::max(1, static_cast<int>(std::lround(kCoverageColumns * imageSize.height /
                                                            static_cast<double>(imageSize.width))));
  return {kCoverageColumns, rows};
}

std::vector<std::vector<int>> CellCounts(const ReportCamera& camera) {
  const cv::Size grid = CoverageGrid(camera.imageSize);
  std::vector<std::vector<int>> counts(grid.height, std::vector<int>(grid.width, 0));
  for (const std::vector<cv::Point2f>& view : camera.corners) {
    for (const cv::Point2f& p : view) {
      const int column = static_cast<int>(std::floor(p.x * grid.width / camera.imageSize.width));
      const int row = static_cast<int>(std::floor(p.y * grid.height / camera.imageSize.height));
      if (column >= 0 && column < grid.width && row >= 0 && row < grid.height) ++counts[row][column];
    }
  }
  return counts;
}

std::string Format(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

void PutText(cv::Mat& canvas, const std::string& text, cv::Point origin, const cv::Scalar& colour = kText) {
  cv::putText(canvas, text, origin, kFont, kFontScale, colour, 1, cv::LINE_AA);
}

// A canvas with a title band above the camera's image area drawn at scale.
struct Panel {
  cv::Mat canvas;
  double scale;
  cv::Point origin;  // where image pixel (0, 0) lands
  cv::Point2f At(const cv::Point2f& p) const { return {origin.x + p.x * float(scale), origin.y + p.y * float(scale)}; }
};

Panel ImagePanel(const cv::Size& imageSize, const std::string& title) {
  Panel panel;
  panel.scale = static_cast<double>(kPanelWidthPx) / imageSize.width;
  const int height = static_cast<int>(std::lround(imageSize.height * panel.scale));
  panel.canvas = cv::Mat(kTitleHeightPx + height + 2 * kMarginPx, kPanelWidthPx + 2 * kMarginPx, CV_8UC3, kBackground);
  panel.origin = {kMarginPx, kTitleHeightPx + kMarginPx};
  cv::rectangle(panel.canvas, cv::Rect(panel.origin, cv::Size(kPanelWidthPx, height)), kImageArea, cv::FILLED);
  PutText(panel.canvas, title, {kMarginPx, kTitleHeightPx - 8});
  return panel;
}

cv::Mat CoverageMap(const ReportCamera& camera, const CameraFit& fit) {
  const cv::Size grid = CoverageGrid(camera.imageSize);
  int reached = 0, corners = 0;
  for (const std::vector<int>& row : fit.cellCounts) {
    for (int count : row) reached += count > 0, corners += count;
  }
  Panel panel = ImagePanel(camera.imageSize, camera.name + ": " + std::to_string(corners) + " corners, " +
                                                 std::to_string(camera.corners.size()) + " views, " +
                                                 std::to_string(reached) + " of " + std::to_string(grid.area()) +
                                                 " cells reached (shaded: never)");
  for (int row = 0; row < grid.height; ++row) {
    for (int column = 0; column < grid.width; ++column) {
      const cv::Point2f topLeft = panel.At({float(column) * camera.imageSize.width / grid.width,
                                            float(row) * camera.imageSize.height / grid.height});
      const cv::Point2f bottomRight = panel.At({float(column + 1) * camera.imageSize.width / grid.width,
                                                float(row + 1) * camera.imageSize.height / grid.height});
      const cv::Rect cell{cv::Point(topLeft), cv::Point(bottomRight)};
      if (fit.cellCounts[row][column] == 0) cv::rectangle(panel.canvas, cell, kShade, cv::FILLED);
      cv::rectangle(panel.canvas, cell, kGridLine, 1);
    }
  }
  for (size_t k = 0; k < camera.corners.size(); ++k) {
    const cv::Scalar colour = fit.outliers[k] ? kOutlier : kCorner;
    for (const cv::Point2f& p : camera.corners[k]) cv::circle(panel.canvas, panel.At(p), 2, colour, cv::FILLED, cv::LINE_AA);
  }
  return panel.canvas;
}

// The largest of 1, 2, 5 times a power of ten not above value (value > 0).
double FloorOneTwoFive(double value) {
  const double decade = std::pow(10.0, std::floor(std::log10(value)));
  for (double step : {5.0, 2.0, 1.0}) {
    if (step * decade <= value) return step * decade;
  }
  return decade;
}

cv::Mat ResidualPanel(const ReportCamera& camera, const CameraFit& fit, size_t view) {
  const std::vector<cv::Point2f>& residuals = fit.residuals[view];
  double longest = 0.0;
  for (const cv::Point2f& r : residuals) longest = std::max(longest, std::hypot(double{r.x}, double{r.y}));
  Panel panel = ImagePanel(camera.imageSize, "");
  const double magnification = longest > 0.0 ? FloorOneTwoFive(kLongestArrowPx / (longest * panel.scale)) : 1.0;
  const std::string status = fit.outliers[view] ? "  OUTLIER" : "";
  PutText(panel.canvas, camera.name + ": RMS " + Format("%.3f px", fit.errors[view]) + ", limit " +
                            Format("%.3f px", fit.limit) + status,
          {kMarginPx, kTitleHeightPx - 8}, fit.outliers[view] ? kOutlier : kText);
  for (size_t i = 0; i < residuals.size(); ++i) {
    const cv::Point2f from = panel.At(camera.corners[view][i]);
    cv::circle(panel.canvas, from, 2, kCorner, cv::FILLED, cv::LINE_AA);
    const cv::Point2f to = from + residuals[i] * float(magnification * panel.scale);
    cv::arrowedLine(panel.canvas, from, to, kArrow, 1, cv::LINE_AA, 0, 0.25);
  }
  if (longest > 0.0) {
    const double barPx = FloorOneTwoFive(longest);
    const cv::Point start(panel.origin.x + 8, panel.canvas.rows - kMarginPx - 8);
    cv::line(panel.canvas, start, start + cv::Point(int(std::lround(barPx * magnification * panel.scale)), 0), kArrow, 2);
    PutText(panel.canvas, "arrows x" + Format("%g", magnification) + ", bar = " + Format("%g px", barPx),
            start + cv::Point(0, -8));
  }
  return panel.canvas;
}

cv::Mat ViewPicture(const ReportInput& input, const CameraFit fits[2], size_t view) {
  cv::Mat sides[2] = {ResidualPanel(input.cameras[0], fits[0], view), ResidualPanel(input.cameras[1], fits[1], view)};
  const int height = std::max(sides[0].rows, sides[1].rows);
  cv::Mat canvas(height + kTitleHeightPx, sides[0].cols + sides[1].cols, CV_8UC3, kBackground);
  sides[0].copyTo(canvas(cv::Rect(0, kTitleHeightPx, sides[0].cols, sides[0].rows)));
  sides[1].copyTo(canvas(cv::Rect(sides[0].cols, kTitleHeightPx, sides[1].cols, sides[1].rows)));
  const std::string images = view < input.viewImages.size() ? ": " + input.viewImages[view] : "";
  PutText(canvas, "pair " + std::to_string(input.viewPairs[view]) + images + " (residual = detected - reprojected)",
          {kMarginPx, kTitleHeightPx - 6});
  return canvas;
}

void DashedLine(cv::Mat& canvas, cv::Point from, int length, const cv::Scalar& colour) {
  for (int x = 0; x < length; x += 12) cv::line(canvas, from + cv::Point(x, 0), from + cv::Point(std::min(x + 7, length), 0), colour, 2);
}

cv::Mat ErrorChart(const ReportInput& input, const CameraFit fits[2]) {
  cv::Mat canvas(kChartHeightPx, kChartWidthPx, CV_8UC3, kBackground);
  const cv::Rect plot(60, 40, kChartWidthPx - 80, kChartHeightPx - 90);
  double top = std::max(fits[0].limit, fits[1].limit);
  for (const CameraFit* fit : {&fits[0], &fits[1]}) {
    for (float error : fit->errors) top = std::max(top, static_cast<double>(error));
  }
  top = top > 0.0 ? top * 1.15 : 1.0;
  const auto yOf = [&](double value) { return plot.y + plot.height - int(std::lround(value / top * plot.height)); };
  const size_t views = fits[0].errors.size();
  const double slot = static_cast<double>(plot.width) / std::max<size_t>(views, 1);
  for (int tick = 0; tick <= 4; ++tick) {
    const double value = FloorOneTwoFive(top) * tick / 2.0;
    if (value > top) break;
    cv::line(canvas, {plot.x, yOf(value)}, {plot.x + plot.width, yOf(value)}, kGridLine, 1);
    PutText(canvas, Format("%.3g", value), {8, yOf(value) + 4});
  }
  for (size_t k = 0; k < views; ++k) {
    for (int c = 0; c < 2; ++c) {
      const int left = plot.x + int(k * slot + slot * (0.15 + 0.35 * c));
      const cv::Scalar colour = fits[c].outliers[k] ? kOutlier : kCameraColours[c];
      cv::rectangle(canvas, cv::Point(left, yOf(fits[c].errors[k])), cv::Point(left + int(slot * 0.33), yOf(0.0)),
                    colour, cv::FILLED);
    }
    PutText(canvas, std::to_string(input.viewPairs[k]), {plot.x + int(k * slot + slot * 0.4), plot.y + plot.height + 16});
  }
  for (int c = 0; c < 2; ++c) {
    DashedLine(canvas, {plot.x, yOf(fits[c].limit)}, plot.width, kCameraColours[c]);
    PutText(canvas, input.cameras[c].name + " limit " + Format("%.3f px", fits[c].limit),
            {plot.x + 4 + c * (plot.width - 170), yOf(fits[c].limit) - 6}, kCameraColours[c]);
  }
  cv::line(canvas, {plot.x, plot.y + plot.height}, {plot.x + plot.width, plot.y + plot.height}, kText, 1);
  PutText(canvas, "per-pair RMS reprojection error (px); bars: main, second; red: outlier; dashed: 3 x median",
          {plot.x - 50, 24});
  PutText(canvas, "pair", {plot.x + plot.width / 2 - 12, kChartHeightPx - 14});
  return canvas;
}

nlohmann::json CameraJson(const ReportCamera& camera, const CameraFit& fit) {
  const cv::Size grid = CoverageGrid(camera.imageSize);
  nlohmann::json empty = nlohmann::json::array();
  for (int row = 0; row < grid.height; ++row) {
    for (int column = 0; column < grid.width; ++column) {
      if (fit.cellCounts[row][column] == 0) empty.push_back({column, row});
    }
  }
  return {{"name", camera.name},
          {"image_size", {camera.imageSize.width, camera.imageSize.height}},
          {"view_errors_px", fit.errors},
          {"outlier_limit_px", fit.limit},
          {"coverage",
           {{"grid", {grid.width, grid.height}},
            {"corner_counts", fit.cellCounts},
            {"empty_cells", empty},
            {"reached_fraction", 1.0 - static_cast<double>(empty.size()) / grid.area()}}}};
}

}  // namespace

ReportInput ChartReportInput(const dualCalibration& engine, const ChartSummary& summary,
                             const std::vector<std::string>& images) {
  ReportInput input;
  input.objectPoints = engine.mObjectPoints;
  input.cameras[0] = {"main", {engine.chartImageSizes[0], engine.chartImageSizes[1]}, summary.mono1.K,
                      summary.mono1.D, engine.mImagePoints1};
  input.cameras[1] = {"second", {engine.chartImageSizes[2], engine.chartImageSizes[3]}, summary.mono2.K,
                      summary.mono2.D, engine.mImagePoints2};
  input.viewPairs = PairNumbersOfViews(summary);
  for (const int32_t pair : input.viewPairs) {
    const size_t k = static_cast<size_t>(pair - 1);
    input.viewImages.push_back(2 * k + 1 < images.size() ? images[2 * k] + " " + images[2 * k + 1] : "");
  }
  return input;
}

nlohmann::json WriteChartReport(const std::string& directory, const ReportInput& input) {
  if (input.viewPairs.size() != input.objectPoints.size()) throw StationError(directory + ": views without pair numbers");
  CreateOutputFolder(directory);
  CameraFit fits[2];
  nlohmann::json report = {{"outlier_rule", "view error above 3 x the median of the camera's view errors"},
                           {"cameras", nlohmann::json::array()},
                           {"views", nlohmann::json::array()},
                           {"outlier_pairs", nlohmann::json::array()}};
  for (int c = 0; c < 2; ++c) {
    fits[c] = FitCamera(input.objectPoints, input.cameras[c]);
    fits[c].cellCounts = CellCounts(input.cameras[c]);
    const std::string picture = "coverage_" + input.cameras[c].name + ".png";
    WriteImageAtomically(directory + "/" + picture, CoverageMap(input.cameras[c], fits[c]));
    report["cameras"].push_back(CameraJson(input.cameras[c], fits[c]));
    report["cameras"].back()["picture"] = picture;
  }
  for (size_t k = 0; k < input.objectPoints.size(); ++k) {
    const int32_t pair = input.viewPairs[k];
    const std::string picture = "pair_" + Format("%02.0f", static_cast<double>(pair)) + ".png";
    WriteImageAtomically(directory + "/" + picture, ViewPicture(input, fits, k));
    const bool outlier = fits[0].outliers[k] || fits[1].outliers[k];
    if (outlier) report["outlier_pairs"].push_back(pair);
    report["views"].push_back({{"pair", pair},
                               {"images", k < input.viewImages.size() ? input.viewImages[k] : ""},
                               {"error_px", {fits[0].errors[k], fits[1].errors[k]}},
                               {"outlier", outlier},
                               {"picture", picture}});
  }
  WriteImageAtomically(directory + "/errors.png", ErrorChart(input, fits));
  report["errors_picture"] = "errors.png";
  WriteJsonAtomically(directory + "/report.json", report);
  return report;
}
