// One camera's lens-distortion description: polynomial rows loaded from a
// table file and a three-term radial model with a camera matrix, plus the
// placement transforms used by the point and image kernels.
#pragma once

#include <cstdint>

#include "framework/CFilter.h"

constexpr int kDistortionRowCapacity = 7;
constexpr int kDistortionCoefficientCapacity = 10;

class CDistortionFilter final : public CFilter {
 public:
  CDistortionFilter();
  ~CDistortionFilter() = default;

  bool Initialize() override { return ResetDistortion() == 1; }
  // Restores both transforms, the first polynomial and radial rows and the
  // camera matrix; the loaded table and the current sets stay. Returns 1.
  int ResetDistortion();

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
};
