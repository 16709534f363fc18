#include "distortion/YuvWarp.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "distortion/CDistortionFilter.h"
#include "tests/support/TestFiles.h"
#include "tests/support/YuvPlanes.h"

namespace {

// OpenCV's worker threads stall under qemu-aarch64, where this suite also
// runs, so the OpenCV oracles run sequentially.
[[maybe_unused]] const bool kSequentialOpenCv = (cv::setNumThreads(0), true);

constexpr uint8_t kUntouched = 0xA5;
constexpr float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

// A smooth synthetic scene: slow sinusoids with a fixed seed for the phases.
YuvPlanes SmoothSource(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> phase(0.0, 6.28);
  const double a = phase(random), b = phase(random), c = phase(random);
  YuvPlanes planes{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height),
                   std::vector<uint8_t>(static_cast<size_t>(width & ~1) * (height >> 1))};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      planes.luma[y * width + x] =
          static_cast<uint8_t>(128.0 + 60.0 * std::sin(x / 37.0 + a) + 50.0 * std::cos(y / 29.0 + b));
    }
  }
  for (int y = 0; y < (height >> 1); ++y) {
    for (int x = 0; x < (width >> 1); ++x) {
      planes.chroma[y * (width & ~1) + 2 * x] = static_cast<uint8_t>(128.0 + 90.0 * std::sin(x / 23.0 + c));
      planes.chroma[y * (width & ~1) + 2 * x + 1] = static_cast<uint8_t>(128.0 + 90.0 * std::cos(y / 19.0 + a));
    }
  }
  return planes;
}

// Random bytes; chroma in multiples of 4 so that averages of two or four
// samples are whole numbers.
YuvPlanes NoiseSource(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  YuvPlanes planes{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height),
                   std::vector<uint8_t>(static_cast<size_t>(width & ~1) * (height >> 1))};
  for (uint8_t& byte : planes.luma) byte = static_cast<uint8_t>(random());
  for (uint8_t& byte : planes.chroma) byte = static_cast<uint8_t>(random() & 0xFC);
  return planes;
}

YuvPlanes Target(int width, int height) { return WarpTarget(width, height, kUntouched); }

std::array<float, 9> Camera(float fx, float fy, float cx, float cy) { return {fx, 0, cx, 0, fy, cy, 0, 0, 1}; }

std::unique_ptr<CDistortionFilter> RadialFilter(float k1, float k2, float k3) {
  auto filter = std::make_unique<CDistortionFilter>();
  filter->radialCoefficients[0] = k1;
  filter->radialCoefficients[1] = k2;
  filter->radialCoefficients[2] = k3;
  return filter;
}

// The chroma plane the write rule leaves for an exact identity mapping: each
// pair holds the sample at its last writer (odd column or last column, odd
// row or last row), written row by row so an odd width's spill into the next
// row is overwritten there.
std::vector<uint8_t> IdentityChroma(const YuvPlanes& source, int width, int height) {
  std::vector<uint8_t> out(static_cast<size_t>(WarpChromaBytes(width, height)), kUntouched);
  const int lastColumn = (source.width >> 1) - 1, lastRow = (source.height >> 1) - 1;
  const int stride = source.width & ~1;
  for (int r = 0; r < (height + 1) / 2; ++r) {
    for (int c = 0; 2 * c < width; ++c) {
      const double cx = std::min(std::min(2 * c + 1, width - 1) * 0.5, static_cast<double>(lastColumn));
      const double cy = std::min(std::min(2 * r + 1, height - 1) * 0.5, static_cast<double>(lastRow));
      const int x0 = static_cast<int>(cx), y0 = static_cast<int>(cy);
      const int x1 = std::min(x0 + 1, lastColumn), y1 = std::min(y0 + 1, lastRow);
      const double fx = cx - x0, fy = cy - y0;
      for (int channel = 0; channel < 2; ++channel) {
        const auto at = [&](int x, int y) { return source.chroma[y * stride + 2 * x + channel]; };
        const double v = (1 - fx) * (1 - fy) * at(x0, y0) + fx * (1 - fy) * at(x1, y0) + (1 - fx) * fy * at(x0, y1) +
                         fx * fy * at(x1, y1);
        out[static_cast<size_t>(r) * width + 2 * c + channel] = static_cast<uint8_t>(std::lround(v));
      }
    }
  }
  return out;
}

