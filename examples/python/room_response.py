#!/usr/bin/python3
"""Renders the binaural response of a source in a shoe box, draws it with its echogram to a
PNG file and prints the reverberation time read from it.

    PYTHONPATH=build/python python3 examples/python/room_response.py [--out room_response.png]
        [--room W D H] [--source X Y Z] [--listener X Y Z] [--order N] [--rate HZ] [--hrtf SET]
"""

import argparse
import sys

import quendarik


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default="room_response.png", help="the PNG file to write")
    parser.add_argument("--room", type=float, nargs=3, default=(6.0, 5.0, 3.0),
                        metavar=("W", "D", "H"), help="shoe box in metres")
    parser.add_argument("--source", type=float, nargs=3, default=(1.5, 1.8, 1.5),
                        metavar=("X", "Y", "Z"), help="source position in metres")
    parser.add_argument("--listener", type=float, nargs=3, default=(-0.5, -1.0, 1.2),
                        metavar=("X", "Y", "Z"), help="listener position (looking along +y)")
    parser.add_argument("--order", type=int, default=6, help="highest order of reflections")
    parser.add_argument("--rate", type=int, default=44100, help="samples per second")
    parser.add_argument("--hrtf", default=None, help="HRTF set (.qkhrtf or .sofa)")
    args = parser.parse_args()

    scene = dict(room=tuple(args.room), source=tuple(args.source),
                 listener=tuple(args.listener), order=args.order, rate=args.rate,
                 hrtf=args.hrtf)
    try:
        response = quendarik.brir(**scene)
        echo = quendarik.echogram(**scene)
    except quendarik.Error as error:
        print("room_response: %s" % error, file=sys.stderr)
        return 1
    w, d, h = args.room
    title = "%g x %g x %g m, reflections to order %d" % (w, d, h, args.order)
    quendarik.plot_response(response, echogram=echo, rate=args.rate, path=args.out, title=title)
    print("Wrote %s (%d samples, %.1f ms, %s)"
          % (args.out, response.shape[1], 1000.0 * response.shape[1] / args.rate, title))
    try:
        t20 = quendarik.reverberation_time(response, args.rate, drop_db=20.0)
        print("Reverberation time (T20 by Schroeder integration of the response to order %d): "
              "%.3f s" % (args.order, t20))
    except ValueError as error:
        print("Reverberation time: not measurable at this order (%s)" % error)
    return 0


if __name__ == "__main__":
    sys.exit(main())
