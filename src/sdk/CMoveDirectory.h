// Finds the place where a host thread leaves a move for a virtual source or a listener,
// without the engine lock: the engine holds that lock for a whole block, and a host that moves
// things from its own thread must not wait for blocks. The directory has a lock of its own,
// which the block path never takes; hosts share it, and only the rare change of the lists
// (made under the engine lock) takes it alone, for a swap of two maps.
#pragma once

#include <shared_mutex>
#include <unordered_map>

#include "render/CPoseSlot.h"

class CMoveDirectory {
  public:
    // Makes the directory anew from the engine's lists. Called under the engine lock
    // whenever a list changes, before a removed object is deleted. With several objects of
    // one id the first in its list is the one moved, as the lookups find it.
    template <typename SourceList, typename SinkList>
    void Rebuild(const SourceList &sources, const SinkList &sinks) {
        Map newSources;
        Map newSinks;
        for (const auto &object : sources) {
            newSources.emplace(object->m_iID, &object->m_PoseRequest);
        }
        for (const auto &object : sinks) {
            newSinks.emplace(object->m_iID, &object->m_PoseRequest);
        }
        Swap(newSources, newSinks);
    }

    // Leaves a move for the virtual source (or the listener) of that id; false when there is
    // none. Never waits for the engine.
    bool PublishSource(int iID, const CPoseSlot::Pose &pose) const {
        return Publish(m_sources, iID, pose);
    }
    bool PublishSink(int iID, const CPoseSlot::Pose &pose) const {
        return Publish(m_sinks, iID, pose);
    }

  private:
    using Map = std::unordered_map<int, CPoseSlot *>;
    bool Publish(const Map &map, int iID, const CPoseSlot::Pose &pose) const;
    // The old maps are freed after the lock is let go.
    void Swap(Map &sources, Map &sinks);

    mutable std::shared_mutex m_mutex;
    Map m_sources;
    Map m_sinks;
};
