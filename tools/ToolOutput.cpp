#include "tools/ToolOutput.h"

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <vector>

#include "framework/PicturesDir.h"

namespace fs = std::filesystem;

namespace {

struct WaitingOutput {
  std::string directory;  // the hidden temporary directory
  std::string temporary;
  std::string path;
};

void RemoveWaiting(const WaitingOutput& output) {
  std::error_code error;
  fs::remove_all(output.directory, error);
}

// Everything one run of the tool writes or names.
struct RunOutputs {
  std::string picturesDir;
  timespec start = {};
  std::vector<std::string> libraryFiles;
  std::vector<WaitingOutput> waiting;
  ~RunOutputs() {
    for (const WaitingOutput& output : waiting) RemoveWaiting(output);
  }
};

RunOutputs& Run() {
  static RunOutputs run;
  return run;
}

std::string EnsureDirectory(const std::string& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (!fs::is_directory(directory, error)) throw ToolError(directory + ": cannot create directory");
  return directory;
}

// File times come from the kernel's coarse clock; a fine-grained start could
// lie after a file written in the same tick.
timespec Now() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return now;
}

bool WrittenSince(const std::string& path, const timespec& start) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  const timespec& modified = status.st_mtim;
  return modified.tv_sec > start.tv_sec || (modified.tv_sec == start.tv_sec && modified.tv_nsec >= start.tv_nsec);
}

// A fresh hidden directory beside path for its temporary file.
std::string TemporaryDirectoryBeside(const std::string& path) {
  const fs::path parent = fs::path(path).parent_path();
  std::string pattern = ((parent.empty() ? fs::path(".") : parent) / ".qlm-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw ToolError(path + ": cannot write file");
  return pattern;
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
  Run().picturesDir = directory;
  Run().start = Now();
  Run().libraryFiles.clear();
  return directory;
}

std::string LibraryFile(const char* fileName) {
  Run().libraryFiles.emplace_back(fileName);
  return PicturesPath(fileName);
}

void CheckLibraryFiles() {
  std::string missing;
  for (const std::string& name : Run().libraryFiles) {
    if (!WrittenSince(PicturesPath(name.c_str()), Run().start)) missing += " " + name;
  }
  if (!missing.empty()) {
    throw MissingLibraryFiles(Run().picturesDir + ": the library did not write" + missing);
  }
}

void WriteAtomically(const std::string& path, const std::function<bool(const std::string&)>& write) {
  WaitingOutput output;
  output.path = path;
  output.directory = TemporaryDirectoryBeside(path);
  output.temporary = (fs::path(output.directory) / fs::path(path).filename()).string();
  bool written = false;
  try {
    written = write(output.temporary) && fs::is_regular_file(output.temporary);
  } catch (...) {
    RemoveWaiting(output);
    throw;
  }
  if (!written) {
    RemoveWaiting(output);
    throw ToolError(path + ": cannot write file");
  }
  Run().waiting.push_back(output);
}

void CommitOutputs() {
  std::vector<WaitingOutput>& waiting = Run().waiting;
  for (const WaitingOutput& output : waiting) {
    std::error_code error;
    fs::rename(output.temporary, output.path, error);
    if (error) {
      const std::string path = output.path;
      DiscardOutputs();
      throw ToolError(path + ": cannot write file");
    }
    RemoveWaiting(output);
  }
  waiting.clear();
}

void DiscardOutputs() {
  for (const WaitingOutput& output : Run().waiting) RemoveWaiting(output);
  Run().waiting.clear();
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
