#include "tools/ToolInput.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <type_traits>

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

template <typename Number>
bool ParseNumber(const std::string& text, Number* value) {
  if (!StartsWithNumber(text)) return false;
  char* end = nullptr;
  errno = 0;
  const Number parsed = std::is_same_v<Number, float> ? std::strtof(text.c_str(), &end) : std::strtod(text.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(parsed)) return false;
  *value = parsed;
  return true;
}

// Comma-separated numbers, as many as one of counts allows.
template <typename Number>
std::vector<Number> ParseNumberList(const std::string& text, const std::vector<size_t>& counts,
                                    const std::string& option) {
  std::vector<Number> values;
  size_t start = 0;
  while (true) {
    const size_t comma = text.find(',', start);
    Number value = 0;
    if (!ParseNumber(text.substr(start, comma - start), &value)) break;
    values.push_back(value);
    if (comma == std::string::npos) {
      if (std::find(counts.begin(), counts.end(), values.size()) != counts.end()) return values;
      break;
    }
    start = comma + 1;
  }
  std::string expected = std::to_string(counts[0]);
  for (size_t k = 1; k < counts.size(); ++k) expected += (k + 1 == counts.size() ? " or " : ", ") + std::to_string(counts[k]);
  throw StationError(option + ": expected " + expected + " comma-separated numbers, got '" + text + "'");
}

uint32_t BigEndian32(const std::vector<unsigned char>& bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) << 24 | static_cast<uint32_t>(bytes[at + 1]) << 16 |
         static_cast<uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

int BigEndian16(const std::vector<unsigned char>& bytes, size_t at) { return bytes[at] << 8 | bytes[at + 1]; }

int32_t LittleEndian32(const std::vector<unsigned char>& bytes, size_t at) {
  return static_cast<int32_t>(static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
                              static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24);
}

bool StartsWith(const std::vector<unsigned char>& bytes, const char* magic, size_t length) {
  return bytes.size() >= length && std::equal(magic, magic + length, bytes.begin(),
                                              [](char m, unsigned char b) { return static_cast<unsigned char>(m) == b; });
}

// Sides beyond int are reported as INT32_MAX: they are refused all the same.
int ClampedSide(int64_t side) { return static_cast<int>(std::min<int64_t>(side, INT32_MAX)); }

// The IHDR chunk comes first: width and height at bytes 16 and 20.
bool PngSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  if (bytes.size() < 24 || !StartsWith(bytes, "\x89PNG\r\n\x1a\n", 8)) return false;
  *size = {ClampedSide(BigEndian32(bytes, 16)), ClampedSide(BigEndian32(bytes, 20))};
  return true;
}

// Walks the markers to the first start-of-frame (C0..CF except C4, C8, CC).
bool JpegSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  if (!StartsWith(bytes, "\xff\xd8", 2)) return false;
  size_t at = 2;
  while (at + 4 <= bytes.size() && bytes[at] == 0xFF) {
    const int marker = bytes[at + 1];
    const size_t length = static_cast<size_t>(BigEndian16(bytes, at + 2));
    const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) {
      if (at + 9 > bytes.size()) return false;
      *size = {BigEndian16(bytes, at + 7), BigEndian16(bytes, at + 5)};
      return true;
    }
    if (length < 2) return false;
    at += 2 + length;
  }
  return false;
}

// Width and height at bytes 18 and 22; a negative height means top-down rows.
bool BmpSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  if (bytes.size() < 26 || !StartsWith(bytes, "BM", 2)) return false;
  *size = {ClampedSide(std::abs(static_cast<int64_t>(LittleEndian32(bytes, 18)))),
           ClampedSide(std::abs(static_cast<int64_t>(LittleEndian32(bytes, 22))))};
  return true;
}

// The size of path, which must be a regular file of at most maxBytes bytes
// that can be opened for reading.
uintmax_t InputFileBytes(const std::string& path, uintmax_t maxBytes) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) throw StationError(path + ": cannot open file");
  if (!fs::is_regular_file(status)) throw StationError(path + ": not a regular file");
  const uintmax_t bytes = fs::file_size(path, error);
  if (error || !std::ifstream(path, std::ios::binary)) throw StationError(path + ": cannot open file");
  if (bytes > maxBytes) {
    throw StationError(path + ": " + std::to_string(bytes) + " bytes, more than the " + std::to_string(maxBytes) +
                    " this input may hold");
  }
  return bytes;
}

}  // namespace

cv::Size ParseSize(const std::string& text, const std::string& option) {
  const size_t cross = text.find('x');
  int width = 0;
  int height = 0;
  if (cross == std::string::npos || !ParseInt(text.substr(0, cross), &width) ||
      !ParseInt(text.substr(cross + 1), &height) || width < 1 || height < 1) {
    throw StationError(option + ": expected WxH with positive integers, got '" + text + "'");
  }
  return {width, height};
}

std::vector<float> ParseFloatList(const std::string& text, size_t count, const std::string& option) {
  return ParseNumberList<float>(text, {count}, option);
}

