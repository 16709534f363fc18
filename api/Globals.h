// The library's global objects. They are defined in one translation unit,
// so they are constructed in this order when the library is loaded and
// destroyed in reverse order when it is unloaded.
#pragma once

#include <cstdint>

#include "distortion/CDistortionFilter.h"
#include "engine/dualCalibration.h"

// The pair of distortion filters that the engine's table loading fills.
extern CDistortionFilter g_distortionFilter1;
extern CDistortionFilter g_distortionFilter2;
// A second pair that nothing uses; kept on purpose.
extern CDistortionFilter g_distortionFilter3;
extern CDistortionFilter g_distortionFilter4;
extern dualCalibration g_dualCalib;
// Gates every Android log line of the library; 1 from load, never changed.
extern uint8_t g_bDebugLog;
