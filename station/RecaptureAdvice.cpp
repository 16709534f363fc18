#include "station/RecaptureAdvice.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string Joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
  return text;
}

}  // namespace

std::vector<int> UnreachedNinths(cv::Size size, const std::vector<std::vector<cv::Point2f>>& corners) {
  bool reached[9] = {};
  for (const std::vector<cv::Point2f>& view : corners) {
    for (const cv::Point2f& p : view) {
      const int column = std::clamp(static_cast<int>(3.0f * p.x / static_cast<float>(size.width)), 0, 2);
      const int row = std::clamp(static_cast<int>(3.0f * p.y / static_cast<float>(size.height)), 0, 2);
      reached[3 * row + column] = true;
    }
  }
  std::vector<int> unreached;
  for (int k = 0; k < 9; ++k) {
    if (!reached[k]) unreached.push_back(k);
  }
  return unreached;
}

std::string RecaptureAdvice(const RecaptureInput& input) {
  const char* cameras[2] = {"main", "second"};
  std::vector<std::string> advice;
  for (int c = 0; c < 2; ++c) {
    const std::vector<int> unreached = UnreachedNinths(input.sizes[c], input.corners[c]);
    if (unreached.empty()) continue;
    std::vector<std::string> names;
    for (const int k : unreached) names.push_back(kImageNinths[k]);
    const size_t views = std::max<size_t>(2, unreached.size());
    advice.push_back("the board never reached the " + Joined(names, ", ") + (names.size() == 1 ? " ninth" : " ninths") +
                     " of the " + cameras[c] + " camera: add " + std::to_string(views) + " views there");
  }
  if (!input.outlierPairs.empty()) {
    std::vector<std::string> pairs;
    for (const int pair : input.outlierPairs) pairs.push_back(std::to_string(pair));
    advice.push_back("capture " + std::string(pairs.size() == 1 ? "pair " : "pairs ") + Joined(pairs, ", ") +
                     " again (outliers)");
  }
  if (input.baselineStdDevFraction > kUncertainBaselineFraction) {
    char text[120];
    std::snprintf(text, sizeof text, "the baseline is known to %.2f%% only: add views with the board tilted other ways",
                  100.0 * input.baselineStdDevFraction);
    advice.push_back(text);
  }
  return advice.empty() ? "none" : Joined(advice, "; ");
}
