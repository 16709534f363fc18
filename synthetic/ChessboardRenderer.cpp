#include "synthetic/ChessboardRenderer.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>

#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"

namespace {

using Polygon = std::vector<cv::Point2d>;

constexpr double kHalfPixelDiagonal = 0.70710678118654752;
constexpr int kImageMarginPx = 32;
constexpr double kMinSquareSidePx = 48.0;
constexpr int kAttemptsPerPose = 2000;

double SignedArea(const Polygon& polygon) {
  double twiceArea = 0.0;
  for (size_t i = 0; i < polygon.size(); ++i) {
    const cv::Point2d& a = polygon[i];
    const cv::Point2d& b = polygon[(i + 1) % polygon.size()];
    twiceArea += a.x * b.y - b.x * a.y;
  }
  return 0.5 * twiceArea;
}

// One edge of a convex polygon of positive signed area as the line
// normal . p + offset = 0, the normal of unit length pointing inside.
struct InnerHalfPlane {
  cv::Point2d normal;
  double offset;

  double Distance(const cv::Point2d& p) const { return normal.dot(p) + offset; }
};

std::vector<InnerHalfPlane> HalfPlanes(const Polygon& polygon) {
  std::vector<InnerHalfPlane> planes;
  for (size_t i = 0; i < polygon.size(); ++i) {
    const cv::Point2d& a = polygon[i];
    const cv::Point2d edge = polygon[(i + 1) % polygon.size()] - a;
    const cv::Point2d normal = cv::Point2d(-edge.y, edge.x) * (1.0 / std::hypot(edge.x, edge.y));
    planes.push_back({normal, -normal.dot(a)});
  }
  return planes;
}

// Sutherland-Hodgman step: keeps the part of subject on the inner side of plane.
Polygon ClipByPlane(const Polygon& subject, const InnerHalfPlane& plane) {
  Polygon kept;
  for (size_t i = 0; i < subject.size(); ++i) {
    const cv::Point2d& p = subject[i];
    const cv::Point2d& q = subject[(i + 1) % subject.size()];
    const double dp = plane.Distance(p);
    const double dq = plane.Distance(q);
    if (dp >= 0.0) kept.push_back(p);
    if ((dp >= 0.0) != (dq >= 0.0)) kept.push_back(p + (q - p) * (dp / (dp - dq)));
  }
  return kept;
}

double PixelCoverage(const std::vector<InnerHalfPlane>& planes, int x, int y) {
  Polygon pixel = {{x - 0.5, y - 0.5}, {x + 0.5, y - 0.5}, {x + 0.5, y + 0.5}, {x - 0.5, y + 0.5}};
  for (size_t i = 0; i < planes.size() && !pixel.empty(); ++i) pixel = ClipByPlane(pixel, planes[i]);
  return pixel.size() < 3 ? 0.0 : SignedArea(pixel);
}

// Columns [first, last] of row y whose pixel centres lie at least margin
// inside every plane (margin may be negative).
cv::Vec2d ColumnSpan(const std::vector<InnerHalfPlane>& planes, double y, double margin) {
  double first = -1e300, last = 1e300;
  for (const InnerHalfPlane& plane : planes) {
    const double rest = margin - plane.normal.y * y - plane.offset;
    if (plane.normal.x > 0.0) {
      first = std::max(first, rest / plane.normal.x);
    } else if (plane.normal.x < 0.0) {
      last = std::min(last, rest / plane.normal.x);
    } else if (rest > 0.0) {
      return {1.0, 0.0};
    }
  }
  return {std::ceil(first), std::floor(last)};
}

// Adds the exact area of every pixel covered by a convex polygon: pixels
// whose centre lies half a diagonal inside every edge count fully, pixels
// near an edge are clipped.
void AddCoverage(Polygon polygon, cv::Mat& coverage) {
  if (SignedArea(polygon) < 0.0) std::reverse(polygon.begin(), polygon.end());
  const std::vector<InnerHalfPlane> planes = HalfPlanes(polygon);
  double minY = polygon[0].y, maxY = minY;
  for (const cv::Point2d& p : polygon) minY = std::min(minY, p.y), maxY = std::max(maxY, p.y);
  const int y0 = std::max(0, static_cast<int>(std::floor(minY)));
  const int y1 = std::min(coverage.rows - 1, static_cast<int>(std::ceil(maxY)));
  for (int y = y0; y <= y1; ++y) {
    const cv::Vec2d touched = ColumnSpan(planes, y, -kHalfPixelDiagonal);
    const cv::Vec2d inside = ColumnSpan(planes, y, kHalfPixelDiagonal);
    const int x0 = static_cast<int>(std::max(0.0, touched[0]));
    const int x1 = static_cast<int>(std::min(coverage.cols - 1.0, touched[1]));
    float* row = coverage.ptr<float>(y);
    for (int x = x0; x <= x1; ++x) {
      const bool full = x >= inside[0] && x <= inside[1];
      row[x] += full ? 1.0f : static_cast<float>(PixelCoverage(planes, x, y));
    }
  }
}

cv::Point2d Project(const PinholeCamera& camera, const cv::Matx33d& rotation, const cv::Vec3d& translation,
                    double boardX, double boardY) {
  const cv::Vec3d inCamera = rotation * cv::Vec3d(boardX, boardY, 0.0) + translation;
  const cv::Vec3d pixel = camera.K * inCamera;
  return {pixel[0] / pixel[2], pixel[1] / pixel[2]};
}

Polygon ProjectRectangle(const PinholeCamera& camera, const cv::Matx33d& rotation, const cv::Vec3d& translation,
                         double left, double top, double right, double bottom) {
  return {Project(camera, rotation, translation, left, top), Project(camera, rotation, translation, right, top),
          Project(camera, rotation, translation, right, bottom), Project(camera, rotation, translation, left, bottom)};
}

// Board extent with its margin, in board units: left, top, right, bottom.
cv::Vec4d BoardExtent(const ChessboardLayout& layout) {
  const double border = (1.0 + layout.marginSquares) * layout.squareSize;
  return {-border, -border, layout.width * layout.squareSize - layout.squareSize + border,
          layout.height * layout.squareSize - layout.squareSize + border};
}

void AddNoise(cv::Mat& image, double sigma, uint64_t seed) {
  if (sigma <= 0.0) return;
  cv::Mat noise(image.size(), CV_32F);
  cv::RNG rng(seed);
  rng.fill(noise, cv::RNG::NORMAL, 0.0, sigma);
  image += noise;
}

cv::Matx33d Rotation(const cv::Vec3d& rvec) {
  cv::Matx33d rotation;
  cv::Rodrigues(rvec, rotation);
  return rotation;
}

bool InsideImage(const Polygon& polygon, const cv::Size& size) {
  for (const cv::Point2d& p : polygon) {
    if (p.x < kImageMarginPx || p.y < kImageMarginPx || p.x > size.width - 1 - kImageMarginPx ||
        p.y > size.height - 1 - kImageMarginPx) {
      return false;
    }
  }
  return true;
}

double SmallestSquareSide(const std::vector<cv::Point2f>& corners, const ChessboardLayout& layout) {
  double smallest = 1e300;
  for (int i = 0; i < layout.height; ++i) {
    for (int j = 0; j < layout.width; ++j) {
      const cv::Point2f& corner = corners[i * layout.width + j];
      if (j + 1 < layout.width) smallest = std::min(smallest, cv::norm(corners[i * layout.width + j + 1] - corner));
      if (i + 1 < layout.height) smallest = std::min(smallest, cv::norm(corners[(i + 1) * layout.width + j] - corner));
    }
  }
  return smallest;
}

bool SeenWell(const PinholeCamera& camera, const ChessboardLayout& layout, const cv::Matx33d& rotation,
              const cv::Vec3d& translation) {
  const cv::Vec4d extent = BoardExtent(layout);
  for (int corner = 0; corner < 4; ++corner) {
    const double x = corner % 2 == 0 ? extent[0] : extent[2];
    const double y = corner < 2 ? extent[1] : extent[3];
    if ((rotation * cv::Vec3d(x, y, 0.0) + translation)[2] <= 0.0) return false;
  }
  const Polygon outline =
      ProjectRectangle(camera, rotation, translation, extent[0], extent[1], extent[2], extent[3]);
  return InsideImage(outline, camera.size) &&
         SmallestSquareSide(ProjectBoardCorners(camera, layout, rotation, translation), layout) >= kMinSquareSidePx;
}

BoardPose DrawPose(const StereoRig& rig, const ChessboardLayout& layout, double maxTiltDeg, double maxRollDeg,
                   std::mt19937_64& generator) {
  const double degToRad = CV_PI / 180.0;
  std::uniform_real_distribution<double> tilt(-maxTiltDeg * degToRad, maxTiltDeg * degToRad);
  std::uniform_real_distribution<double> roll(-maxRollDeg * degToRad, maxRollDeg * degToRad);
  std::uniform_real_distribution<double> widthFraction(0.45, 0.75);
  std::uniform_real_distribution<double> offset(-0.15, 0.15);
  const cv::Matx33d rotation = Rotation({0.0, 0.0, roll(generator)}) * Rotation({0.0, tilt(generator), 0.0}) *
                               Rotation({tilt(generator), 0.0, 0.0});
  const cv::Vec4d extent = BoardExtent(layout);
  const double focal = rig.main.K(0, 0);
  const double depth = focal * (extent[2] - extent[0]) / (widthFraction(generator) * rig.main.size.width);
  const cv::Vec3d centreInCamera((offset(generator) * rig.main.size.width) * depth / focal,
                                 (offset(generator) * rig.main.size.height) * depth / focal, depth);
  const cv::Vec3d boardCentre(0.5 * (extent[0] + extent[2]), 0.5 * (extent[1] + extent[3]), 0.0);
  cv::Vec3d rvec;
  cv::Rodrigues(rotation, rvec);
  return {rvec, centreInCamera - rotation * boardCentre};
}

nlohmann::json MatrixJson(const cv::Matx33d& matrix) {
  return {{matrix(0, 0), matrix(0, 1), matrix(0, 2)},
          {matrix(1, 0), matrix(1, 1), matrix(1, 2)},
          {matrix(2, 0), matrix(2, 1), matrix(2, 2)}};
}

nlohmann::json PointsJson(const std::vector<cv::Point2f>& points) {
  nlohmann::json list = nlohmann::json::array();
  for (const cv::Point2f& p : points) list.push_back({p.x, p.y});
  return list;
}

nlohmann::json CameraJson(const PinholeCamera& camera) {
  return {{"K", MatrixJson(camera.K)}, {"width", camera.size.width}, {"height", camera.size.height}};
}

nlohmann::json GroundTruthJson(const StereoRig& rig, const ChessboardLayout& layout, const RenderOptions& options,
                               const std::vector<RenderedPair>& pairs) {
  nlohmann::json root;
  root["main_camera"] = CameraJson(rig.main);
  root["second_camera"] = CameraJson(rig.second);
  root["R"] = MatrixJson(rig.R);
  root["T"] = {rig.T[0], rig.T[1], rig.T[2]};
  root["board"] = {{"width", layout.width},
                   {"height", layout.height},
                   {"square_size", layout.squareSize},
                   {"margin_squares", layout.marginSquares}};
  root["render"] = {{"dark", options.darkLevel},        {"light", options.lightLevel},
                    {"background", options.backgroundLevel}, {"blur_sigma_px", options.blurSigmaPx},
                    {"noise_sigma", options.noiseSigma}};
  root["pairs"] = nlohmann::json::array();
  for (size_t k = 0; k < pairs.size(); ++k) {
    const BoardPose& pose = pairs[k].pose;
    root["pairs"].push_back({{"main_image", "pair_" + std::to_string(k) + "_main.png"},
                             {"second_image", "pair_" + std::to_string(k) + "_second.png"},
                             {"rvec", {pose.rvec[0], pose.rvec[1], pose.rvec[2]}},
                             {"tvec", {pose.tvec[0], pose.tvec[1], pose.tvec[2]}},
                             {"main_corners", PointsJson(pairs[k].mainCorners)},
                             {"second_corners", PointsJson(pairs[k].secondCorners)}});
  }
  return root;
}

}  // namespace

