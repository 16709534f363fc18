#include "station/CalibrationFiles.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <vector>

#include <opencv2/calib3d.hpp>

#include "station/InputFiles.h"

namespace {

// What messages about a calibration being written call it.
const std::string kWritten = "stereo calibration";

enum class Shape { k3x3, kDistortion, k3Elements };

bool IsCoefficientCount(size_t count) {
  return count == 4 || count == 5 || count == 8 || count == 12 || count == 14;
}

std::string Dimensions(const cv::Mat& matrix) {
  std::string text = std::to_string(matrix.rows) + "x" + std::to_string(matrix.cols);
  return matrix.channels() == 1 ? text : text + "x" + std::to_string(matrix.channels());
}

// matrix at double precision, distortion as one row; throws "<where>: <name> ..." unless it has the shape its role
// asks for and only finite values.
cv::Mat Checked(const cv::Mat& matrix, Shape shape, const std::string& name, const std::string& where) {
  const auto fail = [&](const std::string& what) { throw StationError(where + ": " + name + " " + what); };
  cv::Mat value;
  matrix.convertTo(value, CV_64F);
  const bool oneChannel = value.channels() == 1;
  switch (shape) {
    case Shape::k3x3:
      if (!oneChannel || value.rows != 3 || value.cols != 3) fail("is " + Dimensions(value) + ", expected 3x3");
      break;
    case Shape::kDistortion:
      if (!value.empty() && (!oneChannel || (value.rows != 1 && value.cols != 1))) {
        fail("is " + Dimensions(value) + ", expected one row or one column");
      }
      if (!IsCoefficientCount(value.total())) {
        fail("has " + std::to_string(value.total()) + " coefficients, expected 4, 5, 8, 12 or 14");
      }
      value = value.reshape(1, 1);
      break;
    case Shape::k3Elements:
      if (!oneChannel || value.total() != 3) fail("is " + Dimensions(value) + ", expected 3 elements");
      break;
  }
  if (!cv::checkRange(value)) fail("holds a value that is not finite");
  return value;
}

// The calibration to be written, at double precision with its shapes and values checked.
StereoCalibration CheckedForWriting(const StereoCalibration& calibration) {
  const cv::Size size = calibration.imageSize;
  if (size.width < 1 || size.height < 1) {
    throw StationError(kWritten + ": image size " + std::to_string(size.width) + "x" + std::to_string(size.height) +
                       ", expected positive sides");
  }
  StereoCalibration checked;
  checked.imageSize = size;
  checked.K1 = Checked(calibration.K1, Shape::k3x3, "M1", kWritten);
  checked.D1 = Checked(calibration.D1, Shape::kDistortion, "D1", kWritten);
  checked.K2 = Checked(calibration.K2, Shape::k3x3, "M2", kWritten);
  checked.D2 = Checked(calibration.D2, Shape::kDistortion, "D2", kWritten);
  checked.R = Checked(calibration.R, Shape::k3x3, "R", kWritten);
  checked.T = calibration.T;
  Checked(cv::Mat(calibration.T), Shape::k3Elements, "T", kWritten);
  return checked;
}

struct Rectification {
  cv::Mat R1, R2, P1, P2, Q;
};

Rectification Rectify(const StereoCalibration& calibration) {
  Rectification r;
  try {
    cv::stereoRectify(calibration.K1, calibration.D1, calibration.K2, calibration.D2, calibration.imageSize,
                      calibration.R, cv::Mat(calibration.T), r.R1, r.R2, r.P1, r.P2, r.Q, cv::CALIB_ZERO_DISPARITY, -1);
  } catch (const cv::Exception&) {
    // OpenCV asserts that T is not zero; that and a result of NaN (a zero focal length) are one fault here.
    r = {};
  }
  for (const cv::Mat* matrix : {&r.R1, &r.R2, &r.P1, &r.P2, &r.Q}) {
    if (matrix->empty() || !cv::checkRange(*matrix)) {
      throw StationError(kWritten + ": cv::stereoRectify gives no finite rectification");
    }
  }
  return r;
}

// OpenCV reports a parse error with "(<line>): <what>" as its function; any other failure gives no detail.
std::string ParseErrorDetail(const cv::Exception& error) {
  int line = 0;
  int consumed = 0;
  if (error.code != cv::Error::StsParseError || std::sscanf(error.func.c_str(), "(%d): %n", &line, &consumed) != 1 ||
      consumed == 0) {
    return "";
  }
  std::string what = error.func.substr(static_cast<size_t>(consumed));
  std::replace(what.begin(), what.end(), '\n', ' ');
  return " (line " + std::to_string(line) + ": " + what + ")";
}

// text as cv::FileStorage reads it, its top level a map (or nothing); anything else throws naming path.
cv::FileStorage OpenedStorage(const std::string& text, const std::string& path) {
  std::string detail;
  try {
    cv::FileStorage storage(text, cv::FileStorage::READ | cv::FileStorage::MEMORY);
    if (storage.isOpened() && (storage.root().isMap() || storage.root().isNone())) return storage;
  } catch (const cv::Exception& error) {
    detail = ParseErrorDetail(error);
  }
  throw StationError(path + ": not a YAML file OpenCV reads" + detail);
}

// The matrix stored under name (rows, cols and as many numbers in data), checked for its role.
cv::Mat StoredMatrix(const cv::FileStorage& storage, const std::string& name, Shape shape, const std::string& path) {
  const cv::FileNode node = storage[name];
  if (node.empty()) throw StationError(path + ": no matrix " + name);
  const auto notMatrix = [&]() { return StationError(path + ": " + name + " is not a matrix"); };
  if (!node.isMap() || !node["rows"].isInt() || !node["cols"].isInt() || !node["data"].isSeq()) throw notMatrix();
  const int rows = node["rows"];
  const int cols = node["cols"];
  const cv::FileNode data = node["data"];
  if (rows < 1 || cols < 1 || data.size() != static_cast<size_t>(rows) * static_cast<size_t>(cols)) throw notMatrix();
  cv::Mat matrix(rows, cols, CV_64F);
  auto value = matrix.begin<double>();
  for (const cv::FileNode& element : data) {
    if (!element.isInt() && !element.isReal()) throw notMatrix();
    *value++ = element.real();
  }
  return Checked(matrix, shape, name, path);
}

// image_width and image_height, both or neither (0x0).
cv::Size StoredImageSize(const cv::FileStorage& storage, const std::string& path) {
  const cv::FileNode width = storage["image_width"];
  const cv::FileNode height = storage["image_height"];
  if (width.empty() && height.empty()) return {};
  if (!width.isInt() || !height.isInt() || static_cast<int>(width) < 1 || static_cast<int>(height) < 1) {
    throw StationError(path + ": image_width and image_height are not two positive integers");
  }
  return {static_cast<int>(width), static_cast<int>(height)};
}

// The contents of a regular file of at most kMaxCalibrationFileBytes.
std::string BoundedFileText(const std::string& path) {
  const std::vector<unsigned char> bytes = ReadBinaryFile(path, kMaxCalibrationFileBytes);
  return std::string(bytes.begin(), bytes.end());
}

// The shortest text that reads back as the same double.
std::string Number(double value) {
  char buffer[32];
  const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string RosMatrix(const char* key, const cv::Mat& matrix) {
  std::string text = std::string(key) + ":\n  rows: " + std::to_string(matrix.rows) +
                     "\n  cols: " + std::to_string(matrix.cols) + "\n  data: [";
  for (auto value = matrix.begin<double>(); value != matrix.end<double>(); ++value) {
    text += (value == matrix.begin<double>() ? "" : ", ") + Number(*value);
  }
  return text + "]\n";
}

bool IsRosName(const std::string& name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
  });
}

}  // namespace

