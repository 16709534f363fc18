// One camera's lens-distortion description: polynomial rows loaded from a
// table file and a three-term radial model with a camera matrix, plus the
// placement transforms used by the point and image kernels.
//
// Points are interleaved (x, y) float pairs; input and output may be the same
// array. Camera and rotation matrices are row-major float[9]: fx = [0],
// cx = [2], fy = [4], cy = [5].
#pragma once

#include <array>
#include <cstdint>

#include "framework/CFilter.h"

constexpr int kDistortionRowCapacity = 7;
constexpr int kDistortionCoefficientCapacity = 10;

// Number of samples of a radial curve.
constexpr int kCurveSize = 1024;
// A curve table is its 1024 samples followed by one slack entry: the
// reciprocal lookup's last interval reads index 1024 of both tables. The
// builders set the slack entry to 0.
using CurveTable = std::array<float, kCurveSize + 1>;

// A 4:2:0 image with an interleaved two-byte chroma plane. The luma row
// stride is width; the chroma plane holds (height >> 1) rows of
// (width & ~1) bytes when read by the samplers.
struct YuvImage {
  uint64_t reserved = 0;
  uint8_t* luma = nullptr;
  uint8_t* chroma = nullptr;
  int32_t width = 0;
  int32_t height = 0;
};

class CDistortionFilter final : public CFilter {
 public:
  CDistortionFilter();
  ~CDistortionFilter() = default;

  bool Initialize() override { return ResetDistortion() == 1; }
  // Restores both transforms, the first polynomial and radial rows and the
  // camera matrix; the loaded table and the current sets stay. Returns 1.
  int ResetDistortion();

  // ---- Table and curves ----

  // Reads a table file (mode "rb"): rowCount, coefficientCount, then per row
  // a discarded value, the row key, a discarded value, the coefficients from
  // the highest power down to the linear term, and a discarded value. Counts
  // beyond the capacities are read and discarded; read failures leave fields
  // as they were. Returns 0 when the file cannot be opened, else 1.
  int32_t LoadDistortionTable(const char* path);
  // Stores the placement of an image of size b scaled by scale, centred in a.
  void SetSourceTransform(int32_t a_x, int32_t a_y, int32_t b_x, int32_t b_y, float scale);
  // Linear lookup over the first 1023 intervals; x is clamped to the table.
  static float InterpolateCurve(const CurveTable& xs, const CurveTable& ys, float x);
  // 1 / the lookup over 1024 intervals (the last one ends at the slack entry).
  static float InterpolateCurveReciprocal(const CurveTable& xs, const CurveTable& ys, float x);
  // Samples the radial model: outScale = f(r), outRadius = f(r) * r, with r
  // in normalised units up to 1.023 times the image's corner radius.
  void BuildCurveFromRadialModel(const float (&camera)[9], CurveTable& outRadius, CurveTable& outScale,
                                 float width, float height) const;
  // Samples the current polynomial over the half-diagonal in 1024 steps:
  // outScale = s(r), outRadius = r / s(r), in pixels.
  void BuildCurveFromPolynomial(CurveTable& outRadius, CurveTable& outScale, float width,
                                float height) const;
  // currentPolynomial = t * row i + (1 - t) * row j. Row indices beyond the
  // capacity leave the current set unchanged.
  void BlendPolynomialRows(int32_t i, int32_t j, float t);
  // radialCoefficients = t * row i + (1 - t) * row j, same bounds.
  void BlendRadialRows(int32_t i, int32_t j, float t);
  // Bilinear luma sample at (x, y), clamped to the plane.
  static void SampleGrayBilinear(const YuvImage& image, float x, float y, uint8_t* out);
  // Bilinear sample of both chroma bytes into out[0] and out[1]; x and y in luma pixels.
  static void SampleChromaBilinear(const YuvImage& image, float x, float y, uint8_t* out);

  // ---- Point kernels ----

