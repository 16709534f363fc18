// Synthetic data with its ground truth, as qlm-calib synth writes it to files
// and the Python module hands it out as arrays: a textured pair for refine
// with a record whose H_OTP is off by a known similarity, and chessboard
// pairs of a known stereo rig, each with the parameter section that suits it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "api/CalibrationRecord.h"
#include "synthetic/BoardPlacement.h"
#include "synthetic/ChessboardRenderer.h"

// Slight blur and sensor noise, as a real chart shot has.
constexpr double kChartBlurSigmaPx = 0.6;
constexpr double kChartNoiseSigma = 1.5;
constexpr int kMaxChartPairs = 64;

// Throws StationError, giving sizeText, unless each side lies in 1000..10000.
void RequireSyntheticSize(cv::Size size, const std::string& sizeText);

// OpenCV's lens model of 4, 5 or 8 coefficients (k1 k2 p1 p2 [k3 [k4 k5 k6]]).
// Throws StationError, giving option and text, for another count or a lens
// that folds back within 45 degrees of its axis.
DistortionCoefficients SyntheticLens(const std::vector<double>& coefficients, const std::string& option,
                                     const std::string& text);

struct SyntheticSceneData {
  cv::Mat mainImage, secondImage;
  CalibrationRecord record{};
  std::string parameters;  // a parameter section whose limits a good refinement meets
  nlohmann::json truth;    // size, seed, main_to_second, expected_estimate
};
// The refine scene of size (checked as RequireSyntheticSize does) drawn from seed.
SyntheticSceneData MakeSyntheticScene(cv::Size size, uint32_t seed, const std::string& sizeText);

struct SyntheticChartRequest {
  SyntheticChartRequest() {
    render.blurSigmaPx = kChartBlurSigmaPx;
    render.noiseSigma = kChartNoiseSigma;
    placement.placement = Placement::kCentre;
  }

  cv::Size size;
  std::string sizeText;  // how the caller gave the size, for its message
  uint32_t seed = 1;
  int pairs = 8;
  DistortionCoefficients mainLens = DistortionCoefficients::all(0.0);
  DistortionCoefficients secondLens = DistortionCoefficients::all(0.0);
  PlacementOptions placement;
  RenderOptions render;
};

struct SyntheticChartData {
  std::vector<RenderedPair> pairs;
  std::string parameters;  // the example rig's chart settings
  nlohmann::json truth;    // GroundTruthJson
};
// The pairs of ExampleStereoRig at the requested size through the given
// lenses. Throws StationError for a size or pair count (1..kMaxChartPairs)
// out of range, or placement options that no board pose meets.
SyntheticChartData MakeSyntheticChart(const SyntheticChartRequest& request);
