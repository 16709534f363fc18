// One line for the operator after a chart run: what to capture again, from
// where the boards reached in each camera, the outlier views and how sure the
// baseline is. "none" when nothing calls for more captures.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

// The regions of an image the advice names: its ninths, row by row.
constexpr const char* kImageNinths[9] = {"top-left", "top", "top-right", "left", "centre",
                                         "right", "bottom-left", "bottom", "bottom-right"};

struct RecaptureInput {
  cv::Size sizes[2];                                  // main, second
  std::vector<std::vector<cv::Point2f>> corners[2];   // per camera, per view
  std::vector<int> outlierPairs;                      // pair numbers of the outlier views
  double baselineStdDevFraction = 0.0;                // std dev of |T| over |T|; 0 when unknown
};

// A baseline known to worse than this fraction calls for more views.
constexpr double kUncertainBaselineFraction = 0.005;

// The ninths (indices into kImageNinths) of an image of size that no corner reached.
std::vector<int> UnreachedNinths(cv::Size size, const std::vector<std::vector<cv::Point2f>>& corners);

// e.g. "the board never reached the top-right, right ninths of the second
// camera: add 2 views there; capture pairs 3, 7 again (outliers)".
std::string RecaptureAdvice(const RecaptureInput& input);
