// The calibration engine: all calibration state of the library, its 48
// tunable parameters (section "ParameterList"), the three calibration
// records, and the feature-point and chart calibration stages that work on
// that state. The library holds exactly one instance, g_dualCalib.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "api/CalibrationRecord.h"
#include "chart/ChartDriver.h"
#include "framework/CFilter.h"

class CDistortionFilter;
struct FeaturePointReport;

// The engine's parameters as one table: name, member, default, min, max.
// Rows are in registration order, which is also the order of the saved lines.
#define QLM_ENGINE_PARAMETERS(X)                       \
  X(bSaveDebugInfo, 0, 0, 1)                           \
  X(nHomographyConstraintScale, 0, 0, 1000)            \
  X(nHomographyConstraintOffsetX, 0, 0, 2000)          \
  X(nHomographyConstraintOffsetY, 0, 0, 2000)          \
  X(nFeaturePointsNumThreshold, 0, 0, 1000)            \
  X(nRefineFeaturePointsNumThreshold, 0, 0, 1000)      \
  X(nBoardWidth, 0, 0, 1000)                           \
  X(nBoardHeight, 0, 0, 1000)                          \
  X(nCalibDis, 55, 0, 1000)                            \
  X(nSquareSize, 0, 0, 500)                            \
  X(nChartBlackCircleIdx, 0, 0, 3)                     \
  X(nChartBlackCircleVerThreshold, 0, 0, 255)          \
  X(bMonoCalib, 0, 0, 1)                               \
  X(bDualCalib, 0, 0, 1)                               \
  X(nMaskSizeSelect_1, 0, 0, 1024)                     \
  X(nMaskSizeSelect_2, 1, 0, 1024)                     \
  X(nMaxScale, 0, 0, 10)                               \
  X(nMaxTransition, 0, 0, 100)                         \
  X(nMaxRx, 0, 0, 100)                                 \
  X(nMaxRy, 0, 0, 100)                                 \
  X(nMaxRz, 0, 0, 100)                                 \
  X(nMaxReprojectionERROR, 0, 0, 5000)                 \
  X(nMonoCalibUseIntrinsicGuess, 0, 0, 1)              \
  X(nMonoCalibFixAspectRatio, 0, 0, 1)                 \
  X(nMonoCalibFixPrincipalPoint, 0, 0, 1)              \
  X(nMonoCalibZeroTangentDist, 0, 0, 1)                \
  X(nMonoCalibFixFocalLength, 0, 0, 1)                 \
  X(nMonoCalibFixK1, 0, 0, 1)                          \
  X(nMonoCalibFixK2, 0, 0, 1)                          \
  X(nMonoCalibFixK3, 0, 0, 1)                          \
  X(nMonoCalibFixK4, 0, 0, 1)                          \
  X(nMonoCalibFixK5, 0, 0, 1)                          \
  X(nMonoCalibFixK6, 0, 0, 1)                          \
  X(nMonoCalibRationalModel, 0, 0, 1)                  \
  X(nDualCalibUseIntrinsicGuess, 0, 0, 1)              \
  X(nDualCalibFixAspectRatio, 0, 0, 1)                 \
  X(nDualCalibFixPrincipalPoint, 0, 0, 1)              \
  X(nDualCalibZeroTangentDist, 0, 0, 1)                \
  X(nDualCalibFixFocalLength, 0, 0, 1)                 \
  X(nDualCalibFixK1, 0, 0, 1)                          \
  X(nDualCalibFixK2, 0, 0, 1)                          \
  X(nDualCalibFixK3, 0, 0, 1)                          \
  X(nDualCalibFixK4, 0, 0, 1)                          \
  X(nDualCalibFixK5, 0, 0, 1)                          \
  X(nDualCalibFixK6, 0, 0, 1)                          \
  X(nDualCalibRationalModel, 0, 0, 1)                  \
  X(nDualCalibFixIntrinsic, 0, 0, 1)                   \
  X(nDualCalibSameFocalLength, 0, 0, 1)

