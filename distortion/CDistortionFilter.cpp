#include "distortion/CDistortionFilter.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "framework/FileHandle.h"

#include "distortion/CurveBracket.h"

namespace {

void SetIdentityTransform(float (&transform)[3]) {
  transform[0] = 0.0f;
  transform[1] = 0.0f;
  transform[2] = 1.0f;
}

// Reads the numbers of a table file with fscanf. A "%f" read that fails
// without moving the stream would fail the same way forever, so from then on
// reads are skipped: this bounds the work for huge counts and stores exactly
// what the unbounded loop would.
class TableReader {
 public:
  explicit TableReader(FILE* file) : mFile(file) {}

  void ReadInt(int32_t* value) {
    int parsed = 0;
    if (std::fscanf(mFile, "%d", &parsed) == 1) *value = parsed;
  }

  void ReadFloat(float* value) {
    if (mExhausted) return;
    const long before = std::ftell(mFile);
    if (std::fscanf(mFile, "%f", value) != 1 && std::ftell(mFile) == before) mExhausted = true;
  }

  void SkipFloat() {
    float discarded = 0.0f;
    ReadFloat(&discarded);
  }

  bool Exhausted() const { return mExhausted; }

 private:
  FILE* mFile;
  bool mExhausted = false;
};

// Clamps x to [xs[0], xs[1023]] and interpolates over the first `intervals`
// intervals; the first interval that brackets x wins, ys[0] when none does.
// `bisectable` is Bisectable(xs), for callers that look up many points.
float LookupCurve(const CurveTable& xs, const CurveTable& ys, float x, int intervals, bool bisectable = false) {
  if (xs[0] > x) x = xs[0];
  if (x > xs[kCurveSize - 1]) x = xs[kCurveSize - 1];
  const int k = bisectable ? BisectBracket(xs, x) : FirstBracket(xs, x, intervals);
  if (k < 0) return ys[0];
  return ys[k] + (x - xs[k]) / (xs[k + 1] - xs[k]) * (ys[k + 1] - ys[k]);
}

// Clamps to [low, high]. A NaN passes the lower bound and is then limited to high.
float ClampSample(float value, float low, float high) {
  if (low > value) value = low;
  return value < high ? value : high;
}

// Rounds a bilinear sum to a byte: + 0.5, limited to 255, truncated.
uint8_t RoundSample(float value) {
  const float rounded = std::min(value + 0.5f, 255.0f);
  return static_cast<uint8_t>(static_cast<int>(rounded));
}

// One bilinear sample of the byte grid at base[row * stride + column * step].
// The far neighbour index is limited to the grid; its weight is exactly zero
// whenever the limit applies, so the sum is the same as with the unlimited read.
float BilinearSum(const uint8_t* base, ptrdiff_t stride, ptrdiff_t step, float x, float y,
                  int lastColumn, int lastRow) {
  const int x0 = static_cast<int>(x);
  const int y0 = static_cast<int>(y);
  const int x1 = std::min(x0 + 1, lastColumn);
  const int y1 = std::min(y0 + 1, lastRow);
  const float fx = x - static_cast<float>(x0);
  const float gx = static_cast<float>(x0 + 1) - x;
  const float fy = y - static_cast<float>(y0);
  const float gy = static_cast<float>(y0 + 1) - y;
  const uint8_t* row0 = base + y0 * stride;
  const uint8_t* row1 = base + y1 * stride;
  return gx * gy * row0[x0 * step] + fx * gy * row0[x1 * step] + gx * fy * row1[x0 * step] +
         fx * fy * row1[x1 * step];
}

// (p * s + offset - centre) / focal, per axis, with forwardTransform (offset x, offset y, s).
void NormalisePoint(const float* point, const float (&camera)[9], const float (&transform)[3],
                    float* u, float* v) {
  *u = (point[0] * transform[2] + transform[0] - camera[2]) / camera[0];
  *v = (point[1] * transform[2] + transform[1] - camera[5]) / camera[4];
}

// Applies the transpose of rotation to (u, v, 1), projects with the target
// camera and places the point with sourceTransform (offset x, offset y, s).
void ProjectRotated(float u, float v, const float (&target)[9], const float (&rotation)[9],
                    const float (&transform)[3], float* out) {
  const float x = rotation[0] * u + rotation[3] * v + rotation[6];
  const float y = rotation[1] * u + rotation[4] * v + rotation[7];
  const float w = rotation[2] * u + rotation[5] * v + rotation[8];
  out[0] = (target[0] * (x / w) + target[2]) / transform[2] - transform[0];
  out[1] = (target[4] * (y / w) + target[5]) / transform[2] - transform[1];
}

void BlendRows(const float* rowI, const float* rowJ, float t, float* out, int count) {
  for (int k = 0; k < count; ++k) out[k] = t * rowI[k] + (1.0f - t) * rowJ[k];
}

bool IsRowIndex(int32_t index) { return index >= 0 && index < kDistortionRowCapacity; }

}  // namespace