// The rotation of a Rodrigues vector, row major in single precision.
std::array<float, 9> RotationFrom(const cv::Vec3d& vector) {
  cv::Matx33d rotation;
  cv::Rodrigues(vector, rotation);
  std::array<float, 9> out{};
  for (int i = 0; i < 9; ++i) out[i] = static_cast<float>(rotation.val[i]);
  return out;
}

// The transpose of a row-major rotation: the R that OpenCV applies to
// rectify where the filter applies the stored matrix to output rays.
cv::Matx33d Transposed(const std::array<float, 9>& rotation) {
  return cv::Matx33f(rotation.data()).t();
}

// WarpYuvImageRadial with the radial model k; returns the zoom.
float WarpRadial(const float k[3], YuvPlanes& source, YuvPlanes& target, const std::array<float, 9>& camera,
                 const std::array<float, 9>& targetCamera, const std::array<float, 9>& rotation) {
  auto filter = RadialFilter(k[0], k[1], k[2]);
  float zoom = 0.0f;
  filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.data(), targetCamera.data(), rotation.data(), &zoom);
  return zoom;
}

// One random warp problem for the fast-against-reference comparison.
struct RandomWarp {
  int sourceWidth, sourceHeight, targetWidth, targetHeight;
  std::array<float, 9> sourceCamera, targetCamera, rotation;
  float k[3], forward[3], place[3];
};

RandomWarp MakeRandomWarp(std::mt19937& random) {
  std::uniform_int_distribution<int> size(1, 70);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  RandomWarp w{};
  w.sourceWidth = size(random);
  w.sourceHeight = size(random);
  w.targetWidth = size(random) - 1;
  w.targetHeight = size(random) - 1;
  w.sourceCamera = Camera(40.0f + 30.0f * unit(random), 40.0f + 30.0f * unit(random), w.sourceWidth * (0.5f + 0.2f * unit(random)),
                          w.sourceHeight * (0.5f + 0.2f * unit(random)));
  w.targetCamera = Camera(40.0f + 30.0f * unit(random), 40.0f + 30.0f * unit(random), w.targetWidth * (0.5f + 0.2f * unit(random)),
                          w.targetHeight * (0.5f + 0.2f * unit(random)));
  w.rotation = RotationFrom(cv::Vec3d(0.3 * unit(random), 0.3 * unit(random), 0.3 * unit(random)));
  for (float& k : w.k) k = 0.3f * unit(random);
  w.forward[0] = 5.0f * unit(random);
  w.forward[1] = 5.0f * unit(random);
  w.forward[2] = 1.0f + 0.3f * unit(random);
  w.place[0] = 5.0f * unit(random);
  w.place[1] = 5.0f * unit(random);
  w.place[2] = 1.0f + 0.3f * unit(random);
  return w;
}

// OpenCV's undistort-rectify map for the same warp: the filter applies the
// stored rotation to output rays, OpenCV the inverse of its R, so R is the
// transpose; the zoom scales the output focal lengths.
void OpenCvMaps(const std::array<float, 9>& sourceCamera, const std::array<float, 9>& targetCamera,
                const std::array<float, 9>& rotation, const float k[3], float zoom, cv::Size size, cv::Mat& mapX,
                cv::Mat& mapY) {
  const cv::Matx33d camera(sourceCamera[0], 0, sourceCamera[2], 0, sourceCamera[4], sourceCamera[5], 0, 0, 1);
  const cv::Matx33d zoomed(targetCamera[0] * zoom, 0, targetCamera[2], 0, targetCamera[4] * zoom, targetCamera[5], 0, 0, 1);
  const cv::Matx33d transposed = Transposed(rotation);
  const cv::Mat distortion = (cv::Mat_<double>(1, 5) << k[0], k[1], 0.0, 0.0, k[2]);
  cv::initUndistortRectifyMap(camera, distortion, transposed, zoomed, size, CV_32FC1, mapX, mapY);
}

