#include "distortion/CDistortionFilter.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <opencv2/calib3d.hpp>

#include "tests/support/TestFiles.h"

namespace {

// OpenCV's worker threads stall under qemu-aarch64, where this suite also
// runs, so the OpenCV oracles run sequentially.
[[maybe_unused]] const bool kSequentialOpenCv = (cv::setNumThreads(0), true);

constexpr float kSentinel = -777.0f;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// A synthetic camera: 2000 x 1500 pixels with a barrel radial model.
constexpr int kWidth = 2000;
constexpr int kHeight = 1500;
constexpr float kCamera[9] = {1600.0f, 0.0f, 1003.5f, 0.0f, 1590.0f, 748.25f, 0.0f, 0.0f, 1.0f};
constexpr float kTargetCamera[9] = {1500.0f, 0.0f, 1010.0f, 0.0f, 1495.0f, 740.0f, 0.0f, 0.0f, 1.0f};
// Radial models k1, k2, k3: pincushion (the table covers every distorted
// radius of the image) and barrel (the image corners lie past the table,
// which reaches 1.023 times the corner radius in undistorted units).
struct RadialModel {
  double k1, k2, k3;
};
constexpr RadialModel kPincushion = {0.08, 0.02, -0.005};
constexpr RadialModel kBarrel = {-0.12, 0.05, -0.01};

std::unique_ptr<CDistortionFilter> FilterWithTable(const std::string& table, const std::string& name) {
  TempDir dir;
  WriteFile(dir.File(name), table);
  auto filter = std::make_unique<CDistortionFilter>();
  EXPECT_EQ(filter->LoadDistortionTable(dir.File(name).c_str()), 1);
  return filter;
}

void FillRows(CDistortionFilter& filter, float value) {
  for (auto& row : filter.polynomialRows) {
    for (float& slot : row) slot = value;
  }
  for (float& key : filter.rowKeys) key = value;
  filter.referenceRadius = value;
}

std::unique_ptr<CDistortionFilter> RadialFilter(const RadialModel& model) {
  auto filter = std::make_unique<CDistortionFilter>();
  filter->radialCoefficients[0] = static_cast<float>(model.k1);
  filter->radialCoefficients[1] = static_cast<float>(model.k2);
  filter->radialCoefficients[2] = static_cast<float>(model.k3);
  return filter;
}

cv::Matx33d CameraOf(const float camera[9]) {
  return cv::Matx33d(camera[0], camera[1], camera[2], camera[3], camera[4], camera[5], camera[6],
                     camera[7], camera[8]);
}

// Distortion row for OpenCV: k1, k2, p1, p2, k3.
cv::Mat RadialRow(const RadialModel& model) {
  return (cv::Mat_<double>(1, 5) << model.k1, model.k2, 0.0, 0.0, model.k3);
}

// A grid of pixel positions covering the whole image, corners included.
std::vector<cv::Point2f> ImageGrid(int width, int height, int steps) {
  std::vector<cv::Point2f> points;
  for (int j = 0; j <= steps; ++j) {
    for (int i = 0; i <= steps; ++i) {
      points.emplace_back(static_cast<float>(width - 1) * i / steps, static_cast<float>(height - 1) * j / steps);
    }
  }
  return points;
}

float* Floats(std::vector<cv::Point2f>& points) { return &points[0].x; }

double MaxDistance(const std::vector<cv::Point2f>& a, const std::vector<cv::Point2f>& b) {
  double worst = 0.0;
  for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, cv::norm(a[i] - b[i]));
  return worst;
}

// The rectifying rotation used by the mapping tests, row major.
std::array<float, 9> TestRotation() {
  cv::Matx33d rotation;
  cv::Rodrigues(cv::Vec3d(0.02, -0.03, 0.01), rotation);
  std::array<float, 9> out{};
  for (int i = 0; i < 9; ++i) out[i] = static_cast<float>(rotation.val[i]);
  return out;
}

// OpenCV's own mapping: undistort with the source camera, apply the given
// rotation (which is the transpose of the filter's), project with the target.
std::vector<cv::Point2f> OpenCvMap(const std::vector<cv::Point2f>& points, const cv::Mat& distortion,
                                   const std::array<float, 9>& filterRotation) {
  cv::Matx33d transposed;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) transposed(r, c) = filterRotation[c * 3 + r];
  }
  std::vector<cv::Point2f> mapped;
  cv::undistortPoints(points, mapped, CameraOf(kCamera), distortion, transposed,
                          CameraOf(kTargetCamera),
                          cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 200, 1e-12));
  return mapped;
}

// OpenCV's iterative undistortion, run to convergence, checked by projecting
// its answer back onto the input.
std::vector<cv::Point2f> OpenCvUndistort(const std::vector<cv::Point2f>& distorted, const RadialModel& model) {
  std::vector<cv::Point2f> undistorted;
  cv::undistortPoints(distorted, undistorted, CameraOf(kCamera), RadialRow(model), cv::noArray(), CameraOf(kCamera),
                      cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 200, 1e-12));
  std::vector<cv::Point3f> rays;
  for (const cv::Point2f& p : undistorted) {
    rays.emplace_back((p.x - kCamera[2]) / kCamera[0], (p.y - kCamera[5]) / kCamera[4], 1.0f);
  }
  std::vector<cv::Point2f> reprojected;
  cv::projectPoints(rays, cv::Vec3d(), cv::Vec3d(), CameraOf(kCamera), RadialRow(model), reprojected);
  EXPECT_LT(MaxDistance(reprojected, distorted), 1e-3);
  return undistorted;
}

