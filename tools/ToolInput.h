// Input side of the command-line tool: option values and image files. Every
// problem is a ToolError naming the option or file, which the tool reports
// on one line and answers with exit status 2.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// Exit statuses of qlm-calib.
constexpr int kExitSuccess = 0;
constexpr int kExitBadInput = 2;
constexpr int kExitChecksFailed = 3;

class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string& message) : std::runtime_error(message) {}
};

// "WxH" with positive integers, e.g. "4000x3000".
cv::Size ParseSize(const std::string& text, const std::string& option);
// Exactly count comma-separated finite numbers, e.g. "1000,1000,2000,1500".
std::vector<float> ParseFloatList(const std::string& text, size_t count, const std::string& option);
// Throws unless path names a file that can be opened for reading.
void RequireReadableFile(const std::string& path);
// The whole contents of a file that must exist and be readable.
std::vector<unsigned char> ReadBinaryFile(const std::string& path);
// An image in any format OpenCV decodes, 8 bits per channel, converted to
// one grey channel.
cv::Mat ReadGrayImage(const std::string& path);
