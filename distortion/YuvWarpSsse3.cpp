// The radial warp's rows on four lanes with shared row loads, built with
// SSSE3 for its byte shuffle (pshufb).
#include "distortion/Float4.h"
#include "distortion/PixelMapping.h"
#include "distortion/WarpRows.h"

void WarpRowsSsse3(const YuvImage& source, const YuvImage& target, const PixelMapping& mapping,
                   const RadialFactor& factor, const ColumnTerms& columns) {
  WarpRows<float4::Lanes4, SharedRowLoads>(source, target, mapping, factor, columns);
}
