#include "station/LensModelCheck.h"

#include "tests/support/TestPrelude.h"
#include "tests/support/StationErrorOf.h"

#include <opencv2/calib3d.hpp>

namespace {

const cv::Size kImage(2000, 1500);
// A sound model undistorts the grid to far below the 0.01 px bound; the halving pins a fold far below 0.01 px.
constexpr double kConvergedPx = 1e-6, kFoldPx = 0.01;

// Focal length f with the principal point at the image's middle: every corner 1250 px away.
cv::Mat Camera(double f) { return (cv::Mat_<double>(3, 3) << f, 0, 999.5, 0, f, 749.5, 0, 0, 1); }

cv::Mat Lens(const std::vector<double>& coefficients) { return cv::Mat(coefficients, true).t(); }

}  // namespace

// A phone lens, an ultra-wide's (5 and 8 coefficients), the same field fitted in the rational form a calibration
// gives (k1 - k4 is its k1 of -0.4), and 14 coefficients with thin prism and tilt terms: valid, converged.
TEST(LensModelCheck, SoundLensesPass) {
  const std::pair<double, std::vector<double>> lenses[] = {
      {1700, {-0.1, 0.05, 4e-4, -3e-4, 0}},
      {1700, {-0.4, 0.15, 5e-4, -3e-4, -0.02, 0.01, 0.005, 0.002}},
      {1400, {2.3, 1.2, 4e-4, -2e-4, 0.02, 2.7, 2.1, 0.2}},
      {1700, {-0.1, 0.05, 4e-4, -3e-4, 0, 0, 0, 0, 1e-3, -5e-4, 2e-4, 1e-4, 0.01, -0.005}}};
  for (const auto& [f, D] : lenses) {
    const LensModelCheck check = CheckLensModel(Camera(f), Lens(D), kImage);
    EXPECT_TRUE(check.valid) << D.size();
    EXPECT_EQ(check.problem, "");
    EXPECT_EQ(check.foldRadiusPx, 0);
    EXPECT_DOUBLE_EQ(check.reachPx, 1250);
    EXPECT_LT(check.worstUndistortResidualPx, kConvergedPx) << D.size();
  }
}

// k1 = -0.6 alone: r (1 + k1 r^2) peaks at r = 1 / sqrt(1.8), f r (1 + k1 r^2) = 0.4969 f px from the principal
// point. At f 1000 inside every side, at f 2400 beyond the sides but short of the corners (only the rays towards
// them fold in the image), at f 2600 beyond the corners: harmless.
TEST(LensModelCheck, FoldInsideTheImageFails) {
  const double rPeak = 1 / std::sqrt(1.8), peak = rPeak * (1 - 0.6 * rPeak * rPeak);
  const std::pair<double, std::string> cases[] = {
      {1000, "lens model folds 496.9 px from the principal point, inside the image (its corners reach 1250.0 px)"},
      {2400, "lens model folds 1192.6 px from the principal point, inside the image (its corners reach 1250.0 px)"},
      {2600, ""}};
  for (const auto& [f, problem] : cases) {
    const LensModelCheck check = CheckLensModel(Camera(f), Lens({-0.6, 0, 0, 0}), kImage);
    EXPECT_EQ(check.problem, problem);
    EXPECT_EQ(check.valid, problem.empty());
    EXPECT_NEAR(check.foldRadiusPx, problem.empty() ? 0 : f * peak, kFoldPx) << f;
    // Beyond the fold the image has no undistorted point to give.
    EXPECT_EQ(check.worstUndistortResidualPx > 0.01, !problem.empty()) << check.worstUndistortResidualPx;
  }
  // A pinhole of f 10 px would have to see more than 89 degrees off its axis to reach the image's sides.
  const LensModelCheck short89 = CheckLensModel(Camera(10), Lens({0, 0, 0, 0}), kImage);
  EXPECT_EQ(short89.problem, "lens model stops 572.9 px from the principal point, short of the image border (its "
                             "corners reach 1250.0 px)");
  EXPECT_NEAR(short89.foldRadiusPx, 10 * std::tan(89 * CV_PI / 180), 1e-9);
}

// 1 / (1 + k4 r^2) and 1 / (1 + k6 r^6) dividing by zero at r = 0.9: inside the corners' pinhole radius 1.25 at
// f 1000, beyond their 0.625 at f 2000 (where the model leaves the image before r = 0.65).
TEST(LensModelCheck, DenominatorRootInsideTheImageFails) {
  for (const cv::Mat& pole : {Lens({0, 0, 0, 0, 0, -1 / 0.81, 0, 0}), Lens({0, 0, 0, 0, 0, 0, 0, -1 / 0.531441})}) {
    const LensModelCheck inside = CheckLensModel(Camera(1000), pole, kImage);
    EXPECT_FALSE(inside.valid);
    EXPECT_EQ(inside.problem,
              "lens model divides by zero at normalised radius 0.9000, inside the image's reach of 1.2500");
    const LensModelCheck beyond = CheckLensModel(Camera(2000), pole, kImage);
    EXPECT_TRUE(beyond.valid) << beyond.problem;
    EXPECT_LT(beyond.worstUndistortResidualPx, kConvergedPx);
  }
}

