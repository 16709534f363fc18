#include "distortion/CDistortionFilter.h"

#include "tests/support/TestPrelude.h"

#include <opencv2/calib3d.hpp>

namespace {

// OpenCV's worker threads stall under qemu-aarch64, where this suite also runs: the oracles run sequentially.
[[maybe_unused]] const bool kSequentialOpenCv = (cv::setNumThreads(0), true);

constexpr float kSentinel = -777.0f;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// A 2001 x 1501 camera whose principal point lies well off the image centre.
constexpr int kWidth = 2001, kHeight = 1501;
constexpr float kCamera[9] = {1600.0f, 0.0f, 1130.5f, 0.0f, 1590.0f, 690.25f, 0.0f, 0.0f, 1.0f};
constexpr float kTargetCamera[9] = {1500.0f, 0.0f, 1010.0f, 0.0f, 1495.0f, 740.0f, 0.0f, 0.0f, 1.0f};
constexpr float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
constexpr std::array<double, 3> kPincushion = {0.08, 0.02, -0.005}, kBarrel = {-0.12, 0.05, -0.01};
// Float rounding of coordinates of a few thousand pixels and the radial table's interpolation (4e-4 px here).
constexpr double kPointTolerancePx = 2e-3;

cv::Matx33d CameraOf(const float camera[9]) { return cv::Matx33d(cv::Matx33f(camera)); }

// Largest distance of actual from OpenCV's undistortion of placed (run to convergence, rotated by the transpose
// of the filter's row-major rotation, projected with target) after the placement p / scale - offset.
double WorstAgainstOpenCv(const std::vector<cv::Point2f>& actual, const std::vector<cv::Point2f>& placed,
                          const cv::Mat& distortion, const float rotation[9], const float target[9], const float transform[3]) {
  std::vector<cv::Point2f> expected;
  cv::undistortPoints(placed, expected, CameraOf(kCamera), distortion, CameraOf(rotation).t(), CameraOf(target),
                      cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 200, 1e-12));
  double worst = 0.0;
  for (size_t i = 0; i < actual.size(); ++i) {
    const cv::Point2d e = cv::Point2d(expected[i]) / transform[2] - cv::Point2d(transform[0], transform[1]);
    worst = std::max(worst, cv::norm(cv::Point2d(actual[i]) - e));
  }
  return worst;
}

}  // namespace

TEST(CDistortionFilter, TableFiles) {
  TempDir dir;
  const float noRadialRows[kDistortionRowCapacity][kDistortionCoefficientCapacity] = {};
  for (const auto& c : CaseRows("distortion/LoadDistortionTable.txt")) {
    SCOPED_TRACE(c[0]);
    CDistortionFilter filter;
    filter.rowCount = 1, filter.coefficientCount = 2;
    std::fill(&filter.polynomialRows[0][0], &filter.polynomialRows[0][0] + sizeof(filter.polynomialRows) / sizeof(float), kSentinel);
    std::fill(std::begin(filter.rowKeys), std::end(filter.rowKeys), filter.referenceRadius = kSentinel);
    if (c[0] != "-") WriteFile(dir.File("table.txt"), c[0]);
    const int result = filter.LoadDistortionTable(dir.File(c[0] != "-" ? "table.txt" : "absent").c_str());
    std::istringstream expected(c[1]), cells(c[2]);
    int32_t rows = 0, coefficients = 0, row = 0, slot = 0;
    float radius = 0.0f, value = 0.0f;
    char comma = 0, equals = 0;
    expected >> row >> rows >> coefficients >> radius;
    EXPECT_EQ(std::tie(result, filter.rowCount, filter.coefficientCount, filter.referenceRadius), std::tie(row, rows, coefficients, radius));
    while (cells >> row >> comma >> slot >> equals >> value)
      EXPECT_EQ(slot < 0 ? filter.rowKeys[row] : filter.polynomialRows[row][slot], value) << row << "," << slot;
    // Rows past the capacity must not spill into the next member.
    EXPECT_EQ(std::memcmp(filter.radialRows, noRadialRows, sizeof(noRadialRows)), 0);
    EXPECT_EQ(filter.LoadDistortionTable(nullptr), 0);
  }
}

