"""The module for Python over the emulated and the simulated instrument."""

import os
import shutil
import subprocess
import sys
import threading
from pathlib import Path

import numpy as np
import pytest

import tornval

RECORDING = Path(__file__).resolve().parents[2] / "examples/three-channel-recording.txt"


def test_measures_and_calibration(tornval_emulator):
    with tornval_emulator.instrument() as instrument:
        assert [driver.link_type for driver in instrument.drivers] == ["IM", "MO"]
        assert instrument.measure(2) == 3002
        assert instrument.measure_on(instrument.driver("IM"), 12) == 13012
        assert instrument.microohm() == 123456
        assert instrument.microohm_all() == (123456, -2345, 67)
        assert instrument.calibration().shape == (13, 2)
        np.testing.assert_array_equal(instrument.calibration()[2], [10000, 0])
    # The board stores its calibration; a new load has it, and the library has started anew.
    with tornval_emulator.instrument() as instrument:
        board = instrument.driver("IM")
        instrument.exchange(board, 215)
        instrument.exchange(board, 213, b"".join(
            number.to_bytes(4, "little") for number in (2, 20000, 100)))
        instrument.exchange(board, 214)
    with tornval_emulator.instrument() as instrument:
        np.testing.assert_array_equal(instrument.calibration()[2], [20000, 100])
        assert instrument.measure(2) == 6004
        assert instrument.measure(2, calibrated=False) == 3002


def test_uploads_are_arrays_by_channel(tmp_path):
    with tornval.Emulator(tmp_path, recording=RECORDING) as emulator:
        with emulator.instrument() as instrument:
            played = instrument.upload(blocks=14)
    home = tmp_path / "simulated"
    home.mkdir()
    (home / "TornvalC63.ini").write_text(f"[IM]\nSIMU=1\nDAT_SIMU_FILE={RECORDING}\n")
    with tornval.Instrument(home=home) as instrument:
        assert instrument.measure(2) == 1234
        simulated = instrument.upload(blocks=14)
    for channels in (played, simulated):
        assert [(samples.dtype, samples.size) for samples in channels] == [(np.int32, 4200)] * 3
    # Two instruments that know nothing of each other play one recording.
    for one, other in zip(played[:2], simulated[:2]):
        assert np.abs(one - other).max() <= 1


def test_probes(tmp_path):
    with tornval.Emulator(tmp_path, probes=True) as emulator:
        with emulator.instrument() as instrument:
            both = instrument.record(instrument.driver("BT"), reads=3, channel=1, interval=0)
            assert [samples.size for samples in both] == [150, 150]
            assert instrument.record(instrument.driver("USB"), 1)[1].size == 0
            emulator.set("bt", "send-fails=31@33")
            with pytest.raises(tornval.TornvalError) as failed:
                instrument.record(instrument.driver("BT"), reads=1)
            assert failed.value.result.last_error == 31


@pytest.mark.parametrize("fault, words, result", [
    ("error-code=17@212*1", "code 17", (3, 5, 0, 17, 1)),
    ("send-fails=31*1", "31 (0x1F)", (3, 2, 31, 0, 1)),
    ("short=9*1", "does not decode", (3, 5, 0, 0, 1)),
])
def test_a_failure_carries_record_and_words(tornval_emulator, tornval_instrument, fault, words,
                                            result):
    tornval_emulator.set("board", fault)
    with pytest.raises(tornval.TornvalError) as failed:
        tornval_instrument.measure(2)
    assert words in str(failed.value)
    assert failed.value.result == result
    assert tornval_instrument.measure(2) == 3002


def test_a_time_out_is_one(tornval_emulator, tornval_instrument):
    tornval_emulator.set("board", "no-answer*1")
    with pytest.raises(TimeoutError):
        tornval_instrument.measure(2)
    assert tornval_instrument.measure(2) == 3002


def test_a_load_that_fails_says_why_and_leaves_nothing(tmp_path, tornval_emulator):
    (tmp_path / "TornvalC63.ini").write_text("[IM]\nDRIVER_NAME=no_such_link.so\n")
    with pytest.raises(tornval.TornvalError) as failed:
        tornval.Instrument(home=tmp_path).__enter__()
    assert any("no_such_link.so" in reason.text for reason in failed.value.reasons)
    assert os.environ.get("TORNVAL_HOME") != str(tmp_path)
    with tornval.Instrument(home=tmp_path, partial=True) as instrument:
        assert instrument.drivers == []
        with pytest.raises(RuntimeError):
            tornval.Instrument(home=tmp_path).__enter__()
        with pytest.raises(tornval.TornvalError, match="no driver"):
            instrument.upload()
    with pytest.raises(tornval.TornvalError, match="not open"):
        instrument.measure(2)
    with pytest.raises(ValueError):
        tornval_emulator.set("printer", "late=1")


def test_threads(tornval_instrument):
    wrong = []

    def work():
        for _ in range(20):
            if tornval_instrument.measure(2) != 3002:
                wrong.append("measure")
            if tornval_instrument.exchange(tornval_instrument.driver("MO"), 161).words[0] != 123456:
                wrong.append("exchange")

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert wrong == []


def test_words():
    assert tornval.step_name(2) == "send of a command"
    assert "milliohm" in tornval.driver_type_name(4)
    assert "126 (0x7E)" in tornval.system_error_name(126)
    assert "upload" in tornval.command_name(211)


def test_refuses_libraries_that_do_not_match(tmp_path):
    def import_error(**environment):
        done = subprocess.run([sys.executable, "-c", "import tornval"], text=True,
                              env={**os.environ, **environment}, stderr=subprocess.PIPE)
        assert done.returncode != 0
        assert "ImportError" in done.stderr
        return done.stderr

    assert "/nowhere" in import_error(TORNVAL_LIBRARY_DIR="/nowhere")
    shutil.copytree(Path(tornval.__file__).parent, tmp_path / "tornval")
    (tmp_path / "tornval/_version.py").write_text('__version__ = "0.999.0"\n')
    assert "of version 0.999.0, but the libraries" in import_error(
        PYTHONPATH=str(tmp_path), TORNVAL_LIBRARY_DIR=str(tornval.library_folder()))