CDistortionFilter::CDistortionFilter() {
  StoreName("CDistortionFilter");
  ResetDistortion();
}

int CDistortionFilter::ResetDistortion() {
  SetIdentityTransform(forwardTransform);
  SetIdentityTransform(sourceTransform);
  std::memset(polynomialRows[0], 0, sizeof(polynomialRows[0]));
  std::memset(radialRows[0], 0, sizeof(radialRows[0]));
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) cameraMatrix[row][column] = row == column ? 1.0f : 0.0f;
  }
  return 1;
}

int32_t CDistortionFilter::LoadDistortionTable(const char* path) {
  if (path == nullptr) return 0;
  const FileHandle file(std::fopen(path, "rb"));
  if (!file) return 0;
  TableReader reader(file.get());
  reader.ReadInt(&rowCount);
  reader.ReadInt(&coefficientCount);
  for (int32_t row = 0; row < rowCount && !reader.Exhausted(); ++row) {
    const bool stored = row < kDistortionRowCapacity;
    float key = 0.0f;
    reader.SkipFloat();
    reader.ReadFloat(stored ? &rowKeys[row] : &key);
    reader.SkipFloat();
    for (int32_t i = 0; i < coefficientCount && !reader.Exhausted(); ++i) {
      const int32_t slot = coefficientCount - 1 - i;
      float discarded = 0.0f;
      const bool inRow = stored && slot < kDistortionCoefficientCapacity;
      reader.ReadFloat(inRow ? &polynomialRows[row][slot] : &discarded);
    }
    reader.SkipFloat();
  }
  // Index 2, not 1, is intended: with two rows it reads a key the file did not fill.
  referenceRadius = rowCount > 1 ? rowKeys[2] : rowKeys[0];
  return 1;
}

void CDistortionFilter::SetSourceTransform(int32_t a_x, int32_t a_y, int32_t b_x, int32_t b_y,
                                           float scale) {
  sourceTransform[0] = (static_cast<float>(a_x) - static_cast<float>(b_x) / scale) * 0.5f;
  sourceTransform[1] = (static_cast<float>(a_y) - static_cast<float>(b_y) / scale) * 0.5f;
  sourceTransform[2] = scale;
}

float CDistortionFilter::InterpolateCurve(const CurveTable& xs, const CurveTable& ys, float x) {
  return LookupCurve(xs, ys, x, kCurveSize - 1);
}

float CDistortionFilter::InterpolateCurveReciprocal(const CurveTable& xs, const CurveTable& ys,
                                                    float x) {
  return 1.0f / LookupCurve(xs, ys, x, kCurveSize);
}

