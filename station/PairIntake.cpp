#include "station/PairIntake.h"

#include <sys/stat.h>

#include <functional>
#include <string_view>

#include "station/InputFiles.h"

namespace {

bool SamePixels(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

// A key of an image's pixels (ReadGrayImage's images are continuous), that
// finds repeated images in one pass.
size_t PixelKey(const cv::Mat& image) {
  return std::hash<std::string_view>{}(std::string_view(reinterpret_cast<const char*>(image.data), image.total()));
}

}  // namespace

std::pair<cv::Mat, cv::Mat> PairIntake::Read(size_t k) {
  const std::string& mainPath = mImages[2 * k];
  const std::string& secondPath = mImages[2 * k + 1];
  std::pair<cv::Mat, cv::Mat> pair(ReadGrayImage(mainPath), ReadGrayImage(secondPath));
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
    if (stat(mImages[2 * k + role].c_str(), &status) != 0) continue;
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
