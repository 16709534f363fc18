// Input side of the command-line tool: option values, input files and
// images. Every problem is a StationError naming the option or file, which the
// tool reports on one line and answers with exit status 2. Inputs are
// bounded before they are read: only regular files, each kind up to its
// stated size, and images no larger than the library accepts.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <opencv2/core.hpp>

#include "station/StationError.h"

// Largest input files read: images, and text files (parameters, distortion
// tables). A record holds exactly kCalibrationRecordSize bytes and a raw
// frame exactly what its size asks for.
constexpr uintmax_t kMaxImageFileBytes = uintmax_t{512} << 20;
constexpr uintmax_t kMaxTextFileBytes = uintmax_t{16} << 20;
// Largest image side the library accepts, for images and raw frames alike.
constexpr int kMaxImageSidePx = 10000;

// "WxH" with positive integers, e.g. "4000x3000".
cv::Size ParseSize(const std::string& text, const std::string& option);
// Exactly count comma-separated finite numbers, e.g. "1000,1000,2000,1500".
std::vector<float> ParseFloatList(const std::string& text, size_t count, const std::string& option);
// As many comma-separated finite numbers as one of counts, at double precision.
std::vector<double> ParseDoubleList(const std::string& text, const std::vector<size_t>& counts,
                                    const std::string& option);
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
// one grey channel; a JPEG cut short is refused.
cv::Mat ReadGrayImage(const std::string& path);
// Whether a JPEG file holds its end-of-image marker after its scan data:
// false for a file cut short.
bool JpegComplete(const std::vector<unsigned char>& bytes);
// Smallest image side of a chart pair: the engine searches the image at
// quarter size, where 16 pixels hold four squares of 4 pixels, the least a
// board of 3 x 3 inner corners needs.
constexpr int kMinChartImageSidePx = 64;
// Throws, naming path, for an image below that size.
void RequireChartImageSize(const cv::Mat& image, const std::string& path);
// An option check: a finite number within [low, high] (CLI11's own range
// checks let NaN through).
CLI::Validator FiniteWithin(double low, double high);
// Throws, naming path, unless image has the size of the reference image
// at referencePath.
void RequireSameSize(const cv::Mat& image, const std::string& path, cv::Size reference,
                     const std::string& referencePath);

// Raw 4:2:0 frames with interleaved chroma: "WxH" with even sides of at most
// kMaxImageSidePx, and the frame's byte count (W*H luma, W*(H/2) chroma).
cv::Size ParseFrameSize(const std::string& text, const std::string& option);
size_t FrameBytes(cv::Size size);
// "fx,fy,cx,cy" as a row-major 3x3 camera matrix.
std::vector<float> ParseCamera(const std::string& text, const std::string& option);
