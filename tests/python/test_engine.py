"""The exported path through qlm.Engine against the C exports and qlm-calib refine."""
import ctypes
import pathlib

import numpy as np
import pytest

import qlm
from conftest import SERVICE_LIBRARY, run_tool, tool_error


@pytest.fixture
def scene(tmp_path):
    """qlm-calib's refine scene, seed 1, written by the tool."""
    status, _, stderr = run_tool("synth", "scene", "--out", tmp_path / "scene")
    assert status == 0, stderr
    return tmp_path / "scene"


def test_version_is_the_library_version():
    status, stdout, _ = run_tool("version")
    assert status == 0
    assert stdout.splitlines()[0] == "library version 265 (0x109)"
    assert qlm.version() == 265


def test_scene_arrays_are_the_tool_files(scene):
    data = qlm.synth_scene(size=(2000, 1500), seed=1)
    assert data.params == (scene / "params.txt").read_text()
    assert data.record.bytes == (scene / "record.bin").read_bytes()
    assert data.main.shape == (1500, 2000) and data.main.dtype == np.uint8


def c_exports_result(scene, main, second, pictures, monkeypatch):
    """INIT, PROCESS and GET_RESULT of the shared library through ctypes, as qlm-calib refine calls them: the
    record as the caller's, no file record."""
    library = ctypes.CDLL(SERVICE_LIBRARY)
    init = library["_Z14QLM_Calib_INITPhS_S_iiii"]
    process = library["_Z17QLM_Calib_PROCESSPhS_iiiii"]
    result = library["_Z20QLM_Get_Calib_ResultPh"]
    monkeypatch.setenv("QLM_PICTURES_DIR", str(pictures))
    record = ctypes.create_string_buffer((scene / "record.bin").read_bytes(), 15252)
    assert init(str(scene / "params.txt").encode(), b"", record, 0, 0, 0, 0) == -2
    rows, columns = main.shape
    code = process(main.ctypes.data_as(ctypes.c_char_p), second.ctypes.data_as(ctypes.c_char_p),
                   columns, rows, columns, rows, 0)
    out = ctypes.create_string_buffer(15252)
    assert result(out) == 1
    return code, out.raw


def test_engine_gives_the_record_of_the_c_exports_and_the_tool(scene, tmp_path, monkeypatch):
    data = qlm.synth_scene()
    engine = qlm.Engine(pictures_dir=tmp_path / "engine")
    assert engine.init(scene / "params.txt", "", data.record.bytes) == -2
    code = engine.process(data.main, data.second)
    assert code == 1
    record = engine.get_result()
    assert record.refine_count == 1

    exports_code, exports_bytes = c_exports_result(scene, data.main, data.second, tmp_path / "exports", monkeypatch)
    assert exports_code == code
    assert exports_bytes == record.bytes

    status, _, stderr = run_tool("refine", "--params", scene / "params.txt", "--record", scene / "record.bin",
                                 "--out", tmp_path / "result.bin", scene / "main.png", scene / "second.png")
    assert status == 0, stderr
    assert (tmp_path / "result.bin").read_bytes() == record.bytes
    assert (tmp_path / "engine" / "log.txt").read_text() == (tmp_path / "exports" / "log.txt").read_text()


def test_record_fields_are_read_from_their_offsets():
    data = bytearray(15252)
    data[48:52] = np.float32(-12.5).tobytes()
    data[112:148] = np.arange(9, dtype="<f4").tobytes()
    data[15222] = 7
    record = qlm.Record(bytes(data))
    assert record.offset_x == -12.5
    assert record.h_otp.tolist() == [[0, 1, 2], [3, 4, 5], [6, 7, 8]]
    assert record.refine_count == 7
    assert bytes(record) == bytes(data)


def test_engine_failures_answer_as_the_exports(tmp_path):
    engine = qlm.Engine()
    assert engine.init(tmp_path / "missing.txt", tmp_path / "missing.bin") == -1
    with pytest.raises(qlm.StationError) as error:
        qlm.Record(b"short")
    assert str(error.value) == "record: expected 15252 bytes, got 5"


@pytest.mark.parametrize("main, message", [
    (np.zeros((64, 64), np.float32), "main: expected dtype uint8, got float32"),
    (np.zeros((64, 64, 3), np.uint8), "main: expected a 2-D array (rows, columns), got 3 dimensions"),
    (np.zeros((64, 128), np.uint8)[:, ::2], "main: not C-contiguous (numpy.ascontiguousarray gives a packed copy)"),
    ([[0, 1], [2, 3]], "main: expected a numpy array, got list"),
])
def test_process_refuses_arrays_it_cannot_read(main, message):
    with pytest.raises(qlm.StationError) as error:
        qlm.Engine().process(main, np.zeros((64, 64), np.uint8))
    assert str(error.value) == message


def test_tool_messages_pass_through_unchanged(tmp_path):
    missing = str(tmp_path / "missing_main.png")
    expected = tool_error("chart", "--params", tmp_path / "p.txt", missing, missing + "2")
    with pytest.raises(qlm.StationError) as error:
        qlm.calibrate_chart([(missing, missing + "2")], params=tmp_path / "p.txt")
    assert str(error.value) == expected


def test_the_stub_and_docstrings_cover_every_public_name():
    stub = (pathlib.Path(qlm.__file__).parent / "qlm.pyi").read_text()
    for name in [name for name in dir(qlm) if not name.startswith("_")]:
        declared = [f"def {name}(", f"class {name}(", f"class {name}:", f"\n{name}: "]
        assert any(declaration in stub for declaration in declared), name
        assert getattr(qlm, name).__doc__ or isinstance(getattr(qlm, name), int), name
