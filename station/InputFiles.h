// Input files of a station run: images and text files, bounded before they
// are read (only regular files, each kind up to its stated size, images no
// larger than the library accepts) and checked as a calibration needs them.
// Every problem is a StationError naming the file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "station/StationError.h"

// Largest input files read: images, and text files (parameters, distortion
// tables). A record holds exactly kCalibrationRecordSize bytes and a raw
// frame exactly what its size asks for.
constexpr uintmax_t kMaxImageFileBytes = uintmax_t{512} << 20;
constexpr uintmax_t kMaxTextFileBytes = uintmax_t{16} << 20;
// Largest image side the library accepts, for images and raw frames alike.
constexpr int kMaxImageSidePx = 10000;

// Throws unless path names a regular file of at most maxBytes bytes that can
// be opened for reading.
void RequireReadableFile(const std::string& path, uintmax_t maxBytes);
// The whole contents of such a file.
std::vector<unsigned char> ReadBinaryFile(const std::string& path, uintmax_t maxBytes);
// Width and height from the header of a PNG, JPEG or BMP file; false for
// any other format or a header that cannot be read.
bool ImageHeaderSize(const std::vector<unsigned char>& bytes, cv::Size* size);
// Throws when the header gives a side above kMaxImageSidePx: such an image
// is refused before it is decoded.
void RequireDecodableSize(const std::vector<unsigned char>& bytes, const std::string& path);
// An image in any format OpenCV decodes, 8 bits per channel, converted to
// one grey channel; a JPEG whose data is cut short or damaged is refused.
cv::Mat ReadGrayImage(const std::string& path);
// Empty when every scan of a JPEG file decodes without a warning from
// libjpeg; otherwise what is wrong: cut short, damaged data (which OpenCV
// decodes all the same, into grey or smeared blocks), or not decodable.
std::string JpegDataProblem(const std::vector<unsigned char>& bytes);
// Smallest image side of a chart pair: the engine searches the image at
// quarter size, where 16 pixels hold four squares of 4 pixels, the least a
// board of 3 x 3 inner corners needs.
constexpr int kMinChartImageSidePx = 64;
// Throws, naming path, for an image below that size.
void RequireChartImageSize(const cv::Mat& image, const std::string& path);
// Throws, naming path, unless image has the size of the reference image
// at referencePath.
void RequireSameSize(const cv::Mat& image, const std::string& path, cv::Size reference,
                     const std::string& referencePath);
