#include "station/PairIntake.h"

#include <sys/stat.h>

#include <functional>
#include <string_view>

#include "station/InputFiles.h"

namespace {

bool SamePixels(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

// A key of an image's pixels (ReadGrayImage's images and held ones are continuous), that
// finds repeated images in one pass.
size_t PixelKey(const cv::Mat& image) {
  return std::hash<std::string_view>{}(std::string_view(reinterpret_cast<const char*>(image.data), image.total()));
}

}  // namespace

void RequirePixelsNamed(const std::vector<cv::Mat>& pixels, const std::vector<std::string>& images,
                        const std::string& command) {
  if (pixels.empty()) return;
  if (pixels.size() != images.size()) {
    throw StationError(command + ": " + std::to_string(images.size()) + " image names for " +
                       std::to_string(pixels.size()) + " images");
  }
  for (size_t i = 0; i < pixels.size(); ++i) {
    if (pixels[i].type() != CV_8UC1 || !pixels[i].isContinuous()) {
      throw StationError(images[i] + ": not an 8-bit single-channel image with packed rows");
    }
    if (pixels[i].cols > kMaxImageSidePx || pixels[i].rows > kMaxImageSidePx) {
      throw StationError(images[i] + ": " + std::to_string(pixels[i].cols) + "x" + std::to_string(pixels[i].rows) +
                         " is larger than the accepted 10000x10000");
    }
  }
}

cv::Mat PairIntake::Image(size_t index) const {
  return mPixels.empty() ? ReadGrayImage(mImages[index]) : mPixels.at(index);
}

std::pair<cv::Mat, cv::Mat> PairIntake::Read(size_t k) {
  const std::string& mainPath = mImages[2 * k];
  const std::string& secondPath = mImages[2 * k + 1];
  std::pair<cv::Mat, cv::Mat> pair(Image(2 * k), Image(2 * k + 1));
  if (k == 0) mSizes = {pair.first.size(), pair.second.size()};
  RequireSameSize(pair.first, mainPath, mSizes.first, mImages[0]);
  RequireSameSize(pair.second, secondPath, mSizes.second, mImages[1]);
  RequireChartImageSize(pair.first, mainPath);
  RequireChartImageSize(pair.second, secondPath);
  const std::string label = "pair " + std::to_string(k + 1) + ": ";
  if (SamePixels(pair.first, pair.second)) {
    throw StationError(label + mainPath + " and " + secondPath + " are the same image");
  }
  for (int role = 0; role < 2; ++role) {
    struct stat status = {};
    if (!mPixels.empty() || stat(mImages[2 * k + role].c_str(), &status) != 0) continue;
    const auto [at, added] = mFiles.insert({{status.st_dev, status.st_ino}, {k, role}});
    if (!added && at->second.second != role) {
      throw StationError(mImages[2 * k + role] + ": the " + kRoles[role] + " image of pair " + std::to_string(k + 1) +
                         " and the " + kRoles[1 - role] + " image of pair " + std::to_string(at->second.first + 1));
    }
  }
  const auto [at, added] = mPairs.insert({{PixelKey(pair.first), PixelKey(pair.second)}, k});
  if (!added) throw StationError(label + "the same images as pair " + std::to_string(at->second + 1));
  return pair;
}
