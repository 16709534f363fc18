#include "synthetic/BoardPlacement.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <opencv2/calib3d.hpp>

namespace {

constexpr int kAttemptsPerPose = 400;
constexpr int kPlacementSteps = 12;
constexpr double kDegToRad = CV_PI / 180.0;

constexpr struct {
  Placement placement;
  const char* name;
} kPlacementNames[] = {{Placement::kCentre, "centre"},
                       {Placement::kAnywhere, "anywhere"},
                       {Placement::kBorder, "border"},
                       {Placement::kCorner, "corner"}};

enum Side { kLeft, kTop, kRight, kBottom };

// Distance of the corner nearest to the given side of the image from it.
double NearestDistance(const std::vector<cv::Point2f>& corners, const cv::Size& size, Side side) {
  double nearest = 1e300;
  for (const cv::Point2f& c : corners) {
    const double distance[] = {c.x, c.y, size.width - 1.0 - c.x, size.height - 1.0 - c.y};
    nearest = std::min(nearest, distance[side]);
  }
  return nearest;
}

// Every inner corner in front of the camera, inside the lens's monotonic
// radius and kMinCornerMarginPx inside the image, and no square side under minSidePx.
bool CornersUsable(const SyntheticCamera& camera, const ChessboardLayout& layout, const cv::Matx33d& rotation,
                   const cv::Vec3d& translation, double minSidePx) {
  const double radius = MonotonicRadius(camera.distortion);
  for (int i = 0; i < layout.height; ++i) {
    for (int j = 0; j < layout.width; ++j) {
      const cv::Vec3d p = rotation * cv::Vec3d(j * layout.squareSize, i * layout.squareSize, 0.0) + translation;
      if (p[2] <= 0.0 || std::hypot(p[0] / p[2], p[1] / p[2]) >= radius) return false;
    }
  }
  const std::vector<cv::Point2f> corners = ProjectBoardCorners(camera, layout, rotation, translation);
  for (const Side side : {kLeft, kTop, kRight, kBottom}) {
    if (NearestDistance(corners, camera.size, side) < kMinCornerMarginPx) return false;
  }
  return SmallestSquareSide(corners, layout) >= minSidePx;
}

// The sides of the main image a placement aims at, drawn from generator.
std::vector<Side> TargetSides(Placement placement, std::mt19937_64& generator) {
  std::uniform_int_distribution<int> four(0, 3);
  const int draw = four(generator);
  if (placement == Placement::kBorder) return {static_cast<Side>(draw)};
  if (placement == Placement::kCorner) return {draw % 2 == 0 ? kLeft : kRight, draw < 2 ? kTop : kBottom};
  return {};
}

// A pixel of the main image to aim the board's centre at.
cv::Point2d AimPoint(const cv::Size& size, const std::vector<Side>& sides, std::mt19937_64& generator) {
  std::uniform_real_distribution<double> along(0.0, 1.0);
  cv::Point2d aim(along(generator) * (size.width - 1), along(generator) * (size.height - 1));
  for (const Side side : sides) {
    if (side == kLeft) aim.x = 0.0;
    if (side == kRight) aim.x = size.width - 1.0;
    if (side == kTop) aim.y = 0.0;
    if (side == kBottom) aim.y = size.height - 1.0;
  }
  return aim;
}

// Distance from the given side of the corner nearest to it, in whichever image has it nearer.
double NearestDistanceInEither(const StereoRig& rig, const ChessboardLayout& layout, const cv::Matx33d& rotation,
                               const cv::Vec3d& translation, Side side) {
  const std::vector<cv::Point2f> main = ProjectBoardCorners(rig.main, layout, rotation, translation);
  const std::vector<cv::Point2f> second =
      ProjectBoardCorners(rig.second, layout, rig.R * rotation, rig.R * translation + rig.T);
  return std::min(NearestDistance(main, rig.main.size, side), NearestDistance(second, rig.second.size, side));
}

// Moves the board along the main camera's x or y axis until its nearest
// corner lies borderPx from each target side (Newton steps on a measured slope).
BoardPose PushToSides(const StereoRig& rig, const ChessboardLayout& layout, BoardPose pose,
                      const std::vector<Side>& sides, double borderPx) {
  const cv::Matx33d rotation = RotationOf(pose.rvec);
  for (int step = 0; step < kPlacementSteps; ++step) {
    for (const Side side : sides) {
      const int axis = side == kLeft || side == kRight ? 0 : 1;
      const double probe = pose.tvec[2] / rig.main.K(axis, axis);  // about one pixel
      cv::Vec3d moved = pose.tvec;
      moved[axis] += probe;
      const double now = NearestDistanceInEither(rig, layout, rotation, pose.tvec, side);
      const double slope = (NearestDistanceInEither(rig, layout, rotation, moved, side) - now) / probe;
      if (!std::isfinite(slope) || slope == 0.0) return pose;
      pose.tvec[axis] -= (now - borderPx) / slope;
    }
  }
  return pose;
}

bool MeetsSides(const StereoRig& rig, const ChessboardLayout& layout, const BoardPose& pose,
                const std::vector<Side>& sides, double borderPx) {
  const double tolerance = std::max(1.0, 0.1 * borderPx);
  for (const Side side : sides) {
    const double distance = NearestDistanceInEither(rig, layout, RotationOf(pose.rvec), pose.tvec, side);
    if (std::abs(distance - borderPx) > tolerance) return false;
  }
  return true;
}

BoardPose DrawPlacedPose(const StereoRig& rig, const ChessboardLayout& layout, const PlacementOptions& options,
                         const std::vector<Side>& sides, std::mt19937_64& generator) {
  std::uniform_real_distribution<double> tilt(-options.maxTiltDeg * kDegToRad, options.maxTiltDeg * kDegToRad);
  std::uniform_real_distribution<double> roll(-options.maxRollDeg * kDegToRad, options.maxRollDeg * kDegToRad);
  std::uniform_real_distribution<double> logSquare(std::log(options.minSquarePx), std::log(options.maxSquarePx));
  const cv::Matx33d rotation = RotationOf({0.0, 0.0, roll(generator)}) * RotationOf({0.0, tilt(generator), 0.0}) *
                               RotationOf({tilt(generator), 0.0, 0.0});
  const double depth = rig.main.K(0, 0) * layout.squareSize / std::exp(logSquare(generator));
  const cv::Point2d aim = AimPoint(rig.main.size, sides, generator);
  const cv::Vec3d aimed = rig.main.K.inv() * cv::Vec3d(aim.x, aim.y, 1.0);
  const cv::Point2d ray = UndistortNormalised(rig.main.distortion, {aimed[0], aimed[1]});
  const cv::Vec3d boardCentre(0.5 * (layout.width - 1) * layout.squareSize,
                              0.5 * (layout.height - 1) * layout.squareSize, 0.0);
  cv::Vec3d rvec;
  cv::Rodrigues(rotation, rvec);
  const BoardPose pose{rvec, cv::Vec3d(ray.x * depth, ray.y * depth, depth) - rotation * boardCentre};
  return sides.empty() ? pose : PushToSides(rig, layout, pose, sides, options.borderPx);
}

}  // namespace

