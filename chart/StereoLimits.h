// The stereo stage's limit checks: angle conversion and the warnings that
// the stage prints from a ChartLimitChecks (dualCalibration::evaluateChartLimits).
#pragma once

#include "chart/ChartDriver.h"

// |angle| in tenths of a degree: radians * 180 * 10 in single precision,
// divided by 3.1415926 in double, rounded back to single precision.
float AngleTenthsOfDegree(float angleRad);

// "ERROR: RX/RY/RZ value is too big ! \n" for each failed rotation check, in that order.
void PrintRotationWarnings(const ChartLimitChecks& checks);

// Only when the stereo reprojection check failed: the translation warnings
// of the failed components, then "ERROR: dual camera reprojection is too big ! \n".
void PrintReprojectionWarnings(const ChartLimitChecks& checks);
