// How the partitioned convolver cuts a block: the partition length for a block length, and
// the transform order for a partition. The convolver, the listener's frequency-domain mix and
// the set's table of direction spectra all make their transforms by these two rules, so that
// the spectra one of them makes fit the sums of the others.
#pragma once

namespace qk::partition {

// The longest partition, in frames.
constexpr int kMaxPartition = 512;
// The largest transform: responses of over a minute at 44.1 kHz still fit in the partitions.
constexpr int kMaxOrder = 24;

// The block whole up to kMaxPartition frames; a longer block in partitions of kMaxPartition
// when it divides into them, else whole.
inline int PartitionFor(int iBlockLength) {
    return iBlockLength <= kMaxPartition || iBlockLength % kMaxPartition != 0 ? iBlockLength
                                                                              : kMaxPartition;
}

// The order of the transform of 2P samples for a partition of P; -1 beyond kMaxOrder.
inline int OrderFor(int iPartition) {
    int order = 0;
    while (order <= kMaxOrder && (1 << order) < 2 * iPartition) {
        ++order;
    }
    return order <= kMaxOrder ? order : -1;
}

}  // namespace qk::partition
