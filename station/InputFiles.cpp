#include "station/InputFiles.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

// libjpeg needs FILE declared first.
#include <jpeglib.h>
#include <jerror.h>

namespace {

uint32_t BigEndian32(const std::vector<unsigned char>& bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) << 24 | static_cast<uint32_t>(bytes[at + 1]) << 16 |
         static_cast<uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

int BigEndian16(const std::vector<unsigned char>& bytes, size_t at) { return bytes[at] << 8 | bytes[at + 1]; }

int32_t LittleEndian32(const std::vector<unsigned char>& bytes, size_t at) {
  return static_cast<int32_t>(static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
                              static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24);
}

bool StartsWith(const std::vector<unsigned char>& bytes, const char* magic, size_t length) {
  return bytes.size() >= length && std::equal(magic, magic + length, bytes.begin(),
                                              [](char m, unsigned char b) { return static_cast<unsigned char>(m) == b; });
}

// Sides beyond int are reported as INT32_MAX: they are refused all the same.
int ClampedSide(int64_t side) { return static_cast<int>(std::min<int64_t>(side, INT32_MAX)); }

// The IHDR chunk comes first: width and height at bytes 16 and 20.
bool PngSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  if (bytes.size() < 24 || !StartsWith(bytes, "\x89PNG\r\n\x1a\n", 8)) return false;
  *size = {ClampedSide(BigEndian32(bytes, 16)), ClampedSide(BigEndian32(bytes, 20))};
  return true;
}

// Walks the markers to the first start-of-frame (C0..CF except C4, C8, CC).
bool JpegSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  if (!StartsWith(bytes, "\xff\xd8", 2)) return false;
  size_t at = 2;
  while (at + 4 <= bytes.size() && bytes[at] == 0xFF) {
    const int marker = bytes[at + 1];
    const size_t length = static_cast<size_t>(BigEndian16(bytes, at + 2));
    const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (frame) {
      if (at + 9 > bytes.size()) return false;
      *size = {BigEndian16(bytes, at + 7), BigEndian16(bytes, at + 5)};
      return true;
    }
    if (length < 2) return false;
    at += 2 + length;
  }
  return false;
}

// Width and height at bytes 18 and 22; a negative height means top-down rows.
bool BmpSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  if (bytes.size() < 26 || !StartsWith(bytes, "BM", 2)) return false;
  *size = {ClampedSide(std::abs(static_cast<int64_t>(LittleEndian32(bytes, 18)))),
           ClampedSide(std::abs(static_cast<int64_t>(LittleEndian32(bytes, 22))))};
  return true;
}

// What libjpeg said while decoding: the first data warning or the error
// that stopped it, and whether the data ended before the end of image.
struct JpegMessages {
  jpeg_error_mgr manager;  // first, so that libjpeg's error pointer is also this struct's
  std::jmp_buf stop;
  int dataWarnings = 0;
  bool cutShort = false;
  cv::Size size;  // from the frame header, once read
  char text[JMSG_LENGTH_MAX] = "";
};

void StopJpegDecode(j_common_ptr info) {
  JpegMessages* messages = reinterpret_cast<JpegMessages*>(info->err);
  (*info->err->format_message)(info, messages->text);
  std::longjmp(messages->stop, 1);
}

// Warnings about the file's metadata (an unknown JFIF revision or Adobe
// transform, a bad ICC profile) leave the pixels as they are; every other
// warning means data that was skipped or invented.
void NoteJpegMessage(j_common_ptr info, int level) {
  if (level >= 0) return;
  const int code = info->err->msg_code;
  if (code == JWRN_JFIF_MAJOR || code == JWRN_ADOBE_XFORM || code == JWRN_BOGUS_ICC) return;
  JpegMessages* messages = reinterpret_cast<JpegMessages*>(info->err);
  if (code == JWRN_JPEG_EOF) messages->cutShort = true;
  if (messages->dataWarnings++ == 0) (*info->err->format_message)(info, messages->text);
}

// Entropy-decodes every scan of a JPEG without its inverse transform, the
// part of a decode where damaged data shows. Returns 0; -1 when libjpeg
// stopped with an error; -2, before any scan, for a side above
// kMaxImageSidePx in the frame header that libjpeg reads (a header walk of
// our own may have stopped short of it). Holds no C++ object across the setjmp.
int DecodeJpegScans(const std::vector<unsigned char>& bytes, JpegMessages* messages) {
  jpeg_decompress_struct info = {};
  info.err = jpeg_std_error(&messages->manager);
  messages->manager.error_exit = StopJpegDecode;
  messages->manager.emit_message = NoteJpegMessage;
  if (setjmp(messages->stop) != 0) {
    jpeg_destroy_decompress(&info);
    return -1;
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, bytes.data(), static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&info, TRUE);
  messages->size = {static_cast<int>(std::min<JDIMENSION>(info.image_width, INT32_MAX)),
                    static_cast<int>(std::min<JDIMENSION>(info.image_height, INT32_MAX))};
  if (messages->size.width > kMaxImageSidePx || messages->size.height > kMaxImageSidePx) {
    jpeg_destroy_decompress(&info);
    return -2;
  }
  jpeg_read_coefficients(&info);
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return 0;
}

