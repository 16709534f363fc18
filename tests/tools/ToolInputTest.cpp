#include "tools/ToolInput.h"

#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "tests/support/TestFiles.h"

namespace {

std::string ErrorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const ToolError& error) {
    return error.what();
  }
  return "";
}

}  // namespace

TEST(ParseSize, AcceptsWxHOnly) {
  EXPECT_EQ(ParseSize("4000x3000", "--size"), cv::Size(4000, 3000));
  EXPECT_EQ(ParseSize("1x1", "--size"), cv::Size(1, 1));
  for (const char* bad : {"", "4000", "4000x", "x3000", "4000X3000", "0x10", "10x-2", "1.5x2", "4000x3000x2",
                          "99999999999x1", " 4x4", "4x 4"}) {
    EXPECT_EQ(ErrorOf([&] { ParseSize(bad, "--out-size"); }),
              std::string("--out-size: expected WxH with positive integers, got '") + bad + "'");
  }
}

TEST(ParseFloatList, NeedsExactlyCountFiniteNumbers) {
  EXPECT_EQ(ParseFloatList("1,-2.5,3e2", 3, "--radial"), (std::vector<float>{1.0f, -2.5f, 300.0f}));
  for (const char* bad : {"", "1,2", "1,2,3,4", "1,,3", "1,2,", "a,b,c", "1,2,nan", "1,2,inf", "1;2;3", "1, 2,3"}) {
    EXPECT_EQ(ErrorOf([&] { ParseFloatList(bad, 3, "--radial"); }),
              std::string("--radial: expected 3 comma-separated numbers, got '") + bad + "'");
  }
}

TEST(ReadGrayImage, ConvertsDecodableEightBitImagesAndNamesTheFileOtherwise) {
  TempDir dir;
  cv::Mat colour(20, 30, CV_8UC3, cv::Scalar(10, 200, 50));
  ASSERT_TRUE(cv::imwrite(dir.File("colour.png"), colour));
  const cv::Mat gray = ReadGrayImage(dir.File("colour.png"));
  EXPECT_EQ(gray.type(), CV_8UC1);
  EXPECT_EQ(gray.size(), cv::Size(30, 20));
  EXPECT_EQ(gray.at<uint8_t>(0, 0), 133);  // 0.114*10 + 0.587*200 + 0.299*50 = 133.49

  ASSERT_TRUE(cv::imwrite(dir.File("deep.png"), cv::Mat(4, 4, CV_16UC1, cv::Scalar(1000))));
  WriteFile(dir.File("garbage.png"), "not an image");
  EXPECT_EQ(ErrorOf([&] { ReadGrayImage(dir.File("deep.png")); }), dir.File("deep.png") + ": not an 8-bit image");
  EXPECT_EQ(ErrorOf([&] { ReadGrayImage(dir.File("garbage.png")); }),
            dir.File("garbage.png") + ": not an image OpenCV can decode");
  EXPECT_EQ(ErrorOf([&] { ReadGrayImage(dir.File("missing.png")); }),
            dir.File("missing.png") + ": cannot open file");
}

TEST(ReadBinaryFile, ReadsEveryByte) {
  TempDir dir;
  const std::string bytes("\0\1\2\xff", 4);
  WriteFile(dir.File("record.bin"), bytes);
  EXPECT_EQ(ReadBinaryFile(dir.File("record.bin")), (std::vector<unsigned char>{0, 1, 2, 255}));
  EXPECT_EQ(ErrorOf([&] { ReadBinaryFile(dir.File("none.bin")); }), dir.File("none.bin") + ": cannot open file");
}
