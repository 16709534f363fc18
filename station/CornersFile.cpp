#include "station/CornersFile.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <type_traits>

#include "station/InputFiles.h"
#include "station/StationError.h"

namespace {

constexpr ChartPairResult kPairResults[] = {ChartPairResult::kView, ChartPairResult::kNoBoard,
                                            ChartPairResult::kNoBoardQuickCheck, ChartPairResult::kOrderUndecided,
                                            ChartPairResult::kCornersUnlocated};
// Views and corners a file may hold: far more than any run, few enough to bound memory.
constexpr size_t kMaxPairs = 100000;
constexpr size_t kMaxCornersPerView = 1000000;

template <typename Point>
nlohmann::json PointsJson(const std::vector<Point>& points) {
  nlohmann::json list = nlohmann::json::array();
  for (const Point& p : points) {
    if constexpr (std::is_same_v<Point, cv::Point3f>) {
      list.push_back({p.x, p.y, p.z});
    } else {
      list.push_back({p.x, p.y});
    }
  }
  return list;
}

// Reads the file's fields, each problem a StationError naming the file.
class CornersReader {
 public:
  explicit CornersReader(const std::string& path) : mPath(path) {}

  [[noreturn]] void Fail(const std::string& what) const { throw StationError(mPath + ": " + what); }

  const nlohmann::json& Field(const nlohmann::json& object, const char* key) const {
    if (!object.is_object() || !object.contains(key)) Fail(std::string("no ") + key);
    return object[key];
  }
  const nlohmann::json& Array(const nlohmann::json& object, const char* key, size_t maxSize) const {
    const nlohmann::json& value = Field(object, key);
    if (!value.is_array() || value.size() > maxSize) Fail(std::string(key) + " is not a list of at most " + std::to_string(maxSize));
    return value;
  }
  double Number(const nlohmann::json& value, const char* what, double low, double high) const {
    if (!value.is_number() || !std::isfinite(value.get<double>()) || value.get<double>() < low || value.get<double>() > high) {
      Fail(std::string(what) + " is not a number in " + std::to_string(low) + ".." + std::to_string(high));
    }
    return value.get<double>();
  }
  int Integer(const nlohmann::json& value, const char* what, int low, int high) const {
    if (!value.is_number_integer()) Fail(std::string(what) + " is not an integer");
    return static_cast<int>(Number(value, what, low, high));
  }
  bool Flag(const nlohmann::json& value, const char* what) const {
    if (!value.is_boolean()) Fail(std::string(what) + " is not true or false");
    return value.get<bool>();
  }
  cv::Size Size(const nlohmann::json& object, const char* key) const {
    const nlohmann::json& size = Array(object, key, 2);
    if (size.size() != 2) Fail(std::string(key) + " is not [width, height]");
    return {Integer(size[0], key, 1, kMaxImageSidePx), Integer(size[1], key, 1, kMaxImageSidePx)};
  }
  // Points of dimension 2 or 3 within the bounds, at float precision.
  template <typename Point>
  std::vector<Point> Points(const nlohmann::json& view, const char* key, double bound) const {
    std::vector<Point> points;
    for (const nlohmann::json& p : Array(view, key, kMaxCornersPerView)) {
      constexpr size_t kDimension = std::is_same_v<Point, cv::Point3f> ? 3 : 2;
      if (!p.is_array() || p.size() != kDimension) Fail(std::string(key) + ": a point is not " + std::to_string(kDimension) + " numbers");
      Point point;
      point.x = static_cast<float>(Number(p[0], key, -bound, bound));
      point.y = static_cast<float>(Number(p[1], key, -bound, bound));
      if constexpr (kDimension == 3) point.z = static_cast<float>(Number(p[2], key, -bound, bound));
      points.push_back(point);
    }
    return points;
  }
  std::vector<int32_t> Integers(const nlohmann::json& object, const char* key, int high) const {
    std::vector<int32_t> values;
    for (const nlohmann::json& value : Array(object, key, kMaxCornersPerView)) values.push_back(Integer(value, key, 0, high));
    return values;
  }
  std::vector<float> Floats(const nlohmann::json& object, const char* key) const {
    std::vector<float> values;
    for (const nlohmann::json& value : Array(object, key, kMaxCornersPerView)) {
      values.push_back(static_cast<float>(Number(value, key, 0, 1e9)));
    }
    return values;
  }

