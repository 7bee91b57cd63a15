// Reaches the engine behind a facade, for tests of what a host can't see directly.
#pragma once

#include "quendarik/CQKSDK.h"
#include "sdk/CQUENDARIK_PROCESSOR.h"

struct CQKSDKTestAccess {
    static CQUENDARIK_PROCESSOR &Engine(CQKSDK &sdk) { return *sdk.m_pProcessor; }
};
