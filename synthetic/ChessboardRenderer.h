// Synthetic chessboard scenes for the chart tests, benchmarks and tools: a
// planar board of W x H inner corners seen by two cameras, each a pinhole
// behind a lens of OpenCV's radial-tangential model, then captured under
// the given conditions. Images are rendered with exact pixel-area coverage
// of every board square (through a lens, of its edges bent into chords
// under a thousandth of a pixel from the curve), so a corner's sub-pixel
// position carries no rendering bias.
//
// Conventions: the board lies in its own plane z = 0 with inner corner
// (column j, row i) at (j * squareSize, i * squareSize, 0), the order of the
// engine's object points. A board pose maps board coordinates into the main
// camera's frame; the rig's R and T map the main camera's frame into the
// second camera's (x2 = R * x1 + T). Pixel centres lie on integer coordinates.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "synthetic/CaptureConditions.h"
#include "synthetic/LensDistortion.h"

class dualCalibration;

struct SyntheticCamera {
  cv::Matx33d K;
  cv::Size size;
  DistortionCoefficients distortion{};  // none: an ideal pinhole
};

struct StereoRig {
  SyntheticCamera main;
  SyntheticCamera second;
  cv::Matx33d R;
  cv::Vec3d T;
};

struct ChessboardLayout {
  int width = 9;            // inner corners along the board's width
  int height = 6;           // inner corners along the board's height
  double squareSize = 25.0;
  double marginSquares = 1.0;  // white border around the outer squares
};

// The board's radiance in grey levels and the capture's conditions.
struct RenderOptions : CaptureConditions {
  double darkLevel = 30.0;
  double lightLevel = 220.0;
  double backgroundLevel = 100.0;
};

// Board to main-camera transform: Rodrigues rotation and translation.
struct BoardPose {
  cv::Vec3d rvec;
  cv::Vec3d tvec;
};

struct RenderedPair {
  cv::Mat mainImage;
  cv::Mat secondImage;
  BoardPose pose;
  std::vector<cv::Point2f> mainCorners;    // true corner positions, board order
  std::vector<cv::Point2f> secondCorners;
  std::vector<uchar> mainJpeg;             // the JPEG files the images decode from; empty when lossless
  std::vector<uchar> secondJpeg;
};

// A rig of two slightly different cameras at the given image sizes, a
// 40-unit baseline along x and a small relative rotation, focal lengths
// scaled with the main image width (1600 px at 2000 px).
StereoRig ExampleStereoRig(const cv::Size& mainSize, const cv::Size& secondSize);

// A phone's rear pair: a wide main camera (focal length 0.75 of its image
// width) and a second camera of 1.5 times the main camera's focal length at
// equal image width, 12 units apart along x with one degree of toe-in and
// slight tilt and roll.
StereoRig PhoneStereoRig(const cv::Size& mainSize, const cv::Size& secondSize);

// Board poses drawn from a generator seeded with seed: tilted by up to
// maxTiltDeg about the board's axes and turned by up to maxRollDeg in its
// plane, placed so that the whole board with its margin stays at least
// 32 px inside both images and every square spans at least 48 px. Returns
// fewer than count poses only when the rig cannot see the board that way.
std::vector<BoardPose> RandomBoardPoses(const StereoRig& rig, const ChessboardLayout& layout, int count,
                                        uint64_t seed, double maxTiltDeg = 30.0, double maxRollDeg = 15.0);

// The rotation matrix of a Rodrigues vector.
cv::Matx33d RotationOf(const cv::Vec3d& rvec);

// The shortest distance between two neighbouring corners of a board's
// corner list (board order).
double SmallestSquareSide(const std::vector<cv::Point2f>& corners, const ChessboardLayout& layout);

// Projects the inner corners in board order, through the camera's lens.
std::vector<cv::Point2f> ProjectBoardCorners(const SyntheticCamera& camera, const ChessboardLayout& layout,
                                             const cv::Matx33d& rotation, const cv::Vec3d& translation);

// The board's radiance as the camera sees it (CV_32F, grey levels);
// rotation and translation map board coordinates into the camera's frame.
// Parts of the board beyond the lens's monotonic radius are left out.
cv::Mat RenderBoardRadiance(const SyntheticCamera& camera, const ChessboardLayout& layout,
                            const cv::Matx33d& rotation, const cv::Vec3d& translation, const RenderOptions& options);

// One 8-bit grey capture of the board by camera 0 (main) or 1 (second);
// the JPEG bytes go to jpeg when the options ask for JPEG. noiseSeed seeds
// the noise.
cv::Mat RenderBoardView(const SyntheticCamera& camera, const ChessboardLayout& layout, const cv::Matx33d& rotation,
                        const cv::Vec3d& translation, const RenderOptions& options, uint64_t noiseSeed,
                        int cameraIndex = 0, std::vector<uchar>* jpeg = nullptr);

// An image of the background level (plus noise) without a board.
cv::Mat RenderEmptyView(const cv::Size& size, const RenderOptions& options, uint64_t noiseSeed);

// Both views of one pose, with their true corners.
RenderedPair RenderPair(const StereoRig& rig, const ChessboardLayout& layout, const BoardPose& pose,
                        const RenderOptions& options, uint64_t noiseSeed);

// File name of pair k's main (camera 0) or second image: pair_<k>_main.png,
// or .jpg for a JPEG capture.
std::string RenderedImageName(size_t k, int cameraIndex, bool jpeg);

// The ground truth of a rendered set, as ground_truth.json holds it: rig and
// lenses, layout, conditions, and per pair its image names (RenderedImageName),
// pose and the true corners of both images.
nlohmann::json GroundTruthJson(const StereoRig& rig, const ChessboardLayout& layout, const RenderOptions& options,
                               const std::vector<RenderedPair>& pairs);

// Chart settings of a calibration run on these scenes: the default layout's
// board (9 x 6 inner corners of 25 units), rotation limits of half a degree,
// a translation limit of 50 units, a reprojection limit of 0.2 px, the full
// five-coefficient mono model (nothing fixed: the cameras are ideal, and the
// estimate has to find that out) and the mono camera matrices as the stereo
// stage's starting guess (without it cv::stereoCalibrate calibrates each
// camera again on its own and the mono stage's result goes unused).
void ApplyExampleChartSettings(dualCalibration& engine);
