#include "station/StereoUncertainty.h"

#include "tests/support/TestPrelude.h"
#include "tests/support/StationErrorOf.h"

#include <opencv2/calib3d.hpp>

namespace {

constexpr double kDegree = CV_PI / 180;
// The rig: f about 1700 on 2000 x 1500, no lens, 12 units of baseline along x, R = Rz Ry Rx of these angles.
const cv::Matx33d kK1(1700, 0, 1003.5, 0, 1702, 748.2, 0, 0, 1), kK2(1690, 0, 991.0, 0, 1688, 761.4, 0, 0, 1);
const cv::Vec3d kT(-12, 0.15, -0.1), kAnglesDeg(0.25, -0.35, 0.15);
// Corners are handed over as float, rounded by up to 6e-5 px; through the solve that moves T by a few 1e-6 units,
// the angles by up to 2e-6 degrees and the intrinsics by a few 1e-4 px.
constexpr double kFloatCornerT = 1e-5, kFloatCornerDeg = 1e-5, kFloatCornerPx = 2e-3;
// The stage with the lens held at none (distortion fixed at zero), which is right for this rig.
constexpr int kPinholeFlags = cv::CALIB_USE_INTRINSIC_GUESS | cv::CALIB_ZERO_TANGENT_DIST | cv::CALIB_FIX_K1 |
                              cv::CALIB_FIX_K2 | cv::CALIB_FIX_K3;

cv::Matx33d Rotation(const cv::Vec3d& anglesDeg) {
  const cv::Vec3d a = anglesDeg * kDegree;
  const cv::Matx33d x(1, 0, 0, 0, std::cos(a[0]), -std::sin(a[0]), 0, std::sin(a[0]), std::cos(a[0]));
  const cv::Matx33d y(std::cos(a[1]), 0, std::sin(a[1]), 0, 1, 0, -std::sin(a[1]), 0, std::cos(a[1]));
  const cv::Matx33d z(std::cos(a[2]), -std::sin(a[2]), 0, std::sin(a[2]), std::cos(a[2]), 0, 0, 0, 1);
  return z * y * x;
}

cv::Point2f Project(const cv::Matx33d& K, const cv::Vec3d& point) {
  const cv::Vec3d image = K * point;
  return cv::Point2f(static_cast<float>(image[0] / image[2]), static_cast<float>(image[1] / image[2]));
}

// A 9 x 6 board of 2.5-unit squares in 15 poses (depth 80 to 110, tilted up to 20 degrees, any roll) on a 5 x 3 grid
// over the area of the main image the second camera sees too, its corners exact in both images. The solve starts
// from K a few pixels off, as the mono stage leaves it.
StereoSolveInput MakeScene() {
  std::mt19937 random(1234);
  std::uniform_real_distribution<double> tilt(-20 * kDegree, 20 * kDegree), roll(-CV_PI, CV_PI), depth(80, 110);
  const cv::Matx33d R = Rotation(kAnglesDeg);
  StereoSolveInput input;
  input.imageSize = cv::Size(2000, 1500);
  input.K1 = cv::Mat(kK1 + cv::Matx33d(8, 0, -5, 0, -6, 4, 0, 0, 0));
  input.K2 = cv::Mat(kK2 + cv::Matx33d(-7, 0, 6, 0, 5, -3, 0, 0, 0));
  input.flags = kPinholeFlags;
  for (int pose = 0; pose < 15; ++pose) {
    cv::Matx33d tiltX, tiltY, turn;
    cv::Rodrigues(cv::Vec3d(tilt(random), 0, 0), tiltX);
    cv::Rodrigues(cv::Vec3d(0, tilt(random), 0), tiltY);
    cv::Rodrigues(cv::Vec3d(0, 0, roll(random)), turn);
    const double u = 2000 * (0.3 + 0.5 * (pose % 5) / 4), v = 1500 * (0.2 + 0.6 * (pose / 5) / 2), z = depth(random);
    const cv::Vec3d centre((u - kK1(0, 2)) / kK1(0, 0) * z, (v - kK1(1, 2)) / kK1(1, 1) * z, z);
    input.objectPoints.emplace_back(), input.imagePoints1.emplace_back(), input.imagePoints2.emplace_back();
    for (int row = 0; row < 6; ++row) {
      for (int column = 0; column < 9; ++column) {
        const cv::Vec3d point = turn * tiltX * tiltY * cv::Vec3d((column - 4) * 2.5, (row - 2.5) * 2.5, 0) + centre;
        input.objectPoints.back().emplace_back(column * 2.5f, row * 2.5f, 0.0f);
        input.imagePoints1.back().push_back(Project(kK1, point));
        input.imagePoints2.back().push_back(Project(kK2, R * point + kT));
        for (const cv::Point2f& corner : {input.imagePoints1.back().back(), input.imagePoints2.back().back()})
          EXPECT_TRUE(corner.inside(cv::Rect2f(5, 5, 1990, 1490))) << "pose " << pose << " corner " << corner;
      }
    }
  }
  return input;
}

}  // namespace

