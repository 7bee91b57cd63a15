// The C interface: argument checks and results in words around the engine of ApiEngine.h.
// Nothing thrown inside gets out: a function that meets an exception gives a code.
#include <cmath>
#include <cstdlib>
#include <new>

#include "capi/ApiEngine.h"
#include "capi/ApiErrors.h"
#include "quendarik/quendarik.h"

namespace {
constexpr int kMinRate = 8000;
constexpr int kMaxRate = 192000;
constexpr float kMinRoom = 0.1f;  // metres
constexpr float kMaxRoom = 1000.0f;
constexpr int kMaxOrder = 30;
constexpr int kMaxThreads = 64;
constexpr double kPi = 3.14159265358979323846;

// Runs body and turns anything it throws into a code with a text.
template <typename F>
int guarded(F body) {
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return qkc::Fail(QK_E_MEMORY, "out of memory");
    } catch (...) {
        return qkc::Fail(QK_E_ENGINE, "the engine failed unexpectedly");
    }
}

bool finite(float a, float b, float c) {
    return std::isfinite(a) && std::isfinite(b) && std::isfinite(c);
}

int noEngine() {
    return qkc::Fail(QK_E_ARGUMENT, "the engine is NULL");
}

int nullArgument(const char *pcName) {
    return qkc::Fail(QK_E_ARGUMENT, "%s is NULL", pcName);
}
}  // namespace