// Results of a stereo calibration in the form the result files print them.
// The engine keeps a second set beside its own members for the platform file.
struct ChartResultSet {
  cv::Mat K1, K2, D1, D2, P1, P2;
  cv::Vec3d mT;
  float r_x = 0.0f, r_y = 0.0f, r_z = 0.0f;
  float r_x_1 = 0.0f, r_y_1 = 0.0f, r_z_1 = 0.0f;
  float r_x_2 = 0.0f, r_y_2 = 0.0f, r_z_2 = 0.0f;
};

class dualCalibration final : public CFilter {
 public:
  dualCalibration();
  ~dualCalibration() = default;

  // Registers the 48 parameters with their defaults, then bSaveDebugInfo a
  // second time into mSecondParameterList. Always true.
  bool Initialize() override;

  // ---- Feature-point calibration of an image pair (engine/FeaturePointCalibration.cpp) ----
  // Aligns the second image to the main image with H_OTP of the selected
  // record (mRecordSelect nonzero: mFileRecord, zero: mCallerRecord), matches
  // ORB features, estimates the residual similarity and prints it on standard
  // output. Returns -4 for a null image, -5 for a dimension outside
  // 1000..10000 (the result record untouched), 0 for too few keypoints or good
  // matches (the result record equals the selected one) and 1 once the
  // estimate is done (nRefineCount of the result record incremented). Each
  // image is w x h bytes without row padding. report, when given, receives
  // the intermediate results (engine/FeaturePointCalibration.h).
  int calibrationDetectPoint(const unsigned char* mainImage, const unsigned char* secondImage,
                             int32_t w1, int32_t h1, int32_t w2, int32_t h2,
                             FeaturePointReport* report = nullptr);

  // ---- Distortion tables and chart corners (distortion/ChartCorners.cpp) ----
  // The main camera's table goes to g_distortionFilter2, the second camera's
  // to g_distortionFilter1; these two accessors are the only place that says so.
  static CDistortionFilter& MainCameraFilter();
  static CDistortionFilter& SecondCameraFilter();
  // Loads firstPath into the main camera's filter and secondPath into the
  // second camera's. Returns 1, -2 when the first cannot be opened (the
  // second is then not tried), -3 when the second cannot be opened.
  int LoadDistortionTables(const char* firstPath, const char* secondPath);
  // Undistorts views 0..3 of mImagePoints1 and mImagePoints2 with the two
  // filters' polynomials and the sizes in chartImageSizes; each view
  // processes as many points as view 0 of mImagePoints1 has, at most its own.
  // A main-camera point outside the band stops that view only; a
  // second-camera point outside it returns 0 at once, that view unchanged.
  // Returns 0 also when either list holds fewer than four views (nothing
  // changed), else 1. With m_bSaveDebugInfo set it draws the corners on
  // colour copies of both images, which are then discarded.
  int undistortChartCorners(const cv::Mat& mainImage, const cv::Mat& secondImage);

  // Camera matrices (3x3) and distortion rows (1x8) of the main and the second camera.
  cv::Mat K1, K2, D1, D2;
  // Second result set, read by the platform result file and the preview.
  ChartResultSet mSecondResult;
  // Stereo results.
  cv::Mat R, mE, mF, R1, R2, P1, P2, mQ;
  cv::Vec3d mT;
  cv::Mat mResidueMatrix, m_assembleMatrix, mSecondRotation;

  int32_t mImgPairsIdx = 0;
  float mRMS = 0.0f;

  // Chart state: image sizes (main w, h, second w, h), reference sizes of
  // the point-offset helpers, the view lists and the stored chart images.
  int32_t chartImageSizes[4] = {};
  int32_t mainReferenceSize[2] = {};
  int32_t secondReferenceSize[2] = {};
  std::vector<std::vector<cv::Point3f>> mObjectPoints;
  std::vector<std::vector<cv::Point2f>> mImagePoints1;
  std::vector<std::vector<cv::Point2f>> mImagePoints2;
  std::vector<cv::Point2f> mCorners1, mCorners2, mMatchedCorners1, mMatchedCorners2;
  std::vector<cv::Mat> mChartImages;
  float r_x = 0.0f, r_y = 0.0f, r_z = 0.0f;
  float r_x_1 = 0.0f, r_y_1 = 0.0f, r_z_1 = 0.0f;
  float r_x_2 = 0.0f, r_y_2 = 0.0f, r_z_2 = 0.0f;
  float m_residueScale = 0.0f;
  float m_residueOffsetY = 0.0f;
  // RMS reprojection errors of the last mono calibration, pixels.
  double mMonoRMS1 = 0.0;
  double mMonoRMS2 = 0.0;
  // Standard deviations of the last mono calibration's intrinsics, 18 x 1
  // doubles in OpenCV's order (fx, fy, cx, cy, k1, k2, p1, p2, k3, k4, k5,
  // k6, s1..s4, tauX, tauY); 0 for a fixed coefficient.
  cv::Mat mMonoStdDev1, mMonoStdDev2;

