#include "tools/ChartCommand.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>

#include "api/Globals.h"
#include "chart/CornerQuality.h"
#include "chart/ViewOutliers.h"
#include "framework/PicturesDir.h"
#include "station/StationError.h"
#include "tools/ToolInput.h"
#include "tools/VerifyCommand.h"

namespace {

constexpr double kDegreesPerRadian = 180.0 / 3.14159265358979323846;

const char* PassFail(bool passed) { return passed ? "pass" : "FAIL"; }

// "pair 12 error:" padded to the summary's value column.
std::string PairLabel(int32_t pair, const char* what) {
  std::string label = "pair " + std::to_string(pair) + " " + what + ":";
  label.resize(std::max<size_t>(label.size() + 1, 18), ' ');
  return label;
}

// "1, 4, 7" from numbers.
std::string NumberList(const std::vector<int32_t>& numbers) {
  std::string list;
  for (const int32_t number : numbers) list += (list.empty() ? "" : ", ") + std::to_string(number);
  return list;
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
void PrintUncertainty(const StereoUncertainty& u, double millimetresPerUnit) {
  const cv::Vec3d mm = u.stdDev.T * millimetresPerUnit;
  std::printf("T std dev:        [%.4f, %.4f, %.4f] ([%.4f, %.4f, %.4f] mm; jackknife over %zu folds)\n", u.stdDev.T[0],
              u.stdDev.T[1], u.stdDev.T[2], mm[0], mm[1], mm[2], u.groups);
  std::printf("angles std dev:   x %.4f, y %.4f, z %.4f deg\n", u.stdDev.anglesDeg[0], u.stdDev.anglesDeg[1],
              u.stdDev.anglesDeg[2]);
  std::printf("focal std dev:    main fx %.3f fy %.3f cx %.3f cy %.3f, second fx %.3f fy %.3f cx %.3f cy %.3f px\n",
              u.stdDev.camera1[0], u.stdDev.camera1[1], u.stdDev.camera1[2], u.stdDev.camera1[3], u.stdDev.camera2[0],
              u.stdDev.camera2[1], u.stdDev.camera2[2], u.stdDev.camera2[3]);
  std::printf("left out, moves:  T up to [%.4f, %.4f, %.4f], angles up to %.4f, %.4f, %.4f deg, fx up to %.3f, %.3f px\n",
              u.largestShift.T[0], u.largestShift.T[1], u.largestShift.T[2], u.largestShift.anglesDeg[0],
              u.largestShift.anglesDeg[1], u.largestShift.anglesDeg[2], u.largestShift.camera1[0],
              u.largestShift.camera2[0]);
}

}  // namespace

void AddPairOptions(CLI::App& command, std::vector<std::string>& images, std::string& pairsDir, std::string& pairsFile) {
  command.add_option("IMAGES", images, "MAIN1 SECOND1 [MAIN2 SECOND2 ...]");
  command.add_option("--pairs-dir", pairsDir, "Folder of NAME_main.EXT / NAME_second.EXT pairs");
  command.add_option("--pairs", pairsFile, "Text file with one pair 'MAIN SECOND' per line");
}

void AddChartOptions(CLI::App& command, ChartOptions& options) {
  command.add_option("--params", options.params, "Parameter file (section ParameterList)")->required();
  command.add_option("--tables", options.tables, "Distortion tables of the main and the second camera")
      ->expected(2)
      ->allow_extra_args(false);
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
  AddPairOptions(command, options.images, options.pairsDir, options.pairsFile);
  command.add_option("--report", options.reportDir, "Folder for the picture report (PNGs and report.json)");
  command.add_option("--android-metadata", options.androidMetadata, "Camera2 static metadata of both cameras (JSON)");
  command.add_option("--save-corners", options.saveCorners,
                     "The detected corners of every view (JSON), to solve again later with --from-corners");
  command.add_option("--from-corners", options.fromCorners,
                     "Solve from a --save-corners file instead of images (the same views give the same result)");
  command.add_option("--opencv", options.openCvDir,
                     "Folder for intrinsics.yml and extrinsics.yml in the layout of OpenCV's stereo sample");
  command.add_option("--ros", options.rosDir, "Folder for ROS camera_info files main.yaml and second.yaml");
  AddHealthOptions(command, options.health);
  command.add_option("--folds", options.uncertaintyFolds,
                     "Solve the stereo stage again this many times, each without a group of views, for the "
                     "standard deviations of T, the angles and the intrinsics it delivers (0: not)")
      ->check(CLI::Range(0, 1000))
      ->capture_default_str();
  command.add_option("--square-mm", options.squareMm, "Real size of a board square in mm (default: nSquareSize mm)")
      ->check(FiniteWithin(1e-6, 1e6));
  command.add_option("--sensor-orientation", options.sensorOrientationDeg, "Main camera's sensor orientation (deg)")
      ->check(CLI::IsMember({0, 90, 180, 270}))
      ->capture_default_str();
}

ChartOutcome CalibrateChart(const ChartOptions& options) {
  ChartRun run(g_dualCalib, options);
  const std::vector<std::string>& images = run.Images();
  const ChartSummary& summary = run.Calibrate([&](size_t k, ChartPairResult result) {
    std::cout.flush();
    std::printf("pair %zu: %s %s: %s\n", k + 1, images[2 * k].c_str(), images[2 * k + 1].c_str(),
                PairResultText(result));
    std::fflush(stdout);
  });
  std::cout.flush();
  std::printf("\n== chart summary\n");
  PrintSummary(summary, options.strictTranslation);
  if (const ChartSummary* withoutOutliers = run.RecalibrateWithoutOutliers()) {
    std::cout.flush();
    std::printf("\n== chart summary without outliers: %s\n",
                DroppedText(withoutOutliers->dropped, PairNumbersOfViews(summary)).c_str());
    PrintSummary(*withoutOutliers, options.strictTranslation);
  }
  if (const StereoVerification* rows = run.RowErrors()) {
    PrintRowErrorFigures(*rows, options.health);
    if (const StereoUncertainty* uncertainty = run.Uncertainty()) PrintUncertainty(*uncertainty, run.MillimetresPerUnit());
    const std::array<LensModelCheck, 2>& lenses = run.LensModels();
    const char* cameras[2] = {"main", "second"};
    for (int i = 0; i < 2; ++i) {
      std::printf("%-18s%s\n", ("lens " + std::string(cameras[i]) + ":").c_str(),
                  lenses[i].valid ? "model holds out to the image corners"
                                  : ("FAIL: " + lenses[i].problem + " (the calibration failed)").c_str());
    }
    std::printf("recapture:        %s\n", run.Recapture().c_str());
  }
  run.WriteOutputs();
  if (run.Outcome().Final().status == kChartOk) {
    if (!options.saveRectified.empty()) std::printf("rectified pair:   %s\n", options.saveRectified.c_str());
    if (!options.reportDir.empty()) std::printf("report:           %s/report.json\n", options.reportDir.c_str());
    if (!options.androidMetadata.empty()) std::printf("android metadata: %s\n", options.androidMetadata.c_str());
    if (!options.openCvDir.empty()) std::printf("opencv files:     %s/intrinsics.yml, extrinsics.yml\n", options.openCvDir.c_str());
    if (!options.rosDir.empty()) std::printf("ros camera info:  %s/main.yaml, second.yaml\n", options.rosDir.c_str());
  }
  return run.Outcome();
}

int RunChart(const ChartOptions& options) {
  const ChartSummary summary = CalibrateChart(options).Final();
  return summary.status == kChartOk && AllChartChecksPassed(summary.checks, options.strictTranslation)
             ? kExitSuccess
             : kExitChecksFailed;
}