// Lookups clamp; an x on a node takes the first interval bracketing it (the one ending there, even before one of
// zero width); nothing brackets a NaN. The reciprocal lookup also searches the interval ending at the slack entry.
TEST(CDistortionFilter, CurveLookupBoundariesAndFirstBracket) {
  CurveTable xs{}, ys{};
  for (int i = 0; i < kCurveSize; ++i) xs[i] = 2.0f * i + 1.0f, ys[i] = 4.0f * i + 8.0f;
  xs[7] = xs[6], ys[7] = 99.0f;
  const float cases[][2] = {{-5, 8}, {1, 8}, {11, 28}, {12, 30}, {13, 32}, {2046, 4098}, {2047, 4100}, {5000, 4100}, {kNaN, 8}};
  for (const auto& c : cases) {
    EXPECT_EQ(CDistortionFilter::InterpolateCurve(xs, ys, c[0]), c[1]) << c[0];
    EXPECT_EQ(CDistortionFilter::InterpolateCurveReciprocal(xs, ys, c[0]), 1.0f / c[1]) << c[0];
  }
  xs[1022] = kNaN;
  EXPECT_EQ(CDistortionFilter::InterpolateCurve(xs, ys, 2047.0f), 8.0f);
  EXPECT_EQ(CDistortionFilter::InterpolateCurveReciprocal(xs, ys, 2047.0f), 1.0f / 4100.0f);
}

// Nodes, fractions, edges, NaN and infinities on planes sized exactly (4 x 3 luma; the chroma of a 5 x 5 image,
// two rows of two pairs), so a read past them is caught; planes without a sample read nothing.
TEST(CDistortionFilter, SamplerEdgeCases) {
  std::vector<uint8_t> luma = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 121}, chroma = {10, 200, 30, 100, 50, 0, 70, 255};
  for (const auto& c : CaseRows("distortion/SamplerEdgeCases.txt")) {
    const std::vector<double> plane = Numbers(c[0]), at = Numbers(c[1]), expected = Numbers(c[2]);
    const YuvImage image{0, luma.data(), chroma.data(), int(plane[0]), int(plane[1])};
    uint8_t out[2] = {9, 9};
    if (plane[1] == 3) CDistortionFilter::SampleGrayBilinear(image, float(at[0]), float(at[1]), out);
    if (plane[1] == 5) CDistortionFilter::SampleChromaBilinear(image, float(at[0]), float(at[1]), out);
    EXPECT_EQ(std::vector<double>(out, out + 2), expected) << c[0] << " | " << c[1];
  }
}

// A blend writes t of row i and 1 - t of row j into the current set (row 1), every slot; a row outside the table
// changes nothing. Initialize resets and succeeds.
TEST(CDistortionFilter, BlendsRowsIntoTheCurrentSets) {
  CDistortionFilter filter;
  EXPECT_TRUE(filter.Initialize());
  for (auto* rows : {filter.polynomialRows, filter.radialRows}) std::fill(rows[0], rows[1], 8.0f), std::fill(rows[2], rows[3], 4.0f);
  filter.BlendPolynomialRows(0, 2, 0.25f), filter.BlendRadialRows(2, 0, 0.75f);
  filter.BlendPolynomialRows(kDistortionRowCapacity, 0, 1.0f), filter.BlendRadialRows(0, -1, 1.0f);
  EXPECT_EQ(std::vector<float>(filter.currentPolynomial, filter.polynomialRows[2]), std::vector<float>(10, 5.0f));
  EXPECT_EQ(std::vector<float>(filter.radialCoefficients, filter.radialRows[2]), std::vector<float>({5, 5, 5, 0, 0, 0, 0, 0, 0, 0}));
}