// Exact corners: the stage's solve finds the rig that made them, the angles in the engine's convention, with the
// example chart settings (the lens solved for too) and with the lens held at none.
TEST(StereoUncertainty, SolveRecoversTheRig) {
  const auto intrinsics = [](const cv::Matx33d& K) { return cv::Vec4d(K(0, 0), K(1, 1), K(0, 2), K(1, 2)); };
  for (int flags : {int(cv::CALIB_USE_INTRINSIC_GUESS), kPinholeFlags}) {
    StereoSolveInput input = MakeScene();
    input.flags = flags;
    const StereoParameters solved = SolveStereo(input);
    EXPECT_LT(cv::norm(solved.T - kT, cv::NORM_INF), kFloatCornerT) << flags;
    EXPECT_LT(cv::norm(solved.anglesDeg - kAnglesDeg, cv::NORM_INF), kFloatCornerDeg) << flags;
    EXPECT_LT(cv::norm(solved.camera1 - intrinsics(kK1), cv::NORM_INF), kFloatCornerPx) << flags;
    EXPECT_LT(cv::norm(solved.camera2 - intrinsics(kK2), cv::NORM_INF), kFloatCornerPx) << flags;
  }
}

// Normal noise of 0.2 px on every corner of both images, 30 draws: the spread of the 30 solves and the mean of their
// jackknife standard deviations (3 groups of 5 views) agree within a factor of 2 for T, the angles and fx.
TEST(StereoUncertainty, JackknifeMatchesTheSpreadOverNoiseDraws) {
  constexpr int kDraws = 30, kTracked = 7;
  const char* const names[kTracked] = {"T_x", "T_y", "T_z", "angle_x", "angle_y", "angle_z", "fx1"};
  const auto tracked = [](const StereoParameters& p) {
    return std::array<double, kTracked>{p.T[0], p.T[1], p.T[2], p.anglesDeg[0], p.anglesDeg[1], p.anglesDeg[2],
                                        p.camera1[0]};
  };
  const StereoSolveInput scene = MakeScene();
  std::mt19937 random(77);
  std::normal_distribution<float> noise(0, 0.2f);
  std::vector<std::array<double, kTracked>> solved;
  std::array<double, kTracked> jackknife{};
  for (int draw = 0; draw < kDraws; ++draw) {
    StereoSolveInput noisy = scene;
    for (auto* views : {&noisy.imagePoints1, &noisy.imagePoints2})
      for (auto& view : *views)
        for (cv::Point2f& corner : view) corner += cv::Point2f(noise(random), noise(random));
    solved.push_back(tracked(SolveStereo(noisy)));
    const std::array<double, kTracked> stdDev = tracked(EstimateStereoUncertainty(noisy, 3).stdDev);
    for (int i = 0; i < kTracked; ++i) jackknife[i] += stdDev[i] / kDraws;
  }
  for (int i = 0; i < kTracked; ++i) {
    double mean = 0, sumSquares = 0;
    for (const auto& parameters : solved) mean += parameters[i] / kDraws;
    for (const auto& parameters : solved) sumSquares += (parameters[i] - mean) * (parameters[i] - mean);
    const double spread = std::sqrt(sumSquares / (kDraws - 1)), ratio = jackknife[i] / spread;
    std::printf("%-8s jackknife %.3g  spread %.3g  ratio %.2f\n", names[i], jackknife[i], spread, ratio);
    EXPECT_GT(ratio, 0.5) << names[i];
    EXPECT_LT(ratio, 2.0) << names[i];
  }
}

