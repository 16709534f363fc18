#include "station/RunOutputs.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "framework/PicturesDir.h"

namespace fs = std::filesystem;

namespace {

struct WaitingOutput {
  std::string directory;  // the hidden temporary directory
  std::string temporary;
  std::string path;       // the destination, links followed
  bool stream = false;    // a character device or a pipe, written through
};

struct LibraryFileRule {
  std::string name;
  enum { kWritten, kExpected, kAppended } kind = kWritten;
  std::string expected;
  uintmax_t sizeAtStart = 0;
};

// Everything one run writes or names. The stop-signal thread takes the
// lock to clean up; the run holds it while it changes the lists or moves
// files into place.
struct RunOutputs {
  std::mutex lock;
  std::string picturesDir;
  timespec start = {};
  std::vector<LibraryFileRule> libraryFiles;
  std::vector<WaitingOutput> waiting;
  std::vector<std::string> createdFolders;  // deepest last
  RunOutputs();
  ~RunOutputs();
  // Waiting files first, then the folders this run created while empty.
  void RemoveAll() {
    std::error_code error;
    for (const WaitingOutput& output : waiting) fs::remove_all(output.directory, error);
    waiting.clear();
    for (auto folder = createdFolders.rbegin(); folder != createdFolders.rend(); ++folder) fs::remove(*folder, error);
    createdFolders.clear();
  }
};

// Every thread's run, for the stop-signal thread.
struct AllRuns {
  std::mutex lock;
  std::set<RunOutputs*> runs;
};

AllRuns& Runs() {
  static AllRuns* const runs = new AllRuns();  // never destroyed: threads may end after static destruction
  return *runs;
}

RunOutputs::RunOutputs() {
  std::lock_guard<std::mutex> hold(Runs().lock);
  Runs().runs.insert(this);
}

RunOutputs::~RunOutputs() {
  {
    std::lock_guard<std::mutex> hold(Runs().lock);
    Runs().runs.erase(this);
  }
  RemoveAll();
}

RunOutputs& Run() {
  thread_local RunOutputs run;
  return run;
}

std::string EnsureDirectory(const std::string& directory) {
  std::error_code error;
  fs::create_directories(directory, error);
  if (!fs::is_directory(directory, error)) throw StationError(directory + ": cannot create directory");
  return directory;
}

// File times come from the kernel's coarse clock; a fine-grained start could
// lie after a file written in the same tick.
timespec Now() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return now;
}

bool WrittenSince(const struct stat& status, const timespec& start) {
  const timespec& modified = status.st_mtim;
  return modified.tv_sec > start.tv_sec || (modified.tv_sec == start.tv_sec && modified.tv_nsec >= start.tv_nsec);
}

uintmax_t SizeOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? static_cast<uintmax_t>(status.st_size) : 0;
}

bool LibraryFileAsRequired(const LibraryFileRule& rule, const timespec& start) {
  const std::string path = PicturesPath(rule.name.c_str());
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || !WrittenSince(status, start)) return false;
  const uintmax_t size = static_cast<uintmax_t>(status.st_size);
  switch (rule.kind) {
    case LibraryFileRule::kWritten:
      return size > 0;
    case LibraryFileRule::kAppended:
      return size > rule.sizeAtStart;
    case LibraryFileRule::kExpected:
      break;
  }
  if (size != rule.expected.size()) return false;
  std::ifstream in(path, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return content == rule.expected;
}

// The path an output writes to: symbolic links followed (a dangling one to
// where it points), made absolute.
fs::path Destination(const std::string& path) {
  fs::path destination = path;
  std::error_code error;
  for (int hop = 0; hop < 40 && fs::is_symlink(destination, error); ++hop) {
    const fs::path target = fs::read_symlink(destination, error);
    if (error) break;
    destination = target.is_absolute() ? target : destination.parent_path() / target;
  }
  fs::path resolved = fs::weakly_canonical(destination, error);
  if (error) resolved = fs::absolute(destination, error).lexically_normal();
  return resolved.has_filename() || !resolved.has_parent_path() ? resolved : resolved.parent_path();
}

