#include "station/CameraModel.h"

bool IsFloatMatrix(const cv::Mat& matrix) {
  return matrix.dims == 2 && matrix.channels() == 1 && (matrix.depth() == CV_32F || matrix.depth() == CV_64F);
}

cv::Matx33d CheckedCameraMatrix(const cv::Mat& K, const std::string& name) {
  cv::Mat camera;
  if (IsFloatMatrix(K) && K.rows == 3 && K.cols == 3) K.convertTo(camera, CV_64F);
  if (camera.empty() || !cv::checkRange(camera) || !(camera.at<double>(0, 0) > 0) ||
      !(camera.at<double>(1, 1) > 0) || camera.at<double>(2, 0) != 0 || camera.at<double>(2, 1) != 0 ||
      camera.at<double>(2, 2) != 1) {
    throw StationError(name + " is not a 3x3 camera matrix (finite, fx and fy positive, last row 0 0 1)");
  }
  return cv::Matx33d(camera.ptr<double>());
}

cv::Mat CheckedLensCoefficients(const cv::Mat& D, const std::string& name) {
  const size_t count = D.total();
  cv::Mat row;
  if (IsFloatMatrix(D) && (D.rows == 1 || D.cols == 1) &&
      (count == 4 || count == 5 || count == 8 || count == 12 || count == 14)) {
    D.clone().reshape(1, 1).convertTo(row, CV_64F);
  }
  if (row.empty() || !cv::checkRange(row)) {
    throw StationError(name + " is not a row or column of 4, 5, 8, 12 or 14 finite coefficients");
  }
  return row;
}
