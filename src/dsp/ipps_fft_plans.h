// What the transform layer has planned so far, for checks that a length is planned only once.
#pragma once

namespace qk {
// Transform plans made since the process started (two per length: forward and inverse).
int FFTPlansMade();
}  // namespace qk
