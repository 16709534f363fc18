#include "station/CalibrationFiles.h"

#include "tests/support/TestPrelude.h"
#include "tests/support/StationErrorOf.h"

#include <filesystem>

#include <opencv2/calib3d.hpp>

namespace {

// Round numbers whose rectification OpenCV computes exactly: dyadic focal lengths and centres, no distortion, the
// second camera 40 units to the right. D1 has 4 coefficients, D2 the rational model's 8.
StereoCalibration SimpleRig() {
  StereoCalibration rig;
  rig.imageSize = {1280, 960};
  rig.K1 = (cv::Mat_<double>(3, 3) << 1024, 0, 639.5, 0, 1024, 479.5, 0, 0, 1);
  rig.K2 = rig.K1.clone();
  rig.D1 = cv::Mat::zeros(1, 4, CV_64F);
  rig.D2 = cv::Mat::zeros(1, 8, CV_64F);
  rig.R = cv::Mat::eye(3, 3, CV_64F);
  rig.T = {-40, 0, 0};
  return rig;
}

// A phone's rig, every number using its whole mantissa; D2 given as a column.
StereoCalibration PhoneRig() {
  StereoCalibration rig;
  rig.imageSize = {4000, 3000};
  rig.K1 = (cv::Mat_<double>(3, 3) << 1600 + 1.0 / 3, 0, 2000 + 1.0 / 7, 0, 1599 + 2.0 / 3, 1500 - 1.0 / 9,  //
            0, 0, 1);
  rig.K2 = (cv::Mat_<double>(3, 3) << 1580 + 1.0 / 11, 0, 1990 - 1.0 / 13, 0, 1581 - 1.0 / 17, 1510 + 1.0 / 19,  //
            0, 0, 1);
  rig.D1 = (cv::Mat_<double>(1, 5) << -0.3 + 1e-3 / 3, 0.1 + 1e-3 / 7, 1e-4 / 3, -2e-4 / 7, 0.01 / 3);
  rig.D2 = (cv::Mat_<double>(8, 1) << -0.25 / 3, 0.05 / 7, 3e-5 / 11, -4e-5 / 13, 0.02 / 3, 0.01 / 7, 1e-3 / 3,
            2e-3 / 9);
  cv::Rodrigues(cv::Vec3d(0.0057, -0.0076, 0.0047), rig.R);
  rig.T = {-40.0029, 0.5996, 1.1766};
  return rig;
}

std::vector<double> Values(const cv::Mat& matrix) {
  EXPECT_EQ(matrix.type(), CV_64F);
  return {matrix.begin<double>(), matrix.end<double>()};
}

// Matrices written by plain cv::FileStorage, as OpenCV's stereo calibration sample writes them.
std::string SampleYaml(const std::vector<std::pair<const char*, cv::Mat>>& matrices) {
  cv::FileStorage storage(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  for (const auto& [name, matrix] : matrices) storage << name << matrix;
  return storage.releaseAndGetString();
}

struct Rectification {
  cv::Mat R1, R2, P1, P2, Q;
};

Rectification RectificationOf(const StereoCalibration& rig) {
  Rectification r;
  cv::stereoRectify(rig.K1, rig.D1, rig.K2, rig.D2, rig.imageSize, rig.R, cv::Mat(rig.T), r.R1, r.R2, r.P1, r.P2, r.Q,
                    cv::CALIB_ZERO_DISPARITY, -1);
  return r;
}

}  // namespace

// Every number comes back with all its bits, through files and through texts; distortion comes back as a row; a file
// made elsewhere with a column of coefficients and no image size reads as a row and 0x0.
TEST(CalibrationFiles, OpenCvFilesReadBackBitForBit) {
  TempDir dir;
  const StereoCalibration rig = PhoneRig();
  const OpenCvCalibrationText text = OpenCvCalibrationYaml(rig);
  WriteFile(dir.File("intrinsics.yml"), text.intrinsics);
  WriteFile(dir.File("extrinsics.yml"), text.extrinsics);
  for (const StereoCalibration& read : {ReadOpenCvCalibration(dir.File("intrinsics.yml"), dir.File("extrinsics.yml")),
                                        ParseOpenCvCalibration(text, "in.yml", "ex.yml")}) {
    EXPECT_EQ(read.imageSize, rig.imageSize);
    EXPECT_EQ(Values(read.K1), Values(rig.K1));
    EXPECT_EQ(Values(read.K2), Values(rig.K2));
    EXPECT_EQ(Values(read.D1), Values(rig.D1));
    EXPECT_EQ(Values(read.D2), Values(rig.D2));
    EXPECT_EQ(read.D2.size(), cv::Size(8, 1));
    EXPECT_EQ(Values(read.R), Values(rig.R));
    EXPECT_EQ(read.T, rig.T);
  }
  const StereoCalibration elsewhere = ParseOpenCvCalibration(
      {SampleYaml({{"M1", rig.K1}, {"D1", rig.D1.t()}, {"M2", rig.K2}, {"D2", rig.D2}}),
       SampleYaml({{"R", rig.R}, {"T", cv::Mat(rig.T).t()}})},
      "in.yml", "ex.yml");
  EXPECT_EQ(elsewhere.imageSize, cv::Size());
  EXPECT_EQ(elsewhere.D1.size(), cv::Size(5, 1));
  EXPECT_EQ(Values(elsewhere.D1), Values(rig.D1));
  EXPECT_EQ(elsewhere.T, rig.T);
}

// Plain cv::FileStorage finds the sample's names with their shapes, T a 3x1 double matrix, and R1 to Q as
// cv::stereoRectify gives them with zero disparity and alpha -1.
TEST(CalibrationFiles, OpenCvFilesHoldTheStereoSampleLayout) {
  const StereoCalibration rig = PhoneRig();
  const OpenCvCalibrationText text = OpenCvCalibrationYaml(rig);
  EXPECT_EQ(text.intrinsics.rfind("%YAML:1.0\n", 0), 0u);
  cv::FileStorage intrinsics(text.intrinsics, cv::FileStorage::READ | cv::FileStorage::MEMORY);
  cv::FileStorage extrinsics(text.extrinsics, cv::FileStorage::READ | cv::FileStorage::MEMORY);
  const std::pair<const char*, cv::Size> shapes[] = {{"M1", {3, 3}}, {"D1", {5, 1}}, {"M2", {3, 3}}, {"D2", {8, 1}},
                                                     {"R", {3, 3}},  {"T", {1, 3}},  {"R1", {3, 3}}, {"R2", {3, 3}},
                                                     {"P1", {4, 3}}, {"P2", {4, 3}}, {"Q", {4, 4}}};
  for (const auto& [name, size] : shapes) {
    cv::Mat matrix;
    (intrinsics[name].empty() ? extrinsics : intrinsics)[name] >> matrix;
    EXPECT_EQ(matrix.type(), CV_64F) << name;
    EXPECT_EQ(matrix.size(), size) << name;
  }
  EXPECT_EQ(static_cast<int>(intrinsics["image_width"]), 4000);
  EXPECT_EQ(static_cast<int>(intrinsics["image_height"]), 3000);
  const Rectification expected = RectificationOf(rig);
  const std::pair<const char*, cv::Mat> rectification[] = {
      {"R1", expected.R1}, {"R2", expected.R2}, {"P1", expected.P1}, {"P2", expected.P2}, {"Q", expected.Q}};
  for (const auto& [name, matrix] : rectification) {
    cv::Mat stored;
    extrinsics[name] >> stored;
    EXPECT_EQ(Values(stored), Values(matrix)) << name;
  }
}

// Each fault in a file read is one line naming the file: a matrix missing, of the wrong shape or coefficient count,
// not a matrix, not finite; a text OpenCV cannot parse; half an image size; a path that is missing, a folder or over
// 1 MiB (1 MiB itself is read).
TEST(CalibrationFiles, BadOpenCvFilesNameTheFileAndTheFault) {
  const StereoCalibration rig = SimpleRig();
  const cv::Mat K = rig.K1, D = rig.D1, nanR = (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, NAN, 0, 0, 0, 1);
  const std::string in = SampleYaml({{"M1", K}, {"D1", D}, {"M2", K}, {"D2", D}});
  const std::string ex = SampleYaml({{"R", rig.R}, {"T", cv::Mat(rig.T)}});
  const std::string matrixHead = "%YAML:1.0\n---\nM1: !!opencv-matrix\n   rows: 3\n   cols: 3\n   dt: d\n";
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {SampleYaml({{"D1", D}, {"M2", K}, {"D2", D}}), ex, "in.yml: no matrix M1"},
      {in, SampleYaml({{"R", rig.R}}), "ex.yml: no matrix T"},
      {SampleYaml({{"M1", K}, {"D1", cv::Mat::zeros(1, 7, CV_64F)}}), ex,
       "in.yml: D1 has 7 coefficients, expected 4, 5, 8, 12 or 14"},
      {SampleYaml({{"M1", K}, {"D1", D}, {"M2", K}, {"D2", cv::Mat::zeros(2, 4, CV_64F)}}), ex,
       "in.yml: D2 is 2x4, expected one row or one column"},
      {SampleYaml({{"M1", K}, {"D1", D}, {"M2", cv::Mat::eye(3, 4, CV_64F)}}), ex, "in.yml: M2 is 3x4, expected 3x3"},
      {in, SampleYaml({{"R", nanR}}), "ex.yml: R holds a value that is not finite"},
      {in, SampleYaml({{"R", rig.R}, {"T", cv::Mat::zeros(4, 1, CV_64F)}}), "ex.yml: T is 4x1, expected 3 elements"},
      {"%YAML:1.0\n---\nM1: 3\n", ex, "in.yml: M1 is not a matrix"},
      {matrixHead + "   data: [ 1., 0., 0. ]\n", ex, "in.yml: M1 is not a matrix"},
      {matrixHead + "   data: [ 1, 0, 0, 0, 1, 0, 0, 0, one ]\n", ex, "in.yml: M1 is not a matrix"},
      {"image_width: 640\n", ex, "in.yml: not a YAML file OpenCV reads"},
      {"%YAML:1.0\n---\nM1: [ 1, 2\n", ex,
       "in.yml: not a YAML file OpenCV reads (line 3: Missing , between the elements)"},
      {in + "image_width: 640\n", ex, "in.yml: image_width and image_height are not two positive integers"},
      {in, "", "ex.yml: not a YAML file OpenCV reads"}};
  for (const auto& [intrinsics, extrinsics, message] : cases) {
    EXPECT_EQ(StationErrorOf([&] { ParseOpenCvCalibration({intrinsics, extrinsics}, "in.yml", "ex.yml"); }), message);
  }

