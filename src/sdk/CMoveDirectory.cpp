#include "sdk/CMoveDirectory.h"

#include <mutex>

bool CMoveDirectory::Publish(const Map &map, int iID, const CPoseSlot::Pose &pose) const {
    // Shared: hosts don't hold each other up. The slot can't go while this is held, since an
    // object leaves the directory before it is deleted.
    std::shared_lock<std::shared_mutex> lock(m_mutex);
    const auto it = map.find(iID);
    if (it == map.end()) {
        return false;
    }
    it->second->Publish(pose);
    return true;
}

void CMoveDirectory::Swap(Map &sources, Map &sinks) {
    std::unique_lock<std::shared_mutex> lock(m_mutex);
    m_sources.swap(sources);
    m_sinks.swap(sinks);
}
