"""Talk to Garmin GPS receivers over serial and USB.

    import trekcom
    with trekcom.open("sim") as gps:            # or "/dev/ttyUSB0", "usb"
        print(gps.identify())
        wpts = gps.get("waypoints")
        gps.put(wpts)
        for fix in gps.pvt():
            print(fix.Lat, fix.Lon)

Record kinds are named as the trekcom tool names them: waypoints, proximity,
routes, tracks, laps, flightbook, almanac, and on fitness units runs and
courses. Records are the dataclasses of trekcom.records, whose fields carry
the C++ records' names.

Every wait runs without the GIL and ends at Ctrl-C (KeyboardInterrupt).
Receivers share one event loop: their waits take turns, one at a time.
"""

from __future__ import annotations

from typing import Any, Dict, Iterator, List, Literal, Mapping, Optional, Sequence, Union, overload

from . import _trekcom
from .errors import (Error, FileFormatError, IncompleteError, NoDeviceError, RefusedError, TimeoutError,
                     UnsupportedError)
from .records import (GARMIN_EPOCH, NO_VALUE, Almanac, Course, CourseLap, CoursePoint, DateTime, FitnessLap,
                      FitnessPoint, FlightbookRecord, Lap, Position, ProductData, PvtData, Route, Run, Sat, Track,
                      TrackPoint, Voltages, Waypoint)

__version__ = "0.1.0"

__all__ = [
    "open", "load", "save", "Receiver", "KINDS",
    "Error", "NoDeviceError", "TimeoutError", "UnsupportedError", "RefusedError", "IncompleteError",
    "FileFormatError",
    "Waypoint", "Route", "Track", "TrackPoint", "Lap", "FlightbookRecord", "Almanac", "PvtData", "Position",
    "DateTime", "ProductData", "Voltages", "Sat", "Run", "FitnessLap", "FitnessPoint", "Course", "CourseLap",
    "CoursePoint", "GARMIN_EPOCH", "NO_VALUE",
]

#: The record kinds, in the order get_all() downloads them.
KINDS = ("waypoints", "proximity", "routes", "tracks", "laps", "flightbook", "almanac", "runs", "courses")

Kind = Literal["waypoints", "proximity", "routes", "tracks", "laps", "flightbook", "almanac", "runs", "courses"]

# The kind a list of records goes up as, by its first record's class.
_KIND_OF_CLASS = {Waypoint: "waypoints", Route: "routes", Track: "tracks", TrackPoint: "tracks", Lap: "laps",
                  FlightbookRecord: "flightbook", Almanac: "almanac", Course: "courses"}


