// World texts from the fuzzer: read into a scene, then generated, which evaluates every
// expression, resolves every corner id and counts the volume.
#include <cstdint>
#include <string>

#include "FuzzWorld.h"
#include "world/CDSC_World.h"
#include "world/CWorldTextReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qk::table::Code4 *code = fuzz::worldTables();
    CDSC_World world;
    world.m_pCode4 = code;
    CDSC_Scene *scene = nullptr;
    world.InsertScene(scene, "fuzz", "");
    CWorldTextReader reader;
    reader.ReadText(std::string(reinterpret_cast<const char *>(data), size), &world, scene);
    world.Generate();
    return 0;
}
