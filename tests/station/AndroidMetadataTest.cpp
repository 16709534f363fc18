// The metadata against the camera2 conventions: R and T rebuilt with the documented quaternion matrix and
// p_camera = R * (p - t) match the calibration.
#include "tests/support/TestPrelude.h"

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"
#include "station/AndroidMetadata.h"
#include "station/StationError.h"

namespace {

// The rotation matrix of android.lens.poseRotation as the camera2 documentation writes it.
cv::Matx33d DocumentedRotation(const nlohmann::json& q) {
  const double x = q[0], y = q[1], z = q[2], w = q[3];
  return {1 - 2 * y * y - 2 * z * z, 2 * x * y - 2 * z * w,     2 * x * z + 2 * y * w,
          2 * x * y + 2 * z * w,     1 - 2 * x * x - 2 * z * z, 2 * y * z - 2 * x * w,
          2 * x * z - 2 * y * w,     2 * y * z + 2 * x * w,     1 - 2 * x * x - 2 * y * y};
}

cv::Vec3d Vector(const nlohmann::json& v) { return {v[0].get<double>(), v[1].get<double>(), v[2].get<double>()}; }

}  // namespace

// Round trips in double arithmetic through a quaternion and back: 1e-9 for rotations, 1e-6 m for translations. T is
// in squares of 25 units of 24.5 mm each, or without a square size in millimetres.
TEST(AndroidMetadata, RoundTripOfRAndTForEverySensorOrientation) {
  const StereoRig rig = ExampleStereoRig({2000, 1500}, {2000, 1500});
  auto engine = std::make_unique<dualCalibration>();
  engine->R = cv::Mat(rig.R);
  engine->mT = rig.T;
  engine->K1 = (cv::Mat_<double>(3, 3) << 1600, 0.25, 1001, 0, 1602, 749, 0, 0, 1);
  engine->D1 = (cv::Mat_<double>(1, 8) << 0.1, -0.2, 0.003, 0.004, 0.5, 0, 0, 0);
  engine->m_nSquareSize = 25;
  for (int orientation : {0, 90, 180, 270}) {
    const nlohmann::json metadata = AndroidMetadataJson(*engine, 24.5, orientation);
    const nlohmann::json &main = metadata["main"], &second = metadata["second"];
    const cv::Matx33d mainRotation = DocumentedRotation(main["android.lens.poseRotation"]);
    const cv::Matx33d secondRotation = DocumentedRotation(second["android.lens.poseRotation"]);
    const cv::Vec3d offsetM = Vector(second["android.lens.poseTranslation"]) - Vector(main["android.lens.poseTranslation"]);
    // x2 = R * x1 + T with x_i = R_i * (p - t_i): R = R2 * R1^T, T = -R2 * (t2 - t1).
    EXPECT_LT(cv::norm(secondRotation * mainRotation.t() - rig.R, cv::NORM_INF), 1e-9) << orientation;
    EXPECT_LT(cv::norm(-(secondRotation * offsetM) - rig.T * (24.5 / 25.0 / 1000.0)), 1e-6) << orientation;
    EXPECT_EQ(main["android.lens.poseTranslation"].dump() + main["android.lens.poseReference"].dump() +
                  second["android.lens.poseReference"].dump(), "[0.0,0.0,0.0]00");
    EXPECT_GE(second["android.lens.poseRotation"][3].get<double>(), 0.0);  // w of a quaternion is kept >= 0
    // The back camera looks along -z of the sensor axes.
    EXPECT_EQ(cv::Vec3d(mainRotation(2, 0), mainRotation(2, 1), mainRotation(2, 2)), cv::Vec3d(0, 0, -1));
  }
  const nlohmann::json metadata = AndroidMetadataJson(*engine, 0.0, 90), &q = metadata["main"]["android.lens.poseRotation"];
  EXPECT_LT(cv::norm(cv::Vec4d(q[0], q[1], q[2], q[3]) - cv::Vec4d(std::sqrt(0.5), -std::sqrt(0.5), 0.0, 0.0)), 1e-9) << q;
  EXPECT_EQ(metadata["main"]["android.lens.intrinsicCalibration"], nlohmann::json({1600, 1602, 1001.5, 749.5, 0.25}));
  EXPECT_EQ(metadata["main"]["android.lens.distortion"], nlohmann::json({0.1, -0.2, 0.5, 0.003, 0.004}));
  EXPECT_NEAR(cv::norm(Vector(metadata["second"]["android.lens.poseTranslation"])), cv::norm(rig.T) / 1000.0, 1e-12);
  engine->m_nSquareSize = 0;
  EXPECT_THROW(AndroidMetadataJson(*engine, 0.0, 90), StationError);
}
