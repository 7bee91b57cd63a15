// The extension module _quendarik: the engine, the one-call responses and the library's
// failures as quendarik.Error. The package quendarik (python/quendarik) re-exports them.
#include <pybind11/stl.h>

#include "PyEngine.h"
#include "PyResponse.h"

namespace py = pybind11;
using qkpy::Point;
using qkpy::PyEngine;

namespace {
const char *const kEngineDoc = R"(An engine that renders a scene for headphones, block by block.

Engine(rate=48000, block=512, hrtf=None, threads=0, convolution="whole", limiter=True)

rate: samples per second (8000 to 192000; HRTF sets are resampled to it).
block: frames per block (1 to 32768); ``render`` makes whole blocks.
hrtf: a .qkhrtf or .sofa file, or None for the library's default set (raises
    quendarik.Error when it can't be loaded).
threads: threads rendering the sources (0: the machine's cores).
convolution: "whole" (the library's default; hears a room response only up to about two
    blocks) or "partitioned" (hears long responses whole at any block).
limiter: the library's output limiter, which turns the gain down for good when a block
    would exceed full scale (1.0).

Coordinates are metres: x across (+x to the right when looking along +y), y along, z up; a
shoe box is centred on x = 0 and y = 0 with its floor at z = 0. Samples are float32 with
full scale 1.0. Moves and listener changes between blocks take effect at the next block.
Use it as a context manager, or call close().)";

const char *const kBrirDoc =
    R"(The binaural room response from a source to a listener in a shoe box.

brir(room, source, listener, order=2, rate=44100, hrtf=None, model=1)

room: (width, depth, height) in metres; source, listener: (x, y, z) in metres, the listener
looking along +y. order: the highest order of reflections (0 to 30). model: 1 the image
model, 2 with the late reverb, 3 one HRTF and the late reverb. Returns a float32 array of
shape (2, n): left and right ear. Raises quendarik.Error with the library's message.)";

const char *const kEchogramDoc = R"(The room model's echogram for the response brir() gives.

echogram(room, source, listener, order=2, rate=44100, hrtf=None, model=1)

One impulse per image source at its delay, of its distance gain (1/d beyond a metre). Returns
a float32 array of shape (n,).)";
}  // namespace

PYBIND11_MODULE(_quendarik, m) {
    m.doc() = "Quendarik's engine, bound to Python through the library's C interface.";
    static py::exception<qkpy::Error> error(m, "Error", PyExc_RuntimeError);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) {
                std::rethrow_exception(p);
            }
        } catch (const qkpy::Error &e) {
            // An instance of quendarik.Error with the library's message and its code.
            py::object value = py::reinterpret_borrow<py::object>(error.ptr())(e.what());
            value.attr("code") = e.Code();
            PyErr_SetObject(error.ptr(), value.ptr());
        }
    });
    m.def("version", &qk_version, "The library's version, \"MAJOR.MINOR.PATCH\".");

    py::class_<PyEngine>(m, "Engine", kEngineDoc)
        .def(py::init<int, int, py::object, int, const std::string &, bool>(),
             py::arg("rate") = 48000, py::arg("block") = 512, py::arg("hrtf") = py::none(),
             py::arg("threads") = 0, py::arg("convolution") = "whole", py::arg("limiter") = true)
        .def_property_readonly("rate", &PyEngine::Rate, "Samples per second.")
        .def_property_readonly("block", &PyEngine::Block, "Frames per block.")
        .def("close", &PyEngine::Close, "Stops the engine and frees it; nothing works after.")
        .def(
            "__enter__", [](PyEngine &self) -> PyEngine & { return self; },
            py::return_value_policy::reference)
        .def("__exit__", [](PyEngine &self, py::args) { self.Close(); })
        .def("set_room", &PyEngine::SetRoom, py::arg("width"), py::arg("depth"), py::arg("height"),
             "A shoe box, sides in metres (0.1 to 1000).")
        .def("set_preset", &PyEngine::SetPreset, py::arg("preset"),
             "A preset room, 1 to 6: shoe boxes of 2, 6 and 10 m, trapezia of 2, 6 and 10 m.")
        .def("load_world", &PyEngine::LoadWorld, py::arg("path"),
             "A room from a world text file or a .qkworld archive.")
        .def("set_model", &PyEngine::SetModel, py::arg("model") = 1, py::arg("order") = 2,
             "The room model (0 free field, 1 images, 2 images and late reverb, 3 one HRTF "
             "and late reverb) and the highest order of reflections (0 to 30).")
        .def("set_hrtf", &PyEngine::SetHRTF, py::arg("hrtf") = py::none(),
             "Loads an HRTF set (.qkhrtf or .sofa; None: the library's default).")
        .def("add_array", &PyEngine::AddArray, py::arg("samples"), py::arg("loop") = false,
             "A source that plays a mono array (full scale 1.0) from the next block on, once "
             "or in a loop. Returns its id.")
        .def("add_file", &PyEngine::AddFile, py::arg("path"),
             "A source that plays a WAV, MP3 or AC-3 file. Returns its id.")
        .def("add_noise", &PyEngine::AddNoise, py::arg("rms") = 0.1f,
             "A source of white Gaussian noise of that rms level. Returns its id.")
        .def("add_host", &PyEngine::AddHost,
             "A source fed by process(): the k-th host source takes row k. Returns its id.")
        .def("add_vsource", &PyEngine::AddVsource, py::arg("source"), py::arg("position"),
             "A virtual source playing a source at (x, y, z) metres. Returns its id.")
        .def("remove", &PyEngine::Remove, py::arg("vsource"), "Removes a virtual source.")
        .def("move", &PyEngine::Move, py::arg("vsource"), py::arg("position"),
             "Moves a virtual source to (x, y, z) metres from the next block on.")
        .def("set_listener", &PyEngine::SetListener, py::arg("position") = Point{0, 0, 0},
             py::arg("yaw") = 0.0f, py::arg("pitch") = 0.0f, py::arg("roll") = 0.0f,
             "Places the listener at (x, y, z) metres, turned by yaw (degrees about +z from "
             "+y, anticlockwise seen from above) and pitch (degrees up). The library's "
             "listener has no roll: it is accepted and has no effect.")
        .def("render", &PyEngine::Render, py::arg("seconds"), py::arg("on_block") = py::none(),
             "Renders at least `seconds` of sound, in whole blocks, as a float32 array of shape "
             "(2, n). on_block(t), when given, is called before each block with its start "
             "time in seconds, to move things. Runs without the GIL.")
        .def("process", &PyEngine::Process, py::arg("block"),
             "Feeds the host sources one block (shape (n,) for the first, or (k, n) for the "
             "first k) and returns the rendered block, shape (2, n). Runs without the GIL.")
        .def("response", &PyEngine::Response, py::arg("vsource"),
             "The binaural room response the virtual source was last rendered with, (2, n).")
        .def("echogram", &PyEngine::Echogram, py::arg("vsource"),
             "The room model's echogram for that response, (n,).");

    m.def("brir", &qkpy::Brir, kBrirDoc, py::arg("room"), py::arg("source"), py::arg("listener"),
          py::arg("order") = 2, py::arg("rate") = 44100, py::arg("hrtf") = py::none(),
          py::arg("model") = 1);
    m.def("echogram", &qkpy::EchogramOnce, kEchogramDoc, py::arg("room"), py::arg("source"),
          py::arg("listener"), py::arg("order") = 2, py::arg("rate") = 44100,
          py::arg("hrtf") = py::none(), py::arg("model") = 1);
}