 private:
  const std::string& mPath;
};

}  // namespace

const char* PairResultName(ChartPairResult result) {
  switch (result) {
    case ChartPairResult::kView: return "view";
    case ChartPairResult::kNoBoard: return "no board";
    case ChartPairResult::kNoBoardQuickCheck: return "no board (quick check)";
    case ChartPairResult::kOrderUndecided: return "order undecided";
    case ChartPairResult::kCornersUnlocated: return "corners unlocated";
  }
  return "";
}

nlohmann::json CornersJson(const ChartViews& views, const std::vector<std::string>& images, const CornersBoard& board) {
  const ChartSummary& intake = views.intake;
  nlohmann::json pairs = nlohmann::json::array();
  for (size_t k = 0; k < intake.viewsFound.size() && 2 * k + 1 < images.size(); ++k) {
    pairs.push_back({{"main", images[2 * k]}, {"second", images[2 * k + 1]},
                     {"result", PairResultName(PairResultOf(intake, k))}});
  }
  const std::vector<int32_t> pairNumbers = PairNumbersOfViews(intake);
  nlohmann::json list = nlohmann::json::array();
  for (size_t v = 0; v < views.objectPoints.size() && v < pairNumbers.size(); ++v) {
    list.push_back({{"pair", pairNumbers[v]}, {"object_points", PointsJson(views.objectPoints[v])},
                    {"main", PointsJson(views.imagePoints1[v])}, {"second", PointsJson(views.imagePoints2[v])}});
  }
  nlohmann::json gridPairings = nlohmann::json::array(), qualities = nlohmann::json::array();
  for (const GridPairing& g : intake.gridPairings) {
    gridPairings.push_back({{"order", g.order}, {"residual_px", g.residualPx}, {"agreement", g.agreement}, {"undecided", g.undecided}});
  }
  for (const ViewCornerQuality& q : intake.cornerQuality) {
    qualities.push_back({{"residuals_main", q.residuals1}, {"residuals_second", q.residuals2}, {"left_out", q.leftOut}});
  }
  return {{"format", "qlm-chart-corners"},
          {"version", 1},
          {"board", {{"width", board.width}, {"height", board.height}, {"square_size", board.squareSize}}},
          {"main_size", {views.mainSize.width, views.mainSize.height}},
          {"second_size", {views.secondSize.width, views.secondSize.height}},
          {"pairing", intake.pairing == CornerPairing::kGrid ? "grid" : "nearest"},
          {"corner_search", intake.search == CornerSearch::kAnyScale ? "any-scale" : "engine"},
          {"pairs", pairs},
          {"views", list},
          {"grid_pairing", gridPairings},
          {"corner_quality", qualities},
          {"repeated_corner_views", intake.repeatedCornerViews},
          {"views_without_tables", intake.viewsWithoutTables}};
}

