// What a phone camera does to the light of a scene before its capture
// reaches the station: lens blur, defocus and motion blur, vignetting,
// exposure, analogue gain, shot and read noise, 8-bit quantisation and JPEG.
// The renderer hands over the scene's radiance in grey levels at unit
// exposure; every condition left at its default leaves it untouched.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

struct CaptureConditions {
  double blurSigmaPx = 0.0;      // lens blur: Gaussian of this sigma; none when 0
  double defocusRadiusPx = 0.0;  // out of focus: a disc of this radius; none when 0
  double motionBlurPx = 0.0;     // hand-held during the exposure: a line of this length; none when 0
  double motionBlurAngleDeg = 0.0;  // direction of the motion, from the image's x axis
  double vignetting = 1.0;       // illumination in the image's corners relative to the centre (cos^4 fall-off)
  cv::Vec2d exposure{1.0, 1.0};  // main, second camera: scale of the signal before noise
  cv::Vec2d gain{1.0, 1.0};      // main, second camera: analogue gain on signal and noise
  double noiseSigma = 0.0;       // read noise, grey levels at unit gain
  double shotNoise = 0.0;        // shot noise variance per grey level of signal at unit gain
  int jpegQuality = 0;           // 1..100: the capture is a JPEG of this quality; 0: lossless
};

// How far beyond the image's edges the blurs reach into the scene, in pixels.
int BlurMarginPx(const CaptureConditions& conditions);

// One camera's capture (camera 0 main, 1 second) of radiance (CV_32F, grey
// levels), which holds marginPx of scene beyond the image on every side so
// that the blurs near the edges see the scene as a lens does (with less, the
// missing scene is the mirror image of the edge); the capture is the inner
// part, vignetted around principalPoint (image coordinates): an 8-bit grey
// image, and the JPEG's bytes in encoded when jpegQuality is set (the image
// is then the decoded JPEG). noiseSeed seeds the noise.
cv::Mat CaptureImage(cv::Mat radiance, int marginPx, const cv::Point2d& principalPoint,
                     const CaptureConditions& conditions, int camera, uint64_t noiseSeed,
                     std::vector<uchar>& encoded);

// The normalised kernels of the two blurs (odd sides, centred).
cv::Mat DefocusKernel(double radiusPx);
cv::Mat MotionKernel(double lengthPx, double angleDeg);