// The points whose normalised distorted radius the filter's radial table covers.
std::vector<cv::Point2f> WithinTable(const CDistortionFilter& filter, const std::vector<cv::Point2f>& points) {
  CurveTable radius, scale;
  filter.BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
  std::vector<cv::Point2f> inside;
  for (const cv::Point2f& p : points) {
    if (std::hypot((p.x - kCamera[2]) / kCamera[0], (p.y - kCamera[5]) / kCamera[4]) <= radius[kCurveSize - 1]) {
      inside.push_back(p);
    }
  }
  EXPECT_GT(inside.size(), points.size() / 2);
  return inside;
}

// Accuracy bound of the table-based radial inverse against OpenCV, in pixels.
constexpr double kRadialOracleTolerancePx = 0.05;
// Float rounding of mapped coordinates of a few thousand pixels.
constexpr double kFloatMapTolerancePx = 5e-3;

}  // namespace

TEST(CDistortionFilter, ConstructorDefaultsAndStorageRule) {
  auto filter = std::make_unique<CDistortionFilter>();
  EXPECT_STREQ(filter->mName, "CDistortionFilter");
  for (const float* transform : {filter->forwardTransform, filter->sourceTransform}) {
    EXPECT_EQ(transform[0], 0.0f);
    EXPECT_EQ(transform[1], 0.0f);
    EXPECT_EQ(transform[2], 1.0f);
  }
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) EXPECT_EQ(filter->cameraMatrix[r][c], r == c ? 1.0f : 0.0f);
  }
  for (int k = 0; k < 10; ++k) {
    EXPECT_EQ(filter->polynomialRows[0][k], 0.0f);
    EXPECT_EQ(filter->radialRows[0][k], 0.0f);
  }
  EXPECT_EQ(filter->currentPolynomial, &filter->polynomialRows[1][0]);
  EXPECT_EQ(filter->radialCoefficients, &filter->radialRows[1][0]);
}

TEST(CDistortionFilter, ResetKeepsTableAndCurrentSets) {
  auto filter = std::make_unique<CDistortionFilter>();
  FillRows(*filter, 3.0f);
  filter->rowCount = 5;
  filter->radialRows[0][2] = 4.0f;
  filter->radialCoefficients[0] = 6.0f;
  filter->forwardTransform[0] = 9.0f;
  filter->sourceTransform[2] = 2.0f;
  filter->cameraMatrix[0][1] = 8.0f;
  EXPECT_EQ(filter->ResetDistortion(), 1);
  EXPECT_EQ(filter->forwardTransform[0], 0.0f);
  EXPECT_EQ(filter->sourceTransform[2], 1.0f);
  EXPECT_EQ(filter->cameraMatrix[0][1], 0.0f);
  EXPECT_EQ(filter->polynomialRows[0][9], 0.0f);
  EXPECT_EQ(filter->radialRows[0][2], 0.0f);
  EXPECT_EQ(filter->currentPolynomial[0], 3.0f);
  EXPECT_EQ(filter->radialCoefficients[0], 6.0f);
  EXPECT_EQ(filter->rowKeys[6], 3.0f);
  EXPECT_EQ(filter->referenceRadius, 3.0f);
  EXPECT_EQ(filter->rowCount, 5);
}

TEST(CDistortionFilter, HandWrittenTableGivesRowsKeysAndReferenceRadius) {
  auto filter = FilterWithTable(
      "3 3\n"
      "9 5 9 1 2 3 9\n"
      "8 6 8 4 5 6 8\n"
      "7 7.5 7 0.5 0.25\n0.125 7\n",
      "three_rows.txt");
  EXPECT_EQ(filter->rowCount, 3);
  EXPECT_EQ(filter->coefficientCount, 3);
  EXPECT_EQ(filter->rowKeys[0], 5.0f);
  EXPECT_EQ(filter->rowKeys[1], 6.0f);
  EXPECT_EQ(filter->rowKeys[2], 7.5f);
  const float expectedRows[3][4] = {{3, 2, 1, 0}, {6, 5, 4, 0}, {0.125f, 0.25f, 0.5f, 0}};
  for (int r = 0; r < 3; ++r) {
    for (int k = 0; k < 4; ++k) EXPECT_EQ(filter->polynomialRows[r][k], expectedRows[r][k]) << r << "," << k;
  }
  EXPECT_EQ(filter->referenceRadius, 7.5f);
  EXPECT_EQ(filter->currentPolynomial[0], 6.0f);
  EXPECT_EQ(filter->currentPolynomial[2], 4.0f);
}

TEST(CDistortionFilter, ReferenceRadiusFollowsRowCount) {
  struct Case {
    const char* table;
    float expectedRadius;
  };
  const Case cases[] = {
      {"1 3\n9 5 9 1 2 3 9\n", 5.0f},                  // one row: its own key
      {"2 1\n0 11 0 1 0\n0 12 0 2 0\n", kSentinel},    // two rows: key slot 2, not filled
      {"3 1\n0 11 0 1 0\n0 12 0 2 0\n0 13 0 3 0\n", 13.0f},
      {"0 4\n", kSentinel},                            // no rows: key slot 0 as it was
      {"-3 4\n0 11 0 1 0\n", kSentinel},
  };
  TempDir dir;
  for (const Case& c : cases) {
    auto filter = std::make_unique<CDistortionFilter>();
    FillRows(*filter, kSentinel);
    WriteFile(dir.File("table.txt"), c.table);
    EXPECT_EQ(filter->LoadDistortionTable(dir.File("table.txt").c_str()), 1);
    EXPECT_EQ(filter->referenceRadius, c.expectedRadius) << c.table;
  }
}

