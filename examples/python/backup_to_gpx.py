#!/usr/bin/env python3
"""Backs up everything a receiver holds into one GPX file.

usage: backup_to_gpx.py [PORT] [FILE]
PORT: a serial device (/dev/ttyUSB0), usb, or sim (a simulated receiver); default sim.
FILE: default backup.gpx. `trekcom put FILE` restores it.
"""

import sys
from typing import List

import trekcom


def main(argv: List[str]) -> int:
    port = argv[1] if len(argv) > 1 else "sim"
    path = argv[2] if len(argv) > 2 else "backup.gpx"
    try:
        with trekcom.open(port) as gps:
            unit = gps.identify()
            records = gps.get_all()
    except trekcom.Error as error:
        print(f"backup_to_gpx: {error}", file=sys.stderr)
        return 1
    # GPX has no place for a fitness unit's runs and courses: trekcom get runs -o runs.tcx keeps those.
    trekcom.save(path, records, source=unit.Product_Description_1)
    held = ", ".join(f"{len(found)} {kind}" for kind, found in records.items() if found) or "nothing"
    print(f"{path}: {held} from {unit.Product_Description_1}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
