#include "fitness.h"

#include <cmath>

#include "civil_time.h"
#include "wire.h"

namespace trekcom::sim {
namespace fitness {

namespace {

constexpr std::size_t kWorkout_Steps = 20 * 32;  // twenty steps of 32 bytes, all unused here

// Names are kept NUL-padded.
void Name(wire::Writer& w, const std::string& text, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) w.U8(i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0);
}
std::string Name(wire::Reader& r, std::size_t width) {
    std::string s;
    bool ended = false;
    for (std::size_t i = 0; i < width; ++i) {
        const char c = static_cast<char>(r.U8());
        ended = ended || c == '\0';
        if (!ended) s.push_back(c);
    }
    return s;
}
void Positions(wire::Writer& w, std::initializer_list<std::int32_t> semis) {
    for (std::int32_t s : semis) w.I32(s);
}

}  // namespace

Bytes Encode_Run(const Run& r, std::uint16_t type) {
    wire::Writer w;
    if (type == 1009) {
        w.U16(static_cast<std::uint16_t>(r.track_index)), w.U16(static_cast<std::uint16_t>(r.first_lap));
        w.U16(static_cast<std::uint16_t>(r.last_lap));
        w.U8(r.sport), w.U8(r.program), w.U8(r.multisport), w.U8(0), w.U16(0);
    } else {
        w.U32(r.track_index), w.U32(r.first_lap), w.U32(r.last_lap);
        w.U8(r.sport), w.U8(r.program);
        if (type == 1010) w.U8(r.multisport), w.U8(0);
        else w.U16(0);
    }
    w.U32(r.partner_time), w.F32(r.partner_distance);
    w.U32(0);  // no valid workout steps
    for (std::size_t i = 0; i < kWorkout_Steps; ++i) w.U8(0);
    Name(w, r.workout_name, 16);
    w.U8(r.workout_sport);
    return w.Take();
}

Bytes Encode_Lap(const Fitness_Lap& l, std::uint16_t type) {
    wire::Writer w;
    if (type == 1001) w.U32(l.index);
    else w.U16(static_cast<std::uint16_t>(l.index)), w.U16(0);
    w.U32(l.start_time), w.U32(l.total_time), w.F32(l.total_dist), w.F32(l.max_speed);
    Positions(w, {l.begin_lat, l.begin_lon, l.end_lat, l.end_lon});
    w.U16(l.calories), w.U8(l.avg_heart_rate), w.U8(l.max_heart_rate), w.U8(l.intensity);
    if (type != 1001) w.U8(l.avg_cadence), w.U8(l.trigger_method);
    if (type == 1015)
        for (std::uint8_t b : l.extra) w.U8(b);
    return w.Take();
}

Bytes Encode_Track_Index(std::uint16_t index) {
    wire::Writer w;
    w.U16(index);
    return w.Take();
}

bool Decode_Track_Index(const Bytes& data, std::uint16_t& index) {
    wire::Reader r(data);
    const std::uint16_t v = r.U16();
    if (r.Ok()) index = v;
    return r.Ok();
}

Bytes Encode_Point(const Fitness_Point& p, std::uint16_t type) {
    wire::Writer w;
    w.I32(p.lat), w.I32(p.lon), w.U32(p.time), w.F32(p.alt);
    if (type == 304) w.F32(p.distance);
    w.U8(p.heart_rate);
    if (type == 304) w.U8(p.cadence), w.U8(p.sensor);
    return w.Take();
}

bool Decode_Point(const Bytes& data, std::uint16_t type, Fitness_Point& p) {
    wire::Reader r(data);
    Fitness_Point q;
    q.lat = r.I32(), q.lon = r.I32(), q.time = r.U32(), q.alt = r.F32();
    if (type == 304) q.distance = r.F32();
    q.heart_rate = r.U8();
    if (type == 304) q.cadence = r.U8(), q.sensor = r.U8();
    if (r.Ok()) p = q;
    return r.Ok();
}

Bytes Encode_Course(const Course& c) {
    wire::Writer w;
    w.U16(c.index), w.U16(0);
    Name(w, c.name, 16);
    w.U16(c.track_index);
    return w.Take();
}

bool Decode_Course(const Bytes& data, Course& c) {
    wire::Reader r(data);
    Course d;
    d.index = r.U16();
    r.U16();
    d.name = Name(r, 16);
    d.track_index = r.U16();
    if (r.Ok()) c = d;
    return r.Ok();
}

Bytes Encode_Course_Lap(const Course_Lap& l) {
    wire::Writer w;
    w.U16(l.course_index), w.U16(l.lap_index), w.U32(l.total_time), w.F32(l.total_dist);
    Positions(w, {l.begin_lat, l.begin_lon, l.end_lat, l.end_lon});
    w.U8(l.avg_heart_rate), w.U8(l.max_heart_rate), w.U8(l.intensity), w.U8(l.avg_cadence);
    return w.Take();
}

bool Decode_Course_Lap(const Bytes& data, Course_Lap& l) {
    wire::Reader r(data);
    Course_Lap m;
    m.course_index = r.U16(), m.lap_index = r.U16(), m.total_time = r.U32(), m.total_dist = r.F32();
    m.begin_lat = r.I32(), m.begin_lon = r.I32(), m.end_lat = r.I32(), m.end_lon = r.I32();
    m.avg_heart_rate = r.U8(), m.max_heart_rate = r.U8(), m.intensity = r.U8(), m.avg_cadence = r.U8();
    if (r.Ok()) l = m;
    return r.Ok();
}

Bytes Encode_Course_Point(const Course_Point& p) {
    wire::Writer w;
    Name(w, p.name, 11);
    w.U8(0), w.U16(p.course_index), w.U16(0), w.U32(p.time), w.U8(p.type);
    return w.Take();
}

bool Decode_Course_Point(const Bytes& data, Course_Point& p) {
    wire::Reader r(data);
    Course_Point q;
    q.name = Name(r, 11);
    r.U8();
    q.course_index = r.U16();
    r.U16();
    q.time = r.U32(), q.type = r.U8();
    if (r.Ok()) p = q;
    return r.Ok();
}

Bytes Encode_Limits(const Course_Limits& l) {
    wire::Writer w;
    w.U32(l.courses), w.U32(l.laps), w.U32(l.points), w.U32(l.track_points);
    return w.Take();
}

}  // namespace fitness