// A rational model fitted to boards that stay within the middle third of the image (20 views of 9 x 6 corners
// seen through a moderate lens, 0.2 px of noise), checked over the whole image.
TEST(LensModelCheck, CentreOnlyRationalFit) {
  const cv::Mat trueK = (cv::Mat_<double>(3, 3) << 1700, 0, 1003.5, 0, 1702, 748.2, 0, 0, 1);
  const cv::Mat trueD = Lens({-0.1, 0.05, 4e-4, -3e-4, 0});
  const cv::Rect2d middle(2000 / 3.0, 1500 / 3.0, 2000 / 3.0, 1500 / 3.0);
  std::mt19937 random(2024);
  std::uniform_real_distribution<double> tilt(-0.5, 0.5), roll(-CV_PI, CV_PI), depth(80, 110), shift(-6, 6);
  std::normal_distribution<float> noise(0, 0.2f);
  std::vector<cv::Point3f> board;
  for (int row = 0; row < 6; ++row)
    for (int column = 0; column < 9; ++column) board.emplace_back((column - 4) * 2.5f, (row - 2.5f) * 2.5f, 0);
  std::vector<std::vector<cv::Point3f>> objectPoints;
  std::vector<std::vector<cv::Point2f>> imagePoints;
  while (imagePoints.size() < 20) {
    const cv::Vec3d rotation(tilt(random), tilt(random), roll(random));
    const cv::Vec3d translation(shift(random) + 0.2, shift(random), depth(random));
    std::vector<cv::Point2f> projected, noisy;
    cv::projectPoints(board, rotation, translation, trueK, trueD, projected);
    for (const cv::Point2f& p : projected)
      if (middle.contains(cv::Point2d(p))) noisy.emplace_back(p.x + noise(random), p.y + noise(random));
    if (noisy.size() < board.size()) continue;  // a pose reaching out of the middle third is drawn again
    objectPoints.push_back(board);
    imagePoints.push_back(noisy);
  }
  cv::Mat K, D;
  std::vector<cv::Mat> rvecs, tvecs;
  const double rms = cv::calibrateCamera(objectPoints, imagePoints, kImage, K, D, rvecs, tvecs,
                                         cv::CALIB_RATIONAL_MODEL);
  const LensModelCheck check = CheckLensModel(K, D, kImage);
  // The fit matches its boards (0.2 px of noise on each coordinate), yet its denominator and numerator share a
  // near root just past the boards' edge: the model runs off to infinity and back in a thin ring 340-350 px out.
  // Undistortion of the grid converges; only the shape of the model gives it away.
  EXPECT_LT(rms, 0.3);
  EXPECT_FALSE(check.valid);
  EXPECT_EQ(check.problem.rfind("lens model ", 0), 0u) << check.problem;
  EXPECT_GT(check.foldRadiusPx, 0);
  EXPECT_LT(check.foldRadiusPx, check.reachPx);
  EXPECT_LT(check.worstUndistortResidualPx, 0.01);
}

// Each malformed camera throws StationError with its one line; float matrices and a column of coefficients are
// taken.
TEST(LensModelCheck, MalformedInputThrowsStationError) {
  const std::string notCamera = "K is not a 3x3 camera matrix (finite, fx and fy positive, last row 0 0 1)";
  const std::string notLens = "D is not a row or column of 4, 5, 8, 12 or 14 finite coefficients";
  const cv::Mat K = Camera(1700), D = Lens({-0.1, 0.05, 0, 0});
  cv::Mat integerK, nanK = K.clone(), flatK = K.clone(), scaledK = K.clone(), infD = D.clone();
  K.convertTo(integerK, CV_32S);
  nanK.at<double>(1, 2) = std::numeric_limits<double>::quiet_NaN();
  flatK.at<double>(1, 1) = 0;
  scaledK.at<double>(2, 2) = 2;
  infD.at<double>(0, 3) = std::numeric_limits<double>::infinity();
  const std::tuple<cv::Mat, cv::Mat, cv::Size, std::string> refused[] = {
      {K.rowRange(0, 2), D, kImage, notCamera},
      {integerK, D, kImage, notCamera},
      {nanK, D, kImage, notCamera},
      {flatK, D, kImage, notCamera},
      {scaledK, D, kImage, notCamera},
      {K, cv::Mat::zeros(1, 6, CV_64F), kImage, notLens},
      {K, cv::Mat::zeros(2, 5, CV_64F), kImage, notLens},
      {K, cv::Mat(), kImage, notLens},
      {K, infD, kImage, notLens},
      {K, D, cv::Size(0, 1500), "image size 0x1500 is not positive"},
      {K, D, cv::Size(2000, -1), "image size 2000x-1 is not positive"}};
  for (const auto& [camera, lens, size, message] : refused)
    EXPECT_EQ(StationErrorOf([&] { CheckLensModel(camera, lens, size); }), message);
  cv::Mat floatK, columnD;
  K.convertTo(floatK, CV_32F);
  cv::Mat(D.t()).convertTo(columnD, CV_32F);
  EXPECT_TRUE(CheckLensModel(floatK, columnD, kImage).valid);
}