bool IsStream(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && (S_ISCHR(status.st_mode) || S_ISFIFO(status.st_mode));
}

bool IsWithin(const fs::path& path, const fs::path& folder) {
  const auto [end, unused] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
  (void)unused;
  return end == folder.end();
}

[[noreturn]] void ThrowWriteError(int error, const std::string& path) {
  if (error == ENOSPC || error == EDQUOT) {
    const fs::path folder = fs::path(path).parent_path();
    throw StorageError((folder.empty() ? "." : folder.string()) + ": no space left on device");
  }
  throw StationError(path + ": cannot write file");
}

// A fresh hidden directory beside path for its temporary file, registered
// before anything is written into it.
std::string TemporaryDirectoryBeside(const fs::path& path) {
  std::string pattern = (path.parent_path() / ".qlm-XXXXXX").string();
  std::lock_guard<std::mutex> hold(Run().lock);
  if (mkdtemp(pattern.data()) == nullptr) ThrowWriteError(errno, path.string());
  Run().waiting.push_back({pattern, (fs::path(pattern) / path.filename()).string(), path.string(), false});
  return pattern;
}

void RemoveWaiting(const std::string& directory) {
  std::lock_guard<std::mutex> hold(Run().lock);
  std::vector<WaitingOutput>& waiting = Run().waiting;
  for (auto output = waiting.begin(); output != waiting.end(); ++output) {
    if (output->directory != directory) continue;
    std::error_code error;
    fs::remove_all(directory, error);
    waiting.erase(output);
    return;
  }
}

// A waiting file copied to its stream.
void WriteThrough(const WaitingOutput& output) {
  std::ifstream in(output.temporary, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const int descriptor = open(output.path.c_str(), O_WRONLY | O_CLOEXEC);
  if (!in || descriptor < 0) throw StationError(output.path + ": cannot write file");
  try {
    WriteAll(descriptor, output.path, content.data(), content.size());
  } catch (...) {
    close(descriptor);
    throw;
  }
  SyncAndClose(descriptor, output.path);
}

// One file moved into place, what it replaces kept beside it until the
// whole commit has succeeded.
struct Placed {
  const WaitingOutput* output;
  std::string previous;  // empty when nothing was replaced
};

void Restore(const std::vector<Placed>& placed) {
  for (auto step = placed.rbegin(); step != placed.rend(); ++step) {
    if (step->previous.empty()) {
      unlink(step->output->path.c_str());
    } else {
      std::rename(step->previous.c_str(), step->output->path.c_str());
    }
  }
}

bool Place(const WaitingOutput& output, std::vector<Placed>& placed) {
  Placed step{&output, ""};
  struct stat status = {};
  if (lstat(output.path.c_str(), &status) == 0) {
    step.previous = output.directory + "/.previous";
    if (link(output.path.c_str(), step.previous.c_str()) != 0 &&
        std::rename(output.path.c_str(), step.previous.c_str()) != 0) {
      return false;
    }
  }
  if (std::rename(output.temporary.c_str(), output.path.c_str()) != 0) {
    if (!step.previous.empty() && lstat(output.path.c_str(), &status) != 0) {
      std::rename(step.previous.c_str(), output.path.c_str());
    }
    return false;
  }
  placed.push_back(step);
  return true;
}

void WaitForStopSignals(sigset_t signals) {
  int signal = 0;
  while (sigwait(&signals, &signal) != 0) {
  }
  std::lock_guard<std::mutex> hold(Runs().lock);
  for (RunOutputs* run : Runs().runs) {
    std::lock_guard<std::mutex> holdRun(run->lock);
    run->RemoveAll();
  }
  _exit(128 + signal);
}

}  // namespace

std::string ChoosePicturesDir(const std::string& option) {
  const char* environment = std::getenv("QLM_PICTURES_DIR");
  if (!option.empty()) return EnsureDirectory(option);
  if (environment != nullptr && environment[0] != '\0') return EnsureDirectory(environment);
  if (fs::is_directory("/sdcard/Pictures/")) return "/sdcard/Pictures/";
  return EnsureDirectory("qlm-output");
}

