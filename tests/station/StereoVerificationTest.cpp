#include "station/StereoVerification.h"

#include "tests/support/TestPrelude.h"
#include "tests/support/StationErrorOf.h"

#include <opencv2/calib3d.hpp>

namespace {

using Views = std::vector<std::vector<cv::Point2f>>;

constexpr double kDegree = CV_PI / 180;
// Corners are handed over as float: near 2000 px that rounds them by up to 1.2e-4 px.
constexpr double kFloatCornerPx = 1e-3;

// A 2000 x 1500 rig: f about 1700, a moderate lens on each camera, 12 units of baseline along x, a small rotation.
StereoCalibration ModerateRig() {
  StereoCalibration rig;
  rig.imageSize = cv::Size(2000, 1500);
  rig.K1 = (cv::Mat_<double>(3, 3) << 1700, 0, 1003.5, 0, 1702, 748.2, 0, 0, 1);
  rig.K2 = (cv::Mat_<double>(3, 3) << 1690, 0, 991.0, 0, 1688, 761.4, 0, 0, 1);
  rig.D1 = (cv::Mat_<double>(1, 5) << -0.1, 0.05, 4e-4, -3e-4, 0);
  rig.D2 = (cv::Mat_<double>(1, 5) << -0.09, 0.04, -2e-4, 5e-4, 0);
  cv::Rodrigues(cv::Vec3d(0.004, -0.006, 0.003), rig.R);
  rig.T = cv::Vec3d(-12, 0.15, -0.1);
  return rig;
}

// An ultra-wide's lens on the main camera (rational, 8 coefficients) and a strong one on the second.
StereoCalibration StrongLensRig() {
  StereoCalibration rig = ModerateRig();
  rig.D1 = (cv::Mat_<double>(1, 8) << -0.4, 0.15, 5e-4, -3e-4, -0.02, 0.01, 0.005, 0.002);
  rig.D2 = (cv::Mat_<double>(1, 5) << -0.35, 0.12, -2e-4, 4e-4, -0.01);
  return rig;
}

// No lens and one vertical focal length, so a rectified row is a raw row to within the small rotations.
StereoCalibration PinholeRig() {
  StereoCalibration rig = ModerateRig();
  rig.K2.at<double>(1, 1) = 1702;
  rig.D1 = rig.D2 = cv::Mat();
  return rig;
}

std::vector<cv::Point2f> Project(const std::vector<cv::Point3d>& points, const StereoCalibration& rig, bool second) {
  cv::Vec3d rotation;
  cv::Rodrigues(second ? rig.R : cv::Mat::eye(3, 3, CV_64F), rotation);
  std::vector<cv::Point2d> projected;
  cv::projectPoints(points, rotation, second ? rig.T : cv::Vec3d(), second ? rig.K2 : rig.K1,
                    second ? rig.D2 : rig.D1, projected);
  return {projected.begin(), projected.end()};
}

// A 9 x 6 board of 2.5-unit squares in 20 poses (depth 130 to 170, tilted up to 20 degrees, any roll) spread over
// the main image, its corners exact in both images; the left of the main image stays empty (the second camera
// does not see it).
struct Scene {
  StereoCalibration truth;
  std::vector<std::vector<cv::Point3d>> points;  // per view, in the main camera's frame
  Views main, second;
};

Scene MakeScene(const StereoCalibration& truth) {
  std::mt19937 random(1234);
  std::uniform_real_distribution<double> tilt(-20 * kDegree, 20 * kDegree), roll(-CV_PI, CV_PI), depth(130, 170);
  const cv::Matx33d K1 = truth.K1;
  Scene scene{truth, {}, {}, {}};
  for (int pose = 0; pose < 20; ++pose) {
    cv::Matx33d tiltX, tiltY, turn;
    cv::Rodrigues(cv::Vec3d(tilt(random), 0, 0), tiltX);
    cv::Rodrigues(cv::Vec3d(0, tilt(random), 0), tiltY);
    cv::Rodrigues(cv::Vec3d(0, 0, roll(random)), turn);
    const double u = 2000 * (0.24 + 0.64 * (pose % 5) / 4), v = 1500 * (0.15 + 0.7 * (pose / 5) / 3), z = depth(random);
    const cv::Vec3d centre((u - K1(0, 2)) / K1(0, 0) * z, (v - K1(1, 2)) / K1(1, 1) * z, z);
    std::vector<cv::Point3d>& points = scene.points.emplace_back();
    for (int row = 0; row < 6; ++row)
      for (int column = 0; column < 9; ++column)
        points.emplace_back(turn * tiltX * tiltY * cv::Vec3d((column - 4) * 2.5, (row - 2.5) * 2.5, 0) + centre);
    scene.main.push_back(Project(points, truth, false));
    scene.second.push_back(Project(points, truth, true));
    for (const auto* corners : {&scene.main.back(), &scene.second.back()})
      for (const cv::Point2f& corner : *corners)
        EXPECT_TRUE(corner.inside(cv::Rect2f(5, 5, 1990, 1490))) << "pose " << pose << " corner " << corner;
  }
  return scene;
}

// The same figures, as the tests define them: nearest-rank 95th percentile.
ErrorFigures FiguresOf(std::vector<double> errors) {
  double sumSquares = 0;
  for (double& error : errors) {
    error = std::abs(error);
    sumSquares += error * error;
  }
  std::sort(errors.begin(), errors.end());
  const size_t rank = static_cast<size_t>(std::ceil(0.95 * errors.size()));
  return {std::sqrt(sumSquares / errors.size()), errors[rank - 1], errors.back(), errors.size()};
}

void ExpectFigures(const ErrorFigures& measured, const ErrorFigures& expected, double tolerancePx) {
  EXPECT_NEAR(measured.rms, expected.rms, tolerancePx);
  EXPECT_NEAR(measured.p95, expected.p95, tolerancePx);
  EXPECT_NEAR(measured.max, expected.max, tolerancePx);
  EXPECT_EQ(measured.count, expected.count);
}

cv::Point2d Pinhole(const cv::Matx33d& K, const cv::Vec3d& point) {
  const cv::Vec3d image = K * point;
  return {image[0] / image[2], image[1] / image[2]};
}

double DistanceToLine(const cv::Point2d& point, const cv::Point2d& a, const cv::Point2d& b) {
  return std::abs((b - a).cross(point - a)) / cv::norm(b - a);
}

// Per corner, from its board point and the rectification of `assumed`: the row error; the epipolar error against
// the line that a second point on the other corner's ray (twice as far) draws with it under `assumed`; and, for an R
// turned by turnRad about x, the first-order row error f tan(turn) (1 + y^2), y the normalised rectified row.
struct Expected {
  std::vector<std::vector<double>> rowErrors;
  std::vector<double> allRowErrors, epipolarErrors, firstOrderRowErrors;
};

Expected ExpectedErrors(const Scene& scene, const StereoCalibration& assumed, double turnRad) {
  cv::Mat R1, R2, P1, P2, Q;
  cv::stereoRectify(assumed.K1, assumed.D1, assumed.K2, assumed.D2, assumed.imageSize, assumed.R, assumed.T, R1, R2,
                    P1, P2, Q, cv::CALIB_ZERO_DISPARITY, -1);
  const cv::Matx33d K1 = assumed.K1, K2 = assumed.K2, R = assumed.R, trueR = scene.truth.R, rect1 = R1, rect2 = R2;
  const cv::Matx34d proj1 = P1, proj2 = P2;
  Expected expected;
  for (const auto& view : scene.points) {
    std::vector<double>& rows = expected.rowErrors.emplace_back();
    for (const cv::Point3d& point : view) {
      const cv::Vec3d main(point), second = trueR * main + scene.truth.T, rectifiedMain = rect1 * main;
      rows.push_back(Pinhole(proj2.get_minor<3, 3>(0, 0), rect2 * second).y -
                     Pinhole(proj1.get_minor<3, 3>(0, 0), rectifiedMain).y);
      const double y = rectifiedMain[1] / rectifiedMain[2];
      expected.firstOrderRowErrors.push_back(proj1(1, 1) * std::tan(turnRad) * (1 + y * y));
      const cv::Point2d x1 = Pinhole(K1, main), x2 = Pinhole(K2, second);
      const double secondPx = DistanceToLine(x2, Pinhole(K2, R * main + assumed.T),
                                             Pinhole(K2, R * (2 * main) + assumed.T));
      const double mainPx = DistanceToLine(x1, Pinhole(K1, R.t() * (second - assumed.T)),
                                           Pinhole(K1, R.t() * (2 * second - assumed.T)));
      expected.epipolarErrors.push_back(0.5 * (secondPx + mainPx));
    }
    expected.allRowErrors.insert(expected.allRowErrors.end(), rows.begin(), rows.end());
  }
  return expected;
}

// The calibration with R turned turnRad further about x than the truth.
StereoCalibration TurnedAboutX(const StereoCalibration& truth, double turnRad) {
  StereoCalibration turned = truth;
  cv::Matx33d turn;
  cv::Rodrigues(cv::Vec3d(turnRad, 0, 0), turn);
  turned.R = cv::Mat(turn * cv::Matx33d(truth.R));
  return turned;
}

}  // namespace

