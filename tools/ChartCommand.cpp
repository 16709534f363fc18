#include "tools/ChartCommand.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <iostream>
#include <memory>
#include <string_view>
#include <utility>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "api/Globals.h"
#include "chart/CornerQuality.h"
#include "chart/ViewOutliers.h"
#include "framework/PicturesDir.h"
#include "station/RunOutputs.h"
#include "tools/AndroidMetadata.h"
#include "tools/ChartReport.h"
#include "tools/PairList.h"
#include "tools/ToolInput.h"

namespace {

constexpr double kDegreesPerRadian = 180.0 / 3.14159265358979323846;
constexpr int kGuideLineSpacingPx = 64;

const char* PassFail(bool passed) { return passed ? "pass" : "FAIL"; }

bool SamePixels(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

// A key of an image's pixels (ReadGrayImage's images are continuous), that
// finds repeated images in one pass.
size_t PixelKey(const cv::Mat& image) {
  return std::hash<std::string_view>{}(std::string_view(reinterpret_cast<const char*>(image.data), image.total()));
}

// What the pairs read so far held, to refuse a pair that repeats one, or a
// file named as the main image of one pair and the second of another. Only
// keys are kept: a long run holds one pair's images at a time.
class PairIntake {
 public:
  explicit PairIntake(const std::vector<std::string>& images) : mImages(images) {}

  // Pair k read, checked against pair 0 and the pairs before it.
  std::pair<cv::Mat, cv::Mat> Read(size_t k) {
    const std::string& mainPath = mImages[2 * k];
    const std::string& secondPath = mImages[2 * k + 1];
    std::pair<cv::Mat, cv::Mat> pair(ReadGrayImage(mainPath), ReadGrayImage(secondPath));
    if (k == 0) mSizes = {pair.first.size(), pair.second.size()};
    RequireSameSize(pair.first, mainPath, mSizes.first, mImages[0]);
    RequireSameSize(pair.second, secondPath, mSizes.second, mImages[1]);
    RequireChartImageSize(pair.first, mainPath);
    RequireChartImageSize(pair.second, secondPath);
    const std::string label = "pair " + std::to_string(k + 1) + ": ";
    if (SamePixels(pair.first, pair.second)) {
      throw StationError(label + mainPath + " and " + secondPath + " are the same image");
    }
    for (int role = 0; role < 2; ++role) {
      struct stat status = {};
      if (stat(mImages[2 * k + role].c_str(), &status) != 0) continue;
      const auto [at, added] = mFiles.insert({{status.st_dev, status.st_ino}, {k, role}});
      if (!added && at->second.second != role) {
        throw StationError(mImages[2 * k + role] + ": the " + kRoles[role] + " image of pair " + std::to_string(k + 1) +
                           " and the " + kRoles[1 - role] + " image of pair " + std::to_string(at->second.first + 1));
      }
    }
    const auto [at, added] = mPairs.insert({{PixelKey(pair.first), PixelKey(pair.second)}, k});
    if (!added) throw StationError(label + "the same images as pair " + std::to_string(at->second + 1));
    return pair;
  }

 private:
  static constexpr const char* kRoles[2] = {"main", "second"};
  const std::vector<std::string>& mImages;
  std::pair<cv::Size, cv::Size> mSizes;
  std::map<std::pair<dev_t, ino_t>, std::pair<size_t, int>> mFiles;
  std::map<std::pair<size_t, size_t>, size_t> mPairs;
};

// "pair 12 error:" padded to the summary's value column.
std::string PairLabel(int32_t pair, const char* what) {
  std::string label = "pair " + std::to_string(pair) + " " + what + ":";
  label.resize(std::max<size_t>(label.size() + 1, 18), ' ');
  return label;
}

const char* PairingName(CornerPairing pairing) { return pairing == CornerPairing::kGrid ? "grid" : "nearest"; }
const char* SearchName(CornerSearch search) { return search == CornerSearch::kAnyScale ? "any-scale" : "engine"; }

// "1, 4, 7" from numbers.
std::string NumberList(const std::vector<int32_t>& numbers) {
  std::string list;
  for (const int32_t number : numbers) list += (list.empty() ? "" : ", ") + std::to_string(number);
  return list;
}

// Indices counted from 1, as the summary and the JSON give corners.
std::vector<int32_t> OneBased(std::vector<int32_t> indices) {
  for (int32_t& index : indices) ++index;
  return indices;
}

// The pair numbers of the given views (0-based), as PairNumbersOfViews counts.
std::vector<int32_t> PairsOf(const std::vector<int32_t>& views, const std::vector<int32_t>& pairNumbers) {
  std::vector<int32_t> pairs;
  for (const int32_t view : views) {
    if (view >= 0 && static_cast<size_t>(view) < pairNumbers.size()) pairs.push_back(pairNumbers[view]);
  }
  return pairs;
}


// "pairs 3, 7; corners 12, 40 of pair 1; 3 of pair 5" (corners counted from 1
// by their place in the grid, row by row); views are the first run's.
std::string DroppedText(const CornerOutliers& dropped, const std::vector<int32_t>& pairNumbers) {
  std::string text = dropped.views.empty() ? "" : "pairs " + NumberList(PairsOf(dropped.views, pairNumbers));
  std::string corners;
  for (size_t v = 0; v < dropped.corners.size() && v < pairNumbers.size(); ++v) {
    if (dropped.corners[v].empty()) continue;
    corners += (corners.empty() ? "corners " : "; ") + NumberList(OneBased(dropped.corners[v])) + " of pair " +
               std::to_string(pairNumbers[v]);
  }
  return text + (text.empty() || corners.empty() ? "" : "; ") + corners;
}

nlohmann::json DroppedJson(const CornerOutliers& dropped, const std::vector<int32_t>& pairNumbers) {
  nlohmann::json corners = nlohmann::json::array();
  for (size_t v = 0; v < dropped.corners.size() && v < pairNumbers.size(); ++v) {
    if (dropped.corners[v].empty()) continue;
    corners.push_back({{"pair", pairNumbers[v]}, {"corners", OneBased(dropped.corners[v])}});
  }
  return {{"pairs", PairsOf(dropped.views, pairNumbers)}, {"corners", corners}};
}

bool IsOutlier(const ChartSummary& summary, size_t view) {
  return std::find(summary.outlierViews.begin(), summary.outlierViews.end(), static_cast<int32_t>(view)) !=
         summary.outlierViews.end();
}

void PrintPairing(const ChartSummary& summary) {
  const std::vector<int32_t> pairs = PairNumbersOfViews(summary);
  std::printf("corners:          %s\n", summary.search == CornerSearch::kAnyScale
                                             ? "any-scale (scale from the image, windows sized to the squares)"
                                             : "engine (quarter size, window 21 x 21)");
  std::printf("pairing:          %s\n", PairingName(summary.pairing));
  for (size_t k = 0; k < summary.gridPairings.size(); ++k) {
    const GridPairing& pairing = summary.gridPairings[k];
    std::printf("%s%s, homography fit %.4f px\n", PairLabel(pairs.at(k), "order").c_str(),
                pairing.order < 0 ? "none" : kGridOrders[pairing.order].name, pairing.residualPx);
  }
  for (size_t k = 0; k < summary.cornerQuality.size(); ++k) {
    const ViewCornerQuality& quality = summary.cornerQuality[k];
    std::vector<float> residuals = quality.residuals1;
    residuals.insert(residuals.end(), quality.residuals2.begin(), quality.residuals2.end());
    const float largest = residuals.empty() ? 0.0f : *std::max_element(residuals.begin(), residuals.end());
    std::printf("%sneighbour residual median %.4f px, max %.4f px", PairLabel(pairs.at(k), "corners").c_str(),
                UpperMedian(residuals), largest);
    if (!quality.leftOut.empty()) {
      std::printf("; unlocated, left out: %s", NumberList(OneBased(quality.leftOut)).c_str());
    }
    std::printf("\n");
  }
  if (!summary.repeatedCornerViews.empty()) {
    std::printf("repeated corners: pairs %s (a second-image corner taken twice)\n",
                NumberList(PairsOf(summary.repeatedCornerViews, pairs)).c_str());
  }
  if (summary.viewsWithoutTables > 0) {
    const std::vector<int32_t> corrected(pairs.begin(), pairs.begin() + std::min<size_t>(kChartMinViews, pairs.size()));
    std::printf("warning:          the distortion tables correct the first %d views only (pairs %s); %d later views "
                "enter the calibration uncorrected\n",
                kChartMinViews, NumberList(corrected).c_str(), summary.viewsWithoutTables);
  }
}

void PrintDeviations(const char* label, const MonoIntrinsics& mono) {
  std::printf("std dev %-9s", label);
  for (int i = 0; i < 9; ++i) std::printf(" %s %.4g", kMonoIntrinsicNames[i], mono.stdDev[i]);
  std::printf("\n");
}

nlohmann::json DeviationsJson(const MonoIntrinsics& mono) {
  nlohmann::json json;
  for (int i = 0; i < 9; ++i) json[kMonoIntrinsicNames[i]] = mono.stdDev[i];
  return json;
}

const char* PairResultText(ChartPairResult result) {
  switch (result) {
    case ChartPairResult::kView:
      return "board found in both";
    case ChartPairResult::kNoBoard:
      return "board not found";
    case ChartPairResult::kNoBoardQuickCheck:
      return "board not found (quick check of the main image)";
    case ChartPairResult::kCornersUnlocated:
      return "board found in both, its corners not located (more than half, or any with distortion tables): "
             "dropped";
    case ChartPairResult::kOrderUndecided:
      return "board found in both, its corner order not decided (a symmetric board turned between the views): "
             "dropped";
  }
  return "";
}

void PrintSummary(const ChartSummary& summary, bool strictTranslation) {
  std::printf("views:            %d of %zu\n", summary.viewCount, summary.viewsFound.size());
  PrintPairing(summary);
  if (summary.status != kChartOk) {
    std::printf("failed:           %s: %s\n", summary.failedStage.c_str(), summary.message.c_str());
    return;
  }
  const ChartLimitChecks& c = summary.checks;
  const std::vector<int32_t> pairs = PairNumbersOfViews(summary);
  std::printf("mono RMS:         main %.4f px, second %.4f px (%s)\n", summary.monoRms1, summary.monoRms2,
              PassFail(c.monoReprojection));
  PrintDeviations("main:", summary.mono1);
  PrintDeviations("second:", summary.mono2);
  std::printf("stereo RMS:       %.4f px (%s)\n", summary.stereoRms, PassFail(c.stereoReprojection));
  for (size_t k = 0; k < summary.viewErrors1.size(); ++k) {
    std::printf("%smain %.4f px, second %.4f px%s\n", PairLabel(pairs.at(k), "error").c_str(), summary.viewErrors1[k],
                k < summary.viewErrors2.size() ? summary.viewErrors2[k] : 0.0f,
                IsOutlier(summary, k) ? " (outlier)" : "");
  }
  std::printf("outlier limit:    main %.4f px, second %.4f px (%.0f x median)\n", ViewOutlierLimit(summary.viewErrors1),
              ViewOutlierLimit(summary.viewErrors2), kOutlierMedianFactor);
  std::printf("T:                [%.4f, %.4f, %.4f] (%s %s %s)%s\n", summary.T[0], summary.T[1], summary.T[2],
              PassFail(c.translationX), PassFail(c.translationY), PassFail(c.translationZ),
              c.translationX && c.translationY && c.translationZ ? ""
              : strictTranslation ? " counted (--strict-translation)"
                                  : " not counted: the library checks it only with the stereo RMS over its limit");
  std::printf("angles (deg):     x %.4f (%s), y %.4f (%s), z %.4f (%s)\n", summary.r_x * kDegreesPerRadian,
              PassFail(c.rotationX), summary.r_y * kDegreesPerRadian, PassFail(c.rotationY),
              summary.r_z * kDegreesPerRadian, PassFail(c.rotationZ));
  std::printf("result files:     %s\n                  %s\n", PicturesPath("calibrationResult.txt").c_str(),
              PicturesPath("calib_log.txt").c_str());
}

// The first pair undistorted and rectified side by side, with horizontal
// guide lines: matching points of a good calibration lie on one line.
cv::Mat RectifiedSideBySide(const dualCalibration& engine, const std::pair<cv::Mat, cv::Mat>& pair) {
  const cv::Size size = pair.first.size();
  cv::Mat R1, R2, P1, P2, Q;
  cv::stereoRectify(engine.K1, engine.D1, engine.K2, engine.D2, size, engine.R, engine.mT, R1, R2, P1, P2, Q,
                    cv::CALIB_ZERO_DISPARITY, 0.0);
  cv::Mat canvas(size.height, 2 * size.width, CV_8UC3);
  const cv::Mat* images[2] = {&pair.first, &pair.second};
  const cv::Mat* cameras[2] = {&engine.K1, &engine.K2};
  const cv::Mat* distortions[2] = {&engine.D1, &engine.D2};
  const cv::Mat* rotations[2] = {&R1, &R2};
  const cv::Mat* projections[2] = {&P1, &P2};
  for (int i = 0; i < 2; ++i) {
    cv::Mat mapX, mapY, rectified;
    cv::initUndistortRectifyMap(*cameras[i], *distortions[i], *rotations[i], *projections[i], size, CV_32FC1,
                                mapX, mapY);
    cv::remap(*images[i], rectified, mapX, mapY, cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
    cv::cvtColor(rectified, canvas(cv::Rect(i * size.width, 0, size.width, size.height)), cv::COLOR_GRAY2BGR);
  }
  for (int y = 0; y < canvas.rows; y += kGuideLineSpacingPx) {
    cv::line(canvas, {0, y}, {canvas.cols - 1, y}, cv::Scalar(0, 255, 0), 1);
  }
  return canvas;
}

}  // namespace

bool AllChartChecksPassed(const ChartLimitChecks& c, bool strictTranslation) {
  const bool translationWithin = c.translationX && c.translationY && c.translationZ;
  return c.monoReprojection && c.rotationX && c.rotationY && c.rotationZ && c.stereoReprojection &&
         (translationWithin || !strictTranslation);
}

nlohmann::json ChartSummaryJson(const ChartSummary& summary, const dualCalibration& engine) {
  const ChartLimitChecks& c = summary.checks;
  const std::vector<int32_t> pairs = PairNumbersOfViews(summary);
  nlohmann::json json = {
      {"status", summary.status},
      {"views_found", summary.viewsFound},
      {"views_total", summary.viewCount},
      {"mono_rms", {summary.monoRms1, summary.monoRms2}},
      {"per_view_errors", {{"main", summary.viewErrors1}, {"second", summary.viewErrors2}}},
      {"rms", summary.stereoRms},
      {"T", {summary.T[0], summary.T[1], summary.T[2]}},
      {"angles_deg",
       {summary.r_x * kDegreesPerRadian, summary.r_y * kDegreesPerRadian, summary.r_z * kDegreesPerRadian}},
      {"checks",
       {{"mono_reprojection", c.monoReprojection}, {"rotation_x", c.rotationX}, {"rotation_y", c.rotationY},
        {"rotation_z", c.rotationZ}, {"stereo_reprojection", c.stereoReprojection},
        {"translation_x", c.translationX}, {"translation_y", c.translationY}, {"translation_z", c.translationZ}}},
      {"pairing", PairingName(summary.pairing)},
      {"corner_search", SearchName(summary.search)},
      {"quick_rejected", summary.quickRejected},
      {"order_undecided", summary.orderUndecided},
      {"view_pairs", pairs},
      {"outlier_pairs", PairsOf(summary.outlierViews, pairs)},
      {"views_without_tables", summary.viewsWithoutTables},
  };
  if (summary.pairing == CornerPairing::kGrid) {
    nlohmann::json orders = nlohmann::json::array();
    for (const GridPairing& pairing : summary.gridPairings) {
      orders.push_back({{"order", pairing.order < 0 ? "none" : kGridOrders[pairing.order].name},
                        {"residual_px", pairing.residualPx}});
    }
    json["grid_pairing"] = orders;
  } else {
    json["repeated_corner_pairs"] = PairsOf(summary.repeatedCornerViews, pairs);
  }
  if (summary.search == CornerSearch::kAnyScale) {
    nlohmann::json qualities = nlohmann::json::array();
    for (const ViewCornerQuality& quality : summary.cornerQuality) {
      qualities.push_back({{"neighbour_residual_px", {{"main", quality.residuals1}, {"second", quality.residuals2}}},
                           {"left_out", quality.leftOut}});
    }
    json["corner_quality"] = qualities;
    json["corners_unlocated"] = summary.cornersUnlocated;
  }
  if (summary.status == kChartOk) {
    json["K1"] = MatrixJson(engine.K1), json["K2"] = MatrixJson(engine.K2);
    json["D1"] = MatrixJson(engine.D1), json["D2"] = MatrixJson(engine.D2);
    json["intrinsic_std_dev"] = {{"main", DeviationsJson(summary.mono1)}, {"second", DeviationsJson(summary.mono2)}};
  } else {
    json["failed_stage"] = summary.failedStage;
    json["message"] = summary.message;
  }
  return json;
}

void AddChartOptions(CLI::App& command, ChartOptions& options) {
  command.add_option("--params", options.params, "Parameter file (section ParameterList)")->required();
  command.add_option("--tables", options.tables, "Distortion tables of the main and the second camera")
      ->expected(2);
  command.add_option("--json", options.json, "Summary as JSON");
  command.add_option("--save-rectified", options.saveRectified, "First pair rectified side by side (PNG)");
  command.add_option("--pairing", options.pairing, "Corner pairing: grid (the board's symmetric orders) or nearest")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, CornerPairing>{{"grid", CornerPairing::kGrid}, {"nearest", CornerPairing::kNearest}}))
      ->default_str("grid");
  command.add_option("--corners", options.search,
                     "Corner search: any-scale (a scale chosen from the image, finer where it fails, windows sized to "
                     "the squares) or engine (the library's quarter-size search)")
      ->transform(CLI::CheckedTransformer(std::map<std::string, CornerSearch>{{"any-scale", CornerSearch::kAnyScale},
                                                                              {"engine", CornerSearch::kEngine}}))
      ->default_str("any-scale");
  command.add_flag("!--no-quick-check", options.quickCheck,
                   "Search the second image in full even when the main image's quick board check finds no board");
  command.add_flag("--strict-translation", options.strictTranslation,
                   "Fail any translation over nMaxTransition (the library checks it only with the stereo RMS over "
                   "its limit)");
  command.add_flag("--drop-outliers", options.dropOutliers,
                   "Calibrate again without the outlier corners (over 5 x the median corner error; a view "
                   "with more than half of them goes whole while 4 views stay) and report both runs");
  command.add_option("IMAGES", options.images, "MAIN1 SECOND1 [MAIN2 SECOND2 ...]");
  command.add_option("--pairs-dir", options.pairsDir, "Folder of NAME_main.EXT / NAME_second.EXT pairs");
  command.add_option("--pairs", options.pairsFile, "Text file with one pair 'MAIN SECOND' per line");
  command.add_option("--report", options.reportDir, "Folder for the picture report (PNGs and report.json)");
  command.add_option("--android-metadata", options.androidMetadata, "Camera2 static metadata of both cameras (JSON)");
  command.add_option("--square-mm", options.squareMm, "Real size of a board square in mm (default: nSquareSize mm)")
      ->check(FiniteWithin(1e-6, 1e6));
  command.add_option("--sensor-orientation", options.sensorOrientationDeg, "Main camera's sensor orientation (deg)")
      ->check(CLI::IsMember({0, 90, 180, 270}))
      ->capture_default_str();
}