void CDistortionFilter::BuildCurveFromRadialModel(const float (&camera)[9], CurveTable& outRadius,
                                                  CurveTable& outScale, float width,
                                                  float height) const {
  const float dx = std::max(camera[2], width - camera[2]);
  const float dy = std::max(camera[5], height - camera[5]);
  const float rMax = static_cast<float>(
      std::sqrt(static_cast<double>(dx * dx) + static_cast<double>(dy * dy)));
  const double stepDivisor = static_cast<double>(camera[0]) * 1000.0;
  const float k1 = radialCoefficients[0], k2 = radialCoefficients[1], k3 = radialCoefficients[2];
  for (int i = 0; i < kCurveSize; ++i) {
    const float r = static_cast<float>(static_cast<double>(rMax * static_cast<float>(i)) / stepDivisor);
    const float r2 = r * r;
    const float r4 = r2 * r2;
    const float r6 = r4 * r2;
    const float f = k1 * r2 + 1.0f + k2 * r4 + k3 * r6;
    outScale[i] = f;
    outRadius[i] = f * r;
  }
  outScale[kCurveSize] = 0.0f;
  outRadius[kCurveSize] = 0.0f;
}

float CDistortionFilter::PolynomialFactor(float r) const {
  const float ratio = r / referenceRadius;
  const int32_t count = std::min(coefficientCount, kDistortionCoefficientCapacity);
  float power = 1.0f;
  float factor = 1.0f;
  for (int32_t j = 0; j < count; ++j) {
    power *= ratio;
    factor += currentPolynomial[j] * power;
  }
  return factor;
}

void CDistortionFilter::BuildCurveFromPolynomial(CurveTable& outRadius, CurveTable& outScale,
                                                 float width, float height) const {
  const float halfDiagonal = static_cast<float>(
      std::sqrt(static_cast<double>(width * width) + static_cast<double>(height * height)) * 0.5);
  for (int i = 0; i < kCurveSize; ++i) {
    const float r = halfDiagonal * static_cast<float>(i) * 0.0009765625f;
    const float s = PolynomialFactor(r);
    outScale[i] = s;
    outRadius[i] = r / s;
  }
  outScale[kCurveSize] = 0.0f;
  outRadius[kCurveSize] = 0.0f;
}

void CDistortionFilter::BlendPolynomialRows(int32_t i, int32_t j, float t) {
  if (!IsRowIndex(i) || !IsRowIndex(j)) return;
  BlendRows(polynomialRows[i], polynomialRows[j], t, currentPolynomial, kDistortionCoefficientCapacity);
}

void CDistortionFilter::BlendRadialRows(int32_t i, int32_t j, float t) {
  if (!IsRowIndex(i) || !IsRowIndex(j)) return;
  BlendRows(radialRows[i], radialRows[j], t, radialCoefficients, 3);
}

void CDistortionFilter::SampleGrayBilinear(const YuvImage& image, float x, float y, uint8_t* out) {
  if (image.width < 1 || image.height < 1) {
    *out = 0;
    return;
  }
  const int lastColumn = image.width - 1;
  const int lastRow = image.height - 1;
  x = ClampSample(x, 0.0f, static_cast<float>(lastColumn));
  y = ClampSample(y, 0.0f, static_cast<float>(lastRow));
  const float v = BilinearSum(image.luma, image.width, 1, x, y, lastColumn, lastRow);
  *out = static_cast<uint8_t>(std::clamp(static_cast<int>(v + 0.5f), 0, 255));
}

void CDistortionFilter::SampleChromaBilinear(const YuvImage& image, float x, float y,
                                             uint8_t* out) {
  const int lastColumn = (image.width >> 1) - 1;
  const int lastRow = (image.height >> 1) - 1;
  if (lastColumn < 0 || lastRow < 0) {
    // A plane without chroma samples has nothing to read.
    out[0] = out[1] = 0;
    return;
  }
  const float cx = ClampSample(x * 0.5f, 0.0f, static_cast<float>(lastColumn));
  const float cy = ClampSample(y * 0.5f, 0.0f, static_cast<float>(lastRow));
  const ptrdiff_t stride = image.width & ~1;
  for (int c = 0; c < 2; ++c) {
    out[c] = RoundSample(BilinearSum(image.chroma + c, stride, 2, cx, cy, lastColumn, lastRow));
  }
}

