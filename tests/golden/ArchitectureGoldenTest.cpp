// The library's arithmetic gives the same bits on x86-64 and AArch64: each case feeds exact binary inputs to one
// group of kernels and compares every output (floats as %a) with a golden file written on x86-64. OpenCV enters
// only as counts and a rounded estimate (FeaturePair). Regenerate with QLM_UPDATE_GOLDEN=1, and review the diff.
#include "tests/support/TestPrelude.h"

#include <opencv2/core.hpp>

#include "distortion/CDistortionFilter.h"
#include "engine/FeaturePointCalibration.h"
#include "engine/dualCalibration.h"
#include "synthetic/SyntheticScene.h"
#include "tests/support/YuvPlanes.h"

namespace {

// Output text: one value per line, "label value", floats as %a.
struct GoldenText {
  std::string text;
  void Float(const std::string& label, double value) {
    text += label + " " + cv::format("%a", value) + "\n";
  }
  void Int(const std::string& label, long long value) { text += label + " " + std::to_string(value) + "\n"; }
  void Floats(const std::string& label, const float* values, size_t count) {
    for (size_t i = 0; i < count; ++i) Float(label + "[" + std::to_string(i) + "]", values[i]);
  }
  void Bytes(const std::string& label, const std::vector<uint8_t>& bytes) {
    char hex[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
      if (i % 40 == 0) text += label + "[" + std::to_string(i) + "]";
      std::snprintf(hex, sizeof(hex), " %02x", bytes[i]);
      text += hex + std::string(i % 40 == 39 || i + 1 == bytes.size() ? "\n" : "");
    }
  }
  void Matrix(const std::string& label, const cv::Mat& matrix) {
    cv::Mat values;
    matrix.convertTo(values, CV_64F);
    for (int i = 0; i < values.rows * values.cols; ++i)
      Float(label + "(" + std::to_string(i / values.cols) + "," + std::to_string(i % values.cols) + ")", values.at<double>(i / values.cols, i % values.cols));
  }
};

// A 2000 x 1500 camera with an off-centre principal point; a small rotation about all three axes, row major.
constexpr int kWidth = 2000, kHeight = 1500;
constexpr float kCamera[9] = {1600.0f, 0.0f, 1003.5f, 0.0f, 1590.0f, 748.25f, 0.0f, 0.0f, 1.0f};
constexpr float kTargetCamera[9] = {1500.0f, 0.0f, 1010.0f, 0.0f, 1495.0f, 740.0f, 0.0f, 0.0f, 1.0f};
constexpr float kRotation[9] = {0.99984771f, -0.01745241f, 0.00174524f, 0.01744975f, 0.99983245f, 0.00523596f, -0.00183652f, -0.00520461f, 0.99998477f};
const double kRotationD[9] = {0.99984771, -0.01745241, 0.00174524, 0.01744975, 0.99983245, 0.00523596, -0.00183652, -0.00520461, 0.99998477};

// A polynomial, a barrel radial model and both placement transforms away from the identity.
void Configure(CDistortionFilter& filter) {
  filter.rowCount = 3, filter.coefficientCount = 4, filter.referenceRadius = 1250.0f;
  const float polynomial[4] = {0.031f, -0.012f, 0.0043f, -0.0007f}, radial[3] = {-0.12f, 0.05f, -0.01f}, forward[3] = {3.25f, -2.5f, 1.0009765625f};
  std::copy(polynomial, polynomial + 4, filter.currentPolynomial);
  std::copy(radial, radial + 3, filter.radialCoefficients);
  std::copy(forward, forward + 3, filter.forwardTransform);
  filter.SetSourceTransform(kWidth, kHeight, 1990, 1490, 0.995f);
}

// Points spread over the whole image, corners included, with quarter-pixel fractions: exact in binary32.
std::vector<float> ImagePoints() {
  std::vector<float> points = {0.0f, 0.0f, kWidth - 1.0f, 0.0f, 0.0f, kHeight - 1.0f, kWidth - 1.0f, kHeight - 1.0f};
  for (int i = 1; i <= 60; ++i) {
    points.push_back(static_cast<float>(i * 7919 % kWidth) + 0.25f * static_cast<float>(i % 4));
    points.push_back(static_cast<float>(i * 104729 % kHeight) + 0.25f * static_cast<float>(i % 3));
  }
  return points;
}

cv::Mat Matrix3x3(const double values[9]) { return cv::Mat(3, 3, CV_64F, const_cast<double*>(values)).clone(); }

// A 9 x 6 board seen slightly rotated, with sub-pixel offsets that differ per corner.
std::vector<cv::Point2f> BoardCorners(float originX, float originY, float stepPx) {
  std::vector<cv::Point2f> corners;
  for (int i = 0; i < 54; ++i) {
    const int row = i / 9, column = i % 9;
    const float jitter = static_cast<float>(i * 37 % 16) * 0.0625f;
    corners.emplace_back(originX + column * stepPx - row * 0.75f + jitter, originY + row * stepPx + column * 0.5f - jitter);
  }
  return corners;
}

}  // namespace