  TempDir dir;
  WriteFile(dir.File("in.yml"), in);
  WriteFile(dir.File("limit.yml"), ex + "#" + std::string((1 << 20) - ex.size() - 1, 'x'));
  WriteFile(dir.File("over.yml"), std::string((1 << 20) + 1, 'x'));
  EXPECT_EQ(ReadOpenCvCalibration(dir.File("in.yml"), dir.File("limit.yml")).T, rig.T);
  const std::pair<std::string, std::string> paths[] = {
      {dir.File("none.yml"), ": cannot open file"},
      {dir.Path(), ": not a regular file"},
      {dir.File("over.yml"), ": 1048577 bytes, more than the 1048576 this input may hold"}};
  for (const auto& [path, fault] : paths) {
    EXPECT_EQ(StationErrorOf([&] { ReadOpenCvCalibration(dir.File("in.yml"), path); }), path + fault);
  }
}

// A calibration that cannot be written is refused by both writers with one line: an image size, a shape or a
// coefficient count, a value not finite, a rectification that does not exist (T zero, a zero focal length).
TEST(CalibrationFiles, MalformedCalibrationIsNotWritten) {
  const std::pair<std::function<void(StereoCalibration&)>, std::string> cases[] = {
      {[](StereoCalibration& c) { c.imageSize = {0, 960}; },
       "stereo calibration: image size 0x960, expected positive sides"},
      {[](StereoCalibration& c) { c.K1 = cv::Mat(); }, "stereo calibration: M1 is 0x0, expected 3x3"},
      {[](StereoCalibration& c) { c.D2 = cv::Mat::zeros(7, 1, CV_64F); },
       "stereo calibration: D2 has 7 coefficients, expected 4, 5, 8, 12 or 14"},
      {[](StereoCalibration& c) { c.R.at<double>(2, 2) = INFINITY; },
       "stereo calibration: R holds a value that is not finite"},
      {[](StereoCalibration& c) { c.T[1] = NAN; }, "stereo calibration: T holds a value that is not finite"},
      {[](StereoCalibration& c) { c.T = {0, 0, 0}; },
       "stereo calibration: cv::stereoRectify gives no finite rectification"},
      {[](StereoCalibration& c) { c.K2.at<double>(0, 0) = 0; },
       "stereo calibration: cv::stereoRectify gives no finite rectification"}};
  for (const auto& [spoil, message] : cases) {
    StereoCalibration rig = SimpleRig();
    spoil(rig);
    EXPECT_EQ(StationErrorOf([&] { OpenCvCalibrationYaml(rig); }), message);
    EXPECT_EQ(StationErrorOf([&] { RosCameraInfoYaml(rig, 1, "second"); }), message);
  }
}