TEST(CDistortionFilter, MissingTableChangesNothing) {
  TempDir dir;
  auto filter = std::make_unique<CDistortionFilter>();
  FillRows(*filter, kSentinel);
  filter->rowCount = 4;
  EXPECT_EQ(filter->LoadDistortionTable(dir.File("absent.txt").c_str()), 0);
  EXPECT_EQ(filter->LoadDistortionTable(nullptr), 0);
  EXPECT_EQ(filter->rowCount, 4);
  EXPECT_EQ(filter->referenceRadius, kSentinel);
  EXPECT_EQ(filter->polynomialRows[0][0], kSentinel);
}

TEST(CDistortionFilter, MalformedTablesKeepWhatWasNotRead) {
  TempDir dir;
  // Truncated inside row 0: slots 2 and 1 are read, slot 0 and the rest stay.
  {
    WriteFile(dir.File("t.txt"), "2 3\n0 10 0 1 2");
    auto filter = std::make_unique<CDistortionFilter>();
    FillRows(*filter, kSentinel);
    ASSERT_EQ(filter->LoadDistortionTable(dir.File("t.txt").c_str()), 1);
    EXPECT_EQ(filter->rowCount, 2);
    EXPECT_EQ(filter->rowKeys[0], 10.0f);
    EXPECT_EQ(filter->polynomialRows[0][2], 1.0f);
    EXPECT_EQ(filter->polynomialRows[0][1], 2.0f);
    EXPECT_EQ(filter->polynomialRows[0][0], kSentinel);
    EXPECT_EQ(filter->rowKeys[1], kSentinel);
    EXPECT_EQ(filter->referenceRadius, kSentinel);
  }
  // Not a number at all: the counts keep their values too.
  {
    WriteFile(dir.File("t.txt"), "rows 3\n");
    auto filter = std::make_unique<CDistortionFilter>();
    FillRows(*filter, kSentinel);
    filter->rowCount = 1;
    filter->coefficientCount = 2;
    ASSERT_EQ(filter->LoadDistortionTable(dir.File("t.txt").c_str()), 1);
    EXPECT_EQ(filter->rowCount, 1);
    EXPECT_EQ(filter->coefficientCount, 2);
    EXPECT_EQ(filter->polynomialRows[0][0], kSentinel);
    EXPECT_EQ(filter->referenceRadius, kSentinel);
  }
  // A word inside a row stops the reading there.
  {
    WriteFile(dir.File("t.txt"), "1 3\n0 4 0 7 x 5 0\n");
    auto filter = std::make_unique<CDistortionFilter>();
    FillRows(*filter, kSentinel);
    ASSERT_EQ(filter->LoadDistortionTable(dir.File("t.txt").c_str()), 1);
    EXPECT_EQ(filter->polynomialRows[0][2], 7.0f);
    EXPECT_EQ(filter->polynomialRows[0][1], kSentinel);
    EXPECT_EQ(filter->polynomialRows[0][0], kSentinel);
    EXPECT_EQ(filter->referenceRadius, 4.0f);
  }
}

TEST(CDistortionFilter, OversizedCountsAreReadAndDiscarded) {
  TempDir dir;
  // Nine rows of two coefficients: rows 7 and 8 are read past and dropped.
  std::string nineRows = "9 2\n";
  for (int r = 0; r < 9; ++r) {
    nineRows += "0 " + std::to_string(100 + r) + " 0 " + std::to_string(r) + " " + std::to_string(10 * r) + " 0\n";
  }
  auto filter = FilterWithTable(nineRows, "nine.txt");
  EXPECT_EQ(filter->rowCount, 9);
  for (int r = 0; r < 7; ++r) {
    EXPECT_EQ(filter->rowKeys[r], 100.0f + r);
    EXPECT_EQ(filter->polynomialRows[r][1], static_cast<float>(r));
    EXPECT_EQ(filter->polynomialRows[r][0], 10.0f * r);
  }
  EXPECT_EQ(filter->referenceRadius, 102.0f);

  // Twelve coefficients: the first two read (slots 11 and 10) are dropped.
  filter = FilterWithTable("1 12\n0 50 0 1 2 3 4 5 6 7 8 9 10 11 12 0\n", "twelve.txt");
  for (int k = 0; k < 10; ++k) EXPECT_EQ(filter->polynomialRows[0][k], 12.0f - k);
  EXPECT_EQ(filter->rowKeys[0], 50.0f);
  EXPECT_EQ(filter->polynomialRows[1][0], 0.0f);

  // A negative coefficient count reads four numbers per row.
  filter = FilterWithTable("2 -4\n0 21 0 0\n0 22 0 0\n", "negative.txt");
  EXPECT_EQ(filter->rowKeys[0], 21.0f);
  EXPECT_EQ(filter->rowKeys[1], 22.0f);
}

