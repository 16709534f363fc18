// One camera's radial undistortion and rectification of raw 4:2:0 frames
// with interleaved chroma (W*H luma bytes, then W*(H/2) chroma bytes), as
// qlm-calib warp-yuv runs it on a file of frames and the Python module on
// one frame in memory.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include <opencv2/core.hpp>

#include "distortion/CDistortionFilter.h"

// Bytes of one frame of size.
size_t FrameBytes(cv::Size size);
// Throws StationError, naming option and giving text, unless both sides
// are positive, even and at most kMaxImageSidePx.
void RequireFrameSize(cv::Size size, const std::string& option, const std::string& text);
// The camera matrix of fx, fy, cx, cy, row by row.
std::array<float, 9> CameraMatrix(float fx, float fy, float cx, float cy);

// Everything one frame's warp needs; Run only reads it, so several threads
// share one.
struct YuvFrameWarp {
  CDistortionFilter filter;  // its radial coefficients, forward and source transforms
  cv::Size inputSize, outputSize;
  float sourceCamera[9] = {}, targetCamera[9] = {}, rotation[9] = {};

  // Warps the frame at input (FrameBytes(inputSize) bytes) into output
  // (FrameBytes(outputSize) bytes, not overlapping it); returns the zoom.
  float Run(const uint8_t* input, uint8_t* output) const;
};