  // ---- Chart stages (chart/) ----
  // Each stage prints its progress and problems on standard output and
  // returns as stated; only the driver reports failures to its caller.

  // Corner correspondence: appends corners1 unchanged to matched1 and to
  // matched2 the corner of corners2 nearest to each after both clouds are
  // normalised to zero mean and unit spread per axis. Prints "missed" or
  // "multiple shoot" per corner that found no or an already taken partner;
  // neither stops the pairing. Returns 1.
  int matchCornerOrder(std::vector<cv::Point2f> corners1, std::vector<cv::Point2f> corners2,
                       std::vector<cv::Point2f>& matched1, std::vector<cv::Point2f>& matched2);
  // The same on mCorners1/mCorners2, appending to mMatchedCorners1/2. Returns 1.
  int matchStoredCornerOrder();
  // Grid pairing: when both lists hold the patternSize board's corners row
  // by row, appends corners1 to matched1 and corners2 to matched2 in the
  // symmetric order of the board (kGridOrders) that keeps the grid's
  // handedness (both cameras see the board's front, so no mirror order),
  // gives its first square the colour it has in the main image (when both
  // images are given) and, of the orders still open, agrees best with a
  // mapping that only scales and shifts, clearly (kMinOpenAgreement,
  // kAgreementMargin); a planar grid fits a homography equally well in every
  // symmetric order, so the fit's residual cannot decide. A board of odd
  // W + H is decided by its colouring at any roll between the views. Lists
  // of another length append nothing (order -1); orders left open append
  // nothing either (order -1, undecided).
  GridPairing matchCornerGridOrder(const std::vector<cv::Point2f>& corners1,
                                   const std::vector<cv::Point2f>& corners2, cv::Size patternSize,
                                   const cv::Mat& image1, const cv::Mat& image2, std::vector<cv::Point2f>& matched1,
                                   std::vector<cv::Point2f>& matched2) const;
  // The pairing and the search detectChessboardCorners runs, and what the
  // grid pairing chose for the last board it paired.
  CornerPairing mCornerPairing = CornerPairing::kNearest;
  CornerSearch mCornerSearch = CornerSearch::kEngine;
  GridPairing mLastGridPairing;

  // Searches both images at quarter size (the second without the fast
  // check), refines the corners on the full images and pairs them with
  // mCornerPairing. With mCornerSearch kAnyScale each image is searched
  // from a scale at which its longer side is at most 2000 px, twice as fine
  // after each miss up to full size, the corners refined in windows sized
  // to their squares, and the second image only when the main image shows
  // the board. True when the board was found in both and, with the grid
  // pairing, its order decided; label appears in the messages only.
  bool detectChessboardCorners(const cv::Mat& mainImage, const cv::Mat& secondImage, int label,
                               cv::Size patternSize, std::vector<cv::Point2f>& corners1,
                               std::vector<cv::Point2f>& corners2);
  // Appends one view (object points and both corner lists) when the board is
  // found in both 8-bit grey images: 1; otherwise 0 and no list changes.
  // viewIndex names the stored view drawn while bSaveDebugInfo is set.
  int findImagePoints(const cv::Mat& mainImage, const cv::Mat& secondImage, int viewIndex);
  // The main image's search under mCornerSearch, on any image, without
  // the refinement: true when it finds the board. On a main image it is the
  // first half of detectChessboardCorners, so a pair it turns away is one
  // that search would not make a view.
  bool passesQuickBoardCheck(const cv::Mat& image, cv::Size patternSize) const;

