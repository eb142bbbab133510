#!/usr/bin/python3
"""`trekcom pvt --gpsd` on a real GPS 18x's recorded stream, played over a pty once the tool asks
something: every line must be a TPV or SKY object with gpsd's keys and types, agree with gpsd's own
decoding (garmin18x-bin.log.chk), and read in gpsd's Python client (python3-gps) when it is there.
Usage: gpsd_capture.py TREKCOM CAPTURES_DIR"""
import datetime, json, os, select, subprocess, sys, tempfile, time, tty

N, I, S = (int, float), int, str  # gpsd's documented keys and their JSON types
KEYS = {"TPV": dict.fromkeys("lat lon altHAE altMSL alt geoidSep speed track climb velN velE velD eph epv sep".split(),
                             N) | {"class": S, "device": S, "mode": I, "status": I, "time": S, "leapseconds": I},
        "SKY": {"class": S, "device": S, "satellites": list}}
SAT_KEYS = {"PRN": I, "el": N, "az": N, "ss": N, "used": bool}
SAME = [(k, 1e-8) for k in ("lat", "lon")] + [
    (k, 1e-3) for k in "altHAE altMSL alt geoidSep speed track climb velN velE velD".split()]
failures = []


def check(ok, what):
    ok or failures.append(what)


def typed(obj, keys, where):
    for key, value in obj.items():  # a JSON true is no number, though Python's bool is an int
        check(key in keys and isinstance(value, keys[key]) and (keys[key] is bool) == isinstance(value, bool),
              f"{where}: {key}={value!r}")


def moved_on(text):
    """gpsd's time, moved on 1024 weeks while more than 512 behind the clock, as the tool moves it."""
    t = datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%S.%fZ").replace(tzinfo=datetime.timezone.utc)
    while datetime.datetime.now(datetime.timezone.utc) - t > datetime.timedelta(weeks=512):
        t += datetime.timedelta(weeks=1024)
    return t.strftime("%Y-%m-%dT%H:%M:%S.") + f"{t.microsecond // 1000:03d}Z"


def main(tool, captures):
    epochs, sky = [], None  # gpsd's TPV objects, each with the SKY it printed before it (or None)
    for obj in (json.loads(l) for l in open(os.path.join(captures, "garmin18x-bin.log.chk")) if l[0] == "{"):
        epochs += [(obj, sky)] if obj["class"] == "TPV" else []
        sky = obj if obj["class"] == "SKY" else None
    wire = open(os.path.join(captures, "garmin18x-bin.log"), "rb").read()
    while wire.startswith(b"#"):
        wire = wire[wire.index(b"\n") + 1:]
    master, slave = os.openpty()
    tty.setraw(slave)
    device = os.ttyname(slave)
    proc = subprocess.Popen([tool, "--no-progress", "--port", device, "--timeout", "2000", "pvt", "--gpsd", "-n",
                             str(len(epochs))], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    sent, deadline = False, time.monotonic() + 30
    while proc.poll() is None and time.monotonic() < deadline:  # what the tool sends is read and dropped
        if select.select([master], [], [], 0.1)[0]:
            os.read(master, 4096)
            sent = sent or os.write(master, wire) > 0
    proc.poll() is None and proc.kill()
    out, err = proc.communicate()
    check(proc.returncode == 0 and sent, f"exit {proc.returncode}: {err!r}")

    lines = out.decode().split("\r\n")  # gpsd ends each object with CR LF
    check(lines.pop() == "", "the output does not end with CR LF")
    objects = [json.loads(line) for line in lines]
    tpvs = [(o, objects[i - 1] if i and objects[i - 1]["class"] == "SKY" else None)
            for i, o in enumerate(objects) if o["class"] == "TPV"]
    check(len(tpvs) == len(epochs) and len(objects) == 2 * len(epochs), f"{len(objects)} objects")
    for i, o in enumerate(objects):
        typed(o, KEYS.get(o["class"], {}), f"line {i}")
        check(o["device"] == device, f"line {i}: device {o['device']}")
        for sat in o.get("satellites", []):
            typed(sat, SAT_KEYS, f"line {i} satellite")
    fields = ("PRN", "el", "az", "ss", "used")
    table = lambda sky: [tuple(s.get(k) for k in fields) for s in sky["satellites"]]
    for i, ((want, want_sky), (got, got_sky)) in enumerate(zip(epochs, tpvs)):
        check((got["mode"], got["time"]) == (want["mode"], moved_on(want["time"])), f"TPV {i}: {got['time']}")
        for key, tolerance in SAME:
            check(abs(got.get(key, 1e9) - want[key]) <= tolerance, f"TPV {i}: {key} {got.get(key)}, gpsd {want[key]}")
        check(not want_sky or table(got_sky or {"satellites": []}) == table(want_sky), f"SKY before TPV {i}")

    try:
        import gps  # gpsd's client reads the output as it reads gpsd
    except ImportError:
        return print("python3-gps is not installed: gpsd's client library does not read the output")
    with tempfile.NamedTemporaryFile(suffix=".json") as f:
        f.write(out), f.flush()
        client, i = gps.gps(input_file_name=f.name, mode=gps.WATCH_ENABLE), 0
        for _ in objects:
            client.read()
            if client.data and client.data.get("class") == "TPV":
                fix, want = client.fix, epochs[i][0]
                got = (fix.mode, fix.time, fix.latitude, fix.longitude, fix.altMSL, fix.speed, fix.climb)
                check(got == tuple(tpvs[i][0][k] for k in "mode time lat lon altMSL speed climb".split()),
                      f"gpsd client, TPV {i}: {got}")
                i += 1
            elif client.data and i < len(epochs) and epochs[i][1]:
                have = [(s.PRN, s.elevation, s.azimuth, s.ss, s.used) for s in client.satellites]
                check(have == table(epochs[i][1]), f"gpsd client, SKY before TPV {i}: {have}")
        check(i == len(epochs), f"gpsd client read {i} TPV objects")


if __name__ == "__main__":
    main(*sys.argv[1:3])
    print("\n".join(["FAIL: " + f for f in failures[:40]] + [f"{len(failures)} failures"]))
    sys.exit(1 if failures else 0)
