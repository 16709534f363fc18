#include "synthetic/ChessboardRenderer.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/CoverageRaster.h"

namespace {

using Polygon = std::vector<cv::Point2d>;

constexpr double kHalfPixelDiagonal = 0.70710678118654752;
constexpr int kImageMarginPx = 32;
constexpr double kMinSquareSidePx = 48.0;
constexpr int kAttemptsPerPose = 2000;
// Through a lens, a square's edges are drawn as chords of the bent edge
// that stay within kChordTolerancePx of it, at least 2^kMinChordDepth per edge.
constexpr double kChordTolerancePx = 1e-3;
constexpr int kMinChordDepth = 2;
constexpr int kMaxChordDepth = 20;
// Sides of the pyramid, inscribed in the cone of the lens's monotonic
// radius, that a board is cut to before it is drawn through the lens.
constexpr int kLensConeSides = 256;

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

// A pixel of the camera from a normalised point before its lens.
cv::Point2d PixelOf(const SyntheticCamera& camera, const cv::Point2d& normalised) {
  const cv::Point2d d = DistortNormalised(camera.distortion, normalised);
  return {camera.K(0, 0) * d.x + camera.K(0, 1) * d.y + camera.K(0, 2), camera.K(1, 1) * d.y + camera.K(1, 2)};
}

// A pinhole's projection stays K x / z, so that its scenes keep their exact values.
cv::Point2d Project(const SyntheticCamera& camera, const cv::Matx33d& rotation, const cv::Vec3d& translation,
                    double boardX, double boardY) {
  const cv::Vec3d inCamera = rotation * cv::Vec3d(boardX, boardY, 0.0) + translation;
  if (HasDistortion(camera.distortion)) return PixelOf(camera, {inCamera[0] / inCamera[2], inCamera[1] / inCamera[2]});
  const cv::Vec3d pixel = camera.K * inCamera;
  return {pixel[0] / pixel[2], pixel[1] / pixel[2]};
}

Polygon ProjectRectangle(const SyntheticCamera& camera, const cv::Matx33d& rotation, const cv::Vec3d& translation,
                         double left, double top, double right, double bottom) {
  return {Project(camera, rotation, translation, left, top), Project(camera, rotation, translation, right, top),
          Project(camera, rotation, translation, right, bottom), Project(camera, rotation, translation, left, bottom)};
}

using Polygon3 = std::vector<cv::Vec3d>;

// Sutherland-Hodgman in the camera's frame: keeps the part of the polygon
// inside the pyramid through the camera centre whose cross-section at z = 1
// is a regular polygon inscribed in the circle of the given radius.
Polygon3 ClipToLensCone(Polygon3 polygon, double radius) {
  const double apothem = radius * std::cos(CV_PI / kLensConeSides);
  for (int i = 0; i < kLensConeSides && !polygon.empty(); ++i) {
    const double angle = 2.0 * CV_PI * i / kLensConeSides;
    const cv::Vec3d plane(-std::cos(angle), -std::sin(angle), apothem);  // >= 0 inside
    Polygon3 kept;
    for (size_t k = 0; k < polygon.size(); ++k) {
      const cv::Vec3d& p = polygon[k];
      const cv::Vec3d& q = polygon[(k + 1) % polygon.size()];
      const double dp = plane.dot(p), dq = plane.dot(q);
      if (dp >= 0.0) kept.push_back(p);
      if ((dp >= 0.0) != (dq >= 0.0)) kept.push_back(p + (q - p) * (dp / (dp - dq)));
    }
    polygon = kept;
  }
  return polygon;
}

// Appends the pixels of the bent image of the straight normalised segment
// from -> to, after from's pixel and up to to's.
void AppendBentEdge(const SyntheticCamera& camera, const cv::Point2d& from, const cv::Point2d& to,
                    const cv::Point2d& fromPixel, const cv::Point2d& toPixel, int depth, Polygon& outline) {
  const cv::Point2d middle = 0.5 * (from + to);
  const cv::Point2d middlePixel = PixelOf(camera, middle);
  const bool straight = cv::norm(middlePixel - 0.5 * (fromPixel + toPixel)) < kChordTolerancePx;
  if (depth >= kMaxChordDepth || (depth >= kMinChordDepth && straight)) {
    outline.push_back(toPixel);
    return;
  }
  AppendBentEdge(camera, from, middle, fromPixel, middlePixel, depth + 1, outline);
  AppendBentEdge(camera, middle, to, middlePixel, toPixel, depth + 1, outline);
}

// The outline through the lens of the board rectangle [left, right] x
// [top, bottom], cut to the lens's monotonic radius; empty when nothing of
// it lies there.
Polygon LensOutline(const SyntheticCamera& camera, const cv::Matx33d& rotation, const cv::Vec3d& translation,
                    const cv::Vec4d& rectangle, double radius) {
  Polygon3 inCamera;
  for (const cv::Vec2d& corner : {cv::Vec2d(rectangle[0], rectangle[1]), cv::Vec2d(rectangle[2], rectangle[1]),
                                  cv::Vec2d(rectangle[2], rectangle[3]), cv::Vec2d(rectangle[0], rectangle[3])}) {
    inCamera.push_back(rotation * cv::Vec3d(corner[0], corner[1], 0.0) + translation);
  }
  Polygon normalised;
  for (const cv::Vec3d& p : ClipToLensCone(inCamera, radius)) normalised.emplace_back(p[0] / p[2], p[1] / p[2]);
  Polygon outline;
  if (normalised.size() < 3) return outline;
  for (size_t k = 0; k < normalised.size(); ++k) {
    const cv::Point2d& from = normalised[k];
    const cv::Point2d& to = normalised[(k + 1) % normalised.size()];
    AppendBentEdge(camera, from, to, PixelOf(camera, from), PixelOf(camera, to), 0, outline);
  }
  return outline;
}

// Board extent with its margin, in board units: left, top, right, bottom.
cv::Vec4d BoardExtent(const ChessboardLayout& layout) {
  const double border = (1.0 + layout.marginSquares) * layout.squareSize;
  return {-border, -border, layout.width * layout.squareSize - layout.squareSize + border,
          layout.height * layout.squareSize - layout.squareSize + border};
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

bool SeenWell(const SyntheticCamera& camera, const ChessboardLayout& layout, const cv::Matx33d& rotation,
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
  const cv::Matx33d rotation = RotationOf({0.0, 0.0, roll(generator)}) * RotationOf({0.0, tilt(generator), 0.0}) *
                               RotationOf({tilt(generator), 0.0, 0.0});
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

nlohmann::json CameraJson(const SyntheticCamera& camera) {
  const DistortionCoefficients& d = camera.distortion;
  return {{"K", MatrixJson(camera.K)},
          {"width", camera.size.width},
          {"height", camera.size.height},
          {"distortion", {d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]}}};
}



}  // namespace

cv::Matx33d RotationOf(const cv::Vec3d& rvec) {
  cv::Matx33d rotation;
  cv::Rodrigues(rvec, rotation);
  return rotation;
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
  rig.R = RotationOf({0.31 * degToRad, -0.42 * degToRad, 0.27 * degToRad});
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
  rig.R = RotationOf({0.2 * degToRad, -1.0 * degToRad, 0.3 * degToRad});
  rig.T = {-12.0, 0.25, 0.4};
  return rig;
}

std::vector<BoardPose> RandomBoardPoses(const StereoRig& rig, const ChessboardLayout& layout, int count,
                                        uint64_t seed, double maxTiltDeg, double maxRollDeg) {
  std::mt19937_64 generator(seed);
  std::vector<BoardPose> poses;
  for (int attempt = 0; attempt < count * kAttemptsPerPose && static_cast<int>(poses.size()) < count; ++attempt) {
    const BoardPose pose = DrawPose(rig, layout, maxTiltDeg, maxRollDeg, generator);
    const cv::Matx33d rotation = RotationOf(pose.rvec);
    if (SeenWell(rig.main, layout, rotation, pose.tvec) &&
        SeenWell(rig.second, layout, rig.R * rotation, rig.R * pose.tvec + rig.T)) {
      poses.push_back(pose);
    }
  }
  return poses;
}

std::vector<cv::Point2f> ProjectBoardCorners(const SyntheticCamera& camera, const ChessboardLayout& layout,
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

cv::Mat RenderBoardRadiance(const SyntheticCamera& camera, const ChessboardLayout& layout,
                            const cv::Matx33d& rotation, const cv::Vec3d& translation, const RenderOptions& options) {
  const cv::Vec4d extent = BoardExtent(layout);
  const double s = layout.squareSize;
  std::vector<cv::Vec4d> darkSquares;
  for (int b = -1; b < layout.height; ++b) {
    for (int a = -1; a < layout.width; ++a) {
      if ((a + b) % 2 == 0) darkSquares.emplace_back(a * s, b * s, (a + 1) * s, (b + 1) * s);
    }
  }
  cv::Mat boardCoverage, darkCoverage;
  if (HasDistortion(camera.distortion)) {
    const double radius = MonotonicRadius(camera.distortion);
    CoverageRaster board(camera.size), dark(camera.size);
    const Polygon outline = LensOutline(camera, rotation, translation, extent, radius);
    if (!outline.empty()) board.AddPolygon(outline);
    for (const cv::Vec4d& square : darkSquares) {
      const Polygon squareOutline = LensOutline(camera, rotation, translation, square, radius);
      if (!squareOutline.empty()) dark.AddPolygon(squareOutline);
    }
    boardCoverage = board.Coverage();
    darkCoverage = dark.Coverage();
  } else {
    boardCoverage = cv::Mat::zeros(camera.size, CV_32F);
    darkCoverage = cv::Mat::zeros(camera.size, CV_32F);
    AddCoverage(ProjectRectangle(camera, rotation, translation, extent[0], extent[1], extent[2], extent[3]),
                boardCoverage);
    for (const cv::Vec4d& q : darkSquares) {
      AddCoverage(ProjectRectangle(camera, rotation, translation, q[0], q[1], q[2], q[3]), darkCoverage);
    }
  }
  return options.backgroundLevel + (options.lightLevel - options.backgroundLevel) * boardCoverage +
         (options.darkLevel - options.lightLevel) * darkCoverage;
}

cv::Mat RenderBoardView(const SyntheticCamera& camera, const ChessboardLayout& layout, const cv::Matx33d& rotation,
                        const cv::Vec3d& translation, const RenderOptions& options, uint64_t noiseSeed,
                        int cameraIndex, std::vector<uchar>* jpeg) {
  const int margin = BlurMarginPx(options);
  SyntheticCamera widened = camera;
  widened.size += cv::Size(2 * margin, 2 * margin);
  widened.K(0, 2) += margin;
  widened.K(1, 2) += margin;
  std::vector<uchar> encoded;
  const cv::Mat image = CaptureImage(RenderBoardRadiance(widened, layout, rotation, translation, options), margin,
                                     {camera.K(0, 2), camera.K(1, 2)}, options, cameraIndex, noiseSeed, encoded);
  if (jpeg != nullptr) *jpeg = std::move(encoded);
  return image;
}

cv::Mat RenderEmptyView(const cv::Size& size, const RenderOptions& options, uint64_t noiseSeed) {
  // A flat scene stays flat under every blur.
  CaptureConditions flat = options;
  flat.blurSigmaPx = flat.defocusRadiusPx = flat.motionBlurPx = 0.0;
  std::vector<uchar> encoded;
  return CaptureImage(cv::Mat(size, CV_32F, cv::Scalar(options.backgroundLevel)), 0,
                      {0.5 * (size.width - 1), 0.5 * (size.height - 1)}, flat, 0, noiseSeed, encoded);
}

RenderedPair RenderPair(const StereoRig& rig, const ChessboardLayout& layout, const BoardPose& pose,
                        const RenderOptions& options, uint64_t noiseSeed) {
  const cv::Matx33d mainRotation = RotationOf(pose.rvec);
  const cv::Matx33d secondRotation = rig.R * mainRotation;
  const cv::Vec3d secondTranslation = rig.R * pose.tvec + rig.T;
  RenderedPair pair;
  pair.pose = pose;
  pair.mainImage = RenderBoardView(rig.main, layout, mainRotation, pose.tvec, options, noiseSeed, 0, &pair.mainJpeg);
  pair.secondImage = RenderBoardView(rig.second, layout, secondRotation, secondTranslation, options, noiseSeed + 1, 1,
                                     &pair.secondJpeg);
  pair.mainCorners = ProjectBoardCorners(rig.main, layout, mainRotation, pose.tvec);
  pair.secondCorners = ProjectBoardCorners(rig.second, layout, secondRotation, secondTranslation);
  return pair;
}

std::string RenderedImageName(size_t k, int cameraIndex, bool jpeg) {
  return "pair_" + std::to_string(k) + (cameraIndex == 0 ? "_main" : "_second") + (jpeg ? ".jpg" : ".png");
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
  root["render"] = {{"dark", options.darkLevel},
                    {"light", options.lightLevel},
                    {"background", options.backgroundLevel},
                    {"blur_sigma_px", options.blurSigmaPx},
                    {"defocus_radius_px", options.defocusRadiusPx},
                    {"motion_blur_px", options.motionBlurPx},
                    {"motion_blur_angle_deg", options.motionBlurAngleDeg},
                    {"vignetting", options.vignetting},
                    {"exposure", {options.exposure[0], options.exposure[1]}},
                    {"gain", {options.gain[0], options.gain[1]}},
                    {"noise_sigma", options.noiseSigma},
                    {"shot_noise", options.shotNoise},
                    {"jpeg_quality", options.jpegQuality}};
  root["pairs"] = nlohmann::json::array();
  for (size_t k = 0; k < pairs.size(); ++k) {
    const BoardPose& pose = pairs[k].pose;
    root["pairs"].push_back({{"main_image", RenderedImageName(k, 0, !pairs[k].mainJpeg.empty())},
                             {"second_image", RenderedImageName(k, 1, !pairs[k].secondJpeg.empty())},
                             {"rvec", {pose.rvec[0], pose.rvec[1], pose.rvec[2]}},
                             {"tvec", {pose.tvec[0], pose.tvec[1], pose.tvec[2]}},
                             {"main_corners", PointsJson(pairs[k].mainCorners)},
                             {"second_corners", PointsJson(pairs[k].secondCorners)}});
  }
  return root;
}

void ApplyExampleChartSettings(dualCalibration& engine) {
  engine.m_nBoardWidth = 9, engine.m_nBoardHeight = 6, engine.m_nSquareSize = 25;
  engine.m_nMaxRx = engine.m_nMaxRy = engine.m_nMaxRz = 5;
  engine.m_nMaxTransition = 50;
  engine.m_nMaxReprojectionERROR = 20;
  engine.m_nDualCalibUseIntrinsicGuess = 1;
}
