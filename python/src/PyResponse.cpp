#include "PyResponse.h"

#include <cstring>
#include <string>

namespace qkpy {
namespace {
// The block of the one render that builds the response: short, since only the response is
// wanted.
constexpr int kBlock = 256;

// Builds the scene in an engine of its own, renders one block and takes the response (both
// ears, or the echogram into pfLeft). The result code; the text is this thread's last error.
int makeResponse(Point room, Point source, Point listener, int iOrder, int iRate,
                 const char *pcHrtf, int iModel, bool bBinaural, float **ppfLeft, float **ppfRight,
                 int *piFrames) {
    qk_engine *e = qk_engine_create(iRate, kBlock);
    if (e == nullptr) {
        return QK_E_ARGUMENT;
    }
    int id = 0;
    int vs = 0;
    int r = qk_engine_set_hrtf(e, pcHrtf);
    r = r != QK_OK ? r : qk_engine_set_shoebox(e, room[0], room[1], room[2]);
    r = r != QK_OK ? r : qk_engine_set_model(e, iModel, iOrder);
    r = r != QK_OK ? r : qk_source_add_host(e, &id);
    r = r != QK_OK ? r : qk_vsource_add(e, id, source[0], source[1], source[2], &vs);
    r = r != QK_OK ? r : qk_listener_set(e, listener[0], listener[1], listener[2], 0, 0, 0);
    // The block itself isn't wanted: the render is what builds the response.
    thread_local float t_afLeft[kBlock];
    thread_local float t_afRight[kBlock];
    r = r != QK_OK ? r : qk_engine_render(e, t_afLeft, t_afRight, kBlock);
    if (r == QK_OK) {
        r = bBinaural ? qk_room_response(e, vs, ppfLeft, ppfRight, piFrames)
                      : qk_echogram(e, vs, ppfLeft, piFrames);
    }
    qk_engine_destroy(e);
    return r;
}

py::array_t<float> response(Point room, Point source, Point listener, int iOrder, int iRate,
                            const py::object &hrtf, int iModel, bool bBinaural,
                            const char *pcWhat) {
    std::string path;
    if (!hrtf.is_none()) {
        path = py::str(hrtf).cast<std::string>();
    }
    const char *hrtfPath = hrtf.is_none() ? nullptr : path.c_str();
    float *left = nullptr;
    float *right = nullptr;
    int frames = 0;
    int result = 0;
    {
        py::gil_scoped_release release;
        result = makeResponse(room, source, listener, iOrder, iRate, hrtfPath, iModel, bBinaural,
                              &left, &right, &frames);
    }
    Check(result, pcWhat);
    const size_t bytes = sizeof(float) * static_cast<size_t>(frames);
    if (!bBinaural) {
        py::array_t<float> out(static_cast<py::ssize_t>(frames));
        std::memcpy(out.mutable_data(0), left, bytes);
        qk_free(left);
        return out;
    }
    py::array_t<float> out({py::ssize_t{2}, static_cast<py::ssize_t>(frames)});
    std::memcpy(out.mutable_data(0, 0), left, bytes);
    std::memcpy(out.mutable_data(1, 0), right, bytes);
    qk_free(left);
    qk_free(right);
    return out;
}
}  // namespace

py::array_t<float> Brir(Point room, Point source, Point listener, int iOrder, int iRate,
                        py::object hrtf, int iModel) {
    return response(room, source, listener, iOrder, iRate, hrtf, iModel, true, "brir");
}

py::array_t<float> EchogramOnce(Point room, Point source, Point listener, int iOrder, int iRate,
                                py::object hrtf, int iModel) {
    return response(room, source, listener, iOrder, iRate, hrtf, iModel, false, "echogram");
}

}  // namespace qkpy