// The main camera's camera_info byte for byte, 4 coefficients padded to plumb_bob's 5; the second camera's rational
// model and baseline; what ROS cannot hold or name is refused.
TEST(CalibrationFiles, RosCameraInfoOfASimpleRig) {
  StereoCalibration rig = SimpleRig();
  EXPECT_EQ(RosCameraInfoYaml(rig, 0, "main"),
            "image_width: 1280\n"
            "image_height: 960\n"
            "camera_name: main\n"
            "camera_matrix:\n"
            "  rows: 3\n"
            "  cols: 3\n"
            "  data: [1024, 0, 639.5, 0, 1024, 479.5, 0, 0, 1]\n"
            "distortion_model: plumb_bob\n"
            "distortion_coefficients:\n"
            "  rows: 1\n"
            "  cols: 5\n"
            "  data: [0, 0, 0, 0, 0]\n"
            "rectification_matrix:\n"
            "  rows: 3\n"
            "  cols: 3\n"
            "  data: [1, 0, 0, 0, 1, 0, 0, 0, 1]\n"
            "projection_matrix:\n"
            "  rows: 3\n"
            "  cols: 4\n"
            "  data: [1024, 0, 639.5, 0, 0, 1024, 479.5, 0, 0, 0, 1, 0]\n");
  const std::string second = RosCameraInfoYaml(rig, 1, "Second_2");
  EXPECT_NE(second.find("camera_name: Second_2\n"), std::string::npos) << second;
  EXPECT_NE(second.find("distortion_model: rational_polynomial\ndistortion_coefficients:\n  rows: 1\n  cols: 8\n"
                        "  data: [0, 0, 0, 0, 0, 0, 0, 0]\n"),
            std::string::npos)
      << second;
  EXPECT_NE(second.find("  data: [1024, 0, 639.5, -40960, 0, 1024, 479.5, 0, 0, 0, 1, 0]\n"), std::string::npos)
      << second;
  EXPECT_EQ(StationErrorOf([&] { RosCameraInfoYaml(rig, 2, "main"); }), "camera 2: expected 0 (main) or 1 (second)");
  for (const char* name : {"", "main camera", "main:\n"}) {
    EXPECT_EQ(StationErrorOf([&] { RosCameraInfoYaml(rig, 0, name); }),
              "camera name: expected letters, digits and underscores");
  }
  rig.D1 = cv::Mat::zeros(1, 14, CV_64F);
  EXPECT_EQ(StationErrorOf([&] { RosCameraInfoYaml(rig, 0, "main"); }),
            "stereo calibration: D1 has 14 coefficients, more than the 8 of ROS's rational_polynomial");
  EXPECT_NE(RosCameraInfoYaml(rig, 1, "second"), "");  // the other camera is still expressible
}

