#include "python/ModuleSupport.h"

#include <algorithm>
#include <cstring>

#include "station/RunOutputs.h"
#include "station/StationError.h"
#include "framework/PicturesDir.h"

namespace {

// The tool's one line: a message of OpenCV's may end in a newline.
std::string MessageLine(std::string message) {
  while (!message.empty() && message.back() == '\n') message.pop_back();
  return message;
}

}  // namespace

cv::Mat GrayImageOf(const py::handle& object, const std::string& name) {
  if (!py::isinstance<py::array>(object)) {
    throw StationError(name + ": expected a numpy array, got " + std::string(py::str(py::type::of(object).attr("__name__"))));
  }
  const py::array array = py::reinterpret_borrow<py::array>(object);
  if (!array.dtype().is(py::dtype::of<uint8_t>())) {
    throw StationError(name + ": expected dtype uint8, got " + std::string(py::str(array.dtype())));
  }
  if (array.ndim() != 2) {
    throw StationError(name + ": expected a 2-D array (rows, columns), got " + std::to_string(array.ndim()) +
                       " dimensions");
  }
  if (!(array.flags() & py::array::c_style)) {
    throw StationError(name + ": not C-contiguous (numpy.ascontiguousarray gives a packed copy)");
  }
  if (array.shape(0) < 1 || array.shape(1) < 1 || array.shape(0) > INT32_MAX || array.shape(1) > INT32_MAX) {
    throw StationError(name + ": expected at least one row and one column");
  }
  // Only read: the images of a run are never written to.
  return cv::Mat(static_cast<int>(array.shape(0)), static_cast<int>(array.shape(1)), CV_8UC1,
                 const_cast<void*>(array.data()));
}

py::array ArrayOf(const cv::Mat& image) {
  const std::vector<py::ssize_t> shape = {image.rows, image.cols};
  cv::Mat packed = image.isContinuous() ? image : image.clone();
  py::array array;
  switch (image.depth()) {
    case CV_8U:
      array = py::array_t<uint8_t>(shape);
      break;
    case CV_32F:
      array = py::array_t<float>(shape);
      break;
    default:
      packed.convertTo(packed, CV_64F);
      array = py::array_t<double>(shape);
  }
  std::memcpy(array.mutable_data(), packed.data, packed.total() * packed.elemSize());
  return array;
}

std::string PathOf(const py::handle& object) {
  if (object.is_none()) return "";
  return py::module_::import("os").attr("fspath")(object).cast<std::string>();
}

py::object PythonJson(const nlohmann::json& document) {
  return py::module_::import("json").attr("loads")(document.dump());
}

Keywords::Keywords(const py::dict& given, const std::string& call, const std::vector<std::string>& known)
    : mGiven(given) {
  for (const auto& [key, value] : given) {
    const std::string name = py::str(key);
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      throw StationError(call + ": no option '" + name + "'");
    }
  }
}

bool Keywords::Given(const char* key) const { return mGiven.contains(key) && !mGiven[key].is_none(); }

template <typename Value>
Value Keywords::Read(const char* key, const Value& byDefault, const char* type) const {
  if (!Given(key)) return byDefault;
  try {
    return mGiven[key].cast<Value>();
  } catch (const py::cast_error&) {
    throw StationError(std::string(key) + ": expected " + type);
  }
}

std::string Keywords::Path(const char* key) const {
  try {
    return Given(key) ? PathOf(mGiven[key]) : std::string();
  } catch (const py::error_already_set&) {
    throw StationError(std::string(key) + ": expected a path (str or os.PathLike)");
  }
}

std::vector<std::string> Keywords::PathPair(const char* key, const char* what) const {
  if (!Given(key)) return {};
  const py::object value = mGiven[key];
  if (py::isinstance<py::str>(value) || !py::isinstance<py::sequence>(value) || py::len(value) != 2) {
    throw StationError(std::string(key) + ": expected " + what);
  }
  return {PathOf(value[py::int_(0)]), PathOf(value[py::int_(1)])};
}

std::string Keywords::Text(const char* key, const std::string& byDefault) const { return Read(key, byDefault, "a str"); }
bool Keywords::Flag(const char* key, bool byDefault) const { return Read(key, byDefault, "a bool"); }
int Keywords::Integer(const char* key, int byDefault) const { return Read(key, byDefault, "an int"); }
double Keywords::Number(const char* key, double byDefault) const { return Read(key, byDefault, "a number"); }

void RunCommitted(const std::optional<std::string>& picturesDir, bool libraryFiles,
                  const std::function<void(const std::string& libraryDir)>& body) {
  py::gil_scoped_release released;
  try {
    if (libraryFiles) {
      const std::string directory = ChoosePicturesDir(picturesDir.value_or(""));
      const ThreadPicturesDir scope(directory);
      StartLibraryRun(directory);
      body(directory);
      CheckLibraryFiles();
    } else {
      body("");
    }
    CommitOutputs();
  } catch (...) {
    DiscardOutputs();
    throw;
  }
}

void BindErrors(py::module_& module) {
  static py::exception<StationError> stationError(module, "StationError", PyExc_Exception);
  static py::exception<StorageError> storageError(module, "StorageError", stationError.ptr());
  stationError.doc() = "Bad input or any other failure of a station call: qlm-calib's exit status 2, with its message.";
  storageError.doc() = "The run's files could not be stored (qlm-calib's exit status 4).";
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error) std::rethrow_exception(error);
    } catch (const StorageError& e) {
      storageError(MessageLine(e.what()).c_str());
    } catch (const StationError& e) {
      stationError(MessageLine(e.what()).c_str());
    } catch (const cv::Exception& e) {
      stationError(MessageLine(e.what()).c_str());
    }
  });
}
