#include "tools/DemoCommand.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "api/Globals.h"
#include "station/RunOutputs.h"
#include "tools/ChartCommand.h"
#include "tools/RefineCommand.h"
#include "tools/SynthCommand.h"
#include "tools/ToolInput.h"

namespace fs = std::filesystem;

namespace {

constexpr int kDemoChartPairs = 8;
constexpr uint32_t kDemoSeed = 7;

// A fresh folder under the system's temporary directory, removed on exit.
class DemoFolder {
 public:
  DemoFolder() {
    std::string pattern = (fs::temp_directory_path() / "qlm-demo-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw StationError(pattern + ": cannot create directory");
    mPath = pattern;
  }
  ~DemoFolder() {
    std::error_code ignored;
    fs::remove_all(mPath, ignored);
  }
  DemoFolder(const DemoFolder&) = delete;
  DemoFolder& operator=(const DemoFolder&) = delete;
  std::string Sub(const char* name) const { return (fs::path(mPath) / name).string(); }

 private:
  std::string mPath;
};

void PrintRow(const char* name, double measured, double truth) {
  std::printf("  %-22s %14.4f %14.4f %12.4f\n", name, measured, truth, measured - truth);
}

void PrintHeader(const char* title) {
  std::printf("\n== %s\n  %-22s %14s %14s %12s\n", title, "", "measured", "true", "difference");
}

bool DemoRefine(const DemoFolder& folder) {
  SynthOptions synth;
  synth.out = folder.Sub("scene");
  synth.seed = kDemoSeed;
  const nlohmann::json truth = WriteSyntheticScene(synth);
  CommitOutputs();  // refine reads the scene back
  RefineOptions refine;
  refine.params = synth.out + "/" + kSceneParams;
  refine.record = synth.out + "/" + kSceneRecord;
  refine.mainImage = synth.out + "/" + kSceneMainImage;
  refine.secondImage = synth.out + "/" + kSceneSecondImage;
  const RefineOutcome outcome = Refine(refine);
  if (outcome.code != 1 || outcome.report.estimate.empty()) return false;
  const cv::Mat& a = outcome.report.estimate;
  const auto& expected = truth["expected_estimate"];
  PrintHeader("refine: residual misalignment recovered by the estimate");
  PrintRow("translation x (px)", a.at<double>(0, 2), expected[0][2]);
  PrintRow("translation y (px)", a.at<double>(1, 2), expected[1][2]);
  PrintRow("scale", std::hypot(a.at<double>(0, 0), a.at<double>(1, 0)),
           std::hypot(expected[0][0].get<double>(), expected[1][0].get<double>()));
  return outcome.report.constraintsMet;
}

bool DemoChart(const DemoFolder& folder) {
  SynthOptions synth;
  synth.out = folder.Sub("chart");
  synth.seed = kDemoSeed;
  synth.pairs = kDemoChartPairs;
  ChartOptions chart;
  chart.images = WriteSyntheticChart(synth);
  CommitOutputs();  // the chart run reads its parameters back
  chart.params = synth.out + "/" + kChartParams;
  const ChartSummary summary = CalibrateChart(chart).Final();
  if (summary.status != kChartOk) return false;
  std::ifstream truthFile(synth.out + "/" + kChartTruth);
  const nlohmann::json truth = nlohmann::json::parse(truthFile);
  PrintHeader("chart: baseline and focal lengths recovered by the stereo calibration");
  PrintRow("T x", summary.T[0], truth["T"][0]);
  PrintRow("T y", summary.T[1], truth["T"][1]);
  PrintRow("T z", summary.T[2], truth["T"][2]);
  PrintRow("|T| (baseline)", cv::norm(summary.T),
           std::hypot(truth["T"][0].get<double>(), truth["T"][1].get<double>(), truth["T"][2].get<double>()));
  const auto& mainK = truth["main_camera"]["K"];
  const auto& secondK = truth["second_camera"]["K"];
  PrintRow("fx main (px)", g_dualCalib.K1.at<double>(0, 0), mainK[0][0]);
  PrintRow("fy main (px)", g_dualCalib.K1.at<double>(1, 1), mainK[1][1]);
  PrintRow("fx second (px)", g_dualCalib.K2.at<double>(0, 0), secondK[0][0]);
  PrintRow("fy second (px)", g_dualCalib.K2.at<double>(1, 1), secondK[1][1]);
  PrintRow("stereo RMS (px)", summary.stereoRms, 0.0);
  return AllChartChecksPassed(summary.checks, false);
}

}  // namespace

int RunDemo() {
  DemoFolder folder;
  const bool refinePassed = DemoRefine(folder);
  const bool chartPassed = DemoChart(folder);
  std::printf("\nrefine: %s, chart: %s\n", refinePassed ? "limits met" : "limits NOT met",
              chartPassed ? "calibrated" : "FAILED");
  return refinePassed && chartPassed ? kExitSuccess : kExitChecksFailed;
}