// Differences between two 8-bit planes: the mean and the largest.
struct PlaneDifference {
  double mean, max;
};

PlaneDifference Compare(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat difference;
  cv::absdiff(a, b, difference);
  double max = 0.0;
  cv::minMaxLoc(difference.reshape(1), nullptr, &max);
  return {cv::mean(difference.reshape(1))[0], max};
}

// Bilinear resampling of the same smooth scene at positions that differ in
// rounding only (float here, fixed point in OpenCV): mean and largest level
// differences allowed.
constexpr double kOracleMeanLevels = 0.3;
constexpr double kOracleMaxLevels = 3.0;

}  // namespace

TEST(YuvWarp, PlaneSizes) {
  struct Case {
    int width, height;
    int64_t luma, chroma;
  };
  const Case cases[] = {{4, 4, 16, 8}, {5, 4, 20, 11}, {4, 5, 20, 12}, {5, 5, 25, 16}, {1, 1, 1, 2}, {0, 7, 0, 0}, {7, -1, 0, 0}};
  for (const Case& c : cases) {
    EXPECT_EQ(WarpLumaBytes(c.width, c.height), c.luma) << c.width << "x" << c.height;
    EXPECT_EQ(WarpChromaBytes(c.width, c.height), c.chroma) << c.width << "x" << c.height;
  }
}

// With the same camera on a target one column and one row smaller than the
// source, every side of the mapped border lies exactly on the frame: zoom 1
// and the luma copied. The chroma pairs hold their last writer's sample.
TEST(YuvWarp, IdentityCopiesAndKeepsTheChromaWriteRule) {
  const int sizes[][2] = {{64, 48}, {65, 49}, {64, 49}, {65, 48}, {2, 2}, {3, 3}};
  for (const auto& size : sizes) {
    const int width = size[0], height = size[1];
    YuvPlanes source = NoiseSource(width, height, 7);
    const std::array<float, 9> camera = Camera(1024.0f, 1024.0f, (width - 1) * 0.5f, (height - 1) * 0.5f);
    auto filter = RadialFilter(0.0f, 0.0f, 0.0f);
    for (const bool fast : {true, false}) {
      YuvPlanes target = Target(width - 1, height - 1);
      float zoom = 0.0f;
      if (fast) {
        filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.data(), camera.data(), kIdentity, &zoom);
      } else {
        filter->WarpYuvImageRadialReference(source.Image(), target.Image(), camera.data(), camera.data(), kIdentity,
                                            &zoom);
      }
      EXPECT_EQ(zoom, 1.0f) << width << "x" << height;
      for (int y = 0; y < height - 1; ++y) {
        for (int x = 0; x < width - 1; ++x) {
          ASSERT_EQ(target.luma[y * (width - 1) + x], source.luma[y * width + x]) << x << "," << y;
        }
      }
      EXPECT_EQ(target.chroma, IdentityChroma(source, width - 1, height - 1)) << width << "x" << height;
    }
  }
}

// On a target as large as the source the last column and row map one pixel
// short of the frame's far sides, so the zoom exceeds 1 there.
TEST(YuvWarp, IdentityOnEqualSizesZoomsByTheFarSides) {
  YuvPlanes source = SmoothSource(80, 60, 3);
  YuvPlanes target = Target(80, 60);
  const std::array<float, 9> camera = Camera(64.0f, 64.0f, 40.0f, 29.0f);
  auto filter = RadialFilter(0.0f, 0.0f, 0.0f);
  float zoom = 0.0f;
  filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.data(), camera.data(), kIdentity, &zoom);
  EXPECT_FLOAT_EQ(zoom, std::max((80.0f - 40.0f) / 39.0f, (60.0f - 29.0f) / 30.0f));
}

