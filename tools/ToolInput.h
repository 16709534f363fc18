// Option values of the command-line tool: sizes, number lists, camera
// strings and raw frame sizes. Every problem is a StationError naming the
// option, which the tool reports on one line and answers with exit status 2.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <opencv2/core.hpp>

#include "station/InputFiles.h"
#include "station/StationError.h"
#include "station/YuvFrameWarp.h"

// "WxH" with positive integers, e.g. "4000x3000".
cv::Size ParseSize(const std::string& text, const std::string& option);
// Exactly count comma-separated finite numbers, e.g. "1000,1000,2000,1500".
std::vector<float> ParseFloatList(const std::string& text, size_t count, const std::string& option);
// As many comma-separated finite numbers as one of counts, at double precision.
std::vector<double> ParseDoubleList(const std::string& text, const std::vector<size_t>& counts,
                                    const std::string& option);
// An option check: a finite number within [low, high] (CLI11's own range
// checks let NaN through).
CLI::Validator FiniteWithin(double low, double high);
// Raw 4:2:0 frames with interleaved chroma: "WxH" with even sides of at most
// kMaxImageSidePx (station/YuvFrameWarp.h gives a frame's bytes).
cv::Size ParseFrameSize(const std::string& text, const std::string& option);
// "fx,fy,cx,cy" as a row-major 3x3 camera matrix.
std::vector<float> ParseCamera(const std::string& text, const std::string& option);