TEST(ArchitectureGolden, Curves) {
  CDistortionFilter filter;
  Configure(filter);
  CurveTable radialRadius{}, radialScale{}, polyRadius{}, polyScale{};
  for (CurveTable* table : {&radialRadius, &radialScale, &polyRadius, &polyScale}) table->back() = -1.0f;
  filter.BuildCurveFromRadialModel(kCamera, radialRadius, radialScale, kWidth, kHeight);
  filter.BuildCurveFromPolynomial(polyRadius, polyScale, kWidth, kHeight);
  // The slack entry after the last node is 0 in every table.
  EXPECT_EQ(std::vector<float>({radialRadius.back(), radialScale.back(), polyRadius.back(), polyScale.back()}), std::vector<float>(4, 0.0f));
  GoldenText out;
  for (const auto& [label, table] : {std::pair("radialRadius", &radialRadius), {"radialScale", &radialScale},
                                     {"polyRadius", &polyRadius}, {"polyScale", &polyScale}})
    out.Floats(label, table->data(), kCurveSize);
  for (int i = 0; i < 40; ++i) {
    // Queries from below the first node to past the last one of each table.
    const std::string index = "[" + std::to_string(i) + "]";
    out.Float("interpolate" + index, CDistortionFilter::InterpolateCurve(polyRadius, polyScale, i * 33.5f - 2.0f));
    out.Float("reciprocal" + index, CDistortionFilter::InterpolateCurveReciprocal(radialRadius, radialScale, i * 0.021484375f - 0.015625f));
  }
  ExpectGolden(out.text, "golden/Curves.golden");
}

TEST(ArchitectureGolden, PointKernels) {
  CDistortionFilter filter;
  Configure(filter);
  const std::vector<float> in = ImagePoints();
  const int count = static_cast<int>(in.size() / 2);
  std::vector<float> out(in.size());
  GoldenText text;
  // Points well inside the polynomial's band, so that all are processed.
  std::vector<float> inner(in.size());
  for (size_t i = 0; i < in.size(); ++i) inner[i] = in[i] * 0.5f + (i % 2 == 0 ? 500.0f : 375.0f);
  text.Int("undistortPolynomialResult", filter.UndistortPointsPolynomial(inner.data(), out.data(), count, kWidth, kHeight));
  text.Floats("undistortPolynomial", out.data(), out.size());
  filter.DistortPointsPolynomial(in.data(), out.data(), count, kWidth, kHeight, kCamera);
  text.Floats("distortPolynomial", out.data(), out.size());
  filter.UndistortPointsRadial(in.data(), out.data(), count, kWidth, kHeight, kCamera);
  text.Floats("undistortRadial", out.data(), out.size());
  CurveTable radius{}, scale{};
  filter.BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
  filter.MapPointsRadial(in.data(), out.data(), count, kCamera, kTargetCamera, kRotation, radius, scale);
  text.Floats("mapRadial", out.data(), out.size());
  filter.MapPointsLinear(in.data(), out.data(), count, kCamera, kTargetCamera, kRotation);
  text.Floats("mapLinear", out.data(), out.size());
  ExpectGolden(text.text, "golden/PointKernels.golden");
}

