// qlm.synth_scene and qlm.synth_chart: the synthetic data of qlm-calib synth
// (station/SyntheticData.h) as arrays, with its parameter section and
// ground truth.
#include "python/ModuleSupport.h"
#include "station/StationError.h"
#include "station/SyntheticData.h"

namespace {

struct SyntheticScene {
  py::array main, second;
  CalibrationRecord record;
  std::string params;
  py::object truth;
};

struct SyntheticChart {
  py::list pairs;
  std::string params;
  py::object truth;
};

std::string SizeText(const std::pair<int, int>& size) {
  return std::to_string(size.first) + "x" + std::to_string(size.second);
}

SyntheticScene SynthScene(const std::pair<int, int>& size, uint32_t seed) {
  SyntheticSceneData data;
  {
    py::gil_scoped_release released;
    data = MakeSyntheticScene({size.first, size.second}, seed, SizeText(size));
  }
  return {ArrayOf(data.mainImage), ArrayOf(data.secondImage), data.record, data.parameters, PythonJson(data.truth)};
}

DistortionCoefficients LensOf(const std::optional<std::vector<double>>& lens, const char* option) {
  if (!lens) return DistortionCoefficients::all(0.0);
  std::string text;
  for (const double value : *lens) text += (text.empty() ? "" : ",") + std::to_string(value);
  return SyntheticLens(*lens, option, text);
}

SyntheticChart SynthChart(int pairs, const std::pair<int, int>& size, uint32_t seed,
                          const std::optional<std::vector<double>>& mainLens,
                          const std::optional<std::vector<double>>& secondLens, const std::string& placement) {
  SyntheticChartRequest request;
  request.size = {size.first, size.second};
  request.sizeText = SizeText(size);
  request.seed = seed;
  request.pairs = pairs;
  request.mainLens = LensOf(mainLens, "main_lens");
  request.secondLens = LensOf(secondLens, "second_lens");
  if (!ParsePlacement(placement, request.placement.placement)) {
    throw StationError("placement: expected centre, anywhere, border or corner, got '" + placement + "'");
  }
  SyntheticChartData data;
  {
    py::gil_scoped_release released;
    data = MakeSyntheticChart(request);
  }
  SyntheticChart chart{py::list(), data.parameters, PythonJson(data.truth)};
  for (const RenderedPair& pair : data.pairs) chart.pairs.append(py::make_tuple(ArrayOf(pair.mainImage), ArrayOf(pair.secondImage)));
  return chart;
}

}  // namespace

void BindSynthetic(py::module_& module) {
  py::class_<SyntheticScene>(module, "SyntheticScene", "A textured pair for refine through a known homography.")
      .def_readonly("main", &SyntheticScene::main, "Main image, 2-D uint8.")
      .def_readonly("second", &SyntheticScene::second, "Second image, 2-D uint8.")
      .def_readonly("record", &SyntheticScene::record, "A record whose H_OTP is off by a known similarity.")
      .def_readonly("params", &SyntheticScene::params, "A parameter section whose limits a good refinement meets.")
      .def_readonly("truth", &SyntheticScene::truth, "size, seed, main_to_second and expected_estimate (truth.json).");
  module.def("synth_scene", &SynthScene, py::arg("size") = std::pair<int, int>(2000, 1500), py::arg("seed") = 1,
             "The scene qlm-calib synth scene writes, as arrays: size (width, height), each side 1000..10000.");

  py::class_<SyntheticChart>(module, "SyntheticChart", "Chessboard pairs of a known stereo rig.")
      .def_readonly("pairs", &SyntheticChart::pairs, "[(main, second), ...] 2-D uint8 arrays.")
      .def_readonly("params", &SyntheticChart::params, "The parameter section for calibrate_chart (write it to a file).")
      .def_readonly("truth", &SyntheticChart::truth, "Ground truth as ground_truth.json holds it: the rig, every corner.");
  module.def("synth_chart", &SynthChart, py::arg("pairs") = 8, py::arg("size") = std::pair<int, int>(2000, 1500),
             py::arg("seed") = 1, py::arg("main_lens") = py::none(), py::arg("second_lens") = py::none(),
             py::arg("placement") = "centre",
             "The pairs qlm-calib synth chart writes with its default conditions, as arrays; lenses in OpenCV's "
             "model of 4, 5 or 8 coefficients.");
}
