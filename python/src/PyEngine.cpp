#include "PyEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qkpy {

void Check(int result, const char *pcWhat) {
    if (result != QK_OK) {
        const char *text = qk_last_error();
        throw Error(result, std::string(pcWhat) + ": " + (text != nullptr ? text : ""));
    }
}

namespace {
// The C interface's text for a null handle is the only one without a file or a value in it;
// a closed engine says so in Python's terms instead.
qk_engine *checkOpen(qk_engine *e) {
    if (e == nullptr) {
        throw Error(QK_E_STATE, "the engine is closed");
    }
    return e;
}

const char *pathOrNull(const py::object &path, std::string &keep) {
    if (path.is_none()) {
        return nullptr;
    }
    keep = py::str(path).cast<std::string>();
    return keep.c_str();
}
}  // namespace

PyEngine::PyEngine(int iRate, int iBlock, py::object hrtf, int iThreads,
                   const std::string &convolution, bool bLimiter)
    : m_iRate(iRate), m_iBlock(iBlock) {
    if (convolution != "whole" && convolution != "partitioned") {
        throw py::value_error("convolution is 'whole' (the library's default) or 'partitioned'");
    }
    {
        py::gil_scoped_release release;
        m_pEngine = qk_engine_create(iRate, iBlock);
    }
    if (m_pEngine == nullptr) {
        Check(QK_E_ARGUMENT, "Engine");
    }
    try {
        Check(qk_engine_set_threads(m_pEngine, iThreads), "Engine");
        Check(qk_engine_set_convolution(m_pEngine, convolution == "partitioned" ? 1 : 0), "Engine");
        Check(qk_engine_set_limiter(m_pEngine, bLimiter ? 1 : 0), "Engine");
        SetHRTF(std::move(hrtf));
    } catch (...) {
        Close();
        throw;
    }
    m_chunk.assign(static_cast<size_t>(iBlock), 0.0f);
}

PyEngine::~PyEngine() {
    // Nothing renders any more when Python lets the object go: Close can't be refused here.
    m_bBusy.store(false);
    Close();
}

void PyEngine::Close() {
    NotBusy("close");
    qk_engine *e = m_pEngine;
    m_pEngine = nullptr;
    if (e != nullptr) {
        py::gil_scoped_release release;
        qk_engine_destroy(e);
    }
}

qk_engine *PyEngine::Handle() {
    return checkOpen(m_pEngine);
}

PyEngine::Busy::Busy(PyEngine &engine) : m_engine(engine) {
    if (engine.m_bBusy.exchange(true)) {
        throw Error(QK_E_STATE, "the engine is rendering in another thread");
    }
}

PyEngine::Busy::~Busy() {
    m_engine.m_bBusy.store(false);
}

void PyEngine::NotBusy(const char *pcWhat) const {
    if (m_bBusy.load()) {
        throw Error(QK_E_STATE,
                    std::string(pcWhat) + ": the engine is rendering in another thread");
    }
}

void PyEngine::SetRoom(float fWidth, float fDepth, float fHeight) {
    Check(qk_engine_set_shoebox(Handle(), fWidth, fDepth, fHeight), "set_room");
}

void PyEngine::SetPreset(int iPreset) {
    Check(qk_engine_set_preset(Handle(), iPreset), "set_preset");
}

void PyEngine::LoadWorld(const std::string &path) {
    qk_engine *e = Handle();
    int result = 0;
    {
        py::gil_scoped_release release;
        result = qk_engine_load_world(e, path.c_str());
    }
    Check(result, "load_world");
}

void PyEngine::SetModel(int iModel, int iOrder) {
    Check(qk_engine_set_model(Handle(), iModel, iOrder), "set_model");
}

void PyEngine::SetHRTF(py::object hrtf) {
    qk_engine *e = Handle();
    std::string keep;
    const char *path = pathOrNull(hrtf, keep);
    int result = 0;
    {
        py::gil_scoped_release release;
        result = qk_engine_set_hrtf(e, path);
    }
    Check(result, "hrtf");
}

int PyEngine::AddArray(FloatArray samples, bool bLoop) {
    NotBusy("add_array");
    if (samples.ndim() != 1) {
        throw py::value_error("add_array takes a mono array of shape (n,)");
    }
    ArraySource source;
    Check(qk_source_add_host(Handle(), &source.iID), "add_array");
    source.samples.assign(samples.data(), samples.data() + samples.size());
    source.bLoop = bLoop && !source.samples.empty();
    m_arrays.push_back(std::move(source));
    return m_arrays.back().iID;
}

int PyEngine::AddFile(const std::string &path) {
    int id = 0;
    Check(qk_source_add_file(Handle(), path.c_str(), &id), "add_file");
    return id;
}

int PyEngine::AddNoise(float fRms) {
    int id = 0;
    Check(qk_source_add_noise(Handle(), fRms, &id), "add_noise");
    return id;
}

int PyEngine::AddHost() {
    NotBusy("add_host");
    int id = 0;
    Check(qk_source_add_host(Handle(), &id), "add_host");
    m_hosts.push_back(id);
    return id;
}

int PyEngine::AddVsource(int iSource, Point p) {
    int id = 0;
    Check(qk_vsource_add(Handle(), iSource, p[0], p[1], p[2], &id), "add_vsource");
    return id;
}

