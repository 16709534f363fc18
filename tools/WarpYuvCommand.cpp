#include "tools/WarpYuvCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <thread>
#include <vector>

#include "station/CalibrationFiles.h"
#include "station/RunOutputs.h"
#include "station/YuvFrameWarp.h"
#include "tools/ToolInput.h"

namespace {

namespace fs = std::filesystem;

void CopyValues(const std::vector<float>& values, float* destination) {
  for (size_t i = 0; i < values.size(); ++i) destination[i] = values[i];
}

// Frames to warp: the given count, which the file must hold, or as many as
// fill the file exactly.
int64_t CountFrames(const WarpYuvOptions& options, size_t frameBytes) {
  // Frames are read one batch at a time, so the file's size needs no bound.
  RequireReadableFile(options.input, std::numeric_limits<uintmax_t>::max());
  std::error_code error;
  const uintmax_t fileBytes = fs::file_size(options.input, error);
  if (error) throw StationError(options.input + ": cannot read file");
  const std::string found = ", found " + std::to_string(fileBytes) + " bytes";
  if (options.frames > 0) {
    if (fileBytes / frameBytes < static_cast<uintmax_t>(options.frames)) {
      throw StationError(options.input + ": " + std::to_string(options.frames) + " frames of " + options.inputSize +
                      " need " + std::to_string(options.frames * frameBytes) + " bytes" + found);
    }
    return options.frames;
  }
  if (fileBytes == 0 || fileBytes % frameBytes != 0) {
    throw StationError(options.input + ": expected a whole number of " + std::to_string(frameBytes) + "-byte frames for " +
                    options.inputSize + found);
  }
  return static_cast<int64_t>(fileBytes / frameBytes);
}

// Threads that are joined however the scope is left. Work that gets no
// thread of its own runs at once on the caller's.
class JoinedThreads {
 public:
  ~JoinedThreads() {
    for (std::thread& thread : mThreads) thread.join();
  }
  template <typename Work>
  void Start(Work work) {
    try {
      mThreads.emplace_back(work);
    } catch (const std::system_error&) {
      work();
    }
  }

 private:
  std::vector<std::thread> mThreads;
};

// Warps the first count frames of a batch, one thread each, and returns the
// zoom (the same for every frame).
float WarpBatch(const YuvFrameWarp& warp, std::vector<std::vector<uint8_t>>& inputs,
                std::vector<std::vector<uint8_t>>& outputs, size_t count) {
  JoinedThreads threads;
  for (size_t i = 1; i < count; ++i) threads.Start([&, i] { warp.Run(inputs[i].data(), outputs[i].data()); });
  return warp.Run(inputs[0].data(), outputs[0].data());
}

// One per processor, never more.
unsigned ThreadCount(unsigned requested) {
  const unsigned processors = std::max(1u, std::thread::hardware_concurrency());
  return requested > 0 ? std::min(requested, processors) : processors;
}

// Reads, warps and writes the frames batch by batch, in input order. Returns
// false when a read or a write fails; readFailed tells which.
bool WarpFrameFile(const YuvFrameWarp& warp, const WarpYuvOptions& options, int64_t frames,
                   const std::string& outputPath, bool* readFailed) {
  std::ifstream in(options.input, std::ios::binary);
  const int out = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (out < 0) return false;
  struct Closed {
    int descriptor;
    ~Closed() {
      if (descriptor >= 0) close(descriptor);
    }
  } owned{out};
  const size_t batch = static_cast<size_t>(std::min<int64_t>(ThreadCount(options.threads), frames));
  std::vector<std::vector<uint8_t>> inputs(batch, std::vector<uint8_t>(FrameBytes(warp.inputSize)));
  std::vector<std::vector<uint8_t>> outputs(batch, std::vector<uint8_t>(FrameBytes(warp.outputSize), 0));
  for (int64_t done = 0; done < frames;) {
    const size_t count = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(batch), frames - done));
    for (size_t i = 0; i < count; ++i) {
      in.read(reinterpret_cast<char*>(inputs[i].data()), static_cast<std::streamsize>(inputs[i].size()));
    }
    if (!in) {
      *readFailed = true;
      return false;
    }
    const float zoom = WarpBatch(warp, inputs, outputs, count);
    if (done == 0) std::printf("zoom: %.6f\n", zoom);
    for (size_t i = 0; i < count; ++i) {
      WriteAll(out, outputPath, outputs[i].data(), outputs[i].size());
      if (frames > 1) std::printf("\rframe %lld of %lld", static_cast<long long>(done + i + 1), static_cast<long long>(frames));
    }
    std::fflush(stdout);
    done += static_cast<int64_t>(count);
  }
  if (frames > 1) std::printf("\n");
  owned.descriptor = -1;
  SyncAndClose(out, outputPath);
  return true;
}

// "1,2,3" with each number as a float reads it back exactly.
std::string FloatList(const double* values, size_t count) {
  std::string text;
  char number[32];
  for (size_t i = 0; i < count; ++i) {
    std::snprintf(number, sizeof number, "%.9g", static_cast<double>(static_cast<float>(values[i])));
    text += (i == 0 ? "" : ",") + std::string(number);
  }
  return text;
}

