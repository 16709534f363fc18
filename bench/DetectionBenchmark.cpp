// Chessboard detection under the conditions a phone calibration meets: a
// lens bending the board at the image border and corners, any roll, small
// squares, defocus and motion blur, vignetting, a darker second camera,
// sensor noise, JPEG and sensor sizes from 1 to 50 MP. Each condition's
// board pairs are rendered once from fixed seeds, with one pair without a
// board beside each, and searched by four detectors: the chart driver with
// qlm-calib chart's default options, the engine's own search (its default
// settings, no quick check), OpenCV's findChessboardCorners as its stereo
// calibration sample runs it, and findChessboardCornersSB.
// The two OpenCV searches run in forked children under a time limit. Every
// found corner is measured against the true corners, and each condition's
// pairs are calibrated through the tool's path and through plain OpenCV.
// Writes detection.txt, detection.csv and detection.png; progress goes to
// standard error.
#include <CLI/CLI.hpp>

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "bench/CpuSeconds.h"
#include "bench/SilencedOutput.h"
#include "engine/dualCalibration.h"
#include "synthetic/BoardPlacement.h"
#include "synthetic/ChessboardRenderer.h"
#include "station/ChartRun.h"

namespace {

using Clock = std::chrono::steady_clock;
using ImagePair = std::pair<cv::Mat, cv::Mat>;
using Corners = std::vector<cv::Point2f>;

const ChessboardLayout kLayout;
const cv::Size kPatternSize(kLayout.width, kLayout.height);
const cv::Size kChartSize(2000, 1500);    // every condition but the sensor sizes
constexpr double kSecondLensScale = 0.9;  // the second lens's coefficients relative to the main lens's
// A corner nearer the image edge than kBorderSquares of its squares is a
// border corner; a found corner farther than kGrossErrorSquares of a square
// from every true corner is a gross error.
constexpr double kBorderSquares = 3.0;
constexpr double kGrossErrorSquares = 0.5;
constexpr double kMotionAngleDeg = 30.0;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::string Printed(const char* format, ...) {
  va_list arguments, copy;
  va_start(arguments, format);
  va_copy(copy, arguments);
  std::string text(std::max(std::vsnprintf(nullptr, 0, format, copy), 0), '\0');
  va_end(copy);
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  va_end(arguments);
  return text;
}

// ---- Conditions

// Barrel distortion of the main lens; the second lens has kSecondLensScale
// times its coefficients. k2 keeps r * (1 + k1 r^2 + k2 r^4) growing well past
// the image corners.
struct Lens {
  double k1;
  double k2;
};
constexpr Lens kPinhole{0.0, 0.0};
constexpr Lens kBarrel020{-0.20, 0.05};
constexpr Lens kBarrel036{-0.36, 0.14};
constexpr Lens kBarrel045{-0.45, 0.22};

using CaptureSetup = void (*)(RenderOptions& options);

struct Condition {
  const char* name;
  cv::Size size;
  Lens lens;
  PlacementOptions placement;
  CaptureSetup capture;
  int maxPairs = 0;  // 0: as many as --pairs asks for; kChartMinViews, the fewest a calibration takes
};

PlacementOptions Placed(Placement placement, double borderPx = 20.0) {
  PlacementOptions options;
  options.placement = placement;
  options.borderPx = borderPx;
  return options;
}

PlacementOptions Rolled(double maxRollDeg) {
  PlacementOptions options = Placed(Placement::kCentre);
  options.maxRollDeg = maxRollDeg;
  return options;
}

PlacementOptions SquaresOf(double minSquarePx, double maxSquarePx) {
  PlacementOptions options = Placed(Placement::kAnywhere);
  options.minSquarePx = minSquarePx;
  options.maxSquarePx = maxSquarePx;
  return options;
}

void AsBaseline(RenderOptions&) {}

const PlacementOptions kCentred = Placed(Placement::kCentre);

// One row per condition; a condition changes one thing from the baseline.
const Condition kConditions[] = {
    {"baseline", kChartSize, kPinhole, kCentred, AsBaseline},
    {"pinhole/border20", kChartSize, kPinhole, Placed(Placement::kBorder, 20.0), AsBaseline},
    {"pinhole/corner", kChartSize, kPinhole, Placed(Placement::kCorner, 20.0), AsBaseline},
    {"lens-0.20/border20", kChartSize, kBarrel020, Placed(Placement::kBorder, 20.0), AsBaseline},
    {"lens-0.20/border40", kChartSize, kBarrel020, Placed(Placement::kBorder, 40.0), AsBaseline},
    {"lens-0.20/corner", kChartSize, kBarrel020, Placed(Placement::kCorner, 20.0), AsBaseline},
    {"lens-0.36/border20", kChartSize, kBarrel036, Placed(Placement::kBorder, 20.0), AsBaseline},
    {"lens-0.36/border40", kChartSize, kBarrel036, Placed(Placement::kBorder, 40.0), AsBaseline},
    {"lens-0.36/corner", kChartSize, kBarrel036, Placed(Placement::kCorner, 20.0), AsBaseline},
    {"lens-0.45/border20", kChartSize, kBarrel045, Placed(Placement::kBorder, 20.0), AsBaseline},
    {"lens-0.45/border40", kChartSize, kBarrel045, Placed(Placement::kBorder, 40.0), AsBaseline},
    {"lens-0.45/corner", kChartSize, kBarrel045, Placed(Placement::kCorner, 20.0), AsBaseline},
    {"roll-90", kChartSize, kPinhole, Rolled(90.0), AsBaseline},
    {"roll-180", kChartSize, kPinhole, Rolled(180.0), AsBaseline},
    {"squares-12", kChartSize, kPinhole, SquaresOf(12.0, 15.0), AsBaseline},
    {"squares-20", kChartSize, kPinhole, SquaresOf(20.0, 25.0), AsBaseline},
    {"squares-30", kChartSize, kPinhole, SquaresOf(30.0, 37.0), AsBaseline},
    {"defocus-1.5", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.defocusRadiusPx = 1.5; }},
    {"defocus-3", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.defocusRadiusPx = 3.0; }},
    {"motion-5", kChartSize, kPinhole, kCentred,
     [](RenderOptions& o) { o.motionBlurPx = 5.0, o.motionBlurAngleDeg = kMotionAngleDeg; }},
    {"motion-12", kChartSize, kPinhole, kCentred,
     [](RenderOptions& o) { o.motionBlurPx = 12.0, o.motionBlurAngleDeg = kMotionAngleDeg; }},
    {"vignetting-0.5", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.vignetting = 0.5; }},
    {"vignetting-0.3", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.vignetting = 0.3; }},
    {"exposure-0.5", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.exposure = {1.0, 0.5}; }},
    {"exposure-0.25", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.exposure = {1.0, 0.25}; }},
    {"noise-0.5+2", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.shotNoise = 0.5, o.noiseSigma = 2.0; }},
    {"noise-2+4", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.shotNoise = 2.0, o.noiseSigma = 4.0; }},
    {"jpeg-90", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.jpegQuality = 90; }},
    {"jpeg-70", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.jpegQuality = 70; }},
    {"jpeg-50", kChartSize, kPinhole, kCentred, [](RenderOptions& o) { o.jpegQuality = 50; }},
    {"size-1MP", {1152, 864}, kPinhole, kCentred, AsBaseline},
    {"size-12MP", {4000, 3000}, kPinhole, kCentred, AsBaseline},
    {"size-50MP", {8160, 6120}, kPinhole, kCentred, AsBaseline, kChartMinViews},
};

