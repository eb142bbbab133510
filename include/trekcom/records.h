// The record classes: plain data that crosses between the control and the host.
//
// Every field starts at 0, false, "" or null; no class sets another default,
// so a record that a decoder could only partly fill still shows which fields
// it never reached. Field names are the protocol's own, spelled as the control
// exposes them.
//
// Units: positions are degrees (north and east positive) in every record
// except cPvtData, which keeps the receiver's radians. Times are held twice:
// as seconds since 1989-12-31 00:00:00 (no time zone) and as the text
// "yyyy/mm/dd-hh:mm:ss". When a record is sent, a nonzero seconds field wins
// over the text. Text fields are UTF-8; characters the receiver's code page
// (Windows-1252) lacks are sent as '?'.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "trekcom/collection.h"
#include "trekcom/types.h"

namespace trekcom {

// A waypoint, route waypoint or proximity waypoint.
struct cWaypoint {
    std::string Ident;            // identifier
    double Lat = 0;               // degrees
    double Lon = 0;               // degrees
    std::string Cmnt;             // comment
    std::int16_t Dspl = 0;        // display option code
    std::int16_t Smbl = 0;        // symbol code
    std::int32_t Unused1 = 0;     // first spare 32-bit word, passed through untouched
    float Dist = 0;               // proximity distance, metres
    std::int16_t Prox_Index = 0;  // proximity index
    std::int32_t Color = 0;       // colour code
    float Alt = 0;                // altitude, metres
    float Dpth = 0;               // depth, metres
    std::int16_t Wpt_Class = 0;   // waypoint class code
    std::string Sub_Class;        // subclass bytes, as text
    std::int16_t Attrib = 0;      // attribute byte
    std::string Link;             // link identifier
    std::string State;            // state code
    std::string Country;          // country code
    std::string City;
    std::string Address;
    std::string Facility;         // facility name
    std::string Cross_Road;
    std::int32_t Unused2 = 0;     // second spare word, passed through untouched
    std::int32_t Ete = 0;         // estimated time en route, seconds
    std::int16_t Dtype = 0;       // the format's type/status byte, where it has one
    float Temp = 0;               // temperature
    std::string Time;             // creation time, "yyyy/mm/dd-hh:mm:ss"
    std::int32_t Time_Seconds = 0;  // the same time, seconds since the Garmin epoch
    std::int16_t Wpt_Category = 0;  // category bit field
};

// A route header; its links and waypoints follow it.
struct cRoute {
    std::int16_t Number = 0;  // route number
    std::string Ident;
    std::string Cmnt;
    std::int16_t Link_Class = 0;
    std::string Link_Sub_Class;
    std::string Link_Ident;
    // Null in a fresh record. The route decoder gives every route it creates
    // its own empty collection and fills it as the route's waypoints arrive; a
    // host that builds a route itself creates one with
    // std::make_shared<Collection<cWaypoint>>() before adding to it.
    std::shared_ptr<Collection<cWaypoint>> Waypoints;
};

// One track point; the same class carries a track header (Ident, Color, Dspl, Index).
struct cTrack {
    // Members are ordered by size so that a point, stored by the hundred
    // thousand, carries no padding between them.
    double Lat = 0;          // degrees
    double Lon = 0;          // degrees
    std::string Time;        // "yyyy/mm/dd-hh:mm:ss"
    std::string Ident;       // track name
    std::string Datum;
    std::int32_t Seconds = 0;  // since the Garmin epoch
    float Alt = 0;           // metres
    float Dpth = 0;          // metres
    float Temp = 0;
    std::int16_t Index = 0;
    bool New_Segment = false;
    bool Dspl = false;
    std::uint8_t Color = 0;
};

// A fitness lap.
struct cLap {
    std::string Start_Time;               // "yyyy/mm/dd-hh:mm:ss"
    std::int32_t Start_Time_Seconds = 0;  // since the Garmin epoch
    std::int32_t Total_Time = 0;
    float Total_Distance = 0;
    double Begin_Lat = 0;  // degrees
    double Begin_Lon = 0;
    double End_Lat = 0;
    double End_Lon = 0;
    std::int16_t Calories = 0;
    std::uint8_t Track_Index = 0;
    std::uint8_t Unused = 0;
};

// An aviation flightbook entry.
struct cFlightbook_Record {
    std::string Takeoff_Time;           // "yyyy/mm/dd-hh:mm:ss"
    std::int32_t Takeoff_Seconds = 0;   // since the Garmin epoch
    std::string Landing_Time;
    std::int32_t Landing_Seconds = 0;
    double Takeoff_Lat = 0;  // degrees
    double Takeoff_Lon = 0;
    double Landing_Lat = 0;
    double Landing_Lon = 0;
    std::int32_t Night_Time = 0;
    std::int32_t Num_Landings = 0;
    float Max_Speed = 0;
    float Max_Alt = 0;
    float Distance = 0;
    bool Cross_Country = false;
    std::string Departure_Airport_Name;
    std::string Departure_Airport_Ident;
    std::string Arrival_Airport_Name;
    std::string Arrival_Airport_Ident;
    std::string Aircraft_ID;
};

// One satellite's almanac entry.
struct cAlmanac {
    std::uint8_t svid = 0;
    std::int16_t wn = 0;
    float toa = 0;
    float af0 = 0;
    float af1 = 0;
    float e = 0;
    float sqrta = 0;
    float m0 = 0;
    float w = 0;
    float omg0 = 0;
    float odot = 0;
    float i = 0;
    float hlth = 0;  // a byte on the wire, held as a float like its neighbours
};

// One position-velocity-time report, as the receiver sent it.
struct cPvtData {
    float Alt = 0;  // metres above the ellipsoid
    float epe = 0;
    float eph = 0;
    float epv = 0;
    std::int16_t pfix = 0;
    double tow = 0;  // time of week, seconds
    double Lat = 0;  // radians, not degrees
    double Lon = 0;  // radians, not degrees
    float east = 0;  // velocity, metres per second
    float north = 0;
    float up = 0;
    float msl_hght = 0;
    std::int16_t leap_scnds = 0;
    std::int32_t wn_days = 0;
};

// A position exchanged with Request_Position_Data / Send_Position_Data.
struct cPosition {
    double Lat = 0;  // degrees
    double Lon = 0;  // degrees
};

// The receiver's date and time.
struct cDate_Time {
    std::uint8_t month = 0;
    std::uint8_t day = 0;
    std::int16_t year = 0;
    std::int16_t hour = 0;
    std::uint8_t minute = 0;
    std::uint8_t second = 0;
};

// Who the receiver is.
struct cProduct_Data {
    std::int16_t Product_ID = 0;
    std::int16_t Software_Version = 0;  // version x 100
    std::string Product_Description_1;
    std::string Product_Description_2;
    std::string Product_Description_3;
    std::string Product_Description_4;
    std::string Product_Description_5;
    std::string Product_Description_6;
    std::string Unit_ID;
    std::string GPS_Name;
};

// Supply voltages.
struct cVoltages {
    float Internal_Voltage = 0;  // volts
    float External_Voltage = 0;  // volts
};

// A captured screen.
struct cDisplay {
    std::int16_t Width = 0;           // pixels
    std::int16_t Height = 0;          // pixels
    std::int16_t Bits_Per_Pixel = 0;
    Bytes Pixels;                     // the image bytes, row after row, as the receiver sent them
};

// How many records of each kind the receiver holds.
struct cRecord_Counts {
    std::int16_t Waypoint_Records = 0;
    std::int16_t Prox_Waypoint_records = 0;
    std::int16_t Route_Records = 0;
    std::int16_t Track_Records = 0;
};

// One satellite in view.
struct cSat {
    std::uint8_t svid = 0;
    std::int16_t snr = 0;
    std::uint8_t elev = 0;     // degrees
    std::int16_t azimuth = 0;  // degrees
    std::uint8_t status = 0;
};

// ---------------------------------------------------------------- fitness units
//
// Runs, their laps and track points, and courses, as running and cycling
// units keep them. Numbers keep the unit's own units and markers, so what
// comes in goes back out byte for byte: times are seconds since the Garmin
// epoch, a float of kNo_Value holds nothing, a position the unit marks
// invalid (0x7FFFFFFF semicircles) reads as NaN degrees and is sent back as
// that mark.

inline constexpr float kNo_Value = 1.0e25f;
inline constexpr std::uint32_t kNo_Track = 0xFFFFFFFFu;  // a run without a track
inline constexpr std::uint8_t kNo_Cadence = 0xFF;        // a heart rate of 0 is none too
inline constexpr std::uint8_t kNo_Sensor = 0xFF;         // a point that cannot tell (D304 never sends 0xFF)

// A track point with heart rate (D303), distance, cadence and sensor (D304).
// D303 has no distance, cadence or sensor: they read as kNo_Value,
// kNo_Cadence and kNo_Sensor.
struct cFitness_Point {
    double Lat = 0;  // degrees, NaN when invalid
    double Lon = 0;
    std::uint32_t Time = 0;
    float Alt = 0;       // metres
    float Distance = 0;  // metres from the start
    std::uint16_t Track_Index = 0;  // of the track header before it
    std::uint8_t Heart_Rate = 0;    // beats per minute
    std::uint8_t Cadence = 0;       // revolutions or strides per minute
    std::uint8_t Sensor = 0;        // a wheel or foot sensor: 0 absent, else present
};

// A lap (D1001, D1011, D1015). D1001 has no cadence (kNo_Cadence) and no
// trigger method (0, manual).
struct cFitness_Lap {
    std::uint32_t Index = 0;
    std::uint32_t Start_Time = 0;
    std::uint32_t Total_Time = 0;  // hundredths of a second
    float Total_Dist = 0;          // metres
    float Max_Speed = 0;           // metres per second
    double Begin_Lat = 0;  // degrees, NaN when invalid
    double Begin_Lon = 0;
    double End_Lat = 0;
    double End_Lon = 0;
    std::uint16_t Calories = 0;
    std::uint16_t Unused = 0;  // the spare word of D1011 and D1015
    std::uint8_t Avg_Heart_Rate = 0;
    std::uint8_t Max_Heart_Rate = 0;
    std::uint8_t Intensity = 0;  // 0 active, 1 rest
    std::uint8_t Avg_Cadence = 0;
    std::uint8_t Trigger_Method = 0;  // 0 manual, 1 distance, 2 location, 3 time, 4 heart rate
    Bytes Extra;  // the bytes D1015 adds, of unknown meaning, sent back as they came
};

// A run (D1000, D1009, D1010) with the laps and the track it names, once a
// run download has joined them.
struct cRun {
    std::uint32_t Track_Index = 0;  // kNo_Track: none
    std::uint32_t First_Lap_Index = 0;
    std::uint32_t Last_Lap_Index = 0;
    std::uint8_t Sport_Type = 0;    // 0 running, 1 biking, 2 other
    std::uint8_t Program_Type = 0;  // 0 none, 1 virtual partner, 2 workout, 3 auto multisport
    std::uint8_t Multisport = 0;    // 0 no, 1 part of a session, 2 its last part
    std::uint8_t Unused1 = 0;       // spare bytes, passed through
    std::uint16_t Unused2 = 0;
    std::uint32_t Partner_Time = 0;  // virtual partner or quick workout
    float Partner_Distance = 0;
    Bytes Workout;  // the workout block, whole, as the unit sent it
    std::shared_ptr<Collection<cFitness_Lap>> Laps;
    std::shared_ptr<Collection<cFitness_Point>> Points;
};

// A course lap (D1007).
struct cCourse_Lap {
    std::uint16_t Course_Index = 0;
    std::uint16_t Lap_Index = 0;
    std::uint32_t Total_Time = 0;  // hundredths of a second
    float Total_Dist = 0;
    double Begin_Lat = 0;  // degrees, NaN when invalid
    double Begin_Lon = 0;
    double End_Lat = 0;
    double End_Lon = 0;
    std::uint8_t Avg_Heart_Rate = 0;
    std::uint8_t Max_Heart_Rate = 0;
    std::uint8_t Intensity = 0;
    std::uint8_t Avg_Cadence = 0;
};

// A course point (D1012).
struct cCourse_Point {
    std::string Name;
    std::uint8_t Unused1 = 0;
    std::uint16_t Course_Index = 0;
    std::uint16_t Unused2 = 0;
    std::uint32_t Track_Point_Time = 0;
    std::uint8_t Point_Type = 0;  // 0 generic, 1 summit, ... 15 sprint
};

// A course (D1006) with its laps, course points and track.
struct cCourse {
    std::uint16_t Index = 0;
    std::uint16_t Unused = 0;
    std::string Course_Name;
    std::uint16_t Track_Index = 0;
    std::shared_ptr<Collection<cCourse_Lap>> Laps;
    std::shared_ptr<Collection<cCourse_Point>> Course_Points;
    std::shared_ptr<Collection<cFitness_Point>> Points;
};

// How much of each course kind the unit can hold (D1013).
struct cCourse_Limits {
    std::uint32_t Max_Courses = 0;
    std::uint32_t Max_Course_Laps = 0;
    std::uint32_t Max_Course_Pnt = 0;
    std::uint32_t Max_Course_Trk_Pnt = 0;
};

}  // namespace trekcom
