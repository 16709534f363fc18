#include "engine/FeaturePointCalibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "engine/dualCalibration.h"
#include "tests/support/SyntheticScene.h"

TEST(Explore, Accuracy) {
  const cv::Matx33d G(1.02, 0.01, -30, -0.008, 0.99, 12, 1e-6, -2e-6, 1);
  for (int seed = 1; seed <= 40; ++seed) {
    const cv::Mat mainImage = RenderTexturedScene(cv::Size(2000, 1500), seed);
    const cv::Mat second = RenderSecondView(mainImage, G, cv::Size(2000, 1500));
    const double sc = 1.0 + (seed % 3 - 1) * 0.009, rot = (seed % 2 ? 0.45 : -0.4), tx = 18 - seed * 5, ty = -15 + seed * 4;
    const cv::Matx33d S = SimilarityTransform(sc, rot, tx, ty);
    const cv::Matx33d Hd = G * S;
    auto engine = std::make_unique<dualCalibration>();
    RecordHomography h;
    for (int i = 0; i < 9; ++i) h[i] = static_cast<float>(Hd(i / 3, i % 3));
    SetRecordHOtp(engine->mCallerRecord, h);
    cv::Matx33d Hf;
    for (int i = 0; i < 9; ++i) Hf(i / 3, i % 3) = h[i];
    const cv::Matx33d truth = G.inv() * Hf;
    FeaturePointReport report;
    testing::internal::CaptureStdout();
    const int rv = engine->calibrationDetectPoint(mainImage.data, second.data, 2000, 1500, 2000, 1500, &report);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(rv, 1);
    const cv::Mat& A = report.estimate;
    const double scale = std::hypot(A.at<double>(0, 0), A.at<double>(1, 0));
    const double tscale = std::hypot(truth(0, 0), truth(1, 0));
    const double cx = 1000, cy = 750;
    const double ex = A.at<double>(0,0)*cx + A.at<double>(0,1)*cy + A.at<double>(0,2) - (truth(0,0)*cx+truth(0,1)*cy+truth(0,2));
    const double ey = A.at<double>(1,0)*cx + A.at<double>(1,1)*cy + A.at<double>(1,2) - (truth(1,0)*cx+truth(1,1)*cy+truth(1,2));
    std::printf("seed %d kp %d %d good %d dtx %.4f dty %.4f dscale %.2e centre %.4f %.4f\n", seed, report.keypoints1, report.keypoints2,
                report.goodMatches, A.at<double>(0, 2) - truth(0, 2), A.at<double>(1, 2) - truth(1, 2), scale - tscale, ex, ey);
  }
}
