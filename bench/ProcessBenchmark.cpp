// QLM_Calib_PROCESS on synthetic 4000x3000 and 10000x10000 pairs against the
// same OpenCV calls made bare, and the peak resident memory of the process.
// Targets: PROCESS at most 1.05 times the bare calls; at most 2 GiB resident
// at 10000x10000. Standard output and error are silenced while PROCESS runs.
// BM_ProcessPeriodic runs PROCESS on a periodic texture (tile of 4 or 8 px)
// on which ORB's scores tie: target about the time of a normal pair.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>

#include "api/Exports.h"
#include "bench/SilencedOutput.h"
#include "engine/dualCalibration.h"
#include "synthetic/SyntheticScene.h"

namespace {

const cv::Matx33d kMainToSecond(1.02, 0.01, -30, -0.008, 0.99, 12, 1e-6, -2e-6, 1);

const SyntheticPair& PairOfSize(int width, int height) {
  static std::map<int, std::unique_ptr<SyntheticPair>> pairs;
  std::unique_ptr<SyntheticPair>& pair = pairs[width];
  if (!pair) {
    pair = std::make_unique<SyntheticPair>(RenderSyntheticPair(
        cv::Size(width, height), 7, kMainToSecond, SimilarityTransform(1.004, 0.2, 6.5, -4.0)));
  }
  return *pair;
}

// Points the pictures directory at a fresh folder and initialises a run with
// thresholds that let every pair reach the estimate.
void InitialiseRun(const RecordHomography& hOtp) {
  static std::string directory;
  if (directory.empty()) {
    std::string pattern = "/tmp/qlm-bench-XXXXXX";
    directory = mkdtemp(pattern.data()) != nullptr ? pattern : "/tmp";
    setenv("QLM_PICTURES_DIR", directory.c_str(), 1);
  }
  auto engine = std::make_unique<dualCalibration>();
  engine->m_nFeaturePointsNumThreshold = 100;
  engine->m_nRefineFeaturePointsNumThreshold = 20;
  engine->m_nHomographyConstraintScale = 2;
  engine->m_nHomographyConstraintOffsetX = 30;
  engine->m_nHomographyConstraintOffsetY = 30;
  const std::string params = directory + "/bench-params.txt";
  SaveParametersToFile(*engine, params.c_str());
  CalibrationRecord record = {};
  SetRecordHOtp(record, hOtp);
  std::string paramPath = params;
  std::string recordPath = directory + "/no-record.bin";
  QLM_Calib_INIT(reinterpret_cast<unsigned char*>(paramPath.data()),
                 reinterpret_cast<unsigned char*>(recordPath.data()), record.bytes, 0, 0, 0, 0);
}

double PeakResidentMiB() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB on Linux
}

// The OpenCV calls of one PROCESS, in the same order and with the same
// arguments, without the library around them.
int BareCalibration(const SyntheticPair& pair) {
  const cv::Mat& m = pair.mainImage;
  const cv::Mat& s = pair.secondImage;
  cv::Mat mainCopy(m.rows, m.cols, CV_8UC1);
  std::memcpy(mainCopy.data, m.data, m.total());
  cv::Mat secondCopy(s.rows, s.cols, CV_8UC1);
  std::memcpy(secondCopy.data, s.data, s.total());
  cv::Mat hOtp(3, 3, CV_64F);
  for (int i = 0; i < 9; ++i) hOtp.at<double>(i / 3, i % 3) = pair.hOtp[i];
  hOtp = hOtp.inv(cv::DECOMP_LU);
  cv::Mat aligned;
  cv::warpPerspective(secondCopy, aligned, hOtp, mainCopy.size(), cv::INTER_LINEAR,
                      cv::BORDER_CONSTANT, cv::Scalar(0));
  cv::Ptr<cv::ORB> orb = cv::ORB::create(500, 1.2f, 8, 31, 0, 2, cv::ORB::HARRIS_SCORE, 31, 20);
  std::vector<cv::KeyPoint> k1, k2;
  cv::Mat d1, d2;
  orb->detect(mainCopy, k1);
  orb->detect(aligned, k2);
  orb->compute(mainCopy, k1, d1);
  orb->compute(aligned, k2, d2);
  std::vector<std::vector<cv::DMatch>> knn;
  cv::DescriptorMatcher::create("BruteForce-Hamming")->knnMatch(d1, d2, knn, 2);
  std::vector<cv::DMatch> good;
  std::vector<cv::Point2f> p1, p2;
  for (const auto& l : knn) {
    if (l.size() < 2 || !(l[0].distance / l[1].distance < 2.0f / 3.0f)) continue;
    good.push_back(l[0]);
    p1.push_back(k1[static_cast<size_t>(l[0].queryIdx)].pt);
    p2.push_back(k2[static_cast<size_t>(l[0].trainIdx)].pt);
  }
  cv::Mat drawn;
  cv::drawMatches(mainCopy, k1, aligned, k2, good, drawn);
  cv::Mat a = cv::estimateAffinePartial2D(p2, p1, cv::noArray(), cv::RANSAC, 3.0, 2000, 0.99, 10);
  cv::Mat h = cv::Mat::eye(3, 3, CV_64F);
  a.copyTo(h.rowRange(0, 2));
  cv::Mat warped;
  cv::warpPerspective(aligned, warped, h, aligned.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                      cv::Scalar(0));
  return static_cast<int>(good.size());
}