CornersFile ReadCornersFile(const std::string& path) {
  const std::vector<unsigned char> bytes = ReadBinaryFile(path, kMaxCornersFileBytes);
  const nlohmann::json file = nlohmann::json::parse(bytes.begin(), bytes.end(), nullptr, false);
  const CornersReader read(path);
  if (file.is_discarded() || !file.is_object() || file.find("format") == file.end() ||
      file["format"] != "qlm-chart-corners" || file.find("version") == file.end() || file["version"] != 1) {
    read.Fail("not a corners file (format qlm-chart-corners, version 1)");
  }
  CornersFile corners;
  const nlohmann::json& board = read.Field(file, "board");
  corners.board = {read.Integer(read.Field(board, "width"), "board width", 0, 1000),
                   read.Integer(read.Field(board, "height"), "board height", 0, 1000),
                   read.Integer(read.Field(board, "square_size"), "board square_size", 0, 500)};
  ChartViews& views = corners.views;
  views.mainSize = read.Size(file, "main_size");
  views.secondSize = read.Size(file, "second_size");
  ChartSummary& intake = views.intake;
  const nlohmann::json& pairing = read.Field(file, "pairing");
  const nlohmann::json& search = read.Field(file, "corner_search");
  if (pairing != "grid" && pairing != "nearest") read.Fail("pairing is not grid or nearest");
  if (search != "any-scale" && search != "engine") read.Fail("corner_search is not any-scale or engine");
  intake.pairing = pairing == "grid" ? CornerPairing::kGrid : CornerPairing::kNearest;
  intake.search = search == "any-scale" ? CornerSearch::kAnyScale : CornerSearch::kEngine;
  for (const nlohmann::json& pair : read.Array(file, "pairs", kMaxPairs)) {
    const nlohmann::json& result = read.Field(pair, "result");
    const ChartPairResult* named = std::find_if(std::begin(kPairResults), std::end(kPairResults),
                                                [&](ChartPairResult r) { return result == PairResultName(r); });
    if (named == std::end(kPairResults) || !read.Field(pair, "main").is_string() || !read.Field(pair, "second").is_string()) {
      read.Fail("a pair is not {main, second, result}");
    }
    corners.images.push_back(pair["main"]), corners.images.push_back(pair["second"]);
    intake.viewsFound.push_back(*named == ChartPairResult::kView);
    intake.quickRejected.push_back(*named == ChartPairResult::kNoBoardQuickCheck);
    intake.orderUndecided.push_back(*named == ChartPairResult::kOrderUndecided);
    intake.cornersUnlocated.push_back(*named == ChartPairResult::kCornersUnlocated);
    intake.viewCount += *named == ChartPairResult::kView;
  }
  const double bound = 2.0 * kMaxImageSidePx;
  for (const nlohmann::json& view : read.Array(file, "views", kMaxPairs)) {
    views.objectPoints.push_back(read.Points<cv::Point3f>(view, "object_points", 1e9));
    views.imagePoints1.push_back(read.Points<cv::Point2f>(view, "main", bound));
    views.imagePoints2.push_back(read.Points<cv::Point2f>(view, "second", bound));
    const size_t count = views.objectPoints.back().size();
    if (count == 0 || views.imagePoints1.back().size() != count || views.imagePoints2.back().size() != count) {
      read.Fail("view " + std::to_string(views.objectPoints.size()) + ": object_points, main and second differ in count");
    }
  }
  if (views.objectPoints.size() != static_cast<size_t>(intake.viewCount)) {
    read.Fail(std::to_string(views.objectPoints.size()) + " views for " + std::to_string(intake.viewCount) + " pairs that are views");
  }
  for (const nlohmann::json& g : read.Array(file, "grid_pairing", kMaxPairs)) {
    intake.gridPairings.push_back({read.Integer(read.Field(g, "order"), "grid_pairing order", -1, kGridOrdersSquare - 1),
                                   read.Number(read.Field(g, "residual_px"), "grid_pairing residual_px", 0, 1e9),
                                   read.Number(read.Field(g, "agreement"), "grid_pairing agreement", -1e9, 1e9),
                                   read.Flag(read.Field(g, "undecided"), "grid_pairing undecided")});
  }
  for (const nlohmann::json& q : read.Array(file, "corner_quality", kMaxPairs)) {
    intake.cornerQuality.push_back({read.Floats(q, "residuals_main"), read.Floats(q, "residuals_second"),
                                    read.Integers(q, "left_out", 1000 * 1000)});
  }
  intake.repeatedCornerViews = read.Integers(file, "repeated_corner_views", intake.viewCount);
  intake.viewsWithoutTables = read.Integer(read.Field(file, "views_without_tables"), "views_without_tables", 0, intake.viewCount);
  return corners;
}
