#include "distortion/YuvWarp.h"

#include "tests/support/TestPrelude.h"

#include <opencv2/calib3d.hpp>

#include "distortion/CDistortionFilter.h"
#include "tests/support/YuvPlanes.h"

namespace {

// OpenCV's worker threads stall under qemu-aarch64, where this suite also runs: the oracles run sequentially.
[[maybe_unused]] const bool kSequentialOpenCv = (cv::setNumThreads(0), true);

constexpr uint8_t kUntouched = 0xA5;
constexpr float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

// Bytes value(x, y, plane): plane 0 luma at pixel (x, y), planes 1 and 2 the chroma bytes of sample (x, y).
template <typename Value>
YuvPlanes SourceOf(int width, int height, Value value) {
  YuvPlanes planes{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height),
                   std::vector<uint8_t>(static_cast<size_t>(width & ~1) * (height >> 1))};
  for (int i = 0; i < width * height; ++i) planes.luma[i] = static_cast<uint8_t>(value(i % width, i / width, 0));
  for (size_t i = 0; i < planes.chroma.size(); ++i)
    planes.chroma[i] = static_cast<uint8_t>(value(i % (width & ~1) / 2, i / (width & ~1), 1 + i % 2));
  return planes;
}

YuvPlanes NoiseSource(int width, int height, unsigned seed) {
  std::mt19937 random(seed);
  return SourceOf(width, height, [&](int, int, int plane) { return plane == 0 ? random() : random() & 0xFC; });  // chroma * 4
}

YuvPlanes Target(int width, int height) { return WarpTarget(width, height, kUntouched); }

cv::Matx33f Camera(float fx, float fy, float cx, float cy) { return cv::Matx33f(fx, 0, cx, 0, fy, cy, 0, 0, 1); }

cv::Matx33d CameraOf(const cv::Matx33f& camera) { return cv::Matx33d(camera); }

std::unique_ptr<CDistortionFilter> RadialFilter(float k1, float k2, float k3) {
  auto filter = std::make_unique<CDistortionFilter>();
  std::tie(filter->radialCoefficients[0], filter->radialCoefficients[1], filter->radialCoefficients[2]) = std::tie(k1, k2, k3);
  return filter;
}

cv::Matx33f RotationFrom(const cv::Vec3d& vector) {
  cv::Matx33d rotation;
  cv::Rodrigues(vector, rotation);
  return cv::Matx33f(rotation);
}

struct RandomWarp {
  int sourceWidth, sourceHeight, targetWidth, targetHeight;
  cv::Matx33f sourceCamera, targetCamera, rotation;
  float k[3], forward[3], place[3];
};

RandomWarp MakeRandomWarp(std::mt19937& random) {
  std::uniform_int_distribution<int> size(1, 70);
  std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
  const auto camera = [&](int width, int height) {
    return Camera(40.0f + 30.0f * unit(random), 40.0f + 30.0f * unit(random), width * (0.5f + 0.2f * unit(random)),
                  height * (0.5f + 0.2f * unit(random)));
  };
  RandomWarp w{};
  w.sourceWidth = size(random), w.sourceHeight = size(random), w.targetWidth = size(random) - 1, w.targetHeight = size(random) - 1;
  w.sourceCamera = camera(w.sourceWidth, w.sourceHeight), w.targetCamera = camera(w.targetWidth, w.targetHeight);
  w.rotation = RotationFrom(cv::Vec3d(0.3 * unit(random), 0.3 * unit(random), 0.3 * unit(random)));
  for (float& k : w.k) k = 0.3f * unit(random);
  for (float* transform : {w.forward, w.place})
    for (int i = 0; i < 3; ++i) transform[i] = (i < 2 ? 0.0f : 1.0f) + (i < 2 ? 5.0f : 0.3f) * unit(random);
  return w;
}

YuvPlanes RampSource(int width, int height) {
  return SourceOf(width, height, [](int x, int y, int plane) { return plane == 0 ? 2 * x + 3 * y : plane == 1 ? 4 * x + 10 : 5 * y + 20; });
}

