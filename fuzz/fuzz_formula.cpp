// Formulas from the fuzzer, straight into the parser and through the substitution of
// constants and corner references of a small world.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "world/CDSC_World.h"

namespace {
struct SmallWorld {
    CDSC_World world;
    CDSC_Scene *scene = nullptr;
    SmallWorld() {
        world.InsertConstant("w", "4", "", 1);
        world.InsertConstant("h", "w*2", "", 1);
        world.InsertConstant("0", "5", "", 1);
        world.GenerateConstants();
        world.InsertScene(scene, "main", "");
        scene->m_iOffsetCorners = 1;
        scene->m_iOffsetCornersBy = 10;
        scene->InsertPoint(1, "1", "2", "3");
        scene->InsertPoint(2, "w", "h", "0");
        scene->GeneratePoints();
    }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static SmallWorld *s = new SmallWorld;  // kept for the whole run
    const std::string text(reinterpret_cast<const char *>(data), size);

    unsigned short errPos = 0;
    std::string errText;
    s->world.m_parser.Calculation(text, 0.0, errPos, errText);
    if (errPos == 0 && errText.rfind("Error", 0) == 0) {
        std::abort();  // a stopped reading must give a position
    }

    CVRConstant constant(&s->world, "probe", text, "", 1);
    constant.Generate();

    CVRPoint point(&s->world, s->scene, 3, text, text, "x(1)");
    point.GenerateAll();
    point.m_strFunction = text;
    point.GenerateAll();
    return 0;
}
