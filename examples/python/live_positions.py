#!/usr/bin/env python3
"""Prints the receiver's position as it comes, once a second, until Ctrl-C (or N positions).

usage: live_positions.py [PORT] [N]
PORT: a serial device (/dev/ttyUSB0), usb, or sim (a simulated receiver); default sim.
"""

import math
import sys
from typing import List

import trekcom


def main(argv: List[str]) -> int:
    port = argv[1] if len(argv) > 1 else "sim"
    count = int(argv[2]) if len(argv) > 2 else None
    try:
        with trekcom.open(port) as gps:
            for fix in gps.pvt(count):
                if not fix.has_fix:
                    print(f"{fix.datetime:%Y-%m-%dT%H:%M:%SZ}  no fix", flush=True)
                    continue
                speed = math.hypot(fix.east, fix.north)
                print(f"{fix.datetime:%Y-%m-%dT%H:%M:%SZ}  {fix.Lat:10.6f} {fix.Lon:11.6f}  "
                      f"{fix.Alt + fix.msl_hght:7.1f} m  {speed:5.1f} m/s", flush=True)
    except trekcom.Error as error:
        print(f"live_positions: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