void PyEngine::Remove(int iVsource) {
    Check(qk_vsource_remove(Handle(), iVsource), "remove");
}

void PyEngine::Move(int iVsource, Point p) {
    Check(qk_vsource_move(Handle(), iVsource, p[0], p[1], p[2]), "move");
}

void PyEngine::SetListener(Point p, float fYaw, float fPitch, float fRoll) {
    Check(qk_listener_set(Handle(), p[0], p[1], p[2], fYaw, fPitch, fRoll), "set_listener");
}

int PyEngine::PushArrays(int iFrames) {
    for (ArraySource &source : m_arrays) {
        float *chunk = m_chunk.data();
        const size_t n = source.samples.size();
        for (int i = 0; i < iFrames; ++i) {
            if (source.uiAt >= n && source.bLoop) {
                source.uiAt = 0;
            }
            chunk[i] = source.uiAt < n ? source.samples[source.uiAt++] : 0.0f;
        }
        if (const int r = qk_source_push(m_pEngine, source.iID, chunk, iFrames); r != QK_OK) {
            return r;
        }
    }
    return QK_OK;
}

py::array_t<float> PyEngine::Render(double dSeconds, py::object onBlock) {
    qk_engine *e = Handle();
    if (!(dSeconds > 0.0) || dSeconds * m_iRate > 1e9) {
        throw py::value_error("seconds must be above 0 (and below a billion frames)");
    }
    Busy busy(*this);
    const long blocks = static_cast<long>(std::ceil(dSeconds * m_iRate / m_iBlock - 1e-9));
    const py::ssize_t n = static_cast<py::ssize_t>(blocks) * m_iBlock;
    py::array_t<float> out({py::ssize_t{2}, n});
    float *left = out.mutable_data(0, 0);
    float *right = out.mutable_data(1, 0);
    int result = QK_OK;
    {
        py::gil_scoped_release release;
        for (long b = 0; b < blocks && result == QK_OK; ++b) {
            if (!onBlock.is_none()) {
                py::gil_scoped_acquire acquire;
                onBlock(static_cast<double>(b) * m_iBlock / m_iRate);
            }
            const size_t at = static_cast<size_t>(b) * static_cast<size_t>(m_iBlock);
            result = PushArrays(m_iBlock);
            if (result == QK_OK) {
                result = qk_engine_render(e, left + at, right + at, m_iBlock);
            }
        }
    }
    Check(result, "render");
    return out;
}

py::array_t<float> PyEngine::Process(FloatArray block) {
    qk_engine *e = Handle();
    if (block.ndim() != 1 && block.ndim() != 2) {
        throw py::value_error("process takes an array of shape (n,) or (sources, n)");
    }
    const py::ssize_t rows = block.ndim() == 1 ? 1 : block.shape(0);
    const py::ssize_t n = block.ndim() == 1 ? block.shape(0) : block.shape(1);
    if (static_cast<size_t>(rows) > m_hosts.size()) {
        throw py::value_error("process was given " + std::to_string(rows) +
                              " rows for the engine's " + std::to_string(m_hosts.size()) +
                              " host sources (add_host makes them)");
    }
    if (n < 1) {
        throw py::value_error("process needs at least one frame");
    }
    Busy busy(*this);
    py::array_t<float> out({py::ssize_t{2}, n});
    float *left = out.mutable_data(0, 0);
    float *right = out.mutable_data(1, 0);
    const float *in = block.data();
    int result = QK_OK;
    {
        py::gil_scoped_release release;
        // In pieces of the engine's block, so that host queues never overflow.
        for (py::ssize_t at = 0; at < n && result == QK_OK; at += m_iBlock) {
            const int frames = static_cast<int>(std::min<py::ssize_t>(m_iBlock, n - at));
            for (py::ssize_t r = 0; r < rows && result == QK_OK; ++r) {
                result =
                    qk_source_push(e, m_hosts[static_cast<size_t>(r)], in + r * n + at, frames);
            }
            if (result == QK_OK) {
                result = PushArrays(frames);
            }
            if (result == QK_OK) {
                result = qk_engine_render(e, left + at, right + at, frames);
            }
        }
    }
    Check(result, "process");
    return out;
}

py::array_t<float> PyEngine::Response(int iVsource) {
    qk_engine *e = Handle();
    Busy busy(*this);
    float *left = nullptr;
    float *right = nullptr;
    int frames = 0;
    Check(qk_room_response(e, iVsource, &left, &right, &frames), "response");
    py::array_t<float> out({py::ssize_t{2}, static_cast<py::ssize_t>(frames)});
    std::memcpy(out.mutable_data(0, 0), left, sizeof(float) * static_cast<size_t>(frames));
    std::memcpy(out.mutable_data(1, 0), right, sizeof(float) * static_cast<size_t>(frames));
    qk_free(left);
    qk_free(right);
    return out;
}

py::array_t<float> PyEngine::Echogram(int iVsource) {
    qk_engine *e = Handle();
    Busy busy(*this);
    float *data = nullptr;
    int frames = 0;
    Check(qk_echogram(e, iVsource, &data, &frames), "echogram");
    py::array_t<float> out(static_cast<py::ssize_t>(frames));
    std::memcpy(out.mutable_data(0), data, sizeof(float) * static_cast<size_t>(frames));
    qk_free(data);
    return out;
}

}  // namespace qkpy