// Largest level difference of target from RampSource sampled at sampled(x, y) (NaN: skipped), clamped as the
// samplers clamp; a chroma pair holds its last writer's sample, an odd width's last pair spills into the next row.
template <typename Sampled>
double WorstRampLevels(const YuvPlanes& target, int sourceWidth, int sourceHeight, Sampled sampled) {
  std::vector<double> luma(target.luma.size(), NAN), chroma(target.chroma.size(), NAN);
  for (int i = 0; i < target.width * target.height; ++i) {
    const int x = i % target.width, y = i / target.width;
    const cv::Point2d p = sampled(x, y);
    luma[i] = 2.0 * std::clamp(p.x, 0.0, sourceWidth - 1.0) + 3.0 * std::clamp(p.y, 0.0, sourceHeight - 1.0);
    if ((x % 2 == 0 && x + 1 < target.width) || (y % 2 == 0 && y + 1 < target.height)) continue;  // not the last writer
    chroma[(y / 2) * target.width + (x & ~1)] = 4.0 * std::clamp(p.x / 2, 0.0, sourceWidth / 2 - 1.0) + 10.0;
    chroma[(y / 2) * target.width + (x & ~1) + 1] = 5.0 * std::clamp(p.y / 2, 0.0, sourceHeight / 2 - 1.0) + 20.0;
  }
  double worst = 0.0;
  for (size_t i = 0; i < luma.size(); ++i) worst = std::isnan(luma[i]) ? worst : std::max(worst, std::abs(target.luma[i] - luma[i]));
  for (size_t i = 0; i < chroma.size(); ++i) worst = std::isnan(chroma[i]) ? worst : std::max(worst, std::abs(target.chroma[i] - chroma[i]));
  return worst;
}

}  // namespace

// Without distortion or rotation the border maps to itself shifted by the change of centre: each case brings one
// side, or all four, inside; on a target as large as the source the last column and row fall one pixel short.
TEST(YuvWarp, KnownZooms) {
  const cv::Matx33f camera = Camera(160.0f, 160.0f, 99.5f, 74.5f);
  const struct { cv::Matx33f target; int width, height; double zoom; } cases[] = {  // all, left, right, top, bottom
      {Camera(128.0f, 128.0f, 99.5f, 74.5f), 199, 149, 1.25},     {Camera(160.0f, 160.0f, 119.5f, 74.5f), 199, 149, 119.5 / 99.5},
      {Camera(160.0f, 160.0f, 79.5f, 74.5f), 199, 149, 119.5 / 99.5}, {Camera(160.0f, 160.0f, 99.5f, 84.5f), 199, 149, 84.5 / 74.5},
      {Camera(160.0f, 160.0f, 99.5f, 64.5f), 199, 149, 84.5 / 74.5},  {camera, 200, 150, std::max(100.5 / 99.5, 75.5 / 74.5)}};
  YuvPlanes source = NoiseSource(200, 150, 5);
  auto filter = RadialFilter(0.0f, 0.0f, 0.0f);
  float zoom = 0.0f;  // each warp sets it first
  for (const auto& c : cases) {
    YuvPlanes target = Target(c.width, c.height);
    filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.val, c.target.val, kIdentity, &zoom);
    EXPECT_NEAR(zoom, c.zoom, 1e-5) << c.target(0, 2) << "," << c.target(1, 2);
  }
  YuvPlanes empty = NoiseSource(0, 0, 5), black = Target(8, 6);  // a dropped capture: no pixel maps in, no zoom, black
  filter->WarpYuvImageRadial(empty.Image(), black.Image(), Camera(160, 160, 2, 2).val, Camera(160, 160, 4, 3).val, kIdentity, &zoom);
  EXPECT_EQ(std::tie(zoom, black.luma), std::make_tuple(1.0f, std::vector<uint8_t>(48, 0)));
}