std::string SizeTooLarge(cv::Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height) +
         " is larger than the accepted 10000x10000, not decoded";
}

// The size of path, which must be a regular file of at most maxBytes bytes
// that can be opened for reading.
uintmax_t InputFileBytes(const std::string& path, uintmax_t maxBytes) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) throw StationError(path + ": cannot open file");
  if (!fs::is_regular_file(status)) throw StationError(path + ": not a regular file");
  const uintmax_t bytes = fs::file_size(path, error);
  if (error || !std::ifstream(path, std::ios::binary)) throw StationError(path + ": cannot open file");
  if (bytes > maxBytes) {
    throw StationError(path + ": " + std::to_string(bytes) + " bytes, more than the " + std::to_string(maxBytes) +
                    " this input may hold");
  }
  return bytes;
}

}  // namespace

void RequireReadableFile(const std::string& path, uintmax_t maxBytes) { InputFileBytes(path, maxBytes); }

std::vector<unsigned char> ReadBinaryFile(const std::string& path, uintmax_t maxBytes) {
  std::vector<unsigned char> bytes(static_cast<size_t>(InputFileBytes(path, maxBytes)));
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  // A file that changed size since it was measured is not read on.
  if (!in || in.peek() != std::ifstream::traits_type::eof()) throw StationError(path + ": cannot read file");
  return bytes;
}

bool ImageHeaderSize(const std::vector<unsigned char>& bytes, cv::Size* size) {
  return PngSize(bytes, size) || JpegSize(bytes, size) || BmpSize(bytes, size);
}

void RequireDecodableSize(const std::vector<unsigned char>& bytes, const std::string& path) {
  cv::Size size;
  if (ImageHeaderSize(bytes, &size) && (size.width > kMaxImageSidePx || size.height > kMaxImageSidePx)) {
    throw StationError(path + ": " + SizeTooLarge(size));
  }
}

std::string JpegDataProblem(const std::vector<unsigned char>& bytes) {
  JpegMessages messages;
  const int decoded = DecodeJpegScans(bytes, &messages);
  if (decoded == -2) return SizeTooLarge(messages.size);
  if (messages.cutShort) return "a JPEG cut short (no end of image after its scan data)";
  if (decoded != 0) return std::string("a JPEG libjpeg cannot decode (") + messages.text + ")";
  if (messages.dataWarnings > 0) return std::string("corrupt JPEG data (") + messages.text + ")";
  return "";
}

cv::Mat ReadGrayImage(const std::string& path) {
  const std::vector<unsigned char> bytes = ReadBinaryFile(path, kMaxImageFileBytes);
  RequireDecodableSize(bytes, path);
  if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xD8) {
    const std::string problem = JpegDataProblem(bytes);
    if (!problem.empty()) throw StationError(path + ": " + problem);
  }
  const cv::Mat image = bytes.empty() ? cv::Mat() : cv::imdecode(bytes, cv::IMREAD_UNCHANGED);
  if (image.empty()) throw StationError(path + ": not an image OpenCV can decode");
  if (image.depth() != CV_8U) throw StationError(path + ": not an 8-bit image");
  cv::Mat gray;
  switch (image.channels()) {
    case 1: gray = image; break;
    case 3: cv::cvtColor(image, gray, cv::COLOR_BGR2GRAY); break;
    case 4: cv::cvtColor(image, gray, cv::COLOR_BGRA2GRAY); break;
    default: throw StationError(path + ": unsupported number of channels");
  }
  return gray.isContinuous() ? gray : gray.clone();
}

void RequireChartImageSize(const cv::Mat& image, const std::string& path) {
  if (image.cols < kMinChartImageSidePx || image.rows < kMinChartImageSidePx) {
    throw StationError(path + ": " + std::to_string(image.cols) + "x" + std::to_string(image.rows) +
                       " is below the " + std::to_string(kMinChartImageSidePx) + " pixels per side the chessboard "
                       "search needs");
  }
}
void RequireSameSize(const cv::Mat& image, const std::string& path, cv::Size reference,
                     const std::string& referencePath) {
  if (image.size() == reference) return;
  throw StationError(path + ": " + std::to_string(image.cols) + "x" + std::to_string(image.rows) + " differs from the " +
                     std::to_string(reference.width) + "x" + std::to_string(reference.height) + " of " + referencePath);
}
