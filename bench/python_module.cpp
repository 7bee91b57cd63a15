// What the Python module adds to the library's own work, measured in one program:
// - a block of 512 frames of 64 host-fed sources in a shoe box, rendered through the facade
//   by C++ (feed each source, ask for the block, copy it out) and by the module's
//   Engine.process from Python (the same sources fed from one (64, 512) array);
// - one binaural room response of a shoe box at order 3, by the C interface's calls and by
//   quendarik.brir from Python.
// Python is embedded and imports the module built in this tree; its calls are made through
// the interpreter as a script's would be.
#include <benchmark/benchmark.h>
#include <pybind11/embed.h>
#include <pybind11/numpy.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include "quendarik/CQKSDK.h"
#include "quendarik/quendarik.h"

namespace py = pybind11;

// The machine is shared: the fastest of the repetitions is the one least disturbed, and the
// ratios are read from it (run with --benchmark_repetitions=N
// --benchmark_enable_random_interleaving=true).
#define QK_BENCH_OPTIONS(unit)                                             \
    Unit(unit)->MeasureProcessCPUTime()->UseRealTime()->ComputeStatistics( \
        "min", [](const std::vector<double> &v) { return *std::min_element(v.begin(), v.end()); })

namespace {
constexpr int kSources = 64;
constexpr int kBlock = 512;
constexpr int kRate = 48000;

void onceSetUp() {
    static const bool done = [] {
        char folder[] = "/tmp/qk_python_bench_XXXXXX";
        if (mkdtemp(folder) != nullptr) {
            setenv("QK_SETTINGS_DIR", folder, 1);
            setenv("QK_COMMON_ROOT", folder, 1);
        }
        return true;
    }();
    (void)done;
}

// The interpreter, alive for the whole program (pybind11 allows one per process).
py::module_ &module() {
    static py::scoped_interpreter interpreter;
    static py::module_ quendarik = [] {
        py::module_::import("sys").attr("path").attr("insert")(0, QK_BENCH_PYTHONPATH);
        return py::module_::import("quendarik");
    }();
    return quendarik;
}

// The sources' positions: a ring around the listener in a 6 x 5 x 3 m room.
void place(int i, float &x, float &y) {
    const double a = 2.0 * 3.14159265358979 * i / kSources;
    x = static_cast<float>(1.5 * std::cos(a));
    y = static_cast<float>(1.5 * std::sin(a));
}

std::vector<float> noise(size_t n, float rms) {
    std::mt19937 rng(11);
    std::normal_distribution<float> normal(0.0f, rms);
    std::vector<float> v(n);
    for (float &x : v) {
        x = normal(rng);
    }
    return v;
}

void BM_HostedRenderCpp(benchmark::State &state) {
    onceSetUp();
    CQKSDK sdk;
    sdk.qk_Asnk_Set(-2);
    sdk.qk_Siml_Set_PO(1);
    sdk.qk_HRTF_Set_Full(QK_BENCH_HRTF);
    sdk.qk_Wrld_ShoeBox(6.0f, 5.0f, 3.0f);
    sdk.qk_SFM_Set(1);
    sdk.qk_Siml_Set_SpecularOrder(1);
    sdk.qk_Siml_Set_Convolution(1);
    int listener = 0;
    sdk.qk_Vrcv_Add(listener);
    sdk.qk_Vrcv_Set_Position_LookAt(listener, 0, 0, 1.2f, 0, 1, 1.2f);
    std::vector<int> ids(kSources);
    for (int i = 0; i < kSources; ++i) {
        int object = 0;
        float x = 0, y = 0;
        place(i, x, y);
        sdk.qk_Ssrc_Add_WMP(ids[static_cast<size_t>(i)]);
        sdk.qk_Vsrc_Add(object, ids[static_cast<size_t>(i)], 0, x, y, 1.2f, "s");
    }
    // The facade's 16-bit scale, as the C interface feeds it.
    const std::vector<float> in = noise(static_cast<size_t>(kSources) * kBlock, 0.1f * 32768.0f);
    std::vector<float> left(kBlock), right(kBlock);
    auto block = [&] {
        for (int i = 0; i < kSources; ++i) {
            sdk.qk_Ssrc_Gen_Samples_1P(ids[static_cast<size_t>(i)],
                                       const_cast<float *>(in.data()) + i * kBlock, kBlock, 32, 1,
                                       kRate);
        }
        if (sdk.qk_Siml_Process_WinAmp(kBlock, 16, 2, kRate) < 0) {
            return false;
        }
        float *data = nullptr;
        sdk.qk_Vrcv_Get_Data(listener, data);
        for (int i = 0; i < kBlock; ++i) {
            left[static_cast<size_t>(i)] = data[i] / 32768.0f;
            right[static_cast<size_t>(i)] = data[kBlock + i] / 32768.0f;
        }
        return true;
    };
    for (int b = 0; b < 8; ++b) {
        if (!block()) {
            state.SkipWithError("no block (no HRTF set?)");
            return;
        }
    }
    for (auto _ : state) {
        block();
        benchmark::DoNotOptimize(left.data());
    }
}
BENCHMARK(BM_HostedRenderCpp)->QK_BENCH_OPTIONS(benchmark::kMicrosecond);

// The same block through the C interface alone, as the module drives it.
void BM_HostedRenderC(benchmark::State &state) {
    onceSetUp();
    qk_engine *e = qk_engine_create(kRate, kBlock);
    qk_engine_set_hrtf(e, QK_BENCH_HRTF);
    qk_engine_set_shoebox(e, 6.0f, 5.0f, 3.0f);
    qk_engine_set_model(e, QK_MODEL_IMAGES, 1);
    qk_engine_set_convolution(e, 1);
    qk_listener_set(e, 0.0f, 0.0f, 1.2f, 0.0f, 0.0f, 0.0f);
    std::vector<int> ids(kSources);
    for (int i = 0; i < kSources; ++i) {
        int vs = 0;
        float x = 0, y = 0;
        place(i, x, y);
        qk_source_add_host(e, &ids[static_cast<size_t>(i)]);
        qk_vsource_add(e, ids[static_cast<size_t>(i)], x, y, 1.2f, &vs);
    }
    const std::vector<float> in = noise(static_cast<size_t>(kSources) * kBlock, 0.1f);
    std::vector<float> left(kBlock), right(kBlock);
    auto block = [&] {
        for (int i = 0; i < kSources; ++i) {
            qk_source_push(e, ids[static_cast<size_t>(i)], in.data() + i * kBlock, kBlock);
        }
        return qk_engine_render(e, left.data(), right.data(), kBlock);
    };
    for (int b = 0; b < 8; ++b) {
        if (block() != QK_OK) {
            state.SkipWithError(qk_last_error());
            qk_engine_destroy(e);
            return;
        }
    }
    for (auto _ : state) {
        block();
        benchmark::DoNotOptimize(left.data());
    }
    qk_engine_destroy(e);
}
BENCHMARK(BM_HostedRenderC)->QK_BENCH_OPTIONS(benchmark::kMicrosecond);

void BM_HostedRenderPython(benchmark::State &state) {
    onceSetUp();
    py::module_ &quendarik = module();
    py::module_ numpy = py::module_::import("numpy");
    py::object engine = quendarik.attr("Engine")(py::arg("rate") = kRate, py::arg("block") = kBlock,
                                                 py::arg("hrtf") = QK_BENCH_HRTF,
                                                 py::arg("convolution") = "partitioned");
    engine.attr("set_room")(6.0, 5.0, 3.0);
    engine.attr("set_model")(1, 1);
    engine.attr("set_listener")(py::make_tuple(0.0, 0.0, 1.2));
    for (int i = 0; i < kSources; ++i) {
        float x = 0, y = 0;
        place(i, x, y);
        engine.attr("add_vsource")(engine.attr("add_host")(), py::make_tuple(x, y, 1.2f));
    }
    const std::vector<float> in = noise(static_cast<size_t>(kSources) * kBlock, 0.1f);
    py::array_t<float> block({kSources, kBlock});
    std::copy(in.begin(), in.end(), block.mutable_data());
    py::object process = engine.attr("process");
    for (int b = 0; b < 8; ++b) {
        process(block);
    }
    for (auto _ : state) {
        py::object out = process(block);
        benchmark::DoNotOptimize(out.ptr());
    }
    engine.attr("close")();
}
BENCHMARK(BM_HostedRenderPython)->QK_BENCH_OPTIONS(benchmark::kMicrosecond);

void BM_BrirC(benchmark::State &state) {
    onceSetUp();
    float out[2][256];
    for (auto _ : state) {
        qk_engine *e = qk_engine_create(44100, 256);
        int id = 0, vs = 0, frames = 0;
        float *left = nullptr, *right = nullptr;
        qk_engine_set_hrtf(e, QK_BENCH_HRTF);
        qk_engine_set_shoebox(e, 5.0f, 4.0f, 3.0f);
        qk_engine_set_model(e, QK_MODEL_IMAGES, 3);
        qk_source_add_host(e, &id);
        qk_vsource_add(e, id, 1.0f, 1.5f, 1.2f, &vs);
        qk_listener_set(e, 0.0f, -0.5f, 1.2f, 0.0f, 0.0f, 0.0f);
        qk_engine_render(e, out[0], out[1], 256);
        if (qk_room_response(e, vs, &left, &right, &frames) != QK_OK) {
            state.SkipWithError(qk_last_error());
        }
        benchmark::DoNotOptimize(left);
        qk_free(left);
        qk_free(right);
        qk_engine_destroy(e);
    }
}
BENCHMARK(BM_BrirC)->QK_BENCH_OPTIONS(benchmark::kMillisecond);

void BM_BrirPython(benchmark::State &state) {
    onceSetUp();
    py::module_ &quendarik = module();
    py::object brir = quendarik.attr("brir");
    py::tuple room = py::make_tuple(5.0, 4.0, 3.0);
    py::tuple source = py::make_tuple(1.0, 1.5, 1.2);
    py::tuple listener = py::make_tuple(0.0, -0.5, 1.2);
    for (auto _ : state) {
        py::object ir =
            brir(py::arg("room") = room, py::arg("source") = source, py::arg("listener") = listener,
                 py::arg("order") = 3, py::arg("hrtf") = QK_BENCH_HRTF);
        benchmark::DoNotOptimize(ir.ptr());
    }
}
BENCHMARK(BM_BrirPython)->QK_BENCH_OPTIONS(benchmark::kMillisecond);
}  // namespace
