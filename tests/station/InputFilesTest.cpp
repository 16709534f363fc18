#include "station/InputFiles.h"

#include "tests/support/TestPrelude.h"
#include "tests/support/StationErrorOf.h"

#include <opencv2/imgcodecs.hpp>

// The messages of unreadable files are checked through the tool (QlmCalib.BadInputs...).
TEST(InputFiles, ColourImagesTurnGreyAndBinaryFilesReadWhole) {
  TempDir dir;
  ASSERT_TRUE(cv::imwrite(dir.File("colour.png"), cv::Mat(20, 30, CV_8UC3, cv::Scalar(10, 200, 50))));
  // 0.114*10 + 0.587*200 + 0.299*50 = 133.49
  EXPECT_EQ(cv::norm(ReadGrayImage(dir.File("colour.png")), cv::Mat(20, 30, CV_8UC1, cv::Scalar(133)), cv::NORM_INF), 0);
  WriteFile(dir.File("record.bin"), std::string("\0\1\2\xff", 4));
  EXPECT_EQ(ReadBinaryFile(dir.File("record.bin"), 4), (std::vector<unsigned char>{0, 1, 2, 255}));
}

// Headers as the encoders write them, cut short, and of sizes no encoder here would write.
TEST(InputFiles, ImageHeaderSizeReadsPngJpegAndBmpHeadersOnly) {
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
  EXPECT_EQ(StationErrorOf([&] { RequireDecodableSize(hugePng, "big.png"); }),
            "big.png: 2130706462x20 is larger than the accepted 10000x10000, not decoded");
  EXPECT_EQ(StationErrorOf([&] { RequireDecodableSize(hugeBmp, "tall.bmp"); }), "");
}

// A JPEG decodes in OpenCV whatever its scan data holds; damage shows only
// as libjpeg's warnings, which turn the file away.
TEST(InputFiles, JpegWithDamagedOrMissingDataIsRefused) {
  cv::Mat image(240, 320, CV_8UC1);
  cv::randu(image, 0, 256);
  std::vector<unsigned char> jpeg;
  ASSERT_TRUE(cv::imencode(".jpg", image, jpeg));
  EXPECT_EQ(JpegDataProblem(jpeg), "");
  std::vector<unsigned char> damaged = jpeg;
  for (size_t k = damaged.size() / 2; k < damaged.size() / 2 + 64; ++k) damaged[k] = 0xFF;
  ASSERT_FALSE(cv::imdecode(damaged, cv::IMREAD_UNCHANGED).empty());
  // The run of 0xFF ends the scan early; libjpeg skips what follows up to
  // the end of image and says how much it skipped.
  const std::string damage = JpegDataProblem(damaged);
  EXPECT_EQ(damage.rfind("corrupt JPEG data (Corrupt JPEG data: ", 0), 0u) << damage;
  EXPECT_EQ(damage.substr(damage.size() - 26), " bytes before marker 0xd9)") << damage;
  const std::vector<unsigned char> cut(jpeg.begin(), jpeg.begin() + jpeg.size() / 2);
  EXPECT_EQ(JpegDataProblem(cut), "a JPEG cut short (no end of image after its scan data)");
  EXPECT_EQ(JpegDataProblem({0xFF, 0xD8, 0xFF, 0xD9}), "a JPEG libjpeg cannot decode (JPEG datastream contains no image)");
  TempDir dir;
  WriteFile(dir.File("damaged.jpg"), std::string(damaged.begin(), damaged.end()));
  EXPECT_EQ(StationErrorOf([&] { ReadGrayImage(dir.File("damaged.jpg")); }),
            dir.File("damaged.jpg") + ": " + damage);
}
