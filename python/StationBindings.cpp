// qlm.calibrate_chart, qlm.verify and qlm.warp_yuv: the station runs that
// qlm-calib chart, verify and warp-yuv make (station/ChartRun.h,
// station/VerifyRun.h, station/YuvFrameWarp.h), with their files written
// and committed as the command line writes them.
#include <cmath>
#include <map>
#include <memory>
#include <mutex>

#include "engine/dualCalibration.h"
#include "python/ModuleSupport.h"
#include "station/ChartRun.h"
#include "station/CornersFile.h"
#include "station/StationError.h"
#include "station/VerifyRun.h"
#include "station/YuvFrameWarp.h"

namespace {

// Distortion tables load into the library's one pair of global filters, so
// chart runs with tables take turns.
std::mutex gTablesLock;

// The pairs of a run as given: file names, or arrays held with their images.
struct PairsArgument {
  std::vector<std::string> images;
  std::vector<cv::Mat> pixels;
  std::vector<py::object> arrays;  // kept alive while pixels point into them
};

bool IsArray(const py::handle& object) { return py::isinstance<py::array>(object); }

// A sequence of (main, second) pairs, every image a path or every image a
// 2-D uint8 array; pairs[k][0] names an array in messages.
PairsArgument PairsOf(const py::object& pairs) {
  PairsArgument argument;
  if (pairs.is_none()) return argument;
  if (py::isinstance<py::str>(pairs) || !py::isinstance<py::sequence>(pairs)) {
    throw StationError("pairs: expected a sequence of (main, second) pairs");
  }
  const py::sequence list = pairs;
  bool arrays = false;
  for (size_t k = 0; k < list.size(); ++k) {
    const py::object pair = list[k];
    if (py::isinstance<py::str>(pair) || !py::isinstance<py::sequence>(pair) || py::len(pair) != 2) {
      throw StationError("pairs[" + std::to_string(k) + "]: expected a (main, second) pair");
    }
    for (int role = 0; role < 2; ++role) {
      const py::object image = pair[py::int_(role)];
      const std::string name = "pairs[" + std::to_string(k) + "][" + std::to_string(role) + "]";
      if (k == 0 && role == 0) arrays = IsArray(image);
      if (IsArray(image) != arrays) {
        throw StationError(name + ": give every image as a file name or every image as an array");
      }
      if (arrays) {
        argument.pixels.push_back(GrayImageOf(image, name));
        argument.arrays.push_back(image);
        argument.images.push_back(name);
      } else {
        argument.images.push_back(PathOf(image));
      }
    }
  }
  return argument;
}

template <typename Value>
Value Choice(const std::string& option, const std::string& given, const std::map<std::string, Value>& choices) {
  const auto found = choices.find(given);
  if (found != choices.end()) return found->second;
  std::string names;
  for (const auto& [name, value] : choices) names += (names.empty() ? "" : ", ") + name;
  throw StationError(option + ": expected one of " + names + ", got '" + given + "'");
}

double FiniteWithin(const std::string& option, double value, double low, double high) {
  if (!(std::isfinite(value) && value >= low && value <= high)) {
    throw StationError(option + ": expected a finite number in " + std::to_string(low) + ".." + std::to_string(high) +
                       ", got " + std::to_string(value));
  }
  return value;
}

HealthLimits HealthOf(double goodPx, double improvablePx) {
  return {FiniteWithin("good_row_error", goodPx, 0.0, 1e6), FiniteWithin("improvable_row_error", improvablePx, 0.0, 1e6)};
}

// What a chart run hands back to Python.
struct ChartResult {
  nlohmann::json json;  // as --json writes it
  StereoCalibration calibration;
  bool calibrated = false;
  bool checksPassed = false;
  std::vector<std::string> pairResults;
  std::string libraryDir;

