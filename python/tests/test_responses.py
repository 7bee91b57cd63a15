"""brir() and echogram(): shapes, the direct sound where geometry puts it, and failures."""

import math

import numpy as np
import pytest

import quendarik

ROOM = (5.0, 4.0, 3.0)
SOURCE = (1.0, 1.5, 1.2)
LISTENER = (0.0, -0.5, 1.2)
DISTANCE = math.sqrt(1.0 + 4.0)


def first_impulse(echo):
    return int(np.flatnonzero(echo)[0])


@pytest.mark.parametrize("rate", [44100, 48000])
def test_direct_sound_comes_at_its_time_of_flight_with_its_distance_gain(hrtf, rate):
    echo = quendarik.echogram(room=ROOM, source=SOURCE, listener=LISTENER, order=2, rate=rate,
                              hrtf=hrtf)
    assert echo.dtype == np.float32 and echo.ndim == 1
    first = first_impulse(echo)
    # The speed of sound follows the room's temperature: within 2 % of 343 m/s.
    assert first == pytest.approx(DISTANCE / 343.0 * rate, rel=0.02)
    assert echo[first] == pytest.approx(1.0 / DISTANCE, abs=0.01)

    ir = quendarik.brir(room=ROOM, source=SOURCE, listener=LISTENER, order=2, rate=rate,
                        hrtf=hrtf)
    assert ir.dtype == np.float32 and ir.shape[0] == 2 and ir.shape[1] > first
    # Nothing reaches the ears before the direct sound (the HRTFs' own onset adds a little).
    assert np.all(ir[:, : first // 2] == 0.0)
    # The source is on the right: the right ear takes more energy.
    assert np.sum(ir[1] ** 2) > np.sum(ir[0] ** 2)


def test_higher_orders_add_reflections(hrtf):
    counts = [np.count_nonzero(quendarik.echogram(room=ROOM, source=SOURCE, listener=LISTENER,
                                                  order=order, hrtf=hrtf))
              for order in (0, 1, 3)]
    assert counts[0] == 1
    assert counts[0] < counts[1] < counts[2]


def test_the_default_set_is_found_as_the_library_finds_it(hrtf):
    ir = quendarik.brir(room=ROOM, source=SOURCE, listener=LISTENER, order=1)
    assert np.array_equal(ir, quendarik.brir(room=ROOM, source=SOURCE, listener=LISTENER,
                                             order=1, hrtf=hrtf))


def test_failures_raise_the_librarys_message(hrtf):
    with pytest.raises(quendarik.Error, match="/nonexistent/set.qkhrtf") as caught:
        quendarik.brir(room=ROOM, source=SOURCE, listener=LISTENER, hrtf="/nonexistent/set.qkhrtf")
    assert caught.value.code == -2
    with pytest.raises(quendarik.Error, match="shoe box"):
        quendarik.brir(room=(5.0, -1.0, 3.0), source=SOURCE, listener=LISTENER, hrtf=hrtf)
    with pytest.raises(quendarik.Error, match="order"):
        quendarik.brir(room=ROOM, source=SOURCE, listener=LISTENER, order=99, hrtf=hrtf)
    with pytest.raises(TypeError):
        quendarik.brir(room=(5.0, 4.0), source=SOURCE, listener=LISTENER)
