#include "station/LensModelCheck.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

#include <opencv2/calib3d.hpp>

#include "station/CameraModel.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int kUndistortIterations = 200;
// The tolerance is out of reach on purpose: every point gets all 200 iterations.
const cv::TermCriteria kUndistortCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, kUndistortIterations,
                                          1e-12);
constexpr double kMaxResidualPx = 0.01;
constexpr int kGridColumns = 17, kGridRows = 13;
constexpr int kRayStepDeg = 15;
// A ray is followed out to 89 degrees off the axis in this many even steps of angle, then each fold narrowed
// down by halving the step that found it.
constexpr double kMaxRayAngleRad = 89 * CV_PI / 180;
constexpr int kRaySamples = 2000;
constexpr int kHalvings = 60;

// The camera as the checks take it.
struct Lens {
  cv::Matx33d K;
  cv::Mat D;  // 1xN CV_64F
  cv::Size size;
};

std::string Number(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

Lens CheckedLens(const cv::Mat& K, const cv::Mat& D, cv::Size imageSize) {
  if (imageSize.width <= 0 || imageSize.height <= 0)
    throw StationError("image size " + std::to_string(imageSize.width) + "x" + std::to_string(imageSize.height) +
                       " is not positive");
  Lens lens;
  lens.size = imageSize;
  lens.K = CheckedCameraMatrix(K, "K");
  lens.D = CheckedLensCoefficients(D, "D");
  return lens;
}

cv::Point2d PrincipalPoint(const Lens& lens) { return {lens.K(0, 2), lens.K(1, 2)}; }

bool InsideImage(const Lens& lens, const cv::Point2d& p) {
  return p.x >= -0.5 && p.y >= -0.5 && p.x <= lens.size.width - 0.5 && p.y <= lens.size.height - 0.5;
}

std::vector<cv::Point2d> ImageCorners(const Lens& lens) {
  const double right = lens.size.width - 0.5, bottom = lens.size.height - 0.5;
  return {{-0.5, -0.5}, {right, -0.5}, {right, bottom}, {-0.5, bottom}};
}

// Pixel positions of undistorted normalised points and, when asked, d pixel / d (x, y) per point as rows 2i and
// 2i + 1 of the 2x2 block in columns 3 and 4 (the translation's x and y under a zero pose).
std::vector<cv::Point2d> Distort(const Lens& lens, const std::vector<cv::Point2d>& normalised,
                                 cv::Mat* jacobian = nullptr) {
  std::vector<cv::Point3d> points;
  for (const cv::Point2d& x : normalised) points.emplace_back(x.x, x.y, 1);
  std::vector<cv::Point2d> pixels;
  if (jacobian)
    cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(), lens.K, lens.D, pixels, *jacobian);
  else
    cv::projectPoints(points, cv::Vec3d(), cv::Vec3d(), lens.K, lens.D, pixels);
  return pixels;
}

// The smallest positive r at which 1 + k4 r^2 + k5 r^4 + k6 r^6 is zero, or infinity.
double PoleRadius(const cv::Mat& D) {
  if (D.cols < 8) return kInfinity;
  const cv::Vec4d cubic(D.at<double>(7), D.at<double>(6), D.at<double>(5), 1);  // in r^2, highest power first
  cv::Mat roots;
  const int count = cv::solveCubic(cubic, roots);
  double pole = kInfinity;
  for (int i = 0; i < count; ++i)
    if (roots.at<double>(i) > 0) pole = std::min(pole, std::sqrt(roots.at<double>(i)));
  return pole;
}

// One ray's walk: where it left the image (undistorted radius), or where it folded or stopped (distorted px).
struct Ray {
  double exitRadius = 0;
  bool folded = false, stoppedShort = false;
  double foldPx = 0;
};