void StartLibraryRun(const std::string& directory) {
  Run().picturesDir = directory;
  Run().start = Now();
  Run().libraryFiles.clear();
}

std::string SelectPicturesDir(const std::string& option) {
  const std::string directory = ChoosePicturesDir(option);
  setenv("QLM_PICTURES_DIR", directory.c_str(), 1);
  StartLibraryRun(directory);
  return directory;
}

std::string LibraryFile(const char* fileName) {
  Run().libraryFiles.push_back({fileName, LibraryFileRule::kWritten, "", 0});
  return PicturesPath(fileName);
}

std::string LibraryFile(const char* fileName, const std::string& expected) {
  Run().libraryFiles.push_back({fileName, LibraryFileRule::kExpected, expected, 0});
  return PicturesPath(fileName);
}

std::string AppendedLibraryFile(const char* fileName) {
  const std::string path = PicturesPath(fileName);
  Run().libraryFiles.push_back({fileName, LibraryFileRule::kAppended, "", SizeOf(path)});
  return path;
}

void CheckLibraryFiles() {
  std::string missing;
  for (const LibraryFileRule& rule : Run().libraryFiles) {
    if (!LibraryFileAsRequired(rule, Run().start)) missing += " " + rule.name;
  }
  if (!missing.empty()) throw StorageError(Run().picturesDir + ": the library did not write" + missing);
}

void CheckRunFiles(const RunFiles& files) {
  struct Output {
    std::string given;
    fs::path destination;
    bool folder;
  };
  std::vector<Output> outputs;
  for (const std::string& path : files.outputs) {
    if (!path.empty()) outputs.push_back({path, Destination(path), false});
  }
  for (const std::string& path : files.outputFolders) {
    if (!path.empty()) outputs.push_back({path, Destination(path), true});
  }
  std::vector<std::pair<std::string, fs::path>> inputs;
  for (const std::string& input : files.inputs) {
    if (!input.empty()) inputs.emplace_back(input, Destination(input));
  }
  std::error_code error;
  for (size_t i = 0; i < outputs.size(); ++i) {
    const Output& output = outputs[i];
    if (!output.folder && fs::is_directory(output.destination, error)) {
      throw StationError(output.given + ": is a folder, not a file");
    }
    if (output.folder && fs::exists(output.destination, error) && !fs::is_directory(output.destination, error)) {
      throw StationError(output.given + ": is a file, not a folder");
    }
    for (size_t j = 0; j < i; ++j) {
      if (output.destination == outputs[j].destination) throw StationError(output.given + ": named twice as an output");
      const Output& folder = outputs[j].folder ? outputs[j] : output;
      const Output& inner = outputs[j].folder ? output : outputs[j];
      if ((outputs[j].folder || output.folder) && IsWithin(inner.destination, folder.destination)) {
        throw StationError(inner.given + ": inside the output folder " + folder.given);
      }
    }
    for (const auto& [input, source] : inputs) {
      if (source == output.destination) throw StationError(output.given + ": is also an input of this run");
      if (output.folder && IsWithin(source, output.destination)) {
        throw StationError(output.given + ": holds the input " + input);
      }
    }
    for (const std::string& folder : files.inputFolders) {
      if (!folder.empty() && IsWithin(output.destination, Destination(folder))) {
        throw StationError(output.given + ": inside the input folder " + folder);
      }
    }
  }
}

void CreateOutputFolder(const std::string& folder) {
  std::vector<std::string> created;
  for (fs::path missing = fs::absolute(folder); !missing.empty() && !fs::exists(missing);
       missing = missing.parent_path()) {
    created.insert(created.begin(), missing.string());
  }
  std::error_code error;
  fs::create_directories(folder, error);
  if (!fs::is_directory(folder, error)) throw StationError(folder + ": cannot create directory");
  std::lock_guard<std::mutex> hold(Run().lock);
  Run().createdFolders.insert(Run().createdFolders.end(), created.begin(), created.end());
}