StereoRig ExampleStereoRig(const cv::Size& mainSize, const cv::Size& secondSize) {
  const double scale = mainSize.width / 2000.0;
  const double secondScale = secondSize.width / 2000.0;
  StereoRig rig;
  rig.main.size = mainSize;
  rig.main.K = {1600.0 * scale, 0.0, 0.5 * mainSize.width + 3.7 * scale,
                0.0, 1601.5 * scale, 0.5 * mainSize.height - 6.2 * scale,
                0.0, 0.0, 1.0};
  rig.second.size = secondSize;
  rig.second.K = {1650.0 * secondScale, 0.0, 0.5 * secondSize.width - 9.1 * secondScale,
                  0.0, 1648.0 * secondScale, 0.5 * secondSize.height + 4.4 * secondScale,
                  0.0, 0.0, 1.0};
  const double degToRad = CV_PI / 180.0;
  rig.R = Rotation({0.31 * degToRad, -0.42 * degToRad, 0.27 * degToRad});
  rig.T = {-40.0, 0.6, 1.2};
  return rig;
}

StereoRig PhoneStereoRig(const cv::Size& mainSize, const cv::Size& secondSize) {
  const double mainFocal = 0.75 * mainSize.width;
  const double secondFocal = 1.5 * 0.75 * secondSize.width;
  StereoRig rig;
  rig.main.size = mainSize;
  rig.main.K = {mainFocal, 0.0, 0.5 * mainSize.width + 5.3, 0.0, mainFocal * 1.0004, 0.5 * mainSize.height - 4.1,
                0.0, 0.0, 1.0};
  rig.second.size = secondSize;
  rig.second.K = {secondFocal, 0.0, 0.5 * secondSize.width - 7.9, 0.0, secondFocal * 0.9997,
                  0.5 * secondSize.height + 6.6, 0.0, 0.0, 1.0};
  const double degToRad = CV_PI / 180.0;
  rig.R = Rotation({0.2 * degToRad, -1.0 * degToRad, 0.3 * degToRad});
  rig.T = {-12.0, 0.25, 0.4};
  return rig;
}

