"""calibrate_chart against qlm-calib chart on the same pairs, against the rendered rig, and on its failure paths."""
import json
import threading

import numpy as np
import pytest

import qlm
from conftest import run_tool, tool_error

# The example rig's baseline is 40 units; a good calibration of eight clean
# 2000 x 1500 views finds T within a hundredth of that and fx within 1 px.
T_TOLERANCE = 0.4
FOCAL_TOLERANCE_PX = 1.0


def outputs(folder):
    """The output options of one run, all inside folder."""
    return {"json": folder / "chart.json", "report": folder / "report", "android_metadata": folder / "camera2.json",
            "opencv": folder / "opencv", "ros": folder / "ros", "save_corners": folder / "corners.json"}


def written_files(folder):
    return sorted(p.relative_to(folder) for p in folder.rglob("*") if p.is_file())


def test_chart_writes_the_files_of_the_command_line(chart_set, tmp_path):
    folder, pairs = chart_set
    params = folder / "params.txt"
    images = [image for pair in pairs for image in pair]
    tool, module = tmp_path / "tool", tmp_path / "module"
    arguments = ["chart", "--params", params, "--pictures-dir", tool / "pictures"]
    for option, path in outputs(tool).items():
        arguments += ["--" + option.replace("_", "-"), path]
    status, _, stderr = run_tool(*arguments, *images)
    assert status == 0, stderr

    result = qlm.calibrate_chart(pairs, params=params, pictures_dir=module / "pictures", **outputs(module))
    assert result.exit_status == status
    assert result.checks_passed and result.calibrated
    assert written_files(module) == written_files(tool)
    for name in written_files(tool):
        assert (module / name).read_bytes() == (tool / name).read_bytes(), name

    summary = json.loads((tool / "chart.json").read_text())
    assert result.json == summary
    assert result.K1.tolist() == summary["K1"] and result.R.tolist() == summary["R"]
    assert result.T.tolist() == summary["T"]
    assert result.pair_results == ["view"] * 8


def test_arrays_calibrate_as_the_files(chart_set, chart_arrays, tmp_path):
    folder, pairs = chart_set
    assert (folder / "params.txt").read_text() == chart_arrays.params
    assert json.loads((folder / "ground_truth.json").read_text()) == chart_arrays.truth
    from_files = qlm.calibrate_chart(pairs, params=folder / "params.txt", report=tmp_path / "files")
    from_arrays = qlm.calibrate_chart(chart_arrays.pairs, params=folder / "params.txt", report=tmp_path / "arrays")
    assert from_arrays.json == from_files.json
    for name in ["coverage_main.png", "coverage_second.png", "errors.png"]:
        assert (tmp_path / "arrays" / name).read_bytes() == (tmp_path / "files" / name).read_bytes()
    # The report names an array by its place in pairs, and draws its panel from it as from the file.
    report = (tmp_path / "files" / "report.json").read_text()
    for k, (main, second) in enumerate(pairs):
        report = report.replace(main, f"pairs[{k}][0]").replace(second, f"pairs[{k}][1]")
    assert json.loads((tmp_path / "arrays" / "report.json").read_text()) == json.loads(report)


def test_chart_finds_the_rendered_rig(chart_arrays, tmp_path):
    params = tmp_path / "params.txt"
    params.write_text(chart_arrays.params)
    result = qlm.calibrate_chart(chart_arrays.pairs, params=params)
    truth = chart_arrays.truth
    assert np.abs(result.T - np.array(truth["T"]).ravel()).max() < T_TOLERANCE
    assert abs(result.K1[0, 0] - truth["main_camera"]["K"][0][0]) < FOCAL_TOLERANCE_PX
    assert abs(result.K2[0, 0] - truth["second_camera"]["K"][0][0]) < FOCAL_TOLERANCE_PX


def test_a_pair_without_a_board_is_reported_and_left_out(chart_arrays, tmp_path):
    params = tmp_path / "params.txt"
    params.write_text(chart_arrays.params)
    grey = np.full((1500, 2000), 128, np.uint8)
    dark = np.full((1500, 2000), 40, np.uint8)
    result = qlm.calibrate_chart(chart_arrays.pairs[:6] + [(grey, dark)], params=params)
    assert result.pair_results == ["view"] * 6 + ["no board"]
    assert result.view_pairs == [1, 2, 3, 4, 5, 6]
    assert result.calibrated


