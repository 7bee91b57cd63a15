// AC-3 stream: the search for frames, the CRC check, liba52 and the reader thread with its
// queue, in an output layout chosen by the input's last byte.
#include <cstddef>
#include <cstdint>

#include "sources/Ac3Stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    CAc3Stream stream;
    if (!stream.OpenMemory(data, size)) {
        return 0;
    }
    const int mode = size > 0 ? data[size - 1] % 18 : 1;  // 17 is out of range: 2/0
    stream.Start(mode, 1.0, (size & 1) != 0, 1.0, (size & 2) != 0);
    static CAc3Stream::Block block;
    for (int i = 0; i < 600 && stream.Next(block); ++i) {
    }
    stream.Close();
    return 0;
}
