"""Quendarik: real-time 3-D audio in rooms, rendered for headphones.

Arrays are NumPy float32 arrays of shape (channels, samples), full scale 1.0; coordinates are
metres (x across, y along, z up; a shoe box centred on x = 0 and y = 0, its floor at z = 0).
Failures raise quendarik.Error with the library's message.

>>> import quendarik
>>> ir = quendarik.brir(room=(5, 4, 3), source=(1, 1.5, 1.2), listener=(0, 0, 1.2), order=2)
>>> ir.shape[0], ir.dtype.name
(2, 'float32')
>>> with quendarik.Engine(rate=48000, block=512) as engine:
...     engine.set_room(5, 4, 3)
...     engine.set_model(model=1, order=2)
...     vs = engine.add_vsource(engine.add_noise(rms=0.05), position=(1, 1, 1.2))
...     engine.set_listener(position=(0, 0, 1.2))
...     sound = engine.render(seconds=0.1)
>>> sound.shape
(2, 5120)
"""

from ._quendarik import Engine, Error, brir, echogram, version
from ._analysis import reverberation_time
from ._plot import plot_response

__version__ = version()
__all__ = ["Engine", "Error", "brir", "echogram", "version", "reverberation_time",
           "plot_response"]