  // Calibrates each camera from the view lists into K1/D1 and K2/D2 (the
  // standard deviations into mMonoStdDev1/2) and warns when either RMS
  // exceeds nMaxReprojectionERROR / 100. Returns 1.
  int monoCalibration();
  // Flag words of the mono and the stereo calibration from their switches.
  int monoCalibrationFlags() const;
  int stereoCalibrationFlags() const;
  // The mono stage's limit: rms above nMaxReprojectionERROR / 100 in single precision.
  bool monoReprojectionExceeds(double rms) const;
  // RMS reprojection error over all views (NaN without views); with
  // perViewErrors, also appends each view's RMS.
  double computeReprojectionErrors(const std::vector<std::vector<cv::Point3f>>& objectPoints,
                                   const std::vector<std::vector<cv::Point2f>>& imagePoints,
                                   const std::vector<cv::Mat>& rvecs, const std::vector<cv::Mat>& tvecs,
                                   const cv::Mat& cameraMatrix, const cv::Mat& distCoeffs,
                                   std::vector<float>* perViewErrors = nullptr) const;
  // Shift points by the chart image size minus the reference size: mode 1
  // x, 2 y, 3 both, any other nothing.
  void offsetMainPoints(std::vector<cv::Point2f>& points, int& mode);
  void offsetSecondPoints(std::vector<cv::Point2f>& points, int& mode);

  // Stereo calibration with its limit checks, result file and chart log. Returns 1.
  int stereoCalibration();
  // Angles of a 3x3 double rotation, radians.
  void rotationToEulerAngles(const cv::Mat& rotation, float& x, float& y, float& z) const;
  // Vertical scale and offset left between the cameras after mapping.
  void computeResidue();
  // m_assembleMatrix = (mResidueMatrix * K1 * R^T * K2^-1)^-1 in single precision.
  void assembleRectifyMatrix();
  // The limit checks of the mono stage (mMonoRMS1/2) and of the stereo
  // stage (r_x, r_y, r_z, mRMS, mT) on the current state.
  ChartLimitChecks evaluateChartLimits() const;
  // Appends the stage's summary to calib_log.txt in the pictures directory.
  void appendCalibLog() const;

  // The first result set as the result files and the second set hold it (shallow copies).
  ChartResultSet firstResultSet() const;
  // calibrationResult.txt from the first result set.
  void saveCalibrationResult() const;
  // What saveCalibrationResult writes.
  std::string calibrationResultText() const;
  // calibrationResult_mtk.txt from mSecondResult.
  void savePlatformCalibrationResult() const;

  // Undistorts the stored chart images with K1/D1 and K2/D2 (the second
  // turned by the inverse of mSecondRotation) onto one canvas with guide
  // lines, and discards it.
  void rectifyPreview();
  // The preview's canvas: side by side, or one above the other when
  // |P2[1][3]| of mSecondResult exceeds |P2[0][3]|. Needs the chart images
  // and a 3x4 P2 in mSecondResult (computed with bSaveDebugInfo set);
  // otherwise an OpenCV error.
  cv::Mat buildRectifyCanvas() const;
  // Turns image by 90 degrees about its old centre into the swapped size.
  void rotateImage90(cv::Mat& image) const;

