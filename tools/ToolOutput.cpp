#include "tools/ToolOutput.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tools/ToolInput.h"

namespace fs = std::filesystem;

namespace {

std::string EnsureDirectory(const std::string& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (!fs::is_directory(directory)) throw ToolError(directory + ": cannot create directory");
  return directory;
}

std::string TemporaryPathBeside(const std::string& path) {
  const fs::path target(path);
  const std::string name = ".tmp-" + std::to_string(getpid()) + "-" + target.filename().string();
  return (target.parent_path() / name).string();
}

}  // namespace

std::string SelectPicturesDir(const std::string& option) {
  std::string directory;
  const char* environment = std::getenv("QLM_PICTURES_DIR");
  if (!option.empty()) {
    directory = EnsureDirectory(option);
  } else if (environment != nullptr && environment[0] != '\0') {
    directory = EnsureDirectory(environment);
  } else if (fs::is_directory("/sdcard/Pictures/")) {
    directory = "/sdcard/Pictures/";
  } else {
    directory = EnsureDirectory("qlm-output");
  }
  setenv("QLM_PICTURES_DIR", directory.c_str(), 1);
  return directory;
}

void WriteAtomically(const std::string& path, const std::function<bool(const std::string&)>& write) {
  const std::string temporary = TemporaryPathBeside(path);
  std::error_code error;
  if (!write(temporary) || !fs::exists(temporary)) {
    fs::remove(temporary, error);
    throw ToolError(path + ": cannot write file");
  }
  fs::rename(temporary, path, error);
  if (error) {
    fs::remove(temporary, error);
    throw ToolError(path + ": cannot write file");
  }
}

void WriteBytesAtomically(const std::string& path, const void* data, size_t size) {
  WriteAtomically(path, [&](const std::string& temporary) {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    out.close();
    return static_cast<bool>(out);
  });
}

void WriteJsonAtomically(const std::string& path, const nlohmann::json& document) {
  const std::string text = document.dump(2) + "\n";
  WriteBytesAtomically(path, text.data(), text.size());
}

nlohmann::json MatrixJson(const cv::Mat& matrix) {
  cv::Mat values;
  matrix.convertTo(values, CV_64F);
  nlohmann::json rows = nlohmann::json::array();
  for (int r = 0; r < values.rows; ++r) {
    nlohmann::json row = nlohmann::json::array();
    for (int c = 0; c < values.cols; ++c) row.push_back(values.at<double>(r, c));
    rows.push_back(row);
  }
  return rows;
}
