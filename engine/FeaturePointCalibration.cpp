#include "engine/FeaturePointCalibration.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <numeric>
#include <tuple>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include "api/CalibrationRecord.h"
#include "api/DebugLog.h"
#include "engine/dualCalibration.h"

namespace {

constexpr int32_t kMinImageSidePx = 1000;
constexpr int32_t kMaxImageSidePx = 10000;
constexpr int kOrbFeatures = 500;

struct ImageFeatures {
  std::vector<cv::KeyPoint> keypoints;
  cv::Mat descriptors;
};

bool SideInRange(int32_t sidePx) { return sidePx >= kMinImageSidePx && sidePx <= kMaxImageSidePx; }

// The list sizes are compared with the threshold converted to their unsigned type.
bool HasAtLeast(size_t count, int32_t threshold) {
  return !(count < static_cast<size_t>(threshold));
}

cv::Mat CopyImage(const unsigned char* pixels, int32_t width, int32_t height) {
  cv::Mat image(height, width, CV_8UC1);
  std::memcpy(image.data, pixels, static_cast<size_t>(width * height));
  return image;
}

void PrintMatrix(const char* label, const cv::Mat& matrix) {
  std::cout << label << matrix << std::endl;
}

cv::Mat HomographyFromRecord(const CalibrationRecord& record) {
  const RecordHomography h = RecordHOtp(record);
  cv::Mat matrix(3, 3, CV_64F);
  for (int i = 0; i < 9; ++i) matrix.at<double>(i / 3, i % 3) = static_cast<double>(h[i]);
  return matrix;
}

cv::Mat WarpImage(const cv::Mat& source, const cv::Mat& matrix, cv::Size size) {
  // A non-finite matrix reaches no source pixel: the image stays black, as
  // the warp leaves it on x86-64, whatever a platform makes of NaN coordinates.
  if (!cv::checkRange(matrix)) return cv::Mat::zeros(size, CV_8UC1);
  cv::Mat warped;
  cv::warpPerspective(source, warped, matrix, size, cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                      cv::Scalar(0));
  return warped;
}

// Brings the second image into the main image's frame with the inverse of H_OTP.
cv::Mat AlignSecondImage(const cv::Mat& secondImage, const CalibrationRecord& record,
                         cv::Size mainSize) {
  cv::Mat hOtp = HomographyFromRecord(record);
  PrintMatrix("H_OTP=", hOtp);
  hOtp = hOtp.inv(cv::DECOMP_LU);
  PrintMatrix("H_OTP_INV=", hOtp);
  return WarpImage(secondImage, hOtp, mainSize);
}

// ORB keeps every keypoint whose score ties with the last one it should keep,
// so a fine periodic texture gives hundreds of thousands; this bounds the tie
// case to the strongest `limit` by response, then octave, then position, and
// leaves the kept ones in the detector's order. A shorter list is untouched.
void KeepStrongest(std::vector<cv::KeyPoint>& keypoints, size_t limit) {
  if (keypoints.size() <= limit) return;
  std::vector<size_t> order(keypoints.size());
  std::iota(order.begin(), order.end(), size_t{0});
  const auto stronger = [&keypoints](size_t a, size_t b) {
    const cv::KeyPoint& p = keypoints[a];
    const cv::KeyPoint& q = keypoints[b];
    return std::make_tuple(-p.response, p.octave, p.pt.y, p.pt.x, a) <
           std::make_tuple(-q.response, q.octave, q.pt.y, q.pt.x, b);
  };
  std::nth_element(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(limit), order.end(),
                   stronger);
  order.resize(limit);
  std::sort(order.begin(), order.end());
  std::vector<cv::KeyPoint> kept;
  kept.reserve(limit);
  for (size_t index : order) kept.push_back(keypoints[index]);
  keypoints.swap(kept);
}

// One detector; both detections come before both descriptor computations.
void DetectAndDescribe(const cv::Mat& mainImage, const cv::Mat& alignedSecond, ImageFeatures& main,
                       ImageFeatures& second) {
  cv::Ptr<cv::ORB> orb =
      cv::ORB::create(kOrbFeatures, 1.2f, 8, 31, 0, 2, cv::ORB::HARRIS_SCORE, 31, 20);
  orb->detect(mainImage, main.keypoints);
  orb->detect(alignedSecond, second.keypoints);
  KeepStrongest(main.keypoints, kOrbFeatures);
  KeepStrongest(second.keypoints, kOrbFeatures);
  orb->compute(mainImage, main.keypoints, main.descriptors);
  orb->compute(alignedSecond, second.keypoints, second.descriptors);
}

std::vector<cv::DMatch> MatchFeatures(const ImageFeatures& main, const ImageFeatures& second) {
  cv::Ptr<cv::DescriptorMatcher> matcher = cv::DescriptorMatcher::create("BruteForce-Hamming");
  DebugLog("QLM LOG:Match \n");
  std::vector<std::vector<cv::DMatch>> knnMatches;
  // With no descriptor on one side no query has a neighbour (OpenCV would
  // reject the empty set instead of answering with empty lists).
  if (!main.descriptors.empty() && !second.descriptors.empty()) {
    matcher->knnMatch(main.descriptors, second.descriptors, knnMatches, 2, cv::noArray(), false);
  }
  return SelectGoodMatches(knnMatches);
}

cv::Mat DrawGoodMatches(const cv::Mat& mainImage, const ImageFeatures& main,
                        const cv::Mat& alignedSecond, const ImageFeatures& second,
                        const std::vector<cv::DMatch>& goodMatches) {
  cv::Mat drawn;
  cv::drawMatches(mainImage, main.keypoints, alignedSecond, second.keypoints, goodMatches, drawn,
                  cv::Scalar::all(-1), cv::Scalar::all(-1), std::vector<char>(),
                  cv::DrawMatchesFlags::DEFAULT);
  return drawn;
}

// A maps points of the aligned second image onto the main image.
cv::Mat EstimateSimilarity(const std::vector<cv::DMatch>& goodMatches, const ImageFeatures& main,
                           const ImageFeatures& second) {
  std::vector<cv::Point2f> mainPoints;
  std::vector<cv::Point2f> secondPoints;
  for (const cv::DMatch& match : goodMatches) {
    mainPoints.push_back(main.keypoints.at(static_cast<size_t>(match.queryIdx)).pt);
    secondPoints.push_back(second.keypoints.at(static_cast<size_t>(match.trainIdx)).pt);
  }
  // OpenCV asserts on an empty point set; like too few points, it has no model.
  if (mainPoints.empty()) return cv::Mat();
  return cv::estimateAffinePartial2D(secondPoints, mainPoints, cv::noArray(), cv::RANSAC, 3.0, 2000,
                                     0.99, 10);
}

bool MeetsConstraints(const cv::Mat& h, int32_t scaleToleranceHundredths, int32_t offsetXLimitPx,
                      int32_t offsetYLimitPx) {
  const double s = static_cast<double>(static_cast<float>(scaleToleranceHundredths / 100.0));
  return std::fabs(h.at<double>(0, 0) - 1.0) < s && std::fabs(h.at<double>(1, 1) - 1.0) < s &&
         std::fabs(h.at<double>(1, 2)) < static_cast<double>(offsetYLimitPx) &&
         std::fabs(h.at<double>(0, 2)) < static_cast<double>(offsetXLimitPx);
}

// Keeps the translation and the scale of the second row; drops the rotation.
void ReduceToScaleAndTranslation(cv::Mat& h) {
  const double h10 = h.at<double>(1, 0);
  const double h11 = h.at<double>(1, 1);
  const double scale = std::sqrt(h10 * h10 + h11 * h11);
  h.at<double>(0, 0) = scale;
  h.at<double>(0, 1) = 0.0;
  h.at<double>(1, 0) = 0.0;
  h.at<double>(1, 1) = scale;
}

bool KeypointCountsPass(const ImageFeatures& main, const ImageFeatures& second, int32_t threshold) {
  DebugLog("QLM LOG:keypoints_1.size()=%d\n", static_cast<int>(main.keypoints.size()));
  DebugLog("QLM LOG:keypoints_2.size()=%d\n", static_cast<int>(second.keypoints.size()));
  DebugLog("QLM LOG:m_nFeaturePointsNumThreshold=%d", threshold);
  if (!HasAtLeast(main.keypoints.size(), threshold)) {
    DebugLog("QLM LOG:ERROR 1 \n");
    return false;
  }
  if (!HasAtLeast(second.keypoints.size(), threshold)) {
    DebugLog("QLM LOG:ERROR 2 \n");
    return false;
  }
  return true;
}

// Estimates A, corrects and checks it and prints each matrix in turn.
void EstimateAndRefine(const dualCalibration& engine, const std::vector<cv::DMatch>& goodMatches,
                       const ImageFeatures& main, const ImageFeatures& second,
                       const cv::Mat& alignedSecond, FeaturePointReport& out) {
  out.estimate = EstimateSimilarity(goodMatches, main, second);
  PrintMatrix("RANSAC  Refine H:", out.estimate);
  const HomographyRefinement refinement = RefineHomography(
      out.estimate, RecordOffsetX(engine.mResultRecord), engine.m_nHomographyConstraintScale,
      engine.m_nHomographyConstraintOffsetX, engine.m_nHomographyConstraintOffsetY);
  if (!refinement.correctedH.empty()) {
    // The warped image is not used; the warp is kept in the sequence.
    WarpImage(alignedSecond, refinement.correctedH, alignedSecond.size());
    PrintMatrix("ORG H=", refinement.correctedH);
  }
  if (refinement.constraintsMet) PrintMatrix("refine H=", refinement.refinedH);
  out.correctedH = refinement.correctedH;
  out.constraintsMet = refinement.constraintsMet;
  out.refinedH = refinement.refinedH;
}

}  // namespace