ChartOutcome CalibrateChart(const ChartOptions& options) {
  for (const std::string& table : options.tables) RequireReadableFile(table, kMaxTextFileBytes);
  const std::vector<std::string> images = ChartImagePaths(options.images, options.pairsDir, options.pairsFile);
  RunFiles files{images, {options.pairsDir}, {options.json, options.saveRectified, options.androidMetadata},
                 {options.reportDir}};
  files.inputs.insert(files.inputs.end(), {options.params, options.pairsFile});
  files.inputs.insert(files.inputs.end(), options.tables.begin(), options.tables.end());
  CheckRunFiles(files);
  if (images.size() < 2 || images.size() % 2 != 0) {
    throw StationError("chart: expected image pairs MAIN1 SECOND1 [MAIN2 SECOND2 ...], got " +
                       std::to_string(images.size()) + " files");
  }
  for (const std::string& image : images) RequireReadableFile(image, kMaxImageFileBytes);
  dualCalibration& engine = g_dualCalib;
  if (LoadParametersFromFile(engine, options.params.c_str()) != 1) {
    throw StationError(options.params + ": parameter file could not be loaded");
  }
  const bool withTables = options.tables.size() == 2;
  ChartRunOptions run;
  run.mainTablePath = withTables ? options.tables[0].c_str() : nullptr;
  run.secondTablePath = withTables ? options.tables[1].c_str() : nullptr;
  run.pairing = options.pairing;
  run.quickCheck = options.quickCheck;
  run.search = options.search;
  run.onPair = [&](size_t k, ChartPairResult result) {
    std::cout.flush();
    std::printf("pair %zu: %s %s: %s\n", k + 1, images[2 * k].c_str(), images[2 * k + 1].c_str(),
                PairResultText(result));
    std::fflush(stdout);
  };
  ChartOutcome outcome;
  // The stereo stage appends its limits to the log.
  AppendedLibraryFile("calib_log.txt");
  // Pairs are read as their searches come; the first bad one stops the run.
  PairIntake intake(images);
  std::unique_ptr<StationError> badPair;
  outcome.summary = engine.runChartCalibration(images.size() / 2, [&](size_t k) {
    try {
      return intake.Read(k);
    } catch (const StationError& error) {
      badPair = std::make_unique<StationError>(error);
      return std::pair<cv::Mat, cv::Mat>();
    }
  }, run);
  std::cout.flush();
  if (badPair) throw *badPair;
  const ChartSummary& summary = outcome.summary;
  if (summary.status == kChartBadImages || summary.status == kChartBadTables) {
    throw StationError(summary.failedStage + ": " + summary.message);
  }
  std::printf("\n== chart summary\n");
  PrintSummary(summary, options.strictTranslation);
  nlohmann::json json = ChartSummaryJson(summary, engine);
  if (options.dropOutliers && summary.status == kChartOk && !summary.outlierCorners.empty()) {
    outcome.recalibrated = true;
    outcome.withoutOutliers = engine.recalibrateChartWithout(summary, summary.outlierCorners);
    std::cout.flush();
    const std::vector<int32_t> firstPairs = PairNumbersOfViews(summary);
    std::printf("\n== chart summary without outliers: %s\n",
                DroppedText(outcome.withoutOutliers.dropped, firstPairs).c_str());
    PrintSummary(outcome.withoutOutliers, options.strictTranslation);
    json["without_outliers"] = ChartSummaryJson(outcome.withoutOutliers, engine);
    json["without_outliers"]["dropped"] = DroppedJson(outcome.withoutOutliers.dropped, firstPairs);
  }
  if (outcome.Final().status == kChartOk) LibraryFile("calibrationResult.txt", outcome.Final().resultFileText);
  json["strict_translation"] = options.strictTranslation;
  json["checks_passed"] = outcome.Final().status == kChartOk &&
                          AllChartChecksPassed(outcome.Final().checks, options.strictTranslation);
  if (!options.json.empty()) WriteJsonAtomically(options.json, json);
  if (!options.saveRectified.empty() && outcome.Final().status == kChartOk) {
    const cv::Mat canvas = RectifiedSideBySide(engine, {engine.mChartImages[0], engine.mChartImages[1]});
    WriteImageAtomically(options.saveRectified, canvas);
    std::printf("rectified pair:   %s\n", options.saveRectified.c_str());
  }
  if (!options.reportDir.empty() && outcome.Final().status == kChartOk) {
    WriteChartReport(options.reportDir, ChartReportInput(engine, outcome.Final(), images));
    std::printf("report:           %s/report.json\n", options.reportDir.c_str());
  }
  if (!options.androidMetadata.empty() && outcome.Final().status == kChartOk) {
    WriteJsonAtomically(options.androidMetadata,
                        AndroidMetadataJson(engine, options.squareMm, options.sensorOrientationDeg));
    std::printf("android metadata: %s\n", options.androidMetadata.c_str());
  }
  return outcome;
}

int RunChart(const ChartOptions& options) {
  const ChartSummary summary = CalibrateChart(options).Final();
  return summary.status == kChartOk && AllChartChecksPassed(summary.checks, options.strictTranslation)
             ? kExitSuccess
             : kExitChecksFailed;
}