// Unit directions in the normalised plane towards the image's corners, the middles of its sides and every 15
// degrees of the image.
std::vector<cv::Vec2d> RayDirections(const Lens& lens) {
  std::vector<cv::Point2d> towards = ImageCorners(lens);
  const double right = lens.size.width - 0.5, bottom = lens.size.height - 0.5;
  const double middleX = 0.5 * (right - 0.5), middleY = 0.5 * (bottom - 0.5);
  towards.insert(towards.end(), {{middleX, -0.5}, {right, middleY}, {middleX, bottom}, {-0.5, middleY}});
  std::vector<cv::Vec2d> directions;
  const cv::Point2d c = PrincipalPoint(lens);
  for (const cv::Point2d& p : towards) directions.emplace_back((p.x - c.x) / lens.K(0, 0), (p.y - c.y) / lens.K(1, 1));
  for (int deg = 0; deg < 360; deg += kRayStepDeg) {
    const double rad = deg * CV_PI / 180;
    directions.emplace_back(std::cos(rad) / lens.K(0, 0), std::sin(rad) / lens.K(1, 1));
  }
  std::vector<cv::Vec2d> units;
  for (const cv::Vec2d& d : directions)
    if (cv::norm(d) > 0) units.push_back(d / cv::norm(d));  // a principal point on a corner has no ray to it
  return units;
}

cv::Matx22d PointJacobian(const cv::Mat& jacobian, size_t i) {
  return {jacobian.at<double>(2 * i, 3), jacobian.at<double>(2 * i, 4), jacobian.at<double>(2 * i + 1, 3),
          jacobian.at<double>(2 * i + 1, 4)};
}

// Whether the forward map J moves a point on ray d outward along the ray's pixel direction `along`, without
// turning the image over about it.
bool Outward(const cv::Matx22d& J, const cv::Vec2d& d, const cv::Vec2d& along) {
  return along.dot(J * d) > 0 && cv::determinant(J) > 0;
}

// Whether the model still moves outward at undistorted radius r along d.
bool MovesOutward(const Lens& lens, const cv::Vec2d& d, const cv::Vec2d& along, double r) {
  cv::Mat jacobian;
  Distort(lens, {cv::Point2d(r * d[0], r * d[1])}, &jacobian);
  return Outward(PointJacobian(jacobian, 0), d, along);
}

Ray WalkRay(const Lens& lens, const cv::Vec2d& d, double poleRadius) {
  const bool pole = std::atan(poleRadius) < kMaxRayAngleRad;
  const double maxAngle = pole ? std::atan(poleRadius) : kMaxRayAngleRad;
  std::vector<double> radii;
  std::vector<cv::Point2d> normalised;
  for (int i = 0; i < kRaySamples + !pole; ++i) {  // short of a pole
    radii.push_back(std::tan(maxAngle * i / kRaySamples));
    normalised.emplace_back(radii.back() * d[0], radii.back() * d[1]);
  }
  cv::Mat jacobian;
  const std::vector<cv::Point2d> pixels = Distort(lens, normalised, &jacobian);
  const cv::Point2d c = PrincipalPoint(lens);
  const cv::Vec2d along = cv::normalize(cv::Vec2d(lens.K(0, 0) * d[0], lens.K(1, 1) * d[1]));
  Ray ray;
  double lastAlongPx = 0, farthestPx = 0;
  for (size_t i = 0; i < pixels.size(); ++i) {
    const cv::Vec2d offset(pixels[i].x - c.x, pixels[i].y - c.y);
    if (!InsideImage(lens, pixels[i])) {
      ray.exitRadius = radii[i];
      return ray;
    }
    farthestPx = std::max(farthestPx, cv::norm(offset));
    if (!Outward(PointJacobian(jacobian, i), d, along) || (i > 0 && along.dot(offset) <= lastAlongPx)) {
      double good = radii[i - (i > 0)], bad = radii[i];
      for (int halving = 0; halving < kHalvings; ++halving) {
        const double middle = 0.5 * (good + bad);
        (MovesOutward(lens, d, along, middle) ? good : bad) = middle;
      }
      const cv::Point2d fold = Distort(lens, {cv::Point2d(good * d[0], good * d[1])})[0];
      ray.folded = true;
      ray.foldPx = cv::norm(fold - c);
      return ray;
    }
    lastAlongPx = along.dot(offset);
  }
  ray.stoppedShort = true;
  ray.foldPx = farthestPx;
  return ray;
}

