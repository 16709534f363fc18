#include "distortion/YuvWarp.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include "distortion/CDistortionFilter.h"
#include "distortion/Float4.h"
#include "distortion/PixelMapping.h"
#include "distortion/WarpRows.h"

namespace {

PixelMapping MakeMapping(const CDistortionFilter& filter, const float (&sourceCamera)[9],
                         const float (&targetCamera)[9], const float (&rotation)[9], float zoom) {
  PixelMapping mapping{};
  mapping.targetFx = targetCamera[0];
  mapping.targetFy = targetCamera[4];
  mapping.targetCx = targetCamera[2];
  mapping.targetCy = targetCamera[5];
  mapping.placeX = filter.sourceTransform[0];
  mapping.placeY = filter.sourceTransform[1];
  mapping.placeScale = filter.sourceTransform[2];
  mapping.zoom = zoom;
  for (int i = 0; i < 9; ++i) mapping.m[i] = rotation[i];
  mapping.fx = sourceCamera[0];
  mapping.fy = sourceCamera[4];
  mapping.cx = sourceCamera[2];
  mapping.cy = sourceCamera[5];
  mapping.offsetX = filter.forwardTransform[0];
  mapping.offsetY = filter.forwardTransform[1];
  mapping.scale = filter.forwardTransform[2];
  return mapping;
}

// Every pixel in turn: luma sample, then its chroma pair, which later pixels
// of the same pair overwrite.
template <typename Factor>
void WarpEveryPixel(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                    const Factor& factor) {
  for (int y = 0; y < target.height; ++y) {
    for (int x = 0; x < target.width; ++x) {
      float sx = 0.0f, sy = 0.0f;
      MapPixel(mapping, factor, x, y, &sx, &sy);
      CDistortionFilter::SampleGrayBilinear(source, sx, sy,
                                            target.luma + static_cast<ptrdiff_t>(y) * target.width + x);
      CDistortionFilter::SampleChromaBilinear(source, sx, sy, ChromaPair(target, x, y));
    }
  }
}

// Largest mapped coordinate of one border coordinate, starting from start.
float Largest(const std::vector<float>& points, int axis, float start) {
  for (size_t i = axis; i < points.size(); i += 2) {
    if (points[i] > start) start = points[i];
  }
  return start;
}

float Smallest(const std::vector<float>& points, int axis, float start) {
  for (size_t i = axis; i < points.size(); i += 2) {
    if (points[i] < start) start = points[i];
  }
  return start;
}

// Maps the source border through the radial tables into the target frame and
// returns the enlargement about the target centre that pushes every side of
// it out of the frame, at least 1.
float MappedBorderZoom(const CDistortionFilter& filter, const YuvImage& source, const YuvImage& target,
                       const float (&sourceCamera)[9], const float (&targetCamera)[9], const float (&rotation)[9],
                       const CurveTable& radius, const CurveTable& scale) {
  const int width = std::max(source.width, 0);
  const int height = std::max(source.height, 0);
  std::vector<float> top(2 * width), bottom(2 * width), left(2 * height), right(2 * height);
  for (int x = 0; x < width; ++x) {
    top[2 * x] = bottom[2 * x] = static_cast<float>(x);
    top[2 * x + 1] = 0.0f;
    bottom[2 * x + 1] = static_cast<float>(height - 1);
  }
  for (int y = 0; y < height; ++y) {
    left[2 * y] = 0.0f;
    right[2 * y] = static_cast<float>(width - 1);
    left[2 * y + 1] = right[2 * y + 1] = static_cast<float>(y);
  }
  for (std::vector<float>* border : {&top, &bottom, &left, &right}) {
    filter.MapPointsRadial(border->data(), border->data(), static_cast<int32_t>(border->size() / 2), sourceCamera,
                           targetCamera, rotation, radius, scale);
  }
  const float outWidth = static_cast<float>(target.width);
  const float outHeight = static_cast<float>(target.height);
  const float cx = targetCamera[2], cy = targetCamera[5];
  const float ratios[] = {cx / (cx - Largest(left, 0, 0.0f)), (outWidth - cx) / (Smallest(right, 0, outWidth) - cx),
                          cy / (cy - Largest(top, 1, 0.0f)), (outHeight - cy) / (Smallest(bottom, 1, outHeight) - cy)};
  float zoom = 1.0f;
  for (float ratio : ratios) {
    if (ratio > zoom) zoom = ratio;
  }
  return zoom;
}

// Step one of both radial warps: the radial tables of the source and the zoom
// of the mapped border.
float RadialBorderZoom(const CDistortionFilter& filter, const YuvImage& source, const YuvImage& target,
                       const float (&sourceCamera)[9], const float (&targetCamera)[9], const float (&rotation)[9]) {
  CurveTable radius, scale;
  filter.BuildCurveFromRadialModel(sourceCamera, radius, scale, static_cast<float>(source.width),
                                   static_cast<float>(source.height));
  return MappedBorderZoom(filter, source, target, sourceCamera, targetCamera, rotation, radius, scale);
}


// The rotation's products with every output column's normalised coordinate.
struct ColumnProducts {
  std::vector<float> m0, m3, m6;

  ColumnProducts(const PixelMapping& p, int width) : m0(width), m3(width), m6(width) {
    for (int x = 0; x < width; ++x) {
      const float xn = NormalisedOutput(static_cast<float>(x), p.targetCx, p.placeX, p.placeScale, p.zoom, p.targetFx);
      m0[x] = p.m[0] * xn;
      m3[x] = p.m[3] * xn;
      m6[x] = p.m[6] * xn;
    }
  }

