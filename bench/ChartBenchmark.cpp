// The chart calibration at full sensor size: the whole driver on eight
// rendered 4000 x 3000 pairs; on twenty with the engine's corner search and
// with the any-scale search, timed in one run for their ratio; and on a pair
// without a board, with and without the quick board check of the main image
// (without it, the engine's search looks at the second image in full
// without the fast check), under either search. The stages print their
// progress; the figures follow it.
#include <benchmark/benchmark.h>

#include <memory>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "bench/CpuSeconds.h"
#include "engine/dualCalibration.h"
#include "synthetic/ChessboardRenderer.h"

namespace {

const cv::Size kSensorSize(4000, 3000);

std::vector<std::pair<cv::Mat, cv::Mat>> RenderedPairs(int count) {
  const StereoRig rig = ExampleStereoRig(kSensorSize, kSensorSize);
  ChessboardLayout layout;
  RenderOptions options;
  options.noiseSigma = 1.0;
  options.blurSigmaPx = 1.0;
  std::vector<std::pair<cv::Mat, cv::Mat>> pairs;
  for (const BoardPose& pose : RandomBoardPoses(rig, layout, count, 2024)) {
    RenderedPair pair = RenderPair(rig, layout, pose, options, pairs.size() * 2 + 1);
    pairs.emplace_back(pair.mainImage, pair.secondImage);
  }
  return pairs;
}

std::unique_ptr<dualCalibration> ChartEngine() {
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  return engine;
}

void BM_ChartDriverEightPairs(benchmark::State& state) {
  const std::vector<std::pair<cv::Mat, cv::Mat>> pairs = RenderedPairs(8);
  for (auto _ : state) {
    auto engine = ChartEngine();
    const ChartSummary summary = engine->runChartCalibration(pairs, ChartRunOptions());
    if (summary.status != kChartOk) state.SkipWithError(summary.message.c_str());
    state.counters["views"] = summary.viewCount;
    state.counters["stereoRmsPx"] = summary.stereoRms;
  }
}
BENCHMARK(BM_ChartDriverEightPairs)->Unit(benchmark::kMillisecond)->Iterations(2);

double SecondsOfRun(const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs, CornerSearch search, benchmark::State& state) {
  auto engine = ChartEngine();
  ChartRunOptions options;
  options.search = search;
  const double start = CpuSeconds();
  const ChartSummary summary = engine->runChartCalibration(pairs, options);
  const double seconds = CpuSeconds() - start;
  if (summary.status != kChartOk) state.SkipWithError(summary.message.c_str());
  return seconds;
}

// Twenty pairs under both searches in one run: their CPU times and the
// ratio of the any-scale search's to the engine's.
void BM_ChartDriverTwentyPairsBothSearches(benchmark::State& state) {
  const std::vector<std::pair<cv::Mat, cv::Mat>> pairs = RenderedPairs(20);
  for (auto _ : state) {
    const double engineSeconds = SecondsOfRun(pairs, CornerSearch::kEngine, state);
    const double anyScaleSeconds = SecondsOfRun(pairs, CornerSearch::kAnyScale, state);
    state.counters["engineS"] = engineSeconds;
    state.counters["anyScaleS"] = anyScaleSeconds;
    state.counters["ratio"] = anyScaleSeconds / engineSeconds;
  }
}
BENCHMARK(BM_ChartDriverTwentyPairsBothSearches)->Unit(benchmark::kMillisecond)->Iterations(1);

// A scene without a board: flat grey with sensor noise (argument 0), or
// with blotchy texture of about 50 px features and a spread of about 30
// grey levels under the same noise (argument 1).
cv::Mat SceneWithoutBoard(bool textured, uint64_t seed) {
  RenderOptions options;
  options.noiseSigma = 2.0;
  const cv::Mat scene = RenderEmptyView(kSensorSize, options, seed);
  if (!textured) return scene;
  cv::Mat texture(kSensorSize, CV_32F);
  cv::RNG(seed + 100).fill(texture, cv::RNG::NORMAL, 0.0, 1300.0);
  cv::GaussianBlur(texture, texture, cv::Size(0, 0), 12.0);
  cv::Mat sceneLevels;
  scene.convertTo(sceneLevels, CV_32F);
  cv::Mat grey;
  cv::Mat(sceneLevels + texture).convertTo(grey, CV_8U);
  return grey;
}

// Arguments: scene (0 flat, 1 textured), quick check (0 off, 1 on), corner
// search (0 engine, 1 any-scale).
void BM_ChartDriverPairWithoutBoard(benchmark::State& state) {
  const bool textured = state.range(0) != 0;
  const std::vector<std::pair<cv::Mat, cv::Mat>> pairs = {{SceneWithoutBoard(textured, 1), SceneWithoutBoard(textured, 2)}};
  ChartRunOptions options;
  options.quickCheck = state.range(1) != 0;
  options.search = static_cast<CornerSearch>(state.range(2));
  auto engine = ChartEngine();
  for (auto _ : state) {
    const ChartSummary summary = engine->runChartCalibration(pairs, options);
    if (summary.viewCount != 0) state.SkipWithError("a board was found in a scene without one");
  }
}
BENCHMARK(BM_ChartDriverPairWithoutBoard)
    ->ArgsProduct({{0, 1}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