std::vector<double> ParseDoubleList(const std::string& text, const std::vector<size_t>& counts,
                                    const std::string& option) {
  return ParseNumberList<double>(text, counts, option);
}

void RequireReadableFile(const std::string& path, uintmax_t maxBytes) { InputFileBytes(path, maxBytes); }

std::vector<unsigned char> ReadBinaryFile(const std::string& path, uintmax_t maxBytes) {
  std::vector<unsigned char> bytes(static_cast<size_t>(InputFileBytes(path, maxBytes)));
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  // A file that changed size since it was measured is not read on.
  if (!in || in.peek() != std::ifstream::traits_type::eof()) throw StationError(path + ": cannot read file");
  return bytes;
}

bool ImageHeaderSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  return PngSize(bytes, size) || JpegSize(bytes, size) || BmpSize(bytes, size);
}

void RequireDecodableSize(const std::vector<unsigned char>& bytes, const std::string& path) {
  cv::Size size;
  if (ImageHeaderSize(bytes, &size) && (size.width > kMaxImageSidePx || size.height > kMaxImageSidePx)) {
    throw StationError(path + ": " + std::to_string(size.width) + "x" + std::to_string(size.height) +
                    " is larger than the accepted 10000x10000, not decoded");
  }
}

bool JpegComplete(const std::vector<unsigned char>& bytes) {
  // Segments up to the first scan, each by its length; scan data holds no
  // unstuffed 0xFF 0xD9, so the end of image follows the last scan.
  size_t at = 2;
  while (at + 4 <= bytes.size() && bytes[at] == 0xFF) {
    const unsigned char marker = bytes[at + 1];
    if (marker == 0xFF) {
      ++at;
      continue;
    }
    if (marker == 0xDA) {
      for (size_t k = at + 2; k + 1 < bytes.size(); ++k) {
        if (bytes[k] == 0xFF && bytes[k + 1] == 0xD9) return true;
      }
      return false;
    }
    at += 2 + (static_cast<size_t>(bytes[at + 2]) << 8 | bytes[at + 3]);
  }
  return false;
}

cv::Mat ReadGrayImage(const std::string& path) {
  const std::vector<unsigned char> bytes = ReadBinaryFile(path, kMaxImageFileBytes);
  RequireDecodableSize(bytes, path);
  if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xD8 && !JpegComplete(bytes)) {
    throw StationError(path + ": a JPEG cut short (no end of image after its scan data)");
  }
  const cv::Mat image = bytes.empty() ? cv::Mat() : cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
  if (image.empty()) throw StationError(path + ": not an image OpenCV can decode");
  if (image.depth() != CV_8U) throw StationError(path + ": not an 8-bit image");
  cv::Mat gray;
  switch (image.channels()) {
    case 1: gray = image; break;
    case 3: cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY); break;
    case 4: cv::cvtColor(image, gray, cv::COLOR_BGRA2GRAY); break;
    default: throw StationError(path + ": unsupported number of channels");
  }
  return gray.isContinuous() ? gray : gray.clone();
}

void RequireChartImageSize(const cv::Mat& image, const std::string& path) {
  if (image.cols < kMinChartImageSidePx || image.rows < kMinChartImageSidePx) {
    throw StationError(path + ": " + std::to_string(image.cols) + "x" + std::to_string(image.rows) +
                       " is below the " + std::to_string(kMinChartImageSidePx) + " pixels per side the chessboard "
                       "search needs");
  }
}

CLI::Validator FiniteWithin(double low, double high) {
  return CLI::Validator(
      [low, high](const std::string& text) -> std::string {
        double value = 0.0;
        const bool number = CLI::detail::lexical_cast(text, value);
        if (number && std::isfinite(value) && value >= low && value <= high) return "";
        return "expected a finite number in " + CLI::detail::to_string(low) + ".." + CLI::detail::to_string(high) +
               ", got '" + text + "'";
      },
      "FINITE");
}

void RequireSameSize(const cv::Mat& image, const std::string& path, cv::Size reference,
                     const std::string& referencePath) {
  if (image.size() == reference) return;
  throw StationError(path + ": " + std::to_string(image.cols) + "x" + std::to_string(image.rows) + " differs from the " +
                     std::to_string(reference.width) + "x" + std::to_string(reference.height) + " of " + referencePath);
}

cv::Size ParseFrameSize(const std::string& text, const std::string& option) {
  const cv::Size size = ParseSize(text, option);
  if (size.width % 2 != 0 || size.height % 2 != 0) {
    throw StationError(option + ": width and height must be even, got '" + text + "'");
  }
  if (size.width > kMaxImageSidePx || size.height > kMaxImageSidePx) {
    throw StationError(option + ": each side must be at most 10000, got '" + text + "'");
  }
  return size;
}

size_t FrameBytes(cv::Size size) {
  return static_cast<size_t>(size.width) * size.height + static_cast<size_t>(size.width) * (size.height / 2);
}

std::vector<float> ParseCamera(const std::string& text, const std::string& option) {
  const std::vector<float> v = ParseFloatList(text, 4, option);
  return {v[0], 0.0f, v[2], 0.0f, v[1], v[3], 0.0f, 0.0f, 1.0f};
}