// A distorting, rotating warp of RampSource. Identity placements: the zoom against OpenCV's undistortion of the
// source border, every position against initUndistortRectifyMap at that zoom (R transposed, focal lengths times
// the zoom). Both placements set: against the mapping in double, a = (x - cx') s' + ox' (sourceTransform),
// divided by zoom and fx', rotated as stored, distorted, placed by forwardTransform: sx = (cx + fx X f) / s - ox.
TEST(YuvWarp, SampledPositionsAgreeWithOpenCvAndThePlacements) {
  const int width = 60, height = 40, outWidth = 57, outHeight = 35;
  YuvPlanes source = RampSource(width, height);
  const cv::Matx33f camera = Camera(70.0f, 68.0f, 31.5f, 18.25f), targetCamera = Camera(66.0f, 67.0f, 27.0f, 18.5f);
  const cv::Matx33f m = RotationFrom(cv::Vec3d(0.03, -0.02, 0.04));
  const float k[3] = {-0.08f, 0.02f, 0.005f}, forward[3] = {1.75f, -1.25f, 1.08f}, place[3] = {-2.5f, 1.5f, 0.9f};
  const cv::Mat distortion = (cv::Mat_<double>(1, 5) << k[0], k[1], 0, 0, k[2]);
  const cv::Matx33d transposed = m.t();
  std::vector<cv::Point2f> border, mapped;
  for (int x = 0; x < width; ++x) border.insert(border.end(), {{x * 1.0f, 0.0f}, {x * 1.0f, height - 1.0f}});
  for (int y = 0; y < height; ++y) border.insert(border.end(), {{0.0f, y * 1.0f}, {width - 1.0f, y * 1.0f}});
  cv::undistortPoints(border, mapped, CameraOf(camera), distortion, transposed, CameraOf(targetCamera),
                      cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 200, 1e-12));
  const double cx = targetCamera(0, 2), cy = targetCamera(1, 2);
  double zoom = 1.0;
  for (size_t i = 0; i < mapped.size(); ++i) {
    if (border[i].y == 0.0f) zoom = std::max(zoom, cy / (cy - mapped[i].y));
    if (border[i].y == height - 1.0f) zoom = std::max(zoom, (outHeight - cy) / (mapped[i].y - cy));
    if (border[i].x == 0.0f) zoom = std::max(zoom, cx / (cx - mapped[i].x));
    if (border[i].x == width - 1.0f) zoom = std::max(zoom, (outWidth - cx) / (mapped[i].x - cx));
  }
  ASSERT_GT(zoom, 1.01);
  auto filter = RadialFilter(k[0], k[1], k[2]);
  YuvPlanes target = Target(outWidth, outHeight);
  float actualZoom = 0.0f;
  filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.val, targetCamera.val, m.val, &actualZoom);
  EXPECT_NEAR(actualZoom, zoom, 1e-4);
  cv::Mat mapX, mapY;
  const cv::Matx33d zoomed(targetCamera(0, 0) * zoom, 0, cx, 0, targetCamera(1, 1) * zoom, cy, 0, 0, 1);
  cv::initUndistortRectifyMap(CameraOf(camera), distortion, transposed, zoomed, cv::Size(outWidth, outHeight), CV_32FC1, mapX, mapY);
  EXPECT_LE(WorstRampLevels(target, width, height, [&](int x, int y) { return cv::Point2d(mapX.at<float>(y, x), mapY.at<float>(y, x)); }), 1.0);

  std::copy(forward, forward + 3, filter->forwardTransform);
  std::copy(place, place + 3, filter->sourceTransform);
  filter->WarpYuvImageRadial(source.Image(), target.Image(), camera.val, targetCamera.val, m.val, &actualZoom);
  EXPECT_LE(WorstRampLevels(target, width, height, [&](int x, int y) {
    const double xn = ((x - cx) * place[2] + place[0]) / actualZoom / targetCamera(0, 0);
    const double yn = ((y - cy) * place[2] + place[1]) / actualZoom / targetCamera(1, 1);
    const cv::Vec3d ray = cv::Matx33d(m) * cv::Vec3d(xn, yn, 1.0);
    const double X = ray[0] / ray[2], Y = ray[1] / ray[2], r2 = X * X + Y * Y, f = 1.0 + r2 * (k[0] + r2 * (k[1] + r2 * k[2]));
    return cv::Point2d((camera(0, 2) + camera(0, 0) * X * f) / forward[2] - forward[0], (camera(1, 2) + camera(1, 1) * Y * f) / forward[2] - forward[1]);
  }), 1.0);
}