  // The delivered run: the one without outliers when there is one.
  const nlohmann::json& Final() const { return json.contains("without_outliers") ? json["without_outliers"] : json; }
  py::object Matrix(const cv::Mat& matrix) const { return calibrated ? py::object(ArrayOf(matrix)) : py::none(); }
  py::object FinalValue(const char* key) const { return Final().contains(key) ? PythonJson(Final()[key]) : py::none(); }
  py::object Value(const char* key) const { return json.contains(key) ? PythonJson(json[key]) : py::none(); }
};

const std::vector<std::string> kChartKeywords = {
    "pairs_dir", "pairs_file", "tables", "json", "save_rectified", "report", "android_metadata", "save_corners",
    "from_corners", "opencv", "ros", "pairing", "corners", "quick_check", "strict_translation", "drop_outliers",
    "folds", "square_mm", "sensor_orientation", "good_row_error", "improvable_row_error", "pictures_dir"};

ChartResult CalibrateChart(const py::object& pairs, const py::object& params, const Keywords& given) {
  ChartOptions options;
  const PairsArgument argument = PairsOf(pairs);
  options.images = argument.images;
  options.pixels = argument.pixels;
  options.params = PathOf(params);
  options.pairsDir = given.Path("pairs_dir");
  options.pairsFile = given.Path("pairs_file");
  options.json = given.Path("json");
  options.saveRectified = given.Path("save_rectified");
  options.reportDir = given.Path("report");
  options.androidMetadata = given.Path("android_metadata");
  options.saveCorners = given.Path("save_corners");
  options.fromCorners = given.Path("from_corners");
  options.openCvDir = given.Path("opencv");
  options.rosDir = given.Path("ros");
  options.tables = given.PathPair("tables", "the main and the second camera's distortion tables");
  options.pairing = Choice<CornerPairing>("pairing", given.Text("pairing", "grid"),
                                          {{"grid", CornerPairing::kGrid}, {"nearest", CornerPairing::kNearest}});
  options.search = Choice<CornerSearch>("corners", given.Text("corners", "any-scale"),
                                        {{"any-scale", CornerSearch::kAnyScale}, {"engine", CornerSearch::kEngine}});
  options.quickCheck = given.Flag("quick_check", true);
  options.strictTranslation = given.Flag("strict_translation", false);
  options.dropOutliers = given.Flag("drop_outliers", false);
  const int folds = given.Integer("folds", 10);
  if (folds < 0 || folds > 1000) throw StationError("folds: expected 0..1000, got " + std::to_string(folds));
  options.uncertaintyFolds = static_cast<size_t>(folds);
  if (given.Given("square_mm")) options.squareMm = FiniteWithin("square_mm", given.Number("square_mm", 0.0), 1e-6, 1e6);
  options.sensorOrientationDeg = given.Integer("sensor_orientation", 90);
  if (options.sensorOrientationDeg % 90 != 0 || options.sensorOrientationDeg < 0 || options.sensorOrientationDeg > 270) {
    throw StationError("sensor_orientation: expected 0, 90, 180 or 270, got " + std::to_string(options.sensorOrientationDeg));
  }
  options.health = HealthOf(given.Number("good_row_error", 0.3), given.Number("improvable_row_error", 0.5));
  const std::optional<std::string> picturesDir =
      given.Given("pictures_dir") ? std::optional(given.Path("pictures_dir")) : std::nullopt;

  ChartResult result;
  RunCommitted(picturesDir, true, [&](const std::string& libraryDir) {
    std::unique_lock<std::mutex> tables(gTablesLock, std::defer_lock);
    if (!options.tables.empty()) tables.lock();
    auto engine = std::make_unique<dualCalibration>();
    ChartRun run(*engine, options);
    run.Calibrate([&](size_t, ChartPairResult pair) { result.pairResults.push_back(PairResultName(pair)); });
    run.RecalibrateWithoutOutliers();
    run.WriteOutputs();
    result.json = run.Json();
    result.calibrated = run.Outcome().Final().status == kChartOk;
    if (result.calibrated) result.calibration = DeliveredCalibration(*engine);
    result.checksPassed = run.ChecksPassed();
    result.libraryDir = libraryDir;
  });
  return result;
}

// What a verification hands back to Python.
struct VerifyResult {
  nlohmann::json json;  // as --json writes it
  bool passed = true;
  py::object Value(const char* key) const { return json.contains(key) ? PythonJson(json[key]) : py::none(); }
};

const std::vector<std::string> kVerifyKeywords = {"calibration", "opencv", "pairs_dir", "pairs_file", "json", "map",
                                                   "max_row_error", "good_row_error", "improvable_row_error"};

VerifyResult Verify(const py::object& pairs, const py::object& params, const Keywords& given) {
  VerifyOptions options;
  const PairsArgument argument = PairsOf(pairs);
  options.images = argument.images;
  options.pixels = argument.pixels;
  options.params = PathOf(params);
  options.calibration = given.Path("calibration");
  options.openCvFiles = given.PathPair("opencv", "intrinsics.yml and extrinsics.yml");
  options.pairsDir = given.Path("pairs_dir");
  options.pairsFile = given.Path("pairs_file");
  options.json = given.Path("json");
  options.map = given.Path("map");
  options.maxRowErrorPx = FiniteWithin("max_row_error", given.Number("max_row_error", 0.0), 0.0, 1e6);
  options.health = HealthOf(given.Number("good_row_error", 0.3), given.Number("improvable_row_error", 0.5));
  VerifyResult result;
  RunCommitted(std::nullopt, false, [&](const std::string&) {
    auto engine = std::make_unique<dualCalibration>();
    VerifyRun run(*engine, options);
    run.Verify(nullptr);
    run.WriteOutputs();
    result.json = run.Json();
    result.passed = run.Passed();
  });
  return result;
}

template <size_t N>
void CopyNumbers(const std::vector<float>& values, const char* option, float* destination) {
  if (values.size() != N) {
    throw StationError(std::string(option) + ": expected " + std::to_string(N) + " numbers, got " +
                       std::to_string(values.size()));
  }
  for (size_t i = 0; i < N; ++i) {
    if (!std::isfinite(values[i])) throw StationError(std::string(option) + ": expected finite numbers");
    destination[i] = values[i];
  }
}

cv::Size SizeOf(const std::pair<int, int>& size, const char* option) {
  const cv::Size frame(size.first, size.second);
  RequireFrameSize(frame, option, std::to_string(size.first) + "x" + std::to_string(size.second));
  return frame;
}

py::tuple WarpYuv(const py::handle& frame, const std::pair<int, int>& size, const std::pair<int, int>& outSize,
                  const std::vector<float>& sourceCamera, const std::vector<float>& targetCamera,
                  const std::vector<float>& radial, const std::vector<float>& rotation,
                  const std::vector<float>& forward, const std::vector<float>& source) {
  auto warp = std::make_unique<YuvFrameWarp>();
  warp->inputSize = SizeOf(size, "size");
  warp->outputSize = SizeOf(outSize, "out_size");
  std::vector<float> camera(4);
  CopyNumbers<4>(sourceCamera, "source_camera", camera.data());
  const std::array<float, 9> sourceMatrix = CameraMatrix(camera[0], camera[1], camera[2], camera[3]);
  CopyNumbers<4>(targetCamera, "target_camera", camera.data());
  const std::array<float, 9> targetMatrix = CameraMatrix(camera[0], camera[1], camera[2], camera[3]);
  std::copy(sourceMatrix.begin(), sourceMatrix.end(), warp->sourceCamera);
  std::copy(targetMatrix.begin(), targetMatrix.end(), warp->targetCamera);
  CopyNumbers<3>(radial, "radial", warp->filter.radialCoefficients);
  CopyNumbers<9>(rotation, "rotation", warp->rotation);
  CopyNumbers<3>(forward, "forward", warp->filter.forwardTransform);
  CopyNumbers<3>(source, "source", warp->filter.sourceTransform);

  if (!py::isinstance<py::array>(frame)) throw StationError("frame: expected a numpy array of uint8");
  const py::array input = py::reinterpret_borrow<py::array>(frame);
  if (!input.dtype().is(py::dtype::of<uint8_t>())) {
    throw StationError("frame: expected dtype uint8, got " + std::string(py::str(input.dtype())));
  }
  if (!(input.flags() & py::array::c_style)) {
    throw StationError("frame: not C-contiguous (numpy.ascontiguousarray gives a packed copy)");
  }
  const size_t expected = FrameBytes(warp->inputSize);
  if (static_cast<size_t>(input.nbytes()) != expected) {
    throw StationError("frame: expected " + std::to_string(expected) + " bytes for " + std::to_string(size.first) + "x" +
                       std::to_string(size.second) + ", got " + std::to_string(input.nbytes()));
  }
  const int outRows = warp->outputSize.height + warp->outputSize.height / 2;
  py::array_t<uint8_t> output({outRows, warp->outputSize.width});
  const uint8_t* in = static_cast<const uint8_t*>(input.data());
  uint8_t* out = output.mutable_data();
  float zoom = 1.0f;
  {
    py::gil_scoped_release released;
    std::fill(out, out + FrameBytes(warp->outputSize), uint8_t{0});
    zoom = warp->Run(in, out);
  }
  return py::make_tuple(output, zoom);
}

}  // namespace

