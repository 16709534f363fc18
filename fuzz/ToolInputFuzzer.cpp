// Feeds arbitrary bytes to the station's input checks that no other target
// reaches: the image header reader with its size gate and the JPEG data
// check (libjpeg's own header parse, bounded to the accepted size), raw
// frame sizes and camera strings. The first byte
// picks the check, the rest is its input; whatever is accepted must lie
// within the stated bounds.
#include <cstdint>
#include <string>
#include <vector>

#include "tools/ToolInput.h"

namespace {

void CheckImageHeader(const std::vector<unsigned char>& bytes) {
  cv::Size size;
  const bool read = ImageHeaderSize(bytes, &size);
  if (read && (size.width < 0 || size.height < 0)) __builtin_trap();
  RequireDecodableSize(bytes, "image");
  if (read && (size.width > kMaxImageSidePx || size.height > kMaxImageSidePx)) __builtin_trap();
  // libjpeg reads the header again and may find a frame the walk above
  // stopped short of: the size gate must hold there too.
  JpegDataProblem(bytes);
}

void CheckFrameSize(const std::string& text) {
  const cv::Size size = ParseFrameSize(text, "--size");
  if (size.width < 2 || size.height < 2 || size.width > kMaxImageSidePx || size.height > kMaxImageSidePx ||
      size.width % 2 != 0 || size.height % 2 != 0) {
    __builtin_trap();
  }
  if (FrameBytes(size) != static_cast<size_t>(size.width) * static_cast<size_t>(size.height) * 3 / 2) __builtin_trap();
}

void CheckCamera(const std::string& text) {
  if (ParseCamera(text, "--source-camera").size() != 9) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::vector<unsigned char> bytes(data + 1, data + size);
  const std::string text(bytes.begin(), bytes.end());
  try {
    switch (data[0] % 3) {
      case 0: CheckImageHeader(bytes); break;
      case 1: CheckFrameSize(text); break;
      default: CheckCamera(text); break;
    }
  } catch (const StationError&) {
    // A refusal with a message is the expected answer to bad input.
  }
  return 0;
}
