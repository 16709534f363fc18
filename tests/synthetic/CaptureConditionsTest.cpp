#include "synthetic/CaptureConditions.h"

#include "tests/support/TestPrelude.h"

#include <opencv2/imgproc.hpp>

namespace {

const cv::Size kSize(400, 300);
const cv::Point2d kCentre(199.5, 149.5);

cv::Mat Capture(const cv::Mat& radiance, const CaptureConditions& conditions, int camera = 0) {
  std::vector<uchar> encoded;
  return CaptureImage(radiance.clone(), 0, kCentre, conditions, camera, 7, encoded);
}

// Dark left of x = 200.3, light right of it, the boundary pixel by its area.
cv::Mat VerticalEdge() {
  cv::Mat radiance(kSize, CV_32F, cv::Scalar(20.0));
  radiance.colRange(201, kSize.width).setTo(230.0);
  radiance.col(200).setTo(20.0 + 210.0 * 0.2);
  return radiance;
}

// Variance along x of the edge's line spread (the derivative of the middle rows' mean profile): the blur kernel's x
// variance plus kEdgeSpread, the two-tap spread p (1 - p) of the edge that covers its pixel by p = 0.2.
double EdgeSpreadVariance(const cv::Mat& image) {
  cv::Mat profile;
  cv::reduce(image.rowRange(100, 200), profile, 0, cv::REDUCE_AVG, CV_64F);
  double weight = 0.0, mean = 0.0, square = 0.0;
  for (int x = 150; x < 250; ++x) {
    const double d = profile.at<double>(x + 1) - profile.at<double>(x);
    weight += d, mean += d * (x + 0.5), square += d * (x + 0.5) * (x + 0.5);
  }
  mean /= weight;
  return square / weight - mean * mean;
}

double Mean(const cv::Mat& image, const cv::Rect& area) { return cv::mean(image(area))[0]; }

double StdDev(const cv::Mat& image, const cv::Rect& area) {
  cv::Scalar mean, deviation;
  cv::meanStdDev(image(area), mean, deviation);
  return deviation[0];
}

// Share of 8x8 blocks whose DCT coefficient (0, 1) lies within one unit of a multiple of step.
double ShareOnQuantiserLattice(const cv::Mat& image, double step) {
  int on = 0, blocks = 0;
  for (int y = 0; y + 8 <= image.rows; y += 8) {
    for (int x = 0; x + 8 <= image.cols; x += 8) {
      cv::Mat block, coefficients;
      image(cv::Rect(x, y, 8, 8)).convertTo(block, CV_32F, 1.0, -128.0);
      cv::dct(block, coefficients);
      const double c = coefficients.at<float>(0, 1);
      on += std::abs(c - step * std::round(c / step)) <= 1.0;
      ++blocks;
    }
  }
  return static_cast<double>(on) / blocks;
}

constexpr double kEdgeSpread = 0.2 * 0.8;

cv::Mat Flat(double level) { return cv::Mat(kSize, CV_32F, cv::Scalar(level)); }

cv::Mat Texture() {
  cv::Mat radiance(kSize, CV_32F);
  cv::RNG(3).fill(radiance, cv::RNG::NORMAL, 128.0, 30.0);
  return radiance;
}

}  // namespace