// One view's second corners moved 3 px: only the fold without that view's group solves from clean views, so it
// alone finds the rig, and largestShift and stdDev are those of the folds against the full solve. With 15 views in 5
// groups view 11 (from 0) is in group 11 % 5 = 1; with 6 views and up to 20 groups each view is its own group.
TEST(StereoUncertainty, FoldsLeaveOutTheirGroup) {
  // The moved view pulls T by a hundredth of a unit or more wherever it is solved with.
  constexpr double kPulledT = 1e-2;
  for (const auto& [views, maxGroups, moved, groups] : {std::array<size_t, 4>{15, 5, 11, 5}, {6, 20, 4, 6}}) {
    StereoSolveInput input = MakeScene();
    for (auto* list : {&input.imagePoints1, &input.imagePoints2}) list->resize(views);
    input.objectPoints.resize(views);
    for (cv::Point2f& corner : input.imagePoints2[moved]) corner.x += 3;
    const StereoParameters full = SolveStereo(input);
    const StereoUncertainty uncertainty = EstimateStereoUncertainty(input, maxGroups);
    ASSERT_EQ(uncertainty.groups, groups);
    ASSERT_EQ(uncertainty.folds.size(), groups);
    for (size_t fold = 0; fold < groups; ++fold) {
      const double offTruth = cv::norm(uncertainty.folds[fold].T - kT);
      if (fold == moved % groups) {
        EXPECT_LT(offTruth, kFloatCornerT) << fold;
        EXPECT_LT(cv::norm(uncertainty.folds[fold].anglesDeg - kAnglesDeg), kFloatCornerDeg) << fold;
      } else {
        EXPECT_GT(offTruth, kPulledT) << fold;
      }
    }
    for (int i = 0; i < 3; ++i) {
      double largest = 0, mean = 0, sumSquares = 0;
      for (const StereoParameters& fold : uncertainty.folds) {
        largest = std::max(largest, std::abs(fold.T[i] - full.T[i]));
        mean += fold.T[i] / groups;
      }
      for (const StereoParameters& fold : uncertainty.folds) sumSquares += (fold.T[i] - mean) * (fold.T[i] - mean);
      EXPECT_EQ(uncertainty.largestShift.T[i], largest) << i;
      EXPECT_NEAR(uncertainty.stdDev.T[i], std::sqrt((groups - 1.0) / groups * sumSquares), 1e-12) << i;
    }
  }
}

// Each fault throws StationError with its one line, before any solve; a solve OpenCV refuses is one too.
TEST(StereoUncertainty, BadInputThrowsStationError) {
  using Spoil = std::function<void(StereoSolveInput&, size_t&)>;
  const std::string notCamera = " is not a 3x3 camera matrix (finite, fx and fy positive, last row 0 0 1)";
  const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  const std::pair<Spoil, std::string> refused[] = {
      {[](auto& in, auto&) { in.objectPoints.resize(4), in.imagePoints1.resize(4), in.imagePoints2.resize(4); },
       "4 views, at least 5 needed"},
      {[](auto& in, auto&) { in.imagePoints2.pop_back(); }, "15 board views, 15 main views, 14 second views"},
      {[](auto& in, auto&) { in.imagePoints2[2].pop_back(); },
       "view 3: 54 board points, 54 main corners, 53 second corners"},
      {[](auto& s, auto&) { s.objectPoints[1].resize(3), s.imagePoints1[1].resize(3), s.imagePoints2[1].resize(3); },
       "view 2: 3 points, at least 4 needed"},
      {[&](auto& in, auto&) { in.imagePoints1[0][4].y = nan; }, "view 1: main corner 5 is not finite"},
      {[&](auto& in, auto&) { in.imagePoints2[14][53].x = -inf; }, "view 15: second corner 54 is not finite"},
      {[&](auto& in, auto&) { in.objectPoints[5][1].z = nan; }, "view 6: board point 2 is not finite"},
      {[](auto& in, auto&) { in.imageSize = {2000, 0}; }, "image size 2000x0 is not positive"},
      {[](auto& in, auto&) { in.K1 = in.K1.rowRange(0, 2); }, "K1" + notCamera},
      {[](auto& in, auto&) { in.K2.template at<double>(1, 1) = -1; }, "K2" + notCamera},
      {[](auto&, auto& groups) { groups = 1; }, "maxGroups 1, at least 2 needed"}};
  for (const auto& [spoil, message] : refused) {
    StereoSolveInput input = MakeScene();
    size_t maxGroups = 20;
    spoil(input, maxGroups);
    EXPECT_EQ(StationErrorOf([&] { EstimateStereoUncertainty(input, maxGroups); }), "stereo uncertainty: " + message);
  }
  EXPECT_EQ(StationErrorOf([] { SolveStereo(StereoSolveInput()); }), "stereo solve: 0 views, at least 1 needed");
  // Without an intrinsic guess OpenCV starts from a mono calibration, which takes a planar board only.
  StereoSolveInput input = MakeScene();
  input.flags = 0;
  input.objectPoints[0][0].z = 1;
  const std::string failed = StationErrorOf([&] { EstimateStereoUncertainty(input); });
  EXPECT_EQ(failed.rfind("stereo uncertainty: the full solve failed: ", 0), 0u) << failed;
  EXPECT_EQ(StationErrorOf([&] { SolveStereo(input); }).rfind("stereo solve failed: ", 0), 0u);
}
