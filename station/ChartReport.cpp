#include "station/ChartReport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "chart/ViewOutliers.h"
#include "engine/dualCalibration.h"
#include "station/InputFiles.h"
#include "station/RunOutputs.h"
#include "station/StationError.h"

namespace {

constexpr int kCoverageColumns = 8;
constexpr int kPanelWidthPx = 640;
constexpr int kTitleHeightPx = 28;
constexpr int kMarginPx = 12;
// The run's magnification draws the 95th percentile residual at most this long;
// a longer arrow is cut at the second length (its corner is circled).
constexpr double kTypicalArrowPx = 40.0;
constexpr double kLongestArrowPx = 160.0;
// Circled corners beyond this many per panel keep their circle but lose their label.
constexpr size_t kLabelledCorners = 10;
constexpr int kCircleRadiusPx = 9;
constexpr int kChartWidthPx = 800, kChartHeightPx = 360;
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kFontScale = 0.45;

const cv::Scalar kBackground(255, 255, 255), kImageArea(236, 236, 236), kGridLine(200, 200, 200);
const cv::Scalar kShade(170, 170, 235), kText(20, 20, 20), kCorner(180, 90, 20), kArrow(30, 30, 210);
const cv::Scalar kCameraColours[2] = {cv::Scalar(180, 110, 40), cv::Scalar(40, 150, 240)};
const cv::Scalar kOutlier(30, 30, 210), kWorstWithinLimit(60, 60, 60);

struct CameraFit {
  std::vector<float> errors;  // per view: RMS of the residuals under the pose fitted to all its corners
  double limit = 0.0;
  std::vector<bool> outliers;
  double cornerLimit = 0.0;  // over the corner errors under those poses
  // Per view and corner: detected minus projected, pixels, and its length,
  // under the pose fitted without the corners over cornerLimit.
  std::vector<std::vector<cv::Point2f>> residuals;
  std::vector<std::vector<float>> cornerErrors;
  std::vector<std::vector<size_t>> worstCorners;  // per view, worst first: those over cornerLimit, else the worst alone
  std::vector<bool> overLimit;                    // per view: its worst corners are over cornerLimit
  std::vector<std::vector<int>> cellCounts;       // [row][column]: corners per coverage cell
};

struct ViewFit {
  std::vector<cv::Point2f> residuals;
  std::vector<float> lengths;
};

// Every corner's residual under the pose fitted to the corners not left out.
ViewFit FitView(const std::vector<cv::Point3f>& board, const std::vector<cv::Point2f>& image, const ReportCamera& camera,
                const std::vector<bool>& leftOut) {
  std::vector<cv::Point3f> keptBoard;
  std::vector<cv::Point2f> keptImage, projected;
  for (size_t i = 0; i < board.size(); ++i) {
    if (!leftOut[i]) keptBoard.push_back(board[i]), keptImage.push_back(image[i]);
  }
  cv::Mat rvec, tvec;
  cv::solvePnP(keptBoard, keptImage, camera.K, camera.D, rvec, tvec);
  cv::projectPoints(board, rvec, tvec, camera.K, camera.D, projected);
  ViewFit fit;
  for (size_t i = 0; i < projected.size(); ++i) {
    fit.residuals.push_back(image[i] - projected[i]);
    fit.lengths.push_back(static_cast<float>(std::hypot(double{fit.residuals[i].x}, double{fit.residuals[i].y})));
  }
  return fit;
}

// As the run drops corners (chart/ViewOutliers.h): the worst corner over
// limit leaves and the pose is fitted again without it, until none is over,
// more than half have left or fewer than four stay. Leaves view under the
// last pose and returns the corners that left, worst first.
std::vector<size_t> PeelCornersOverLimit(const std::vector<cv::Point3f>& board, const std::vector<cv::Point2f>& image,
                                         const ReportCamera& camera, double limit, ViewFit& view) {
  std::vector<bool> leftOut(board.size(), false);
  std::vector<size_t> peeled;
  while (2 * peeled.size() <= board.size() && board.size() - peeled.size() >= 4) {
    size_t worst = board.size();
    for (size_t i = 0; i < board.size(); ++i) {
      if (!leftOut[i] && (worst == board.size() || view.lengths[i] > view.lengths[worst])) worst = i;
    }
    if (!(view.lengths[worst] > limit)) break;
    leftOut[worst] = true;
    peeled.push_back(worst);
    view = FitView(board, image, camera, leftOut);
  }
  std::stable_sort(peeled.begin(), peeled.end(), [&](size_t a, size_t b) { return view.lengths[a] > view.lengths[b]; });
  return peeled;
}

CameraFit FitCamera(const std::vector<std::vector<cv::Point3f>>& objectPoints, const ReportCamera& camera) {
  CameraFit fit;
  std::vector<ViewFit> views;
  std::vector<std::vector<float>> allCornerErrors;  // per view, under the pose fitted to all its corners
  for (size_t k = 0; k < camera.corners.size(); ++k) {
    views.push_back(FitView(objectPoints[k], camera.corners[k], camera, std::vector<bool>(objectPoints[k].size(), false)));
    double sumOfSquares = 0.0;
    for (const float length : views.back().lengths) sumOfSquares += double{length} * length;
    fit.errors.push_back(static_cast<float>(std::sqrt(sumOfSquares / std::max<size_t>(views.back().lengths.size(), 1))));
    allCornerErrors.push_back(views.back().lengths);
  }
  fit.limit = ViewOutlierLimit(fit.errors);
  fit.outliers = ViewOutliers(fit.errors);
  fit.cornerLimit = CornerOutlierLimit(allCornerErrors);
  for (size_t k = 0; k < views.size(); ++k) {
    std::vector<size_t> worst = PeelCornersOverLimit(objectPoints[k], camera.corners[k], camera, fit.cornerLimit, views[k]);
    const std::vector<float>& lengths = views[k].lengths;
    fit.overLimit.push_back(!worst.empty());
    if (worst.empty() && !lengths.empty()) {
      worst.push_back(static_cast<size_t>(std::max_element(lengths.begin(), lengths.end()) - lengths.begin()));
    }
    fit.worstCorners.push_back(worst);
    fit.residuals.push_back(views[k].residuals);
    fit.cornerErrors.push_back(views[k].lengths);
  }
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

// Panel pixels per image pixel.
double PanelScale(const cv::Size& imageSize) { return static_cast<double>(kPanelWidthPx) / imageSize.width; }

// A canvas with a title band above the camera's image area drawn at scale
// and a footer band below it.
struct Panel {
  cv::Mat canvas;
  double scale;
  cv::Point origin;  // where image pixel (0, 0) lands
  cv::Size area;     // the image area's size on the canvas
  cv::Point2f At(const cv::Point2f& p) const { return {origin.x + p.x * float(scale), origin.y + p.y * float(scale)}; }
};

Panel ImagePanel(const cv::Size& imageSize, const std::string& title, int footerPx = 0) {
  Panel panel;
  panel.scale = PanelScale(imageSize);
  panel.area = {kPanelWidthPx, static_cast<int>(std::lround(imageSize.height * panel.scale))};
  panel.canvas = cv::Mat(kTitleHeightPx + panel.area.height + 2 * kMarginPx + footerPx, kPanelWidthPx + 2 * kMarginPx,
                         CV_8UC3, kBackground);
  panel.origin = {kMarginPx, kTitleHeightPx + kMarginPx};
  cv::rectangle(panel.canvas, cv::Rect(panel.origin, panel.area), kImageArea, cv::FILLED);
  PutText(panel.canvas, title, {kMarginPx, kTitleHeightPx - 8});
  return panel;
}

// The camera's image under the panel's image area, grey and lightened so
// that the corners and arrows drawn over it read.
void DrawDimmedImage(Panel& panel, const cv::Mat& gray) {
  cv::Mat small, dimmed;
  cv::resize(gray, small, panel.area, 0.0, 0.0, cv::INTER_AREA);
  small.convertTo(small, CV_8U, 0.45, 140.0);
  cv::cvtColor(small, dimmed, cv::COLOR_GRAY2BGR);
  dimmed.copyTo(panel.canvas(cv::Rect(panel.origin, panel.area)));
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

// The one magnification of every view panel's arrows, and what the scale
// bar stands for in image pixels (0: no bar, every residual is 0).
struct ArrowScale {
  double magnification = 1.0;
  double barPx = 0.0;
};

ArrowScale RunArrowScale(const ReportInput& input, const CameraFit fits[2]) {
  std::vector<double> drawnPx;  // each residual's length on its panel, not magnified
  double largestScale = 0.0;
  for (int c = 0; c < 2; ++c) {
    const double scale = PanelScale(input.cameras[c].imageSize);
    largestScale = std::max(largestScale, scale);
    for (const std::vector<float>& view : fits[c].cornerErrors) {
      for (float error : view) drawnPx.push_back(error * scale);
    }
  }
  if (drawnPx.empty()) return {};
  // The nearest rank: the ceil(0.95 n)-th smallest.
  const size_t rank = (drawnPx.size() * 95 + 99) / 100 - 1;
  std::nth_element(drawnPx.begin(), drawnPx.begin() + static_cast<std::ptrdiff_t>(rank), drawnPx.end());
  if (!(drawnPx[rank] > 0.0) || !std::isfinite(drawnPx[rank])) return {};
  const double magnification = FloorOneTwoFive(kTypicalArrowPx / drawnPx[rank]);
  if (!std::isfinite(magnification) || !(magnification > 0.0)) return {};
  return {magnification, FloorOneTwoFive(kTypicalArrowPx / (magnification * largestScale))};
}

std::string ErrorLabel(double errorPx) { return Format(errorPx >= 1.0 ? "%.1f px" : "%.2g px", errorPx); }

// Circles the view's worst corners, red over the corner limit, dark grey
// within it; the worst kLabelledCorners get their error beside the circle
// where it does not cover a label already drawn.
void CircleWorstCorners(Panel& panel, const ReportCamera& camera, const CameraFit& fit, size_t view) {
  const std::vector<size_t>& worst = fit.worstCorners[view];
  const cv::Scalar colour = fit.overLimit[view] ? kOutlier : kWorstWithinLimit;
  std::vector<cv::Rect> labels;
  for (size_t n = 0; n < worst.size(); ++n) {
    const cv::Point at(panel.At(camera.corners[view][worst[n]]));
    cv::circle(panel.canvas, at, kCircleRadiusPx, colour, 2, cv::LINE_AA);
    const std::string label = ErrorLabel(fit.cornerErrors[view][worst[n]]);
    const cv::Size size = cv::getTextSize(label, kFont, kFontScale, 1, nullptr);
    const bool right = at.x + kCircleRadiusPx + 2 + size.width < panel.canvas.cols;
    const cv::Point origin = at + cv::Point(right ? kCircleRadiusPx + 2 : -kCircleRadiusPx - 2 - size.width, -kCircleRadiusPx);
    const cv::Rect box(origin - cv::Point(0, size.height), size);
    const auto covers = [&](const cv::Rect& drawn) { return (drawn & box).area() > 0; };
    if (n >= kLabelledCorners || std::any_of(labels.begin(), labels.end(), covers)) continue;
    labels.push_back(box);
    PutText(panel.canvas, label, origin, colour);
  }
}

// One camera's panel of a view: the corners over the image (blank when
// image is empty), the residual arrows and the circled worst corners, with
// the scale and the corner limit in the footer.
cv::Mat ResidualPanel(const ReportCamera& camera, const CameraFit& fit, size_t view, const ArrowScale& arrows,
                      const cv::Mat& image) {
  Panel panel = ImagePanel(camera.imageSize, "", kTitleHeightPx);
  if (!image.empty()) DrawDimmedImage(panel, image);
  const std::string status = fit.outliers[view] ? "  OUTLIER" : "";
  PutText(panel.canvas, camera.name + ": RMS " + Format("%.3f px", fit.errors[view]) + ", limit " +
                            Format("%.3f px", fit.limit) + status,
          {kMarginPx, kTitleHeightPx - 8}, fit.outliers[view] ? kOutlier : kText);
  const std::vector<cv::Point2f>& residuals = fit.residuals[view];
  const float toPanel = static_cast<float>(arrows.magnification * panel.scale);
  for (size_t i = 0; i < residuals.size(); ++i) {
    const cv::Point2f from = panel.At(camera.corners[view][i]);
    cv::circle(panel.canvas, from, 2, kCorner, cv::FILLED, cv::LINE_AA);
    cv::Point2f arrow = residuals[i] * toPanel;
    const double lengthPx = std::hypot(double{arrow.x}, double{arrow.y});
    if (lengthPx > kLongestArrowPx) arrow *= static_cast<float>(kLongestArrowPx / lengthPx);
    const double tip = lengthPx > 0.0 ? std::min(0.25, 8.0 / std::min(lengthPx, kLongestArrowPx)) : 0.25;
    cv::arrowedLine(panel.canvas, from, from + arrow, kArrow, 1, cv::LINE_AA, 0, tip);
  }
  CircleWorstCorners(panel, camera, fit, view);
  cv::Point start(panel.origin.x, panel.canvas.rows - kMarginPx - 6);
  std::string legend = "arrows x" + Format("%.10g", arrows.magnification);
  if (arrows.barPx > 0.0) {
    const int barPx = static_cast<int>(std::lround(arrows.barPx * arrows.magnification * panel.scale));
    cv::line(panel.canvas, start + cv::Point(0, -4), start + cv::Point(barPx, -4), kArrow, 2);
    start.x += barPx + 8;
    legend += ", bar " + Format("%g px", arrows.barPx);
  }
  PutText(panel.canvas, legend + "; circled: over " + Format("%.3f px", fit.cornerLimit) + ", or the worst", start);
  return panel.canvas;
}

std::string ImagesText(const ReportInput& input, size_t view) {
  if (view >= input.viewImages.size()) return "";
  const std::array<std::string, 2>& files = input.viewImages[view];
  return files[0].empty() && files[1].empty() ? "" : files[0] + " " + files[1];
}

cv::Mat ViewPicture(const ReportInput& input, const cv::Mat sides[2], size_t view) {
  const int height = std::max(sides[0].rows, sides[1].rows);
  cv::Mat canvas(height + kTitleHeightPx, sides[0].cols + sides[1].cols, CV_8UC3, kBackground);
  sides[0].copyTo(canvas(cv::Rect(0, kTitleHeightPx, sides[0].cols, sides[0].rows)));
  sides[1].copyTo(canvas(cv::Rect(sides[0].cols, kTitleHeightPx, sides[1].cols, sides[1].rows)));
  const std::string images = ImagesText(input, view);
  PutText(canvas, "pair " + std::to_string(input.viewPairs[view]) + (images.empty() ? "" : ": " + images) +
                      " (residual = detected - reprojected)",
          {kMarginPx, kTitleHeightPx - 6});
  return canvas;
}

// The image file under one camera's panel of a view, or why there is none.
struct PanelImage {
  cv::Mat gray;
  std::string problem;
};

std::string SizeText(const cv::Size& size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

PanelImage HeldPanelImage(const std::string& name, const cv::Mat& gray, const cv::Size& imageSize) {
  if (gray.size() == imageSize) return {gray, ""};
  return {cv::Mat(), name + ": " + SizeText(gray.size()) + ", the camera's images are " + SizeText(imageSize)};
}

PanelImage ReadPanelImage(const std::string& path, const cv::Size& imageSize) {
  if (path.empty()) return {cv::Mat(), "no image file given"};
  try {
    return HeldPanelImage(path, ReadGrayImage(path), imageSize);
  } catch (const std::exception& error) {
    // Deliberately not fatal: the panel shows the corners on a blank background instead.
    return {cv::Mat(), error.what()};
  }
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
          {"corner_outlier_limit_px", fit.cornerLimit},
          {"coverage",
           {{"grid", {grid.width, grid.height}},
            {"corner_counts", fit.cellCounts},
            {"empty_cells", empty},
            {"reached_fraction", 1.0 - static_cast<double>(empty.size()) / grid.area()}}}};
}

// Residuals in report.json: a ten-thousandth of a pixel is far below any corner's accuracy.
double Rounded(double px) { return std::round(px * 1e4) / 1e4; }

nlohmann::json ViewCameraJson(const ReportCamera& camera, const CameraFit& fit, size_t view, const std::string& file,
                              const PanelImage& image) {
  nlohmann::json residuals = nlohmann::json::array(), worst = nlohmann::json::array();
  for (const cv::Point2f& r : fit.residuals[view]) residuals.push_back({Rounded(r.x), Rounded(r.y)});
  for (const size_t i : fit.worstCorners[view]) {
    worst.push_back(
        {{"corner", i + 1}, {"error_px", Rounded(fit.cornerErrors[view][i])}, {"over_limit", bool(fit.overLimit[view])}});
  }
  nlohmann::json json = {{"name", camera.name},
                         {"image", image.gray.empty() ? nlohmann::json(nullptr) : nlohmann::json(file)},
                         {"residuals_px", residuals},
                         {"worst_corners", worst}};
  if (image.gray.empty()) json["image_problem"] = image.problem;
  return json;
}

nlohmann::json RowErrorJson(const std::vector<float>& rowErrors) {
  double sumOfSquares = 0.0, largest = 0.0;
  for (const float error : rowErrors) {
    sumOfSquares += double{error} * error;
    largest = std::max(largest, std::fabs(double{error}));
  }
  return {{"rms", Rounded(std::sqrt(sumOfSquares / std::max<size_t>(rowErrors.size(), 1)))}, {"max", Rounded(largest)}};
}

// Why pair k gave no view of summary; empty when it did.
std::string RejectionReason(const ChartSummary& summary, const ChartSummary& firstRun, size_t k) {
  switch (PairResultOf(summary, k)) {
    case ChartPairResult::kView:
      return "";
    case ChartPairResult::kNoBoardQuickCheck:
      return "board not found (quick check of the main image)";
    case ChartPairResult::kOrderUndecided:
      return "corner order not decided";
    case ChartPairResult::kCornersUnlocated:
      return "corners not located";
    case ChartPairResult::kNoBoard:
      break;
  }
  // The run without outliers clears the found flag of the views it leaves out.
  return PairResultOf(firstRun, k) == ChartPairResult::kView ? "outlier view, left out of the run without outliers"
                                                             : "board not found";
}

}  // namespace

ReportInput ChartReportInput(const dualCalibration& engine, const ChartSummary& summary,
                             const ChartSummary& firstRun, const std::vector<std::string>& images) {
  ReportInput input;
  input.objectPoints = engine.mObjectPoints;
  input.cameras[0] = {"main", {engine.chartImageSizes[0], engine.chartImageSizes[1]}, summary.mono1.K,
                      summary.mono1.D, engine.mImagePoints1};
  input.cameras[1] = {"second", {engine.chartImageSizes[2], engine.chartImageSizes[3]}, summary.mono2.K,
                      summary.mono2.D, engine.mImagePoints2};
  input.viewPairs = PairNumbersOfViews(summary);
  for (const int32_t pair : input.viewPairs) {
    const size_t k = static_cast<size_t>(pair - 1);
    input.viewImages.push_back({2 * k + 1 < images.size() ? images[2 * k] : "",
                                2 * k + 1 < images.size() ? images[2 * k + 1] : ""});
  }
  for (size_t k = 0; k < images.size() / 2; ++k) {
    const std::string why = RejectionReason(summary, firstRun, k);
    if (!why.empty()) input.rejectedPairs.push_back({int32_t(k + 1), images[2 * k] + " " + images[2 * k + 1], why});
  }
  return input;
}

nlohmann::json WriteChartReport(const std::string& directory, const ReportInput& input) {
  const size_t views = input.objectPoints.size();
  if (input.viewPairs.size() != views) throw StationError(directory + ": views without pair numbers");
  for (const ReportCamera& camera : input.cameras) {
    if (camera.corners.size() != views) throw StationError(directory + ": " + camera.name + " corners of other views");
    for (size_t k = 0; k < views; ++k) {
      // A board pose needs four corners.
      if (camera.corners[k].size() != input.objectPoints[k].size() || camera.corners[k].size() < 4) {
        throw StationError(directory + ": view " + std::to_string(k + 1) + " of the " + camera.name +
                           " camera does not hold four or more corners, one per board point");
      }
    }
  }
  if (!input.rowErrors.empty() && input.rowErrors.size() != views) {
    throw StationError(directory + ": row errors of " + std::to_string(input.rowErrors.size()) + " views for " +
                       std::to_string(views));
  }
  CreateOutputFolder(directory);
  CameraFit fits[2];
  nlohmann::json report = {{"outlier_rule", "view error above 3 x the median of the camera's view errors"},
                           {"corner_outlier_rule", "corner error above 5 x the median of the camera's corner errors"},
                           {"cameras", nlohmann::json::array()},
                           {"views", nlohmann::json::array()},
                           {"outlier_pairs", nlohmann::json::array()},
                           {"rejected_pairs", nlohmann::json::array()}};
  for (int c = 0; c < 2; ++c) {
    fits[c] = FitCamera(input.objectPoints, input.cameras[c]);
    fits[c].cellCounts = CellCounts(input.cameras[c]);
    const std::string picture = "coverage_" + input.cameras[c].name + ".png";
    WriteImageAtomically(directory + "/" + picture, CoverageMap(input.cameras[c], fits[c]));
    report["cameras"].push_back(CameraJson(input.cameras[c], fits[c]));
    report["cameras"].back()["picture"] = picture;
  }
  const ArrowScale arrows = RunArrowScale(input, fits);
  report["arrow_scale"] = arrows.magnification;
  report["arrow_bar_px"] = arrows.barPx;
  for (size_t k = 0; k < views; ++k) {
    const int32_t pair = input.viewPairs[k];
    nlohmann::json cameras = nlohmann::json::array();
    cv::Mat sides[2];
    for (int c = 0; c < 2; ++c) {
      // One image at a time, so that memory stays flat however many views there are.
      const std::string file = k < input.viewImages.size() ? input.viewImages[k][c] : "";
      const PanelImage image = k < input.viewPixels.size() ? HeldPanelImage(file, input.viewPixels[k][c], input.cameras[c].imageSize)
                                                           : ReadPanelImage(file, input.cameras[c].imageSize);
      sides[c] = ResidualPanel(input.cameras[c], fits[c], k, arrows, image.gray);
      cameras.push_back(ViewCameraJson(input.cameras[c], fits[c], k, file, image));
    }
    const std::string picture = "pair_" + Format("%02.0f", static_cast<double>(pair)) + ".png";
    WriteImageAtomically(directory + "/" + picture, ViewPicture(input, sides, k));
    const bool outlier = fits[0].outliers[k] || fits[1].outliers[k];
    if (outlier) report["outlier_pairs"].push_back(pair);
    nlohmann::json view = {{"pair", pair},
                           {"images", ImagesText(input, k)},
                           {"error_px", {fits[0].errors[k], fits[1].errors[k]}},
                           {"outlier", outlier},
                           {"picture", picture},
                           {"cameras", cameras}};
    if (!input.rowErrors.empty()) view["row_error_px"] = RowErrorJson(input.rowErrors[k]);
    report["views"].push_back(view);
  }
  for (const ReportRejectedPair& rejected : input.rejectedPairs) {
    report["rejected_pairs"].push_back({{"pair", rejected.pair}, {"images", rejected.images}, {"why", rejected.why}});
  }
  WriteImageAtomically(directory + "/errors.png", ErrorChart(input, fits));
  report["errors_picture"] = "errors.png";
  if (!input.recapture.empty()) report["recapture"] = input.recapture;
  WriteJsonAtomically(directory + "/report.json", report);
  return report;
}