DistortionCoefficients LensCoefficients(const Lens& lens, double scale) {
  DistortionCoefficients coefficients{};
  coefficients[0] = scale * lens.k1;
  coefficients[1] = scale * lens.k2;
  return coefficients;
}

StereoRig RigOf(const Condition& condition) {
  StereoRig rig = ExampleStereoRig(condition.size, condition.size);
  rig.main.distortion = LensCoefficients(condition.lens, 1.0);
  rig.second.distortion = LensCoefficients(condition.lens, kSecondLensScale);
  return rig;
}

// Noise seeds of board pair k (k and k + 1 for its two images) and of the
// pair without a board beside it.
uint64_t BoardNoiseSeed(uint64_t seed, size_t k) { return seed + 4 * k; }
uint64_t EmptyNoiseSeed(uint64_t seed, size_t k) { return seed + 4 * k + 2; }

// The background alone through the camera's capture (cameraIndex 0 main, 1
// second), as the camera records a scene without a board; a flat scene
// needs no margin for the blurs.
cv::Mat EmptyCapture(const SyntheticCamera& camera, int cameraIndex, const RenderOptions& options, uint64_t seed) {
  std::vector<uchar> encoded;
  return CaptureImage(cv::Mat(camera.size, CV_32F, cv::Scalar(options.backgroundLevel)), 0,
                      {camera.K(0, 2), camera.K(1, 2)}, options, cameraIndex, seed, encoded);
}

ImagePair EmptyPair(const StereoRig& rig, const RenderOptions& options, uint64_t seed) {
  return {EmptyCapture(rig.main, 0, options, seed), EmptyCapture(rig.second, 1, options, seed + 1)};
}

// ---- Ground truth and corner errors

// The true corners of one image with the side of the board's square at each
// (the mean distance to its neighbours in the grid).
struct ImageTruth {
  Corners corners;
  std::vector<double> sidesPx;
  cv::Size size;
};

ImageTruth TruthOf(const Corners& corners, const cv::Size& size) {
  ImageTruth truth{corners, std::vector<double>(corners.size()), size};
  const int width = kPatternSize.width, height = kPatternSize.height;
  for (int i = 0; i < height; ++i) {
    for (int j = 0; j < width; ++j) {
      double sum = 0.0;
      int neighbours = 0;
      for (const cv::Point step : {cv::Point(1, 0), cv::Point(-1, 0), cv::Point(0, 1), cv::Point(0, -1)}) {
        const int column = j + step.x, row = i + step.y;
        if (column < 0 || column >= width || row < 0 || row >= height) continue;
        sum += cv::norm(corners[i * width + j] - corners[row * width + column]);
        ++neighbours;
      }
      truth.sidesPx[i * width + j] = sum / neighbours;
    }
  }
  return truth;
}

size_t NearestIndex(const cv::Point2f& point, const Corners& candidates) {
  size_t nearest = 0;
  for (size_t k = 1; k < candidates.size(); ++k) {
    if (cv::norm(point - candidates[k]) < cv::norm(point - candidates[nearest])) nearest = k;
  }
  return nearest;
}

double EdgeDistancePx(const cv::Point2f& p, const cv::Size& size) {
  return std::min({double(p.x), double(p.y), size.width - 1.0 - p.x, size.height - 1.0 - p.y});
}

struct ErrorStats {
  double squaredSumPx2 = 0.0;
  double maxPx = 0.0;
  int count = 0;

  void Add(double errorPx) {
    squaredSumPx2 += errorPx * errorPx;
    maxPx = std::max(maxPx, errorPx);
    ++count;
  }
  double RmsPx() const { return count > 0 ? std::sqrt(squaredSumPx2 / count) : std::nan(""); }
};

// ---- Detections

// One image's search: the corners as the detector lists them.
struct ImageDetection {
  bool found = false;
  bool timedOut = false;
  double seconds = 0.0;
  Corners corners;
};

struct PairDetection {
  ImageDetection images[2];  // main, second
  double seconds = 0.0;
};

enum Detector { kTool, kEngine, kOpenCv, kSb, kDetectorCount };
const char* const kDetectorNames[kDetectorCount] = {"tool", "engine", "opencv", "sb"};

std::unique_ptr<dualCalibration> ChartEngine() {
  auto engine = std::make_unique<dualCalibration>();
  ApplyExampleChartSettings(*engine);
  return engine;
}