std::vector<cv::DMatch> SelectGoodMatches(const std::vector<std::vector<cv::DMatch>>& knnMatches) {
  std::vector<cv::DMatch> goodMatches;
  for (const std::vector<cv::DMatch>& candidates : knnMatches) {
    if (candidates.size() < 2) continue;
    // 0/0 gives NaN, which fails the strict comparison: not kept.
    const float ratio = candidates[0].distance / candidates[1].distance;
    if (ratio < kRatioTestLimit) goodMatches.push_back(candidates[0]);
  }
  return goodMatches;
}

HomographyRefinement RefineHomography(const cv::Mat& estimate, float offsetX,
                                      int32_t scaleToleranceHundredths, int32_t offsetXLimitPx,
                                      int32_t offsetYLimitPx) {
  HomographyRefinement refinement;
  refinement.refinedH = cv::Mat::eye(3, 3, CV_64F);
  if (estimate.rows != 2 || estimate.cols != 3 || estimate.type() != CV_64F) return refinement;
  cv::Mat h = cv::Mat::eye(3, 3, CV_64F);
  estimate.copyTo(h.rowRange(0, 2));
  h.at<double>(0, 2) += static_cast<double>(offsetX / -100.0f);
  refinement.correctedH = h.clone();
  refinement.constraintsMet =
      MeetsConstraints(h, scaleToleranceHundredths, offsetXLimitPx, offsetYLimitPx);
  if (refinement.constraintsMet) {
    ReduceToScaleAndTranslation(h);
    refinement.refinedH = h;
  }
  return refinement;
}