void BindStation(py::module_& module) {
  py::class_<ChartResult>(module, "ChartResult",
                          "A chart calibration's outcome: the delivered run (the one without outliers when "
                          "drop_outliers ran one) and the whole summary JSON.")
      .def_readonly("calibrated", &ChartResult::calibrated, "The delivered run calibrated.")
      .def_readonly("checks_passed", &ChartResult::checksPassed,
                    "The verdict: calibrated, every limit check passed and both lens models hold out to the corners.")
      .def_property_readonly("exit_status", [](const ChartResult& r) { return r.checksPassed ? kExitSuccess : kExitChecksFailed; },
                             "qlm-calib chart's exit status for this run: 0 or 3.")
      .def_property_readonly("K1", [](const ChartResult& r) { return r.Matrix(r.calibration.K1); }, "Main camera matrix, 3x3 (None without a calibration).")
      .def_property_readonly("D1", [](const ChartResult& r) { return r.Matrix(r.calibration.D1); }, "Main lens coefficients, 1xN.")
      .def_property_readonly("K2", [](const ChartResult& r) { return r.Matrix(r.calibration.K2); }, "Second camera matrix, 3x3.")
      .def_property_readonly("D2", [](const ChartResult& r) { return r.Matrix(r.calibration.D2); }, "Second lens coefficients, 1xN.")
      .def_property_readonly("R", [](const ChartResult& r) { return r.Matrix(r.calibration.R); }, "Rotation from main to second camera, 3x3.")
      .def_property_readonly("T",
                             [](const ChartResult& r) {
                               return r.calibrated ? ArrayOf(cv::Mat(r.calibration.T).reshape(1, 1)).attr("reshape")(3)
                                                   : py::none();
                             },
                             "Translation from main to second camera, in units of nSquareSize, shape (3,).")
      .def_property_readonly("image_size", [](const ChartResult& r) { return r.FinalValue("image_size"); }, "(width, height) of the main images.")
      .def_property_readonly("stereo_rms", [](const ChartResult& r) { return r.FinalValue("rms"); }, "Stereo RMS reprojection error (px).")
      .def_property_readonly("mono_rms", [](const ChartResult& r) { return r.FinalValue("mono_rms"); }, "[main, second] mono RMS (px).")
      .def_property_readonly("view_errors", [](const ChartResult& r) { return r.FinalValue("per_view_errors"); },
                             "Per-view RMS errors {'main': [...], 'second': [...]} in view order.")
      .def_property_readonly("view_pairs", [](const ChartResult& r) { return r.FinalValue("view_pairs"); }, "Each view's pair number, from 1.")
      .def_property_readonly("outlier_pairs", [](const ChartResult& r) { return r.FinalValue("outlier_pairs"); }, "Pair numbers of the outlier views.")
      .def_property_readonly("angles_deg", [](const ChartResult& r) { return r.FinalValue("angles_deg"); }, "Rotation angles x, y, z (deg).")
      .def_property_readonly("intrinsic_std_dev", [](const ChartResult& r) { return r.FinalValue("intrinsic_std_dev"); },
                             "Mono-stage standard deviations of fx fy cx cy k1 k2 k3 p1 p2 per camera.")
      .def_property_readonly("stereo_std_dev", [](const ChartResult& r) { return r.Value("stereo_std_dev"); },
                             "Jackknife standard deviations of T, the angles and fx fy cx cy (None without folds).")
      .def_property_readonly("row_error", [](const ChartResult& r) { return r.Value("row_error"); }, "Rectified row error {rms, p95, max, count}.")
      .def_property_readonly("health", [](const ChartResult& r) { return r.Value("health"); }, "good, improvable or recalibrate.")
      .def_property_readonly("recapture", [](const ChartResult& r) { return r.Value("recapture"); }, "What to capture again.")
      .def_readonly("pair_results", &ChartResult::pairResults,
                    "Per pair, as the corners file names it: view, no board, no board (quick check), corners unlocated or "
                    "order undecided.")
      .def_readonly("library_dir", &ChartResult::libraryDir, "Where the library wrote calibrationResult.txt and calib_log.txt.")
      .def_property_readonly("json", [](const ChartResult& r) { return PythonJson(r.json); }, "The summary exactly as --json writes it.");

  module.def(
      "calibrate_chart",
      [](const py::object& pairs, const py::object& params, const py::kwargs& kwargs) {
        return CalibrateChart(pairs, params, Keywords(kwargs, "calibrate_chart", kChartKeywords));
      },
      py::arg("pairs") = py::none(), py::kw_only(), py::arg("params"),
      "Chessboard stereo calibration, as qlm-calib chart runs it (see qlm.pyi for every option). The GIL is released "
      "while it runs.");

  py::class_<VerifyResult>(module, "VerifyResult", "A verification's figures, health and verdict.")
      .def_readonly("passed", &VerifyResult::passed, "The p95 row error is within max_row_error (always without one).")
      .def_property_readonly("exit_status", [](const VerifyResult& r) { return r.passed ? kExitSuccess : kExitRowErrorOverLimit; },
                             "qlm-calib verify's exit status for this run: 0 or 5.")
      .def_property_readonly("row_error", [](const VerifyResult& r) { return r.Value("row_error"); }, "{rms, p95, max, count} in px.")
      .def_property_readonly("epipolar_error", [](const VerifyResult& r) { return r.Value("epipolar_error"); }, "{rms, p95, max, count} in px.")
      .def_property_readonly("health", [](const VerifyResult& r) { return r.Value("health"); }, "good, improvable or recalibrate.")
      .def_property_readonly("no_board_pairs", [](const VerifyResult& r) { return r.Value("no_board_pairs"); }, "Pairs without the board in both images.")
      .def_property_readonly("json", [](const VerifyResult& r) { return PythonJson(r.json); }, "The figures exactly as --json writes them.");

  module.def(
      "verify",
      [](const py::object& pairs, const py::object& params, const py::kwargs& kwargs) {
        return Verify(pairs, params, Keywords(kwargs, "verify", kVerifyKeywords));
      },
      py::arg("pairs") = py::none(), py::kw_only(), py::arg("params"),
      "Checks a stereo calibration on board pairs, as qlm-calib verify does (see qlm.pyi for every option). The GIL is "
      "released while it runs.");

  module.def("warp_yuv", &WarpYuv, py::arg("frame"), py::arg("size"), py::arg("out_size"), py::arg("source_camera"),
             py::arg("target_camera"), py::arg("radial") = std::vector<float>{0, 0, 0},
             py::arg("rotation") = std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 1},
             py::arg("forward") = std::vector<float>{0, 0, 1}, py::arg("source") = std::vector<float>{0, 0, 1},
             "Undistorts and rectifies one raw 4:2:0 frame with interleaved chroma, as qlm-calib warp-yuv does; "
             "returns (frame of out_size as a (H*3/2, W) uint8 array, zoom). The GIL is released while it runs.");
}