bool ParsePlacement(const std::string& text, Placement& placement) {
  for (const auto& entry : kPlacementNames) {
    if (text == entry.name) {
      placement = entry.placement;
      return true;
    }
  }
  return false;
}

const char* PlacementName(Placement placement) {
  for (const auto& entry : kPlacementNames) {
    if (entry.placement == placement) return entry.name;
  }
  return "";
}

std::vector<BoardPose> PlaceBoards(const StereoRig& rig, const ChessboardLayout& layout, int count, uint64_t seed,
                                   const PlacementOptions& options) {
  if (options.placement == Placement::kCentre) {
    return RandomBoardPoses(rig, layout, count, seed, options.maxTiltDeg, options.maxRollDeg);
  }
  std::mt19937_64 generator(seed);
  const double minSidePx = 0.5 * options.minSquarePx;
  std::vector<BoardPose> poses;
  for (int attempt = 0; attempt < count * kAttemptsPerPose && static_cast<int>(poses.size()) < count; ++attempt) {
    const std::vector<Side> sides = TargetSides(options.placement, generator);
    const BoardPose pose = DrawPlacedPose(rig, layout, options, sides, generator);
    const cv::Matx33d rotation = RotationOf(pose.rvec);
    if (CornersUsable(rig.main, layout, rotation, pose.tvec, minSidePx) &&
        CornersUsable(rig.second, layout, rig.R * rotation, rig.R * pose.tvec + rig.T, minSidePx) &&
        MeetsSides(rig, layout, pose, sides, options.borderPx)) {
      poses.push_back(pose);
    }
  }
  return poses;
}
