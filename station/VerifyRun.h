// A check of a stereo calibration against board pairs, which may be pairs
// it never saw: the board found in each pair as the chart run finds it
// (any-scale search, grid pairing, unlocated corners left out), then the
// rectified row error, the epipolar error, the health verdict and, with a
// limit, a pass or fail. The calibration comes from a chart run's JSON or
// from OpenCV's intrinsics.yml and extrinsics.yml, so one made elsewhere can
// be checked. Files go through the run's outputs (station/RunOutputs.h).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "station/HealthVerdict.h"
#include "station/StereoCalibration.h"
#include "station/StereoVerification.h"

class dualCalibration;

struct VerifyOptions {
  std::string params;                     // parameter file: the board's size
  std::string calibration;                // a chart run's JSON, or
  std::vector<std::string> openCvFiles;   // intrinsics.yml and extrinsics.yml
  std::vector<std::string> images;        // main1 second1 main2 second2 ...
  std::vector<cv::Mat> pixels;            // the images themselves, which images then name; empty: files
  std::string pairsDir, pairsFile;        // the other two sources of pairs (station/PairList.h)
  std::string json, map;                  // outputs: figures as JSON, the row error map (PNG)
  double maxRowErrorPx = 0.0;             // fails the check above this p95 row error; 0: no check
  HealthLimits health;
};

struct VerifyOutcome {
  StereoCalibration calibration;
  std::vector<int32_t> viewPairs;     // per view, its pair's number counted from 1
  std::vector<int32_t> noBoardPairs;  // pairs without the board in both images
  std::vector<std::vector<cv::Point2f>> mainCorners, secondCorners;  // per view
  StereoVerification figures;
};

// Told after each pair's search: the pair's index and whether it became a view.
using VerifyPairProgress = std::function<void(size_t pairIndex, bool view)>;

class VerifyRun {
 public:
  // Resolves the pairs, checks the run's files, loads the parameter file
  // into engine and reads the calibration; throws StationError naming the
  // file at fault.
  VerifyRun(dualCalibration& engine, VerifyOptions options);

  const std::vector<std::string>& Images() const { return mImages; }
  // Searches every pair and measures; throws StationError for a pair that
  // cannot be read, a calibration of another image size than the pairs', or
  // no pair with the board in both images.
  const VerifyOutcome& Verify(const VerifyPairProgress& onPair);
  // Without a limit always; otherwise the p95 row error is within it.
  bool Passed() const;
  HealthBand Health() const;
  nlohmann::json Json() const;
  void WriteOutputs() const;

 private:
  dualCalibration& mEngine;
  const VerifyOptions mOptions;
  std::vector<std::string> mImages;
  VerifyOutcome mOutcome;
};

// {"rms", "p95", "max", "count"} of one set of figures.
nlohmann::json ErrorFiguresJson(const ErrorFigures& figures);
