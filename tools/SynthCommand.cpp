#include "tools/SynthCommand.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include <opencv2/imgcodecs.hpp>

#include "engine/dualCalibration.h"
#include "tests/support/SyntheticScene.h"
#include "tools/ToolInput.h"
#include "tools/ToolOutput.h"

namespace {

constexpr char kDefaultSceneSize[] = "2000x1500";

// Limits that a good refinement of the generated scene meets.
constexpr int32_t kSceneFeatureThreshold = 100;
constexpr int32_t kSceneMatchThreshold = 30;
constexpr int32_t kSceneScaleToleranceHundredths = 3;
constexpr int32_t kSceneOffsetLimitPx = 40;

nlohmann::json MatrixJson(const cv::Matx33d& matrix) {
  nlohmann::json rows = nlohmann::json::array();
  for (int r = 0; r < 3; ++r) rows.push_back({matrix(r, 0), matrix(r, 1), matrix(r, 2)});
  return rows;
}

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

}  // namespace

void AddSynthSceneOptions(CLI::App& command, SynthOptions& options) {
  command.add_option("--out", options.out, "Output directory")->required();
  command.add_option("--size", options.size, "Image size WxH (1000..10000 per side)")
      ->default_str(kDefaultSceneSize);
  command.add_option("--seed", options.seed, "Seed of the scene and the misalignment")->capture_default_str();
}

nlohmann::json WriteSyntheticScene(const SynthOptions& options) {
  const cv::Size size = ParseSize(options.size.empty() ? kDefaultSceneSize : options.size, "--size");
  if (size.width < 1000 || size.width > 10000 || size.height < 1000 || size.height > 10000) {
    throw ToolError("--size: each side must lie in 1000..10000, got '" + options.size + "'");
  }
  std::error_code error;
  std::filesystem::create_directories(options.out, error);
  if (!std::filesystem::is_directory(options.out)) throw ToolError(options.out + ": cannot create directory");

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
                                {"main_to_second", MatrixJson(mainToSecond)},
                                {"expected_estimate", MatrixJson(pair.expectedEstimate)}};
  WriteJsonAtomically((directory / kSceneTruth).string(), truth);
  return truth;
}

int RunSynthScene(const SynthOptions& options) {
  WriteSyntheticScene(options);
  std::printf("wrote %s/{%s,%s,%s,%s,%s}\n", options.out.c_str(), kSceneMainImage, kSceneSecondImage,
              kSceneRecord, kSceneParams, kSceneTruth);
  return kExitSuccess;
}