// Counts near the integer limit on short files: reading stops where the file
// does, with what it held stored.
TEST(CDistortionFilter, HugeCountsOnShortFiles) {
  struct Case {
    const char* table;
    int32_t rows;
    float key0;
  };
  const Case cases[] = {
      {"2147483647 2147483647\n0 1 0 2\n", 2147483647, 1.0f},
      {"2000000000 3 0 2 x", 2000000000, 2.0f},
      {"5 2000000000 0 3 0 -", 5, 3.0f},
      {"2147483647 1\n", 2147483647, kSentinel},
      {"1 2147483647 0 4 0 .", 1, 4.0f},
  };
  TempDir dir;
  for (const Case& c : cases) {
    WriteFile(dir.File("huge.txt"), c.table);
    auto filter = std::make_unique<CDistortionFilter>();
    FillRows(*filter, kSentinel);
    ASSERT_EQ(filter->LoadDistortionTable(dir.File("huge.txt").c_str()), 1);
    EXPECT_EQ(filter->rowCount, c.rows) << c.table;
    EXPECT_EQ(filter->rowKeys[0], c.key0) << c.table;
  }
}

TEST(CDistortionFilter, InterpolateCurveBoundaries) {
  CurveTable xs{}, ys{};
  for (int i = 0; i < kCurveSize; ++i) {
    xs[i] = 2.0f * i + 1.0f;
    ys[i] = 4.0f * i;
  }
  struct Case {
    float x;
    float expected;
  };
  const Case cases[] = {
      {-5.0f, 0.0f},            // below the table: ys[0]
      {1.0f, 0.0f},             // first node
      {11.0f, 20.0f},           // exactly xs[5]: ys[5]
      {12.0f, 22.0f},           // halfway between nodes 5 and 6
      {2047.0f, 4092.0f},       // last node
      {5000.0f, 4092.0f},       // above the table: ys[1023]
      {kNaN, 0.0f},             // nothing brackets a NaN: ys[0]
  };
  for (const Case& c : cases) EXPECT_EQ(CDistortionFilter::InterpolateCurve(xs, ys, c.x), c.expected) << c.x;
}

TEST(CDistortionFilter, NodeValueComesFromTheIntervalEndingThere) {
  CurveTable xs{}, ys{};
  for (int i = 0; i < kCurveSize; ++i) {
    xs[i] = static_cast<float>(i);
    ys[i] = 1.0f;
  }
  // Nodes 5 and 6 share the abscissa 5 with other values: the first
  // bracketing interval, 4, ends at node 5 and gives ys[5].
  xs[6] = 5.0f;
  ys[6] = 9.0f;
  EXPECT_EQ(CDistortionFilter::InterpolateCurve(xs, ys, 5.0f), 1.0f);
}

TEST(CDistortionFilter, ReciprocalLookupRunsOneIntervalFurther) {
  CurveTable xs{}, ys{};
  for (int i = 0; i < kCurveSize; ++i) {
    xs[i] = static_cast<float>(i);
    ys[i] = 2.0f;
  }
  EXPECT_EQ(CDistortionFilter::InterpolateCurveReciprocal(xs, ys, 17.25f), 0.5f);
  // With a NaN in the last regular interval only the slack interval brackets 1023.
  xs[1022] = kNaN;
  ys[0] = 8.0f;
  ys[1023] = 4.0f;
  EXPECT_EQ(CDistortionFilter::InterpolateCurve(xs, ys, 1023.0f), 8.0f);
  EXPECT_EQ(CDistortionFilter::InterpolateCurveReciprocal(xs, ys, 1023.0f), 0.25f);
  EXPECT_EQ(CDistortionFilter::InterpolateCurveReciprocal(xs, ys, kNaN), 0.125f);
}

TEST(CDistortionFilter, RadialCurveMatchesTheModel) {
  for (const bool distorted : {false, true}) {
    auto filter = distorted ? RadialFilter(kBarrel) : std::make_unique<CDistortionFilter>();
    CurveTable radius, scale;
    radius[kCurveSize] = scale[kCurveSize] = kSentinel;
    filter->BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
    const double dx = std::max<double>(kCamera[2], kWidth - kCamera[2]);
    const double dy = std::max<double>(kCamera[5], kHeight - kCamera[5]);
    const double step = std::hypot(dx, dy) / (1000.0 * kCamera[0]);
    for (int i = 0; i < kCurveSize; ++i) {
      const double r = step * i;
      const double f =
          distorted ? 1.0 + kBarrel.k1 * r * r + kBarrel.k2 * std::pow(r, 4) + kBarrel.k3 * std::pow(r, 6) : 1.0;
      EXPECT_NEAR(scale[i], f, 1e-6) << i;
      EXPECT_NEAR(radius[i], f * r, 1e-6) << i;
    }
    EXPECT_EQ(scale[0], 1.0f);
    EXPECT_EQ(scale[kCurveSize], 0.0f);
    EXPECT_EQ(radius[kCurveSize], 0.0f);
    // The table reaches 1.023 times the corner radius.
    EXPECT_NEAR(radius[kCurveSize - 1] / scale[kCurveSize - 1], 1.023 * std::hypot(dx, dy) / kCamera[0], 1e-6);
  }
}

