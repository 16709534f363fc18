// WarpYuvImageRadial on 4000 x 3000 and 1920 x 1080 4:2:0 frames with
// interleaved chroma, on one thread, beside OpenCV's initUndistortRectifyMap
// plus remap of both planes for the same cameras, rotation and radial model,
// beside remap alone with the maps built once (fixed-point CV_16SC2), and
// beside the plain per-pixel reference loop; and each vector form of the
// rows that the processor runs (BM_WarpYuvKernel/W/H/form: 0 four lanes with
// per-lane loads, 1 four lanes with shared loads, 2 eight lanes, 3 sixteen).
// The cameras scale with the frame width, so both sizes see the same field
// of view.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "distortion/CDistortionFilter.h"
#include "distortion/YuvWarp.h"

namespace {

constexpr float kK[3] = {-0.11f, 0.04f, -0.006f};

// Cameras of a 4000-pixel-wide frame: fx, fy, cx, cy.
constexpr float kSourceCamera4000[4] = {3200.0f, 3190.0f, 2006.0f, 1497.0f};
constexpr float kTargetCamera4000[4] = {3150.0f, 3150.0f, 2000.0f, 1500.0f};

cv::Matx33f ScaledCamera(const float (&camera)[4], float scale) {
  return cv::Matx33f(camera[0] * scale, 0.0f, camera[2] * scale, 0.0f, camera[1] * scale, camera[3] * scale, 0.0f, 0.0f, 1.0f);
}

// The frame, the filter, the cameras and the rotation of one frame size.
struct Scene {
  int width, height;
  cv::Mat luma, chroma, outLuma, outChroma;
  CDistortionFilter filter;
  cv::Matx33f sourceCamera, targetCamera, rotation;

  Scene(int frameWidth, int frameHeight)
      : width(frameWidth),
        height(frameHeight),
        luma(height, width, CV_8UC1),
        chroma(height / 2, width / 2, CV_8UC2),
        outLuma(height, width, CV_8UC1),
        outChroma(height / 2, width / 2, CV_8UC2),
        sourceCamera(ScaledCamera(kSourceCamera4000, width / 4000.0f)),
        targetCamera(ScaledCamera(kTargetCamera4000, width / 4000.0f)) {
    cv::randu(luma, 0, 256);
    cv::randu(chroma, 0, 256);
    cv::GaussianBlur(luma, luma, cv::Size(9, 9), 3.0);
    for (int i = 0; i < 3; ++i) filter.radialCoefficients[i] = kK[i];
    cv::Matx33d r;
    cv::Rodrigues(cv::Vec3d(-0.012, 0.018, 0.007), r);
    rotation = cv::Matx33f(r);
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

// One scene per frame size (the benchmark's two arguments), built on first use.
Scene& SharedScene(const benchmark::State& state) {
  static std::map<std::pair<int, int>, std::unique_ptr<Scene>> scenes;
  const std::pair<int, int> size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  std::unique_ptr<Scene>& scene = scenes[size];
  if (!scene) scene = std::make_unique<Scene>(size.first, size.second);
  return *scene;
}

// OpenCV's maps for the same warp: R is the transpose of the filter's
// rotation, the output focal lengths carry the zoom; the chroma maps use the
// cameras at half resolution.
struct OpenCvMaps {
  cv::Mat lumaMap1, lumaMap2, chromaMap1, chromaMap2;
};

void BuildMaps(const Scene& scene, float zoom, OpenCvMaps& maps) {
  const cv::Matx33d transposed = scene.rotation.t();
  const cv::Mat distortion = (cv::Mat_<double>(1, 5) << kK[0], kK[1], 0.0, 0.0, kK[2]);
  for (const double factor : {1.0, 0.5}) {
    const float* s = scene.sourceCamera.val;
    const float* t = scene.targetCamera.val;
    const cv::Matx33d source(s[0] * factor, 0, s[2] * factor, 0, s[4] * factor, s[5] * factor, 0, 0, 1);
    const cv::Matx33d target(t[0] * zoom * factor, 0, t[2] * factor, 0, t[4] * zoom * factor, t[5] * factor, 0, 0, 1);
    const cv::Size size(static_cast<int>(scene.width * factor), static_cast<int>(scene.height * factor));
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
  scene.filter.WarpYuvImageRadial(scene.Source(), scene.Target(), scene.sourceCamera.val,
                                  scene.targetCamera.val, scene.rotation.val, &zoom);
  return zoom;
}

void BM_WarpYuvImageRadial(benchmark::State& state) {
  Scene& scene = SharedScene(state);
  for (auto _ : state) benchmark::DoNotOptimize(WarpZoom(scene));
  state.SetItemsProcessed(state.iterations() * scene.width * scene.height);
}

// Each vector form of the rows by itself (third argument: WarpKernel).
void BM_WarpYuvKernel(benchmark::State& state) {
  Scene& scene = SharedScene(state);
  const WarpKernel kernel = static_cast<WarpKernel>(state.range(2));
  const std::vector<WarpKernel> supported = SupportedWarpKernels();
  if (std::find(supported.begin(), supported.end(), kernel) == supported.end()) {
    state.SkipWithError("not supported by this processor");
    return;
  }
  for (auto _ : state) {
    float zoom = 1.0f;
    WarpYuvImageRadialWith(kernel, scene.filter, scene.Source(), scene.Target(), scene.sourceCamera.val,
                           scene.targetCamera.val, scene.rotation.val, &zoom);
    benchmark::DoNotOptimize(zoom);
  }
  state.SetItemsProcessed(state.iterations() * scene.width * scene.height);
}

void BM_WarpYuvImageRadialReference(benchmark::State& state) {
  Scene& scene = SharedScene(state);
  for (auto _ : state) {
    float zoom = 1.0f;
    scene.filter.WarpYuvImageRadialReference(scene.Source(), scene.Target(), scene.sourceCamera.val,
                                             scene.targetCamera.val, scene.rotation.val, &zoom);
    benchmark::DoNotOptimize(zoom);
  }
  state.SetItemsProcessed(state.iterations() * scene.width * scene.height);
}

void BM_OpenCvMapsAndRemap(benchmark::State& state) {
  cv::setNumThreads(1);
  Scene& scene = SharedScene(state);
  const float zoom = WarpZoom(scene);
  for (auto _ : state) {
    OpenCvMaps maps;
    BuildMaps(scene, zoom, maps);
    RemapBoth(scene, maps);
  }
  state.SetItemsProcessed(state.iterations() * scene.width * scene.height);
}

void BM_OpenCvRemapOnly(benchmark::State& state) {
  cv::setNumThreads(1);
  Scene& scene = SharedScene(state);
  OpenCvMaps maps;
  BuildMaps(scene, WarpZoom(scene), maps);
  for (auto _ : state) RemapBoth(scene, maps);
  state.SetItemsProcessed(state.iterations() * scene.width * scene.height);
}

}  // namespace

// One thread throughout; each benchmark at both frame sizes.
void FrameSizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Args({4000, 3000})->Args({1920, 1080})->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(BM_WarpYuvImageRadial)->Apply(FrameSizes);
BENCHMARK(BM_WarpYuvImageRadialReference)->Apply(FrameSizes);
BENCHMARK(BM_WarpYuvKernel)
    ->ArgsProduct({{4000}, {3000}, {0, 1, 2, 3}})
    ->ArgsProduct({{1920}, {1080}, {0, 1, 2, 3}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_OpenCvMapsAndRemap)->Apply(FrameSizes);
BENCHMARK(BM_OpenCvRemapOnly)->Apply(FrameSizes);

BENCHMARK_MAIN();