std::vector<BoardPose> RandomBoardPoses(const StereoRig& rig, const ChessboardLayout& layout, int count,
                                        uint64_t seed, double maxTiltDeg, double maxRollDeg) {
  std::mt19937_64 generator(seed);
  std::vector<BoardPose> poses;
  for (int attempt = 0; attempt < count * kAttemptsPerPose && static_cast<int>(poses.size()) < count; ++attempt) {
    const BoardPose pose = DrawPose(rig, layout, maxTiltDeg, maxRollDeg, generator);
    const cv::Matx33d rotation = Rotation(pose.rvec);
    if (SeenWell(rig.main, layout, rotation, pose.tvec) &&
        SeenWell(rig.second, layout, rig.R * rotation, rig.R * pose.tvec + rig.T)) {
      poses.push_back(pose);
    }
  }
  return poses;
}

std::vector<cv::Point2f> ProjectBoardCorners(const PinholeCamera& camera, const ChessboardLayout& layout,
                                             const cv::Matx33d& rotation, const cv::Vec3d& translation) {
  std::vector<cv::Point2f> corners;
  for (int i = 0; i < layout.height; ++i) {
    for (int j = 0; j < layout.width; ++j) {
      const cv::Point2d p = Project(camera, rotation, translation, j * layout.squareSize, i * layout.squareSize);
      corners.emplace_back(static_cast<float>(p.x), static_cast<float>(p.y));
    }
  }
  return corners;
}

