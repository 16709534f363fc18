#include "synthetic/LensDistortion.h"

#include "tests/support/TestPrelude.h"

#include <opencv2/calib3d.hpp>

// The forward map is OpenCV's own for the 4-, 5- and 8-coefficient forms, and the inverse undoes it out to where
// the lens folds.
TEST(LensDistortion, DistortsAsOpenCvAndInvertsInsideTheMonotonicRadius) {
  const DistortionCoefficients lenses[] = {{-0.36, 0.14, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0},
                                           {-0.28, 0.09, 0.0012, -0.0008, -0.015, 0.0, 0.0, 0.0},
                                           {0.6, -0.05, 0.001, 0.0005, 0.002, 0.95, 0.1, 0.001}};
  for (const DistortionCoefficients& lens : lenses) {
    for (const cv::Point2d p : {cv::Point2d(0.0, 0.0), cv::Point2d(0.3, -0.2), cv::Point2d(-0.7, 0.55)}) {
      std::vector<cv::Point2d> projected;
      cv::projectPoints(std::vector<cv::Point3d>{{p.x, p.y, 1.0}}, cv::Vec3d(), cv::Vec3d(), cv::Matx33d::eye(),
                        lens, projected);
      const cv::Point2d distorted = DistortNormalised(lens, p);
      EXPECT_LT(cv::norm(distorted - projected[0]), 1e-12);
      EXPECT_LT(cv::norm(UndistortNormalised(lens, distorted) - p), 1e-12);
    }
  }
}

// r (1 + k1 r^2) stops growing at r = 1 / sqrt(-3 k1); a lens whose k2 holds it up never folds.
TEST(LensDistortion, MonotonicRadiusEndsWhereTheRadialMapFolds) {
  EXPECT_NEAR(MonotonicRadius({-0.45, 0, 0, 0, 0, 0, 0, 0}), 1.0 / std::sqrt(1.35), 1e-3);
  EXPECT_EQ(MonotonicRadius({-0.36, 0.14, 0, 0, 0, 0, 0, 0}), kMaxNormalisedRadius);
}
