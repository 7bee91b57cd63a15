#include "ShardPlan.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace qkcli {
namespace {
constexpr double kSlack = 1e-3;  // of a step: a last point reached within rounding counts

// A whole number 0..limit, the whole text; false otherwise.
bool parseCount(const std::string &text, uint64_t limit, uint64_t &value) {
    if (text.empty() || text.size() > 20 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    errno = 0;
    const unsigned long long v = std::strtoull(text.c_str(), nullptr, 10);
    if (errno != 0 || v > limit) {
        return false;
    }
    value = v;
    return true;
}

bool parseFinite(const std::string &text, float &value) {
    char *end = nullptr;
    value = std::strtof(text.c_str(), &end);
    return !text.empty() && end == text.c_str() + text.size() && std::isfinite(value);
}
}  // namespace

uint64_t GridAxis::Count() const {
    const double points = std::floor((static_cast<double>(to) - from) / step + kSlack) + 1.0;
    if (!(points >= 1.0)) {
        return 0;
    }
    return points > static_cast<double>(kMaxAxisPoints) ? kMaxAxisPoints + 1
                                                        : static_cast<uint64_t>(points);
}

bool ParseGridAxis(const std::string &text, GridAxis &axis, std::string &error) {
    const size_t first = text.find(':');
    const size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    GridAxis a;
    if (second == std::string::npos || !parseFinite(text.substr(0, first), a.from) ||
        !parseFinite(text.substr(first + 1, second - first - 1), a.to) ||
        !parseFinite(text.substr(second + 1), a.step) || !(a.step > 0.0f) || a.to < a.from) {
        error = "wants FROM:TO:STEP in metres with STEP > 0 and TO >= FROM, not '" + text + "'";
        return false;
    }
    if (std::fabs(a.from) > kMaxGridCoordinate || std::fabs(a.to) > kMaxGridCoordinate) {
        error = "'" + text + "' reaches beyond 1000 km";
        return false;
    }
    if (a.Count() > kMaxAxisPoints) {
        error = "'" + text + "' has more than " + std::to_string(kMaxAxisPoints) +
                " points on one axis";
        return false;
    }
    axis = a;
    return true;
}

bool ParseShard(const std::string &text, ShardSpec &shard, std::string &error,
                const char *(*getenv)(const char *)) {
    const size_t slash = text.find('/');
    uint64_t index = 0, count = 0;
    if (slash == std::string::npos || !parseCount(text.substr(slash + 1), kMaxShards, count) ||
        count == 0) {
        error =
            "wants K/N with 0 <= K < N <= " + std::to_string(kMaxShards) + ", not '" + text + "'";
        return false;
    }
    std::string k = text.substr(0, slash);
    if (k == "auto") {
        const char *from = "JOB_COMPLETION_INDEX";
        const char *value = getenv(from);
        if (value == nullptr) {
            from = "SLURM_ARRAY_TASK_ID";
            value = getenv(from);
        }
        if (value == nullptr) {
            error = "auto: neither JOB_COMPLETION_INDEX nor SLURM_ARRAY_TASK_ID is set";
            return false;
        }
        if (!parseCount(value, kMaxShards, index) || index >= count) {
            error = "auto/" + std::to_string(count) + ": " + from + " is '" + value +
                    "', not a shard of 0 to " + std::to_string(count - 1);
            return false;
        }
    } else if (!parseCount(k, kMaxShards, index) || index >= count) {
        error = "wants K/N with 0 <= K < N (K counts from 0), not '" + text + "'";
        return false;
    }
    shard.index = static_cast<uint32_t>(index);
    shard.count = static_cast<uint32_t>(count);
    return true;
}

uint64_t SetResponses(uint64_t sources, uint64_t xPoints, uint64_t yPoints) {
    uint64_t total = 1;
    for (uint64_t factor : {sources, xPoints, yPoints}) {
        if (factor != 0 && total > kMaxResponses / factor) {
            return kMaxResponses + 1;
        }
        total *= factor;
    }
    return total;
}

ShardPlan::ShardPlan(const GridAxis &x, const GridAxis &y, float z, std::vector<C3Point> sources,
                     ShardSpec shard)
    : m_x(x), m_y(y), m_z(z), m_sources(std::move(sources)), m_shard(shard) {
    m_total = SetResponses(m_sources.size(), m_x.Count(), m_y.Count());
    if (m_total > kMaxResponses || m_shard.count == 0 || m_shard.index >= m_shard.count) {
        m_total = 0;  // refused before a plan is made; an empty plan does no harm
    }
    m_count =
        m_total > m_shard.index ? (m_total - m_shard.index + m_shard.count - 1) / m_shard.count : 0;
}

SetJob ShardPlan::At(uint64_t i) const {
    const uint64_t n = m_shard.index + i * m_shard.count;
    const uint64_t nx = m_x.Count();
    const uint64_t place = n % (nx * m_y.Count());
    const uint64_t s = n / (nx * m_y.Count());
    SetJob job;
    job.sourceId = static_cast<int>(s) + 1;
    job.source = m_sources[s];
    job.listener = C3Point(m_x.At(place % nx), m_y.At(place / nx), m_z, 0);
    return job;
}

}  // namespace qkcli