// Band [0.95, 1.05]: radii 50, 100 and 10 give 1.045, 1.09 (stops the run) and 1.009 (untouched); 0.955 passes. Slot 1
// lies past the count, as a reload with fewer coefficients leaves it, and is not read. Arithmetic: tests/golden.
TEST(CDistortionFilter, PolynomialBandStopsTheRun) {
  CDistortionFilter filter;
  filter.coefficientCount = 1, filter.referenceRadius = 100.0f, filter.currentPolynomial[0] = 0.09f, filter.currentPolynomial[1] = 7.0f;
  const float band[6] = {1050, 750, 1000, 850, 990, 750};
  float out[6] = {kSentinel, kSentinel, kSentinel, kSentinel, kSentinel, kSentinel};
  EXPECT_EQ(filter.UndistortPointsPolynomial(band, out, 3, kWidth, kHeight) +
                filter.UndistortPointsPolynomial(band + 2, out, 1, kWidth, kHeight), 0);  // one point stops it too
  EXPECT_EQ(std::vector<float>(out, out + 6), std::vector<float>({1000 + 50 / (1 + 0.09f * 0.5f), 750, kSentinel, kSentinel, kSentinel, kSentinel}));
  filter.currentPolynomial[0] = -0.045f;
  EXPECT_EQ(filter.UndistortPointsPolynomial(band, out, 3, kWidth, kHeight) + filter.UndistortPointsPolynomial(nullptr, nullptr, 0, kWidth, kHeight), 2);
}

// The radial point kernels against OpenCV with both placements set: the input placed by forwardTransform, the
// output by it (undistortion) or by sourceTransform (mappings); points lie where the radial table reaches.
TEST(CDistortionFilter, RadialKernelsAgreeWithOpenCvUnderPlacement) {
  cv::Matx33d rotationD;
  cv::Rodrigues(cv::Vec3d(0.02, -0.03, 0.01), rotationD);
  const cv::Matx33f rotation(rotationD);
  const float forward[3] = {7.5f, -5.25f, 1.0625f}, source[3] = {-12.0f, 9.5f, 0.875f};
  const cv::Mat noDistortion = cv::Mat::zeros(1, 5, CV_64F);
  for (const auto& model : {kPincushion, kBarrel}) {
    SCOPED_TRACE(model[0]);
    CDistortionFilter filter;
    std::copy(model.begin(), model.end(), filter.radialCoefficients);
    std::copy(forward, forward + 3, filter.forwardTransform);
    std::copy(source, source + 3, filter.sourceTransform);
    CurveTable radius, scale;
    filter.BuildCurveFromRadialModel(kCamera, radius, scale, kWidth, kHeight);
    std::vector<cv::Point2f> placed, in;
    for (int n = 0; n < 31 * 31; ++n) {  // a grid over the whole image, corners included
      const cv::Point2f p((kWidth - 1.0f) * (n % 31) / 30, (kHeight - 1.0f) * (n / 31) / 30);
      if (std::hypot((p.x - kCamera[2]) / kCamera[0], (p.y - kCamera[5]) / kCamera[4]) > radius[kCurveSize - 1]) continue;
      in.emplace_back((p.x - forward[0]) / forward[2], (p.y - forward[1]) / forward[2]);
      placed.emplace_back(cv::Point2d(in.back()) * forward[2] + cv::Point2d(forward[0], forward[1]));
    }
    ASSERT_GT(in.size(), 400u);
    const int32_t count = static_cast<int32_t>(in.size());
    const cv::Mat distortion = (cv::Mat_<double>(1, 5) << model[0], model[1], 0.0, 0.0, model[2]);
    std::vector<cv::Point2f> out(in.size());
    filter.UndistortPointsRadial(&in[0].x, &out[0].x, count, kWidth, kHeight, kCamera);
    EXPECT_LT(WorstAgainstOpenCv(out, placed, distortion, kIdentity, kCamera, forward), kPointTolerancePx);
    filter.MapPointsRadial(&in[0].x, &out[0].x, count, kCamera, kTargetCamera, rotation.val, radius, scale);
    EXPECT_LT(WorstAgainstOpenCv(out, placed, distortion, rotation.val, kTargetCamera, source), kPointTolerancePx);
    filter.MapPointsLinear(&in[0].x, &out[0].x, count, kCamera, kTargetCamera, rotation.val);
    EXPECT_LT(WorstAgainstOpenCv(out, placed, noDistortion, rotation.val, kTargetCamera, source), kPointTolerancePx);
  }
}
