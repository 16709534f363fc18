// The Python module qlm: the library's exported path, the station's chart
// calibration and verification, the YUV warp and the synthetic data, on
// numpy arrays and files, for station scripts.
#include "python/ModuleSupport.h"

PYBIND11_MODULE(qlm, module) {
  module.doc() =
      "Dual-camera calibration: the library's INIT/PROCESS/GET_RESULT path (Engine), chessboard stereo calibration "
      "(calibrate_chart), verification (verify), the YUV warp (warp_yuv) and synthetic data with ground truth. Every "
      "failure raises StationError with qlm-calib's message.";
  BindErrors(module);
  BindEngine(module);
  BindStation(module);
  BindSynthetic(module);
}
