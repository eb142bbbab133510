"""The records that cross between a receiver and a script.

Each class mirrors the C++ record of the same meaning and keeps its field
names, so code and documentation read the same in both languages. Every field
starts empty (0, "", b"", an empty list), as in C++.

Units: positions are degrees, north and east positive, in every record,
PvtData included (its C++ record keeps the receiver's radians). Times are held
twice where the receiver's record has a time: as seconds since 1989-12-31
00:00:00 and as the text "yyyy/mm/dd-hh:mm:ss". When a record is sent, a
nonzero seconds field wins over the text.
"""

from __future__ import annotations

import dataclasses
import datetime as _dt
import struct as _struct
from dataclasses import dataclass, field
from typing import List

__all__ = [
    "Waypoint", "Route", "TrackPoint", "Track", "Lap", "FlightbookRecord", "Almanac",
    "PvtData", "Position", "DateTime", "ProductData", "Voltages", "Sat",
    "FitnessPoint", "FitnessLap", "Run", "CourseLap", "CoursePoint", "Course",
    "GARMIN_EPOCH", "NO_VALUE",
]

# The receiver counts time from here.
GARMIN_EPOCH = _dt.datetime(1989, 12, 31, tzinfo=_dt.timezone.utc)
# A float field that holds nothing: 1.0e25 as the receiver's 32-bit float
# holds it, so that a field read from a record compares equal.
NO_VALUE: float = _struct.unpack("<f", _struct.pack("<f", 1.0e25))[0]


def _time_of(seconds: int) -> _dt.datetime:
    # The receiver's seconds are unsigned: a time after 2058 arrives negative.
    return GARMIN_EPOCH + _dt.timedelta(seconds=seconds & 0xFFFFFFFF)


@dataclass(slots=True)
class Waypoint:
    """A waypoint, a route's waypoint or a proximity waypoint."""
    Ident: str = ""
    Lat: float = 0.0
    Lon: float = 0.0
    Cmnt: str = ""
    Dspl: int = 0
    Smbl: int = 0
    Unused1: int = 0
    Dist: float = 0.0
    Prox_Index: int = 0
    Color: int = 0
    Alt: float = 0.0
    Dpth: float = 0.0
    Wpt_Class: int = 0
    Sub_Class: str = ""
    Attrib: int = 0
    Link: str = ""
    State: str = ""
    Country: str = ""
    City: str = ""
    Address: str = ""
    Facility: str = ""
    Cross_Road: str = ""
    Unused2: int = 0
    Ete: int = 0
    Dtype: int = 0
    Temp: float = 0.0
    Time: str = ""
    Time_Seconds: int = 0
    Wpt_Category: int = 0


@dataclass(slots=True)
class Route:
    """A route: its header's fields and its waypoints, in order."""
    Number: int = 0
    Ident: str = ""
    Cmnt: str = ""
    Link_Class: int = 0
    Link_Sub_Class: str = ""
    Link_Ident: str = ""
    Waypoints: List[Waypoint] = field(default_factory=list)


@dataclass(slots=True)
class _Track_Fields:
    # One C++ record carries a track's header and each of its points.
    Lat: float = 0.0
    Lon: float = 0.0
    Time: str = ""
    Ident: str = ""
    Datum: str = ""
    Seconds: int = 0
    Alt: float = 0.0
    Dpth: float = 0.0
    Temp: float = 0.0
    Index: int = 0
    New_Segment: bool = False
    Dspl: bool = False
    Color: int = 0


@dataclass(slots=True)
class TrackPoint(_Track_Fields):
    """One point of a track."""

    @property
    def datetime(self) -> _dt.datetime:
        return _time_of(self.Seconds)


@dataclass(slots=True)
class Track(_Track_Fields):
    """A track: its header's fields (Ident, Color, Dspl, Index) and its points.

    A unit without track headers gives one nameless track holding every point.
    """
    Points: List[TrackPoint] = field(default_factory=list)


@dataclass(slots=True)
class Lap:
    """A lap of a unit that keeps laps beside its track log."""
    Start_Time: str = ""
    Start_Time_Seconds: int = 0
    Total_Time: int = 0
    Total_Distance: float = 0.0
    Begin_Lat: float = 0.0
    Begin_Lon: float = 0.0
    End_Lat: float = 0.0
    End_Lon: float = 0.0
    Calories: int = 0
    Track_Index: int = 0
    Unused: int = 0


@dataclass(slots=True)
class FlightbookRecord:
    """An aviation unit's flightbook entry."""
    Takeoff_Time: str = ""
    Takeoff_Seconds: int = 0
    Landing_Time: str = ""
    Landing_Seconds: int = 0
    Takeoff_Lat: float = 0.0
    Takeoff_Lon: float = 0.0
    Landing_Lat: float = 0.0
    Landing_Lon: float = 0.0
    Night_Time: int = 0
    Num_Landings: int = 0
    Max_Speed: float = 0.0
    Max_Alt: float = 0.0
    Distance: float = 0.0
    Cross_Country: bool = False
    Departure_Airport_Name: str = ""
    Departure_Airport_Ident: str = ""
    Arrival_Airport_Name: str = ""
    Arrival_Airport_Ident: str = ""
    Aircraft_ID: str = ""


@dataclass(slots=True)
class Almanac:
    """One satellite's almanac entry."""
    svid: int = 0
    wn: int = 0
    toa: float = 0.0
    af0: float = 0.0
    af1: float = 0.0
    e: float = 0.0
    sqrta: float = 0.0
    m0: float = 0.0
    w: float = 0.0
    omg0: float = 0.0
    odot: float = 0.0
    i: float = 0.0
    hlth: float = 0.0