TEST(CDistortionFilter, PolynomialCurveMatchesTheModel) {
  auto filter = std::make_unique<CDistortionFilter>();
  CurveTable radius, scale;
  filter->coefficientCount = 0;
  filter->BuildCurveFromPolynomial(radius, scale, 4000.0f, 3000.0f);
  for (int i = 0; i < kCurveSize; ++i) {
    EXPECT_EQ(scale[i], 1.0f);
    EXPECT_FLOAT_EQ(radius[i], 2500.0f * i / 1024.0f);
  }
  filter->coefficientCount = 3;
  filter->referenceRadius = 2000.0f;
  const double c[3] = {0.01, -0.02, 0.005};
  for (int j = 0; j < 3; ++j) filter->currentPolynomial[j] = static_cast<float>(c[j]);
  filter->BuildCurveFromPolynomial(radius, scale, 4000.0f, 3000.0f);
  for (int i = 0; i < kCurveSize; ++i) {
    const double r = 2500.0 * i / 1024.0;
    const double t = r / 2000.0;
    const double s = 1.0 + c[0] * t + c[1] * t * t + c[2] * t * t * t;
    EXPECT_NEAR(scale[i], s, 1e-6);
    EXPECT_NEAR(radius[i], r / s, 1e-3);
  }
}

TEST(CDistortionFilter, BlendingRows) {
  auto filter = std::make_unique<CDistortionFilter>();
  for (int r = 0; r < kDistortionRowCapacity; ++r) {
    for (int k = 0; k < 10; ++k) {
      filter->polynomialRows[r][k] = 10.0f * r + k;
      filter->radialRows[r][k] = -10.0f * r - k;
    }
  }
  filter->BlendPolynomialRows(0, 0, 0.3f);
  for (int k = 0; k < 10; ++k) EXPECT_FLOAT_EQ(filter->currentPolynomial[k], static_cast<float>(k));
  filter->BlendPolynomialRows(2, 4, 0.25f);
  for (int k = 0; k < 10; ++k) EXPECT_EQ(filter->currentPolynomial[k], 0.25f * (20 + k) + 0.75f * (40 + k));
  filter->BlendRadialRows(3, 5, 0.5f);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(filter->radialCoefficients[k], -40.0f - k);
  EXPECT_EQ(filter->radialRows[1][3], -13.0f);
  // Row indices beyond the capacity leave the current sets alone.
  filter->BlendPolynomialRows(7, 0, 0.5f);
  filter->BlendRadialRows(0, -1, 0.5f);
  EXPECT_EQ(filter->currentPolynomial[0], 35.0f);
  EXPECT_EQ(filter->radialCoefficients[0], -40.0f);
}

TEST(CDistortionFilter, SourceTransformCentresTheScaledImage) {
  auto filter = std::make_unique<CDistortionFilter>();
  filter->SetSourceTransform(4000, 3000, 1000, 600, 1.0f);
  EXPECT_EQ(filter->sourceTransform[0], 1500.0f);
  EXPECT_EQ(filter->sourceTransform[1], 1200.0f);
  EXPECT_EQ(filter->sourceTransform[2], 1.0f);
  filter->SetSourceTransform(4000, 3000, 1000, 600, 0.5f);
  EXPECT_EQ(filter->sourceTransform[0], 1000.0f);
  EXPECT_EQ(filter->sourceTransform[1], 900.0f);
  EXPECT_EQ(filter->sourceTransform[2], 0.5f);
}

TEST(CDistortionFilter, GraySamplerCases) {
  // 4 x 3 plane, exactly sized so that any read past it is caught.
  std::vector<uint8_t> luma = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 121};
  YuvImage image;
  image.luma = luma.data();
  image.width = 4;
  image.height = 3;
  struct Case {
    float x, y;
    uint8_t expected;
  };
  const Case cases[] = {
      {1.0f, 1.0f, 60},      {1.5f, 0.0f, 25},     {1.5f, 0.5f, 45},  {0.25f, 0.0f, 13},
      {-3.0f, -1.0f, 10},    {3.0f, 2.0f, 121},    {9.0f, 9.0f, 121}, {3.0f, 0.5f, 60},
      {2.5f, 2.0f, 116},     {kNaN, 0.0f, 40},     {0.0f, kNaN, 90},
      {std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(), 40},
  };
  for (const Case& c : cases) {
    uint8_t out = 0;
    CDistortionFilter::SampleGrayBilinear(image, c.x, c.y, &out);
    EXPECT_EQ(out, c.expected) << c.x << "," << c.y;
  }
}

TEST(CDistortionFilter, ChromaSamplerCases) {
  // Width 5, height 5: two chroma rows of stride 4 (two pairs each).
  std::vector<uint8_t> chroma = {10, 200, 30, 100, 50, 0, 70, 255};
  YuvImage image;
  image.chroma = chroma.data();
  image.width = 5;
  image.height = 5;
  struct Case {
    float x, y;
    uint8_t u, v;
  };
  const Case cases[] = {
      {0.0f, 0.0f, 10, 200},  {2.0f, 0.0f, 30, 100}, {1.0f, 0.0f, 20, 150}, {1.0f, 1.0f, 40, 139},
      {4.0f, 4.0f, 70, 255},  {99.0f, 99.0f, 70, 255}, {-4.0f, 3.0f, 50, 0}, {kNaN, kNaN, 70, 255},
  };
  for (const Case& c : cases) {
    uint8_t out[2] = {0, 0};
    CDistortionFilter::SampleChromaBilinear(image, c.x, c.y, out);
    EXPECT_EQ(out[0], c.u) << c.x << "," << c.y;
    EXPECT_EQ(out[1], c.v) << c.x << "," << c.y;
  }
  // A plane too small to hold a chroma sample reads nothing.
  image.width = 1;
  uint8_t out[2] = {9, 9};
  CDistortionFilter::SampleChromaBilinear(image, 0.0f, 0.0f, out);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[1], 0);
}