// With the calibration that made the corners both errors vanish, on a moderate lens and on strong ones (8 and 5
// coefficients), where undistortion stopped after OpenCV's default 5 iterations would leave them.
TEST(StereoVerification, TrueCalibrationLeavesNoError) {
  for (const StereoCalibration& truth : {ModerateRig(), StrongLensRig()}) {
    const Scene scene = MakeScene(truth);
    const StereoVerification verification = VerifyStereo(truth, scene.main, scene.second);
    EXPECT_EQ(verification.rowError.count, 20u * 54u);
    EXPECT_LT(verification.rowError.max, kFloatCornerPx);
    EXPECT_LT(verification.epipolarError.max, kFloatCornerPx);
    EXPECT_EQ(verification.epipolarError.count, 20u * 54u);
    ASSERT_EQ(verification.viewRowErrors.size(), 20u);
    EXPECT_EQ(verification.viewRowErrors[19].count, 54u);
    ASSERT_EQ(verification.rowErrors.size(), 20u);
    EXPECT_EQ(verification.rowErrors[19].size(), 54u);
  }
}

// A rig that rectifies to itself (no lens, no rotation, the baseline along x): a second corner moved down by d has
// a row error of d and an epipolar error of |d|, so the figures are known exactly, the 95th percentile by nearest
// rank (30 errors: the 29th smallest; 20: the 19th; 10: the 10th).
TEST(StereoVerification, FiguresOfKnownRowShifts) {
  StereoCalibration rig;
  rig.imageSize = cv::Size(2000, 1500);
  rig.K1 = (cv::Mat_<double>(3, 3) << 1700, 0, 1000, 0, 1700, 750, 0, 0, 1);
  rig.K2 = rig.K1.clone();
  rig.R = cv::Mat::eye(3, 3, CV_64F);
  rig.T = cv::Vec3d(-12, 0, 0);
  Views main(2), second(2);
  std::vector<std::vector<double>> shifts(2);
  for (int k = 1; k <= 20; ++k) shifts[0].push_back(-0.125 * k);
  for (int k = 1; k <= 10; ++k) shifts[1].push_back(0.0625 * k);
  for (size_t view = 0; view < 2; ++view) {
    for (size_t i = 0; i < shifts[view].size(); ++i) {
      main[view].emplace_back(300 + 70 * i, 200 + 900 * view + 40 * i);
      second[view].push_back(main[view].back() + cv::Point2f(-120, static_cast<float>(shifts[view][i])));
    }
  }
  const StereoVerification verification = VerifyStereo(rig, main, second);
  // Exact up to the float rounding of rows near 1000 px.
  constexpr double kRowRoundingPx = 1e-4;
  for (size_t view = 0; view < 2; ++view) {
    for (size_t i = 0; i < shifts[view].size(); ++i)
      EXPECT_NEAR(verification.rowErrors[view][i], shifts[view][i], kRowRoundingPx);
    ExpectFigures(verification.viewRowErrors[view], FiguresOf(shifts[view]), kRowRoundingPx);
  }
  EXPECT_NEAR(verification.viewRowErrors[0].p95, 2.375, kRowRoundingPx);
  EXPECT_NEAR(verification.viewRowErrors[1].p95, 0.625, kRowRoundingPx);
  std::vector<double> all = shifts[0];
  all.insert(all.end(), shifts[1].begin(), shifts[1].end());
  ExpectFigures(verification.rowError, FiguresOf(all), kRowRoundingPx);
  ExpectFigures(verification.epipolarError, FiguresOf(all), kRowRoundingPx);
  EXPECT_NEAR(verification.rowError.p95, 2.375, kRowRoundingPx);
}

