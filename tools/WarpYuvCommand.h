// qlm-calib warp-yuv: undistorts and rectifies raw 4:2:0 frames with
// interleaved chroma through one camera's radial model and a rotation. A file
// of N frames gives N frames; the tool warps several frames at once on its
// own threads (the library has none).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

struct WarpYuvOptions {
  std::string input, inputSize, output, outputSize;
  std::string sourceCamera, targetCamera;
  std::string radial = "0,0,0";
  std::string rotation = "1,0,0,0,1,0,0,0,1";
  std::string forward = "0,0,1";
  std::string source = "0,0,1";
  // intrinsics.yml and extrinsics.yml: the cameras, lens and rotation of
  // calibrationCamera ("main" or "second") instead of the four options above.
  std::vector<std::string> calibration;
  std::string calibrationCamera = "main";
  int64_t frames = 0;    // 0: as many as fill the input file
  unsigned threads = 0;  // 0: one per processor
};

void AddWarpYuvOptions(CLI::App& command, WarpYuvOptions& options);
// Reads the frames, warps them, writes the output frames in input order and
// prints the zoom, a progress line when there are several frames, and where
// the output went.
int RunWarpYuv(const WarpYuvOptions& options);