TEST(CDistortionFilter, FocalRatio) {
  const float a[] = {2000.0f};
  const float b[] = {1500.0f};
  float out = 0.0f;
  CDistortionFilter::FocalRatio(a, b, &out, 4000.0f, 3000.0f);
  EXPECT_EQ(out, 1500.0f * 3000.0f / (2000.0f * 4000.0f));
}

TEST(CDistortionFilter, PolynomialUndistortWithoutCoefficientsKeepsPoints) {
  auto filter = std::make_unique<CDistortionFilter>();
  filter->coefficientCount = 0;
  std::vector<cv::Point2f> points = ImageGrid(kWidth, kHeight, 8);
  const std::vector<cv::Point2f> original = points;
  EXPECT_EQ(filter->UndistortPointsPolynomial(Floats(points), Floats(points), static_cast<int32_t>(points.size()),
                                              kWidth, kHeight),
            1);
  EXPECT_EQ(MaxDistance(points, original), 0.0);
  EXPECT_EQ(filter->UndistortPointsPolynomial(nullptr, nullptr, 0, kWidth, kHeight), 1);
}

TEST(CDistortionFilter, PolynomialUndistortTakesOffsetAfterScale) {
  auto filter = std::make_unique<CDistortionFilter>();
  filter->coefficientCount = 0;
  filter->forwardTransform[0] = 10.0f;
  filter->forwardTransform[1] = 20.0f;
  filter->forwardTransform[2] = 2.0f;
  const float in[2] = {100.0f, 100.0f};
  float out[2] = {0.0f, 0.0f};
  ASSERT_EQ(filter->UndistortPointsPolynomial(in, out, 1, 1001, 999), 1);
  EXPECT_EQ(out[0], 95.0f);
  EXPECT_EQ(out[1], 90.0f);
}

TEST(CDistortionFilter, PolynomialUndistortStopsAtTheFirstPointOutsideTheBand) {
  auto filter = std::make_unique<CDistortionFilter>();
  filter->coefficientCount = 1;
  filter->currentPolynomial[0] = 0.06f;
  filter->referenceRadius = 100.0f;
  // Centre (500, 400); radii 50 (factor 1.03), 100 (1.06) and 10.
  const float in[6] = {550.0f, 400.0f, 500.0f, 500.0f, 490.0f, 400.0f};
  float out[6] = {kSentinel, kSentinel, kSentinel, kSentinel, kSentinel, kSentinel};
  EXPECT_EQ(filter->UndistortPointsPolynomial(in, out, 3, 1000, 800), 0);
  EXPECT_FLOAT_EQ(out[0], 500.0f + 50.0f / 1.03f);
  EXPECT_EQ(out[1], 400.0f);
  for (int i = 2; i < 6; ++i) EXPECT_EQ(out[i], kSentinel);
  // The band is fixed: factors down to 0.96 pass.
  filter->currentPolynomial[0] = -0.04f;
  EXPECT_EQ(filter->UndistortPointsPolynomial(in, out, 3, 1000, 800), 1);
  EXPECT_FLOAT_EQ(out[2], 500.0f);
  EXPECT_FLOAT_EQ(out[3], 400.0f + 100.0f / 0.96f);
}

// Distorting and then undistorting divides twice by the factor, each time at
// the radius the step sees; checked against the same model in double.
TEST(CDistortionFilter, PolynomialDistortThenUndistortFollowsTheModel) {
  auto filter = std::make_unique<CDistortionFilter>();
  const double c[4] = {0.012, -0.008, 0.004, -0.001};
  filter->coefficientCount = 4;
  filter->referenceRadius = 1250.0f;
  for (int j = 0; j < 4; ++j) filter->currentPolynomial[j] = static_cast<float>(c[j]);
  const auto factor = [&](double r) {
    double s = 1.0, power = 1.0;
    for (double coefficient : c) {
      power *= r / 1250.0;
      s += coefficient * power;
    }
    return s;
  };
  const float camera[9] = {1600.0f, 0.0f, kWidth * 0.5f, 0.0f, 1600.0f, kHeight * 0.5f, 0.0f, 0.0f, 1.0f};
  std::vector<cv::Point2f> points = ImageGrid(kWidth, kHeight, 20);
  const std::vector<cv::Point2f> original = points;
  filter->DistortPointsPolynomial(Floats(points), Floats(points), static_cast<int32_t>(points.size()), kWidth,
                                  kHeight, camera);
  ASSERT_EQ(filter->UndistortPointsPolynomial(Floats(points), Floats(points), static_cast<int32_t>(points.size()),
                                              kWidth, kHeight),
            1);
  double worst = 0.0;
  for (size_t i = 0; i < points.size(); ++i) {
    const cv::Point2d q(original[i].x - kWidth * 0.5, original[i].y - kHeight * 0.5);
    const cv::Point2d distorted = q / factor(cv::norm(q));
    const cv::Point2d expected = distorted / factor(cv::norm(distorted)) + cv::Point2d(kWidth * 0.5, kHeight * 0.5);
    worst = std::max(worst, cv::norm(cv::Point2d(points[i]) - expected));
  }
  EXPECT_LT(worst, 0.01);
}

TEST(CDistortionFilter, RadialUndistortWithoutDistortionKeepsPoints) {
  auto filter = std::make_unique<CDistortionFilter>();
  std::vector<cv::Point2f> points = ImageGrid(kWidth, kHeight, 16);
  const std::vector<cv::Point2f> original = points;
  filter->UndistortPointsRadial(Floats(points), Floats(points), static_cast<int32_t>(points.size()), kWidth,
                                kHeight, kCamera);
  EXPECT_LT(MaxDistance(points, original), 1e-3);
}

