#include "station/StereoVerification.h"

#include "station/CameraModel.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

namespace {

using Views = std::vector<std::vector<cv::Point2f>>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
// OpenCV's default stops after 5 iterations, short of convergence under a strong lens.
const cv::TermCriteria kUndistortCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 100, 1e-9);
// An R read back from a text file has lost digits; one further from orthonormal is not a rotation.
constexpr double kRotationTolerance = 1e-4;

// The calibration as the computations take it, checked.
struct Rig {
  cv::Size imageSize;
  cv::Matx33d K1, K2, R;
  cv::Mat D1, D2;  // 1xN CV_64F, or empty for none
  cv::Vec3d T;
};

std::string SizeText(cv::Size size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

std::string Number(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

void CheckImageSize(cv::Size size) {
  if (size.width <= 0 || size.height <= 0)
    throw StationError("calibration: image size " + SizeText(size) + " is not positive");
}

// A finite 3x3 matrix as doubles, or false.
bool ReadMatx33(const cv::Mat& matrix, cv::Matx33d& out) {
  if (!IsFloatMatrix(matrix) || matrix.rows != 3 || matrix.cols != 3) return false;
  cv::Mat converted;
  matrix.convertTo(converted, CV_64F);
  if (!cv::checkRange(converted)) return false;
  out = cv::Matx33d(converted.ptr<double>());
  return true;
}

Rig CheckedRig(const StereoCalibration& calibration) {
  Rig rig;
  rig.imageSize = calibration.imageSize;
  CheckImageSize(rig.imageSize);
  rig.K1 = CheckedCameraMatrix(calibration.K1, "calibration: K1");
  rig.K2 = CheckedCameraMatrix(calibration.K2, "calibration: K2");
  // An empty D is a camera without lens distortion.
  rig.D1 = calibration.D1.empty() ? cv::Mat() : CheckedLensCoefficients(calibration.D1, "calibration: D1");
  rig.D2 = calibration.D2.empty() ? cv::Mat() : CheckedLensCoefficients(calibration.D2, "calibration: D2");
  if (!ReadMatx33(calibration.R, rig.R) || cv::determinant(rig.R) < 0 ||
      cv::norm(rig.R.t() * rig.R - cv::Matx33d::eye(), cv::NORM_INF) > kRotationTolerance)
    throw StationError("calibration: R is not a 3x3 rotation");
  rig.T = calibration.T;
  if (!cv::checkRange(rig.T) || cv::norm(rig.T) == 0)
    throw StationError("calibration: T is not a finite translation other than zero");
  return rig;
}

void CheckCorners(cv::Size imageSize, const std::vector<cv::Point2f>& corners, size_t view, const char* camera) {
  for (size_t i = 0; i < corners.size(); ++i) {
    const cv::Point2f& corner = corners[i];
    const auto where = [&] {
      return "view " + std::to_string(view + 1) + ": " + camera + " corner " + std::to_string(i + 1);
    };
    if (!std::isfinite(corner.x) || !std::isfinite(corner.y)) throw StationError(where() + " is not finite");
    if (corner.x < -0.5f || corner.y < -0.5f || corner.x > imageSize.width - 0.5 || corner.y > imageSize.height - 0.5)
      throw StationError(where() + " at (" + Number("%g", corner.x) + ", " + Number("%g", corner.y) +
                         ") lies outside the " + SizeText(imageSize) + " image");
  }
}

void CheckViews(cv::Size imageSize, const Views& mainCorners, const Views& secondCorners) {
  if (mainCorners.empty() && secondCorners.empty()) throw StationError("no views to verify");
  if (mainCorners.size() != secondCorners.size())
    throw StationError(std::to_string(mainCorners.size()) + " main views but " + std::to_string(secondCorners.size()) +
                       " second views");
  for (size_t view = 0; view < mainCorners.size(); ++view) {
    const std::string name = "view " + std::to_string(view + 1) + ": ";
    if (mainCorners[view].size() != secondCorners[view].size())
      throw StationError(name + std::to_string(mainCorners[view].size()) + " main corners but " +
                         std::to_string(secondCorners[view].size()) + " second corners");
    if (mainCorners[view].empty()) throw StationError(name + "no corners");
    CheckCorners(imageSize, mainCorners[view], view, "main");
    CheckCorners(imageSize, secondCorners[view], view, "second");
  }
}

std::vector<cv::Point2d> Undistorted(const std::vector<cv::Point2f>& corners, const cv::Matx33d& K, const cv::Mat& D,
                                     cv::InputArray R, cv::InputArray P) {
  const std::vector<cv::Point2d> distorted(corners.begin(), corners.end());
  std::vector<cv::Point2d> undistorted;
  cv::undistortPoints(distorted, undistorted, K, D, R, P, kUndistortCriteria);
  return undistorted;
}

cv::Matx33d Skew(const cv::Vec3d& t) { return {0, -t[2], t[1], t[2], 0, -t[0], -t[1], t[0], 0}; }

// The mean distance of each point to the epipolar line of the other, pixels.
double EpipolarError(const cv::Matx33d& F, const cv::Point2d& main, const cv::Point2d& second) {
  const cv::Vec3d x1(main.x, main.y, 1), x2(second.x, second.y, 1);
  const cv::Vec3d line2 = F * x1, line1 = F.t() * x2;
  const double residual = std::abs(x2.dot(line2));
  const double norm1 = std::hypot(line1[0], line1[1]), norm2 = std::hypot(line2[0], line2[1]);
  if (!(norm1 > 0 && norm2 > 0)) return kInfinity;  // a corner at its epipole
  return 0.5 * (residual / norm2 + residual / norm1);
}

ErrorFigures Figures(std::vector<double> errors) {
  ErrorFigures figures;
  figures.count = errors.size();
  if (errors.empty()) return figures;
  double sumSquares = 0;
  for (double& error : errors) {
    error = std::isnan(error) ? kInfinity : std::abs(error);
    sumSquares += error * error;
  }
  std::sort(errors.begin(), errors.end());
  figures.rms = std::sqrt(sumSquares / static_cast<double>(errors.size()));
  figures.p95 = errors[(95 * errors.size() + 99) / 100 - 1];
  figures.max = errors.back();
  return figures;
}

// A double beyond float's range converted is undefined; it is kept as an infinity.
float StoredError(double error) {
  if (std::isnan(error) || std::abs(error) <= FLT_MAX) return static_cast<float>(error);
  return error > 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
}

// The map's layout, pixels.
constexpr int kMapMaxSidePx = 800;
constexpr int kMapMinSidePx = 48;
constexpr int kMarginPx = 16;
constexpr int kTitleBandPx = 56;
constexpr int kBarGapPx = 24;
constexpr int kBarWidthPx = 20;
constexpr int kBarMinHeightPx = 200;
constexpr int kTickIntervals = 4;
constexpr double kMinTickStepPx = 0.001;
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kFontScale = 0.5;
const cv::Scalar kPaper(255, 255, 255), kInk(0, 0, 0), kEmptyFill(200, 200, 200), kEmptyCross(120, 120, 120);

cv::Rect CellRect(const cv::Rect& area, int column, int row) {
  const int x0 = column * area.width / kRowErrorMapColumns, x1 = (column + 1) * area.width / kRowErrorMapColumns;
  const int y0 = row * area.height / kRowErrorMapRows, y1 = (row + 1) * area.height / kRowErrorMapRows;
  return cv::Rect(area.x + x0, area.y + y0, x1 - x0, y1 - y0);
}

// The cell along one side holding a position checked to lie in [-0.5, side - 0.5].
int CellOf(float position, int side, int cells) {
  return std::min(cells - 1, static_cast<int>(std::floor((position + 0.5) * cells / side)));
}

// Per cell, row by row: the RMS |row error| of its corners, or -1 for none.
std::vector<double> CellRms(cv::Size imageSize, const Views& mainCorners, const StereoVerification& verification) {
  const int cells = kRowErrorMapColumns * kRowErrorMapRows;
  std::vector<double> sumSquares(cells, 0.0);
  std::vector<size_t> counts(cells, 0);
  for (size_t view = 0; view < mainCorners.size(); ++view) {
    for (size_t i = 0; i < mainCorners[view].size(); ++i) {
      const cv::Point2f& corner = mainCorners[view][i];
      const int cell = CellOf(corner.y, imageSize.height, kRowErrorMapRows) * kRowErrorMapColumns +
                       CellOf(corner.x, imageSize.width, kRowErrorMapColumns);
      const double error = std::isnan(verification.rowErrors[view][i]) ? kInfinity : verification.rowErrors[view][i];
      sumSquares[cell] += error * error;
      ++counts[cell];
    }
  }
  std::vector<double> rms(cells, -1.0);
  for (int cell = 0; cell < cells; ++cell)
    if (counts[cell] > 0) rms[cell] = std::sqrt(sumSquares[cell] / static_cast<double>(counts[cell]));
  return rms;
}

// A round tick step (1, 2 or 5 times a power of ten) whose kTickIntervals steps reach maxPx.
double TickStepPx(double maxPx) {
  const double target = std::max(maxPx / kTickIntervals, kMinTickStepPx);
  const double power = std::pow(10.0, std::floor(std::log10(target)));
  for (double multiple : {1.0, 2.0, 5.0})
    if (multiple * power >= target) return multiple * power;
  return 10 * power;
}

std::string TickLabel(double valuePx, double stepPx) {
  if (stepPx >= 1e5) return Number("%.3g px", valuePx);
  const int decimals = std::max(2, static_cast<int>(std::ceil(-std::log10(stepPx) - 1e-9)));
  char text[64];
  std::snprintf(text, sizeof text, "%.*f px", decimals, valuePx);
  return text;
}

cv::Scalar RampColour(const cv::Mat& ramp, double valuePx, double topPx) {
  const double fraction = valuePx < topPx ? valuePx / topPx : 1.0;  // an infinite cell at the top
  const cv::Vec3b colour = ramp.at<cv::Vec3b>(0, static_cast<int>(std::lround(fraction * 255)));
  return cv::Scalar(colour[0], colour[1], colour[2]);
}

int TextWidth(const std::string& text) {
  int baseline = 0;
  return cv::getTextSize(text, kFont, kFontScale, 1, &baseline).width;
}

void Text(cv::Mat& canvas, const std::string& text, cv::Point origin) {
  cv::putText(canvas, text, origin, kFont, kFontScale, kInk, 1, cv::LINE_AA);
}

void DrawCells(cv::Mat& canvas, const cv::Rect& area, const std::vector<double>& cellRms, const cv::Mat& ramp,
               double topPx) {
  for (int row = 0; row < kRowErrorMapRows; ++row) {
    for (int column = 0; column < kRowErrorMapColumns; ++column) {
      const cv::Rect cell = CellRect(area, column, row);
      const double rms = cellRms[row * kRowErrorMapColumns + column];
      if (rms >= 0) {
        cv::rectangle(canvas, cell, RampColour(ramp, rms, topPx), cv::FILLED);
      } else {
        cv::rectangle(canvas, cell, kEmptyFill, cv::FILLED);
        cv::line(canvas, cell.tl(), cell.br() - cv::Point(1, 1), kEmptyCross);
        cv::line(canvas, cv::Point(cell.x, cell.y + cell.height - 1), cv::Point(cell.x + cell.width - 1, cell.y),
                 kEmptyCross);
      }
    }
  }
  for (int column = 1; column < kRowErrorMapColumns; ++column) {
    const int x = CellRect(area, column, 0).x;
    cv::line(canvas, cv::Point(x, area.y), cv::Point(x, area.y + area.height - 1), kPaper);
  }
  for (int row = 1; row < kRowErrorMapRows; ++row) {
    const int y = CellRect(area, 0, row).y;
    cv::line(canvas, cv::Point(area.x, y), cv::Point(area.x + area.width - 1, y), kPaper);
  }
  cv::rectangle(canvas, area, kInk);
}

// The colour bar from 0 at the bottom to topPx, with its ticks labelled.
void DrawBar(cv::Mat& canvas, const cv::Rect& bar, const cv::Mat& ramp, double stepPx) {
  const double topPx = kTickIntervals * stepPx;
  for (int y = 0; y < bar.height; ++y) {
    const double valuePx = topPx * (bar.height - 1 - y) / (bar.height - 1);
    cv::line(canvas, cv::Point(bar.x, bar.y + y), cv::Point(bar.x + bar.width - 1, bar.y + y),
             RampColour(ramp, valuePx, topPx));
  }
  cv::rectangle(canvas, bar, kInk);
  for (int tick = 0; tick <= kTickIntervals; ++tick) {
    const int y = bar.y + bar.height - 1 - tick * (bar.height - 1) / kTickIntervals;
    cv::line(canvas, cv::Point(bar.x + bar.width, y), cv::Point(bar.x + bar.width + 4, y), kInk);
    Text(canvas, TickLabel(tick * stepPx, stepPx), cv::Point(bar.x + bar.width + 8, y + 5));
  }
}

}  // namespace

StereoVerification VerifyStereo(const StereoCalibration& calibration, const Views& mainCorners,
                                const Views& secondCorners) {
  const Rig rig = CheckedRig(calibration);
  CheckViews(rig.imageSize, mainCorners, secondCorners);
  cv::Mat R1, R2, P1, P2, Q;
  cv::stereoRectify(rig.K1, rig.D1, rig.K2, rig.D2, rig.imageSize, rig.R, rig.T, R1, R2, P1, P2, Q,
                    cv::CALIB_ZERO_DISPARITY, -1);
  const cv::Matx33d F = rig.K2.inv().t() * Skew(rig.T) * rig.R * rig.K1.inv();

  StereoVerification verification;
  std::vector<double> allRowErrors, allEpipolarErrors;
  for (size_t view = 0; view < mainCorners.size(); ++view) {
    const std::vector<cv::Point2d> mainRectified = Undistorted(mainCorners[view], rig.K1, rig.D1, R1, P1);
    const std::vector<cv::Point2d> secondRectified = Undistorted(secondCorners[view], rig.K2, rig.D2, R2, P2);
    const std::vector<cv::Point2d> mainPx = Undistorted(mainCorners[view], rig.K1, rig.D1, cv::noArray(), rig.K1);
    const std::vector<cv::Point2d> secondPx = Undistorted(secondCorners[view], rig.K2, rig.D2, cv::noArray(), rig.K2);
    std::vector<double> rowErrors(mainRectified.size());
    std::vector<float>& stored = verification.rowErrors.emplace_back();
    for (size_t i = 0; i < rowErrors.size(); ++i) {
      rowErrors[i] = secondRectified[i].y - mainRectified[i].y;
      stored.push_back(StoredError(rowErrors[i]));
      allEpipolarErrors.push_back(EpipolarError(F, mainPx[i], secondPx[i]));
    }
    allRowErrors.insert(allRowErrors.end(), rowErrors.begin(), rowErrors.end());
    verification.viewRowErrors.push_back(Figures(std::move(rowErrors)));
  }
  verification.rowError = Figures(std::move(allRowErrors));
  verification.epipolarError = Figures(std::move(allEpipolarErrors));
  return verification;
}

cv::Rect RowErrorMapArea(cv::Size imageSize) {
  CheckImageSize(imageSize);
  const double scale = std::min(static_cast<double>(kMapMaxSidePx) / imageSize.width,
                                static_cast<double>(kMapMaxSidePx) / imageSize.height);
  return cv::Rect(kMarginPx, kTitleBandPx,
                  std::max(kMapMinSidePx, static_cast<int>(std::lround(imageSize.width * scale))),
                  std::max(kMapMinSidePx, static_cast<int>(std::lround(imageSize.height * scale))));
}

cv::Mat RowErrorMap(const StereoCalibration& calibration, const Views& mainCorners,
                    const StereoVerification& verification) {
  const cv::Rect area = RowErrorMapArea(calibration.imageSize);
  if (verification.rowErrors.size() != mainCorners.size())
    throw StationError("the verification holds " + std::to_string(verification.rowErrors.size()) +
                       " views, the corners " + std::to_string(mainCorners.size()));
  for (size_t view = 0; view < mainCorners.size(); ++view) {
    if (verification.rowErrors[view].size() != mainCorners[view].size())
      throw StationError("view " + std::to_string(view + 1) + ": the verification holds " +
                         std::to_string(verification.rowErrors[view].size()) + " row errors, the corners " +
                         std::to_string(mainCorners[view].size()));
    CheckCorners(calibration.imageSize, mainCorners[view], view, "main");
  }

  const std::vector<double> cellRms = CellRms(calibration.imageSize, mainCorners, verification);
  double maxCellPx = 0;
  for (double rms : cellRms)
    if (std::isfinite(rms)) maxCellPx = std::max(maxCellPx, rms);
  const double stepPx = TickStepPx(maxCellPx);
  cv::Mat ramp, levels(1, 256, CV_8UC1);
  for (int level = 0; level < 256; ++level) levels.at<uchar>(0, level) = static_cast<uchar>(level);
  cv::applyColorMap(levels, ramp, cv::COLORMAP_VIRIDIS);

  const ErrorFigures& figures = verification.rowError;
  const std::string heading = "Row error, second minus main camera, rectified: " + std::to_string(figures.count) +
                              " corners in " + std::to_string(mainCorners.size()) + " views";
  const std::string title = "RMS " + Number("%.3f", figures.rms) + " px   p95 " + Number("%.3f", figures.p95) +
                            " px   max " + Number("%.3f", figures.max) + " px";
  const std::string note = "Cell: RMS |row error| of the corners it holds in the main image (" +
                           std::to_string(kRowErrorMapColumns) + " x " + std::to_string(kRowErrorMapRows) +
                           "); grey with a cross: none";
  const cv::Rect bar(area.x + area.width + kBarGapPx, area.y, kBarWidthPx, std::max(area.height, kBarMinHeightPx));
  int labelWidth = 0;
  for (int tick = 0; tick <= kTickIntervals; ++tick)
    labelWidth = std::max(labelWidth, TextWidth(TickLabel(tick * stepPx, stepPx)));
  const int width = std::max({bar.x + bar.width + 8 + labelWidth, kMarginPx + TextWidth(heading),
                              kMarginPx + TextWidth(note)}) + kMarginPx;
  const int noteY = bar.y + bar.height + 22;
  cv::Mat canvas(noteY + 12, width, CV_8UC3, kPaper);

  Text(canvas, heading, cv::Point(kMarginPx, 20));
  Text(canvas, title, cv::Point(kMarginPx, 42));
  DrawCells(canvas, area, cellRms, ramp, kTickIntervals * stepPx);
  DrawBar(canvas, bar, ramp, stepPx);
  Text(canvas, note, cv::Point(kMarginPx, noteY));
  return canvas;
}
