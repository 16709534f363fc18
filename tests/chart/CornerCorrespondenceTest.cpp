#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
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

// The second camera's view of a w x h board: 1.5 times larger, turned by
// 3 degrees, with some perspective; row by row in the board's own order.
Corners SecondView(int w, int h) {
  const cv::Matx33d H(1.5 * std::cos(0.05), -1.5 * std::sin(0.05), 40.0, 1.5 * std::sin(0.05), 1.5 * std::cos(0.05),
                      -25.0, 2e-5, -1e-5, 1.0);
  Corners corners;
  for (int i = 0; i < h; ++i) {
    for (int j = 0; j < w; ++j) {
      const cv::Vec3d p = H * cv::Vec3d(100.0 + 50.0 * j, 80.0 + 50.0 * i, 1.0);
      corners.emplace_back(static_cast<float>(p[0] / p[2]), static_cast<float>(p[1] / p[2]));
    }
  }
  return corners;
}

Corners MainView(int w, int h) {
  Corners corners;
  for (int i = 0; i < h; ++i) {
    for (int j = 0; j < w; ++j) corners.emplace_back(100.0f + 50.0f * j, 80.0f + 50.0f * i);
  }
  return corners;
}

// Every symmetric order in which a detector may list the second view is
// brought back to the main view's order, and named.
TEST(CornerCorrespondence, GridPairingUndoesEverySymmetricOrder) {
  struct Case {
    int w, h;
    const char* listedFrom;  // the corner of the board the second list starts at, then its direction
    int expectedOrder;
  };
  const Case cases[] = {{9, 6, "top left, along rows", 0},           {9, 6, "bottom right, along rows", 1},
                        {9, 6, "bottom left, along rows", 2},        {9, 6, "top right, along rows", 3},
                        {7, 7, "top left, along columns", 4},        {7, 7, "top right, along columns", 5},
                        {7, 7, "bottom left, along columns", 6},     {7, 7, "bottom right, along columns", 7},
                        {7, 7, "bottom right, along rows", 1}};
  const char* names[] = {"as found", "reversed", "rows reversed", "columns reversed", "transposed",
                         "transposed, rows reversed", "transposed, columns reversed", "transposed and reversed"};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.listedFrom);
    const std::string from = c.listedFrom;
    const bool bottom = from.find("bottom") == 0, right = from.find("right") != std::string::npos;
    const bool alongColumns = from.find("columns") != std::string::npos;
    const Corners truth = SecondView(c.w, c.h);
    Corners listed;
    for (int a = 0; a < (alongColumns ? c.w : c.h); ++a) {
      for (int b = 0; b < (alongColumns ? c.h : c.w); ++b) {
        int row = alongColumns ? b : a, column = alongColumns ? a : b;
        if (bottom) row = c.h - 1 - row;
        if (right) column = c.w - 1 - column;
        listed.push_back(truth[row * c.w + column]);
      }
    }
    auto engine = std::make_unique<dualCalibration>();
    Corners matched1, matched2;
    const GridPairing pairing =
        engine->matchCornerGridOrder(MainView(c.w, c.h), listed, {c.w, c.h}, matched1, matched2);
    ASSERT_EQ(pairing.order, c.expectedOrder);
    EXPECT_STREQ(kGridOrders[pairing.order].name, names[c.expectedOrder]);
    EXPECT_EQ(matched1, MainView(c.w, c.h));
    EXPECT_EQ(matched2, truth);
    EXPECT_LT(pairing.residualPx, 1e-3);
    EXPECT_NEAR(pairing.agreement, std::cos(0.05), 0.01);
  }
  auto engine = std::make_unique<dualCalibration>();
  Corners matched1, matched2;
  const Corners shortList(53, cv::Point2f(1.0f, 1.0f));
  EXPECT_EQ(engine->matchCornerGridOrder(MainView(9, 6), shortList, {9, 6}, matched1, matched2).order, -1);
  EXPECT_TRUE(matched1.empty() && matched2.empty());
}