def test_failures_raise_the_tool_message_and_write_nothing(chart_set, tmp_path):
    folder, pairs = chart_set
    missing = str(tmp_path / "gone_main.png")
    broken = pairs[:3] + [(missing, pairs[3][1])]
    out = tmp_path / "out"
    expected = tool_error("chart", "--params", folder / "params.txt", "--json", out / "chart.json",
                          *[image for pair in broken for image in pair])
    with pytest.raises(qlm.StationError) as error:
        qlm.calibrate_chart(broken, params=folder / "params.txt", json=out / "chart.json")
    assert str(error.value) == expected
    assert expected == missing + ": cannot open file"
    assert not out.exists() or list(out.iterdir()) == []


@pytest.mark.parametrize("pairs, message", [
    ([(np.zeros((100, 100), np.int16), np.zeros((100, 100), np.uint8))], "pairs[0][0]: expected dtype uint8, got int16"),
    ([(np.zeros((100, 100), np.uint8), np.zeros((100, 100, 1), np.uint8))],
     "pairs[0][1]: expected a 2-D array (rows, columns), got 3 dimensions"),
    ([(np.zeros((100, 200), np.uint8)[:, ::2], np.zeros((100, 100), np.uint8))],
     "pairs[0][0]: not C-contiguous (numpy.ascontiguousarray gives a packed copy)"),
    ([(np.zeros((100, 100), np.uint8), "second.png")],
     "pairs[0][1]: give every image as a file name or every image as an array"),
    ([(np.zeros((100, 100), np.uint8), np.zeros((100, 100), np.uint8))],
     "pair 1: pairs[0][0] and pairs[0][1] are the same image"),
    (["main.png"], "pairs[0]: expected a (main, second) pair"),
    ([(np.zeros((64, 10001), np.uint8), np.ones((64, 64), np.uint8))],
     "pairs[0][0]: 10001x64 is larger than the accepted 10000x10000"),
])
def test_arrays_that_cannot_be_pairs_are_refused(chart_set, pairs, message):
    folder, _ = chart_set
    with pytest.raises(qlm.StationError) as error:
        qlm.calibrate_chart(pairs, params=folder / "params.txt")
    assert str(error.value) == message


def test_options_are_checked_as_named(chart_set):
    folder, pairs = chart_set
    for options, message in [({"pairing": "closest"}, "pairing: expected one of grid, nearest, got 'closest'"),
                              ({"folds": 1001}, "folds: expected 0..1000, got 1001"),
                              ({"drop_outlier": True}, "calibrate_chart: no option 'drop_outlier'")]:
        with pytest.raises(qlm.StationError) as error:
            qlm.calibrate_chart(pairs, params=folder / "params.txt", **options)
        assert str(error.value) == message


def test_two_threads_calibrate_two_units_at_once(chart_set, chart_arrays, tmp_path):
    folder, pairs = chart_set
    results = {}

    def calibrate(name, unit_pairs):
        results[name] = qlm.calibrate_chart(unit_pairs, params=folder / "params.txt", json=tmp_path / f"{name}.json",
                                            pictures_dir=tmp_path / name)

    threads = [threading.Thread(target=calibrate, args=("files", pairs)),
               threading.Thread(target=calibrate, args=("arrays", chart_arrays.pairs[:6]))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    alone = qlm.calibrate_chart(chart_arrays.pairs[:6], params=folder / "params.txt")
    assert results["arrays"].json == alone.json
    assert results["files"].calibrated
    for name in ["files", "arrays"]:
        assert (tmp_path / name / "calibrationResult.txt").read_text().strip() != ""
        assert json.loads((tmp_path / f"{name}.json").read_text()) == results[name].json


def test_a_run_whose_library_files_are_missing_raises_storage_error(chart_set, tmp_path):
    # Two views stop the run before the stereo stage, which would append to calib_log.txt.
    folder, pairs = chart_set
    images = [image for pair in pairs[:2] for image in pair]
    status, _, stderr = run_tool("chart", "--params", folder / "params.txt", "--json", tmp_path / "tool.json",
                                 "--pictures-dir", tmp_path / "library", *images)
    assert status == 4
    with pytest.raises(qlm.StorageError) as error:
        qlm.calibrate_chart(pairs[:2], params=folder / "params.txt", json=tmp_path / "module.json",
                            pictures_dir=tmp_path / "library")
    assert "qlm-calib: " + str(error.value) == stderr.splitlines()[-1]
    assert str(error.value) == f"{tmp_path / 'library'}: the library did not write calib_log.txt"
    assert not (tmp_path / "module.json").exists() and not (tmp_path / "tool.json").exists()
