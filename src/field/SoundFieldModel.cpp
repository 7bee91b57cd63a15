#include "field/SoundFieldModel.h"

namespace qk::field {
namespace {
// clang-format off
// One line per model. Columns: number, name, response, late part, level by distance,
// materials, shared images, global late part, images for the late part.
constexpr SModel kModels[] = {
    {0, "direct sound",        Response::Direction,   LatePart::None,      true,  false, false, false, false},
    {1, "image sources",       Response::Room,        LatePart::None,      false, true,  true,  false, false},
    {2, "image sources and late reverb",
                               Response::Room,        LatePart::DryAndWet, false, true,  true,  true,  false},
    {3, "HRTF and reverb",     Response::Direction,   LatePart::WetOnly,   false, true,  false, false, true},
    {4, "pre-computed sets",   Response::PreComputed, LatePart::None,      false, false, false, false, false},
};
// clang-format on

constexpr SModel kUnknown = {
    -1, "unknown", Response::Direction, LatePart::None, false, false, false, false, false};
}  // namespace

const SModel &Model(int iNumber) {
    for (const SModel &model : kModels) {
        if (model.iNumber == iNumber) {
            return model;
        }
    }
    return kUnknown;
}

int ModelCount() {
    return static_cast<int>(sizeof(kModels) / sizeof(kModels[0]));
}

const SModel &ModelAt(int iIndex) {
    return iIndex >= 0 && iIndex < ModelCount() ? kModels[iIndex] : kUnknown;
}

}  // namespace qk::field
