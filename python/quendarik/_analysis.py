"""Figures read from room responses."""

import numpy as np


def reverberation_time(response, rate, drop_db=20.0):
    """The reverberation time in seconds from a room response, by Schroeder's backward
    integration (Schroeder 1965): the time the integrated energy takes to fall from -5 dB to
    -5 - drop_db dB, times 60 / drop_db (T20 by default, T30 with drop_db=30).

    response: an array of shape (n,) or (channels, n), whose energies are summed.
    rate: samples per second. Raises ValueError when the decay never falls that far.
    """
    x = np.asarray(response, dtype=np.float64)
    energy = np.square(x) if x.ndim == 1 else np.square(x).sum(axis=0)
    decay = np.cumsum(energy[::-1])[::-1]
    if decay.size == 0 or decay[0] <= 0.0:
        raise ValueError("the response is silent")
    level = 10.0 * np.log10(np.maximum(decay / decay[0], 1e-30))
    start = np.argmax(level <= -5.0)
    below = np.nonzero(level <= -5.0 - drop_db)[0]
    if level[start] > -5.0 or below.size == 0:
        raise ValueError("the decay doesn't fall %g dB below -5 dB" % drop_db)
    end = below[0]
    # A straight line through the decay between the two levels, fitted by least squares.
    t = np.arange(start, end + 1) / float(rate)
    slope = np.polyfit(t, level[start:end + 1], 1)[0]
    if slope >= 0.0:
        raise ValueError("the response doesn't decay")
    return -60.0 / slope
