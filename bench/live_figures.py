#!/usr/bin/env python3
"""Figures of `quendarik live` under a JACK server of its own (the dummy driver).

  room N SECONDS   N sources on circling trajectories in a 6 x 5 x 3 m shoe box, reflections to
                   order 2, period 256 at 48 kHz: xruns, late blocks and the client's CPU share.
  peer N SECONDS   N free-field sources moved 50 times a second over the network, period 512 at
                   44.1 kHz, HRIRs of 512 taps: CPU seconds per audio second of quendarik live
                   (moves over OSC) and of the SoundScape Renderer's binaural renderer
                   (ssr-binaural, moves over its XML network interface), one after the other
                   on the same server.

Run from the build folder's parent: python3 bench/live_figures.py room 32 180
QK_FIG_HRTF=SET.qkhrtf renders with that set: at 48 kHz, a set made at 48 kHz
(quendarik hrtf import SOFA OUT --rate 48000, then hrtf dfe) spares the library resampling the
responses of every image at every move.
"""
import math
import os
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CLI = os.environ.get("QK_CLI", os.path.join(ROOT, "build", "tools", "quendarik"))
TICKS = os.sysconf("SC_CLK_TCK")


def cpu_seconds(pid):
    """User and system time of a process and all its threads, in seconds."""
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def start_server(name, rate, period, captures):
    env = dict(os.environ, JACK_NO_AUDIO_RESERVATION="1")
    server = subprocess.Popen(
        ["jackd", "-n", name, "-d", "dummy", "-r", str(rate), "-p", str(period),
         "-C", str(captures), "-P", "2", "-w", str(1000000 * period // rate)],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=env)
    time.sleep(1.5)
    return server


def circle(i, n, z):
    r = 1.0 + 1.5 * (i % 4) / 3
    period = 4 + (i % 7)
    phase = 2 * math.pi * i / n
    keys = []
    for k in range(9):
        a = phase + 2 * math.pi * k / 8
        keys.append("{time: %g, position: [%.3f, %.3f, %.2f]}"
                    % (period * k / 8, -r * math.sin(a), r * math.cos(a), z))
    return ("    trajectory: {interpolation: smooth, loop: true, keys: [%s]}\n"
            % ", ".join(keys))


def place(i, n, t):
    a = 2 * math.pi * i / n + t
    return -2.0 * math.sin(a), 2.0 * math.cos(a)


def osc_message(address, *floats):
    def pad(b):
        return b + b"\0" * (4 - len(b) % 4)
    return (pad(address.encode()) + pad(("," + "f" * len(floats)).encode())
            + b"".join(struct.pack(">f", v) for v in floats))


def run_client(command, env, seconds, mover):
    """Runs a renderer for `seconds` while mover(t) sends its moves; its CPU seconds."""
    proc = subprocess.Popen(command, env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, text=True)
    time.sleep(3.0)  # set-up (HRTF sets, responses) isn't what is measured
    start_cpu, start = cpu_seconds(proc.pid), time.monotonic()
    next_move = start
    while time.monotonic() - start < seconds:
        if mover is not None:
            mover(time.monotonic() - start)
        next_move += 0.02  # 50 moves a second
        time.sleep(max(0.0, next_move - time.monotonic()))
    used, wall = cpu_seconds(proc.pid) - start_cpu, time.monotonic() - start
    proc.send_signal(signal.SIGTERM)
    out = proc.communicate(timeout=20)[0]
    return used, wall, out


def room(n, seconds):
    name = f"qkfig{os.getpid()}"
    server = start_server(name, 48000, 256, 2)
    env = dict(os.environ, JACK_DEFAULT_SERVER=name)
    with tempfile.TemporaryDirectory() as folder:
        scene = os.path.join(folder, "room.yaml")
        with open(scene, "w") as f:
            if os.environ.get("QK_FIG_HRTF"):
                f.write(f"hrtf: {os.environ['QK_FIG_HRTF']}\n")
            f.write("room: {shoebox: [6, 5, 3]}\norder: 2\nlistener: {position: [0, 0, 1.2]}\n"
                    "sources:\n")
            for i in range(n):
                f.write(f"  - name: s{i + 1}\n    noise: -36\n" + circle(i, n, 1.2))
        used, wall, out = run_client([CLI, "live", scene], env, seconds, None)
    server.terminate()
    server.wait()
    print(f"room: {n} moving sources, order 2, period 256 at 48 kHz, {wall:.0f} s")
    print(f"  CPU {used:.1f} s in {wall:.1f} s: {100 * used / wall:.0f} % of one core")
    lines = [l for l in out.splitlines() if "xruns" in l]
    print("  " + (lines[-1] if lines else "no xruns and no late blocks reported"))


def peer(n, seconds):
    name = f"qkpeer{os.getpid()}"
    server = start_server(name, 44100, 512, n)
    env = dict(os.environ, JACK_DEFAULT_SERVER=name)
    with tempfile.TemporaryDirectory() as folder:
        scene = os.path.join(folder, "free.yaml")
        with open(scene, "w") as f:
            f.write("sources:\n")
            for i in range(n):
                x, y = place(i, n, 0.0)
                f.write(f"  - {{noise: -36, position: [{x:.3f}, {y:.3f}, 0]}}\n")
        osc = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)

        def move_osc(t):
            for i in range(n):
                x, y = place(i, n, t)
                osc.sendto(osc_message(f"/source/{i + 1}/position", x, y, 0.0),
                           ("127.0.0.1", 9781))
        ours = run_client([CLI, "live", scene, "--osc", "9781", "--rate", "44100"], env,
                          seconds, move_osc)
        asd = os.path.join(folder, "free.asd")
        with open(asd, "w") as f:
            f.write('<?xml version="1.0"?>\n<asdf version="0.1">\n<header><name>peer</name>'
                    '</header>\n<scene_setup>\n')
            for i in range(n):
                x, y = place(i, n, 0.0)
                f.write(f'<source name="s{i + 1}" model="point"><port>{i + 1}</port>'
                        f'<position x="{x:.3f}" y="{y:.3f}"/></source>\n')
            f.write("</scene_setup>\n</asdf>\n")
        sock = None

        def move_ssr(t):
            nonlocal sock
            if sock is None:
                try:
                    sock = socket.create_connection(("127.0.0.1", 4711), timeout=1)
                except OSError:
                    return
            text = "".join(
                '<request><source id="%d"><position x="%.3f" y="%.3f"/></source></request>\0'
                % ((i + 1,) + place(i, n, t)) for i in range(n))
            sock.sendall(text.encode())
        theirs = run_client(["ssr-binaural", asd, "--hrir-size=512", "-i", "-n", "ssr",
                             "--input-prefix=system:capture_", "--output-prefix=system:playback_"],
                            env, seconds, move_ssr)
    server.terminate()
    server.wait()
    print(f"peer: {n} free-field sources moved 50 times a second, period 512 at 44.1 kHz, "
          "512-tap HRIRs")
    for label, (used, wall, out) in (("quendarik live", ours), ("ssr-binaural", theirs)):
        print(f"  {label}: {used / wall:.3f} CPU s per audio s "
              f"({1e6 * used / wall / n / (44100 / 512):.1f} us per source per block)")
    print(f"  ratio ssr / quendarik: {(theirs[0] / theirs[1]) / (ours[0] / ours[1]):.2f}")


if __name__ == "__main__":
    if len(sys.argv) != 4 or sys.argv[1] not in ("room", "peer"):
        sys.exit(__doc__)
    {"room": room, "peer": peer}[sys.argv[1]](int(sys.argv[2]), float(sys.argv[3]))
