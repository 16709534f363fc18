// WarpYuvImageRadial on a 4000 x 3000 4:2:0 frame with interleaved chroma, on
// one thread, beside OpenCV's initUndistortRectifyMap plus remap of both
// planes for the same cameras, rotation and radial model, and beside the
// plain per-pixel reference loop.
#include <benchmark/benchmark.h>

#include <array>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "distortion/CDistortionFilter.h"
#include "distortion/YuvWarp.h"

namespace {

constexpr int kWidth = 4000;
constexpr int kHeight = 3000;
constexpr float kK[3] = {-0.11f, 0.04f, -0.006f};
constexpr float kSourceCamera[9] = {3200.0f, 0.0f, 2006.0f, 0.0f, 3190.0f, 1497.0f, 0.0f, 0.0f, 1.0f};
constexpr float kTargetCamera[9] = {3150.0f, 0.0f, 2000.0f, 0.0f, 3150.0f, 1500.0f, 0.0f, 0.0f, 1.0f};

// The frame, the filter and the rotation shared by all runs.
struct Scene {
  cv::Mat luma, chroma, outLuma, outChroma;
  CDistortionFilter filter;
  std::array<float, 9> rotation{};

  Scene()
      : luma(kHeight, kWidth, CV_8UC1),
        chroma(kHeight / 2, kWidth / 2, CV_8UC2),
        outLuma(kHeight, kWidth, CV_8UC1),
        outChroma(kHeight / 2, kWidth / 2, CV_8UC2) {
    cv::randu(luma, 0, 256);
    cv::randu(chroma, 0, 256);
    cv::GaussianBlur(luma, luma, cv::Size(9, 9), 3.0);
    for (int i = 0; i < 3; ++i) filter.radialCoefficients[i] = kK[i];
    cv::Matx33d r;
    cv::Rodrigues(cv::Vec3d(-0.012, 0.018, 0.007), r);
    for (int i = 0; i < 9; ++i) rotation[i] = static_cast<float>(r.val[i]);
  }

  YuvImage Source() { return Image(luma, chroma); }
  YuvImage Target() { return Image(outLuma, outChroma); }

  static YuvImage Image(cv::Mat& y, cv::Mat& uv) {
    YuvImage image;
    image.luma = y.data;
    image.chroma = uv.data;
    image.width = y.cols;
    image.height = y.rows;
    return image;
  }
};

Scene& SharedScene() {
  static Scene scene;
  return scene;
}

// OpenCV's maps for the same warp: R is the transpose of the filter's
// rotation, the output focal lengths carry the zoom; the chroma maps use the
// cameras at half resolution.
struct OpenCvMaps {
  cv::Mat lumaMap1, lumaMap2, chromaMap1, chromaMap2;
};

void BuildMaps(const Scene& scene, float zoom, OpenCvMaps& maps) {
  cv::Matx33d transposed;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) transposed(r, c) = scene.rotation[c * 3 + r];
  }
  const cv::Mat distortion = (cv::Mat_<double>(1, 5) << kK[0], kK[1], 0.0, 0.0, kK[2]);
  for (const double factor : {1.0, 0.5}) {
    const cv::Matx33d source(kSourceCamera[0] * factor, 0, kSourceCamera[2] * factor, 0, kSourceCamera[4] * factor,
                             kSourceCamera[5] * factor, 0, 0, 1);
    const cv::Matx33d target(kTargetCamera[0] * zoom * factor, 0, kTargetCamera[2] * factor, 0,
                             kTargetCamera[4] * zoom * factor, kTargetCamera[5] * factor, 0, 0, 1);
    const cv::Size size(static_cast<int>(kWidth * factor), static_cast<int>(kHeight * factor));
    cv::Mat& map1 = factor == 1.0 ? maps.lumaMap1 : maps.chromaMap1;
    cv::Mat& map2 = factor == 1.0 ? maps.lumaMap2 : maps.chromaMap2;
    cv::initUndistortRectifyMap(source, distortion, transposed, target, size, CV_16SC2, map1, map2);
  }
}

void RemapBoth(Scene& scene, const OpenCvMaps& maps) {
  cv::remap(scene.luma, scene.outLuma, maps.lumaMap1, maps.lumaMap2, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
  cv::remap(scene.chroma, scene.outChroma, maps.chromaMap1, maps.chromaMap2, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
}

float WarpZoom(Scene& scene) {
  float zoom = 1.0f;
  scene.filter.WarpYuvImageRadial(scene.Source(), scene.Target(), kSourceCamera, kTargetCamera,
                                  scene.rotation.data(), &zoom);
  return zoom;
}

void BM_WarpYuvImageRadial(benchmark::State& state) {
  Scene& scene = SharedScene();
  for (auto _ : state) benchmark::DoNotOptimize(WarpZoom(scene));
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_WarpYuvImageRadialReference(benchmark::State& state) {
  Scene& scene = SharedScene();
  for (auto _ : state) {
    float zoom = 1.0f;
    scene.filter.WarpYuvImageRadialReference(scene.Source(), scene.Target(), kSourceCamera, kTargetCamera,
                                             scene.rotation.data(), &zoom);
    benchmark::DoNotOptimize(zoom);
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_OpenCvMapsAndRemap(benchmark::State& state) {
  cv::setNumThreads(1);
  Scene& scene = SharedScene();
  const float zoom = WarpZoom(scene);
  for (auto _ : state) {
    OpenCvMaps maps;
    BuildMaps(scene, zoom, maps);
    RemapBoth(scene, maps);
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_OpenCvRemapOnly(benchmark::State& state) {
  cv::setNumThreads(1);
  Scene& scene = SharedScene();
  OpenCvMaps maps;
  BuildMaps(scene, WarpZoom(scene), maps);
  for (auto _ : state) RemapBoth(scene, maps);
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

}  // namespace

BENCHMARK(BM_WarpYuvImageRadial)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WarpYuvImageRadialReference)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenCvMapsAndRemap)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenCvRemapOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
