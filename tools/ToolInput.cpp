#include "tools/ToolInput.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace {

// strtol and strtof skip leading blanks; an option value may not start with one.
bool StartsWithNumber(const std::string& text) {
  return !text.empty() && (std::isdigit(static_cast<unsigned char>(text[0])) || text[0] == '-' ||
                           text[0] == '+' || text[0] == '.');
}

// Parses a whole decimal integer; false for anything else or an overflow.
bool ParseInt(const std::string& text, int* value) {
  if (!StartsWithNumber(text)) return false;
  char* end = nullptr;
  errno = 0;
  const long parsed = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE || parsed < INT32_MIN || parsed > INT32_MAX) return false;
  *value = static_cast<int>(parsed);
  return true;
}

bool ParseFloat(const std::string& text, float* value) {
  if (!StartsWithNumber(text)) return false;
  char* end = nullptr;
  errno = 0;
  const float parsed = std::strtof(text.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(parsed)) return false;
  *value = parsed;
  return true;
}

}  // namespace

cv::Size ParseSize(const std::string& text, const std::string& option) {
  const size_t cross = text.find('x');
  int width = 0;
  int height = 0;
  if (cross == std::string::npos || !ParseInt(text.substr(0, cross), &width) ||
      !ParseInt(text.substr(cross + 1), &height) || width < 1 || height < 1) {
    throw ToolError(option + ": expected WxH with positive integers, got '" + text + "'");
  }
  return {width, height};
}

std::vector<float> ParseFloatList(const std::string& text, size_t count, const std::string& option) {
  std::vector<float> values;
  size_t start = 0;
  while (true) {
    const size_t comma = text.find(',', start);
    float value = 0.0f;
    if (!ParseFloat(text.substr(start, comma - start), &value)) break;
    values.push_back(value);
    if (comma == std::string::npos) {
      if (values.size() == count) return values;
      break;
    }
    start = comma + 1;
  }
  throw ToolError(option + ": expected " + std::to_string(count) +
                  " comma-separated numbers, got '" + text + "'");
}

void RequireReadableFile(const std::string& path) {
  if (!std::ifstream(path, std::ios::binary)) throw ToolError(path + ": cannot open file");
}

std::vector<unsigned char> ReadBinaryFile(const std::string& path) {
  RequireReadableFile(path);
  std::ifstream in(path, std::ios::binary);
  std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) throw ToolError(path + ": cannot read file");
  return bytes;
}

cv::Mat ReadGrayImage(const std::string& path) {
  RequireReadableFile(path);
  const cv::Mat image = cv::imread(path, cv::IMREAD_UNCHANGED);
  if (image.empty()) throw ToolError(path + ": not an image OpenCV can decode");
  if (image.depth() != CV_8U) throw ToolError(path + ": not an 8-bit image");
  cv::Mat gray;
  switch (image.channels()) {
    case 1: gray = image; break;
    case 3: cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY); break;
    case 4: cv::cvtColor(image, gray, cv::COLOR_BGRA2GRAY); break;
    default: throw ToolError(path + ": unsupported number of channels");
  }
  return gray.isContinuous() ? gray : gray.clone();
}