void BM_Process(benchmark::State& state) {
  const SyntheticPair& pair =
      PairOfSize(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  cv::Mat mainImage = pair.mainImage;
  cv::Mat secondImage = pair.secondImage;
  int rv = 0;
  {
    SilencedOutput silenced;
    InitialiseRun(pair.hOtp);
    for (auto _ : state) {
      rv = QLM_Calib_PROCESS(mainImage.data, secondImage.data, mainImage.cols, mainImage.rows,
                             secondImage.cols, secondImage.rows, 0);
    }
  }
  if (rv != 1) state.SkipWithError("QLM_Calib_PROCESS did not reach the estimate");
  state.counters["peakRssMiB"] = PeakResidentMiB();
}

// The same periodic texture seen by both cameras through the identity.
void BM_ProcessPeriodic(benchmark::State& state) {
  cv::Mat texture = RenderPeriodicTexture(
      cv::Size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1))),
      static_cast<int>(state.range(2)), 1);
  int rv = -1;
  {
    SilencedOutput silenced;
    InitialiseRun(RecordHomography{1, 0, 0, 0, 1, 0, 0, 0, 1});
    for (auto _ : state) {
      rv = QLM_Calib_PROCESS(texture.data, texture.data, texture.cols, texture.rows, texture.cols,
                             texture.rows, 0);
    }
  }
  state.counters["code"] = rv;
}

void BM_BareOpenCv(benchmark::State& state) {
  const SyntheticPair& pair =
      PairOfSize(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  int goodMatches = 0;
  for (auto _ : state) goodMatches = BareCalibration(pair);
  state.counters["goodMatches"] = goodMatches;
  state.counters["peakRssMiB"] = PeakResidentMiB();
}

// CPU time counts OpenCV's worker threads too; on a shared machine it is the
// steadier of the two figures.
void Sizes(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
}
BENCHMARK(BM_Process)->Args({4000, 3000})->Iterations(4)->Apply(Sizes);
BENCHMARK(BM_BareOpenCv)->Args({4000, 3000})->Iterations(4)->Apply(Sizes);
BENCHMARK(BM_ProcessPeriodic)->Args({4000, 3000, 4})->Iterations(2)->Apply(Sizes);
BENCHMARK(BM_ProcessPeriodic)->Args({4000, 3000, 8})->Iterations(2)->Apply(Sizes);
BENCHMARK(BM_Process)->Args({10000, 10000})->Iterations(2)->Apply(Sizes);
BENCHMARK(BM_BareOpenCv)->Args({10000, 10000})->Iterations(2)->Apply(Sizes);

// Console output plus the PROCESS / bare ratio per size at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const std::string name = run.benchmark_name();
      if (run.error_occurred || name.rfind("BM_ProcessPeriodic", 0) == 0) continue;
      const std::string size = name.substr(name.find('/') + 1);
      Times& times = (name.rfind("BM_Process", 0) == 0 ? mProcess : mBare)[size];
      times.realMs = run.GetAdjustedRealTime();
      times.cpuMs = run.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatios() const {
    for (const auto& [size, process] : mProcess) {
      const auto bare = mBare.find(size);
      if (bare == mBare.end()) continue;
      std::printf("PROCESS / bare OpenCV at %s: real %.3f, cpu %.3f (target <= 1.05)\n",
                  size.c_str(), process.realMs / bare->second.realMs,
                  process.cpuMs / bare->second.cpuMs);
    }
    std::printf("peak resident memory: %.0f MiB (target <= 2048 MiB at 10000x10000)\n",
                PeakResidentMiB());
  }

 private:
  struct Times {
    double realMs = 0.0;
    double cpuMs = 0.0;
  };
  std::map<std::string, Times> mProcess;
  std::map<std::string, Times> mBare;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  return 0;
}