// The engine's search of a pair. It hands corners back only when both
// images show the board, appended to the lists; otherwise a failed image's
// list takes what OpenCV handed back while a found image's list stays as it
// was, so a sentinel list tells the two images' results apart.
PairDetection EngineSearch(dualCalibration& engine, const ImagePair& pair) {
  const Corners sentinel = {{-1.0f, -1.0f}};
  Corners corners[2] = {sentinel, sentinel};
  PairDetection detection;
  bool found = false;
  {
    SilencedOutput silenced({STDOUT_FILENO});
    const double start = CpuSeconds();
    found = engine.detectChessboardCorners(pair.first, pair.second, 1, kPatternSize, corners[0], corners[1]);
    detection.seconds = CpuSeconds() - start;
  }
  for (int c = 0; c < 2; ++c) {
    detection.images[c].found = found || corners[c] == sentinel;
    if (found) detection.images[c].corners.assign(corners[c].begin() + 1, corners[c].end());
  }
  return detection;
}

// The chart driver's options as qlm-calib chart sets them by default.
ChartRunOptions ToolRunOptions() {
  const ChartOptions tool;
  ChartRunOptions options;
  options.pairing = tool.pairing;
  options.search = tool.search;
  options.quickCheck = tool.quickCheck;
  return options;
}

std::string ToolOptionsText() {
  const ChartRunOptions options = ToolRunOptions();
  return std::string(options.pairing == CornerPairing::kGrid ? "grid" : "nearest") + " pairing, " +
         (options.search == CornerSearch::kAnyScale ? "any-scale" : "engine") + " corner search, quick check " +
         (options.quickCheck ? "on" : "off");
}

// The driver's run over some pairs: per pair its view (a board counts only
// when it became a view, found in both images) and the CPU time of its
// search, quick check included (the first pair's includes the run's intake).
struct ToolRun {
  ChartSummary summary;
  std::vector<PairDetection> pairs;
};

ToolRun RunTool(dualCalibration& engine, const std::vector<ImagePair>& pairs) {
  ToolRun run;
  ChartRunOptions options = ToolRunOptions();
  SilencedOutput silenced({STDOUT_FILENO});
  double last = CpuSeconds();
  options.onPair = [&](size_t, ChartPairResult result) {
    PairDetection detection;
    detection.seconds = CpuSeconds() - last;
    if (result == ChartPairResult::kView) {
      detection.images[0] = {true, false, 0.0, engine.mImagePoints1.back()};
      detection.images[1] = {true, false, 0.0, engine.mImagePoints2.back()};
    }
    run.pairs.push_back(detection);
    last = CpuSeconds();
  };
  run.summary = engine.runChartCalibration(pairs, options);
  if (run.pairs.size() != pairs.size()) throw std::runtime_error("chart run stopped: " + run.summary.message);
  return run;
}

using ImageSearch = bool (*)(const cv::Mat& image, Corners& corners);

// OpenCV's stereo calibration sample: the full-size search, then the
// refinement in an 11 x 11 window.
bool SampleSearch(const cv::Mat& image, Corners& corners) {
  if (!cv::findChessboardCorners(image, kPatternSize, corners,
                                 cv::CALIB_CB_ADAPTIVE_THRESH | cv::CALIB_CB_NORMALIZE_IMAGE)) {
    return false;
  }
  cv::cornerSubPix(image, corners, cv::Size(11, 11), cv::Size(-1, -1),
                   cv::TermCriteria(cv::TermCriteria::COUNT + cv::TermCriteria::EPS, 30, 0.01));
  return true;
}

bool SectorSearch(const cv::Mat& image, Corners& corners) {
  return cv::findChessboardCornersSB(image, kPatternSize, corners,
                                     cv::CALIB_CB_ACCURACY | cv::CALIB_CB_NORMALIZE_IMAGE);
}

// What a child hands back through its pipe, followed by count corners.
struct ChildReport {
  double seconds;
  int32_t found;
  int32_t count;
};

void WriteAll(int fd, const std::string& bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    done += static_cast<size_t>(written);
  }
}

[[noreturn]] void SearchAndReport(int fd, ImageSearch search, const cv::Mat& image) {
  Corners corners;
  const double start = CpuSeconds();
  const bool found = search(image, corners);
  const ChildReport report{CpuSeconds() - start, found, found ? static_cast<int32_t>(corners.size()) : 0};
  std::string bytes(reinterpret_cast<const char*>(&report), sizeof(report));
  if (found) bytes.append(reinterpret_cast<const char*>(corners.data()), corners.size() * sizeof(cv::Point2f));
  WriteAll(fd, bytes);
  _exit(0);  // no exit handlers, no second flush of the parent's buffers
}

// Reads fd to its end; false when the deadline comes first.
bool ReadToEnd(int fd, Clock::time_point deadline, std::string& bytes) {
  char buffer[4096];
  while (true) {
    const auto leftMs = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (leftMs <= 0) return false;
    pollfd request{fd, POLLIN, 0};
    const int ready = poll(&request, 1, static_cast<int>(leftMs));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) return false;
    const ssize_t got = ready > 0 ? read(fd, buffer, sizeof(buffer)) : -1;
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return true;
    bytes.append(buffer, static_cast<size_t>(got));
  }
}

// A child that died before its whole report reads as a board not found.
ImageDetection Decoded(const std::string& bytes) {
  ImageDetection detection;
  ChildReport report{};
  if (bytes.size() < sizeof(report)) return detection;
  std::memcpy(&report, bytes.data(), sizeof(report));
  if (report.count < 0 || bytes.size() != sizeof(report) + report.count * sizeof(cv::Point2f)) return detection;
  detection.found = report.found != 0;
  detection.seconds = report.seconds;
  detection.corners.resize(report.count);
  std::memcpy(detection.corners.data(), bytes.data() + sizeof(report), report.count * sizeof(cv::Point2f));
  return detection;
}

