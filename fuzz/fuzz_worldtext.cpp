// World texts from the fuzzer: read into a scene, then generated, which evaluates every
// expression, resolves every corner id and counts the volume.
#include <cstdint>
#include <string>

#include "platform/Report.h"
#include "world/CDSC_World.h"
#include "world/CWorldTextReader.h"

namespace {
int quiet(unsigned long, const char *, const char *, int) {
    return qk::kAnswerNo;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static qk::table::Code4 *code = [] {
        qk::SetReportHandler(&quiet, 0);
        auto *c = new qk::table::Code4;
        qk::table::code4initLow(c);
        return c;
    }();
    CDSC_World world;
    world.m_pCode4 = code;
    CDSC_Scene *scene = nullptr;
    world.InsertScene(scene, "fuzz", "");
    CWorldTextReader reader;
    reader.ReadText(std::string(reinterpret_cast<const char *>(data), size), &world, scene);
    world.Generate();
    return 0;
}
