#include "engine/dualCalibration.h"

namespace {

struct ParameterRow {
  const char* name;
  int32_t dualCalibration::*member;
  int32_t defaultValue;
  int32_t min;
  int32_t max;
};

#define QLM_PARAMETER_ROW(name, defaultValue, min, max) \
  {#name, &dualCalibration::m_##name, defaultValue, min, max},
constexpr ParameterRow kParameterTable[] = {QLM_ENGINE_PARAMETERS(QLM_PARAMETER_ROW)};
#undef QLM_PARAMETER_ROW

}  // namespace

dualCalibration::dualCalibration() {
  K1 = cv::Mat::eye(3, 3, CV_64F);
  K2 = cv::Mat::eye(3, 3, CV_64F);
  D1 = cv::Mat::zeros(1, 8, CV_64F);
  D2 = cv::Mat::zeros(1, 8, CV_64F);
  mSecondResult.K1 = cv::Mat::eye(3, 3, CV_64F);
  mSecondResult.K2 = cv::Mat::eye(3, 3, CV_64F);
  mSecondResult.D1 = cv::Mat::zeros(1, 8, CV_64F);
  mSecondResult.D2 = cv::Mat::zeros(1, 8, CV_64F);
  SetName("ParameterList");
  mImgPairsIdx = 0;
  mImagePoints1.clear();
  mImagePoints2.clear();
  mObjectPoints.clear();
}

bool dualCalibration::Initialize() {
  for (const ParameterRow& row : kParameterTable) {
    mParameterList.AddParameter(row.name, &(this->*row.member), row.min, row.max, nullptr);
    this->*row.member = row.defaultValue;
  }
  mSecondParameterList.AddParameter("bSaveDebugInfo", &m_bSaveDebugInfo, 0, 1, nullptr);
  return true;
}