TEST(ArchitectureGolden, YuvWarpRadial) {
  CDistortionFilter filter;
  Configure(filter);
  constexpr float kSourceCamera[9] = {90.0f, 0.0f, 47.5f, 0.0f, 89.0f, 31.75f, 0.0f, 0.0f, 1.0f};
  constexpr float kWarpTargetCamera[9] = {85.0f, 0.0f, 40.25f, 0.0f, 84.5f, 29.5f, 0.0f, 0.0f, 1.0f};
  YuvPlanes source{96, 64, std::vector<uint8_t>(96 * 64), std::vector<uint8_t>(32 * 96)};
  for (int i = 0; i < 96 * 64; ++i) source.luma[i] = static_cast<uint8_t>((i % 96 * 7 + i / 96 * 13 + i % 96 * (i / 96) % 31) & 255);
  for (size_t i = 0; i < source.chroma.size(); ++i) source.chroma[i] = static_cast<uint8_t>((i * 37 + i / 11) & 255);
  YuvPlanes target = WarpTarget(80, 60, 0);
  float zoom = 0.0f;
  filter.WarpYuvImageRadial(source.Image(), target.Image(), kSourceCamera, kWarpTargetCamera, kRotation, &zoom);
  GoldenText out;
  out.Float("zoom", zoom), out.Bytes("luma", target.luma), out.Bytes("chroma", target.chroma);
  ExpectGolden(out.text, "golden/YuvWarpRadial.golden");
}

TEST(ArchitectureGolden, HomographyRefinement) {
  GoldenText out;
  int i = 0;
  for (const auto& c : CaseRows("golden/HomographyRefinementCases.txt")) {
    const std::vector<double> limits = Numbers(c[2]);
    const HomographyRefinement refinement = RefineHomography(cv::Mat(Numbers(c[0]), true).reshape(1, 2), std::stof(c[1]),
                                                             int32_t(limits[0]), int32_t(limits[1]), int32_t(limits[2]));
    const std::string prefix = "case" + std::to_string(i++) + ".";
    out.Matrix(prefix + "correctedH", refinement.correctedH), out.Int(prefix + "constraintsMet", refinement.constraintsMet);
    out.Matrix(prefix + "refinedH", refinement.refinedH);
  }
  ExpectGolden(out.text, "golden/HomographyRefinement.golden");
}

TEST(ArchitectureGolden, EulerAngles) {
  const dualCalibration engine;
  // Small and large rotations, and two singular ones (sy below 1e-6).
  const double rotations[][9] = {
      {0.99984771, -0.01745241, 0.00174524, 0.01744975, 0.99983245, 0.00523596, -0.00183652, -0.00520461, 0.99998477},
      {0.86602540, -0.5, 0.0, 0.43301270, 0.75, -0.5, 0.25, 0.43301270, 0.86602540},
      {0.0, 0.0, 1.0, 0.0, 1.0, 0.0, -1.0, 0.0, 0.0},
      {1e-7, -0.5, 0.86602540, 2e-7, 0.86602540, 0.5, -1.0, 0.0, 1e-7},
  };
  GoldenText out;
  for (size_t i = 0; i < std::size(rotations); ++i) {
    float angles[3] = {};
    engine.rotationToEulerAngles(Matrix3x3(rotations[i]), angles[0], angles[1], angles[2]);
    for (int axis = 0; axis < 3; ++axis) out.Float("rotation" + std::to_string(i) + "." + "xyz"[axis], angles[axis]);
  }
  ExpectGolden(out.text, "golden/EulerAngles.golden");
}

