#include "tools/SynthCommand.h"

#include <cstdio>
#include <filesystem>

#include <opencv2/imgcodecs.hpp>

#include "station/RunOutputs.h"
#include "synthetic/ChessboardRenderer.h"
#include "tools/ToolInput.h"

namespace {

constexpr char kDefaultSceneSize[] = "2000x1500";

cv::Size ParseOutputSize(const SynthOptions& options) {
  return ParseSize(options.size.empty() ? kDefaultSceneSize : options.size, "--size");
}

DistortionCoefficients ParseLens(const std::string& text, const std::string& option) {
  if (text.empty()) return DistortionCoefficients::all(0.0);
  return SyntheticLens(ParseDoubleList(text, {4, 5, 8}, option), option, text);
}

// A pair of positive numbers for the two cameras, or both values as they were.
void ParseCameraPair(const std::string& text, const std::string& option, cv::Vec2d& values) {
  if (text.empty()) return;
  const std::vector<double> parsed = ParseDoubleList(text, {2}, option);
  if (parsed[0] <= 0.0 || parsed[1] <= 0.0) throw StationError(option + ": expected two positive numbers, got '" + text + "'");
  values = {parsed[0], parsed[1]};
}

// The command line's lenses, placement and conditions on the rig and options.
void ApplyChartConditions(const SynthChartConditions& chart, SyntheticChartRequest& request) {
  PlacementOptions& placement = request.placement;
  RenderOptions& render = request.render;
  request.mainLens = ParseLens(chart.mainLens, "--main-lens");
  request.secondLens = ParseLens(chart.secondLens, "--second-lens");
  ParsePlacement(chart.placement, placement.placement);
  if (!chart.squarePx.empty()) {
    const std::vector<double> side = ParseDoubleList(chart.squarePx, {2}, "--square-px");
    if (side[0] < 12.0 || side[1] < side[0] || side[1] > 2000.0) {
      throw StationError("--square-px: expected MIN,MAX with 12 <= MIN <= MAX <= 2000, got '" + chart.squarePx + "'");
    }
    placement.minSquarePx = side[0], placement.maxSquarePx = side[1];
  }
  if (!chart.motionBlur.empty()) {
    const std::vector<double> motion = ParseDoubleList(chart.motionBlur, {1, 2}, "--motion-blur");
    if (motion[0] < 0.0 || motion[0] > 200.0) {
      throw StationError("--motion-blur: expected a length of 0..200 px, got '" + chart.motionBlur + "'");
    }
    render.motionBlurPx = motion[0];
    render.motionBlurAngleDeg = motion.size() == 2 ? motion[1] : 0.0;
  }
  ParseCameraPair(chart.exposure, "--exposure", render.exposure);
  ParseCameraPair(chart.gain, "--gain", render.gain);
}

void AddCommonOptions(CLI::App& command, SynthOptions& options) {
  command.add_option("--out", options.out, "Output directory")->required();
  command.add_option("--size", options.size, "Image size WxH (1000..10000 per side)")
      ->default_str(kDefaultSceneSize);
  command.add_option("--seed", options.seed, "Seed of the generated data")->capture_default_str();
}

}  // namespace

void AddSynthSceneOptions(CLI::App& command, SynthOptions& options) { AddCommonOptions(command, options); }

nlohmann::json WriteSyntheticScene(const SynthOptions& options) {
  const SyntheticSceneData scene = MakeSyntheticScene(ParseOutputSize(options), options.seed, options.size);
  CreateOutputFolder(options.out);
  const std::filesystem::path directory(options.out);
  WriteImageAtomically((directory / kSceneMainImage).string(), scene.mainImage);
  WriteImageAtomically((directory / kSceneSecondImage).string(), scene.secondImage);
  WriteBytesAtomically((directory / kSceneRecord).string(), scene.record.bytes, sizeof(scene.record.bytes));
  WriteStringAtomically((directory / kSceneParams).string(), scene.parameters);
  WriteJsonAtomically((directory / kSceneTruth).string(), scene.truth);
  return scene.truth;
}

int RunSynthScene(const SynthOptions& options) {
  WriteSyntheticScene(options);
  std::printf("wrote %s/{%s,%s,%s,%s,%s}\n", options.out.c_str(), kSceneMainImage, kSceneSecondImage,
              kSceneRecord, kSceneParams, kSceneTruth);
  return kExitSuccess;
}