int dualCalibration::calibrationDetectPoint(const unsigned char* mainImage,
                                            const unsigned char* secondImage, int32_t w1,
                                            int32_t h1, int32_t w2, int32_t h2,
                                            FeaturePointReport* report) {
  DebugLog("QLM LOG:calibrationDetectPoint  \n");
  if (mainImage == nullptr || secondImage == nullptr) {
    std::printf("Error: main or sencond image data is empty. \n");
    return -4;
  }
  if (!SideInRange(w1) || !SideInRange(h1) || !SideInRange(w2) || !SideInRange(h2)) {
    std::printf("Error: input image size out of range. \n");
    return -5;
  }
  mMainWidth = w1;
  mMainHeight = h1;
  mSecondWidth = w2;
  mSecondHeight = h2;
  const cv::Mat mainCopy = CopyImage(mainImage, w1, h1);
  const cv::Mat secondCopy = CopyImage(secondImage, w2, h2);
  const CalibrationRecord working = mRecordSelect != 0 ? mFileRecord : mCallerRecord;
  mResultRecord = working;
  const cv::Mat alignedSecond = AlignSecondImage(secondCopy, working, mainCopy.size());

  FeaturePointReport unrequested;
  FeaturePointReport& out = report != nullptr ? *report : unrequested;
  ImageFeatures main;
  ImageFeatures second;
  DetectAndDescribe(mainCopy, alignedSecond, main, second);
  out.keypoints1 = static_cast<int32_t>(main.keypoints.size());
  out.keypoints2 = static_cast<int32_t>(second.keypoints.size());
  if (!KeypointCountsPass(main, second, m_nFeaturePointsNumThreshold)) return 0;
  const std::vector<cv::DMatch> goodMatches = MatchFeatures(main, second);
  out.goodMatches = static_cast<int32_t>(goodMatches.size());
  if (!HasAtLeast(goodMatches.size(), m_nRefineFeaturePointsNumThreshold)) {
    DebugLog("QLM LOG:ERROR 3 \n");
    return 0;
  }
  // The drawing costs time and is kept in the sequence; only a report keeps the image.
  const cv::Mat drawn = DrawGoodMatches(mainCopy, main, alignedSecond, second, goodMatches);
  if (out.keepMatchesImage) out.matchesImage = drawn;

  EstimateAndRefine(*this, goodMatches, main, second, alignedSecond, out);
  SetRecordRefineCount(mResultRecord, static_cast<uint8_t>(RecordRefineCount(mResultRecord) + 1));
  return 1;
}