  // Divides each centred point by the polynomial factor at its radius.
  // Returns 1 when all points are done, 0 at the first point whose factor
  // leaves [0.95, 1.05]; earlier points stay written, later ones untouched.
  int32_t UndistortPointsPolynomial(const float* in, float* out, int32_t count, int32_t width,
                                    int32_t height) const;
  // out = camera centre + centred point / polynomial factor; no range check.
  void DistortPointsPolynomial(const float* in, float* out, int32_t count, int32_t width,
                               int32_t height, const float (&camera)[9]) const;
  // Removes the radial model with a table built from camera, width and height.
  void UndistortPointsRadial(const float* in, float* out, int32_t count, int32_t width,
                             int32_t height, const float (&camera)[9]) const;
  // Undistorts with the given radial tables, applies the transpose of
  // rotation and projects with targetCamera.
  void MapPointsRadial(const float* in, float* out, int32_t count, const float (&sourceCamera)[9],
                       const float (&targetCamera)[9], const float (&rotation)[9],
                       const CurveTable& radius, const CurveTable& scale) const;
  // MapPointsRadial without the distortion correction.
  void MapPointsLinear(const float* in, float* out, int32_t count, const float (&sourceCamera)[9],
                       const float (&targetCamera)[9], const float (&rotation)[9]) const;
  // out = b[0] * h / (a[0] * w).
  static void FocalRatio(const float a[], const float b[], float* out, float w, float h);

  // ---- Image kernels (distortion/YuvWarp.cpp) ----
  // The target's planes must hold WarpLumaBytes and WarpChromaBytes of its
  // size (distortion/YuvWarp.h) and must not overlap the source's planes.

  // Undistorts and rectifies source into target with the radial model and
  // reports the zoom (at least 1) that keeps the source border outside the
  // output frame. Each chroma pair holds the sample of its last writer.
  void WarpYuvImageRadial(const YuvImage& source, const YuvImage& target, const float (&sourceCamera)[9],
                          const float (&targetCamera)[9], const float (&rotation)[9], float* zoom) const;
  // The same bytes as WarpYuvImageRadial, computed the plain way: every
  // output pixel mapped one at a time and every chroma pair written by every
  // pixel in turn. The reference for the fast form.
  void WarpYuvImageRadialReference(const YuvImage& source, const YuvImage& target,
                                   const float (&sourceCamera)[9], const float (&targetCamera)[9],
                                   const float (&rotation)[9], float* zoom) const;
  // The warp with the model chosen by coefficientCount: 1 or more uses the
  // loaded polynomial, below 1 the radial model. Its curve is built as
  // BuildCurveFromPolynomial or BuildCurveFromRadialModel does (polynomial
  // radii are divided by the source fx so that both are in normalised
  // units about the camera centre); the border is mapped as in
  // MapPointsRadial and each output pixel's factor is InterpolateCurve over
  // the radius table at its undistorted radius.
  void WarpYuvImage(const YuvImage& source, const YuvImage& target, const float (&sourceCamera)[9],
                    const float (&targetCamera)[9], const float (&rotation)[9], float* zoom) const;

  float cameraMatrix[3][3];
  int32_t rowCount = 0;
  int32_t coefficientCount = 0;
  float referenceRadius = 0.0f;
  float rowKeys[kDistortionRowCapacity] = {};
  float polynomialRows[kDistortionRowCapacity][kDistortionCoefficientCapacity] = {};
  float radialRows[kDistortionRowCapacity][kDistortionCoefficientCapacity] = {};
  // The current sets are slot 1 of the rows: loading two or more rows also
  // sets them, and blending writes over the second row. Intended.
  float* const currentPolynomial = polynomialRows[1];
  float* const radialCoefficients = radialRows[1];
  float forwardTransform[3];
  float sourceTransform[3];

 private:
  // 1 + sum of currentPolynomial[j] * (r / referenceRadius)^(j+1).
  float PolynomialFactor(float r) const;
};
