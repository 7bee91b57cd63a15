// The responses of a pre-computed set and their split into shards. A set is every source
// against every listener place of a grid; its responses are numbered in one fixed order
// (source, then row y, then column x) and shard K of N takes numbers K, K + N, K + 2N, ...
// The split thus depends only on the grid, the sources and N: never on the machine, the
// thread count or the order in which workers finish. Nothing is enumerated ahead: a response
// is made from its number when it is wanted, so memory does not grow with the grid.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "world/C3Point.h"

namespace qkcli {

// Most points one axis of a grid may have, and most shards a set may be split into; beyond
// these the counts would no longer fit the arithmetic of the numbering.
constexpr uint64_t kMaxAxisPoints = uint64_t{1} << 31;
constexpr uint32_t kMaxShards = 100000;
// Most responses a set may have (sources x places); a bigger set is refused even with --force.
constexpr uint64_t kMaxResponses = uint64_t{1} << 62;
// Farthest a grid may reach from the origin, in metres (1000 km).
constexpr float kMaxGridCoordinate = 1e6f;

// Responses of a set of this many sources and places, or kMaxResponses + 1 when that is more
// than kMaxResponses.
uint64_t SetResponses(uint64_t sources, uint64_t xPoints, uint64_t yPoints);

// One axis of the grid, in metres: from, from + step, ... up to to (a little slack keeps a
// last point that the steps reach only within float rounding).
struct GridAxis {
    float from = 0.0f;
    float to = 0.0f;
    float step = 1.0f;
    uint64_t Count() const;
    float At(uint64_t i) const { return from + static_cast<float>(i) * step; }
};

// "X0:X1:STEP" with STEP > 0, X1 >= X0, both within kMaxGridCoordinate, and no more than
// kMaxAxisPoints points; false with the reason in error.
bool ParseGridAxis(const std::string &text, GridAxis &axis, std::string &error);

// Which part of the set a run makes: shard index (counted from 0) of count.
struct ShardSpec {
    uint32_t index = 0;
    uint32_t count = 1;
};

// "K/N" with 0 <= K < N <= kMaxShards, or "auto/N", which takes K from JOB_COMPLETION_INDEX
// (a Kubernetes Indexed Job) or else SLURM_ARRAY_TASK_ID (a Slurm array job). getenv is
// passed in so that tests can give the variables.
bool ParseShard(const std::string &text, ShardSpec &shard, std::string &error,
                const char *(*getenv)(const char *));

// One response: source number (from 1), source and listener positions.
struct SetJob {
    int sourceId = 0;
    C3Point source;
    C3Point listener;
};

class ShardPlan {
  public:
    ShardPlan(const GridAxis &x, const GridAxis &y, float z, std::vector<C3Point> sources,
              ShardSpec shard);
    // Responses of the whole set, and of this shard.
    uint64_t Total() const { return m_total; }
    uint64_t Count() const { return m_count; }
    // The i-th response of this shard (i < Count()).
    SetJob At(uint64_t i) const;
    const ShardSpec &Shard() const { return m_shard; }

  private:
    GridAxis m_x, m_y;
    float m_z;
    std::vector<C3Point> m_sources;
    ShardSpec m_shard;
    uint64_t m_total = 0;
    uint64_t m_count = 0;
};

}  // namespace qkcli
