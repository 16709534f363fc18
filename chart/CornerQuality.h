// The quality of each found chessboard corner, judged by its grid
// neighbours: the board maps smoothly into the image, so the eight corners
// of the 3 x 3 block around a corner (shifted inside the grid at its edges)
// put it where a quadratic map from board to image fitted to them says. A
// strongly distorted lens leaves the true corners within about 0.13 px of
// that place; a corner the refinement could not locate lands far from it.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

// A corner is unlocated when its residual exceeds this share of its shortest
// square side and kUnlocatedMedianFactor times the view's median residual.
constexpr double kUnlocatedSquareShare = 0.05;
constexpr double kUnlocatedMedianFactor = 4.0;

// Distance from corner k of the grid to its nearest neighbour in the grid.
float ShortestSquareSide(const std::vector<cv::Point2f>& corners, cv::Size patternSize, int k);

// How far the grid bends at corner k: over the row and the column through
// it, the largest distance (px) of a triple's middle corner from the chord
// of the other two, the triple centred on k or shifted inside the grid at its
// edges. Perspective keeps the board's lines straight; a lens bends them.
float GridBendPx(const std::vector<cv::Point2f>& corners, cv::Size patternSize, int k);

// The middle value (the upper of the two middle ones for an even count); 0
// without values.
float UpperMedian(std::vector<float> values);

// Per corner: the distance (px) from where its neighbours put it, those in
// excluded (flags per corner, may be empty) left out of the fits. A corner
// with fewer than three usable neighbours has 0.
std::vector<float> CornerNeighbourResiduals(const std::vector<cv::Point2f>& corners, cv::Size patternSize,
                                            const std::vector<bool>& excluded = {});

// The corners that cannot be located, worst first: each found in turn as
// the largest residual over both limits, the residuals then fitted again
// without it. Fewer corners than the grid's yield none.
std::vector<int32_t> UnlocatedCorners(const std::vector<cv::Point2f>& corners, cv::Size patternSize);
