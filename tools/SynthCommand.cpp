#include "tools/SynthCommand.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include <opencv2/imgcodecs.hpp>

#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"
#include "synthetic/SyntheticScene.h"
#include "tools/ToolInput.h"
#include "tools/ToolOutput.h"

namespace {

constexpr char kDefaultSceneSize[] = "2000x1500";
constexpr int kMaxChartPairs = 64;
// Slight blur and sensor noise, as a real chart shot has.
constexpr double kChartBlurSigmaPx = 0.6;
constexpr double kChartNoiseSigma = 1.5;

// Limits that a good refinement of the generated scene meets.
constexpr int32_t kSceneFeatureThreshold = 100;
constexpr int32_t kSceneMatchThreshold = 30;
constexpr int32_t kSceneScaleToleranceHundredths = 3;
constexpr int32_t kSceneOffsetLimitPx = 40;

void WriteImage(const std::string& path, const cv::Mat& image) {
  WriteAtomically(path, [&](const std::string& temporary) { return cv::imwrite(temporary, image); });
}

void WriteSceneParameters(const std::string& path) {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nFeaturePointsNumThreshold = kSceneFeatureThreshold;
  engine->m_nRefineFeaturePointsNumThreshold = kSceneMatchThreshold;
  engine->m_nHomographyConstraintScale = kSceneScaleToleranceHundredths;
  engine->m_nHomographyConstraintOffsetX = kSceneOffsetLimitPx;
  engine->m_nHomographyConstraintOffsetY = kSceneOffsetLimitPx;
  WriteAtomically(path, [&](const std::string& temporary) {
    return SaveParametersToFile(*engine, temporary.c_str()) == 1;
  });
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
    throw ToolError("--size: each side must lie in 1000..10000, got '" + options.size + "'");
  }
  return size;
}

void CreateOutputDirectory(const std::string& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (!std::filesystem::is_directory(directory)) throw ToolError(directory + ": cannot create directory");
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
  CreateOutputDirectory(options.out);

  const cv::Matx33d mainToSecond = SimilarityTransform(1.002, 0.3, 12.0, -8.0);
  const cv::Matx33d misalignment = SeededMisalignment(options.seed);
  const SyntheticPair pair = RenderSyntheticPair(size, options.seed, mainToSecond, misalignment);

  CalibrationRecord record{};
  SetRecordHOtp(record, pair.hOtp);
  const std::filesystem::path directory(options.out);
  WriteImage((directory / kSceneMainImage).string(), pair.mainImage);
  WriteImage((directory / kSceneSecondImage).string(), pair.secondImage);
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
  command.add_option("--pairs", options.pairs, "Number of image pairs")->capture_default_str();
}

std::vector<std::string> WriteSyntheticChart(const SynthOptions& options) {
  const cv::Size size = ParseOutputSize(options);
  if (options.pairs < 1 || options.pairs > kMaxChartPairs) {
    throw ToolError("--pairs: expected 1.." + std::to_string(kMaxChartPairs) + ", got " +
                    std::to_string(options.pairs));
  }
  CreateOutputDirectory(options.out);
  const StereoRig rig = ExampleStereoRig(size, size);
  const ChessboardLayout layout;
  RenderOptions render;
  render.blurSigmaPx = kChartBlurSigmaPx;
  render.noiseSigma = kChartNoiseSigma;
  std::vector<RenderedPair> pairs;
  std::vector<std::string> images;
  for (const BoardPose& pose : RandomBoardPoses(rig, layout, options.pairs, options.seed)) {
    pairs.push_back(RenderPair(rig, layout, pose, render, options.seed * 1000 + pairs.size()));
    const std::string stem = options.out + "/pair_" + std::to_string(pairs.size() - 1);
    images.push_back(stem + "_main.png");
    images.push_back(stem + "_second.png");
  }
  if (!WriteRenderedPairs(options.out, rig, layout, render, pairs)) {
    throw ToolError(options.out + ": cannot write the chart images");
  }
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  const std::string params = (std::filesystem::path(options.out) / kChartParams).string();
  WriteAtomically(params, [&](const std::string& temporary) {
    return SaveParametersToFile(*engine, temporary.c_str()) == 1;
  });
  return images;
}

int RunSynthChart(const SynthOptions& options) {
  const std::vector<std::string> images = WriteSyntheticChart(options);
  std::printf("wrote %zu pairs, %s and %s into %s\n", images.size() / 2, kChartParams, kChartTruth,
              options.out.c_str());
  return kExitSuccess;
}
