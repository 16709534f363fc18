#include "tools/ToolInput.h"

#include "tests/support/TestPrelude.h"
#include "tests/support/StationErrorOf.h"

TEST(ToolInput, OptionValuesTakeTheirFormOnly) {
  EXPECT_EQ(ParseSize("4000x3000", "--size") + ParseSize("1x1", "--size"), cv::Size(4001, 3001));
  for (const char* bad : {"", "4000", "4000x", "x3000", "4000X3000", "0x10", "10x-2", "1.5x2", "4000x3000x2",
                          "99999999999x1", " 4x4", "4x 4"}) {
    EXPECT_EQ(StationErrorOf([&] { ParseSize(bad, "--out-size"); }),
              std::string("--out-size: expected WxH with positive integers, got '") + bad + "'");
  }
  EXPECT_EQ(ParseFloatList("1,-2.5,3e2", 3, "--radial"), (std::vector<float>{1.0f, -2.5f, 300.0f}));
  for (const char* bad : {"", "1,2", "1,2,3,4", "1,,3", "1,2,", "a,b,c", "1,2,nan", "1,2,inf", "1;2;3", "1, 2,3"}) {
    EXPECT_EQ(StationErrorOf([&] { ParseFloatList(bad, 3, "--radial"); }),
              std::string("--radial: expected 3 comma-separated numbers, got '") + bad + "'");
  }
  EXPECT_EQ(ParseFrameSize("10000x2", "--size") + ParseFrameSize("2x10000", "--size"), cv::Size(10002, 10002));
  EXPECT_EQ(FrameBytes(cv::Size(10000, 2)), 30000u);
  EXPECT_EQ(StationErrorOf([] { ParseFrameSize("10002x2", "--size"); }), "--size: each side must be at most 10000, got '10002x2'");
  EXPECT_EQ(StationErrorOf([] { ParseFrameSize("4x3", "--size"); }), "--size: width and height must be even, got '4x3'");
  EXPECT_EQ(ParseCamera("1,2,3,4", "--source-camera"), (std::vector<float>{1, 0, 3, 0, 2, 4, 0, 0, 1}));
}