struct Child {
  pid_t pid;
  int fd;  // the read end of its pipe
};

// Starts search on image in a forked child.
Child StartSearch(ImageSearch search, const cv::Mat& image) {
  int fds[2];
  if (pipe(fds) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  std::cout.flush();
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid == 0) {
    close(fds[0]);
    SearchAndReport(fds[1], search, image);
  }
  close(fds[1]);
  return {pid, fds[0]};
}

// The child's detection, or a timeout after killing it at the deadline; a
// search stopped there counts timeoutS seconds.
ImageDetection FinishSearch(const Child& child, Clock::time_point deadline, double timeoutS) {
  std::string bytes;
  const bool finished = ReadToEnd(child.fd, deadline, bytes);
  if (!finished) kill(child.pid, SIGKILL);
  close(child.fd);
  waitpid(child.pid, nullptr, 0);
  if (finished) return Decoded(bytes);
  ImageDetection timedOut;
  timedOut.timedOut = true;
  timedOut.seconds = timeoutS;
  return timedOut;
}

// Both images' searches side by side, one child each, each stopped
// timeoutS after their start.
PairDetection PeerSearch(ImageSearch search, const ImagePair& pair, double timeoutS) {
  const auto limit = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeoutS));
  const Clock::time_point deadline = Clock::now() + limit;
  const Child children[2] = {StartSearch(search, pair.first), StartSearch(search, pair.second)};
  PairDetection detection;
  for (int c = 0; c < 2; ++c) detection.images[c] = FinishSearch(children[c], deadline, timeoutS);
  detection.seconds = detection.images[0].seconds + detection.images[1].seconds;
  return detection;
}

// ---- Tallies

struct DetectorTally {
  int found[2] = {0, 0};  // main, second images with the board found
  int pairsFound = 0;
  ErrorStats all, border;
  int grossErrors = 0;  // found corners farther than half a square from every true corner
  int timeouts = 0;
  int emptyHits = 0;  // boards reported in images without one
  double boardSeconds = 0.0, emptySeconds = 0.0;  // sums over the pairs
};

void AddCornerErrors(const Corners& corners, const ImageTruth& truth, DetectorTally& tally) {
  for (const cv::Point2f& corner : corners) {
    const size_t k = NearestIndex(corner, truth.corners);
    const double errorPx = cv::norm(corner - truth.corners[k]);
    if (errorPx > kGrossErrorSquares * truth.sidesPx[k]) {
      ++tally.grossErrors;
      continue;
    }
    tally.all.Add(errorPx);
    if (EdgeDistancePx(truth.corners[k], truth.size) < kBorderSquares * truth.sidesPx[k]) tally.border.Add(errorPx);
  }
}

void AddBoardPair(const PairDetection& detection, const ImageTruth truths[2], DetectorTally& tally) {
  for (int c = 0; c < 2; ++c) {
    const ImageDetection& image = detection.images[c];
    tally.found[c] += image.found;
    tally.timeouts += image.timedOut;
    if (image.found) AddCornerErrors(image.corners, truths[c], tally);
  }
  tally.pairsFound += detection.images[0].found && detection.images[1].found;
  tally.boardSeconds += detection.seconds;
}

void AddEmptyPair(const PairDetection& detection, DetectorTally& tally) {
  for (const ImageDetection& image : detection.images) {
    tally.emptyHits += image.found;
    tally.timeouts += image.timedOut;
  }
  tally.emptySeconds += detection.seconds;
}

// ---- Calibrations

struct CalibrationFigures {
  int views = 0;
  bool calibrated = false;
  double stereoRmsPx = 0.0;
  double translationErrorUnits = 0.0;  // |T| - |T| of the rig
  double fxErrorPx = 0.0;              // main camera
};

CalibrationFigures ToolCalibration(const ToolRun& run, const dualCalibration& engine, const StereoRig& rig) {
  CalibrationFigures figures;
  figures.views = run.summary.viewCount;
  figures.calibrated = run.summary.status == kChartOk;
  if (!figures.calibrated) return figures;
  figures.stereoRmsPx = run.summary.stereoRms;
  figures.translationErrorUnits = cv::norm(run.summary.T) - cv::norm(rig.T);
  figures.fxErrorPx = engine.K1.at<double>(0, 0) - rig.main.K(0, 0);
  return figures;
}

// The found corners in board order, each put at its nearest true corner;
// false unless every true corner gets exactly one within half a square.
bool InBoardOrder(const Corners& corners, const ImageTruth& truth, Corners& ordered) {
  if (corners.size() != truth.corners.size()) return false;
  ordered.assign(corners.size(), cv::Point2f(-1.0f, -1.0f));
  std::vector<bool> taken(corners.size(), false);
  for (const cv::Point2f& corner : corners) {
    const size_t k = NearestIndex(corner, truth.corners);
    if (taken[k] || cv::norm(corner - truth.corners[k]) > kGrossErrorSquares * truth.sidesPx[k]) return false;
    taken[k] = true;
    ordered[k] = corner;
  }
  return true;
}

std::vector<cv::Point3f> BoardPoints() {
  std::vector<cv::Point3f> points;
  for (int i = 0; i < kLayout.height; ++i) {
    for (int j = 0; j < kLayout.width; ++j) {
      points.emplace_back(float(j * kLayout.squareSize), float(i * kLayout.squareSize), 0.0f);
    }
  }
  return points;
}

