#include "station/RecaptureAdvice.h"

#include "tests/support/TestPrelude.h"

// A board over the left two thirds of the main image and the middle of the second; the corners on the
// ninths' borders count for the ninth to their right and below, those on the image's far edge for the last.
TEST(RecaptureAdvice, NamesTheUnreachedNinthsOutliersAndAnUncertainBaseline) {
  RecaptureInput input;
  input.sizes[0] = input.sizes[1] = cv::Size(300, 150);
  std::vector<cv::Point2f> left, middle;
  for (int x = 0; x < 200; x += 20) {
    for (int y = 0; y <= 150; y += 30) left.emplace_back(static_cast<float>(x), static_cast<float>(y));
  }
  middle = {{100, 50}, {199.9f, 99.9f}};
  input.corners[0] = {left};
  input.corners[1] = {middle};
  EXPECT_EQ(UnreachedNinths(input.sizes[0], input.corners[0]), (std::vector<int>{2, 5, 8}));
  EXPECT_EQ(UnreachedNinths(input.sizes[1], input.corners[1]), (std::vector<int>{0, 1, 2, 3, 5, 6, 7, 8}));
  EXPECT_EQ(UnreachedNinths(input.sizes[1], {{{300, 150}, {0, 0}}}), (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
  input.corners[1].push_back(left);
  input.corners[1].push_back({{250, 10}, {250, 140}});
  input.outlierPairs = {3, 7};
  input.baselineStdDevFraction = 0.012;
  EXPECT_EQ(RecaptureAdvice(input),
            "the board never reached the top-right, right, bottom-right ninths of the main camera: add 3 views there; "
            "the board never reached the right ninth of the second camera: add 2 views there; capture pairs 3, 7 again "
            "(outliers); the baseline is known to 1.20% only: add views with the board tilted other ways");
  input.corners[0].push_back({{250, 10}, {250, 75}, {250, 140}});
  input.corners[1].push_back({{250, 75}});
  input.outlierPairs = {4};
  input.baselineStdDevFraction = kUncertainBaselineFraction;
  EXPECT_EQ(RecaptureAdvice(input), "capture pair 4 again (outliers)");
  input.outlierPairs.clear();
  EXPECT_EQ(RecaptureAdvice(input), "none");
}