TEST(YuvWarp, KnownZooms) {
  struct Case {
    const char* name;
    std::array<float, 9> targetCamera;
    double expectedZoom;
  };
  const int width = 200, height = 150;
  const std::array<float, 9> camera = Camera(160.0f, 160.0f, 99.5f, 74.5f);
  const Case cases[] = {
      {"shorter focal length: all four sides", Camera(128.0f, 128.0f, 99.5f, 74.5f), 1.25},
      {"centre moved right: the left side", Camera(160.0f, 160.0f, 119.5f, 74.5f), 119.5 / 99.5},
      {"centre moved up: the bottom side", Camera(160.0f, 160.0f, 99.5f, 64.5f), (149.0 - 64.5) / (149.0 - 74.5)},
  };
  YuvPlanes source = SmoothSource(width, height, 5);
  auto filter = RadialFilter(0.0f, 0.0f, 0.0f);
  for (const Case& c : cases) {
    YuvPlanes target = Target(width - 1, height - 1);
    float zoom = 0.0f;
    filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.data(), c.targetCamera.data(), kIdentity, &zoom);
    EXPECT_NEAR(zoom, c.expectedZoom, 1e-5) << c.name;
  }
}

// The zoom against OpenCV's own undistortion of the source border.
TEST(YuvWarp, DistortedZoomAgreesWithOpenCv) {
  const int width = 640, height = 480;
  const std::array<float, 9> camera = Camera(520.0f, 515.0f, 322.0f, 236.0f);
  const std::array<float, 9> targetCamera = Camera(500.0f, 500.0f, 320.0f, 240.0f);
  const float k[3] = {0.09f, 0.02f, -0.004f};
  const std::array<float, 9> filterRotation = RotationFrom(cv::Vec3d(0.01, 0.02, -0.015));
  std::vector<cv::Point2f> border;
  for (int x = 0; x < width; ++x) {
    border.emplace_back(x, 0.0f);
    border.emplace_back(x, height - 1.0f);
  }
  for (int y = 0; y < height; ++y) {
    border.emplace_back(0.0f, y);
    border.emplace_back(width - 1.0f, y);
  }
  std::vector<cv::Point2f> mapped;
  const cv::Matx33d sourceK(camera[0], 0, camera[2], 0, camera[4], camera[5], 0, 0, 1);
  const cv::Matx33d targetK(targetCamera[0], 0, targetCamera[2], 0, targetCamera[4], targetCamera[5], 0, 0, 1);
  const cv::Mat distortion = (cv::Mat_<double>(1, 5) << k[0], k[1], 0, 0, k[2]);
  const cv::Matx33d transposed = Transposed(filterRotation);
  cv::undistortPoints(border, mapped, sourceK, distortion, transposed, targetK,
                      cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 200, 1e-12));
  double top = 0.0, bottom = height, left = 0.0, right = width;
  for (size_t i = 0; i < mapped.size(); ++i) {
    if (border[i].y == 0.0f) top = std::max<double>(top, mapped[i].y);
    if (border[i].y == height - 1.0f) bottom = std::min<double>(bottom, mapped[i].y);
    if (border[i].x == 0.0f) left = std::max<double>(left, mapped[i].x);
    if (border[i].x == width - 1.0f) right = std::min<double>(right, mapped[i].x);
  }
  const double cx = targetCamera[2], cy = targetCamera[5];
  const double expected = std::max({1.0, cx / (cx - left), (width - cx) / (right - cx), cy / (cy - top),
                                    (height - cy) / (bottom - cy)});
  ASSERT_GT(expected, 1.01);
  YuvPlanes source = SmoothSource(width, height, 9);
  YuvPlanes target = Target(width, height);
  const float zoom = WarpRadial(k, source, target, camera, targetCamera, filterRotation);
  EXPECT_NEAR(zoom, expected, 1e-4);
}

