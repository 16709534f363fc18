"""Shared fixtures: the module, qlm-calib and the service library as CTest
builds them, a fresh pictures folder for every test, and chart data rendered
once by qlm-calib synth chart."""
import os
import pathlib
import subprocess

import pytest

import qlm

ROOT = pathlib.Path(__file__).resolve().parents[2]
QLM_CALIB = os.environ.get("QLM_CALIB", str(ROOT / "build/tools/qlm-calib"))
SERVICE_LIBRARY = os.environ.get(
    "QLM_SERVICE_LIBRARY", str(ROOT / "build/api/libQLM_DualCalibration_Service.so"))


def run_tool(*arguments, cwd=None):
    """qlm-calib with the arguments; its exit status, standard output and error."""
    done = subprocess.run([QLM_CALIB, *map(str, arguments)], capture_output=True, text=True,
                          cwd=cwd, check=False)
    return done.returncode, done.stdout, done.stderr


def tool_error(*arguments):
    """The one line qlm-calib prints for a failed run, without its prefix."""
    status, _, stderr = run_tool(*arguments)
    assert status == 2, stderr
    line = stderr.splitlines()[-1]
    assert line.startswith("qlm-calib: ")
    return line[len("qlm-calib: "):]


@pytest.fixture(autouse=True)
def pictures_dir(tmp_path, monkeypatch):
    """Every test's library files go to a folder of its own."""
    folder = tmp_path / "pictures"
    folder.mkdir()
    monkeypatch.setenv("QLM_PICTURES_DIR", str(folder))
    return folder


@pytest.fixture(scope="session")
def chart_set(tmp_path_factory):
    """Eight pairs of the example rig at 2000 x 1500, seed 1, as files."""
    folder = tmp_path_factory.mktemp("chart")
    status, _, stderr = run_tool("synth", "chart", "--out", folder, "--pairs", 8)
    assert status == 0, stderr
    pairs = [(str(folder / f"pair_{k}_main.png"), str(folder / f"pair_{k}_second.png")) for k in range(8)]
    return folder, pairs


@pytest.fixture(scope="session")
def chart_arrays():
    """The same eight pairs from the module."""
    return qlm.synth_chart(pairs=8, size=(2000, 1500), seed=1)
