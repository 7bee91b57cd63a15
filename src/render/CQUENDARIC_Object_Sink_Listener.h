// A listener with its settings and a place given at construction, for archives and hosts.
// The engine itself makes plain sinks.
#pragma once

#include "render/CQUENDARIC_Object_Sink.h"

class CQUENDARIC_Object_Sink_Listener : public CQUENDARIC_Object_Sink {
    QK_DECLARE_SERIAL(CQUENDARIC_Object_Sink_Listener)

  public:
    // No settings, no description, at the origin, no draw element.
    CQUENDARIC_Object_Sink_Listener();
    CQUENDARIC_Object_Sink_Listener(CQUENDARIC_PARAMETERS *pParameters, C3Point position);

    // The base data and nothing more.
    void Serialize(qk::CArchive &ar) override;
};
