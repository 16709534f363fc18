#include "tools/ToolInput.h"

#include "tests/support/TestPrelude.h"

#include <opencv2/imgcodecs.hpp>

namespace {

// The StationError's text, or "" when run throws none.
std::string ErrorOf(const std::function<void()>& run) {
  try {
    run();
  } catch (const StationError& error) {
    return error.what();
  }
  return "";
}

}  // namespace

TEST(ToolInput, OptionValuesTakeTheirFormOnly) {
  EXPECT_EQ(ParseSize("4000x3000", "--size") + ParseSize("1x1", "--size"), cv::Size(4001, 3001));
  for (const char* bad : {"", "4000", "4000x", "x3000", "4000X3000", "0x10", "10x-2", "1.5x2", "4000x3000x2",
                          "99999999999x1", " 4x4", "4x 4"}) {
    EXPECT_EQ(ErrorOf([&] { ParseSize(bad, "--out-size"); }),
              std::string("--out-size: expected WxH with positive integers, got '") + bad + "'");
  }
  EXPECT_EQ(ParseFloatList("1,-2.5,3e2", 3, "--radial"), (std::vector<float>{1.0f, -2.5f, 300.0f}));
  for (const char* bad : {"", "1,2", "1,2,3,4", "1,,3", "1,2,", "a,b,c", "1,2,nan", "1,2,inf", "1;2;3", "1, 2,3"}) {
    EXPECT_EQ(ErrorOf([&] { ParseFloatList(bad, 3, "--radial"); }),
              std::string("--radial: expected 3 comma-separated numbers, got '") + bad + "'");
  }
  EXPECT_EQ(ParseFrameSize("10000x2", "--size") + ParseFrameSize("2x10000", "--size"), cv::Size(10002, 10002));
  EXPECT_EQ(FrameBytes(cv::Size(10000, 2)), 30000u);
  EXPECT_EQ(ErrorOf([] { ParseFrameSize("10002x2", "--size"); }), "--size: each side must be at most 10000, got '10002x2'");
  EXPECT_EQ(ErrorOf([] { ParseFrameSize("4x3", "--size"); }), "--size: width and height must be even, got '4x3'");
  EXPECT_EQ(ParseCamera("1,2,3,4", "--source-camera"), (std::vector<float>{1, 0, 3, 0, 2, 4, 0, 0, 1}));
}

// The messages of unreadable files are checked through the tool (QlmCalib.BadInputs...).
TEST(ToolInput, ColourImagesTurnGreyAndBinaryFilesReadWhole) {
  TempDir dir;
  ASSERT_TRUE(cv::imwrite(dir.File("colour.png"), cv::Mat(20, 30, CV_8UC3, cv::Scalar(10, 200, 50))));
  // 0.114*10 + 0.587*200 + 0.299*50 = 133.49
  EXPECT_EQ(cv::norm(ReadGrayImage(dir.File("colour.png")), cv::Mat(20, 30, CV_8UC1, cv::Scalar(133)), cv::NORM_INF), 0);
  WriteFile(dir.File("record.bin"), std::string("\0\1\2\xff", 4));
  EXPECT_EQ(ReadBinaryFile(dir.File("record.bin"), 4), (std::vector<unsigned char>{0, 1, 2, 255}));
}

// Headers as the encoders write them, cut short, and of sizes no encoder here would write.
TEST(ToolInput, ImageHeaderSizeReadsPngJpegAndBmpHeadersOnly) {
  const cv::Mat image(20, 30, CV_8UC1, cv::Scalar(7));
  std::vector<unsigned char> png, jpeg, bmp;
  ASSERT_TRUE(cv::imencode(".png", image, png) && cv::imencode(".jpg", image, jpeg) && cv::imencode(".bmp", image, bmp));
  std::vector<unsigned char> hugePng = png, widePng = png, hugeBmp = bmp;
  hugePng[16] = 0x7F;  // width 0x7F00001E
  widePng[16] = 0xFF;  // width 0xFF00001E
  hugeBmp[22] = 0xF0, hugeBmp[23] = 0xD8, hugeBmp[24] = 0xFF, hugeBmp[25] = 0xFF;  // height -10000 (top-down)
  const struct {
    std::vector<unsigned char> bytes;
    bool read;
    cv::Size size;
  } cases[] = {
      {png, true, {30, 20}},         {jpeg, true, {30, 20}},           {bmp, true, {30, 20}},
      {hugePng, true, {0x7F00001E, 20}}, {widePng, true, {INT32_MAX, 20}}, {hugeBmp, true, {30, 10000}},
      {{png.begin(), png.begin() + 23}, false, {}},   // cut in IHDR
      {{jpeg.begin(), jpeg.begin() + 20}, false, {}},  // no frame
      {{'B', 'M'}, false, {}},
  };
  for (const auto& c : cases) {
    cv::Size size;
    EXPECT_EQ(ImageHeaderSize(c.bytes, &size), c.read) << c.bytes.size();
    EXPECT_EQ(size, c.size) << c.bytes.size();
  }
  EXPECT_EQ(ErrorOf([&] { RequireDecodableSize(hugePng, "big.png"); }),
            "big.png: 2130706462x20 is larger than the accepted 10000x10000, not decoded");
  EXPECT_EQ(ErrorOf([&] { RequireDecodableSize(hugeBmp, "tall.bmp"); }), "");
}
