// What every part of the Python module qlm shares: numpy arrays in and out
// (checked, never read out of bounds), paths from str or os.PathLike, JSON
// as Python objects, a station run with its outputs committed all together,
// and the exceptions the module raises.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

namespace py = pybind11;

// A 2-D uint8 array with packed rows, as an image over the array's own
// memory (the caller keeps the array alive and holds the GIL). Throws
// StationError naming the array for another dtype, shape or layout.
cv::Mat GrayImageOf(const py::handle& object, const std::string& name);
// A copy of an image of any of OpenCV's depths with one channel as a 2-D array.
py::array ArrayOf(const cv::Mat& image);
// os.fspath(object); an empty string for None.
std::string PathOf(const py::handle& object);
// The document as Python's json module reads it.
py::object PythonJson(const nlohmann::json& document);

// The keyword options of one call, each read with its default; an option
// the call does not know is a StationError naming it, and so is a value of
// the wrong type.
class Keywords {
 public:
  Keywords(const py::dict& given, const std::string& call, const std::vector<std::string>& known);
  std::string Path(const char* key) const;  // "" when absent or None
  // Two paths, or none when absent or None.
  std::vector<std::string> PathPair(const char* key, const char* what) const;
  std::string Text(const char* key, const std::string& byDefault) const;
  bool Flag(const char* key, bool byDefault) const;
  int Integer(const char* key, int byDefault) const;
  double Number(const char* key, double byDefault) const;
  bool Given(const char* key) const;  // present and not None

 private:
  template <typename Value>
  Value Read(const char* key, const Value& byDefault, const char* type) const;
  const py::dict& mGiven;
};

// Runs body with the GIL released. With libraryDir set, the library's
// files go to the directory chosen as qlm-calib's --pictures-dir chooses it
// (the option, else QLM_PICTURES_DIR, ...) for this thread, and after body
// the files the run named there are checked; then every output is put in
// place. Any failure discards every output of the run and is rethrown.
void RunCommitted(const std::optional<std::string>& picturesDir, bool libraryFiles,
                  const std::function<void(const std::string& libraryDir)>& body);

// qlm.StationError and qlm.StorageError, and the translation of StationError,
// StorageError and cv::Exception to them with the tool's message.
void BindErrors(py::module_& module);

void BindEngine(py::module_& module);
void BindStation(py::module_& module);
void BindSynthetic(py::module_& module);