// R turned 0.1 degree further about x than the truth: every corner is off its row by about f tan(0.1 deg), more
// towards the top and bottom, as the rectification of that R and the board points say corner by corner, each view
// and in all, and as the first-order formula says within 0.02 px; the epipolar error follows the lines that R draws.
TEST(StereoVerification, RotationOffByATenthOfADegree) {
  const Scene scene = MakeScene(ModerateRig());
  const StereoCalibration assumed = TurnedAboutX(scene.truth, 0.1 * kDegree);
  const StereoVerification verification = VerifyStereo(assumed, scene.main, scene.second);
  const Expected expected = ExpectedErrors(scene, assumed, 0.1 * kDegree);
  for (size_t view = 0; view < expected.rowErrors.size(); ++view) {
    for (size_t i = 0; i < expected.rowErrors[view].size(); ++i)
      EXPECT_NEAR(verification.rowErrors[view][i], expected.rowErrors[view][i], kFloatCornerPx) << view << " " << i;
    ExpectFigures(verification.viewRowErrors[view], FiguresOf(expected.rowErrors[view]), kFloatCornerPx);
  }
  ExpectFigures(verification.rowError, FiguresOf(expected.allRowErrors), kFloatCornerPx);
  ExpectFigures(verification.epipolarError, FiguresOf(expected.epipolarErrors), kFloatCornerPx);
  // Second-order terms in the turn and in the rig's own small rotation.
  constexpr double kFirstOrderPx = 0.02;
  EXPECT_NEAR(verification.rowError.rms, FiguresOf(expected.firstOrderRowErrors).rms, kFirstOrderPx);
}

