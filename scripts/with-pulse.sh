#!/usr/bin/env bash
# Runs a command with a private PulseAudio server whose default sink is a null sink, so that
# tests can play through ALSA's "pulse" device and be paced by a real audio server without any
# sound card. The server lives in its own runtime folder and is stopped afterwards. When
# PulseAudio can't start, the command runs anyway (device tests then skip themselves).
set -uo pipefail

runtime=$(mktemp -d /tmp/qk-pulse.XXXXXX)
export XDG_RUNTIME_DIR="$runtime"
export PULSE_RUNTIME_PATH="$runtime/pulse"
started=0
if command -v pulseaudio >/dev/null 2>&1; then
  if pulseaudio --daemonize=yes --exit-idle-time=-1 --disallow-exit -n \
       --load="module-null-sink sink_name=qk_null" \
       --load="module-native-protocol-unix" >/dev/null 2>&1; then
    for _ in $(seq 50); do
      pactl info >/dev/null 2>&1 && { started=1; break; }
      sleep 0.1
    done
    [ "$started" = 1 ] && pactl set-default-sink qk_null >/dev/null 2>&1
  fi
fi
[ "$started" = 1 ] && export QK_PULSE_SERVER=1 || echo "with-pulse: no PulseAudio server; device tests will skip" >&2

"$@"
rc=$?

if [ "$started" = 1 ]; then
  pulseaudio --kill >/dev/null 2>&1 || true
fi
rm -rf "$runtime"
exit $rc