// The whole warp against OpenCV's initUndistortRectifyMap and remap of both
// planes; the chroma map samples the luma map at each pair's last writer.
TEST(YuvWarp, WarpAgreesWithOpenCvRemap) {
  const int width = 1000, height = 750;
  const std::array<float, 9> camera = Camera(800.0f, 796.0f, 503.0f, 371.0f);
  const std::array<float, 9> targetCamera = Camera(780.0f, 780.0f, 500.0f, 375.0f);
  const float k[3] = {-0.11f, 0.04f, -0.006f};
  const std::array<float, 9> filterRotation = RotationFrom(cv::Vec3d(-0.012, 0.018, 0.007));
  YuvPlanes source = SmoothSource(width, height, 21);
  YuvPlanes target = Target(width, height);
  const float zoom = WarpRadial(k, source, target, camera, targetCamera, filterRotation);
  EXPECT_GE(zoom, 1.0f);

  cv::Mat mapX, mapY;
  OpenCvMaps(camera, targetCamera, filterRotation, k, zoom, cv::Size(width, height), mapX, mapY);
  cv::Mat expectedLuma;
  cv::remap(cv::Mat(height, width, CV_8UC1, source.luma.data()), expectedLuma, mapX, mapY, cv::INTER_LINEAR,
            cv::BORDER_REPLICATE);
  const PlaneDifference luma = Compare(cv::Mat(height, width, CV_8UC1, target.luma.data()), expectedLuma);
  EXPECT_LT(luma.mean, kOracleMeanLevels);
  EXPECT_LE(luma.max, kOracleMaxLevels);

  cv::Mat chromaX(height / 2, width / 2, CV_32FC1), chromaY(height / 2, width / 2, CV_32FC1);
  for (int r = 0; r < height / 2; ++r) {
    for (int c = 0; c < width / 2; ++c) {
      chromaX.at<float>(r, c) = mapX.at<float>(2 * r + 1, 2 * c + 1) * 0.5f;
      chromaY.at<float>(r, c) = mapY.at<float>(2 * r + 1, 2 * c + 1) * 0.5f;
    }
  }
  cv::Mat expectedChroma;
  cv::remap(cv::Mat(height / 2, width / 2, CV_8UC2, source.chroma.data()), expectedChroma, chromaX, chromaY,
            cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  const PlaneDifference chroma = Compare(cv::Mat(height / 2, width / 2, CV_8UC2, target.chroma.data()), expectedChroma);
  EXPECT_LT(chroma.mean, kOracleMeanLevels);
  EXPECT_LE(chroma.max, kOracleMaxLevels);
  RecordProperty("luma_mean_max", std::to_string(luma.mean) + " " + std::to_string(luma.max));
  RecordProperty("chroma_mean_max", std::to_string(chroma.mean) + " " + std::to_string(chroma.max));
}

TEST(YuvWarp, EmptyOutputSetsZoomOnly) {
  YuvPlanes source = SmoothSource(40, 30, 1);
  const std::array<float, 9> camera = Camera(32.0f, 32.0f, 20.0f, 15.0f);
  const std::array<float, 9> target = Camera(24.0f, 24.0f, 20.0f, 15.0f);
  auto filter = RadialFilter(0.0f, 0.0f, 0.0f);
  const int sizes[][2] = {{39, 0}, {0, 29}};
  for (const auto& size : sizes) {
    std::vector<uint8_t> luma(4, kUntouched), chroma(4, kUntouched);
    YuvImage out;
    out.luma = luma.data();
    out.chroma = chroma.data();
    out.width = size[0];
    out.height = size[1];
    for (const bool fast : {true, false}) {
      float zoom = 0.0f;
      if (fast) {
        filter->WarpYuvImageRadial(source.Image(), out, camera.data(), target.data(), kIdentity, &zoom);
      } else {
        filter->WarpYuvImageRadialReference(source.Image(), out, camera.data(), target.data(), kIdentity, &zoom);
      }
      EXPECT_GT(zoom, 1.0f);
      EXPECT_EQ(luma, std::vector<uint8_t>(4, kUntouched));
      EXPECT_EQ(chroma, std::vector<uint8_t>(4, kUntouched));
    }
  }
}

// Every fast form this processor runs against the plain per-pixel loop, bit
// for bit, on random sizes (odd and even, down to one pixel), cameras,
// rotations, models and placements, and on degenerate inputs: zero focal
// lengths and a singular rotation give infinities and NaNs that the clamps
// turn into edge samples.
TEST(YuvWarp, EveryFastFormMatchesReferenceBitForBit) {
  const std::vector<WarpKernel> kernels = SupportedWarpKernels();
  const auto expectSameBits = [&](const CDistortionFilter& filter, YuvPlanes& source, int width, int height,
                                  const float* sourceCamera, const float* targetCamera, const float* rotation) {
    YuvPlanes reference = Target(width, height);
    float referenceZoom = 0.0f;
    filter.WarpYuvImageRadialReference(source.Image(), reference.Image(), sourceCamera, targetCamera, rotation,
                                       &referenceZoom);
    for (const WarpKernel kernel : kernels) {
      SCOPED_TRACE(static_cast<int>(kernel));
      YuvPlanes fast = Target(width, height);
      float fastZoom = 0.0f;
      WarpYuvImageRadialWith(kernel, filter, source.Image(), fast.Image(), sourceCamera, targetCamera, rotation,
                             &fastZoom);
      ASSERT_EQ(std::memcmp(&fastZoom, &referenceZoom, sizeof(float)), 0);
      ASSERT_EQ(fast.luma, reference.luma);
      ASSERT_EQ(fast.chroma, reference.chroma);
    }
  };
  std::mt19937 random(2024);
  for (int trial = 0; trial < 300; ++trial) {
    SCOPED_TRACE(trial);
    const RandomWarp w = MakeRandomWarp(random);
    YuvPlanes source = NoiseSource(w.sourceWidth, w.sourceHeight, trial);
    auto filter = RadialFilter(w.k[0], w.k[1], w.k[2]);
    for (int i = 0; i < 3; ++i) {
      filter->forwardTransform[i] = w.forward[i];
      filter->sourceTransform[i] = w.place[i];
    }
    if (trial % 3 == 0) filter->forwardTransform[2] = 1.0f;
    expectSameBits(*filter, source, w.targetWidth, w.targetHeight, w.sourceCamera.data(), w.targetCamera.data(),
                   w.rotation.data());
  }
  YuvPlanes source = NoiseSource(33, 21, 4);
  const std::array<float, 9> camera = Camera(0.0f, 30.0f, 16.0f, 10.0f);
  const std::array<float, 9> target = Camera(30.0f, 0.0f, 16.0f, 10.0f);
  const float singular[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
  auto filter = RadialFilter(0.1f, 0.0f, 0.0f);
  for (const float* rotation : {kIdentity, singular}) {
    expectSameBits(*filter, source, 17, 9, camera.data(), target.data(), rotation);
  }
}

TEST(YuvWarp, ModelChoiceWithoutCoefficientsIsTheRadialWarp) {
  std::mt19937 random(77);
  for (int trial = 0; trial < 40; ++trial) {
    const RandomWarp w = MakeRandomWarp(random);
    YuvPlanes source = NoiseSource(w.sourceWidth, w.sourceHeight, trial);
    auto filter = RadialFilter(0.0f, 0.0f, 0.0f);
    filter->coefficientCount = 0;
    YuvPlanes chosen = Target(w.targetWidth, w.targetHeight), radial = Target(w.targetWidth, w.targetHeight);
    float chosenZoom = 0.0f, radialZoom = 0.0f;
    filter->WarpYuvImage(source.Image(), chosen.Image(), w.sourceCamera.data(), w.targetCamera.data(),
                         w.rotation.data(), &chosenZoom);
    filter->WarpYuvImageRadial(source.Image(), radial.Image(), w.sourceCamera.data(), w.targetCamera.data(),
                               w.rotation.data(), &radialZoom);
    ASSERT_EQ(chosenZoom, radialZoom) << trial;
    ASSERT_EQ(chosen.luma, radial.luma) << trial;
    ASSERT_EQ(chosen.chroma, radial.chroma) << trial;
  }
}

// The polynomial model: each output pixel's undistorted radius rho (in
// source pixels) comes from the distorted radius r with rho = r / s(r).
// The oracle solves that in double by bisection and remaps with OpenCV.
TEST(YuvWarp, PolynomialModelAgreesWithAnOracle) {
  const int width = 320, height = 240;
  const std::array<float, 9> camera = Camera(256.0f, 256.0f, 160.0f, 120.0f);
  const double c[3] = {-0.03, 0.01, -0.004};
  auto filter = std::make_unique<CDistortionFilter>();
  filter->coefficientCount = 3;
  filter->referenceRadius = 200.0f;
  for (int j = 0; j < 3; ++j) filter->currentPolynomial[j] = static_cast<float>(c[j]);
  YuvPlanes source = SmoothSource(width, height, 31);
  YuvPlanes target = Target(width, height);
  float zoom = 0.0f;
  filter->WarpYuvImage(source.Image(), target.Image(), camera.data(), camera.data(), kIdentity, &zoom);
  EXPECT_GE(zoom, 1.0f);

  const auto factor = [&](double r) {
    const double t = r / 200.0;
    return 1.0 + c[0] * t + c[1] * t * t + c[2] * t * t * t;
  };
  const double lastRadius = 200.0 * 1023.0 / 1024.0;  // the curve's last sample, half-diagonal 200
  cv::Mat mapX(height, width, CV_32FC1), mapY(height, width, CV_32FC1), inside(height, width, CV_8UC1, cv::Scalar(0));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double dx = (x - 160.0) / zoom, dy = (y - 120.0) / zoom;
      const double rho = std::hypot(dx, dy);
      double low = 0.0, high = 2.0 * lastRadius;
      for (int i = 0; i < 60; ++i) {
        const double mid = 0.5 * (low + high);
        (mid / factor(mid) < rho ? low : high) = mid;
      }
      const double s = factor(low);
      mapX.at<float>(y, x) = static_cast<float>(160.0 + dx * s);
      mapY.at<float>(y, x) = static_cast<float>(120.0 + dy * s);
      inside.at<uint8_t>(y, x) = low < lastRadius ? 255 : 0;
    }
  }
  cv::Mat expected;
  cv::remap(cv::Mat(height, width, CV_8UC1, source.luma.data()), expected, mapX, mapY, cv::INTER_LINEAR,
            cv::BORDER_REPLICATE);
  cv::Mat actual = cv::Mat(height, width, CV_8UC1, target.luma.data()).clone();
  actual.setTo(0, inside == 0);
  expected.setTo(0, inside == 0);
  ASSERT_GT(cv::countNonZero(inside), width * height / 2);
  const PlaneDifference luma = Compare(actual, expected);
  EXPECT_LT(luma.mean, kOracleMeanLevels);
  EXPECT_LE(luma.max, kOracleMaxLevels);
}