extern "C" {

const char *qk_version(void) {
    return QK_VERSION_STRING;
}

const char *qk_last_error(void) {
    return qkc::LastError();
}

void qk_set_message_handler(qk_message_fn fn, void *user) {
    qkc::SetMessageHandler(fn, user);
}

qk_engine *qk_engine_create(int sample_rate, int block_frames) {
    if (sample_rate < kMinRate || sample_rate > kMaxRate) {
        qkc::Fail(QK_E_ARGUMENT, "sample rate %d Hz is outside %d to %d", sample_rate, kMinRate,
                  kMaxRate);
        return nullptr;
    }
    if (block_frames < 1 || block_frames > QK_MAX_FRAMES) {
        qkc::Fail(QK_E_ARGUMENT, "block of %d frames is outside 1 to %d", block_frames,
                  QK_MAX_FRAMES);
        return nullptr;
    }
    qk_engine *e = nullptr;
    guarded([&]() -> int {
        e = new qk_engine(sample_rate, block_frames);
        return QK_OK;
    });
    return e;
}

void qk_engine_destroy(qk_engine *e) {
    guarded([&]() -> int {
        delete e;
        return QK_OK;
    });
}

int qk_engine_sample_rate(const qk_engine *e) {
    return e != nullptr ? e->iRate : 0;
}

int qk_engine_block_frames(const qk_engine *e) {
    return e != nullptr ? e->iBlock : 0;
}

int qk_engine_set_hrtf(qk_engine *e, const char *path) {
    if (e == nullptr) {
        return noEngine();
    }
    return guarded([&]() -> int { return e->SetHRTF(path); });
}

int qk_engine_set_shoebox(qk_engine *e, float width, float depth, float height) {
    if (e == nullptr) {
        return noEngine();
    }
    for (float v : {width, depth, height}) {
        if (!(v >= kMinRoom && v <= kMaxRoom)) {
            return qkc::Fail(QK_E_ARGUMENT,
                             "a shoe box of %g x %g x %g m: each side is 0.1 to "
                             "1000 m",
                             static_cast<double>(width), static_cast<double>(depth),
                             static_cast<double>(height));
        }
    }
    return guarded([&]() -> int {
        e->sdk.qk_Wrld_ShoeBox(width, depth, height);
        return QK_OK;
    });
}

int qk_engine_set_preset(qk_engine *e, int preset) {
    if (e == nullptr) {
        return noEngine();
    }
    if (preset < 1 || preset > 6) {
        return qkc::Fail(QK_E_ARGUMENT, "preset room %d: the presets are 1 to 6", preset);
    }
    return guarded([&]() -> int {
        e->sdk.qk_Wrld_Preset(preset);
        return QK_OK;
    });
}

int qk_engine_load_world(qk_engine *e, const char *path) {
    if (e == nullptr) {
        return noEngine();
    }
    if (path == nullptr) {
        return nullArgument("path");
    }
    return guarded([&]() -> int { return e->LoadWorld(path); });
}

int qk_engine_set_model(qk_engine *e, int model, int order) {
    if (e == nullptr) {
        return noEngine();
    }
    if (model < QK_MODEL_FREE_FIELD || model > QK_MODEL_PRECOMPUTED) {
        return qkc::Fail(QK_E_ARGUMENT, "room model %d: the models are 0 to 4", model);
    }
    if (order < 0 || order > kMaxOrder) {
        return qkc::Fail(QK_E_ARGUMENT, "reflection order %d is outside 0 to %d", order, kMaxOrder);
    }
    return guarded([&]() -> int {
        e->sdk.qk_SFM_Set(model);
        e->sdk.qk_Siml_Set_SpecularOrder(order);
        return QK_OK;
    });
}

int qk_engine_set_convolution(qk_engine *e, int method) {
    if (e == nullptr) {
        return noEngine();
    }
    if (method != 0 && method != 1) {
        return qkc::Fail(QK_E_ARGUMENT, "convolution method %d: 0 whole-filter, 1 partitioned",
                         method);
    }
    return guarded(
        [&]() -> int { return e->sdk.qk_Siml_Set_Convolution(method) == 0 ? QK_OK : QK_E_ENGINE; });
}

int qk_engine_set_threads(qk_engine *e, int threads) {
    if (e == nullptr) {
        return noEngine();
    }
    if (threads < 0 || threads > kMaxThreads) {
        return qkc::Fail(QK_E_ARGUMENT, "%d threads: 0 (the cores) or 1 to %d", threads,
                         kMaxThreads);
    }
    return guarded(
        [&]() -> int { return e->sdk.qk_Siml_Set_Threads(threads) == 0 ? QK_OK : QK_E_ENGINE; });
}

int qk_engine_set_file_conversion(qk_engine *e, int band_limited) {
    if (e == nullptr) {
        return noEngine();
    }
    return guarded([&]() -> int {
        e->sdk.qk_Siml_Set_FileResampling(band_limited != 0 ? 1 : 0);
        return QK_OK;
    });
}

int qk_engine_set_limiter(qk_engine *e, int on) {
    if (e == nullptr) {
        return noEngine();
    }
    return guarded([&]() -> int {
        e->sdk.qk_Siml_Set_AGC(on != 0 ? 1 : 0);
        return QK_OK;
    });
}

int qk_source_add_host(qk_engine *e, int *id) {
    if (e == nullptr) {
        return noEngine();
    }
    if (id == nullptr) {
        return nullArgument("id");
    }
    return guarded([&]() -> int { return e->AddHost(*id); });
}

int qk_source_add_file(qk_engine *e, const char *path, int *id) {
    if (e == nullptr) {
        return noEngine();
    }
    if (path == nullptr || id == nullptr) {
        return nullArgument(path == nullptr ? "path" : "id");
    }
    return guarded([&]() -> int { return e->AddFile(path, *id); });
}

int qk_source_add_noise(qk_engine *e, float rms, int *id) {
    if (e == nullptr) {
        return noEngine();
    }
    if (id == nullptr) {
        return nullArgument("id");
    }
    if (!(rms >= 0.0f && rms <= 1.0f)) {
        return qkc::Fail(QK_E_ARGUMENT, "noise level %g is outside 0 to 1",
                         static_cast<double>(rms));
    }
    return guarded([&]() -> int { return e->AddNoise(rms, *id); });
}

int qk_source_push(qk_engine *e, int id, const float *mono, int frames) {
    if (e == nullptr) {
        return noEngine();
    }
    if (frames < 0 || (frames > 0 && mono == nullptr)) {
        return qkc::Fail(QK_E_ARGUMENT, "a push of %d frames from %p", frames,
                         static_cast<const void *>(mono));
    }
    return guarded([&]() -> int { return e->Push(id, mono, frames); });
}

int qk_vsource_add(qk_engine *e, int source, float x, float y, float z, int *id) {
    if (e == nullptr) {
        return noEngine();
    }
    if (id == nullptr) {
        return nullArgument("id");
    }
    if (!finite(x, y, z)) {
        return qkc::Fail(QK_E_ARGUMENT, "a virtual source at a position that isn't a number");
    }
    return guarded([&]() -> int {
        if (!e->HasSource(source)) {
            return qkc::Fail(QK_E_NOT_FOUND, "no source %d in this engine", source);
        }
        e->sdk.qk_Vsrc_Add(*id, source, 0, x, y, z, "vsource");
        return QK_OK;
    });
}

int qk_vsource_remove(qk_engine *e, int id) {
    if (e == nullptr) {
        return noEngine();
    }
    return guarded([&]() -> int {
        int found = 0;
        if (e->sdk.qk_Vsrc_Get_ID(id, found) != 0) {
            return qkc::Fail(QK_E_NOT_FOUND, "no virtual source %d in this engine", id);
        }
        e->sdk.qk_Vsrc_Remove(id);
        return QK_OK;
    });
}

int qk_vsource_move(qk_engine *e, int id, float x, float y, float z) {
    if (e == nullptr) {
        return noEngine();
    }
    if (!finite(x, y, z)) {
        return qkc::Fail(QK_E_ARGUMENT, "a move to a position that isn't a number");
    }
    return guarded([&]() -> int {
        if (e->sdk.qk_Vsrc_Set_Position(id, x, y, z) != 0) {
            return qkc::Fail(QK_E_NOT_FOUND, "no virtual source %d in this engine", id);
        }
        return QK_OK;
    });
}

int qk_listener_set(qk_engine *e, float x, float y, float z, float yaw_deg, float pitch_deg,
                    float roll_deg) {
    if (e == nullptr) {
        return noEngine();
    }
    if (!finite(x, y, z) || !finite(yaw_deg, pitch_deg, roll_deg)) {
        return qkc::Fail(QK_E_ARGUMENT, "a listener pose that isn't a number");
    }
    // The point looked at, a metre ahead: yaw turns from +y towards -x (anticlockwise seen
    // from above), pitch lifts from the horizontal.
    const double yaw = yaw_deg * kPi / 180.0;
    const double pitch = pitch_deg * kPi / 180.0;
    const float lx = x + static_cast<float>(-std::sin(yaw) * std::cos(pitch));
    const float ly = y + static_cast<float>(std::cos(yaw) * std::cos(pitch));
    const float lz = z + static_cast<float>(std::sin(pitch));
    return guarded([&]() -> int {
        e->sdk.qk_Vrcv_Set_Position_LookAt(e->iListener, x, y, z, lx, ly, lz);
        return QK_OK;
    });
}

int qk_engine_render(qk_engine *e, float *left, float *right, int frames) {
    if (e == nullptr) {
        return noEngine();
    }
    if (left == nullptr || right == nullptr) {
        return nullArgument(left == nullptr ? "left" : "right");
    }
    if (frames < 1 || frames > QK_MAX_FRAMES) {
        return qkc::Fail(QK_E_ARGUMENT, "a block of %d frames: 1 to %d", frames, QK_MAX_FRAMES);
    }
    return guarded([&]() -> int { return e->Render(left, right, frames); });
}

int qk_room_response(qk_engine *e, int vsource, float **left, float **right, int *frames) {
    if (e == nullptr) {
        return noEngine();
    }
    if (left == nullptr || right == nullptr || frames == nullptr) {
        return nullArgument(left == nullptr ? "left" : right == nullptr ? "right" : "frames");
    }
    return guarded([&]() -> int { return e->CopyResponse(vsource, true, left, right, frames); });
}

int qk_echogram(qk_engine *e, int vsource, float **data, int *frames) {
    if (e == nullptr) {
        return noEngine();
    }
    if (data == nullptr || frames == nullptr) {
        return nullArgument(data == nullptr ? "data" : "frames");
    }
    return guarded([&]() -> int { return e->CopyResponse(vsource, false, data, nullptr, frames); });
}

void qk_free(void *p) {
    std::free(p);
}

}  // extern "C"
