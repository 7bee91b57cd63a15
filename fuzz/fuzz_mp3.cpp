// MPEG audio decoder: the header check in front of libmpg123, opening from memory, the tag,
// the length, decoding in uneven pieces and seeking back and forth.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "sources/Mp3Decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    CMp3Decoder decoder;
    if (!decoder.OpenMemory(data, size)) {
        return 0;
    }
    decoder.Title();
    decoder.LengthFrames(true);
    std::vector<int16_t> pcm(2 * 5000);
    const int pieces[] = {1, 4999, 333, 1152, 2};
    int total = 0;
    for (int round = 0; round < 40 && total < 200000; ++round) {
        const int got = decoder.Read(pcm.data(), pieces[round % 5]);
        if (round == 7) {
            decoder.Seek(100, SEEK_CUR);
        }
        if (round == 11) {
            decoder.Seek(0, SEEK_SET);
        }
        if (got == 0) {
            break;
        }
        total += got;
    }
    return 0;
}
