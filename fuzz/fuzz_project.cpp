// Project files from the fuzzer, read into an engine whose thread never runs. Either the
// bytes are refused and the engine is as it was, or they load, and what is then stored loads
// back and stores to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "platform/Archive.h"
#include "platform/Report.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"

namespace {
int quiet(unsigned long, const char *, const char *, int) {
    return qk::kAnswerNo;
}

std::vector<uint8_t> store(CQUENDARIK_PROCESSOR &engine) {
    qk::CMemoryStream out;
    qk::CArchive ar(out, qk::CArchive::store);
    engine.Serialize(ar);
    return out.Bytes();
}

bool load(CQUENDARIK_PROCESSOR &engine, const uint8_t *data, size_t size) {
    qk::CMemoryStream in(data, size);
    qk::CArchive ar(in, qk::CArchive::load);
    try {
        CQUENDARIK_PROCESSOR::SProject project = engine.ReadProject(ar);
        engine.CommitProject(project);
    } catch (const qk::CArchiveException &) {
        return false;
    }
    return true;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Never destroyed, so that no settings file is written for every input.
    static CQUENDARIK_PROCESSOR *s_engine = [] {
        qk::SetReportHandler(&quiet, 0);
        return new CQUENDARIK_PROCESSOR;
    }();
    const std::vector<uint8_t> before = store(*s_engine);
    if (!load(*s_engine, data, size)) {
        if (store(*s_engine) != before) {
            std::abort();  // a refused project changed the engine
        }
        return 0;
    }
    const std::vector<uint8_t> stored = store(*s_engine);
    if (!load(*s_engine, stored.data(), stored.size()) || store(*s_engine) != stored) {
        std::abort();  // what was stored does not load back as it was
    }
    return 0;
}
