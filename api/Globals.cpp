#include "api/Globals.h"

uint8_t g_bDebugLog = 1;

CDistortionFilter g_distortionFilter1;
CDistortionFilter g_distortionFilter2;
CDistortionFilter g_distortionFilter3;
CDistortionFilter g_distortionFilter4;
dualCalibration g_dualCalib;
