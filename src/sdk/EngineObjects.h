// One virtual source or listener of the engine, found by id and used under the engine lock:
// what every handler of a single object does first.
#pragma once

#include <mutex>

#include "sdk/CQUENDARIK_PROCESSOR.h"

namespace qk {

// Runs use on the virtual source of that id, the engine lock held throughout: -1 when there
// is none, else what use returns.
template <typename F>
int WithSource(CQUENDARIK_PROCESSOR &engine, int iID, F use) {
    std::lock_guard<CEngineLock> guard(engine.m_csEngine);
    CQUENDARIC_Object_Source *pObject = engine.Get3DSourceFromID(iID);
    return pObject == nullptr ? -1 : use(*pObject);
}

// The same for the listener of that id.
template <typename F>
int WithSink(CQUENDARIK_PROCESSOR &engine, int iID, F use) {
    std::lock_guard<CEngineLock> guard(engine.m_csEngine);
    CQUENDARIC_Object_Sink *pSink = engine.Get3DSinkFromID(iID);
    return pSink == nullptr ? -1 : use(*pSink);
}

}  // namespace qk
