// The two pairings of a view's corners between the main and the second
// image: the engine's own nearest-neighbour pairing (matchCornerOrder) and
// the grid pairing, which knows that both lists hold one W x H board in one
// of the board's symmetric orders.
#pragma once

#include <cstdint>
#include <iterator>

// Which pairing detectChessboardCorners runs on a found board.
enum class CornerPairing : int32_t {
  kNearest = 0,  // matchCornerOrder, the engine's default
  kGrid = 1,     // matchCornerGridOrder
};

// Which chessboard search detectChessboardCorners runs.
enum class CornerSearch : int32_t {
  kEngine = 0,    // quarter size, corners times 4, a (10, 10) refinement window: the library's own
  kAnyScale = 1,  // a scale chosen from the image, finer where that fails, a window sized to each square
};

// The symmetric orders of a W x H grid as the detector may list it: the
// second list's corner (row i, column j) of the main list's order is taken
// from row r, column c of its own list after optional transposition (square
// boards only) and reversal of rows and of columns.
struct GridOrder {
  const char* name;
  bool transposed;
  bool rowsReversed;
  bool columnsReversed;
};

// The orders in the sequence the grid pairing tries them: four for every
// board, eight for a square one.
constexpr GridOrder kGridOrders[] = {
    {"as found", false, false, false},
    {"reversed", false, true, true},
    {"rows reversed", false, true, false},
    {"columns reversed", false, false, true},
    {"transposed", true, false, false},
    {"transposed, rows reversed", true, true, false},
    {"transposed, columns reversed", true, false, true},
    {"transposed and reversed", true, true, true},
};
constexpr int kGridOrdersRectangular = 4;
constexpr int kGridOrdersSquare = static_cast<int>(std::size(kGridOrders));

// What the grid pairing chose for one view: the index into kGridOrders
// (-1 when the lists do not hold one board), the RMS distance in pixels of
// the second list from the main list mapped by the homography fitted under
// that order, and the order's agreement with an unturned mapping (1 for a
// mapping that only scales and shifts, -1 for one turned half around).
struct GridPairing {
  int32_t order = -1;
  double residualPx = 0.0;
  double agreement = 0.0;
  bool undecided = false;  // order -1: the board's colouring and the agreement left two orders open
};
