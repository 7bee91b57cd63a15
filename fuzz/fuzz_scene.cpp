// Scene files from the fuzzer: read as the quendarik program reads them (files named in the
// scene are not looked for), then every trajectory sampled across its keys.
#include <cstdint>
#include <string>

#include "scene_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    qkcli::SceneFile scene;
    std::string error;
    const std::string text(reinterpret_cast<const char *>(data), size);
    if (!qkcli::ReadSceneText(text, "fuzz.yaml", "", false, scene, error)) {
        return 0;
    }
    for (double t = -1.0; t < 20.0; t += 0.37) {
        scene.listenerTrajectory.At(t);
        for (const qkcli::SourceEntry &source : scene.sources) {
            source.trajectory.At(t);
        }
    }
    return 0;
}