  ColumnTerms Terms() const { return ColumnTerms{m0.data(), m3.data(), m6.data()}; }
};

// The fast form's rows with the given kernel, one of SupportedWarpKernels().
void WarpRowsWith(WarpKernel kernel, const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                  const RadialFactor& factor) {
  const ColumnProducts products(mapping, target.width);
  const ColumnTerms columns = products.Terms();
  switch (kernel) {
#if defined(__x86_64__)
    case WarpKernel::kShared16:
      return WarpRowsAvx512(source, target, mapping, factor, columns);
    case WarpKernel::kShared8:
      return WarpRowsAvx2(source, target, mapping, factor, columns);
    case WarpKernel::kShared4:
      return WarpRowsSsse3(source, target, mapping, factor, columns);
#elif defined(__ARM_NEON)
    case WarpKernel::kShared4:
      return WarpRows<float4::Lanes4, SharedRowLoads>(source, target, mapping, factor, columns);
#endif
    default:
      return WarpRows<float4::Lanes4, PerLaneLoads>(source, target, mapping, factor, columns);
  }
}

RadialFactor RadialFactorOf(const CDistortionFilter& filter) {
  return RadialFactor{filter.radialCoefficients[0], filter.radialCoefficients[1], filter.radialCoefficients[2]};
}

}  // namespace

int64_t WarpLumaBytes(int32_t width, int32_t height) {
  if (width < 1 || height < 1) return 0;
  return static_cast<int64_t>(width) * height;
}

int64_t WarpChromaBytes(int32_t width, int32_t height) {
  if (width < 1 || height < 1) return 0;
  return static_cast<int64_t>(width) * ((static_cast<int64_t>(height) + 1) / 2) + (width & 1);
}

std::vector<WarpKernel> SupportedWarpKernels() {
  std::vector<WarpKernel> kernels;
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")) kernels.push_back(WarpKernel::kShared16);
  if (__builtin_cpu_supports("avx2")) kernels.push_back(WarpKernel::kShared8);
  if (__builtin_cpu_supports("ssse3")) kernels.push_back(WarpKernel::kShared4);
#elif defined(__ARM_NEON)
  kernels.push_back(WarpKernel::kShared4);
#endif
  kernels.push_back(WarpKernel::kLanes4);
  return kernels;
}

void WarpYuvImageRadialWith(WarpKernel kernel, const CDistortionFilter& filter, const YuvImage& source,
                            const YuvImage& target, const float (&sourceCamera)[9], const float (&targetCamera)[9],
                            const float (&rotation)[9], float* zoom) {
  *zoom = 1.0f;
  *zoom = RadialBorderZoom(filter, source, target, sourceCamera, targetCamera, rotation);
  if (target.height < 1) return;
  const PixelMapping mapping = MakeMapping(filter, sourceCamera, targetCamera, rotation, *zoom);
  if (source.width < 4 || source.height < 2 || WarpLumaBytes(source.width, source.height) > INT32_MAX) {
    // Fewer than two chroma columns to read in pairs, or offsets past 32 bits: the plain loop.
    WarpEveryPixel(source, target, mapping, RadialFactorOf(filter));
    return;
  }
  WarpRowsWith(kernel, source, target, mapping, RadialFactorOf(filter));
}

void CDistortionFilter::WarpYuvImageRadial(const YuvImage& source, const YuvImage& target,
                                           const float (&sourceCamera)[9], const float (&targetCamera)[9],
                                           const float (&rotation)[9], float* zoom) const {
  static const WarpKernel fastest = SupportedWarpKernels().front();
  WarpYuvImageRadialWith(fastest, *this, source, target, sourceCamera, targetCamera, rotation, zoom);
}

void CDistortionFilter::WarpYuvImageRadialReference(const YuvImage& source, const YuvImage& target,
                                                    const float (&sourceCamera)[9], const float (&targetCamera)[9],
                                                    const float (&rotation)[9], float* zoom) const {
  *zoom = 1.0f;
  *zoom = RadialBorderZoom(*this, source, target, sourceCamera, targetCamera, rotation);
  if (target.height < 1) return;
  WarpEveryPixel(source, target, MakeMapping(*this, sourceCamera, targetCamera, rotation, *zoom),
                 RadialFactorOf(*this));
}

void CDistortionFilter::WarpYuvImage(const YuvImage& source, const YuvImage& target, const float (&sourceCamera)[9],
                                     const float (&targetCamera)[9], const float (&rotation)[9], float* zoom) const {
  *zoom = 1.0f;
  CurveTable radius, scale;
  const float width = static_cast<float>(source.width);
  const float height = static_cast<float>(source.height);
  if (coefficientCount >= 1) {
    BuildCurveFromPolynomial(radius, scale, width, height);
    for (int i = 0; i < kCurveSize; ++i) radius[i] /= sourceCamera[0];
  } else {
    BuildCurveFromRadialModel(sourceCamera, radius, scale, width, height);
  }
  *zoom = MappedBorderZoom(*this, source, target, sourceCamera, targetCamera, rotation, radius, scale);
  if (target.height < 1) return;
  WarpEveryPixel(source, target, MakeMapping(*this, sourceCamera, targetCamera, rotation, *zoom),
                 TableFactor{radius, scale});
}