// Plain OpenCV on the pairs found in both images, with the corners taken in
// board order so that the figures measure the corners, not a pairing: each
// camera alone, then the pair with those intrinsics as the starting guess.
CalibrationFigures SampleCalibration(const std::vector<PairDetection>& detections,
                                     const std::vector<ImageTruth>& mainTruths,
                                     const std::vector<ImageTruth>& secondTruths, const StereoRig& rig) {
  std::vector<Corners> points[2];
  for (size_t k = 0; k < detections.size(); ++k) {
    Corners ordered[2];
    if (InBoardOrder(detections[k].images[0].corners, mainTruths[k], ordered[0]) &&
        InBoardOrder(detections[k].images[1].corners, secondTruths[k], ordered[1])) {
      points[0].push_back(ordered[0]);
      points[1].push_back(ordered[1]);
    }
  }
  CalibrationFigures figures;
  figures.views = static_cast<int>(points[0].size());
  if (figures.views < kChartMinViews) return figures;
  const std::vector<std::vector<cv::Point3f>> objects(points[0].size(), BoardPoints());
  cv::Mat K[2], D[2];
  std::vector<cv::Mat> rvecs, tvecs;
  cv::calibrateCamera(objects, points[0], rig.main.size, K[0], D[0], rvecs, tvecs);
  cv::calibrateCamera(objects, points[1], rig.second.size, K[1], D[1], rvecs, tvecs);
  cv::Mat R, T, E, F;
  figures.stereoRmsPx = cv::stereoCalibrate(objects, points[0], points[1], K[0], D[0], K[1], D[1], rig.main.size,
                                            R, T, E, F, cv::CALIB_USE_INTRINSIC_GUESS);
  figures.translationErrorUnits = cv::norm(T) - cv::norm(rig.T);
  figures.fxErrorPx = K[0].at<double>(0, 0) - rig.main.K(0, 0);
  figures.calibrated = true;
  return figures;
}

// ---- One condition

struct BenchOptions {
  std::string outDir = "bench-results";
  int pairs = 10;
  std::string only;
  double timeoutS = 10.0;
  uint64_t seed = 2024;
  bool keepImages = false;  // writes each condition's board pairs under outDir/images/
};

struct ConditionResult {
  const Condition* condition = nullptr;
  int pairs = 0;
  DetectorTally tallies[kDetectorCount];
  int quickFalseNegatives = 0;  // main images the quick check rejected though a full search found the board
  int quickFalsePositives = 0;  // main images without a board that passed the quick check
  std::optional<CalibrationFigures> calibrations[kDetectorCount];
  double seconds = 0.0;
};

std::string FoundText(const PairDetection& detection) {
  return std::to_string(detection.images[0].found + detection.images[1].found) + "/2";
}

// The chart driver's engine, and one for the engine's own search that
// keeps its default settings whatever a run of the driver sets.
struct Engines {
  std::unique_ptr<dualCalibration> tool = ChartEngine();
  std::unique_ptr<dualCalibration> own = ChartEngine();
};

// The quick check on the image the chart driver checks: the main image.
bool PassesQuickCheck(const dualCalibration& engine, const ImagePair& pair) {
  return engine.passesQuickBoardCheck(pair.first, kPatternSize);
}

// Searches a board pair with every detector but the driver, whose run over
// all pairs gave toolDetection, and adds the results; the opencv detection
// is kept for its calibration.
PairDetection RunBoardPair(const Engines& engines, const PairDetection& toolDetection, const ImagePair& images,
                           const ImageTruth truths[2], const BenchOptions& options, ConditionResult& result) {
  const PairDetection detections[kDetectorCount] = {
      toolDetection, EngineSearch(*engines.own, images), PeerSearch(SampleSearch, images, options.timeoutS),
      PeerSearch(SectorSearch, images, options.timeoutS)};
  for (int d = 0; d < kDetectorCount; ++d) AddBoardPair(detections[d], truths, result.tallies[d]);
  const bool fullSearchFound = detections[kEngine].images[0].found || detections[kOpenCv].images[0].found ||
                               detections[kSb].images[0].found;
  result.quickFalseNegatives += fullSearchFound && !PassesQuickCheck(*engines.tool, images);
  std::cerr << " found " << FoundText(detections[kTool]) << " tool, " << FoundText(detections[kEngine])
            << " engine, " << FoundText(detections[kOpenCv]) << " opencv, " << FoundText(detections[kSb]) << " sb\n";
  return detections[kOpenCv];
}

// Searches the pair without a board beside board pair k with every detector.
void RunEmptyPair(const Engines& engines, const StereoRig& rig, const RenderOptions& render, size_t k,
                  const BenchOptions& options, ConditionResult& result) {
  const ImagePair images = EmptyPair(rig, render, EmptyNoiseSeed(options.seed, k));
  const PairDetection detections[kDetectorCount] = {
      RunTool(*engines.tool, {images}).pairs[0], EngineSearch(*engines.own, images),
      PeerSearch(SampleSearch, images, options.timeoutS), PeerSearch(SectorSearch, images, options.timeoutS)};
  for (int d = 0; d < kDetectorCount; ++d) AddEmptyPair(detections[d], result.tallies[d]);
  result.quickFalsePositives += PassesQuickCheck(*engines.tool, images);
}

// The pair as PNG files, named after the condition ('/' becomes '_') and the pair.
void KeepImages(const Condition& condition, size_t k, const RenderedPair& pair, const std::string& outDir) {
  std::string name = condition.name;
  std::replace(name.begin(), name.end(), '/', '_');
  const std::string stem = outDir + "/images/" + name + "_" + std::to_string(k + 1);
  std::filesystem::create_directories(outDir + "/images");
  cv::imwrite(stem + "_main.png", pair.mainImage);
  cv::imwrite(stem + "_second.png", pair.secondImage);
}

