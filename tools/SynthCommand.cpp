#include "tools/SynthCommand.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include <opencv2/imgcodecs.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/BoardPlacement.h"
#include "synthetic/ChessboardRenderer.h"
#include "synthetic/SyntheticScene.h"
#include "station/ParameterText.h"
#include "station/RunOutputs.h"
#include "tools/ToolInput.h"

namespace {

constexpr char kDefaultSceneSize[] = "2000x1500";
constexpr int kMaxChartPairs = 64;

// Limits that a good refinement of the generated scene meets.
constexpr int32_t kSceneFeatureThreshold = 100;
constexpr int32_t kSceneMatchThreshold = 30;
constexpr int32_t kSceneScaleToleranceHundredths = 3;
constexpr int32_t kSceneOffsetLimitPx = 40;

void WriteSceneParameters(const std::string& path) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nFeaturePointsNumThreshold = kSceneFeatureThreshold;
  engine->m_nRefineFeaturePointsNumThreshold = kSceneMatchThreshold;
  engine->m_nHomographyConstraintScale = kSceneScaleToleranceHundredths;
  engine->m_nHomographyConstraintOffsetX = kSceneOffsetLimitPx;
  engine->m_nHomographyConstraintOffsetY = kSceneOffsetLimitPx;
  const std::string text = ParameterSectionText(*engine);
  WriteBytesAtomically(path, text.data(), text.size());
}

// A misalignment drawn from the seed: scale within 1%, rotation within
// 0.5 degrees, translation within 20 pixels.
cv::Matx33d SeededMisalignment(uint32_t seed) {
  cv::RNG random(seed);
  return SimilarityTransform(1.0 + random.uniform(-0.008, 0.008), random.uniform(-0.4, 0.4),
                             random.uniform(-15.0, 15.0), random.uniform(-15.0, 15.0));
}

cv::Size ParseOutputSize(const SynthOptions& options) {
  const cv::Size size = ParseSize(options.size.empty() ? kDefaultSceneSize : options.size, "--size");
  if (size.width < 1000 || size.width > 10000 || size.height < 1000 || size.height > 10000) {
    throw StationError("--size: each side must lie in 1000..10000, got '" + options.size + "'");
  }
  return size;
}

DistortionCoefficients ParseLens(const std::string& text, const std::string& option) {
  DistortionCoefficients lens = DistortionCoefficients::all(0.0);
  if (text.empty()) return lens;
  const std::vector<double> values = ParseDoubleList(text, {4, 5, 8}, option);
  for (size_t k = 0; k < values.size(); ++k) lens[static_cast<int>(k)] = values[k];
  if (MonotonicRadius(lens) < 1.0) {
    throw StationError(option + ": the lens folds back within 45 degrees of its axis, got '" + text + "'");
  }
  return lens;
}

// A pair of positive numbers for the two cameras, or both values as they were.
void ParseCameraPair(const std::string& text, const std::string& option, cv::Vec2d& values) {
  if (text.empty()) return;
  const std::vector<double> parsed = ParseDoubleList(text, {2}, option);
  if (parsed[0] <= 0.0 || parsed[1] <= 0.0) throw StationError(option + ": expected two positive numbers, got '" + text + "'");
  values = {parsed[0], parsed[1]};
}

// The command line's lenses, placement and conditions on the rig and options.
void ApplyChartConditions(const SynthChartConditions& chart, StereoRig& rig, PlacementOptions& placement,
                          RenderOptions& render) {
  rig.main.distortion = ParseLens(chart.mainLens, "--main-lens");
  rig.second.distortion = ParseLens(chart.secondLens, "--second-lens");
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
  const cv::Size size = ParseOutputSize(options);
  CreateOutputFolder(options.out);

  const cv::Matx33d mainToSecond = SimilarityTransform(1.002, 0.3, 12.0, -8.0);
  const cv::Matx33d misalignment = SeededMisalignment(options.seed);
  const SyntheticPair pair = RenderSyntheticPair(size, options.seed, mainToSecond, misalignment);

  CalibrationRecord record{};
  SetRecordHOtp(record, pair.hOtp);
  const std::filesystem::path directory(options.out);
  WriteImageAtomically((directory / kSceneMainImage).string(), pair.mainImage);
  WriteImageAtomically((directory / kSceneSecondImage).string(), pair.secondImage);
  WriteBytesAtomically((directory / kSceneRecord).string(), record.bytes, sizeof(record.bytes));
  WriteSceneParameters((directory / kSceneParams).string());
  const nlohmann::json truth = {{"size", {size.width, size.height}},
                                {"seed", options.seed},
                                {"main_to_second", MatrixJson(cv::Mat(mainToSecond))},
                                {"expected_estimate", MatrixJson(cv::Mat(pair.expectedEstimate))}};
  WriteJsonAtomically((directory / kSceneTruth).string(), truth);
  return truth;
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
  const cv::Size size = ParseOutputSize(options);
  if (options.pairs < 1 || options.pairs > kMaxChartPairs) {
    throw StationError("--pairs: expected 1.." + std::to_string(kMaxChartPairs) + ", got " +
                    std::to_string(options.pairs));
  }
  StereoRig rig = ExampleStereoRig(size, size);
  PlacementOptions placement = options.chart.placementOptions;
  RenderOptions render = options.chart.render;
  ApplyChartConditions(options.chart, rig, placement, render);
  const ChessboardLayout layout;
  const std::vector<BoardPose> poses = PlaceBoards(rig, layout, options.pairs, options.seed, placement);
  if (poses.empty()) throw StationError("synth chart: no board pose meets these placement options");
  CreateOutputFolder(options.out);
  std::vector<RenderedPair> pairs;
  std::vector<std::string> images;
  for (const BoardPose& pose : poses) {
    pairs.push_back(RenderPair(rig, layout, pose, render, options.seed * 1000 + pairs.size()));
    const bool jpeg = render.jpegQuality > 0;
    images.push_back(options.out + "/" + RenderedImageName(pairs.size() - 1, 0, jpeg));
    images.push_back(options.out + "/" + RenderedImageName(pairs.size() - 1, 1, jpeg));
  }
  for (size_t k = 0; k < pairs.size(); ++k) {
    for (int camera = 0; camera < 2; ++camera) {
      const cv::Mat& image = camera == 0 ? pairs[k].mainImage : pairs[k].secondImage;
      const std::vector<uchar>& jpeg = camera == 0 ? pairs[k].mainJpeg : pairs[k].secondJpeg;
      if (jpeg.empty()) {
        WriteImageAtomically(images[2 * k + camera], image);
      } else {
        WriteBytesAtomically(images[2 * k + camera], jpeg.data(), jpeg.size());
      }
    }
  }
  WriteJsonAtomically(options.out + "/" + kChartTruth, GroundTruthJson(rig, layout, render, pairs));
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  const std::string text = ParameterSectionText(*engine);
  WriteBytesAtomically(options.out + "/" + kChartParams, text.data(), text.size());
  return images;
}

int RunSynthChart(const SynthOptions& options) {
  const std::vector<std::string> images = WriteSyntheticChart(options);
  std::printf("wrote %zu pairs, %s and %s into %s\n", images.size() / 2, kChartParams, kChartTruth,
              options.out.c_str());
  return kExitSuccess;
}