// Normal noise of 0.3 px on both coordinates of the second corners, four draws over the 20 views (4320 corners):
// the row and epipolar RMS come out at 0.3 px and the 95th percentile of |row error| at 1.96 x 0.3 px.
TEST(StereoVerification, NoiseOfKnownSigma) {
  constexpr double kSigmaPx = 0.3;
  // Four standard errors of an RMS of 4320 draws (1 / sqrt(2 n) = 1.1 %) and of their 95th percentile (1.5 %).
  constexpr double kRmsTolerance = 0.045, kP95Tolerance = 0.06;
  const Scene scene = MakeScene(PinholeRig());
  std::mt19937 random(99);
  std::normal_distribution<float> noise(0, kSigmaPx);
  Views main, second;
  for (int draw = 0; draw < 4; ++draw) {
    for (size_t view = 0; view < scene.main.size(); ++view) {
      main.push_back(scene.main[view]);
      second.push_back(scene.second[view]);
      for (cv::Point2f& corner : second.back()) corner += cv::Point2f(noise(random), noise(random));
    }
  }
  const StereoVerification verification = VerifyStereo(scene.truth, main, second);
  EXPECT_EQ(verification.rowError.count, 4320u);
  EXPECT_NEAR(verification.rowError.rms, kSigmaPx, kRmsTolerance * kSigmaPx);
  EXPECT_NEAR(verification.rowError.p95, 1.96 * kSigmaPx, kP95Tolerance * 1.96 * kSigmaPx);
  EXPECT_NEAR(verification.epipolarError.rms, kSigmaPx, kRmsTolerance * kSigmaPx);
}

