// .qkworld archives from the fuzzer: loaded (which generates the world), stored again, and
// the stored form loaded once more.
#include <cstdint>
#include <cstdlib>

#include "FuzzWorld.h"
#include "platform/Archive.h"
#include "world/CDSC_World.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qk::table::Code4 *code = fuzz::worldTables();
    CDSC_World world;
    world.m_pCode4 = code;
    qk::CMemoryStream in(data, size);
    qk::CArchive load(in, qk::CArchive::load);
    world.Serialize(load);

    qk::CMemoryStream out;
    qk::CArchive store(out, qk::CArchive::store);
    world.Serialize(store);
    CDSC_World again;
    again.m_pCode4 = code;
    qk::CMemoryStream back(out.Bytes().data(), out.Bytes().size());
    qk::CArchive reload(back, qk::CArchive::load);
    again.Serialize(reload);
    if (again.m_Scenes.size() != world.m_Scenes.size() ||
        again.m_Constants.size() != world.m_Constants.size()) {
        std::abort();  // what was stored must read back
    }
    return 0;
}
