"""The streaming engine: sources from arrays, noise and files, moves between blocks, the
host-fed road, and rendering without the GIL."""

import os
import threading
import wave

import numpy as np
import pytest

import quendarik


def energies(block):
    return np.sum(block.astype(np.float64) ** 2, axis=1)


def test_render_gives_whole_blocks_and_follows_moves(hrtf):
    with quendarik.Engine(rate=48000, block=256, hrtf=hrtf) as engine:
        assert (engine.rate, engine.block) == (48000, 256)
        vs = engine.add_vsource(engine.add_noise(rms=0.1), position=(-1.0, 0.0, 0.0))
        out = engine.render(seconds=0.05)
        assert out.dtype == np.float32 and out.shape == (2, 2560)
        left, right = energies(out[:, 1024:])
        assert left > 4 * right  # the source is on the left
        times = []

        def to_the_right(t):
            times.append(t)
            engine.move(vs, (1.0, 0.0, 0.0))

        out = engine.render(seconds=0.02, on_block=to_the_right)
        assert times == pytest.approx([i * 256 / 48000 for i in range(4)])
        out = engine.render(seconds=0.02)
        left, right = energies(out)
        assert right > 4 * left


def test_listener_turns_by_yaw(hrtf):
    with quendarik.Engine(rate=44100, block=512, hrtf=hrtf) as engine:
        engine.add_vsource(engine.add_noise(), position=(0.0, 2.0, 0.0))
        engine.set_listener(position=(0.0, 0.0, 0.0), yaw=90.0)
        left, right = energies(engine.render(seconds=0.1)[:, 2048:])
        assert right > 4 * left  # ahead of the room is now on the listener's right


def test_process_streams_as_an_array_source_renders(hrtf):
    rng = np.random.default_rng(7)
    signal = (0.1 * rng.standard_normal(512 * 6)).astype(np.float32)
    with quendarik.Engine(block=512, hrtf=hrtf) as streamed, \
            quendarik.Engine(block=512, hrtf=hrtf) as whole:
        for engine in (streamed, whole):
            engine.set_room(5, 4, 3)
            engine.set_model(model=1, order=1)
        streamed.add_vsource(streamed.add_host(), position=(1.0, 1.0, 1.2))
        whole.add_vsource(whole.add_array(signal), position=(1.0, 1.0, 1.2))
        pieces = [streamed.process(signal[i:i + 512]) for i in range(0, signal.size, 512)]
        assert all(p.shape == (2, 512) and p.dtype == np.float32 for p in pieces)
        np.testing.assert_array_equal(np.concatenate(pieces, axis=1), whole.render(seconds=6 * 512 / 48000))
        with pytest.raises(ValueError, match="host sources"):
            streamed.process(np.zeros((2, 512), dtype=np.float32))
        # Other dtypes are converted; a longer block is rendered in pieces.
        assert streamed.process(np.zeros(1300)).shape == (2, 1300)


def test_files_worlds_and_closing(hrtf, tmp_path):
    path = str(tmp_path / "tone.wav")
    with wave.open(path, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(48000)
        tone = (8000 * np.sin(np.arange(4800) * 0.05)).astype("<i2")
        w.writeframes(tone.tobytes())
    world = os.path.join(os.environ["QK_TEST_SOURCE_ROOT"], "data", "worlds", "lshape.txt")
    engine = quendarik.Engine(hrtf=hrtf)
    engine.load_world(world)
    engine.set_model(model=1, order=1)
    engine.add_vsource(engine.add_file(path), position=(0.5, 1.0, 1.2))
    engine.set_listener(position=(0.0, 0.0, 1.2))
    out = engine.render(seconds=0.1)
    assert np.max(np.abs(out)) > 0.0
    with pytest.raises(quendarik.Error, match="missing.wav"):
        engine.add_file(str(tmp_path / "missing.wav"))
    with pytest.raises(quendarik.Error, match="describes no room"):
        (tmp_path / "empty.txt").write_text("")
        engine.load_world(str(tmp_path / "empty.txt"))
    engine.close()
    with pytest.raises(quendarik.Error, match="closed"):
        engine.render(seconds=0.1)
    engine.close()  # twice is fine


def test_render_releases_the_gil(hrtf):
    with quendarik.Engine(block=512, hrtf=hrtf, threads=1) as engine:
        for i in range(16):
            engine.add_vsource(engine.add_noise(), position=(np.cos(i), np.sin(i), 0.0))
        engine.render(seconds=0.05)
        done = threading.Event()
        counted = [0]

        def render():
            engine.render(seconds=1.0)
            done.set()

        worker = threading.Thread(target=render)
        worker.start()
        while not done.is_set():
            counted[0] += 1
        worker.join()
        # Python ran all along: with the GIL held it would have had a few switch slices only.
        assert counted[0] > 10000
        # What changes the engine's arrays waits for no render: it is refused meanwhile.
        worker = threading.Thread(target=engine.render, args=(1.0,))
        worker.start()
        refused = False
        while worker.is_alive() and not refused:
            try:
                engine.add_array(np.zeros(10, dtype=np.float32))
            except quendarik.Error as error:
                refused = "another thread" in str(error)
        worker.join()
        assert refused
