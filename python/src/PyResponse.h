// One source's room response heard by a listener in a shoe box, made by an engine of its own
// without the interpreter's lock.
#pragma once

#include "PyEngine.h"

namespace qkpy {

// The binaural response, shape (2, n).
py::array_t<float> Brir(Point room, Point source, Point listener, int iOrder, int iRate,
                        py::object hrtf, int iModel);
// The room model's echogram of the same response, shape (n,).
py::array_t<float> EchogramOnce(Point room, Point source, Point listener, int iOrder, int iRate,
                                py::object hrtf, int iModel);

}  // namespace qkpy
