#include "synthetic/SyntheticScene.h"

#include <cmath>
#include <random>
#include <vector>

#include <opencv2/imgproc.hpp>

namespace {

// One shape per this many pixels keeps the scene covered at every size.
constexpr int kPixelsPerShape = 1200;
constexpr int kMinShapeRadiusPx = 6;
constexpr int kMaxShapeRadiusPx = 40;

// mt19937 is specified bit for bit; the mapping to a range is done here so
// that no library distribution decides the scene.
class SceneRandom {
 public:
  explicit SceneRandom(uint32_t seed) : mEngine(seed) {}
  int Uniform(int lo, int hi) {
    return lo + static_cast<int>(mEngine() % static_cast<uint32_t>(hi - lo + 1));
  }

 private:
  std::mt19937 mEngine;
};

// Integer vertices only, so the scene does not depend on a platform's
// trigonometry; crossing edges are welcome, they add corners.
std::vector<cv::Point> RandomPolygon(SceneRandom& random, cv::Point center, int radiusPx) {
  const int corners = random.Uniform(3, 6);
  std::vector<cv::Point> polygon;
  for (int i = 0; i < corners; ++i) {
    const int dx = random.Uniform(-radiusPx, radiusPx);
    const int dy = random.Uniform(-radiusPx, radiusPx);
    polygon.emplace_back(center.x + dx, center.y + dy);
  }
  return polygon;
}

void DrawRandomShape(cv::Mat& image, SceneRandom& random) {
  // One draw per statement: the order of evaluation of arguments is unspecified.
  const int x = random.Uniform(0, image.cols - 1);
  const int y = random.Uniform(0, image.rows - 1);
  const cv::Point center(x, y);
  const int radiusPx = random.Uniform(kMinShapeRadiusPx, kMaxShapeRadiusPx);
  const cv::Scalar grey(random.Uniform(0, 255));
  if (random.Uniform(0, 3) == 0) {
    cv::circle(image, center, radiusPx, grey, cv::FILLED, cv::LINE_8);
  } else {
    const std::vector<std::vector<cv::Point>> polygons{RandomPolygon(random, center, radiusPx)};
    cv::fillPoly(image, polygons, grey, cv::LINE_8);
  }
}

}  // namespace

cv::Mat RenderTexturedScene(cv::Size size, uint32_t seed) {
  SceneRandom random(seed);
  cv::Mat image(size, CV_8UC1, cv::Scalar(128));
  const int64_t shapes = static_cast<int64_t>(size.area()) / kPixelsPerShape;
  for (int64_t i = 0; i < shapes; ++i) DrawRandomShape(image, random);
  cv::GaussianBlur(image, image, cv::Size(3, 3), 0.8, 0.8, cv::BORDER_REFLECT);
  return image;
}

cv::Mat RenderPeriodicTexture(cv::Size size, int tilePx, uint32_t seed) {
  SceneRandom random(seed);
  cv::Mat tile(tilePx, tilePx, CV_8UC1);
  for (int y = 0; y < tilePx; ++y) {
    for (int x = 0; x < tilePx; ++x) tile.at<uint8_t>(y, x) = static_cast<uint8_t>(random.Uniform(0, 255));
  }
  cv::Mat tiled;
  cv::repeat(tile, size.height / tilePx + 1, size.width / tilePx + 1, tiled);
  return tiled(cv::Rect(cv::Point(0, 0), size)).clone();
}

cv::Mat RenderSecondView(const cv::Mat& mainImage, const cv::Matx33d& mainToSecond,
                         cv::Size secondSize) {
  cv::Mat second;
  cv::warpPerspective(mainImage, second, cv::Mat(mainToSecond), secondSize, cv::INTER_LINEAR,
                      cv::BORDER_CONSTANT, cv::Scalar(0));
  return second;
}

cv::Matx33d SimilarityTransform(double scale, double rotationDeg, double txPx, double tyPx) {
  const double angle = rotationDeg * CV_PI / 180.0;
  const double c = scale * std::cos(angle);
  const double s = scale * std::sin(angle);
  return cv::Matx33d(c, -s, txPx, s, c, tyPx, 0.0, 0.0, 1.0);
}

SyntheticPair RenderSyntheticPair(cv::Size size, uint32_t seed, const cv::Matx33d& mainToSecond,
                                  const cv::Matx33d& recordOffset) {
  SyntheticPair pair;
  pair.mainImage = RenderTexturedScene(size, seed);
  pair.secondImage = RenderSecondView(pair.mainImage, mainToSecond, size);
  const cv::Matx33d hOtp = mainToSecond * recordOffset;
  cv::Matx33d stored;
  for (int i = 0; i < 9; ++i) {
    pair.hOtp[i] = static_cast<float>(hOtp(i / 3, i % 3));
    stored(i / 3, i % 3) = static_cast<double>(pair.hOtp[i]);
  }
  pair.expectedEstimate = mainToSecond.inv() * stored;
  return pair;
}
