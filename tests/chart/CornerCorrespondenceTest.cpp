#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "engine/dualCalibration.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

using Corners = std::vector<cv::Point2f>;

// A slightly perspective 9 x 6 grid, row by row.
Corners Grid() {
  Corners corners;
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < 9; ++j) corners.emplace_back(100.0f + 50.0f * j + 2.0f * i, 80.0f + 48.0f * i + 0.5f * j);
  }
  return corners;
}

struct MatchResult {
  Corners matched1, matched2;
  std::string printed;
  int returned = 0;
};

MatchResult Match(const Corners& first, const Corners& second) {
  auto engine = std::make_unique<dualCalibration>();
  MatchResult result;
  CaptureStdout();
  result.returned = engine->matchCornerOrder(first, second, result.matched1, result.matched2);
  result.printed = GetCapturedStdout();
  return result;
}

}  // namespace

TEST(CornerCorrespondence, IdenticalListsPassThroughSilently) {
  const MatchResult result = Match(Grid(), Grid());
  EXPECT_EQ(result.returned, 1);
  EXPECT_EQ(result.matched1, Grid());
  EXPECT_EQ(result.matched2, Grid());
  EXPECT_EQ(result.printed, "");
}

TEST(CornerCorrespondence, ReversedSecondListIsRepaired) {
  Corners reversed = Grid();
  std::reverse(reversed.begin(), reversed.end());
  const MatchResult result = Match(Grid(), reversed);
  EXPECT_EQ(result.matched1, Grid());
  EXPECT_EQ(result.matched2, Grid());
  EXPECT_EQ(result.printed, "");
}

TEST(CornerCorrespondence, ShiftedAndScaledShuffledListKeepsTheFirstOrder) {
  const Corners first = Grid();
  Corners second;
  for (const cv::Point2f& p : first) second.emplace_back(3.0f * p.x + 700.0f, 3.0f * p.y - 40.0f);
  Corners shuffled = second;
  std::rotate(shuffled.begin(), shuffled.begin() + 17, shuffled.end());
  std::swap(shuffled[3], shuffled[40]);
  const MatchResult result = Match(first, shuffled);
  EXPECT_EQ(result.matched1, first);
  EXPECT_EQ(result.matched2, second);
  EXPECT_EQ(result.printed, "");
}

TEST(CornerCorrespondence, EmptyFirstListAppendsNothing) {
  const MatchResult result = Match({}, Grid());
  EXPECT_EQ(result.returned, 1);
  EXPECT_TRUE(result.matched1.empty());
  EXPECT_TRUE(result.matched2.empty());
  EXPECT_EQ(result.printed, "");
}

TEST(CornerCorrespondence, OutputsAreAppendedTo) {
  auto engine = std::make_unique<dualCalibration>();
  Corners matched1 = {{1.0f, 2.0f}}, matched2 = {{3.0f, 4.0f}};
  engine->matchCornerOrder(Grid(), Grid(), matched1, matched2);
  ASSERT_EQ(matched1.size(), 55u);
  ASSERT_EQ(matched2.size(), 55u);
  EXPECT_EQ(matched1[0], cv::Point2f(1.0f, 2.0f));
  EXPECT_EQ(matched2[0], cv::Point2f(3.0f, 4.0f));
  EXPECT_EQ(matched2[1], Grid()[0]);
}

TEST(CornerCorrespondence, SharedNearestCornerIsReportedAndRepeated) {
  // Corners 0 and 1 of the first list are both nearest to corner 0 of the second.
  const Corners first = {{0.0f, 0.0f}, {0.1f, 0.0f}, {10.0f, 0.0f}, {0.0f, 10.0f}, {10.0f, 10.0f}};
  const Corners second = {{0.0f, 0.0f}, {5.0f, 5.0f}, {10.0f, 0.0f}, {0.0f, 10.0f}, {10.0f, 10.0f}};
  const MatchResult result = Match(first, second);
  EXPECT_EQ(result.printed, "multiple shoot\n");
  EXPECT_EQ(result.matched1, first);
  const Corners expected = {second[0], second[0], second[2], second[3], second[4]};
  EXPECT_EQ(result.matched2, expected);
}

TEST(CornerCorrespondence, FlatCloudMissesAndKeepsTheCurrentMatch) {
  // All x equal in the second list: its spread is 0, every distance is NaN,
  // so each corner is missed and receives the match kept so far, (0, 0).
  const Corners first = {{0.0f, 0.0f}, {1.0f, 2.0f}, {2.0f, 1.0f}};
  const Corners second = {{5.0f, 0.0f}, {5.0f, 1.0f}, {5.0f, 2.0f}};
  const MatchResult result = Match(first, second);
  EXPECT_EQ(result.printed, "missed\nmissed\nmissed\n");
  EXPECT_EQ(result.matched1, first);
  EXPECT_EQ(result.matched2, Corners(3, cv::Point2f(0.0f, 0.0f)));
}

TEST(CornerCorrespondence, ShortSecondListIsSearchedOnlyAsFarAsItReaches) {
  const Corners first = {{0.0f, 0.0f}, {10.0f, 0.0f}, {0.0f, 10.0f}, {10.0f, 10.0f}};
  const Corners second = {{0.0f, 0.0f}, {10.0f, 10.0f}};
  const MatchResult result = Match(first, second);
  EXPECT_EQ(result.printed, "multiple shoot\nmultiple shoot\n");
  // Corners 1 and 2 tie between both candidates; ties go to the lower index.
  const Corners expected = {second[0], second[0], second[0], second[1]};
  EXPECT_EQ(result.matched2, expected);
}

TEST(CornerCorrespondence, StoredListsUseTheEngineMembers) {
  auto engine = std::make_unique<dualCalibration>();
  engine->mCorners1 = Grid();
  engine->mCorners2 = Grid();
  std::reverse(engine->mCorners2.begin(), engine->mCorners2.end());
  EXPECT_EQ(engine->matchStoredCornerOrder(), 1);
  EXPECT_EQ(engine->mMatchedCorners1, Grid());
  EXPECT_EQ(engine->mMatchedCorners2, Grid());
}
