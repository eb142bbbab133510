#!/usr/bin/python3
"""`trekcom pvt --gpsd` on a real GPS 18x's binary stream, against gpsd's own decoding of it.

The capture's bytes are played to the built tool over a pseudo-terminal once
the tool has opened it (its first request arrives); every line it prints must
be one of gpsd's TPV or SKY objects, with gpsd's keys and types, and agree
with garmin18x-bin.log.chk. When Debian's python3-gps (gpsd's client
library) is there, it reads the lines too, as a gpsd client would.

    gpsd_capture.py TREKCOM CAPTURES_DIR
"""
import datetime
import json
import os
import select
import subprocess
import sys
import tempfile
import time
import tty

# gpsd's documented keys and their JSON types.
NUMBER, INT, TEXT, FLAG = (int, float), int, str, bool
TPV_KEYS = {"class": TEXT, "device": TEXT, "mode": INT, "status": INT, "time": TEXT, "leapseconds": INT,
            "lat": NUMBER, "lon": NUMBER, "altHAE": NUMBER, "altMSL": NUMBER, "alt": NUMBER, "geoidSep": NUMBER,
            "speed": NUMBER, "track": NUMBER, "magtrack": NUMBER, "magvar": NUMBER, "climb": NUMBER,
            "velN": NUMBER, "velE": NUMBER, "velD": NUMBER, "ept": NUMBER, "epx": NUMBER, "epy": NUMBER,
            "epv": NUMBER, "epd": NUMBER, "eps": NUMBER, "epc": NUMBER, "eph": NUMBER, "sep": NUMBER}
SKY_KEYS = {"class": TEXT, "device": TEXT, "time": TEXT, "satellites": list, "nSat": INT, "uSat": INT,
            "xdop": NUMBER, "ydop": NUMBER, "vdop": NUMBER, "tdop": NUMBER, "hdop": NUMBER, "gdop": NUMBER,
            "pdop": NUMBER}
SAT_KEYS = {"PRN": INT, "el": NUMBER, "az": NUMBER, "ss": NUMBER, "used": FLAG, "gnssid": INT, "svid": INT}
# Field, tolerance: what gpsd printed, to its own precision.
TPV_SAME = [("lat", 1e-8), ("lon", 1e-8), ("altHAE", 1e-3), ("altMSL", 1e-3), ("alt", 1e-3), ("speed", 1e-3),
            ("track", 1e-3), ("climb", 1e-3), ("velN", 1e-3), ("velE", 1e-3), ("velD", 1e-3), ("geoidSep", 1e-3)]
WEEK = datetime.timedelta(weeks=1)

failures = []


def check(ok, what):
    if not ok:
        failures.append(what)


def typed(value, kind):
    # JSON true and false are no numbers, though Python's bool is an int.
    return isinstance(value, kind) and (kind is FLAG or not isinstance(value, bool))


def check_keys(obj, keys, where):
    for key, value in obj.items():
        check(key in keys, f"{where}: {key} is none of gpsd's keys")
        check(key not in keys or typed(value, keys[key]), f"{where}: {key} {value!r} of the wrong type")


def expected_time(text):
    """gpsd's time for the record, moved on as the tool moves a date 512 weeks behind the clock."""
    t = datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%S.%fZ").replace(tzinfo=datetime.timezone.utc)
    while datetime.datetime.now(datetime.timezone.utc) - t > 512 * WEEK:
        t += 1024 * WEEK
    return t.strftime("%Y-%m-%dT%H:%M:%S.") + f"{t.microsecond // 1000:03d}Z"


def reference(captures):
    """gpsd's TPV objects, each with the SKY object printed before it (None when it printed none)."""
    epochs, sky = [], None
    with open(os.path.join(captures, "garmin18x-bin.log.chk")) as f:
        for line in f:
            if not line.startswith("{"):
                continue
            obj = json.loads(line)
            if obj["class"] == "SKY":
                sky = obj
            elif obj["class"] == "TPV":
                epochs.append((obj, sky))
                sky = None
    return epochs


