// Runs, fitness laps, track points with heart rate, and courses.
#include "records/codecs/fitness.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "../codepage.h"
#include "packet_io.h"

namespace trekcom::records {
using namespace codec;
namespace {

constexpr std::int32_t kInvalid_Semicircle = 0x7FFFFFFF;
constexpr std::size_t kWorkout_Size = 661;

std::uint16_t U16(Data_View data, int offset) { return static_cast<std::uint16_t>(Data_Int(data, offset)); }
std::uint32_t U32(Data_View data, int offset) { return static_cast<std::uint32_t>(Data_Long(data, offset)); }

// Unlike the other records' positions, the unit's invalid mark is kept apart
// from a real position: it reads as NaN and goes back as the mark.
double Fitness_Position(Data_View data, int offset) {
    const std::int32_t semi = Data_Long(data, offset);
    return semi == kInvalid_Semicircle ? std::numeric_limits<double>::quiet_NaN() : Semi2Deg(semi);
}
void Put_Fitness_Position(Bytes& data, int offset, double degrees) {
    Put_Long(data, offset, std::isnan(degrees) ? kInvalid_Semicircle : Deg2Semi(degrees));
}
void Marked_Positions(Data_View data, int offset, std::initializer_list<double*> degrees) {
    for (double* d : degrees) *d = Fitness_Position(data, std::exchange(offset, offset + 4));
}
void Put_Marked_Positions(Bytes& data, int offset, std::initializer_list<double> degrees) {
    for (double d : degrees) Put_Fitness_Position(data, std::exchange(offset, offset + 4), d);
}

// The bytes from an offset, at most `count`, as far as the data reaches.
Bytes Block(Data_View data, std::size_t offset, std::size_t count) {
    if (offset >= data.size()) return {};
    const auto first = data.begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(first, first + static_cast<std::ptrdiff_t>(std::min(count, data.size() - offset)));
}
void Put_Block(Bytes& data, std::size_t offset, const Bytes& block, std::size_t count) {
    std::copy_n(block.begin(), std::min(count, block.size()), data.begin() + static_cast<std::ptrdiff_t>(offset));
}

// Text in a fixed field padded with NULs, as the fitness units keep names;
// spaces are part of the name, so nothing is trimmed and it comes back whole.
std::string Name_At(Data_View data, int offset, int width) {
    const int reached = std::clamp(static_cast<int>(data.size()) - offset, 0, width);
    const std::string text = Raw_Text(data, offset, reached);
    return text.substr(0, text.find('\0'));
}
void Put_Name(Bytes& data, int offset, std::size_t width, std::string_view text) {
    const std::string wire = To_Wire(text);
    Put_Wire(data, offset, std::string_view(wire).substr(0, width));
}

link::Packet Packet_Of(std::uint16_t id, Bytes data) { return link::Packet{id, std::move(data), std::nullopt}; }

}  // namespace

// ---------------------------------------------------------------- runs

cRun Decode_Run(link::Data_View data, std::string_view format) {
    cRun r;
    const bool narrow = format == "D1009";  // 16-bit indices, no spare word after the program
    if (!narrow && format != "D1000" && format != "D1010") return r;
    const int base = narrow ? 12 : 16;  // the partner's time and distance, then the workout
    if (narrow) {
        r.Track_Index = U16(data, 0);
        if (r.Track_Index == 0xFFFF) r.Track_Index = kNo_Track;
        r.First_Lap_Index = U16(data, 2);
        r.Last_Lap_Index = U16(data, 4);
    } else {
        r.Track_Index = U32(data, 0);
        r.First_Lap_Index = U32(data, 4);
        r.Last_Lap_Index = U32(data, 8);
    }
    const int kinds = narrow ? 6 : 12;
    r.Sport_Type = Data_Byte(data, kinds);
    r.Program_Type = Data_Byte(data, kinds + 1);
    if (format == "D1000") {
        r.Unused2 = U16(data, 14);
    } else {
        r.Multisport = Data_Byte(data, kinds + 2);
        r.Unused1 = Data_Byte(data, kinds + 3);
        if (narrow) r.Unused2 = U16(data, 10);
    }
    r.Partner_Time = U32(data, base);
    r.Partner_Distance = Data_Single(data, base + 4);
    r.Workout = Block(data, static_cast<std::size_t>(base) + 8, kWorkout_Size);
    return r;
}

std::optional<link::Packet> Encode_Run(const cRun& r, std::string_view format, std::uint16_t packet_id) {
    const bool narrow = format == "D1009";
    if (!narrow && format != "D1000" && format != "D1010") return std::nullopt;
    const int base = narrow ? 12 : 16;
    Bytes p(static_cast<std::size_t>(base) + 8 + kWorkout_Size, 0);
    if (narrow) {
        Put_Int(p, 0, static_cast<std::int16_t>(r.Track_Index));
        Put_Int(p, 2, static_cast<std::int16_t>(r.First_Lap_Index));
        Put_Int(p, 4, static_cast<std::int16_t>(r.Last_Lap_Index));
    } else {
        Put_Long(p, 0, static_cast<std::int32_t>(r.Track_Index));
        Put_Long(p, 4, static_cast<std::int32_t>(r.First_Lap_Index));
        Put_Long(p, 8, static_cast<std::int32_t>(r.Last_Lap_Index));
    }
    const int kinds = narrow ? 6 : 12;
    Put_Byte(p, kinds, r.Sport_Type);
    Put_Byte(p, kinds + 1, r.Program_Type);
    if (format == "D1000") {
        Put_Int(p, 14, static_cast<std::int16_t>(r.Unused2));
    } else {
        Put_Byte(p, kinds + 2, r.Multisport);
        Put_Byte(p, kinds + 3, r.Unused1);
        if (narrow) Put_Int(p, 10, static_cast<std::int16_t>(r.Unused2));
    }
    Put_Long(p, base, static_cast<std::int32_t>(r.Partner_Time));
    Put_Single(p, base + 4, r.Partner_Distance);
    Put_Block(p, static_cast<std::size_t>(base) + 8, r.Workout, kWorkout_Size);
    return Packet_Of(packet_id, std::move(p));
}

// ---------------------------------------------------------------- laps

cFitness_Lap Decode_Fitness_Lap(link::Data_View data, std::string_view format) {
    cFitness_Lap l;
    const bool d1001 = format == "D1001";
    if (!d1001 && format != "D1011" && format != "D1015") return l;
    if (d1001) {
        l.Index = U32(data, 0);
        l.Avg_Cadence = kNo_Cadence;
    } else {
        l.Index = U16(data, 0);
        l.Unused = U16(data, 2);
        l.Avg_Cadence = Data_Byte(data, 41);
        l.Trigger_Method = Data_Byte(data, 42);
    }
    l.Start_Time = U32(data, 4);
    l.Total_Time = U32(data, 8);
    l.Total_Dist = Data_Single(data, 12);
    l.Max_Speed = Data_Single(data, 16);
    Marked_Positions(data, 20, {&l.Begin_Lat, &l.Begin_Lon, &l.End_Lat, &l.End_Lon});
    l.Calories = U16(data, 36);
    l.Avg_Heart_Rate = Data_Byte(data, 38);
    l.Max_Heart_Rate = Data_Byte(data, 39);
    l.Intensity = Data_Byte(data, 40);
    if (format == "D1015") l.Extra = Block(data, 43, 5);
    return l;
}

std::optional<link::Packet> Encode_Fitness_Lap(const cFitness_Lap& l, std::string_view format,
                                               std::uint16_t packet_id) {
    const bool d1001 = format == "D1001";
    if (!d1001 && format != "D1011" && format != "D1015") return std::nullopt;
    Bytes p(d1001 ? 41 : format == "D1011" ? 43 : 48, 0);
    if (d1001) {
        Put_Long(p, 0, static_cast<std::int32_t>(l.Index));
    } else {
        Put_Int(p, 0, static_cast<std::int16_t>(l.Index));
        Put_Int(p, 2, static_cast<std::int16_t>(l.Unused));
        Put_Byte(p, 41, l.Avg_Cadence);
        Put_Byte(p, 42, l.Trigger_Method);
    }
    Put_Long(p, 4, static_cast<std::int32_t>(l.Start_Time));
    Put_Long(p, 8, static_cast<std::int32_t>(l.Total_Time));
    Put_Single(p, 12, l.Total_Dist);
    Put_Single(p, 16, l.Max_Speed);
    Put_Marked_Positions(p, 20, {l.Begin_Lat, l.Begin_Lon, l.End_Lat, l.End_Lon});
    Put_Int(p, 36, static_cast<std::int16_t>(l.Calories));
    Put_Byte(p, 38, l.Avg_Heart_Rate);
    Put_Byte(p, 39, l.Max_Heart_Rate);
    Put_Byte(p, 40, l.Intensity);
    if (format == "D1015") Put_Block(p, 43, l.Extra, 5);
    return Packet_Of(packet_id, std::move(p));
}

// ---------------------------------------------------------------- track points

cFitness_Point Decode_Fitness_Point(link::Data_View data, std::string_view format, std::uint16_t track_index) {
    cFitness_Point t;
    const bool d303 = format == "D303";
    if (!d303 && format != "D304") return t;
    t.Track_Index = track_index;
    Marked_Positions(data, 0, {&t.Lat, &t.Lon});
    t.Time = U32(data, 8);
    t.Alt = Data_Single(data, 12);
    if (d303) {
        t.Distance = kNo_Value;
        t.Cadence = kNo_Cadence;
        t.Sensor = kNo_Sensor;
        t.Heart_Rate = Data_Byte(data, 16);
    } else {
        t.Distance = Data_Single(data, 16);
        t.Heart_Rate = Data_Byte(data, 20);
        t.Cadence = Data_Byte(data, 21);
        t.Sensor = Data_Byte(data, 22);
    }
    return t;
}

std::optional<link::Packet> Encode_Fitness_Point(const cFitness_Point& t, std::string_view format,
                                                 std::uint16_t packet_id) {
    const bool d303 = format == "D303";
    if (!d303 && format != "D304") return std::nullopt;
    Bytes p(d303 ? 17 : 23, 0);
    Put_Marked_Positions(p, 0, {t.Lat, t.Lon});
    Put_Long(p, 8, static_cast<std::int32_t>(t.Time));
    Put_Single(p, 12, t.Alt);
    if (d303) {
        Put_Byte(p, 16, t.Heart_Rate);
    } else {
        Put_Single(p, 16, t.Distance);
        Put_Byte(p, 20, t.Heart_Rate);
        Put_Byte(p, 21, t.Cadence);
        Put_Byte(p, 22, t.Sensor);
    }
    return Packet_Of(packet_id, std::move(p));
}

// ---------------------------------------------------------------- courses

cCourse Decode_Course(link::Data_View data) {
    cCourse c;
    c.Index = U16(data, 0);
    c.Unused = U16(data, 2);
    c.Course_Name = Name_At(data, 4, 16);
    c.Track_Index = U16(data, 20);
    return c;
}

link::Packet Encode_Course(const cCourse& c, std::uint16_t packet_id) {
    Bytes p(22, 0);
    Put_Int(p, 0, static_cast<std::int16_t>(c.Index));
    Put_Int(p, 2, static_cast<std::int16_t>(c.Unused));
    Put_Name(p, 4, 16, c.Course_Name);
    Put_Int(p, 20, static_cast<std::int16_t>(c.Track_Index));
    return Packet_Of(packet_id, std::move(p));
}

cCourse_Lap Decode_Course_Lap(link::Data_View data) {
    cCourse_Lap l;
    l.Course_Index = U16(data, 0);
    l.Lap_Index = U16(data, 2);
    l.Total_Time = U32(data, 4);
    l.Total_Dist = Data_Single(data, 8);
    Marked_Positions(data, 12, {&l.Begin_Lat, &l.Begin_Lon, &l.End_Lat, &l.End_Lon});
    l.Avg_Heart_Rate = Data_Byte(data, 28);
    l.Max_Heart_Rate = Data_Byte(data, 29);
    l.Intensity = Data_Byte(data, 30);
    l.Avg_Cadence = Data_Byte(data, 31);
    return l;
}

link::Packet Encode_Course_Lap(const cCourse_Lap& l, std::uint16_t packet_id) {
    Bytes p(32, 0);
    Put_Int(p, 0, static_cast<std::int16_t>(l.Course_Index));
    Put_Int(p, 2, static_cast<std::int16_t>(l.Lap_Index));
    Put_Long(p, 4, static_cast<std::int32_t>(l.Total_Time));
    Put_Single(p, 8, l.Total_Dist);
    Put_Marked_Positions(p, 12, {l.Begin_Lat, l.Begin_Lon, l.End_Lat, l.End_Lon});
    Put_Byte(p, 28, l.Avg_Heart_Rate);
    Put_Byte(p, 29, l.Max_Heart_Rate);
    Put_Byte(p, 30, l.Intensity);
    Put_Byte(p, 31, l.Avg_Cadence);
    return Packet_Of(packet_id, std::move(p));
}

cCourse_Point Decode_Course_Point(link::Data_View data) {
    cCourse_Point c;
    c.Name = Name_At(data, 0, 11);
    c.Unused1 = Data_Byte(data, 11);
    c.Course_Index = U16(data, 12);
    c.Unused2 = U16(data, 14);
    c.Track_Point_Time = U32(data, 16);
    c.Point_Type = Data_Byte(data, 20);
    return c;
}

link::Packet Encode_Course_Point(const cCourse_Point& c, std::uint16_t packet_id) {
    Bytes p(21, 0);
    Put_Name(p, 0, 11, c.Name);
    Put_Byte(p, 11, c.Unused1);
    Put_Int(p, 12, static_cast<std::int16_t>(c.Course_Index));
    Put_Int(p, 14, static_cast<std::int16_t>(c.Unused2));
    Put_Long(p, 16, static_cast<std::int32_t>(c.Track_Point_Time));
    Put_Byte(p, 20, c.Point_Type);
    return Packet_Of(packet_id, std::move(p));
}

cCourse_Limits Decode_Course_Limits(link::Data_View data) {
    return {U32(data, 0), U32(data, 4), U32(data, 8), U32(data, 12)};
}

link::Packet Encode_Course_Limits(const cCourse_Limits& c, std::uint16_t packet_id) {
    Bytes p(16, 0);
    int at = 0;
    for (std::uint32_t v : {c.Max_Courses, c.Max_Course_Laps, c.Max_Course_Pnt, c.Max_Course_Trk_Pnt})
        Put_Long(p, std::exchange(at, at + 4), static_cast<std::int32_t>(v));
    return Packet_Of(packet_id, std::move(p));
}

}  // namespace trekcom::records
