#include "station/AndroidMetadata.h"

#include <cmath>

#include "engine/dualCalibration.h"
#include "station/StationError.h"

namespace {

constexpr double kMillimetresPerMetre = 1000.0;
constexpr int kPoseReferencePrimaryCamera = 0;

nlohmann::json CameraEntry(const cv::Mat& K, const cv::Mat& D, const cv::Matx33d& rotation,
                           const cv::Vec3d& positionM) {
  const cv::Vec4d q = QuaternionOf(rotation);
  const auto k = [&](int row, int column) { return K.at<double>(row, column); };
  const auto d = [&](int i) { return D.at<double>(i); };
  return {{"android.lens.intrinsicCalibration", {k(0, 0), k(1, 1), k(0, 2) + 0.5, k(1, 2) + 0.5, k(0, 1)}},
          {"android.lens.distortion", {d(0), d(1), d(4), d(2), d(3)}},
          {"android.lens.poseRotation", {q[0], q[1], q[2], q[3]}},
          {"android.lens.poseTranslation", {positionM[0], positionM[1], positionM[2]}},
          {"android.lens.poseReference", kPoseReferencePrimaryCamera}};
}

}  // namespace

cv::Vec4d QuaternionOf(const cv::Matx33d& r) {
  const double trace = r(0, 0) + r(1, 1) + r(2, 2);
  cv::Vec4d q;  // x, y, z, w
  if (trace > 0.0) {
    const double s = 2.0 * std::sqrt(trace + 1.0);
    q = {(r(2, 1) - r(1, 2)) / s, (r(0, 2) - r(2, 0)) / s, (r(1, 0) - r(0, 1)) / s, 0.25 * s};
  } else if (r(0, 0) >= r(1, 1) && r(0, 0) >= r(2, 2)) {
    const double s = 2.0 * std::sqrt(1.0 + r(0, 0) - r(1, 1) - r(2, 2));
    q = {0.25 * s, (r(0, 1) + r(1, 0)) / s, (r(0, 2) + r(2, 0)) / s, (r(2, 1) - r(1, 2)) / s};
  } else if (r(1, 1) >= r(2, 2)) {
    const double s = 2.0 * std::sqrt(1.0 + r(1, 1) - r(0, 0) - r(2, 2));
    q = {(r(0, 1) + r(1, 0)) / s, 0.25 * s, (r(1, 2) + r(2, 1)) / s, (r(0, 2) - r(2, 0)) / s};
  } else {
    const double s = 2.0 * std::sqrt(1.0 + r(2, 2) - r(0, 0) - r(1, 1));
    q = {(r(0, 2) + r(2, 0)) / s, (r(1, 2) + r(2, 1)) / s, 0.25 * s, (r(1, 0) - r(0, 1)) / s};
  }
  return q * ((q[3] < 0.0 ? -1.0 : 1.0) / cv::norm(q));
}

cv::Matx33d BackCameraRotation(int sensorOrientationDeg) {
  // Rows: the camera's x, y and z axes in sensor coordinates; z looks out of the back.
  switch (sensorOrientationDeg) {
    case 0: return {1, 0, 0, 0, -1, 0, 0, 0, -1};
    case 90: return {0, -1, 0, -1, 0, 0, 0, 0, -1};
    case 180: return {-1, 0, 0, 0, 1, 0, 0, 0, -1};
    case 270: return {0, 1, 0, 1, 0, 0, 0, 0, -1};
    default: throw StationError("--sensor-orientation: expected 0, 90, 180 or 270, got " + std::to_string(sensorOrientationDeg));
  }
}

nlohmann::json AndroidMetadataJson(const dualCalibration& engine, double squareMm, int sensorOrientationDeg) {
  if (engine.m_nSquareSize == 0) throw StationError("--android-metadata: nSquareSize is 0, the translation has no scale");
  const double metresPerUnit = (squareMm > 0.0 ? squareMm / engine.m_nSquareSize : 1.0) / kMillimetresPerMetre;
  const cv::Matx33d mainRotation = BackCameraRotation(sensorOrientationDeg);
  const cv::Matx33d R(engine.R);
  // x2 = R * x1 + T with x1 = M * p: the second camera's centre is p = -M^T * R^T * T.
  const cv::Vec3d secondPosition = -(mainRotation.t() * (R.t() * engine.mT)) * metresPerUnit;
  return {{"main", CameraEntry(engine.K1, engine.D1, mainRotation, cv::Vec3d(0.0, 0.0, 0.0))},
          {"second", CameraEntry(engine.K2, engine.D2, R * mainRotation, secondPosition)}};
}
