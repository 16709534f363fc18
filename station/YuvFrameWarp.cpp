#include "station/YuvFrameWarp.h"

#include "station/InputFiles.h"

namespace {

YuvImage FrameOf(const uint8_t* bytes, cv::Size size) {
  YuvImage image;
  // The kernels take the source's planes through the same type as the target's; they only read them.
  image.luma = const_cast<uint8_t*>(bytes);
  image.chroma = image.luma + static_cast<size_t>(size.width) * size.height;
  image.width = size.width;
  image.height = size.height;
  return image;
}

}  // namespace

size_t FrameBytes(cv::Size size) {
  return static_cast<size_t>(size.width) * size.height + static_cast<size_t>(size.width) * (size.height / 2);
}

void RequireFrameSize(cv::Size size, const std::string& option, const std::string& text) {
  if (size.width < 1 || size.height < 1) {
    throw StationError(option + ": expected WxH with positive integers, got '" + text + "'");
  }
  if (size.width % 2 != 0 || size.height % 2 != 0) {
    throw StationError(option + ": width and height must be even, got '" + text + "'");
  }
  if (size.width > kMaxImageSidePx || size.height > kMaxImageSidePx) {
    throw StationError(option + ": each side must be at most 10000, got '" + text + "'");
  }
}

std::array<float, 9> CameraMatrix(float fx, float fy, float cx, float cy) {
  return {fx, 0.0f, cx, 0.0f, fy, cy, 0.0f, 0.0f, 1.0f};
}

float YuvFrameWarp::Run(const uint8_t* input, uint8_t* output) const {
  float zoom = 1.0f;
  filter.WarpYuvImageRadial(FrameOf(input, inputSize), FrameOf(output, outputSize), sourceCamera, targetCamera,
                            rotation, &zoom);
  return zoom;
}