void WriteAtomically(const std::string& path, const std::function<bool(const std::string&)>& write) {
  const fs::path destination = Destination(path);
  const bool stream = IsStream(destination.string());
  // A stream's bytes wait in the system's temporary folder.
  std::error_code error;
  const std::string directory =
      TemporaryDirectoryBeside(stream ? fs::temp_directory_path(error) / destination.filename() : destination);
  const std::string temporary = (fs::path(directory) / destination.filename()).string();
  if (stream) {
    std::lock_guard<std::mutex> hold(Run().lock);
    Run().waiting.back().path = path;
    Run().waiting.back().stream = true;
  }
  bool written = false;
  try {
    written = write(temporary) && fs::is_regular_file(temporary);
  } catch (const StorageError&) {
    RemoveWaiting(directory);
    // Named by the destination's folder, not the temporary one.
    ThrowWriteError(ENOSPC, stream ? path : destination.string());
  } catch (...) {
    RemoveWaiting(directory);
    throw;
  }
  if (!written) {
    RemoveWaiting(directory);
    throw StationError(path + ": cannot write file");
  }
}

void WriteAll(int descriptor, const std::string& path, const void* data, size_t size) {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = write(descriptor, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) ThrowWriteError(written < 0 ? errno : ENOSPC, path);
    bytes += written, size -= static_cast<size_t>(written);
  }
}

void SyncAndClose(int descriptor, const std::string& path) {
  struct stat status = {};
  int error = 0;
  if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && fsync(descriptor) != 0) error = errno;
  if (close(descriptor) != 0 && error == 0 && errno != EINTR) error = errno;
  if (error != 0) ThrowWriteError(error, path);
}

void WriteBytesAtomically(const std::string& path, const void* data, size_t size) {
  WriteAtomically(path, [&](const std::string& temporary) {
    const int descriptor = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0) return false;
    try {
      WriteAll(descriptor, temporary, data, size);
    } catch (...) {
      close(descriptor);
      throw;
    }
    SyncAndClose(descriptor, temporary);
    return true;
  });
}

void WriteJsonAtomically(const std::string& path, const nlohmann::json& document) {
  WriteStringAtomically(path, document.dump(2) + "\n");
}

void WriteStringAtomically(const std::string& path, const std::string& text) {
  WriteBytesAtomically(path, text.data(), text.size());
}

void WriteImageAtomically(const std::string& path, const cv::Mat& image) {
  std::vector<uchar> encoded;
  bool ok = false;
  try {
    ok = cv::imencode(fs::path(path).extension().string(), image, encoded);
  } catch (const cv::Exception&) {
    ok = false;
  }
  if (!ok) throw StationError(path + ": cannot write file");
  WriteBytesAtomically(path, encoded.data(), encoded.size());
}

void CommitOutputs() {
  std::vector<WaitingOutput> waiting;
  {
    std::lock_guard<std::mutex> hold(Run().lock);
    waiting = Run().waiting;
  }
  // Streams are written outside the lock: a pipe may wait for its reader,
  // and a stop signal must still find the files to remove.
  try {
    for (const WaitingOutput& output : waiting) {
      if (output.stream) WriteThrough(output);
    }
  } catch (...) {
    DiscardOutputs();
    throw;
  }
  std::lock_guard<std::mutex> hold(Run().lock);
  std::vector<Placed> placed;
  for (const WaitingOutput& output : waiting) {
    if (output.stream || Place(output, placed)) continue;
    Restore(placed);
    Run().RemoveAll();
    throw StationError(output.path + ": cannot write file");
  }
  Run().createdFolders.clear();
  Run().RemoveAll();
}

void DiscardOutputs() {
  std::lock_guard<std::mutex> hold(Run().lock);
  Run().RemoveAll();
}

void RemoveOutputsOnStopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) return;
  std::thread(WaitForStopSignals, signals).detach();
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
