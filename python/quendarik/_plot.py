"""Drawing responses with matplotlib, an optional dependency."""

import numpy as np


def plot_response(response, echogram=None, rate=44100, path=None, title=None):
    """Draws a binaural response (left and right ear, shape (2, n)) and, when given, its
    echogram in dB, against time in milliseconds. Saves the figure to path when given (the
    format from its suffix, e.g. .png) and returns the matplotlib Figure.

    Needs matplotlib (Debian: python3-matplotlib); raises ImportError without it.
    """
    import matplotlib
    if path is not None:
        matplotlib.use("Agg", force=False)
    import matplotlib.pyplot as plt

    ears = np.asarray(response, dtype=np.float32)
    if ears.ndim != 2 or ears.shape[0] != 2:
        raise ValueError("response must have shape (2, n)")
    rows = 3 if echogram is not None else 2
    figure, axes = plt.subplots(rows, 1, sharex=True, figsize=(9, 2.4 * rows))
    ms = np.arange(ears.shape[1]) * 1000.0 / rate
    for axis, ear, name in zip(axes, ears, ("left", "right")):
        axis.plot(ms, ear, linewidth=0.6)
        axis.set_ylabel(name)
        axis.grid(True, alpha=0.3)
    if echogram is not None:
        gains = np.abs(np.asarray(echogram, dtype=np.float64))
        db = 20.0 * np.log10(np.maximum(gains, 1e-4))
        t = np.arange(gains.size) * 1000.0 / rate
        hits = gains > 1e-4
        axes[2].vlines(t[hits], -80.0, db[hits], linewidth=0.8)
        axes[2].set_ylim(-80.0, 0.0)
        axes[2].set_ylabel("echogram (dB)")
        axes[2].grid(True, alpha=0.3)
    axes[-1].set_xlabel("time (ms)")
    if title:
        axes[0].set_title(title)
    figure.tight_layout()
    if path is not None:
        figure.savefig(path, dpi=100)
    return figure