OpenCvCalibrationText OpenCvCalibrationYaml(const StereoCalibration& calibration) {
  const StereoCalibration c = CheckedForWriting(calibration);
  const Rectification r = Rectify(c);
  cv::FileStorage intrinsics(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  intrinsics << "M1" << c.K1 << "D1" << c.D1 << "M2" << c.K2 << "D2" << c.D2;
  intrinsics << "image_width" << c.imageSize.width << "image_height" << c.imageSize.height;
  cv::FileStorage extrinsics(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  extrinsics << "R" << c.R << "T" << cv::Mat(c.T);
  extrinsics << "R1" << r.R1 << "R2" << r.R2 << "P1" << r.P1 << "P2" << r.P2 << "Q" << r.Q;
  return {intrinsics.releaseAndGetString(), extrinsics.releaseAndGetString()};
}

StereoCalibration ParseOpenCvCalibration(const OpenCvCalibrationText& text, const std::string& intrinsicsPath,
                                         const std::string& extrinsicsPath) {
  StereoCalibration calibration;
  const cv::FileStorage intrinsics = OpenedStorage(text.intrinsics, intrinsicsPath);
  calibration.K1 = StoredMatrix(intrinsics, "M1", Shape::k3x3, intrinsicsPath);
  calibration.D1 = StoredMatrix(intrinsics, "D1", Shape::kDistortion, intrinsicsPath);
  calibration.K2 = StoredMatrix(intrinsics, "M2", Shape::k3x3, intrinsicsPath);
  calibration.D2 = StoredMatrix(intrinsics, "D2", Shape::kDistortion, intrinsicsPath);
  calibration.imageSize = StoredImageSize(intrinsics, intrinsicsPath);
  const cv::FileStorage extrinsics = OpenedStorage(text.extrinsics, extrinsicsPath);
  calibration.R = StoredMatrix(extrinsics, "R", Shape::k3x3, extrinsicsPath);
  const cv::Mat T = StoredMatrix(extrinsics, "T", Shape::k3Elements, extrinsicsPath);
  calibration.T = {T.at<double>(0), T.at<double>(1), T.at<double>(2)};
  return calibration;
}

StereoCalibration ReadOpenCvCalibration(const std::string& intrinsicsPath, const std::string& extrinsicsPath) {
  return ParseOpenCvCalibration({BoundedFileText(intrinsicsPath), BoundedFileText(extrinsicsPath)}, intrinsicsPath,
                                extrinsicsPath);
}

std::string RosCameraInfoYaml(const StereoCalibration& calibration, int camera, const std::string& cameraName) {
  if (camera != 0 && camera != 1) {
    throw StationError("camera " + std::to_string(camera) + ": expected 0 (main) or 1 (second)");
  }
  if (!IsRosName(cameraName)) throw StationError("camera name: expected letters, digits and underscores");
  const StereoCalibration c = CheckedForWriting(calibration);
  const Rectification r = Rectify(c);
  const cv::Mat& D = camera == 0 ? c.D1 : c.D2;
  if (D.cols > 8) {
    throw StationError(kWritten + ": D" + std::to_string(camera + 1) + " has " + std::to_string(D.cols) +
                       " coefficients, more than the 8 of ROS's rational_polynomial");
  }
  cv::Mat coefficients = cv::Mat::zeros(1, std::max(D.cols, 5), CV_64F);
  D.copyTo(coefficients.colRange(0, D.cols));
  return "image_width: " + std::to_string(c.imageSize.width) + "\nimage_height: " +
         std::to_string(c.imageSize.height) + "\ncamera_name: " + cameraName + "\n" +
         RosMatrix("camera_matrix", camera == 0 ? c.K1 : c.K2) + "distortion_model: " +
         (D.cols == 8 ? "rational_polynomial" : "plumb_bob") + "\n" +
         RosMatrix("distortion_coefficients", coefficients) +
         RosMatrix("rectification_matrix", camera == 0 ? r.R1 : r.R2) +
         RosMatrix("projection_matrix", camera == 0 ? r.P1 : r.P2);
}

RectifyingWarp RectifyingWarpOf(const StereoCalibration& calibration, int camera) {
  if (camera != 0 && camera != 1) {
    throw StationError("camera " + std::to_string(camera) + ": expected 0 (main) or 1 (second)");
  }
  const StereoCalibration c = CheckedForWriting(calibration);
  const Rectification r = Rectify(c);
  const cv::Mat_<double> K = camera == 0 ? c.K1 : c.K2, D = camera == 0 ? c.D1 : c.D2;
  const cv::Mat_<double> R = camera == 0 ? r.R1 : r.R2, P = camera == 0 ? r.P1 : r.P2;
  RectifyingWarp warp{{K(0, 0), K(1, 1), K(0, 2), K(1, 2)},
                      {P(0, 0), P(1, 1), P(0, 2), P(1, 2)},
                      {D(0), D(1), D.cols > 4 ? D(4) : 0.0},
                      {},
                      0.0};
  for (int i = 0; i < 9; ++i) warp.rotation[i] = R(i / 3, i % 3);
  for (int i = 2; i < D.cols; ++i) {
    if (i != 4) warp.leftOut = std::max(warp.leftOut, std::abs(D(i)));
  }
  return warp;
}