// ---------------------------------------------------------------- the data set

namespace {

constexpr std::int32_t kNo_Position = 0x7FFFFFFF;

struct Lap_Plan {
    int seconds;
    bool heart, cadence;
};

// One run: its laps one after the other from `start`, and (unless no_track)
// a point every 5 seconds along a line heading north-east.
void Add_Run(Data_Set& d, std::uint8_t sport, std::uint32_t start, std::initializer_list<Lap_Plan> plan,
             bool with_track, bool d304_sensor) {
    Run run;
    run.sport = sport;
    run.program = sport == 1 ? 1 : 0;
    run.partner_time = 180000, run.partner_distance = 5000.0f;
    run.workout_name = sport == 1 ? "Tempo ride" : "Easy run";
    run.workout_sport = sport;
    run.first_lap = static_cast<std::uint32_t>(d.fitness_laps.size());
    run.last_lap = run.first_lap + static_cast<std::uint32_t>(plan.size()) - 1;
    Fitness_Track track;
    track.index = static_cast<std::uint16_t>(d.fitness_tracks.size());
    const double speed = sport == 1 ? 8.0 : 3.2;  // metres per second
    std::uint32_t t = start;
    double lat = 46.52 + 0.01 * static_cast<double>(d.runs.size()), lon = 6.63, dist = 0;
    for (const Lap_Plan& p : plan) {
        Fitness_Lap lap;
        lap.index = static_cast<std::uint32_t>(d.fitness_laps.size());
        lap.start_time = t;
        lap.total_time = static_cast<std::uint32_t>(p.seconds) * 100;
        lap.total_dist = static_cast<float>(speed * p.seconds);
        lap.max_speed = static_cast<float>(speed * 1.2);
        lap.begin_lat = Deg_To_Semi(lat), lap.begin_lon = Deg_To_Semi(lon);
        lap.calories = static_cast<std::uint16_t>(p.seconds / 6);
        lap.avg_heart_rate = p.heart ? 142 : 0, lap.max_heart_rate = p.heart ? 171 : 0;
        lap.avg_cadence = p.cadence ? (sport == 1 ? 88 : 84) : 0xFF;
        lap.trigger_method = static_cast<std::uint8_t>(1 + lap.index % 4);
        lap.intensity = static_cast<std::uint8_t>(lap.index % 2);
        lap.extra = {0x01, 0x00, static_cast<std::uint8_t>(lap.index), 0xFF, 0x7F};
        for (int s = 0; s < p.seconds; s += 5) {
            Fitness_Point pt;
            const bool lost = s == 10 && lap.index % 2 == 0;  // the fix lost for a moment
            pt.lat = lost ? kNo_Position : Deg_To_Semi(lat);
            pt.lon = lost ? kNo_Position : Deg_To_Semi(lon);
            pt.time = t + static_cast<std::uint32_t>(s);
            pt.alt = lost ? kNoValue : static_cast<float>(372.0 + 0.1 * s);
            pt.distance = static_cast<float>(dist);
            pt.heart_rate = p.heart ? static_cast<std::uint8_t>(120 + (s / 5) % 50) : 0;
            pt.cadence = p.cadence ? static_cast<std::uint8_t>(80 + (s / 5) % 15) : 0xFF;
            pt.sensor = d304_sensor ? 1 : 0;
            track.points.push_back(pt);
            lat += speed * 5 / 111000.0 * 0.7, lon += speed * 5 / 76000.0 * 0.7, dist += speed * 5;
        }
        lap.end_lat = Deg_To_Semi(lat), lap.end_lon = Deg_To_Semi(lon);
        t += static_cast<std::uint32_t>(p.seconds);
        d.fitness_laps.push_back(lap);
    }
    if (with_track) {
        run.track_index = track.index;
        d.fitness_tracks.push_back(std::move(track));
    }
    d.runs.push_back(run);
}

std::uint32_t Receiver_Time(int y, int mo, int d, int h, int mi, int s) {
    return static_cast<std::uint32_t>(Unix_From_Civil({y, mo, d, h, mi, s}) - kEpochOffset_s);
}

}  // namespace