cv::Mat RenderBoardView(const PinholeCamera& camera, const ChessboardLayout& layout, const cv::Matx33d& rotation,
                        const cv::Vec3d& translation, const RenderOptions& options, uint64_t noiseSeed) {
  cv::Mat boardCoverage = cv::Mat::zeros(camera.size, CV_32F);
  cv::Mat darkCoverage = cv::Mat::zeros(camera.size, CV_32F);
  const cv::Vec4d extent = BoardExtent(layout);
  AddCoverage(ProjectRectangle(camera, rotation, translation, extent[0], extent[1], extent[2], extent[3]),
              boardCoverage);
  const double s = layout.squareSize;
  for (int b = -1; b < layout.height; ++b) {
    for (int a = -1; a < layout.width; ++a) {
      if ((a + b) % 2 != 0) continue;
      AddCoverage(ProjectRectangle(camera, rotation, translation, a * s, b * s, (a + 1) * s, (b + 1) * s),
                  darkCoverage);
    }
  }
  cv::Mat image = options.backgroundLevel + (options.lightLevel - options.backgroundLevel) * boardCoverage +
                  (options.darkLevel - options.lightLevel) * darkCoverage;
  if (options.blurSigmaPx > 0.0) cv::GaussianBlur(image, image, cv::Size(0, 0), options.blurSigmaPx);
  AddNoise(image, options.noiseSigma, noiseSeed);
  cv::Mat grey;
  image.convertTo(grey, CV_8U);
  return grey;
}