class Receiver:
    """A receiver on an open port. Make one with trekcom.open(); close it, or use it in a with block."""

    def __init__(self, native: _trekcom.Receiver) -> None:
        self._native = native

    def __enter__(self) -> "Receiver":
        return self

    def __exit__(self, *exc: Any) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else "open"
        return f"<trekcom.Receiver {self.port!r} {state}>"

    def close(self) -> None:
        """Closes the port (a no-op once closed)."""
        self._native.close()

    @property
    def closed(self) -> bool:
        return self._native.closed

    @property
    def port(self) -> str:
        return self._native.port

    def identify(self) -> ProductData:
        """Asks the receiver who it is: product, software version, and the protocols it speaks."""
        return self._native.identify()

    @overload
    def get(self, kind: Literal["waypoints", "proximity"]) -> List[Waypoint]: ...
    @overload
    def get(self, kind: Literal["routes"]) -> List[Route]: ...
    @overload
    def get(self, kind: Literal["tracks"]) -> List[Track]: ...
    @overload
    def get(self, kind: Literal["laps"]) -> List[Lap]: ...
    @overload
    def get(self, kind: Literal["flightbook"]) -> List[FlightbookRecord]: ...
    @overload
    def get(self, kind: Literal["almanac"]) -> List[Almanac]: ...
    @overload
    def get(self, kind: Literal["runs"]) -> List[Run]: ...
    @overload
    def get(self, kind: Literal["courses"]) -> List[Course]: ...
    @overload
    def get(self, kind: str) -> List[Any]: ...

    def get(self, kind: str) -> List[Any]:
        """Downloads every record of one kind.

        Raises UnsupportedError when the receiver has no such kind, and
        IncompleteError (with the records that did arrive) when fewer came
        than it announced.
        """
        return self._native.get(kind)

    def get_all(self) -> Dict[str, List[Any]]:
        """Downloads every kind the receiver has: {kind: records}, the kinds in KINDS order."""
        out: Dict[str, List[Any]] = {}
        for kind in KINDS:
            try:
                out[kind] = self._native.get(kind)
            except UnsupportedError:
                continue
        return out

    def put(self, records: Union[Sequence[Any], Mapping[str, Sequence[Any]]], kind: Optional[str] = None) -> None:
        """Uploads records: a list of one kind, or a {kind: records} mapping such as get_all() gives.

        The kind is that of the first record's class unless given; waypoints
        go up as proximity waypoints only with kind="proximity". Raises
        UnsupportedError when the receiver takes no such records, RefusedError
        when it refuses them, TypeError when a field holds the wrong type.
        """
        if isinstance(records, Mapping):
            for k in KINDS:
                if k in records and records[k]:
                    self._native.put(k, list(records[k]))
            unknown = set(records) - set(KINDS)
            if unknown:
                raise ValueError(f"no record kind {sorted(unknown)[0]!r}: use one of {', '.join(KINDS)}")
            return
        records = list(records)
        if kind is None:
            if not records:
                return
            kind = _KIND_OF_CLASS.get(type(records[0]))
            if kind is None:
                raise TypeError(f"cannot tell what kind of record {records[0]!r} is: give kind=")
        self._native.put(kind, records)

    def pvt(self, count: Optional[int] = None) -> Iterator[PvtData]:
        """Live position, velocity and time, about once a second, until the loop ends (or count reports).

        Lat and Lon are degrees. The stream stops when the loop leaves,
        however it leaves. A receiver that falls silent raises TimeoutError.
        """
        self._native.pvt_start()
        try:
            taken = 0
            while count is None or taken < count:
                yield self._native.next_pvt()
                taken += 1
        finally:
            self._native.pvt_stop()

    def satellites(self) -> List[Sat]:
        """The satellites in view, from the receiver's next satellite report."""
        return self._native.satellites()

    def position(self) -> Position:
        return self._native.position()

    def date_time(self) -> DateTime:
        return self._native.date_time()

    def voltages(self) -> Voltages:
        return self._native.voltages()


def open(port: str = "sim", *, timeout: float = 5.0, fast: bool = True, sim_profile: str = "current",
         sim_data: Optional[str] = None, sim_empty: bool = False, trace: Optional[str] = None) -> Receiver:
    """Opens a receiver's port.

    port: a serial device ("/dev/ttyUSB0"), "usb" (the first Garmin USB
    receiver; "usb:N" the next ones) or "sim", a simulated receiver in this
    process (sim_profile names its model, e.g. "current", "fitness", "etrex";
    sim_data a JSON data set; sim_empty starts it with no records).
    timeout: seconds of silence that end a wait (2 to 5 for the receiver's own waits).
    fast: big serial transfers at 115200, the line put back afterwards.
    trace: a file that gets every packet, for a bug report.
    Raises NoDeviceError when the port cannot be opened.
    """
    return Receiver(_trekcom.Receiver(port, sim_profile=sim_profile, sim_data=sim_data or "", sim_empty=sim_empty,
                                      timeout_ms=int(timeout * 1000), fast=fast, trace_file=trace or ""))


def load(path: str) -> Dict[str, List[Any]]:
    """Reads records from a GPX or JSON file written by save() or the trekcom tool: {kind: records}."""
    return _trekcom.load(path)


def save(path: str, records: Mapping[str, Sequence[Any]], source: str = "") -> None:
    """Writes {kind: records} to a GPX file (JSON when the name ends in .json), as the trekcom tool does.

    GPX holds waypoints, routes and tracks in its own elements and the other
    kinds in its extensions; runs and courses are not written.
    """
    _trekcom.save(path, {k: list(v) for k, v in records.items() if k not in ("runs", "courses")}, source)
