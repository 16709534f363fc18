#include "station/SyntheticData.h"

#include <memory>

#include "engine/dualCalibration.h"
#include "station/ParameterText.h"
#include "station/RunOutputs.h"
#include "synthetic/LensDistortion.h"
#include "synthetic/SyntheticScene.h"

namespace {

// Limits that a good refinement of the generated scene meets.
constexpr int32_t kSceneFeatureThreshold = 100;
constexpr int32_t kSceneMatchThreshold = 30;
constexpr int32_t kSceneScaleToleranceHundredths = 3;
constexpr int32_t kSceneOffsetLimitPx = 40;

std::string SceneParameters() {
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nFeaturePointsNumThreshold = kSceneFeatureThreshold;
  engine->m_nRefineFeaturePointsNumThreshold = kSceneMatchThreshold;
  engine->m_nHomographyConstraintScale = kSceneScaleToleranceHundredths;
  engine->m_nHomographyConstraintOffsetX = kSceneOffsetLimitPx;
  engine->m_nHomographyConstraintOffsetY = kSceneOffsetLimitPx;
  return ParameterSectionText(*engine);
}

// A misalignment drawn from the seed: scale within 1%, rotation within
// 0.5 degrees, translation within 20 pixels.
cv::Matx33d SeededMisalignment(uint32_t seed) {
  cv::RNG random(seed);
  return SimilarityTransform(1.0 + random.uniform(-0.008, 0.008), random.uniform(-0.4, 0.4),
                             random.uniform(-15.0, 15.0), random.uniform(-15.0, 15.0));
}

}  // namespace

void RequireSyntheticSize(cv::Size size, const std::string& sizeText) {
  if (size.width < 1000 || size.width > 10000 || size.height < 1000 || size.height > 10000) {
    throw StationError("--size: each side must lie in 1000..10000, got '" + sizeText + "'");
  }
}

DistortionCoefficients SyntheticLens(const std::vector<double>& coefficients, const std::string& option,
                                     const std::string& text) {
  const size_t count = coefficients.size();
  if (count != 4 && count != 5 && count != 8) {
    throw StationError(option + ": expected 4, 5 or 8 lens coefficients, got '" + text + "'");
  }
  DistortionCoefficients lens = DistortionCoefficients::all(0.0);
  for (size_t k = 0; k < count; ++k) lens[static_cast<int>(k)] = coefficients[k];
  if (MonotonicRadius(lens) < 1.0) {
    throw StationError(option + ": the lens folds back within 45 degrees of its axis, got '" + text + "'");
  }
  return lens;
}

SyntheticSceneData MakeSyntheticScene(cv::Size size, uint32_t seed, const std::string& sizeText) {
  RequireSyntheticSize(size, sizeText);
  const cv::Matx33d mainToSecond = SimilarityTransform(1.002, 0.3, 12.0, -8.0);
  const SyntheticPair pair = RenderSyntheticPair(size, seed, mainToSecond, SeededMisalignment(seed));
  SyntheticSceneData scene;
  scene.mainImage = pair.mainImage;
  scene.secondImage = pair.secondImage;
  SetRecordHOtp(scene.record, pair.hOtp);
  scene.parameters = SceneParameters();
  scene.truth = {{"size", {size.width, size.height}},
                 {"seed", seed},
                 {"main_to_second", MatrixJson(cv::Mat(mainToSecond))},
                 {"expected_estimate", MatrixJson(cv::Mat(pair.expectedEstimate))}};
  return scene;
}

SyntheticChartData MakeSyntheticChart(const SyntheticChartRequest& request) {
  RequireSyntheticSize(request.size, request.sizeText);
  if (request.pairs < 1 || request.pairs > kMaxChartPairs) {
    throw StationError("--pairs: expected 1.." + std::to_string(kMaxChartPairs) + ", got " +
                       std::to_string(request.pairs));
  }
  StereoRig rig = ExampleStereoRig(request.size, request.size);
  rig.main.distortion = request.mainLens;
  rig.second.distortion = request.secondLens;
  const ChessboardLayout layout;
  const std::vector<BoardPose> poses = PlaceBoards(rig, layout, request.pairs, request.seed, request.placement);
  if (poses.empty()) throw StationError("synth chart: no board pose meets these placement options");
  SyntheticChartData chart;
  for (const BoardPose& pose : poses) {
    chart.pairs.push_back(RenderPair(rig, layout, pose, request.render, request.seed * 1000 + chart.pairs.size()));
  }
  chart.truth = GroundTruthJson(rig, layout, request.render, chart.pairs);
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  chart.parameters = ParameterSectionText(*engine);
  return chart;
}