// Each fault throws StationError with its one line; every coefficient count OpenCV takes, as a row or a column,
// float matrices and no lens at all are taken.
TEST(StereoVerification, BadInputThrowsStationError) {
  const Scene scene = MakeScene(ModerateRig());
  const Views main(scene.main.begin(), scene.main.begin() + 2), second(scene.second.begin(), scene.second.begin() + 2);
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  const std::string notCamera = " is not a 3x3 camera matrix (finite, fx and fy positive, last row 0 0 1)";
  const std::string notLens = " is not a row or column of 4, 5, 8, 12 or 14 finite coefficients";
  using Spoil = std::function<void(StereoCalibration&, Views&, Views&)>;
  const std::pair<Spoil, std::string> refused[] = {
      {[](auto&, auto& m, auto& s) { m.clear(), s.clear(); }, "no views to verify"},
      {[](auto&, auto&, auto& s) { s.pop_back(); }, "2 main views but 1 second views"},
      {[](auto&, auto&, auto& s) { s[1].pop_back(); }, "view 2: 54 main corners but 53 second corners"},
      {[](auto&, auto& m, auto& s) { m[0].clear(), s[0].clear(); }, "view 1: no corners"},
      {[&](auto&, auto& m, auto&) { m[1][4].x = nan; }, "view 2: main corner 5 is not finite"},
      {[&](auto&, auto&, auto& s) { s[0][53].y = -inf; }, "view 1: second corner 54 is not finite"},
      {[](auto&, auto&, auto& s) { s[0][2] = {1999.75f, 10}; },
       "view 1: second corner 3 at (1999.75, 10) lies outside the 2000x1500 image"},
      {[](auto&, auto& m, auto&) { m[1][0] = {3, -0.75f}; },
       "view 2: main corner 1 at (3, -0.75) lies outside the 2000x1500 image"},
      {[](auto& c, auto&, auto&) { c.imageSize = {0, 1500}; }, "calibration: image size 0x1500 is not positive"},
      {[](auto& c, auto&, auto&) { c.K1 = c.K1.rowRange(0, 2); }, "calibration: K1" + notCamera},
      {[](auto& c, auto&, auto&) { c.K1.convertTo(c.K1, CV_32S); }, "calibration: K1" + notCamera},
      {[&](auto& c, auto&, auto&) { c.K2.template at<double>(1, 2) = nan; }, "calibration: K2" + notCamera},
      {[](auto& c, auto&, auto&) { c.K2.template at<double>(0, 0) = 0; }, "calibration: K2" + notCamera},
      {[](auto& c, auto&, auto&) { c.K2.template at<double>(2, 2) = 2; }, "calibration: K2" + notCamera},
      {[](auto& c, auto&, auto&) { c.D1 = cv::Mat::zeros(1, 6, CV_64F); }, "calibration: D1" + notLens},
      {[](auto& c, auto&, auto&) { c.D2 = cv::Mat::zeros(2, 5, CV_64F); }, "calibration: D2" + notLens},
      {[&](auto& c, auto&, auto&) { c.D2.template at<double>(0, 1) = inf; }, "calibration: D2" + notLens},
      {[](auto& c, auto&, auto&) { c.R = c.R * 1.01; }, "calibration: R is not a 3x3 rotation"},
      {[](auto& c, auto&, auto&) { c.R = -c.R; }, "calibration: R is not a 3x3 rotation"},
      {[](auto& c, auto&, auto&) { c.R = c.R.colRange(0, 2); }, "calibration: R is not a 3x3 rotation"},
      {[](auto& c, auto&, auto&) { c.T = cv::Vec3d(); }, "calibration: T is not a finite translation other than zero"},
      {[&](auto& c, auto&, auto&) { c.T[2] = nan; }, "calibration: T is not a finite translation other than zero"}};
  for (const auto& [spoil, message] : refused) {
    StereoCalibration calibration = ModerateRig();
    Views spoiltMain = main, spoiltSecond = second;
    spoil(calibration, spoiltMain, spoiltSecond);
    EXPECT_EQ(StationErrorOf([&] { VerifyStereo(calibration, spoiltMain, spoiltSecond); }), message);
  }
  // The true lenses (k3 is 0) written with each count, D2 as a float column, K2 in float: no error left.
  for (int count : {4, 5, 8, 12, 14}) {
    StereoCalibration calibration = ModerateRig();
    cv::Mat D1 = cv::Mat::zeros(1, count, CV_64F), D2 = cv::Mat::zeros(count, 1, CV_32F);
    calibration.D1.colRange(0, 4).copyTo(D1.colRange(0, 4));
    cv::Mat(calibration.D2.colRange(0, 4).t()).convertTo(D2.rowRange(0, 4), CV_32F);
    calibration.D1 = D1;
    calibration.D2 = D2;
    calibration.K2.convertTo(calibration.K2, CV_32F);
    EXPECT_LT(VerifyStereo(calibration, main, second).rowError.max, kFloatCornerPx) << count;
  }
  EXPECT_NO_THROW(VerifyStereo(PinholeRig(), main, second));

  const StereoVerification verification = VerifyStereo(scene.truth, main, second);
  const std::pair<Views, std::string> mismatched[] = {
      {scene.main, "the verification holds 2 views, the corners 20"},
      {{main[0], {main[1].begin(), main[1].end() - 1}},
       "view 2: the verification holds 54 row errors, the corners 53"}};
  for (const auto& [corners, message] : mismatched) {
    EXPECT_EQ(StationErrorOf([&] { RowErrorMap(scene.truth, corners, verification); }), message);
  }
}

