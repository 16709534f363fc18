// qlm-calib warp-yuv: undistorts and rectifies a raw 4:2:0 frame with
// interleaved chroma through one camera's radial model and a rotation.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

struct WarpYuvOptions {
  std::string input, inputSize, output, outputSize;
  std::string sourceCamera, targetCamera;
  std::string radial = "0,0,0";
  std::string rotation = "1,0,0,0,1,0,0,0,1";
  std::string forward = "0,0,1";
  std::string source = "0,0,1";
};

void AddWarpYuvOptions(CLI::App& command, WarpYuvOptions& options);
// Reads the frame, warps it, writes the output frame and prints the zoom.
int RunWarpYuv(const WarpYuvOptions& options);
