"""verify and warp_yuv against qlm-calib verify and warp-yuv on the same inputs."""
import json

import numpy as np
import pytest

import qlm
from conftest import run_tool, tool_error


@pytest.fixture(scope="module")
def calibration(chart_set, tmp_path_factory):
    """A chart JSON of the first six pairs, from the module."""
    folder, pairs = chart_set
    path = tmp_path_factory.mktemp("calibration") / "chart.json"
    qlm.calibrate_chart(pairs[:6], params=folder / "params.txt", json=path, opencv=path.parent / "opencv",
                        pictures_dir=path.parent / "pictures")
    return path


def test_verify_writes_the_files_of_the_command_line(chart_set, chart_arrays, calibration, tmp_path):
    folder, pairs = chart_set
    unseen = pairs[6:]
    status, _, stderr = run_tool("verify", "--params", folder / "params.txt", "--calibration", calibration,
                                 "--json", tmp_path / "tool.json", "--map", tmp_path / "tool.png",
                                 "--max-row-error", 0.5, *[image for pair in unseen for image in pair])
    assert status == 0, stderr
    result = qlm.verify(unseen, params=folder / "params.txt", calibration=calibration, json=tmp_path / "module.json",
                        map=tmp_path / "module.png", max_row_error=0.5)
    assert result.exit_status == status and result.passed
    assert (tmp_path / "module.json").read_bytes() == (tmp_path / "tool.json").read_bytes()
    assert (tmp_path / "module.png").read_bytes() == (tmp_path / "tool.png").read_bytes()
    assert result.json == json.loads((tmp_path / "tool.json").read_text())
    from_arrays = qlm.verify(chart_arrays.pairs[6:], params=folder / "params.txt",
                             opencv=(calibration.parent / "opencv/intrinsics.yml",
                                     calibration.parent / "opencv/extrinsics.yml"))
    assert from_arrays.health == "good"
    assert from_arrays.row_error["count"] == result.row_error["count"]


def test_verify_failures_carry_the_tool_message(chart_set, calibration, tmp_path):
    folder, pairs = chart_set
    grey = np.full((1500, 2000), 128, np.uint8)
    with pytest.raises(qlm.StationError) as error:
        qlm.verify([(grey, grey + 1)], params=folder / "params.txt", calibration=calibration)
    assert str(error.value) == "verify: no pair shows the board in both images"
    expected = tool_error("verify", "--params", folder / "params.txt", "--calibration", tmp_path / "none.json",
                          *pairs[0])
    with pytest.raises(qlm.StationError) as error:
        qlm.verify([pairs[0]], params=folder / "params.txt", calibration=tmp_path / "none.json")
    assert str(error.value) == expected


WARP = {"source_camera": (1536, 1536, 320, 240), "target_camera": (1536, 1536, 320, 240),
        "radial": (-0.08, 0.02, 0), "rotation": (1, 0.01, 0, -0.01, 1, 0, 0, 0, 1)}


def test_warp_gives_the_bytes_of_the_command_line(tmp_path):
    rng = np.random.default_rng(7)
    frame = rng.integers(0, 256, size=(480 * 3 // 2, 640), dtype=np.uint8)
    (tmp_path / "in.yuv").write_bytes(frame.tobytes())
    status, stdout, stderr = run_tool(
        "warp-yuv", "--in", tmp_path / "in.yuv", "--size", "640x480", "--out", tmp_path / "out.yuv",
        "--out-size", "320x240", "--source-camera", "1536,1536,320,240", "--target-camera", "1536,1536,320,240",
        "--radial", "-0.08,0.02,0", "--rotation", "1,0.01,0,-0.01,1,0,0,0,1")
    assert status == 0, stderr
    warped, zoom = qlm.warp_yuv(frame, (640, 480), (320, 240), **WARP)
    assert warped.shape == (360, 320)
    assert warped.tobytes() == (tmp_path / "out.yuv").read_bytes()
    assert stdout.splitlines()[0] == f"zoom: {zoom:.6f}"


@pytest.mark.parametrize("frame, size, message", [
    (np.zeros(100, np.uint8), (640, 480), "frame: expected 460800 bytes for 640x480, got 100"),
    (np.zeros((720, 640), np.uint8), (641, 480), "size: width and height must be even, got '641x480'"),
    (np.zeros((720, 640), np.float32), (640, 480), "frame: expected dtype uint8, got float32"),
    (np.zeros((720, 1280), np.uint8)[:, ::2], (640, 480),
     "frame: not C-contiguous (numpy.ascontiguousarray gives a packed copy)"),
])
def test_warp_refuses_frames_it_cannot_read(frame, size, message):
    with pytest.raises(qlm.StationError) as error:
        qlm.warp_yuv(frame, size, (320, 240), **WARP)
    assert str(error.value) == message