def run_tool(tool, captures):
    with open(os.path.join(captures, "garmin18x-bin.log"), "rb") as f:
        wire = f.read()
    while wire.startswith(b"#"):
        wire = wire[wire.index(b"\n") + 1:]
    master, slave = os.openpty()
    tty.setraw(slave)
    device = os.ttyname(slave)
    proc = subprocess.Popen([tool, "--no-progress", "--port", device, "--timeout", "2000", "pvt", "--gpsd", "-n",
                             str(len(reference(captures)))], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    sent = False
    deadline = time.monotonic() + 30
    # What the tool sends is read and dropped, so that it never blocks on a full line.
    while proc.poll() is None and time.monotonic() < deadline:
        if select.select([master], [], [], 0.1)[0]:
            os.read(master, 4096)
            if not sent:
                os.write(master, wire)
                sent = True
    if proc.poll() is None:
        proc.kill()
    out, err = proc.communicate()
    os.close(master)
    os.close(slave)
    check(sent, "the tool never asked the receiver anything")
    check(proc.returncode == 0, f"exit {proc.returncode}: {err.decode(errors='replace')}")
    return device, out


def check_lines(lines, device, epochs):
    tpvs, skies, sky = [], [], None
    for n, line in enumerate(lines, 1):
        try:
            obj = json.loads(line)
        except ValueError:
            check(False, f"line {n} is no JSON: {line!r}")
            continue
        check(isinstance(obj, dict) and obj.get("class") in ("TPV", "SKY"), f"line {n} is no TPV or SKY")
        if not isinstance(obj, dict):
            continue
        check(obj.get("device") == device, f"line {n}: device {obj.get('device')!r}, not {device}")
        if obj.get("class") == "TPV":
            check_keys(obj, TPV_KEYS, f"line {n}")
            tpvs.append(obj)
            skies.append(sky)
            sky = None
        elif obj.get("class") == "SKY":
            check_keys(obj, SKY_KEYS, f"line {n}")
            for sat in obj.get("satellites", []):
                check_keys(sat, SAT_KEYS, f"line {n} satellite")
            sky = obj
    check(len(tpvs) == len(epochs), f"{len(tpvs)} TPV objects, gpsd decoded {len(epochs)}")
    for i, ((want, want_sky), got, got_sky) in enumerate(zip(epochs, tpvs, skies)):
        check(got.get("mode") == want["mode"], f"TPV {i}: mode {got.get('mode')}, gpsd {want['mode']}")
        check(got.get("time") == expected_time(want["time"]), f"TPV {i}: time {got.get('time')}, gpsd {want['time']}")
        check(got.get("leapseconds") == want["leapseconds"], f"TPV {i}: leapseconds {got.get('leapseconds')}")
        for key, tolerance in TPV_SAME:
            check(key in got and abs(got[key] - want[key]) <= tolerance,
                  f"TPV {i}: {key} {got.get(key)}, gpsd {want[key]}")
        if want_sky is None:
            continue
        check(got_sky is not None, f"TPV {i}: no SKY before it")
        fields = ("PRN", "el", "az", "ss", "used")
        have = [tuple(s.get(k) for k in fields) for s in (got_sky or {}).get("satellites", [])]
        check(have == [tuple(s[k] for k in fields) for s in want_sky["satellites"]], f"SKY {i}: {have}")
    return tpvs


def check_with_gpsd_client(out, count, epochs):
    """gpsd's Python client reads the lines as it reads gpsd's own."""
    try:
        import gps
    except ImportError:
        print("python3-gps is not installed: gpsd's client library does not read the lines")
        return
    with tempfile.NamedTemporaryFile("wb", suffix=".json") as f:
        f.write(out)
        f.flush()
        session = gps.gps(input_file_name=f.name, mode=gps.WATCH_ENABLE)
        i = 0
        for _ in range(count):
            session.read()
            if session.data.get("class") == "SKY" and i < len(epochs) and epochs[i][1] is not None:
                want = [(s["PRN"], s["el"], s["az"], s["ss"], s["used"]) for s in epochs[i][1]["satellites"]]
                have = [(s.PRN, s.elevation, s.azimuth, s.ss, s.used) for s in session.satellites]
                check(have == want, f"gpsd client, SKY {i}: {have}")
            if session.data.get("class") != "TPV":
                continue
            want, fix = epochs[i][0], session.fix
            check(fix.mode == want["mode"] and fix.time == expected_time(want["time"]),
                  f"gpsd client, TPV {i}: mode {fix.mode} time {fix.time}")
            for key, attribute, tolerance in [("lat", "latitude", 1e-8), ("lon", "longitude", 1e-8),
                                              ("altMSL", "altMSL", 1e-3), ("speed", "speed", 1e-3),
                                              ("climb", "climb", 1e-3)]:
                check(abs(getattr(fix, attribute) - want[key]) <= tolerance,
                      f"gpsd client, TPV {i}: {attribute} {getattr(fix, attribute)}, gpsd {want[key]}")
            i += 1
        check(i == len(epochs), f"gpsd client read {i} TPV objects")


def main():
    tool, captures = sys.argv[1], sys.argv[2]
    epochs = reference(captures)
    device, out = run_tool(tool, captures)
    lines = out.decode().split("\r\n")
    check(lines[-1] == "", "the output does not end with CR LF")
    lines = lines[:-1]
    check_lines(lines, device, epochs)
    check_with_gpsd_client(out, len(lines), epochs)
    for f in failures[:40]:
        print("FAIL:", f)
    print(f"{len(lines)} lines, {len(failures)} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
