#include "engine/dualCalibration.h"

#include "tests/support/TestPrelude.h"

// The default section itself is pinned by ExportsTest (a failed load saves it).
TEST(dualCalibration, ConstructsWithIdentityCamerasAndNoDistortion) {
  auto engine = std::make_unique<dualCalibration>();
  for (const cv::Mat* k : {&engine->K1, &engine->K2, &engine->mSecondResult.K1, &engine->mSecondResult.K2})
    EXPECT_EQ(cv::norm(*k, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 0.0);
  for (const cv::Mat* d : {&engine->D1, &engine->D2, &engine->mSecondResult.D1, &engine->mSecondResult.D2})
    EXPECT_EQ(cv::norm(*d, cv::Mat::zeros(1, 8, CV_64F), cv::NORM_INF), 0.0);
  engine->m_bSaveDebugInfo = 1;
  EXPECT_EQ(TextWrittenBy([&](FILE* f) { engine->mSecondParameterList.SaveList(f); }),
            "bSaveDebugInfo=1;\t\tRange=[0,1] \n");
}