ConditionResult RunCondition(const Condition& condition, const BenchOptions& options) {
  const Clock::time_point start = Clock::now();
  const StereoRig rig = RigOf(condition);
  RenderOptions render;
  condition.capture(render);
  const int count = condition.maxPairs > 0 ? std::min(options.pairs, condition.maxPairs) : options.pairs;
  const std::vector<BoardPose> poses = PlaceBoards(rig, kLayout, count, options.seed, condition.placement);
  std::vector<ImagePair> images;
  std::vector<ImageTruth> mainTruths, secondTruths;
  for (size_t k = 0; k < poses.size(); ++k) {
    const RenderedPair pair = RenderPair(rig, kLayout, poses[k], render, BoardNoiseSeed(options.seed, k));
    images.emplace_back(pair.mainImage, pair.secondImage);
    if (options.keepImages) KeepImages(condition, k, pair, options.outDir);
    mainTruths.push_back(TruthOf(pair.mainCorners, rig.main.size));
    secondTruths.push_back(TruthOf(pair.secondCorners, rig.second.size));
  }
  std::cerr << condition.name << ": " << images.size() << " pairs of " << condition.size.width << " x "
            << condition.size.height << " rendered in " << Printed("%.1f s", SecondsSince(start)) << "\n";
  ConditionResult result;
  result.condition = &condition;
  result.pairs = static_cast<int>(images.size());
  const Engines engines;
  const ToolRun toolRun = RunTool(*engines.tool, images);
  result.calibrations[kTool] = ToolCalibration(toolRun, *engines.tool, rig);
  std::vector<PairDetection> sampleDetections;
  for (size_t k = 0; k < images.size(); ++k) {
    std::cerr << "  pair " << k + 1 << ":";
    const ImageTruth truths[2] = {mainTruths[k], secondTruths[k]};
    sampleDetections.push_back(RunBoardPair(engines, toolRun.pairs[k], images[k], truths, options, result));
    RunEmptyPair(engines, rig, render, k, options, result);
  }
  result.calibrations[kOpenCv] = SampleCalibration(sampleDetections, mainTruths, secondTruths, rig);
  result.seconds = SecondsSince(start);
  std::cerr << condition.name << ": done in " << Printed("%.1f s", result.seconds) << "\n";
  return result;
}

// ---- Table

const char* const kColumns[] = {"condition", "size",    "N",       "detector", "main",  "second", "pairs", "rms",
                                "max",       "b_rms",   "b_max",   "gross",    "s_board", "s_empty", "timeouts",
                                "hits",      "qc_fn",   "qc_fp",   "views",    "st_rms", "dT",      "dfx"};
constexpr size_t kColumnCount = std::size(kColumns);
constexpr char kNone[] = "-";

std::string Number(const char* format, double value) { return std::isnan(value) ? kNone : Printed(format, value); }

std::vector<std::string> CalibrationCells(const std::optional<CalibrationFigures>& figures) {
  if (!figures) return {kNone, kNone, kNone, kNone};
  if (!figures->calibrated) return {std::to_string(figures->views), kNone, kNone, kNone};
  return {std::to_string(figures->views), Printed("%.4f", figures->stereoRmsPx),
          Printed("%+.3f", figures->translationErrorUnits), Printed("%+.2f", figures->fxErrorPx)};
}

std::vector<std::string> RowCells(const ConditionResult& result, int detector) {
  const DetectorTally& t = result.tallies[detector];
  const double pairs = std::max(result.pairs, 1);
  const bool peer = detector == kOpenCv || detector == kSb;
  const bool tool = detector == kTool;
  std::vector<std::string> cells = {
      result.condition->name,
      std::to_string(result.condition->size.width) + "x" + std::to_string(result.condition->size.height),
      std::to_string(result.pairs),
      kDetectorNames[detector],
      std::to_string(t.found[0]),
      std::to_string(t.found[1]),
      std::to_string(t.pairsFound),
      Number("%.4f", t.all.RmsPx()),
      t.all.count > 0 ? Printed("%.3f", t.all.maxPx) : kNone,
      Number("%.4f", t.border.RmsPx()),
      t.border.count > 0 ? Printed("%.3f", t.border.maxPx) : kNone,
      std::to_string(t.grossErrors),
      Printed("%.3f", t.boardSeconds / pairs),
      Printed("%.3f", t.emptySeconds / pairs),
      peer ? std::to_string(t.timeouts) : kNone,
      std::to_string(t.emptyHits),
      tool ? std::to_string(result.quickFalseNegatives) : kNone,
      tool ? std::to_string(result.quickFalsePositives) : kNone};
  for (std::string& cell : CalibrationCells(result.calibrations[detector])) cells.push_back(std::move(cell));
  return cells;
}

std::vector<std::vector<std::string>> TableRows(const std::vector<ConditionResult>& results) {
  std::vector<std::vector<std::string>> rows = {std::vector<std::string>(std::begin(kColumns), std::end(kColumns))};
  for (const ConditionResult& result : results) {
    for (int d = 0; d < kDetectorCount; ++d) rows.push_back(RowCells(result, d));
  }
  return rows;
}

std::string TableHeader(const BenchOptions& options) {
  std::string text;
  const double baseline = cv::norm(ExampleStereoRig(kChartSize, kChartSize).T);
  text += Printed("# Chessboard detection: a %d x %d board of %g-unit squares, two cameras %.1f units apart, f about "
                  "0.8 x image width.\n",
                  kLayout.width, kLayout.height, kLayout.squareSize, baseline);
  text += Printed("# Images %d x %d unless the size column says otherwise; N board pairs per condition (--pairs %d, "
                  "seed %llu), and beside each\n# a pair without a board under the same capture.\n",
                  kChartSize.width, kChartSize.height, options.pairs, static_cast<unsigned long long>(options.seed));
  text += "# Lenses: barrel k1, k2 of the main camera, the second's 0.9 times those. Placement centre unless the name\n"
          "# says border (nearest corner 20 or 40 px from one edge) or corner (20 px from two); squares-P: square "
          "sides of P px and a\n# little more.\n";
  text += "# tool: the chart driver (runChartCalibration) with qlm-calib chart's defaults: " + ToolOptionsText() +
          "; a board\n# counts only as a view (found in both images). engine: detectChessboardCorners of an engine "
          "with its own defaults, no quick check.\n# opencv: findChessboardCorners (flags 3) at full size, then "
          "cornerSubPix 11 x 11; sb: findChessboardCornersSB (ACCURACY | NORMALIZE_IMAGE).\n# OpenCV runs on one "
          "thread.\n";
  text += Printed("# opencv and sb search each image in a forked child (a pair's two side by side), stopped %g s "
                  "after its start (timeouts: counted as\n# not found, and as %g s).\n",
                  options.timeoutS, options.timeoutS);
  text += "# main, second, pairs: boards found in the main images, the second images, both images of a pair.\n"
          "# rms, max: corner error (px) against the nearest true corner, gross errors left out; b_rms, b_max: corners "
          "nearer the image edge\n# than 3 of their squares. tool, engine: corners of the pairs found in both images "
          "(the engine hands corners back only then).\n"
          "# gross: found corners farther than half a square from every true corner. hits: boards reported in the "
          "images without one.\n"
          "# s_board, s_empty: mean CPU time (s) of the search per pair with and without a board; machine-dependent.\n"
          "# tool: the driver's time per pair, quick check included (its first pair's includes the run's intake).\n"
          "# qc_fn, qc_fp: the tool's quick check (passesQuickBoardCheck under the tool's corner search) on the "
          "main image, which decides\n# whether the driver searches the second: images it rejected though the "
          "engine or a peer found the board,\n# and images without a board it passed.\n"
          "# views, st_rms, dT, dfx: calibration on the pairs found (tool: runChartCalibration; opencv: "
          "calibrateCamera per camera, then\n# stereoCalibrate with CALIB_USE_INTRINSIC_GUESS, corners in board "
          "order): views, stereo RMS (px), |T| - true |T| (units),\n# main fx - true fx (px); '-' without a "
          "calibration.\n";
  return text;
}

