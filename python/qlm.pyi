"""Dual-camera calibration for station scripts: the library's exported path, chessboard stereo calibration,
verification, the YUV warp and synthetic data with ground truth. Every failure raises StationError (StorageError
when the run's files could not be stored) with qlm-calib's message; no file of a failed run is left behind."""
import os
from typing import Any, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

PathLike = Union[str, os.PathLike]
Image = npt.NDArray[np.uint8]  # 2-D, C-contiguous
Pair = Union[Tuple[PathLike, PathLike], Tuple[Image, Image]]

RECORD_SIZE: int  # 15252


class StationError(Exception):
    """Bad input or any other failure: qlm-calib's exit status 2, with its message."""


class StorageError(StationError):
    """The run's files could not be stored: qlm-calib's exit status 4."""


def version() -> int:
    """The library version, 265 (0x109)."""


class Record:
    """The 15252-byte calibration record."""
    def __init__(self, data: bytes) -> None: ...
    @property
    def bytes(self) -> bytes: ...
    @property
    def offset_x(self) -> float:
        """fOffsetX (offset 48), hundredths of a pixel."""
    @property
    def h_otp(self) -> npt.NDArray[np.float32]:
        """H_OTP (offsets 112..147), 3x3, main to second image pixels."""
    @property
    def refine_count(self) -> int:
        """nRefineCount (offset 15222)."""
    def __bytes__(self) -> bytes: ...


class Engine:
    """An engine of its own, driven as a factory tool drives the library: init, process, get_result."""
    def __init__(self, pictures_dir: Optional[PathLike] = None) -> None:
        """pictures_dir: where log.txt and defaultParameters.txt go (default QLM_PICTURES_DIR, else
        /sdcard/Pictures/ when it exists, else ./qlm-output/)."""
    @property
    def pictures_dir(self) -> str: ...
    def init(self, params: PathLike, record_file: PathLike, record: Optional[bytes] = None,
             a: int = 0, b: int = 0, c: int = 0, d: int = 0) -> int:
        """INIT: 1, -1 when the parameters did not load, -2 when the record file could not be opened."""
    def process(self, main: Image, second: Image, record_select: int = 0) -> int:
        """PROCESS on one pair (GIL released): -4, -5, 0 or 1."""
    def get_result(self) -> Record:
        """GET_RESULT."""


class ChartResult:
    """The delivered run of a chart calibration (the one without outliers when drop_outliers ran one)."""
    calibrated: bool
    checks_passed: bool  # the verdict
    exit_status: int  # qlm-calib chart's: 0 or 3
    K1: Optional[npt.NDArray[np.float64]]
    D1: Optional[npt.NDArray[np.float64]]
    K2: Optional[npt.NDArray[np.float64]]
    D2: Optional[npt.NDArray[np.float64]]
    R: Optional[npt.NDArray[np.float64]]
    T: Optional[npt.NDArray[np.float64]]  # shape (3,), units of nSquareSize
    image_size: Optional[list]
    stereo_rms: Optional[float]
    mono_rms: Optional[list]
    view_errors: Optional[dict]  # {"main": [...], "second": [...]}
    view_pairs: list  # each view's pair number, from 1
    outlier_pairs: list
    angles_deg: Optional[list]
    intrinsic_std_dev: Optional[dict]
    stereo_std_dev: Optional[dict]
    row_error: Optional[dict]
    health: Optional[str]
    recapture: Optional[str]
    pair_results: list  # per pair as the corners file names it: "view", "no board", "no board (quick check)", ...
    library_dir: str
    json: dict  # exactly what --json writes


def calibrate_chart(pairs: Optional[Sequence[Pair]] = None, *, params: PathLike,
                    pairs_dir: Optional[PathLike] = None, pairs_file: Optional[PathLike] = None,
                    tables: Optional[Tuple[PathLike, PathLike]] = None, json: Optional[PathLike] = None,
                    save_rectified: Optional[PathLike] = None, report: Optional[PathLike] = None,
                    android_metadata: Optional[PathLike] = None, save_corners: Optional[PathLike] = None,
                    from_corners: Optional[PathLike] = None, opencv: Optional[PathLike] = None,
                    ros: Optional[PathLike] = None, pairing: str = "grid", corners: str = "any-scale",
                    quick_check: bool = True, strict_translation: bool = False, drop_outliers: bool = False,
                    folds: int = 10, square_mm: Optional[float] = None, sensor_orientation: int = 90,
                    good_row_error: float = 0.3, improvable_row_error: float = 0.5,
                    pictures_dir: Optional[PathLike] = None) -> ChartResult:
    """qlm-calib chart: the same options (underscores for dashes), the same files, committed together only when
    the run succeeds. pairs: (main, second) file names, or 2-D uint8 arrays named pairs[k][0] in messages and
    files. The GIL is released while it runs, so threads calibrate units at once (runs with tables take turns);
    give each thread its own pictures_dir, as the library writes calibrationResult.txt under one name."""


class VerifyResult:
    passed: bool
    exit_status: int  # qlm-calib verify's: 0 or 5
    row_error: dict
    epipolar_error: dict
    health: str
    no_board_pairs: list
    json: dict  # exactly what --json writes


def verify(pairs: Optional[Sequence[Pair]] = None, *, params: PathLike, calibration: Optional[PathLike] = None,
           opencv: Optional[Tuple[PathLike, PathLike]] = None, pairs_dir: Optional[PathLike] = None,
           pairs_file: Optional[PathLike] = None, json: Optional[PathLike] = None, map: Optional[PathLike] = None,
           max_row_error: float = 0.0, good_row_error: float = 0.3,
           improvable_row_error: float = 0.5) -> VerifyResult:
    """qlm-calib verify: a chart JSON (calibration) or OpenCV's two files (opencv) checked on board pairs."""


def warp_yuv(frame: npt.NDArray[np.uint8], size: Tuple[int, int], out_size: Tuple[int, int],
             source_camera: Sequence[float], target_camera: Sequence[float],
             radial: Sequence[float] = (0, 0, 0), rotation: Sequence[float] = (1, 0, 0, 0, 1, 0, 0, 0, 1),
             forward: Sequence[float] = (0, 0, 1),
             source: Sequence[float] = (0, 0, 1)) -> Tuple[npt.NDArray[np.uint8], float]:
    """qlm-calib warp-yuv on one 4:2:0 frame (W*H luma then W*(H/2) interleaved chroma bytes, any shape):
    (the output frame as a (H*3/2, W) array, zoom). Sizes are (width, height), even."""


class SyntheticScene:
    main: Image
    second: Image
    record: Record
    params: str
    truth: dict


def synth_scene(size: Tuple[int, int] = (2000, 1500), seed: int = 1) -> SyntheticScene:
    """qlm-calib synth scene as arrays."""


class SyntheticChart:
    pairs: list  # [(main, second), ...]
    params: str
    truth: dict  # ground_truth.json


def synth_chart(pairs: int = 8, size: Tuple[int, int] = (2000, 1500), seed: int = 1,
                main_lens: Optional[Sequence[float]] = None, second_lens: Optional[Sequence[float]] = None,
                placement: str = "centre") -> SyntheticChart:
    """qlm-calib synth chart as arrays: lenses of 4, 5 or 8 OpenCV coefficients."""
