// Reads a chart run's image pairs one at a time, as their searches come, and
// refuses what cannot be a view of a stereo rig: a pair whose size differs
// from the first pair's, an image too small for the search, the same image
// as main and second, a pair that repeats an earlier one, or one file used
// as the main image of one pair and the second of another. Only keys of the
// pairs read so far are kept, so a long run holds one pair's images at a time.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

class PairIntake {
 public:
  // images: main1 second1 main2 second2 ..., kept by reference. pixels,
  // when not empty, holds those images themselves (kept by reference too)
  // and images only name them.
  PairIntake(const std::vector<std::string>& images, const std::vector<cv::Mat>& pixels)
      : mImages(images), mPixels(pixels) {}

  // Pair k (counted from 0) read as grey images and checked against pair 0
  // and the pairs before it; throws StationError naming the file or pair.
  std::pair<cv::Mat, cv::Mat> Read(size_t k);

 private:
  static constexpr const char* kRoles[2] = {"main", "second"};
  const std::vector<std::string>& mImages;
  const std::vector<cv::Mat>& mPixels;
  std::pair<cv::Size, cv::Size> mSizes;
  std::map<std::pair<dev_t, ino_t>, std::pair<size_t, int>> mFiles;
  std::map<std::pair<size_t, size_t>, size_t> mPairs;

  cv::Mat Image(size_t index) const;
};

// Images of a run held in memory instead of files. Throws StationError,
// naming command, unless pixels is empty or holds one image per name of
// images, each 8-bit with one channel, its rows packed and no side above
// kMaxImageSidePx.
void RequirePixelsNamed(const std::vector<cv::Mat>& pixels, const std::vector<std::string>& images,
                        const std::string& command);
