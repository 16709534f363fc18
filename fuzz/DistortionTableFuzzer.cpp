// Feeds arbitrary bytes to CDistortionFilter::LoadDistortionTable through a
// temporary file, then builds the polynomial curve and undistorts a few
// points with whatever the table left, so that counts out of range are also
// exercised by their later uses.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include <unistd.h>

#include "distortion/CDistortionFilter.h"

namespace {

std::string& TablePath() {
  static std::string path;
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char pattern[] = "/tmp/qlm-table-fuzz-XXXXXX";
  const int descriptor = mkstemp(pattern);
  if (descriptor < 0) return 1;
  close(descriptor);
  TablePath() = pattern;
  std::atexit([] { std::remove(TablePath().c_str()); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* file = std::fopen(TablePath().c_str(), "wb");
  if (file == nullptr) return 0;
  const bool written = std::fwrite(data, 1, size, file) == size;
  std::fclose(file);
  if (!written) return 0;
  auto filter = std::make_unique<CDistortionFilter>();
  filter->LoadDistortionTable(TablePath().c_str());
  CurveTable radius, scale;
  filter->BuildCurveFromPolynomial(radius, scale, 4000.0f, 3000.0f);
  float points[6] = {0.0f, 0.0f, 2000.0f, 1500.0f, 3999.0f, 2999.0f};
  filter->UndistortPointsPolynomial(points, points, 3, 4000, 3000);
  filter->BlendPolynomialRows(filter->rowCount, filter->coefficientCount, 0.5f);
  return 0;
}