@dataclass(slots=True)
class PvtData:
    """One position, velocity and time report. Lat and Lon are degrees here."""
    Alt: float = 0.0
    epe: float = 0.0
    eph: float = 0.0
    epv: float = 0.0
    pfix: int = 0
    tow: float = 0.0
    Lat: float = 0.0
    Lon: float = 0.0
    east: float = 0.0
    north: float = 0.0
    up: float = 0.0
    msl_hght: float = 0.0
    leap_scnds: int = 0
    wn_days: int = 0

    @property
    def datetime(self) -> _dt.datetime:
        """The report's UTC time.

        A unit whose ten-bit week count wrapped early reports dates 1024
        weeks behind; no fix is half that span older than the host's clock,
        so such a date is moved on, as the trekcom tool does.
        """
        t = GARMIN_EPOCH + _dt.timedelta(days=self.wn_days, seconds=self.tow - self.leap_scnds)
        now = _dt.datetime.now(_dt.timezone.utc)
        while now - t > _dt.timedelta(weeks=512):
            t += _dt.timedelta(weeks=1024)
        return t

    @property
    def has_fix(self) -> bool:
        """A 2D or 3D fix (pfix 2 to 5)."""
        return 2 <= self.pfix <= 5


@dataclass(slots=True)
class Position:
    Lat: float = 0.0
    Lon: float = 0.0


@dataclass(slots=True)
class DateTime:
    month: int = 0
    day: int = 0
    year: int = 0
    hour: int = 0
    minute: int = 0
    second: int = 0

    @property
    def datetime(self) -> _dt.datetime:
        return _dt.datetime(self.year, self.month, self.day, self.hour, self.minute, self.second,
                            tzinfo=_dt.timezone.utc)


@dataclass(slots=True)
class ProductData:
    """Who the receiver is, and the protocols and record layouts it announced."""
    Product_ID: int = 0
    Software_Version: int = 0
    Product_Description_1: str = ""
    Product_Description_2: str = ""
    Product_Description_3: str = ""
    Product_Description_4: str = ""
    Product_Description_5: str = ""
    Product_Description_6: str = ""
    Unit_ID: str = ""
    GPS_Name: str = ""
    Protocols: List[str] = field(default_factory=list)

    def __str__(self) -> str:
        version = f"{self.Software_Version // 100}.{self.Software_Version % 100:02d}"
        text = self.Product_Description_1 or f"product {self.Product_ID}"
        return f"{text} (product {self.Product_ID}, software {version}; {' '.join(self.Protocols)})"


@dataclass(slots=True)
class Voltages:
    Internal_Voltage: float = 0.0
    External_Voltage: float = 0.0


@dataclass(slots=True)
class Sat:
    """One satellite in view: snr in hundredths of a dB, status bit 2 (value 4) used in the fix."""
    svid: int = 0
    snr: int = 0
    elev: int = 0
    azimuth: int = 0
    status: int = 0


@dataclass(slots=True)
class FitnessPoint:
    """A fitness unit's track point; Lat and Lon are NaN where the unit marks them invalid."""
    Lat: float = 0.0
    Lon: float = 0.0
    Time: int = 0
    Alt: float = 0.0
    Distance: float = 0.0
    Track_Index: int = 0
    Heart_Rate: int = 0
    Cadence: int = 0
    Sensor: int = 0


@dataclass(slots=True)
class FitnessLap:
    Index: int = 0
    Start_Time: int = 0
    Total_Time: int = 0
    Total_Dist: float = 0.0
    Max_Speed: float = 0.0
    Begin_Lat: float = 0.0
    Begin_Lon: float = 0.0
    End_Lat: float = 0.0
    End_Lon: float = 0.0
    Calories: int = 0
    Unused: int = 0
    Avg_Heart_Rate: int = 0
    Max_Heart_Rate: int = 0
    Intensity: int = 0
    Avg_Cadence: int = 0
    Trigger_Method: int = 0
    Extra: bytes = b""


@dataclass(slots=True)
class Run:
    """A fitness unit's run, with the laps and the track points it names."""
    Track_Index: int = 0
    First_Lap_Index: int = 0
    Last_Lap_Index: int = 0
    Sport_Type: int = 0
    Program_Type: int = 0
    Multisport: int = 0
    Unused1: int = 0
    Unused2: int = 0
    Partner_Time: int = 0
    Partner_Distance: float = 0.0
    Workout: bytes = b""
    Laps: List[FitnessLap] = field(default_factory=list)
    Points: List[FitnessPoint] = field(default_factory=list)


@dataclass(slots=True)
class CourseLap:
    Course_Index: int = 0
    Lap_Index: int = 0
    Total_Time: int = 0
    Total_Dist: float = 0.0
    Begin_Lat: float = 0.0
    Begin_Lon: float = 0.0
    End_Lat: float = 0.0
    End_Lon: float = 0.0
    Avg_Heart_Rate: int = 0
    Max_Heart_Rate: int = 0
    Intensity: int = 0
    Avg_Cadence: int = 0


@dataclass(slots=True)
class CoursePoint:
    Name: str = ""
    Unused1: int = 0
    Course_Index: int = 0
    Unused2: int = 0
    Track_Point_Time: int = 0
    Point_Type: int = 0


@dataclass(slots=True)
class Course:
    """A course, with its laps, course points and track."""
    Index: int = 0
    Unused: int = 0
    Course_Name: str = ""
    Track_Index: int = 0
    Laps: List[CourseLap] = field(default_factory=list)
    Course_Points: List[CoursePoint] = field(default_factory=list)
    Points: List[FitnessPoint] = field(default_factory=list)


def fields_of(cls: type) -> List[str]:
    """The field names of a record class, in order."""
    return [f.name for f in dataclasses.fields(cls)]