cv::Mat RenderEmptyView(const cv::Size& size, const RenderOptions& options, uint64_t noiseSeed) {
  cv::Mat image(size, CV_32F, cv::Scalar(options.backgroundLevel));
  AddNoise(image, options.noiseSigma, noiseSeed);
  cv::Mat grey;
  image.convertTo(grey, CV_8U);
  return grey;
}

RenderedPair RenderPair(const StereoRig& rig, const ChessboardLayout& layout, const BoardPose& pose,
                        const RenderOptions& options, uint64_t noiseSeed) {
  const cv::Matx33d mainRotation = Rotation(pose.rvec);
  const cv::Matx33d secondRotation = rig.R * mainRotation;
  const cv::Vec3d secondTranslation = rig.R * pose.tvec + rig.T;
  RenderedPair pair;
  pair.pose = pose;
  pair.mainImage = RenderBoardView(rig.main, layout, mainRotation, pose.tvec, options, noiseSeed);
  pair.secondImage = RenderBoardView(rig.second, layout, secondRotation, secondTranslation, options, noiseSeed + 1);
  pair.mainCorners = ProjectBoardCorners(rig.main, layout, mainRotation, pose.tvec);
  pair.secondCorners = ProjectBoardCorners(rig.second, layout, secondRotation, secondTranslation);
  return pair;
}

bool WriteRenderedPairs(const std::string& directory, const StereoRig& rig, const ChessboardLayout& layout,
                        const RenderOptions& options, const std::vector<RenderedPair>& pairs) {
  for (size_t k = 0; k < pairs.size(); ++k) {
    const std::string stem = directory + "/pair_" + std::to_string(k);
    if (!cv::imwrite(stem + "_main.png", pairs[k].mainImage)) return false;
    if (!cv::imwrite(stem + "_second.png", pairs[k].secondImage)) return false;
  }
  std::ofstream out(directory + "/ground_truth.json");
  out << GroundTruthJson(rig, layout, options, pairs).dump(2) << "\n";
  return static_cast<bool>(out);
}

void ApplyExampleChartSettings(dualCalibration& engine) {
  engine.m_nBoardWidth = 9, engine.m_nBoardHeight = 6, engine.m_nSquareSize = 25;
  engine.m_nMaxRx = engine.m_nMaxRy = engine.m_nMaxRz = 5;
  engine.m_nMaxTransition = 50;
  engine.m_nMaxReprojectionERROR = 20;
  engine.m_nDualCalibUseIntrinsicGuess = 1;
}
