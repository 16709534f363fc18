// Chart corner undistortion of the engine (dualCalibration::LoadDistortionTables
// and dualCalibration::undistortChartCorners) and its debug drawing.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

// Number of chart views the corner undistortion works on.
constexpr int kChartCornerViews = 4;

// A colour (BGR) copy of an 8-bit grey chart image; empty for any other image.
cv::Mat ChartColourCopy(const cv::Mat& image);
// Draws one view's corners on a colour copy with the board's inner-corner
// grid. The grid is drawn as found only when the view holds exactly
// width * height corners; other views are drawn as loose corners. An empty
// canvas is left alone.
void DrawChartView(cv::Mat& canvas, cv::Size boardSize, const std::vector<cv::Point2f>& corners);