TEST(CDistortionFilter, RadialUndistortAgreesWithOpenCv) {
  for (const RadialModel& model : {kPincushion, kBarrel}) {
    auto filter = RadialFilter(model);
    std::vector<cv::Point2f> distorted = ImageGrid(kWidth, kHeight, 40);
    if (model.k1 < 0.0) distorted = WithinTable(*filter, distorted);
    const std::vector<cv::Point2f> expected = OpenCvUndistort(distorted, model);
    std::vector<cv::Point2f> points = distorted;
    filter->UndistortPointsRadial(Floats(points), Floats(points), static_cast<int32_t>(points.size()), kWidth,
                                  kHeight, kCamera);
    const double worst = MaxDistance(points, expected);
    EXPECT_LT(worst, kRadialOracleTolerancePx) << model.k1;
    RecordProperty(model.k1 > 0 ? "pincushion_max_error_px" : "barrel_max_error_px", std::to_string(worst));
  }
}

// Past the table's last radius the factor stays at the last sample.
TEST(CDistortionFilter, RadialUndistortHoldsTheLastFactorPastTheTable) {
  auto filter = RadialFilter(kBarrel);
  CurveTable radius, scale;
  filter->BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
  float corner[2] = {0.0f, 0.0f};
  const double u = -kCamera[2] / kCamera[0], v = -kCamera[5] / kCamera[4];
  ASSERT_GT(std::hypot(u, v), radius[kCurveSize - 1]);
  filter->UndistortPointsRadial(corner, corner, 1, kWidth, kHeight, kCamera);
  EXPECT_NEAR(corner[0], kCamera[2] + kCamera[0] * u / scale[kCurveSize - 1], 1e-3);
  EXPECT_NEAR(corner[1], kCamera[5] + kCamera[4] * v / scale[kCurveSize - 1], 1e-3);
}

TEST(CDistortionFilter, RadialMapAgreesWithOpenCv) {
  const std::array<float, 9> rotation = TestRotation();
  for (const RadialModel& model : {kPincushion, kBarrel}) {
    auto filter = RadialFilter(model);
    CurveTable radius, scale;
    filter->BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
    std::vector<cv::Point2f> distorted = ImageGrid(kWidth, kHeight, 40);
    if (model.k1 < 0.0) distorted = WithinTable(*filter, distorted);
    const std::vector<cv::Point2f> expected = OpenCvMap(distorted, RadialRow(model), rotation);
    std::vector<cv::Point2f> points = distorted;
    filter->MapPointsRadial(Floats(points), Floats(points), static_cast<int32_t>(points.size()), kCamera,
                            kTargetCamera, rotation.data(), radius, scale);
    const double worst = MaxDistance(points, expected);
    EXPECT_LT(worst, kRadialOracleTolerancePx) << model.k1;
    RecordProperty(model.k1 > 0 ? "pincushion_max_error_px" : "barrel_max_error_px", std::to_string(worst));
  }
}

TEST(CDistortionFilter, LinearMapAgreesWithOpenCvAndTakesTransforms) {
  auto filter = RadialFilter(kBarrel);  // the radial set must not matter
  const std::array<float, 9> rotation = TestRotation();
  const std::vector<cv::Point2f> in = ImageGrid(kWidth, kHeight, 20);
  const std::vector<cv::Point2f> expected = OpenCvMap(in, cv::Mat::zeros(1, 5, CV_64F), rotation);
  std::vector<cv::Point2f> out(in.size());
  filter->MapPointsLinear(&in[0].x, Floats(out), static_cast<int32_t>(in.size()), kCamera, kTargetCamera,
                          rotation.data());
  EXPECT_LT(MaxDistance(out, expected), kFloatMapTolerancePx);

  // Forward transform applies before, source transform after the mapping.
  filter->forwardTransform[0] = 8.0f;
  filter->forwardTransform[1] = -6.0f;
  filter->forwardTransform[2] = 2.0f;
  filter->sourceTransform[0] = 100.0f;
  filter->sourceTransform[1] = 50.0f;
  filter->sourceTransform[2] = 4.0f;
  std::vector<cv::Point2f> moved(in.size());
  for (size_t i = 0; i < in.size(); ++i) moved[i] = cv::Point2f(in[i].x * 2.0f + 8.0f, in[i].y * 2.0f - 6.0f);
  const std::vector<cv::Point2f> movedExpected = OpenCvMap(moved, cv::Mat::zeros(1, 5, CV_64F), rotation);
  filter->MapPointsLinear(&in[0].x, Floats(out), static_cast<int32_t>(in.size()), kCamera, kTargetCamera,
                          rotation.data());
  double worst = 0.0;
  for (size_t i = 0; i < in.size(); ++i) {
    const cv::Point2f placed(movedExpected[i].x / 4.0f - 100.0f, movedExpected[i].y / 4.0f - 50.0f);
    worst = std::max(worst, cv::norm(out[i] - placed));
  }
  EXPECT_LT(worst, kFloatMapTolerancePx);
}

