// Board poses of the situations a phone calibration meets: boards anywhere
// in the image, reaching its border or its corners, where a lens distorts
// most, at any roll up to upside down, with squares from a few pixels up.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "synthetic/ChessboardRenderer.h"

enum class Placement {
  kCentre,    // the whole board with its margin 32 px inside both images, squares of 48 px or more
  kAnywhere,  // the board's centre anywhere in the main image
  kBorder,    // the board's nearest corner borderPx from one edge
  kCorner,    // the board's nearest corners borderPx from both edges at one corner
};
// A board's distance from an edge is taken in whichever image has it nearer.

struct PlacementOptions {
  Placement placement = Placement::kAnywhere;
  double maxTiltDeg = 30.0;   // about the board's axes
  double maxRollDeg = 15.0;   // in the board's plane; 180 takes every roll
  double minSquarePx = 48.0;  // the board's mean square side in the main image lies in [minSquarePx, maxSquarePx]
  double maxSquarePx = 120.0;
  double borderPx = 20.0;     // kBorder, kCorner: distance of the nearest inner corner from the edge
};

// "centre", "anywhere", "border", "corner"; false on anything else.
bool ParsePlacement(const std::string& text, Placement& placement);
const char* PlacementName(Placement placement);

// Poses drawn from a generator seeded with seed: every inner corner at least
// kMinCornerMarginPx inside both images and inside both lenses' monotonic
// radius, every square side at least minSquarePx * 0.5 in both images, and
// the placement met (to within a pixel, or a tenth of borderPx when that is
// more). kCentre is RandomBoardPoses. Returns fewer than count poses only
// when the rig cannot see the board that way. A corner nearer the edge than
// kMinCornerMarginPx leaves no room for a refinement window.
constexpr double kMinCornerMarginPx = 8.0;
std::vector<BoardPose> PlaceBoards(const StereoRig& rig, const ChessboardLayout& layout, int count, uint64_t seed,
                                   const PlacementOptions& options);
