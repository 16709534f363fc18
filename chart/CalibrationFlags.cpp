// Flag words of the mono and the stereo calibration: each switch's value
// times its OpenCV flag, summed (the union of the flags for values 0 and 1).
#include <opencv2/calib3d.hpp>

#include "engine/dualCalibration.h"

namespace {

struct FlagRow {
  int32_t dualCalibration::*member;
  int bit;
};

constexpr FlagRow kMonoFlags[] = {
    {&dualCalibration::m_nMonoCalibUseIntrinsicGuess, cv::CALIB_USE_INTRINSIC_GUESS},
    {&dualCalibration::m_nMonoCalibFixAspectRatio, cv::CALIB_FIX_ASPECT_RATIO},
    {&dualCalibration::m_nMonoCalibFixPrincipalPoint, cv::CALIB_FIX_PRINCIPAL_POINT},
    {&dualCalibration::m_nMonoCalibZeroTangentDist, cv::CALIB_ZERO_TANGENT_DIST},
    {&dualCalibration::m_nMonoCalibFixFocalLength, cv::CALIB_FIX_FOCAL_LENGTH},
    {&dualCalibration::m_nMonoCalibFixK1, cv::CALIB_FIX_K1},
    {&dualCalibration::m_nMonoCalibFixK2, cv::CALIB_FIX_K2},
    {&dualCalibration::m_nMonoCalibFixK3, cv::CALIB_FIX_K3},
    {&dualCalibration::m_nMonoCalibFixK4, cv::CALIB_FIX_K4},
    {&dualCalibration::m_nMonoCalibFixK5, cv::CALIB_FIX_K5},
    {&dualCalibration::m_nMonoCalibFixK6, cv::CALIB_FIX_K6},
    {&dualCalibration::m_nMonoCalibRationalModel, cv::CALIB_RATIONAL_MODEL},
};

constexpr FlagRow kStereoFlags[] = {
    {&dualCalibration::m_nDualCalibUseIntrinsicGuess, cv::CALIB_USE_INTRINSIC_GUESS},
    {&dualCalibration::m_nDualCalibFixAspectRatio, cv::CALIB_FIX_ASPECT_RATIO},
    {&dualCalibration::m_nDualCalibFixPrincipalPoint, cv::CALIB_FIX_PRINCIPAL_POINT},
    {&dualCalibration::m_nDualCalibZeroTangentDist, cv::CALIB_ZERO_TANGENT_DIST},
    {&dualCalibration::m_nDualCalibFixFocalLength, cv::CALIB_FIX_FOCAL_LENGTH},
    {&dualCalibration::m_nDualCalibFixK1, cv::CALIB_FIX_K1},
    {&dualCalibration::m_nDualCalibFixK2, cv::CALIB_FIX_K2},
    {&dualCalibration::m_nDualCalibFixK3, cv::CALIB_FIX_K3},
    {&dualCalibration::m_nDualCalibFixIntrinsic, cv::CALIB_FIX_INTRINSIC},
    {&dualCalibration::m_nDualCalibSameFocalLength, cv::CALIB_SAME_FOCAL_LENGTH},
    {&dualCalibration::m_nDualCalibFixK4, cv::CALIB_FIX_K4},
    {&dualCalibration::m_nDualCalibFixK5, cv::CALIB_FIX_K5},
    {&dualCalibration::m_nDualCalibFixK6, cv::CALIB_FIX_K6},
    {&dualCalibration::m_nDualCalibRationalModel, cv::CALIB_RATIONAL_MODEL},
};

template <size_t N>
int FlagWord(const dualCalibration& engine, const FlagRow (&rows)[N]) {
  // Summed in 64 bits and narrowed: values outside [0, 1] add multiples without overflow.
  int64_t word = 0;
  for (const FlagRow& row : rows) word += static_cast<int64_t>(engine.*row.member) * row.bit;
  return static_cast<int>(word);
}

}  // namespace

int dualCalibration::monoCalibrationFlags() const { return FlagWord(*this, kMonoFlags); }

int dualCalibration::stereoCalibrationFlags() const { return FlagWord(*this, kStereoFlags); }