TEST(CDistortionFilter, MappingsWithIdentityKeepPoints) {
  auto filter = std::make_unique<CDistortionFilter>();
  const float identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  CurveTable radius, scale;
  filter->BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
  std::vector<cv::Point2f> points = ImageGrid(kWidth, kHeight, 10);
  const std::vector<cv::Point2f> original = points;
  const int32_t count = static_cast<int32_t>(points.size());
  filter->MapPointsLinear(Floats(points), Floats(points), count, kCamera, kCamera, identity);
  EXPECT_LT(MaxDistance(points, original), 1e-3);
  filter->MapPointsRadial(Floats(points), Floats(points), count, kCamera, kCamera, identity, radius, scale);
  EXPECT_LT(MaxDistance(points, original), 1e-3);
}

// The lookups against the plain scalar search written out here, on random
// tables with repeated, unordered, infinite and NaN entries.
TEST(CDistortionFilter, LookupsMatchThePlainSearch) {
  const auto plain = [](const CurveTable& xs, const CurveTable& ys, float x, int intervals) {
    if (xs[0] > x) x = xs[0];
    if (x > xs[1023]) x = xs[1023];
    for (int k = 0; k < intervals; ++k) {
      if ((x - xs[k]) * (x - xs[k + 1]) <= 0.0f) return ys[k] + (x - xs[k]) / (xs[k + 1] - xs[k]) * (ys[k + 1] - ys[k]);
    }
    return ys[0];
  };
  std::mt19937 random(99);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  std::uniform_int_distribution<int> index(0, kCurveSize);
  const float specials[] = {kNaN, std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(), 0.0f};
  for (int trial = 0; trial < 400; ++trial) {
    CurveTable xs{}, ys{};
    const bool ascending = trial % 2 == 0;
    for (int i = 0; i <= kCurveSize; ++i) {
      xs[i] = ascending ? i * 0.002f + (trial % 4 == 0 ? 0.0f : value(random) * 1e-3f) : value(random);
      ys[i] = value(random);
    }
    for (int n = 0; n < trial % 5; ++n) xs[index(random)] = specials[n % 4];
    for (int n = 0; n < trial % 3; ++n) xs[index(random)] = xs[index(random)];
    for (int query = 0; query < 20; ++query) {
      const float x = query == 0 ? kNaN : (ascending ? value(random) + 1.0f : value(random));
      const float a = CDistortionFilter::InterpolateCurve(xs, ys, x);
      const float b = plain(xs, ys, x, 1023);
      ASSERT_EQ(std::memcmp(&a, &b, sizeof(float)), 0) << trial << " " << x;
      const float c = CDistortionFilter::InterpolateCurveReciprocal(xs, ys, x);
      const float d = 1.0f / plain(xs, ys, x, 1024);
      ASSERT_EQ(std::memcmp(&c, &d, sizeof(float)), 0) << trial << " " << x;
    }
  }
}

// The curves and point kernels' bits pinned for fixed inputs, so that a build
// on another architecture (AArch64 under qemu) shows any difference in rounding.
TEST(CDistortionFilter, SameBitsOnEveryPlatform) {
  auto filter = RadialFilter(kBarrel);
  filter->coefficientCount = 4;
  filter->referenceRadius = 1234.5f;
  const float polynomial[4] = {0.011f, -0.0071f, 0.0033f, -0.0009f};
  for (int j = 0; j < 4; ++j) filter->currentPolynomial[j] = polynomial[j];
  filter->forwardTransform[0] = 3.25f;
  filter->forwardTransform[1] = -1.5f;
  filter->forwardTransform[2] = 1.05f;
  filter->SetSourceTransform(2000, 1500, 1900, 1400, 0.95f);
  CurveTable radius, scale;
  filter->BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
  uint64_t hash = Fnv1a(radius.data(), sizeof(float) * radius.size());
  hash = Fnv1a(scale.data(), sizeof(float) * scale.size(), hash);
  const std::vector<cv::Point2f> grid = ImageGrid(kWidth, kHeight, 12);
  const std::array<float, 9> rotation = {0.9990f, -0.0300f, 0.0330f, 0.0310f, 0.9993f, -0.0200f, -0.0320f, 0.0210f, 0.9993f};
  std::vector<cv::Point2f> points = grid;
  const int32_t count = static_cast<int32_t>(points.size());
  filter->MapPointsRadial(&grid[0].x, Floats(points), count, kCamera, kTargetCamera, rotation.data(), radius, scale);
  hash = Fnv1a(points.data(), sizeof(cv::Point2f) * points.size(), hash);
  filter->MapPointsLinear(&grid[0].x, Floats(points), count, kCamera, kTargetCamera, rotation.data());
  hash = Fnv1a(points.data(), sizeof(cv::Point2f) * points.size(), hash);
  filter->UndistortPointsRadial(&grid[0].x, Floats(points), count, kWidth, kHeight, kCamera);
  hash = Fnv1a(points.data(), sizeof(cv::Point2f) * points.size(), hash);
  filter->DistortPointsPolynomial(&grid[0].x, Floats(points), count, kWidth, kHeight, kCamera);
  hash = Fnv1a(points.data(), sizeof(cv::Point2f) * points.size(), hash);
  EXPECT_EQ(filter->UndistortPointsPolynomial(&grid[0].x, Floats(points), count, kWidth, kHeight), 1);
  hash = Fnv1a(points.data(), sizeof(cv::Point2f) * points.size(), hash);
  filter->BuildCurveFromPolynomial(radius, scale, kWidth, kHeight);
  hash = Fnv1a(radius.data(), sizeof(float) * radius.size(), hash);
  hash = Fnv1a(scale.data(), sizeof(float) * scale.size(), hash);
  EXPECT_EQ(hash, 14679464542022050693ull);
}