std::string AlignedTable(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths(kColumnCount, 0);
  for (const auto& row : rows) {
    for (size_t c = 0; c < kColumnCount; ++c) widths[c] = std::max(widths[c], row[c].size());
  }
  std::string text;
  for (size_t r = 0; r < rows.size(); ++r) {
    const bool groupStart = r > 1 && (r - 1) % kDetectorCount == 0;
    if (groupStart) text += "\n";
    for (size_t c = 0; c < kColumnCount; ++c) {
      const std::string& cell = rows[r][c];
      const std::string padding(widths[c] - cell.size(), ' ');
      text += c < 4 ? cell + padding : padding + cell;  // names to the left, numbers to the right
      text += c + 1 < kColumnCount ? "  " : "\n";
    }
  }
  return text;
}

std::string CsvTable(const std::vector<std::vector<std::string>>& rows) {
  std::string text;
  for (const auto& row : rows) {
    for (size_t c = 0; c < kColumnCount; ++c) {
      text += row[c] == kNone ? "" : row[c];
      text += c + 1 < kColumnCount ? "," : "\n";
    }
  }
  return text;
}

// ---- Plot

constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kFontScale = 0.45;
constexpr int kBarWidthPx = 9;
constexpr int kGroupWidthPx = kDetectorCount * kBarWidthPx + 12;
constexpr int kPlotLeftPx = 80;
constexpr int kPanelHeightPx = 240;
constexpr int kPanelGapPx = 50;
constexpr int kTitleBandPx = 80;
constexpr int kLabelBandPx = 180;
const cv::Scalar kBackground(255, 255, 255), kGridLine(215, 215, 215), kText(20, 20, 20), kMissing(150, 150, 150);
const cv::Scalar kDetectorColours[kDetectorCount] = {{180, 100, 30}, {30, 140, 240}, {60, 160, 60}, {150, 60, 150}};

void PutText(cv::Mat& canvas, const std::string& text, cv::Point origin, const cv::Scalar& colour = kText) {
  cv::putText(canvas, text, origin, kFont, kFontScale, colour, 1, cv::LINE_AA);
}

// Text turned to read downwards, its start at top.
void PutDownwardText(cv::Mat& canvas, const std::string& text, cv::Point top) {
  int baseline = 0;
  const cv::Size size = cv::getTextSize(text, kFont, kFontScale, 1, &baseline);
  cv::Mat strip(size.height + baseline + 4, size.width + 4, CV_8UC3, kBackground);
  PutText(strip, text, {2, size.height + 2});
  cv::Mat turned;
  cv::rotate(strip, turned, cv::ROTATE_90_CLOCKWISE);
  const cv::Rect target = cv::Rect(top.x - turned.cols / 2, top.y, turned.cols, turned.rows) &
                          cv::Rect(0, 0, canvas.cols, canvas.rows);
  turned(cv::Rect(0, 0, target.width, target.height)).copyTo(canvas(target));
}

struct Axis {
  cv::Rect area;
  bool logarithmic;
  double low, high;

  int Y(double value) const {
    const double t = logarithmic ? std::log10(std::max(value, low) / low) / std::log10(high / low)
                                 : (value - low) / (high - low);
    return area.y + area.height - static_cast<int>(std::lround(std::clamp(t, 0.0, 1.0) * area.height));
  }
};

void DrawAxis(cv::Mat& canvas, const Axis& axis, const std::vector<double>& ticks, const std::string& title) {
  for (const double tick : ticks) {
    cv::line(canvas, {axis.area.x, axis.Y(tick)}, {axis.area.x + axis.area.width, axis.Y(tick)}, kGridLine, 1);
    PutText(canvas, Printed("%g", tick), {8, axis.Y(tick) + 4});
  }
  cv::line(canvas, {axis.area.x, axis.area.y + axis.area.height},
           {axis.area.x + axis.area.width, axis.area.y + axis.area.height}, kText, 1);
  PutText(canvas, title, {axis.area.x, axis.area.y - 12});
}

using BarValue = double (*)(const ConditionResult& result, int detector);

// One group of bars per condition; a value that is not a number gets a grey
// mark on the axis instead of a bar.
void DrawBars(cv::Mat& canvas, const Axis& axis, const std::vector<ConditionResult>& results, BarValue value) {
  const int bottom = axis.area.y + axis.area.height;
  for (size_t i = 0; i < results.size(); ++i) {
    for (int d = 0; d < kDetectorCount; ++d) {
      const int left = axis.area.x + static_cast<int>(i) * kGroupWidthPx + 6 + d * kBarWidthPx;
      const double v = value(results[i], d);
      if (std::isnan(v)) {
        cv::line(canvas, {left + 1, bottom - 4}, {left + kBarWidthPx - 2, bottom - 4}, kMissing, 2);
        continue;
      }
      cv::rectangle(canvas, cv::Point(left, axis.Y(v)), cv::Point(left + kBarWidthPx - 2, bottom),
                    kDetectorColours[d], cv::FILLED);
    }
  }
}

