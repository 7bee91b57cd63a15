#include "SetWorker.h"
#include <atomic>
#include <csignal>
#include <cstdlib>

#include <cstdio>

#include "commands.h"
#include "dsp/IppBuffer.h"
#include "field/CSFM_ISM.h"
#include "platform/FileReplace.h"
#include "platform/Paths.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"

namespace qkcli {
namespace {
constexpr int kRate = 44100;
constexpr float kTemperature = 25.0f;  // degrees Celsius, the settings' default
constexpr int kMaterialTaps = 32;

C3Point lookAlongY(const C3Point &listener) {
    return C3Point(listener.x, listener.y + 1.0f, listener.z, 0);
}

bool makeWorld(const SetRecipe &recipe, CDSC_World &world) {
    std::vector<char *> args;
    for (const std::string &a : recipe.world) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    std::string what;
    return LoadWorld(static_cast<int>(args.size()), args.data(), world, what) &&
           world.Generate() == 0;
}
}  // namespace

std::string SetFileName(const SetJob &job) {
    return CQUENDARIK_PROCESSOR::PreComputedName(0, job.listener, lookAlongY(job.listener),
                                                 job.sourceId, job.source, C3Point());
}

bool RecipeWorldLoads(const SetRecipe &recipe) {
    qk::table::Code4 code;
    qk::table::code4initLow(&code);
    bool ok = false;
    {
        CDSC_World world;
        world.m_pCode4 = &code;
        ok = makeWorld(recipe, world);
    }
    qk::table::code4initUndo(&code);
    return ok;
}

SetWorker::SetWorker(const SetRecipe &recipe) : m_recipe(recipe) {
    m_world.m_pCode4 = &m_session.code;
    m_bReady = makeWorld(recipe, m_world) && m_set.ReadWrite(0, recipe.hrtf) == 0;
    m_set.m_iSampleRate = kRate;
    auto model = std::make_unique<CSFM_ISM>(&m_world);
    model->m_pCode4 = &m_session.code;
    m_model = std::move(model);
}

SetWorker::~SetWorker() = default;

bool SetWorker::Compute(const SetJob &job, std::vector<float> &block, int &frames) {
    float *mono = nullptr, *left = nullptr, *right = nullptr;
    int monoLength = 0, length = 0;
    float peakLeft = 0.0f, peakRight = 0.0f;
    if (m_bReady) {
        // Recalculated from nothing for every job, so that a response never depends on the
        // jobs this worker did before it.
        m_model->GetBinauralImpulseResponse(
            &m_set, mono, monoLength, left, right, length, job.source, C3Point(), job.listener,
            lookAlongY(job.listener), m_recipe.hrtf, m_recipe.order, kTemperature, kRate, peakLeft,
            peakRight, 0, 1, kMaterialTaps, job.sourceId);
    }
    const bool ok = length > 0 && left != nullptr && right != nullptr;
    if (ok) {
        block.assign(left, left + length);
        block.insert(block.end(), right, right + length);
        frames = length;
    }
    FreeIppArray(mono);
    FreeIppArray(left);
    FreeIppArray(right);
    return ok;
}

// QK_PRECOMPUTE_KILL_AFTER=N kills the program the moment its N-th file is whole, as a power
// cut or a scheduler's kill would: the crash tests of --resume need a stop at a known point,
// which a kill sent from outside can't promise on a fast machine.
void SetWorker::StopWhenAsked() {
    static const long limit = [] {
        const char *text = std::getenv("QK_PRECOMPUTE_KILL_AFTER");
        return text != nullptr ? std::strtol(text, nullptr, 10) : 0L;
    }();
    static std::atomic<long> written{0};
    if (limit > 0 && written.fetch_add(1) + 1 >= limit) {
        std::raise(SIGKILL);
    }
}

bool SetWorker::Write(const SetJob &job, const std::string &folder) {
    int frames = 0;
    if (!Compute(job, m_block, frames)) {
        return false;
    }
    const std::string path = qk::JoinPath(folder, SetFileName(job));
    const std::string temp = qk::MakeTempBeside(path);
    std::string error;
    const bool ok =
        !temp.empty() &&
        CQUENDARIK_PROCESSOR::SaveAsWave(temp, m_block.data(), frames, 2, 16, kRate) == 0 &&
        qk::CommitTemp(temp, path, error);
    if (!ok && !temp.empty()) {
        std::remove(temp.c_str());
    }
    if (ok) {
        StopWhenAsked();
    }
    return ok;
}

}  // namespace qkcli