void Add_Fitness_Data(Data_Set& d) {
    Add_Run(d, 0, Receiver_Time(2024, 6, 2, 7, 30, 0), {{60, true, true}, {45, true, true}, {50, true, true}}, true,
            true);
    Add_Run(d, 1, Receiver_Time(2024, 6, 3, 17, 5, 0), {{90, false, true}}, true, true);
    Add_Run(d, 0, Receiver_Time(2024, 6, 4, 6, 50, 0), {{40, true, false}}, false, false);
    Add_Run(d, 1, Receiver_Time(2024, 6, 5, 18, 0, 0), {{35, true, false}, {30, false, false}}, true, false);
    Add_Run(d, 2, Receiver_Time(2024, 6, 6, 12, 0, 0), {{20, true, true}}, true, true);

    const std::uint32_t t0 = Receiver_Time(2024, 6, 8, 8, 0, 0);
    for (std::uint16_t c = 0; c < 2; ++c) {
        Course course{c, c == 0 ? "Lake loop" : "Mollendruz climb", static_cast<std::uint16_t>(10 + c)};
        Fitness_Track track{course.track_index, {}};
        double lat = 46.60 + 0.05 * c, lon = 6.40;
        for (std::uint16_t k = 0; k < 2 - c; ++k) {
            Course_Lap lap;
            lap.course_index = c, lap.lap_index = k, lap.total_time = 60000, lap.total_dist = 1500.0f;
            lap.begin_lat = Deg_To_Semi(lat), lap.begin_lon = Deg_To_Semi(lon);
            for (int s = 0; s < 8; ++s) {
                Fitness_Point pt;
                pt.lat = Deg_To_Semi(lat), pt.lon = Deg_To_Semi(lon);
                pt.time = t0 + static_cast<std::uint32_t>(k * 600 + s * 75);
                pt.alt = static_cast<float>(500 + 20 * s * (c + 1));
                pt.distance = static_cast<float>(k * 1500 + s * 187.5);
                track.points.push_back(pt);
                lat += 0.0012, lon += 0.0009;
            }
            lap.end_lat = Deg_To_Semi(lat), lap.end_lon = Deg_To_Semi(lon);
            lap.avg_heart_rate = 150, lap.max_heart_rate = 175, lap.avg_cadence = c == 0 ? 86 : 0xFF;
            d.course_laps.push_back(lap);
        }
        d.course_points.push_back({c == 0 ? "Water" : "Summit", c, track.points[3].time, std::uint8_t(c == 0 ? 3 : 1)});
        if (c == 0) d.course_points.push_back({"Turn left", c, track.points[6].time, 6});
        d.courses.push_back(course);
        d.course_tracks.push_back(std::move(track));
    }
}

}  // namespace trekcom::sim