int32_t CDistortionFilter::UndistortPointsPolynomial(const float* in, float* out, int32_t count,
                                                     int32_t width, int32_t height) const {
  if (count < 1) return 1;
  const float halfX = static_cast<float>(width / 2);
  const float halfY = static_cast<float>(height / 2);
  const float ox = forwardTransform[0], oy = forwardTransform[1], s = forwardTransform[2];
  for (int32_t i = 0; i < count; ++i) {
    const float qx = in[2 * i] * s + ox - halfX;
    const float qy = in[2 * i + 1] * s + oy - halfY;
    const float f = PolynomialFactor(std::sqrt(qx * qx + qy * qy));
    if (static_cast<double>(f) < 0.95 || static_cast<double>(f) > 1.05) return 0;
    // The offset is taken away after the division by s, on purpose.
    out[2 * i] = (qx / f + halfX) / s - ox;
    out[2 * i + 1] = (qy / f + halfY) / s - oy;
  }
  return 1;
}

void CDistortionFilter::DistortPointsPolynomial(const float* in, float* out, int32_t count,
                                                int32_t width, int32_t height,
                                                const float (&camera)[9]) const {
  const float halfX = static_cast<float>(width * 0.5);
  const float halfY = static_cast<float>(height * 0.5);
  const float ox = forwardTransform[0], oy = forwardTransform[1], s = forwardTransform[2];
  for (int32_t i = 0; i < count; ++i) {
    // The half is added back and taken away again; this only affects rounding.
    const float qx = ((in[2 * i] - halfX) * s + ox + halfX) - halfX;
    const float qy = ((in[2 * i + 1] - halfY) * s + oy + halfY) - halfY;
    const float f = PolynomialFactor(std::sqrt(qx * qx + qy * qy));
    out[2 * i] = camera[2] + qx / f;
    out[2 * i + 1] = camera[5] + qy / f;
  }
}

void CDistortionFilter::UndistortPointsRadial(const float* in, float* out, int32_t count,
                                              int32_t width, int32_t height,
                                              const float (&camera)[9]) const {
  CurveTable radius;
  CurveTable scale;
  BuildCurveFromRadialModel(camera, radius, scale, static_cast<float>(width),
                            static_cast<float>(height));
  const float ox = forwardTransform[0], oy = forwardTransform[1], s = forwardTransform[2];
  const bool bisectable = Bisectable(radius);
  for (int32_t i = 0; i < count; ++i) {
    float u = 0.0f, v = 0.0f;
    NormalisePoint(in + 2 * i, camera, forwardTransform, &u, &v);
    const float f = LookupCurve(radius, scale, std::sqrt(u * u + v * v), kCurveSize, bisectable);
    out[2 * i] = (camera[2] + camera[0] * u / f) / s - ox;
    out[2 * i + 1] = (camera[5] + camera[4] * v / f) / s - oy;
  }
}

void CDistortionFilter::MapPointsRadial(const float* in, float* out, int32_t count,
                                        const float (&sourceCamera)[9], const float (&targetCamera)[9],
                                        const float (&rotation)[9], const CurveTable& radius,
                                        const CurveTable& scale) const {
  const bool bisectable = Bisectable(radius);
  for (int32_t i = 0; i < count; ++i) {
    float u = 0.0f, v = 0.0f;
    NormalisePoint(in + 2 * i, sourceCamera, forwardTransform, &u, &v);
    const float f = LookupCurve(radius, scale, std::sqrt(u * u + v * v), kCurveSize, bisectable);
    ProjectRotated(u / f, v / f, targetCamera, rotation, sourceTransform, out + 2 * i);
  }
}

void CDistortionFilter::MapPointsLinear(const float* in, float* out, int32_t count,
                                        const float (&sourceCamera)[9], const float (&targetCamera)[9],
                                        const float (&rotation)[9]) const {
  for (int32_t i = 0; i < count; ++i) {
    float u = 0.0f, v = 0.0f;
    NormalisePoint(in + 2 * i, sourceCamera, forwardTransform, &u, &v);
    ProjectRotated(u, v, targetCamera, rotation, sourceTransform, out + 2 * i);
  }
}

void CDistortionFilter::FocalRatio(const float a[], const float b[], float* out, float w, float h) {
  *out = b[0] * h / (a[0] * w);
}
