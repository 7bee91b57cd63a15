"""The reverberation time from a decay of known time, the plot, and the example script."""

import doctest
import os
import subprocess
import sys

import numpy as np
import pytest

import quendarik


def test_reverberation_time_of_an_exponential_decay():
    rate = 16000
    rt = 0.4
    t = np.arange(int(rate * 0.6)) / rate
    noise = np.random.default_rng(3).standard_normal(t.size)
    # Energy falls 60 dB in rt seconds: the amplitude by 10^(-3 t / rt).
    ir = noise * 10.0 ** (-3.0 * t / rt)
    assert quendarik.reverberation_time(ir, rate) == pytest.approx(rt, rel=0.05)
    assert quendarik.reverberation_time(np.stack([ir, ir]), rate, drop_db=30) == \
        pytest.approx(rt, rel=0.05)
    with pytest.raises(ValueError):
        quendarik.reverberation_time(np.zeros(100), rate)
    with pytest.raises(ValueError):
        quendarik.reverberation_time(np.ones(100), rate)  # falls, but not 25 dB


def test_plot_writes_a_png(tmp_path):
    pytest.importorskip("matplotlib")
    ir = np.zeros((2, 441), dtype=np.float32)
    ir[:, 100] = [0.5, 0.3]
    echo = np.zeros(441, dtype=np.float32)
    echo[100] = 0.5
    path = tmp_path / "ir.png"
    quendarik.plot_response(ir, echogram=echo, rate=44100, path=str(path), title="test")
    assert path.read_bytes()[:8] == b"\x89PNG\r\n\x1a\n"
    with pytest.raises(ValueError):
        quendarik.plot_response(np.zeros(10))


def test_package_docstring_example_runs(hrtf):
    failures, tried = doctest.testmod(quendarik, verbose=False)
    assert tried > 0 and failures == 0


def test_room_response_example(hrtf, tmp_path):
    pytest.importorskip("matplotlib")
    script = os.path.join(os.environ["QK_TEST_SOURCE_ROOT"], "examples", "python",
                          "room_response.py")
    out = tmp_path / "room.png"
    run = subprocess.run([sys.executable, script, "--out", str(out), "--order", "4",
                          "--hrtf", hrtf], capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    assert "Reverberation time" in run.stdout
    assert out.read_bytes()[:4] == b"\x89PNG"
