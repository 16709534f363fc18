#include "tools/ToolInput.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <type_traits>

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

cv::Size ParseFrameSize(const std::string& text, const std::string& option) {
  const cv::Size size = ParseSize(text, option);
  RequireFrameSize(size, option, text);
  return size;
}

std::vector<float> ParseCamera(const std::string& text, const std::string& option) {
  const std::vector<float> v = ParseFloatList(text, 4, option);
  const std::array<float, 9> camera = CameraMatrix(v[0], v[1], v[2], v[3]);
  return {camera.begin(), camera.end()};
}
