// Wave file reader: open from memory, walk to "data" and read it all in uneven pieces, also
// stepping through the buffer directly as a source does when it skips frames.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sources/WaveFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    HMMIO h = nullptr;
    WAVEFORMATEX *pwfx = nullptr;
    MMCKINFO riff;
    if (WaveOpenMemory(data, size, &h, &pwfx, &riff) != 0) {
        return 0;
    }
    MMCKINFO chunk;
    if (WaveStartDataRead(&h, &chunk, &riff) == 0) {
        WaveDeclaredDataSize(h, &chunk);  // the header's size, read before the data
        std::vector<uint8_t> buffer(5000);
        const uint32_t pieces[] = {1, 4999, 333, 8192, 2};
        uint32_t got = 0;
        for (int round = 0; round < 64; ++round) {
            const uint32_t want = std::min<uint32_t>(pieces[round % 5], 5000);
            if (WaveReadFile(h, want, buffer.data(), &chunk, &got) != 0 || got == 0) {
                break;
            }
            if (round == 3) {
                MMIOINFO info;
                if (mmioGetInfo(h, &info, 0) == 0 && info.pchEndRead - info.pchNext > 3) {
                    info.pchNext += 3;
                    mmioAdvance(h, &info, MMIO_READ);
                }
            }
        }
    }
    WaveCloseReadFile(&h, &pwfx);
    return 0;
}