// ROS's own parser reads both cameras' files back to the same doubles: K, the coefficients (plumb_bob and
// rational_polynomial), the rectification and the projection.
TEST(CalibrationFiles, RosParserReadsCameraInfo) {
#ifndef QLM_ROS_PARSER_PYTHON
  GTEST_SKIP() << "a cross build: the host's ROS parser is not the target's Python";
#else
  TempDir dir;
  const StereoCalibration rig = PhoneRig();
  const Rectification r = RectificationOf(rig);
  for (int camera : {0, 1}) {
    const std::string path = dir.File("camera" + std::to_string(camera) + ".yaml");
    WriteFile(path, RosCameraInfoYaml(rig, camera, camera == 0 ? "main" : "second"));
    const std::string command = std::string(QLM_ROS_PARSER_PYTHON) +
                                " -c 'import sys; from camera_calibration_parsers import readCalibration; "
                                "name, info = readCalibration(sys.argv[1]); print(name, info.width, info.height, "
                                "info.distortion_model, *info.K, *info.D, *info.R, *info.P)' " +
                                path + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string printed;
    for (char buffer[256]; std::fgets(buffer, sizeof buffer, pipe) != nullptr;) printed += buffer;
    ASSERT_EQ(pclose(pipe), 0) << printed << "(Debian's python3-camera-calibration-parsers must be installed)";
    std::istringstream words(printed);
    std::string name, model;
    int width = 0, height = 0;
    words >> name >> width >> height >> model;
    std::vector<double> numbers;
    for (double number = 0; words >> number;) numbers.push_back(number);
    EXPECT_EQ(name, camera == 0 ? "main" : "second");
    EXPECT_EQ(cv::Size(width, height), rig.imageSize);
    EXPECT_EQ(model, camera == 0 ? "plumb_bob" : "rational_polynomial");
    std::vector<double> expected;
    for (const cv::Mat& matrix : camera == 0 ? std::vector<cv::Mat>{rig.K1, rig.D1, r.R1, r.P1}
                                             : std::vector<cv::Mat>{rig.K2, rig.D2, r.R2, r.P2}) {
      const std::vector<double> values = Values(matrix);
      expected.insert(expected.end(), values.begin(), values.end());
    }
    EXPECT_EQ(numbers, expected) << printed;
  }
#endif
}
