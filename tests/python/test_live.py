"""The PVT stream, errors as exceptions, and the waits: that they leave the
GIL to other threads and end at Ctrl-C within a second."""

import math
import os
import select
import signal
import time
import threading
import warnings

import pytest

import trekcom
from conftest import run_python


def test_pvt_reports_come_once_a_second_in_degrees_and_the_stream_stops_with_the_loop(gps):
    where = gps.position()
    fixes = list(gps.pvt(count=3))
    assert len(fixes) == 3 and all(isinstance(f, trekcom.PvtData) and f.has_fix for f in fixes)
    assert all(abs(f.Lat - where.Lat) < 1e-4 and abs(f.Lon - where.Lon) < 1e-4 for f in fixes)
    assert [(b.datetime - a.datetime).total_seconds() for a, b in zip(fixes, fixes[1:])] == [1.0, 1.0]
    for fix in gps.pvt():
        break
    # Had the stream gone on, its reports would break into this download.
    assert len(gps.get("waypoints")) == 12
    sats = gps.satellites()
    assert sats and all(1 <= s.svid <= 32 and 0 <= s.elev <= 90 for s in sats)


def test_failures_raise_the_controls_number_and_text(tmp_path):
    with pytest.raises(trekcom.NoDeviceError) as missing:
        trekcom.open(str(tmp_path / "no-such-port"))
    assert "no-such-port" in str(missing.value) and missing.value.number is None

    # A port where nothing answers: the control's own error, as a timeout.
    controller, line = os.openpty()
    try:
        with trekcom.open(os.ttyname(line), timeout=2) as silent:
            with pytest.raises(trekcom.TimeoutError) as timeout:
                silent.identify()
    finally:
        os.close(controller)
        os.close(line)
    assert (timeout.value.number, timeout.value.text) == (0, "No response from device")
    assert isinstance(timeout.value, TimeoutError)

    with trekcom.open("sim") as gps:
        with pytest.raises(trekcom.UnsupportedError):
            gps.get("flightbook")
        with pytest.raises(ValueError, match="no record kind"):
            gps.get("photos")
        with pytest.raises(TypeError, match=r"Waypoint\.Lat"):
            gps.put([trekcom.Waypoint(Ident="X", Lat="north")])
        with pytest.raises(TypeError, match=r"Waypoint\.Smbl"):
            gps.put([trekcom.Waypoint(Ident="X", Smbl=70000)])
        with pytest.raises(ValueError, match="one simulated receiver"):
            trekcom.open("sim")
    with pytest.raises(ValueError, match="closed"):
        gps.get("waypoints")


def test_courses_too_big_for_the_unit_are_refused():
    with trekcom.open("sim", sim_profile="fitness") as gps:
        course = gps.get("courses")[0]
        course.Points = course.Points * 2000
        with pytest.raises(trekcom.RefusedError):
            gps.put([course])


def test_other_threads_run_while_a_wait_holds_no_gil(gps):
    ticks = 0
    stop = threading.Event()

    def count():
        nonlocal ticks
        while not stop.is_set():
            ticks += 1
            time.sleep(0.001)

    counter = threading.Thread(target=count)
    counter.start()
    try:
        next(iter(gps.pvt()))  # about a second's wait
    finally:
        stop.set()
        counter.join()
    assert ticks > 100


CTRL_C = r"""
import sys, time, trekcom
with trekcom.open(sys.argv[1], timeout=5) as gps:
    print("waiting", flush=True)
    try:
        if sys.argv[1] == "sim":
            for fix in gps.pvt():
                pass
        else:
            gps.identify()
    except KeyboardInterrupt:
        print("interrupted", flush=True)
    print(len(gps.get("waypoints")) if sys.argv[1] == "sim" else "closed", flush=True)
"""


@pytest.mark.parametrize("port", ["sim", "silent"])
def test_ctrl_c_ends_a_wait_within_a_second(port):
    controller = line = None
    if port == "silent":
        controller, line = os.openpty()
        port = os.ttyname(line)
    try:
        script = run_python(CTRL_C, port)
        assert script.stdout.readline() == "waiting\n"
        time.sleep(0.5)
        sent = time.monotonic()
        script.send_signal(signal.SIGINT)
        # A wait deaf to Ctrl-C fails here rather than hanging the suite.
        if not select.select([script.stdout], [], [], 5)[0]:
            script.kill()
            pytest.fail("Ctrl-C did not end the wait")
        assert script.stdout.readline() == "interrupted\n"
        assert time.monotonic() - sent < 1.0
        # (The rest through the same buffered reader: communicate() would miss what it holds.)
        rest = script.stdout.read()
        assert script.wait(timeout=20) == 0, script.stderr.read()
        # The receiver goes on answering once the wait is given up.
        assert rest.strip() in ("12", "closed")
    finally:
        for fd in (controller, line):
            if fd is not None:
                os.close(fd)
