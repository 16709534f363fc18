// qlm-calib synth: writes the synthetic test data of the test renderers,
// with ground truth as JSON, so the tool can be tried without a camera.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "station/SyntheticData.h"

// The chart generator's lenses and capture conditions as given on the
// command line; empty strings keep the defaults.
struct SynthChartConditions {
  SynthChartConditions() {
    render.blurSigmaPx = kChartBlurSigmaPx;
    render.noiseSigma = kChartNoiseSigma;
  }

  std::string mainLens, secondLens;
  std::string placement = "centre";
  std::string squarePx;
  std::string motionBlur;
  std::string exposure, gain;
  PlacementOptions placementOptions;
  RenderOptions render;
};

struct SynthOptions {
  std::string out;
  std::string size;
  uint32_t seed = 1;
  int pairs = 8;
  SynthChartConditions chart;
};

// Files written by the scene generator, relative to its output directory.
constexpr char kSceneMainImage[] = "main.png";
constexpr char kSceneSecondImage[] = "second.png";
constexpr char kSceneRecord[] = "record.bin";
constexpr char kSceneParams[] = "params.txt";
constexpr char kSceneTruth[] = "truth.json";

void AddSynthSceneOptions(CLI::App& command, SynthOptions& options);
// A pair for refine: the second image through a known homography, a record
// whose H_OTP is off from it by a known similarity, a parameter file and the
// ground truth. Returns the ground truth it wrote.
nlohmann::json WriteSyntheticScene(const SynthOptions& options);
int RunSynthScene(const SynthOptions& options);

// Files of the chart generator besides its pair_<k>_main.png and pair_<k>_second.png.
constexpr char kChartParams[] = "params.txt";
constexpr char kChartTruth[] = "ground_truth.json";

void AddSynthChartOptions(CLI::App& command, SynthOptions& options);
// Rendered chessboard pairs of a known stereo rig, a parameter file for the
// chart command and the ground truth. Returns the image paths in pair order.
std::vector<std::string> WriteSyntheticChart(const SynthOptions& options);
int RunSynthChart(const SynthOptions& options);
