// quendarik demo: a small host driving the library through its public interface only.
#include <chrono>
#include <cstdio>
#include <thread>

#include "commands.h"
#include "quendarik/CQKSDK.h"

namespace {
int printMessage(unsigned long, const char *text, const char *caption, int severity) {
    std::printf("  [%s] %s\n", caption, text);
    return severity == QK_MSG_QUESTION ? QK_ANSWER_NO : QK_ANSWER_OK;
}
}  // namespace

namespace qkcli {

int RunDemo(int, char **) {
    CQKSDK sdk;
    sdk.qk_Appl_Register_On_Message(&printMessage, 0);
    std::printf("engine started\n");

    char hrtf[1024] = {};
    sdk.qk_HRTF_Get_Full(hrtf);
    std::printf("default HRTF set requested: %s\n", hrtf);

    int noise = 0;
    sdk.qk_Ssrc_Add_Gauss(noise);
    std::printf("noise source added, id %d\n", noise);

    const auto start = std::chrono::steady_clock::now();
    sdk.qkPlay();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    sdk.qkStop();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    int blocks = 0;
    sdk.qk_Siml_Get_Blocks(blocks);
    std::printf(
        "played %.2f s: the engine pulled %d blocks of noise (no listener yet, so no "
        "sound was rendered)\n",
        seconds, blocks);
    std::printf("stopped\n");
    return blocks > 0 ? 0 : 1;
}

}  // namespace qkcli