// The warp's bytes pinned for a fixed scene, so that a build on another
// architecture (AArch64 under qemu) shows any difference in rounding.
TEST(YuvWarp, SameBitsOnEveryPlatform) {
  YuvPlanes source = NoiseSource(97, 61, 5);
  const std::array<float, 9> camera = Camera(81.5f, 80.25f, 49.75f, 29.5f);
  const std::array<float, 9> targetCamera = Camera(78.0f, 79.5f, 47.0f, 31.25f);
  const std::array<float, 9> rotation = {0.9990f, -0.0300f, 0.0330f, 0.0310f, 0.9993f, -0.0200f, -0.0320f, 0.0210f, 0.9993f};
  auto filter = RadialFilter(-0.21f, 0.07f, -0.013f);
  filter->forwardTransform[0] = 1.5f;
  filter->forwardTransform[1] = -2.25f;
  filter->forwardTransform[2] = 1.1f;
  filter->SetSourceTransform(90, 60, 81, 54, 0.9f);
  YuvPlanes target = Target(91, 57);
  float zoom = 0.0f;
  filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.data(), targetCamera.data(), rotation.data(), &zoom);
  uint64_t hash = Fnv1a(&zoom, sizeof(zoom));
  hash = Fnv1a(target.luma.data(), target.luma.size(), hash);
  hash = Fnv1a(target.chroma.data(), target.chroma.size(), hash);
  EXPECT_EQ(hash, 9865848699255943585ull);
}