// The grid's worst residual and where, filled into check; the problem when it is over the bound.
std::string CheckUndistortion(const Lens& lens, LensModelCheck& check) {
  std::vector<cv::Point2d> grid;
  for (int row = 0; row < kGridRows; ++row)
    for (int column = 0; column < kGridColumns; ++column)
      grid.emplace_back(std::round(column * (lens.size.width - 1.0) / (kGridColumns - 1)),
                        std::round(row * (lens.size.height - 1.0) / (kGridRows - 1)));
  std::vector<cv::Point2d> undistorted;
  cv::undistortPoints(grid, undistorted, lens.K, lens.D, cv::noArray(), cv::noArray(), kUndistortCriteria);
  const std::vector<cv::Point2d> again = Distort(lens, undistorted);
  size_t worst = 0;
  for (size_t i = 0; i < grid.size(); ++i) {
    double residual = cv::norm(again[i] - grid[i]);
    if (!std::isfinite(residual)) residual = kInfinity;
    if (residual > check.worstUndistortResidualPx) check.worstUndistortResidualPx = residual, worst = i;
  }
  if (check.worstUndistortResidualPx < kMaxResidualPx) return "";
  const std::string where = "undistortion does not converge at (" + Number("%.0f", grid[worst].x) + ", " +
                            Number("%.0f", grid[worst].y) + "): ";
  const std::string after = " after " + std::to_string(kUndistortIterations) + " iterations";
  if (std::isinf(check.worstUndistortResidualPx)) return where + "no finite answer" + after;
  return where + Number("%.3f", check.worstUndistortResidualPx) + " px off" + after;
}

}  // namespace

LensModelCheck CheckLensModel(const cv::Mat& K, const cv::Mat& D, cv::Size imageSize) {
  const Lens lens = CheckedLens(K, D, imageSize);
  LensModelCheck check;
  const cv::Point2d c = PrincipalPoint(lens);
  double reachRadius = 0;
  for (const cv::Point2d& corner : ImageCorners(lens)) {
    check.reachPx = std::max(check.reachPx, cv::norm(corner - c));
    reachRadius = std::max(reachRadius, std::hypot((corner.x - c.x) / lens.K(0, 0), (corner.y - c.y) / lens.K(1, 1)));
  }
  const double poleRadius = PoleRadius(lens.D);
  double foldPx = kInfinity, shortPx = kInfinity;
  for (const cv::Vec2d& d : RayDirections(lens)) {
    const Ray ray = WalkRay(lens, d, poleRadius);
    reachRadius = std::max(reachRadius, ray.exitRadius);
    if (ray.folded) foldPx = std::min(foldPx, ray.foldPx);
    if (ray.stoppedShort) shortPx = std::min(shortPx, ray.foldPx);
  }
  const bool folds = foldPx < kInfinity, stops = shortPx < kInfinity;
  if (folds || stops) check.foldRadiusPx = folds ? foldPx : shortPx;
  const std::string reach = " (its corners reach " + Number("%.1f", check.reachPx) + " px)";
  const std::string undistortion = CheckUndistortion(lens, check);
  if (poleRadius <= reachRadius)
    check.problem = "lens model divides by zero at normalised radius " + Number("%.4f", poleRadius) +
                    ", inside the image's reach of " + Number("%.4f", reachRadius);
  else if (folds)
    check.problem = "lens model folds " + Number("%.1f", foldPx) + " px from the principal point, inside the image" +
                    reach;
  else if (stops)
    check.problem = "lens model stops " + Number("%.1f", shortPx) +
                    " px from the principal point, short of the image border" + reach;
  else
    check.problem = undistortion;
  check.valid = check.problem.empty();
  return check;
}