TEST(ArchitectureGolden, ResidueFit) {
  dualCalibration engine;
  dualCalibration::MainCameraFilter().ResetDistortion(), dualCalibration::SecondCameraFilter().ResetDistortion();
  const double k1[9] = {1650.5, 0.0, 1001.25, 0.0, 1648.75, 751.5, 0.0, 0.0, 1.0};
  const double k2[9] = {1490.25, 0.0, 902.5, 0.0, 1489.5, 676.75, 0.0, 0.0, 1.0};
  engine.K1 = Matrix3x3(k1), engine.K2 = Matrix3x3(k2), engine.R = Matrix3x3(kRotationD);
  const int32_t sizes[4] = {2000, 1500, 1800, 1350};
  std::copy(sizes, sizes + 4, engine.chartImageSizes);
  for (int view = 0; view < 4; ++view) {
    const float shift = static_cast<float>(view) * 97.25f;
    engine.mImagePoints1.push_back(BoardCorners(300.5f + shift, 250.25f + shift * 0.5f, 83.0f));
    engine.mImagePoints2.push_back(BoardCorners(262.75f + shift * 0.9f, 231.5f + shift * 0.45f, 74.5f));
  }
  testing::internal::CaptureStdout();
  engine.computeResidue();
  GoldenText out;
  out.text = "stdout: " + testing::internal::GetCapturedStdout() + "\n";
  out.Float("m_residueScale", engine.m_residueScale), out.Float("m_residueOffsetY", engine.m_residueOffsetY);
  out.Matrix("mResidueMatrix", engine.mResidueMatrix);
  ExpectGolden(out.text, "golden/ResidueFit.golden");
}

// One pair pins OpenCV's steps as the library sets them up: ORB's FAST threshold and pyramid, the H_OTP warp's
// interpolation and border fill (half of the aligned image's last column), RANSAC's iteration limit. Low contrast
// keeps the keypoint counts below ORB's caps; permuted 7 x 7 tiles and a half-pixel H_OTP make most matches outliers
// to any one similarity, so RANSAC runs to its limit.
TEST(ArchitectureGolden, FeaturePair) {
  cv::Mat scene, second;
  RenderTexturedScene(cv::Size(1000, 1000), 7).convertTo(scene, CV_8U, 0.1875, 112.0);
  scene.copyTo(second);
  for (int i = 0; i < 49; ++i) {
    const int j = (i * 2 + 7) % 49;
    scene(cv::Rect(i % 7 * 140, i / 7 * 140, 140, 140)).copyTo(second(cv::Rect(j % 7 * 140, j / 7 * 140, 140, 140)));
  }
  auto engine = std::make_unique<dualCalibration>();
  SetRecordHOtp(engine->mCallerRecord, RecordHomography{1, 0, 0.5f, 0, 1, 0.5f, 0, 0, 1});
  FeaturePointReport report;
  report.keepMatchesImage = true;
  testing::internal::CaptureStdout(), testing::internal::CaptureStderr();
  const int rv = engine->calibrationDetectPoint(scene.data, second.data, 1000, 1000, 1000, 1000, &report);
  testing::internal::GetCapturedStderr(), testing::internal::GetCapturedStdout();
  ASSERT_EQ(report.estimate.size(), cv::Size(3, 2));
  GoldenText out;
  out.Int("rv", rv), out.Int("keypoints1", report.keypoints1), out.Int("keypoints2", report.keypoints2);
  out.Int("goodMatches", report.goodMatches), out.Int("lastColumn", cv::sum(report.matchesImage.col(1999))[0]);
  for (int i = 0; i < 6; ++i) {
    const std::string index = "(" + std::to_string(i / 3) + "," + std::to_string(i % 3) + ")";
    out.Int("estimate" + index + "x100", std::lround(report.estimate.at<double>(i / 3, i % 3) * 100.0));
  }
  ExpectGolden(out.text, "golden/FeaturePair.golden");
}
