#include "distortion/CDistortionFilter.h"

#include <cstring>

namespace {

void SetIdentityTransform(float transform[3]) {
  transform[0] = 0.0f;
  transform[1] = 0.0f;
  transform[2] = 1.0f;
}

}  // namespace

CDistortionFilter::CDistortionFilter() {
  StoreName("CDistortionFilter");
  ResetDistortion();
}

int CDistortionFilter::ResetDistortion() {
  SetIdentityTransform(forwardTransform);
  SetIdentityTransform(sourceTransform);
  std::memset(polynomialRows[0], 0, sizeof(polynomialRows[0]));
  std::memset(radialRows[0], 0, sizeof(radialRows[0]));
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) cameraMatrix[row][column] = row == column ? 1.0f : 0.0f;
  }
  return 1;
}