void AddSynthChartOptions(CLI::App& command, SynthOptions& options) {
  AddCommonOptions(command, options);
  SynthChartConditions& chart = options.chart;
  PlacementOptions& placement = chart.placementOptions;
  RenderOptions& render = chart.render;
  const auto nonNegative = FiniteWithin(0.0, 1e6);
  command.add_option("--pairs", options.pairs, "Number of image pairs")->capture_default_str();
  command.add_option("--main-lens", chart.mainLens,
                     "Main lens k1,k2,p1,p2[,k3[,k4,k5,k6]] (OpenCV's model; a phone's ultra-wide has k1 -0.2 to -0.45)");
  command.add_option("--second-lens", chart.secondLens,
                     "Second lens, same form (the two cameras of a phone have different lenses)");
  command.add_option("--placement", chart.placement,
                     "centre, anywhere, border or corner: where the board lies (the operator filling the image's "
                     "edges and corners, where distortion is strongest)")
      ->check(CLI::IsMember({"centre", "anywhere", "border", "corner"}))
      ->capture_default_str();
  command.add_option("--border-px", placement.borderPx,
                     "border, corner: the board's nearest corner this far from the edge (a board pushed to the edge)")
      ->check(FiniteWithin(kMinCornerMarginPx, 1e4))
      ->capture_default_str();
  command.add_option("--max-roll", placement.maxRollDeg,
                     "Roll of the board in its plane up to this many degrees (hand-held; 180: upside down too)")
      ->check(FiniteWithin(0.0, 180.0))
      ->capture_default_str();
  command.add_option("--max-tilt", placement.maxTiltDeg, "Tilt of the board up to this many degrees")
      ->check(FiniteWithin(0.0, 60.0))
      ->capture_default_str();
  command.add_option("--square-px", chart.squarePx,
                     "MIN,MAX mean square side in the main image, not with centre (12: a far board or a binned capture)")
      ->default_str("48,120");
  command.add_option("--blur", render.blurSigmaPx, "Lens blur, Gaussian sigma in px (any real lens)")
      ->check(nonNegative)
      ->capture_default_str();
  command.add_option("--defocus", render.defocusRadiusPx,
                     "Out of focus: disc radius in px (a fixed-focus module, a board nearer than the focus)")
      ->check(nonNegative);
  command.add_option("--motion-blur", chart.motionBlur,
                     "LENGTH[,ANGLE] motion during the exposure in px and degrees (a hand-held board)");
  command.add_option("--vignetting", render.vignetting,
                     "Illumination in the image corners relative to the centre (0.3 to 0.5 on an ultra-wide)")
      ->check(FiniteWithin(0.01, 1.0));
  command.add_option("--exposure", chart.exposure,
                     "MAIN,SECOND exposure of each camera (the two cameras meter the scene differently)");
  command.add_option("--gain", chart.gain, "MAIN,SECOND analogue gain of each camera, on signal and noise (low light)");
  command.add_option("--read-noise", render.noiseSigma, "Read noise, grey levels at unit gain")
      ->check(nonNegative)
      ->capture_default_str();
  command.add_option("--shot-noise", render.shotNoise,
                     "Shot noise variance per grey level of signal at unit gain (small phone pixels: 0.5 to 2)")
      ->check(nonNegative);
  command.add_option("--jpeg", render.jpegQuality, "Write JPEG captures of this quality, 1..100 (phones deliver JPEG)")
      ->check(CLI::Range(1, 100));
}

std::vector<std::string> WriteSyntheticChart(const SynthOptions& options) {
  SyntheticChartRequest request;
  request.size = ParseOutputSize(options);
  request.sizeText = options.size;
  request.seed = options.seed;
  request.pairs = options.pairs;
  request.placement = options.chart.placementOptions;
  request.render = options.chart.render;
  ApplyChartConditions(options.chart, request);
  const SyntheticChartData chart = MakeSyntheticChart(request);
  CreateOutputFolder(options.out);
  const bool jpeg = request.render.jpegQuality > 0;
  std::vector<std::string> images;
  for (size_t k = 0; k < chart.pairs.size(); ++k) {
    for (int camera = 0; camera < 2; ++camera) {
      images.push_back(options.out + "/" + RenderedImageName(k, camera, jpeg));
      const cv::Mat& image = camera == 0 ? chart.pairs[k].mainImage : chart.pairs[k].secondImage;
      const std::vector<uchar>& encoded = camera == 0 ? chart.pairs[k].mainJpeg : chart.pairs[k].secondJpeg;
      if (encoded.empty()) {
        WriteImageAtomically(images.back(), image);
      } else {
        WriteBytesAtomically(images.back(), encoded.data(), encoded.size());
      }
    }
  }
  WriteJsonAtomically(options.out + "/" + kChartTruth, chart.truth);
  WriteStringAtomically(options.out + "/" + kChartParams, chart.parameters);
  return images;
}

int RunSynthChart(const SynthOptions& options) {
  const std::vector<std::string> images = WriteSyntheticChart(options);
  std::printf("wrote %zu pairs, %s and %s into %s\n", images.size() / 2, kChartParams, kChartTruth,
              options.out.c_str());
  return kExitSuccess;
}