// Random sizes (odd and even, down to one pixel), cameras, rotations, models and placements, and zero focal
// lengths and a singular rotation, whose infinities and NaNs the clamps turn into edge samples.
TEST(YuvWarp, EveryFastFormMatchesReferenceBitForBit) {
  const std::vector<WarpKernel> kernels = SupportedWarpKernels();
  const auto expectSameBits = [&](const CDistortionFilter& filter, YuvPlanes& source, int width, int height,
                                  const float (&sourceCamera)[9], const float (&targetCamera)[9], const float (&rotation)[9]) {
    YuvPlanes reference = Target(width, height);
    float referenceZoom = 0.0f;
    filter.WarpYuvImageRadialReference(source.Image(), reference.Image(), sourceCamera, targetCamera, rotation, &referenceZoom);
    for (const WarpKernel kernel : kernels) {
      SCOPED_TRACE(static_cast<int>(kernel));
      YuvPlanes fast = Target(width, height);
      float fastZoom = 0.0f;
      WarpYuvImageRadialWith(kernel, filter, source.Image(), fast.Image(), sourceCamera, targetCamera, rotation, &fastZoom);
      ASSERT_EQ(std::memcmp(&fastZoom, &referenceZoom, sizeof(float)), 0);
      ASSERT_TRUE(fast.luma == reference.luma && fast.chroma == reference.chroma);
    }
  };
  std::mt19937 random(2024);
  for (int trial = 0; trial < 300; ++trial) {
    SCOPED_TRACE(trial);
    const RandomWarp w = MakeRandomWarp(random);
    YuvPlanes source = NoiseSource(w.sourceWidth, w.sourceHeight, trial);
    auto filter = RadialFilter(w.k[0], w.k[1], w.k[2]);
    std::copy(w.forward, w.forward + 3, filter->forwardTransform);
    std::copy(w.place, w.place + 3, filter->sourceTransform);
    if (trial % 3 == 0) filter->forwardTransform[2] = 1.0f;
    expectSameBits(*filter, source, w.targetWidth, w.targetHeight, w.sourceCamera.val, w.targetCamera.val, w.rotation.val);
  }
  YuvPlanes source = NoiseSource(33, 21, 4);
  const cv::Matx33f camera = Camera(0.0f, 30.0f, 16.0f, 10.0f), target = Camera(30.0f, 0.0f, 16.0f, 10.0f);
  const float singular[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
  auto filter = RadialFilter(0.1f, 0.0f, 0.0f);
  for (const auto* rotation : {&kIdentity, &singular}) expectSameBits(*filter, source, 17, 9, camera.val, target.val, *rotation);
  EXPECT_EQ(WarpChromaBytes(17, 0), 0);  // no row, so no spill past it either
}

// Without coefficients WarpYuvImage is the radial warp, down to a one-row target; with a polynomial, an output pixel
// at undistorted radius rho samples at the r with r / s(r) = rho, solved here in double by bisection.
TEST(YuvWarp, ModelChoiceAndPolynomialWarp) {
  const RandomWarp w = [] { std::mt19937 random(77); return MakeRandomWarp(random); }();
  YuvPlanes noise = NoiseSource(w.sourceWidth, w.sourceHeight, 1);
  YuvPlanes chosen = Target(w.targetWidth, 1), radial = Target(w.targetWidth, 1);
  float chosenZoom = 0.0f, radialZoom = 0.0f, zoom = 0.0f;
  auto flat = RadialFilter(0.0f, 0.0f, 0.0f);
  flat->WarpYuvImage(noise.Image(), chosen.Image(), w.sourceCamera.val, w.targetCamera.val, w.rotation.val, &chosenZoom);
  flat->WarpYuvImageRadial(noise.Image(), radial.Image(), w.sourceCamera.val, w.targetCamera.val, w.rotation.val, &radialZoom);
  EXPECT_EQ(std::tie(chosenZoom, chosen.luma, chosen.chroma), std::tie(radialZoom, radial.luma, radial.chroma));
  ASSERT_NE(chosen.luma, Target(w.targetWidth, 1).luma);
  const int width = 60, height = 40;
  const cv::Matx33f camera = Camera(48.0f, 48.0f, 30.0f, 20.0f);
  const double c[3] = {-0.03, 0.01, -0.004}, halfDiagonal = std::hypot(width, height) / 2;
  auto filter = std::make_unique<CDistortionFilter>();
  filter->coefficientCount = 3, filter->referenceRadius = 30.0f;
  std::copy(c, c + 3, filter->currentPolynomial);
  YuvPlanes source = RampSource(width, height), target = Target(width - 1, height - 1);
  filter->WarpYuvImage(source.Image(), target.Image(), camera.val, camera.val, kIdentity, &zoom);
  EXPECT_GE(zoom, 1.0f);
  const auto factor = [&](double r) { return 1.0 + r / 30.0 * (c[0] + r / 30.0 * (c[1] + r / 30.0 * c[2])); };
  const double lastRadius = halfDiagonal * 1023.0 / 1024.0;  // the curve's last sample
  EXPECT_LE(WorstRampLevels(target, width, height, [&](int x, int y) {
    const double dx = (x - 30.0) / zoom, dy = (y - 20.0) / zoom, rho = std::hypot(dx, dy);
    double low = 0.0, high = 2.0 * lastRadius;
    for (int i = 0; i < 40; ++i) ((low + high) / 2 / factor((low + high) / 2) < rho ? low : high) = (low + high) / 2;
    return low < lastRadius ? cv::Point2d(30.0 + dx * factor(low), 20.0 + dy * factor(low)) : cv::Point2d(NAN, NAN);
  }), 1.0);
}
