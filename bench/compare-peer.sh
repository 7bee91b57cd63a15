#!/usr/bin/env bash
# Renders the same scenes with quendarik bench and with OpenAL Soft's HRTF mixer (openal_peer,
# built where libopenal-dev is installed), one after the other in one run, so that the two
# are compared on the same machine at the same moment.
# Usage: bench/compare-peer.sh [BUILD_DIR]   (default: build)
set -euo pipefail
build=${1:-build}
quendarik=$build/tools/quendarik
peer=$build/bench/openal_peer
[ -x "$peer" ] || { echo "compare-peer: $peer not built (apt-get install libopenal-dev)" >&2; exit 1; }
for block in 512 8192; do
  for sources in 64 256; do
    for moving in "" --moving; do
      echo "== $sources sources${moving:+ moving}, block $block"
      "$quendarik" bench --sources "$sources" --block "$block" --seconds 10 $moving | sed 's/^/  quendarik: /'
      "$peer" --sources "$sources" --block "$block" --seconds 10 $moving | sed 's/^/  openal:    /'
    done
  done
done