double FoundPercent(const ConditionResult& result, int detector) {
  const DetectorTally& t = result.tallies[detector];
  return result.pairs > 0 ? 50.0 * (t.found[0] + t.found[1]) / result.pairs : std::nan("");
}

double BorderRmsPx(const ConditionResult& result, int detector) { return result.tallies[detector].border.RmsPx(); }

cv::Mat Plot(const std::vector<ConditionResult>& results, const BenchOptions& options) {
  const int plotWidth = static_cast<int>(results.size()) * kGroupWidthPx;
  const int width = std::max(kPlotLeftPx + plotWidth + 20, 900);
  const int height = kTitleBandPx + 2 * kPanelHeightPx + kPanelGapPx + kLabelBandPx;
  cv::Mat canvas(height, width, CV_8UC3, kBackground);
  PutText(canvas, Printed("Chessboard detection per condition: up to %d board pairs each (N in detection.txt)",
                          options.pairs),
          {10, 20});
  for (int d = 0; d < kDetectorCount; ++d) {
    const cv::Point at(kPlotLeftPx + d * 110, 42);
    cv::rectangle(canvas, at, at + cv::Point(14, 10), kDetectorColours[d], cv::FILLED);
    PutText(canvas, kDetectorNames[d], at + cv::Point(20, 10));
  }
  const Axis found{{kPlotLeftPx, kTitleBandPx + 10, plotWidth, kPanelHeightPx - 10}, false, 0.0, 100.0};
  DrawAxis(canvas, found, {0.0, 25.0, 50.0, 75.0, 100.0}, "boards found (% of board images)");
  DrawBars(canvas, found, results, FoundPercent);
  const Axis border{{kPlotLeftPx, kTitleBandPx + kPanelHeightPx + kPanelGapPx, plotWidth, kPanelHeightPx - 10},
                    true, 0.001, 10.0};
  DrawAxis(canvas, border, {0.001, 0.01, 0.1, 1.0, 10.0},
           "corner error RMS (px, log) of the corners within 3 squares of the image edge; grey mark: none found");
  DrawBars(canvas, border, results, BorderRmsPx);
  for (size_t i = 0; i < results.size(); ++i) {
    const int centre = kPlotLeftPx + static_cast<int>(i) * kGroupWidthPx + kGroupWidthPx / 2;
    PutDownwardText(canvas, results[i].condition->name, {centre, border.area.y + border.area.height + 6});
  }
  return canvas;
}

// ---- Output files

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream out(path);
  out << text;
  if (!out) throw std::runtime_error("cannot write " + path);
}

void WriteResults(const std::vector<ConditionResult>& results, const BenchOptions& options, double seconds) {
  const std::vector<std::vector<std::string>> rows = TableRows(results);
  WriteText(options.outDir + "/detection.txt",
            TableHeader(options) + "\n" + AlignedTable(rows) + Printed("\n# run time %.0f s\n", seconds));
  WriteText(options.outDir + "/detection.csv", CsvTable(rows));
  const std::string plot = options.outDir + "/detection.png";
  if (!cv::imwrite(plot, Plot(results, options))) throw std::runtime_error("cannot write " + plot);
}

std::vector<const Condition*> SelectedConditions(const std::string& only) {
  std::vector<const Condition*> selected;
  for (const Condition& condition : kConditions) {
    if (std::string(condition.name).find(only) != std::string::npos) selected.push_back(&condition);
  }
  return selected;
}

int Run(const BenchOptions& options) {
  const std::vector<const Condition*> conditions = SelectedConditions(options.only);
  if (conditions.empty()) {
    std::cerr << "no condition name contains '" << options.only << "'\n";
    return 2;
  }
  std::filesystem::create_directories(options.outDir + "/library-files");
  // The engine's result files of the chart runs land beside the tables.
  setenv("QLM_PICTURES_DIR", (options.outDir + "/library-files").c_str(), 1);
  const Clock::time_point start = Clock::now();
  std::vector<ConditionResult> results;
  for (size_t i = 0; i < conditions.size(); ++i) {
    std::cerr << "[" << i + 1 << "/" << conditions.size() << "] ";
    results.push_back(RunCondition(*conditions[i], options));
    WriteResults(results, options, SecondsSince(start));
  }
  std::cerr << "wrote " << options.outDir << "/detection.txt, detection.csv and detection.png in "
            << Printed("%.0f s", SecondsSince(start)) << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Chessboard detection benchmark: the tool's chart path, the engine's search, OpenCV's "
               "findChessboardCorners and findChessboardCornersSB on rendered pairs under many capture conditions"};
  BenchOptions options;
  app.add_option("--out", options.outDir, "Directory for detection.txt, detection.csv and detection.png")
      ->capture_default_str();
  app.add_option("--pairs", options.pairs, "Board pairs per condition")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--only", options.only, "Run only the conditions whose name contains this text");
  app.add_option("--timeout-s", options.timeoutS, "Time limit of one OpenCV search, seconds")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the board poses and the noise")->capture_default_str();
  app.add_flag("--keep-images", options.keepImages, "Write the board pairs as PNG files under OUT/images/");
  CLI11_PARSE(app, argc, argv);
  // The OpenCV searches run in forked children, which must not inherit a
  // thread pool: every search, the engine's too, runs on one thread.
  cv::setNumThreads(0);
  try {
    return Run(options);
  } catch (const std::exception& error) {
    std::cerr << "DetectionBenchmark: " << error.what() << "\n";
    return 1;
  }
}
