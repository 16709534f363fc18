#include "chart/StereoLimits.h"

#include <cmath>
#include <cstdio>
#include <fstream>

#include "engine/dualCalibration.h"
#include "framework/PicturesDir.h"

namespace {

// Written as the negation of "above the limit" so that NaN passes, as the
// stage's strict comparisons do.
bool WithinRotationLimit(float angleRad, int32_t limitTenthsDeg) {
  return !(AngleTenthsOfDegree(angleRad) > static_cast<float>(limitTenthsDeg));
}

bool WithinTranslationLimit(double component, int32_t limit) {
  return !(std::fabs(component) > static_cast<double>(limit));
}

}  // namespace

float AngleTenthsOfDegree(float angleRad) {
  const float scaled = angleRad * 180.0f * 10.0f;
  return std::fabs(static_cast<float>(static_cast<double>(scaled) / 3.1415926));
}

void PrintRotationWarnings(const ChartLimitChecks& checks) {
  if (!checks.rotationX) std::printf("ERROR: RX value is too big ! \n");
  if (!checks.rotationY) std::printf("ERROR: RY value is too big ! \n");
  if (!checks.rotationZ) std::printf("ERROR: RZ value is too big ! \n");
}

void PrintReprojectionWarnings(const ChartLimitChecks& checks) {
  // The translation is reported only with a failed reprojection check. Intended.
  if (checks.stereoReprojection) return;
  if (!checks.translationX) std::printf("ERROR: transition X value is too big ! \n");
  if (!checks.translationY) std::printf("ERROR: transition Y value is too big ! \n");
  if (!checks.translationZ) std::printf("ERROR: transition Z value is too big ! \n");
  std::printf("ERROR: dual camera reprojection is too big ! \n");
}

ChartLimitChecks dualCalibration::evaluateChartLimits() const {
  ChartLimitChecks checks;
  checks.monoReprojection = !monoReprojectionExceeds(mMonoRMS1) && !monoReprojectionExceeds(mMonoRMS2);
  checks.rotationX = WithinRotationLimit(r_x, m_nMaxRx);
  checks.rotationY = WithinRotationLimit(r_y, m_nMaxRy);
  checks.rotationZ = WithinRotationLimit(r_z, m_nMaxRz);
  checks.stereoReprojection = !(mRMS > static_cast<double>(m_nMaxReprojectionERROR) / 100.0);
  checks.translationX = WithinTranslationLimit(mT[0], m_nMaxTransition);
  checks.translationY = WithinTranslationLimit(mT[1], m_nMaxTransition);
  checks.translationZ = WithinTranslationLimit(mT[2], m_nMaxTransition);
  return checks;
}

void dualCalibration::appendCalibLog() const {
  // A log that cannot be opened is skipped without a word.
  std::ofstream log(PicturesPath("calib_log.txt"), std::ios::out | std::ios::app);
  if (!log) return;
  log << "\n"
      << "stereoCalibration\n"
      << "m_nMaxReprojectionERROR/100.0 threshold==" << m_nMaxReprojectionERROR / 100.0 << "\n"
      << "mRMS==" << mRMS << "\n"
      << "m_nMaxTransition threshold==" << m_nMaxTransition << "\n"
      << "mT[0]==" << mT[0] << "\n"
      << "mT[1]==" << mT[1] << "\n"
      << "mT[2]==" << mT[2] << "\n";
}
