// The detected corners of a chart run in one JSON file, so that a unit can be
// solved again without its images (after a library update, say) and reach
// the same K, D, R and T. Layout (README "Corners file"):
//   format "qlm-chart-corners", version 1;
//   board {width, height, square_size} as the parameter file gave it;
//   main_size, second_size [w, h]; pairing; corner_search;
//   pairs: per pair {main, second, result} (result as PairResultName);
//   views: per view {pair, object_points [[x, y, z]...], main [[x, y]...],
//     second [[x, y]...]} in the lists' order, corners as the stages took
//     them (after the distortion tables, when given);
//   grid_pairing (grid pairing) per view {order, residual_px, agreement,
//     undecided}; corner_quality (any-scale search) per view
//     {residuals_main, residuals_second, left_out};
//   repeated_corner_views; views_without_tables.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "chart/ChartDriver.h"

// Largest corners file read.
constexpr uintmax_t kMaxCornersFileBytes = uintmax_t{64} << 20;

// The board of a parameter file: inner corners across and down, square size.
struct CornersBoard {
  int width = 0, height = 0, squareSize = 0;
  bool operator==(const CornersBoard& other) const {
    return width == other.width && height == other.height && squareSize == other.squareSize;
  }
};

// "view", "no board", "no board (quick check)", "order undecided", "corners unlocated".
const char* PairResultName(ChartPairResult result);

// views of a run over images (main1 second1 ...) with board.
nlohmann::json CornersJson(const ChartViews& views, const std::vector<std::string>& images, const CornersBoard& board);

// A corners file read back: its views, the pairs' image names and its board.
struct CornersFile {
  ChartViews views;
  std::vector<std::string> images;
  CornersBoard board;
};
// Throws StationError naming path and what is wrong: not such a JSON, a
// count that does not match, a corner or size out of range.
CornersFile ReadCornersFile(const std::string& path);