// The map keeps the image's aspect within 800 x 800 px; each cell the main corners reach is coloured, each other
// one drawn alike (grey with a cross); the same input gives the same bytes.
TEST(RowErrorMap, CellsAreasAndBytes) {
  const std::pair<cv::Size, cv::Size> areas[] = {{{2000, 1500}, {800, 600}}, {{1500, 2000}, {600, 800}},
                                                 {{4000, 4000}, {800, 800}}, {{10000, 64}, {800, 48}}};
  for (const auto& [image, area] : areas) EXPECT_EQ(RowErrorMapArea(image).size(), area) << image;

  const Scene scene = MakeScene(ModerateRig());
  const StereoCalibration assumed = TurnedAboutX(scene.truth, 0.1 * kDegree);
  const StereoVerification verification = VerifyStereo(assumed, scene.main, scene.second);
  const cv::Mat map = RowErrorMap(assumed, scene.main, verification);
  const cv::Rect area = RowErrorMapArea(assumed.imageSize);
  ASSERT_EQ(map.type(), CV_8UC3);
  ASSERT_TRUE(cv::Rect(0, 0, map.cols, map.rows).contains(area.br()));

  bool reached[kRowErrorMapRows][kRowErrorMapColumns] = {};
  for (const auto& view : scene.main)
    for (const cv::Point2f& corner : view)
      reached[static_cast<int>((corner.y + 0.5) * kRowErrorMapRows / 1500)]
             [static_cast<int>((corner.x + 0.5) * kRowErrorMapColumns / 2000)] = true;
  std::vector<cv::Vec3b> emptyColours, reachedColours;
  for (int row = 0; row < kRowErrorMapRows; ++row) {
    for (int column = 0; column < kRowErrorMapColumns; ++column) {
      const cv::Point centre(area.x + (2 * column + 1) * area.width / (2 * kRowErrorMapColumns),
                             area.y + (2 * row + 1) * area.height / (2 * kRowErrorMapRows));
      (reached[row][column] ? reachedColours : emptyColours).push_back(map.at<cv::Vec3b>(centre));
    }
  }
  ASSERT_FALSE(emptyColours.empty());
  ASSERT_FALSE(reachedColours.empty());
  for (const cv::Vec3b& colour : emptyColours) EXPECT_EQ(colour, emptyColours[0]);
  for (const cv::Vec3b& colour : reachedColours) EXPECT_NE(colour, emptyColours[0]);

  const cv::Mat again = RowErrorMap(assumed, scene.main, verification);
  ASSERT_EQ(again.size(), map.size());
  EXPECT_EQ(cv::norm(again, map, cv::NORM_INF), 0);
}
