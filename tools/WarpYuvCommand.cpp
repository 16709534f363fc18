#include "tools/WarpYuvCommand.h"

#include <cstdio>
#include <vector>

#include "distortion/CDistortionFilter.h"
#include "tools/ToolInput.h"
#include "tools/ToolOutput.h"

namespace {

void CopyValues(const std::vector<float>& values, float* destination) {
  for (size_t i = 0; i < values.size(); ++i) destination[i] = values[i];
}

YuvImage FrameOf(std::vector<uint8_t>& bytes, cv::Size size) {
  YuvImage image;
  image.luma = bytes.data();
  image.chroma = bytes.data() + static_cast<size_t>(size.width) * size.height;
  image.width = size.width;
  image.height = size.height;
  return image;
}

}  // namespace

void AddWarpYuvOptions(CLI::App& command, WarpYuvOptions& options) {
  command.add_option("--in", options.input, "Raw 4:2:0 input frame with interleaved chroma")->required();
  command.add_option("--size", options.inputSize, "Input size WxH (even)")->required();
  command.add_option("--out", options.output, "Output frame file")->required();
  command.add_option("--out-size", options.outputSize, "Output size WxH (even)")->required();
  command.add_option("--source-camera", options.sourceCamera, "Input camera fx,fy,cx,cy")->required();
  command.add_option("--target-camera", options.targetCamera, "Output camera fx,fy,cx,cy")->required();
  command.add_option("--radial", options.radial, "Radial model k1,k2,k3")->capture_default_str();
  command.add_option("--rotation", options.rotation, "Rectifying rotation m0,...,m8 (row major)")
      ->capture_default_str();
  command.add_option("--forward", options.forward, "Forward transform ox,oy,s")->capture_default_str();
  command.add_option("--source", options.source, "Source transform ox,oy,s")->capture_default_str();
}

int RunWarpYuv(const WarpYuvOptions& options) {
  const cv::Size inputSize = ParseFrameSize(options.inputSize, "--size");
  const cv::Size outputSize = ParseFrameSize(options.outputSize, "--out-size");
  const std::vector<float> sourceCamera = ParseCamera(options.sourceCamera, "--source-camera");
  const std::vector<float> targetCamera = ParseCamera(options.targetCamera, "--target-camera");
  const std::vector<float> rotation = ParseFloatList(options.rotation, 9, "--rotation");

  CDistortionFilter filter;
  CopyValues(ParseFloatList(options.radial, 3, "--radial"), filter.radialCoefficients);
  CopyValues(ParseFloatList(options.forward, 3, "--forward"), filter.forwardTransform);
  CopyValues(ParseFloatList(options.source, 3, "--source"), filter.sourceTransform);

  std::vector<uint8_t> input = ReadBinaryFile(options.input, FrameBytes(inputSize));
  if (input.size() != FrameBytes(inputSize)) {
    throw ToolError(options.input + ": expected " + std::to_string(FrameBytes(inputSize)) + " bytes for " +
                    options.inputSize + ", found " + std::to_string(input.size()));
  }
  std::vector<uint8_t> output(FrameBytes(outputSize), 0);
  float zoom = 1.0f;
  filter.WarpYuvImageRadial(FrameOf(input, inputSize), FrameOf(output, outputSize), sourceCamera.data(),
                            targetCamera.data(), rotation.data(), &zoom);
  WriteBytesAtomically(options.output, output.data(), output.size());
  std::printf("zoom: %.6f\nwrote %s (%dx%d)\n", zoom, options.output.c_str(), outputSize.width,
              outputSize.height);
  return kExitSuccess;
}