  // The chart driver: takes the chart image pairs (main, second; 8-bit grey,
  // every pair of the same sizes), stores the sizes and the images of pair 0
  // as the chart images, collects the views into emptied view lists with
  // the options' pairing (a pair whose main image fails the quick board
  // check is not searched further, unless the options turn the check off),
  // undistorts their corners with the two distortion tables when both paths
  // are given (both null: no tables), runs the mono and the stereo stage and
  // fills mSecondResult and mSecondRotation from the first result set. With
  // fewer than kChartMinViews views no calibration stage runs. The summary's
  // status is kChartOk or a negative ChartStatus; nothing throws.
  ChartSummary runChartCalibration(const std::vector<std::pair<cv::Mat, cv::Mat>>& pairs,
                                   const ChartRunOptions& options);
  // The same with pairCount pairs taken one at a time from source, each
  // checked as it comes (a pair of other sizes, or not grey, stops the run
  // with kChartBadImages).
  ChartSummary runChartCalibration(size_t pairCount, const ChartPairSource& source, const ChartRunOptions& options);
  // The views and intake facts of the last runChartCalibration, whose
  // summary is first; valid until a recalibration changes the view lists.
  ChartViews chartViews(const ChartSummary& first) const;
  // The mono and the stereo stage on stored views, as runChartCalibration
  // runs them after its searches: the same views give the same result. The
  // stored chart images are blank ones of the views' sizes. Nothing throws.
  ChartSummary runChartCalibration(const ChartViews& views);
  // Runs the mono and the stereo stage again on the views of the last
  // runChartCalibration without the given views (0-based, as in first's
  // per-view lists), which are removed from the view lists; first is that
  // run's summary. Nothing throws.
  ChartSummary recalibrateChartWithoutViews(const ChartSummary& first, const std::vector<int32_t>& views);
  // The same without the given outliers: their corners leave the other
  // views' lists first. The summary's dropped field says what went.
  ChartSummary recalibrateChartWithout(const ChartSummary& first, const CornerOutliers& outliers);

  // Bound parameter members, in declaration order (differs from registration order).
  int32_t m_nBoardWidth = 0, m_nBoardHeight = 0, m_nSquareSize = 0;
  int32_t m_nMaskSizeSelect_1 = 0, m_nMaskSizeSelect_2 = 0, m_nMaxScale = 0;
  int32_t m_nMaxTransition = 0, m_nMaxRx = 0, m_nMaxRy = 0, m_nMaxRz = 0;
  int32_t m_nChartBlackCircleIdx = 0, m_nChartBlackCircleVerThreshold = 0;
  int32_t m_nMaxReprojectionERROR = 0;
  int32_t m_nMonoCalibUseIntrinsicGuess = 0, m_nMonoCalibFixAspectRatio = 0;
  int32_t m_nMonoCalibFixPrincipalPoint = 0, m_nMonoCalibZeroTangentDist = 0;
  int32_t m_nMonoCalibFixFocalLength = 0, m_nMonoCalibFixK1 = 0, m_nMonoCalibFixK2 = 0;
  int32_t m_nMonoCalibFixK3 = 0, m_nMonoCalibFixK4 = 0, m_nMonoCalibFixK5 = 0;
  int32_t m_nMonoCalibFixK6 = 0, m_nMonoCalibRationalModel = 0;
  int32_t m_nDualCalibUseIntrinsicGuess = 0, m_nDualCalibFixAspectRatio = 0;
  int32_t m_nDualCalibFixPrincipalPoint = 0, m_nDualCalibZeroTangentDist = 0;
  int32_t m_nDualCalibFixFocalLength = 0, m_nDualCalibFixK1 = 0, m_nDualCalibFixK2 = 0;
  int32_t m_nDualCalibFixK3 = 0, m_nDualCalibFixK4 = 0, m_nDualCalibFixK5 = 0;
  int32_t m_nDualCalibFixK6 = 0, m_nDualCalibRationalModel = 0;
  int32_t m_nDualCalibFixIntrinsic = 0, m_nDualCalibSameFocalLength = 0;
  int32_t m_bSaveDebugInfo = 0;
  int32_t m_nHomographyConstraintScale = 0, m_nHomographyConstraintOffsetX = 0;
  int32_t m_nHomographyConstraintOffsetY = 0, m_nFeaturePointsNumThreshold = 0;
  int32_t m_nRefineFeaturePointsNumThreshold = 0;
  int32_t m_bMonoCalib = 0, m_bDualCalib = 0;

  // Records: result, factory file, caller memory. Zero in the global instance.
  CalibrationRecord mResultRecord = {};
  CalibrationRecord mFileRecord = {};
  CalibrationRecord mCallerRecord = {};
  int32_t mRecordSelect = 0;
  // The pair's image sizes as given to processing.
  int32_t mMainWidth = 0, mMainHeight = 0, mSecondWidth = 0, mSecondHeight = 0;
  // Stored by INIT; no stage reads them.
  int32_t mInitBlend = 0, mInitValueA = 0, mInitValueB = 0, mInitReserved = 0;
  int32_t mInitValueC = 0, mInitValueD = 0;

  int32_t m_nCalibDis = 0;
};
