// qlm.Engine and qlm.Record: the library's exported path (INIT, PROCESS,
// GET_RESULT) on an engine of the caller's own, through the same functions
// the exports call (api/CalibrationRun.h).
#include <cstring>
#include <memory>
#include <mutex>

#include "api/CalibrationRecord.h"
#include "api/CalibrationRun.h"
#include "api/Exports.h"
#include "engine/dualCalibration.h"
#include "framework/PicturesDir.h"
#include "python/ModuleSupport.h"
#include "station/RunOutputs.h"
#include "station/StationError.h"

namespace {

CalibrationRecord RecordOf(const py::bytes& data) {
  const std::string bytes = data;
  if (bytes.size() != kCalibrationRecordSize) {
    throw StationError("record: expected " + std::to_string(kCalibrationRecordSize) + " bytes, got " +
                       std::to_string(bytes.size()));
  }
  CalibrationRecord record;
  std::memcpy(record.bytes, bytes.data(), kCalibrationRecordSize);
  return record;
}

py::bytes BytesOf(const CalibrationRecord& record) {
  return py::bytes(reinterpret_cast<const char*>(record.bytes), kCalibrationRecordSize);
}

// One engine with its library files' folder; calls on one engine from
// several threads wait for each other.
class Engine {
 public:
  // picturesDir: as qlm-calib's --pictures-dir, empty for its default.
  explicit Engine(const std::string& picturesDir)
      : mEngine(std::make_unique<dualCalibration>()), mPicturesDir(ChoosePicturesDir(picturesDir)) {}

  int Init(const std::string& params, const std::string& recordFile, const std::optional<py::bytes>& record, int a,
           int b, int c, int d) {
    const std::optional<CalibrationRecord> caller = record ? std::optional(RecordOf(*record)) : std::nullopt;
    py::gil_scoped_release released;
    const std::lock_guard<std::mutex> hold(mLock);
    const ThreadPicturesDir scope(mPicturesDir);
    return InitCalibrationRun(*mEngine, reinterpret_cast<const unsigned char*>(params.c_str()),
                              reinterpret_cast<const unsigned char*>(recordFile.c_str()),
                              caller ? caller->bytes : nullptr, a, b, c, d);
  }

  int Process(const py::handle& main, const py::handle& second, int recordSelect) {
    const cv::Mat mainImage = GrayImageOf(main, "main");
    const cv::Mat secondImage = GrayImageOf(second, "second");
    py::gil_scoped_release released;
    const std::lock_guard<std::mutex> hold(mLock);
    const ThreadPicturesDir scope(mPicturesDir);
    return ProcessImagePair(*mEngine, mainImage.data, secondImage.data, mainImage.cols, mainImage.rows,
                            secondImage.cols, secondImage.rows, recordSelect, nullptr);
  }

  CalibrationRecord Result() {
    const std::lock_guard<std::mutex> hold(mLock);
    return mEngine->mResultRecord;
  }

  const std::string& PicturesDir() const { return mPicturesDir; }

 private:
  std::unique_ptr<dualCalibration> mEngine;
  const std::string mPicturesDir;
  std::mutex mLock;
};

py::array HomographyArray(const CalibrationRecord& record) {
  const RecordHomography h = RecordHOtp(record);
  py::array_t<float> array({3, 3});
  std::memcpy(array.mutable_data(), h.data(), sizeof(float) * h.size());
  return array;
}

}  // namespace

void BindEngine(py::module_& module) {
  module.attr("RECORD_SIZE") = kCalibrationRecordSize;
  module.def("version", [] { return kLibraryVersion; }, "The library version, 265 (0x109), as QLM_Get_Calib_Vertion gives it.");

  py::class_<CalibrationRecord>(module, "Record", "The 15252-byte calibration record, as bytes and by its named fields.")
      .def(py::init(&RecordOf), py::arg("data"), "A record of exactly 15252 bytes; StationError otherwise.")
      .def_property_readonly("bytes", &BytesOf, "All 15252 bytes.")
      .def_property_readonly("offset_x", &RecordOffsetX,
                             "fOffsetX (offset 48): horizontal offset correction in hundredths of a pixel.")
      .def_property_readonly("h_otp", &HomographyArray,
                             "H_OTP (offsets 112..147): the 3x3 homography from main to second image pixels, float32.")
      .def_property_readonly("refine_count", &RecordRefineCount,
                             "nRefineCount (offset 15222): completed feature-point calibrations modulo 256.")
      .def("__bytes__", &BytesOf);

  py::class_<Engine>(module, "Engine",
                     "The library's engine as a factory tool drives it through INIT, PROCESS and GET_RESULT; each "
                     "Engine is an engine of its own, so engines in different threads run at once.")
      .def(py::init([](const py::object& picturesDir) { return std::make_unique<Engine>(PathOf(picturesDir)); }),
           py::arg("pictures_dir") = py::none(),
           "pictures_dir: where the library writes log.txt and defaultParameters.txt (default: QLM_PICTURES_DIR, "
           "else /sdcard/Pictures/ when it exists, else ./qlm-output/).")
      .def(
          "init",
          [](Engine& engine, const py::object& params, const py::object& recordFile, const std::optional<py::bytes>& record,
             int a, int b, int c, int d) {
            return engine.Init(PathOf(params), PathOf(recordFile), record, a, b, c, d);
          },
          py::arg("params"), py::arg("record_file"), py::arg("record") = py::none(), py::arg("a") = 0,
          py::arg("b") = 0, py::arg("c") = 0, py::arg("d") = 0,
          "INIT: loads the parameter file, writes defaultParameters.txt, reads the file record from record_file and "
          "takes record (15252 bytes; None keeps the caller record as it is). Returns 1, -1 when the parameters did "
          "not load, -2 when the record file could not be opened.")
      .def("process", &Engine::Process, py::arg("main"), py::arg("second"), py::arg("record_select") = 0,
           "PROCESS: refines the homography on one pair of 2-D uint8 C-contiguous images, starting from the file "
           "record (record_select nonzero) or the caller record. Returns -4, -5, 0 or 1 as the export does. The GIL "
           "is released while it runs.")
      .def("get_result", &Engine::Result, "GET_RESULT: the result record.")
      .def_property_readonly("pictures_dir", &Engine::PicturesDir, "Where this engine's library files go.");
}
