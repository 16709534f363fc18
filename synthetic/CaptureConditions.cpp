#include "synthetic/CaptureConditions.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace {

constexpr int kDiscSamplesPerPixel = 32;  // per side of a kernel pixel
constexpr int kLineSamplesPerPixel = 64;

int OddSide(double extentPx) { return 2 * static_cast<int>(std::ceil(extentPx)) + 1; }

cv::Mat Normalised(const cv::Mat& kernel) { return kernel / cv::sum(kernel)[0]; }

// cos^4 fall-off around the principal point, down to vignetting at the
// farthest image corner: 1 / (1 + a r^2)^2.
void Vignette(cv::Mat& image, const cv::Point2d& principalPoint, double vignetting) {
  const double farX = std::max(principalPoint.x, image.cols - 1 - principalPoint.x);
  const double farY = std::max(principalPoint.y, image.rows - 1 - principalPoint.y);
  const double a = (1.0 / std::sqrt(vignetting) - 1.0) / (farX * farX + farY * farY);
  for (int y = 0; y < image.rows; ++y) {
    float* row = image.ptr<float>(y);
    const double dy = y - principalPoint.y;
    for (int x = 0; x < image.cols; ++x) {
      const double dx = x - principalPoint.x;
      const double falloff = 1.0 + a * (dx * dx + dy * dy);
      row[x] = static_cast<float>(row[x] / (falloff * falloff));
    }
  }
}

// Read noise of noiseSigma and shot noise of variance shotNoise per grey
// level of the signal.
void AddSensorNoise(cv::Mat& image, double noiseSigma, double shotNoise, uint64_t seed) {
  cv::Mat noise(image.size(), CV_32F);
  cv::RNG rng(seed);
  rng.fill(noise, cv::RNG::NORMAL, 0.0, 1.0);
  cv::Mat sigma;
  cv::sqrt(cv::max(image, 0.0) * shotNoise + noiseSigma * noiseSigma, sigma);
  image += noise.mul(sigma);
}

cv::Mat ThroughJpeg(const cv::Mat& grey, int quality, std::vector<uchar>& encoded) {
  cv::imencode(".jpg", grey, encoded, {cv::IMWRITE_JPEG_QUALITY, quality});
  return cv::imdecode(encoded, cv::IMREAD_GRAYSCALE);
}

}  // namespace

cv::Mat DefocusKernel(double radiusPx) {
  const int side = OddSide(radiusPx);
  const double centre = side / 2;
  cv::Mat kernel(side, side, CV_64F, cv::Scalar(0.0));
  const double step = 1.0 / kDiscSamplesPerPixel;
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      int inside = 0;
      for (int sy = 0; sy < kDiscSamplesPerPixel; ++sy) {
        for (int sx = 0; sx < kDiscSamplesPerPixel; ++sx) {
          const double px = x - centre - 0.5 + (sx + 0.5) * step, py = y - centre - 0.5 + (sy + 0.5) * step;
          inside += px * px + py * py <= radiusPx * radiusPx;
        }
      }
      kernel.at<double>(y, x) = inside;
    }
  }
  return Normalised(kernel);
}

cv::Mat MotionKernel(double lengthPx, double angleDeg) {
  const int side = OddSide(0.5 * lengthPx + 1.0);
  const double centre = side / 2;
  cv::Mat kernel(side, side, CV_64F, cv::Scalar(0.0));
  const double angle = angleDeg * CV_PI / 180.0;
  const int samples = std::max(1, static_cast<int>(std::ceil(lengthPx * kLineSamplesPerPixel)));
  for (int i = 0; i < samples; ++i) {
    const double t = lengthPx * ((i + 0.5) / samples - 0.5);
    const double x = centre + t * std::cos(angle), y = centre + t * std::sin(angle);
    const int x0 = static_cast<int>(std::floor(x)), y0 = static_cast<int>(std::floor(y));
    const double fx = x - x0, fy = y - y0;
    kernel.at<double>(y0, x0) += (1.0 - fx) * (1.0 - fy);
    kernel.at<double>(y0, x0 + 1) += fx * (1.0 - fy);
    kernel.at<double>(y0 + 1, x0) += (1.0 - fx) * fy;
    kernel.at<double>(y0 + 1, x0 + 1) += fx * fy;
  }
  return Normalised(kernel);
}

int BlurMarginPx(const CaptureConditions& conditions) {
  int margin = 0;
  if (conditions.blurSigmaPx > 0.0) margin += static_cast<int>(std::ceil(4.0 * conditions.blurSigmaPx)) + 1;
  if (conditions.defocusRadiusPx > 0.0) margin += DefocusKernel(conditions.defocusRadiusPx).cols / 2;
  if (conditions.motionBlurPx > 0.0) margin += MotionKernel(conditions.motionBlurPx, 0.0).cols / 2;
  return margin;
}

cv::Mat CaptureImage(cv::Mat radiance, int marginPx, const cv::Point2d& principalPoint,
                     const CaptureConditions& conditions, int camera, uint64_t noiseSeed,
                     std::vector<uchar>& encoded) {
  if (conditions.blurSigmaPx > 0.0) cv::GaussianBlur(radiance, radiance, cv::Size(0, 0), conditions.blurSigmaPx);
  if (conditions.defocusRadiusPx > 0.0) cv::filter2D(radiance, radiance, -1, DefocusKernel(conditions.defocusRadiusPx));
  if (conditions.motionBlurPx > 0.0) {
    cv::filter2D(radiance, radiance, -1, MotionKernel(conditions.motionBlurPx, conditions.motionBlurAngleDeg));
  }
  if (marginPx > 0) {
    const cv::Rect image(marginPx, marginPx, radiance.cols - 2 * marginPx, radiance.rows - 2 * marginPx);
    radiance = radiance(image).clone();
  }
  if (conditions.vignetting < 1.0) Vignette(radiance, principalPoint, conditions.vignetting);
  if (conditions.exposure[camera] != 1.0) radiance *= conditions.exposure[camera];
  if (conditions.noiseSigma > 0.0 || conditions.shotNoise > 0.0) {
    AddSensorNoise(radiance, conditions.noiseSigma, conditions.shotNoise, noiseSeed);
  }
  if (conditions.gain[camera] != 1.0) radiance *= conditions.gain[camera];
  cv::Mat grey;
  radiance.convertTo(grey, CV_8U);
  encoded.clear();
  return conditions.jpegQuality > 0 ? ThroughJpeg(grey, conditions.jpegQuality, encoded) : grey;
}