// Every condition leaves its mark on the capture, measured the way a camera lab measures it: blur by the edge's
// spread (kernel variance R^2/4 + 1/12 for a disc sampled by pixel area, L^2/12 for a line, sigma^2 for a Gaussian),
// vignetting by corner over centre, exposure and gain by their level ratio, noise by its deviation on a flat field
// (read^2 + shot * signal, times the gain), JPEG by the quantiser step of the DCT coefficients (libjpeg's table
// entry 11 scaled for the quality: 2 at 90, 6 at 75, 11 at 50).
TEST(CaptureConditions, EveryConditionIsMeasurableOnTheCapture) {
  using Set = std::function<void(CaptureConditions&)>;
  using Measure = std::function<double(const cv::Mat&)>;
  const cv::Rect centre(180, 130, 40, 40), corner(0, 0, 4, 4), all({0, 0}, kSize);
  const Measure spread = EdgeSpreadVariance, level = [&](const cv::Mat& m) { return Mean(m, centre); };
  const Measure falloff = [&](const cv::Mat& m) { return Mean(m, corner) / Mean(m, centre); };
  const Measure deviation = [&](const cv::Mat& m) { return StdDev(m, all); };
  const auto lattice = [](double step) { return [step](const cv::Mat& m) { return ShareOnQuantiserLattice(m, step); }; };
  const struct {
    const char* name;
    cv::Mat radiance;
    Set set;
    int camera;
    Measure measure;
    double expected, tolerance;
  } rows[] = {
      {"sharp", VerticalEdge(), [](auto&) {}, 0, spread, kEdgeSpread, 0.01},
      {"gaussian 1.5", VerticalEdge(), [](auto& c) { c.blurSigmaPx = 1.5; }, 0, spread, 2.25 + kEdgeSpread, 0.1},
      {"defocus 4", VerticalEdge(), [](auto& c) { c.defocusRadiusPx = 4.0; }, 0, spread, 4.0 + 1.0 / 12 + kEdgeSpread, 0.1},
      {"motion 12 along x", VerticalEdge(), [](auto& c) { c.motionBlurPx = 12.0; }, 0, spread, 12.0 + kEdgeSpread, 0.3},
      {"motion 12 along y", VerticalEdge(), [](auto& c) { c.motionBlurPx = 12.0, c.motionBlurAngleDeg = 90.0; }, 0,
       spread, kEdgeSpread, 0.01},
      {"vignetting 0.4", Flat(200.0), [](auto& c) { c.vignetting = 0.4; }, 0, falloff, 0.4, 0.02},
      {"second exposure 0.5", Flat(200.0), [](auto& c) { c.exposure = {1.0, 0.5}; }, 1, level, 100.0, 0.5},
      {"main gain 1.5", Flat(100.0), [](auto& c) { c.gain = {1.5, 1.0}; }, 0, level, 150.0, 0.5},
      {"read noise 3", Flat(100.0), [](auto& c) { c.noiseSigma = 3.0; }, 0, deviation, std::sqrt(9.0 + 1.0 / 12), 0.1},
      {"shot 1 read 2 at 100, gain 2", Flat(100.0), [](auto& c) { c.noiseSigma = 2.0, c.shotNoise = 1.0, c.gain = {2, 2}; },
       0, deviation, 2.0 * std::sqrt(104.0), 0.4},
      {"jpeg 90 step 2", Texture(), [](auto& c) { c.jpegQuality = 90; }, 0, lattice(2.0), 1.0, 0.03},
      {"jpeg 75 step 6", Texture(), [](auto& c) { c.jpegQuality = 75; }, 0, lattice(6.0), 1.0, 0.05},
      {"jpeg 50 step 11", Texture(), [](auto& c) { c.jpegQuality = 50; }, 0, lattice(11.0), 1.0, 0.05},
      {"jpeg 50 not step 12", Texture(), [](auto& c) { c.jpegQuality = 50; }, 0, lattice(12.0), 0.2, 0.15},
      {"lossless not step 11", Texture(), [](auto&) {}, 0, lattice(11.0), 0.2, 0.15},
  };
  for (const auto& row : rows) {
    CaptureConditions conditions;
    row.set(conditions);
    EXPECT_NEAR(row.measure(Capture(row.radiance, conditions, row.camera)), row.expected, row.tolerance) << row.name;
  }
}

// The blur kernels are normalised and centred (a shifted kernel would move every corner of the scene).
TEST(CaptureConditions, BlurKernelsAreNormalisedAndCentred) {
  for (const cv::Mat& kernel : {DefocusKernel(2.5), MotionKernel(9.0, 30.0), MotionKernel(0.5, 0.0)}) {
    const cv::Moments m = cv::moments(kernel);
    EXPECT_NEAR(cv::sum(kernel)[0], 1.0, 1e-12);
    EXPECT_NEAR(m.m10 / m.m00, kernel.cols / 2, 1e-9);
    EXPECT_NEAR(m.m01 / m.m00, kernel.rows / 2, 1e-9);
  }
  EXPECT_EQ(DefocusKernel(2.5).size(), cv::Size(7, 7));
}