// The options with the camera, lens and rotation numbers of the calibration,
// printed as the options that type them.
WarpYuvOptions WithCalibration(const WarpYuvOptions& given) {
  const int camera = given.calibrationCamera == "second" ? 1 : 0;
  StereoCalibration calibration = ReadOpenCvCalibration(given.calibration[0], given.calibration[1]);
  // Files without image_width and image_height are taken for frames of the input's size.
  if (calibration.imageSize.area() == 0) calibration.imageSize = ParseFrameSize(given.inputSize, "--size");
  const RectifyingWarp numbers = RectifyingWarpOf(calibration, camera);
  WarpYuvOptions options = given;
  options.sourceCamera = FloatList(numbers.sourceCamera, 4);
  options.targetCamera = FloatList(numbers.targetCamera, 4);
  options.radial = FloatList(numbers.radial, 3);
  options.rotation = FloatList(numbers.rotation, 9);
  std::printf("calibration:      --source-camera %s --target-camera %s --radial %s --rotation %s\n",
              options.sourceCamera.c_str(), options.targetCamera.c_str(), options.radial.c_str(),
              options.rotation.c_str());
  if (numbers.leftOut > 0.0) {
    std::printf("lens terms left out: up to %.3g (p1, p2, k4..k6: the warp's model is radial)\n", numbers.leftOut);
  }
  return options;
}

}  // namespace

void AddWarpYuvOptions(CLI::App& command, WarpYuvOptions& options) {
  command.add_option("--in", options.input, "Raw 4:2:0 input frames with interleaved chroma, one after another")
      ->required();
  command.add_option("--size", options.inputSize, "Input size WxH (even)")->required();
  command.add_option("--out", options.output, "Output frame file")->required();
  command.add_option("--out-size", options.outputSize, "Output size WxH (even)")->required();
  CLI::Option* calibration =
      command.add_option("--opencv", options.calibration,
                         "intrinsics.yml and extrinsics.yml (OpenCV's stereo sample): the cameras, lens and "
                         "rectifying rotation of --camera, for the next four options")
          ->expected(2)
          ->allow_extra_args(false);
  command.add_option("--camera", options.calibrationCamera, "With --opencv: main or second")
      ->check(CLI::IsMember({"main", "second"}))
      ->needs(calibration)
      ->capture_default_str();
  CLI::Option* numbers[] = {
      command.add_option("--source-camera", options.sourceCamera, "Input camera fx,fy,cx,cy"),
      command.add_option("--target-camera", options.targetCamera, "Output camera fx,fy,cx,cy"),
      command.add_option("--radial", options.radial, "Radial model k1,k2,k3")->capture_default_str(),
      command.add_option("--rotation", options.rotation, "Rectifying rotation m0,...,m8 (row major)")
          ->capture_default_str()};
  for (CLI::Option* number : numbers) number->excludes(calibration);
  command.add_option("--forward", options.forward, "Forward transform ox,oy,s")->capture_default_str();
  command.add_option("--source", options.source, "Source transform ox,oy,s")->capture_default_str();
  command.add_option("--frames", options.frames, "Frames to warp from the start of the input (default: all)")
      ->check(CLI::PositiveNumber);
  command.add_option("--threads", options.threads, "Frames warped at once (default and most: one per processor)")
      ->check(CLI::PositiveNumber);
}

int RunWarpYuv(const WarpYuvOptions& given) {
  const WarpYuvOptions options = given.calibration.empty() ? given : WithCalibration(given);
  if (options.sourceCamera.empty() || options.targetCamera.empty()) {
    throw StationError("warp-yuv: give --source-camera and --target-camera, or --opencv");
  }
  YuvFrameWarp warp;
  warp.inputSize = ParseFrameSize(options.inputSize, "--size");
  warp.outputSize = ParseFrameSize(options.outputSize, "--out-size");
  CopyValues(ParseCamera(options.sourceCamera, "--source-camera"), warp.sourceCamera);
  CopyValues(ParseCamera(options.targetCamera, "--target-camera"), warp.targetCamera);
  CopyValues(ParseFloatList(options.rotation, 9, "--rotation"), warp.rotation);
  CopyValues(ParseFloatList(options.radial, 3, "--radial"), warp.filter.radialCoefficients);
  CopyValues(ParseFloatList(options.forward, 3, "--forward"), warp.filter.forwardTransform);
  CopyValues(ParseFloatList(options.source, 3, "--source"), warp.filter.sourceTransform);

  std::vector<std::string> inputs = options.calibration;
  inputs.push_back(options.input);
  CheckRunFiles({inputs, {}, {options.output}, {}});
  const int64_t frames = CountFrames(options, FrameBytes(warp.inputSize));
  bool readFailed = false;
  try {
    WriteAtomically(options.output, [&](const std::string& temporary) {
      return WarpFrameFile(warp, options, frames, temporary, &readFailed);
    });
  } catch (const StationError&) {
    if (readFailed) throw StationError(options.input + ": cannot read file");
    throw;
  }
  std::printf("wrote %s (%dx%d", options.output.c_str(), warp.outputSize.width, warp.outputSize.height);
  if (frames > 1) std::printf(", %lld frames", static_cast<long long>(frames));
  std::printf(")\n");
  return kExitSuccess;
}
