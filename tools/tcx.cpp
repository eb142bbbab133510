#include "tcx.h"

#include <cmath>
#include <cstdio>
#include <vector>

#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include "data.h"

namespace trekcom::tool {

namespace {

using nlohmann::json;

constexpr const char* kSports[] = {"Running", "Biking", "Other"};
constexpr const char* kTriggers[] = {"Manual", "Distance", "Location", "Time", "HeartRate"};
constexpr const char* kPoint_Types[] = {"Generic", "Summit", "Valley", "Water", "Food", "Danger", "Left", "Right",
                                        "Straight", "First Aid", "4th Category", "3rd Category", "2nd Category",
                                        "1st Category", "Hors Category", "Sprint"};

std::string Fixed(double v, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}
const char* Sport(std::uint8_t s) { return s < 3 ? kSports[s] : "Other"; }
const char* Trigger(std::uint8_t t) { return t < 5 ? kTriggers[t] : "Manual"; }
bool Placed(double lat, double lon) { return !std::isnan(lat) && !std::isnan(lon); }
std::string Escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '&') out += "&amp;";
        else if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '"') out += "&quot;";
        else out += c;
    }
    return out;
}

// ---------------------------------------------------------------- TCX pieces

void Tcx_Position(std::ostream& o, const char* tag, double lat, double lon, const char* pad) {
    if (!Placed(lat, lon)) return;
    o << pad << '<' << tag << "><LatitudeDegrees>" << Fixed(lat, 8) << "</LatitudeDegrees><LongitudeDegrees>"
      << Fixed(lon, 8) << "</LongitudeDegrees></" << tag << ">\n";
}
void Tcx_Bpm(std::ostream& o, const char* tag, std::uint8_t bpm, const char* pad) {
    if (bpm) o << pad << '<' << tag << "><Value>" << +bpm << "</Value></" << tag << ">\n";
}

void Tcx_Point(std::ostream& o, const cFitness_Point& p) {
    const char* pad = "            ";
    o << "          <Trackpoint>\n" << pad << "<Time>" << Iso_Time(p.Time) << "</Time>\n";
    Tcx_Position(o, "Position", p.Lat, p.Lon, pad);
    if (Has_Value(p.Alt)) o << pad << "<AltitudeMeters>" << Fixed(p.Alt, 3) << "</AltitudeMeters>\n";
    if (Has_Value(p.Distance)) o << pad << "<DistanceMeters>" << Fixed(p.Distance, 3) << "</DistanceMeters>\n";
    Tcx_Bpm(o, "HeartRateBpm", p.Heart_Rate, pad);
    if (p.Cadence != kNo_Cadence) o << pad << "<Cadence>" << +p.Cadence << "</Cadence>\n";
    if (p.Sensor != kNo_Sensor) o << pad << "<SensorState>" << (p.Sensor ? "Present" : "Absent") << "</SensorState>\n";
    o << "          </Trackpoint>\n";
}

void Tcx_Track(std::ostream& o, const std::vector<const cFitness_Point*>& points) {
    if (points.empty()) return;
    o << "        <Track>\n";
    for (const cFitness_Point* p : points) Tcx_Point(o, *p);
    o << "        </Track>\n";
}

void Tcx_Lap(std::ostream& o, const cFitness_Lap& l, const std::vector<const cFitness_Point*>& points) {
    const char* pad = "        ";
    o << "      <Lap StartTime=\"" << Iso_Time(l.Start_Time) << "\">\n";
    o << pad << "<TotalTimeSeconds>" << Fixed(l.Total_Time / 100.0, 2) << "</TotalTimeSeconds>\n";
    if (Has_Value(l.Total_Dist)) o << pad << "<DistanceMeters>" << Fixed(l.Total_Dist, 2) << "</DistanceMeters>\n";
    if (Has_Value(l.Max_Speed)) o << pad << "<MaximumSpeed>" << Fixed(l.Max_Speed, 3) << "</MaximumSpeed>\n";
    o << pad << "<Calories>" << l.Calories << "</Calories>\n";
    Tcx_Bpm(o, "AverageHeartRateBpm", l.Avg_Heart_Rate, pad);
    Tcx_Bpm(o, "MaximumHeartRateBpm", l.Max_Heart_Rate, pad);
    o << pad << "<Intensity>" << (l.Intensity ? "Resting" : "Active") << "</Intensity>\n";
    if (l.Avg_Cadence != kNo_Cadence) o << pad << "<Cadence>" << +l.Avg_Cadence << "</Cadence>\n";
    o << pad << "<TriggerMethod>" << Trigger(l.Trigger_Method) << "</TriggerMethod>\n";
    Tcx_Track(o, points);
    o << "      </Lap>\n";
}

// Each point goes to the lap whose time span holds it: the last lap that
// started at or before it (the first lap for a point before them all).
std::vector<std::vector<const cFitness_Point*>> Points_By_Lap(const cRun& run) {
    std::vector<std::vector<const cFitness_Point*>> by_lap(static_cast<std::size_t>(run.Laps->Count()));
    if (!run.Points || by_lap.empty()) return by_lap;
    for (const auto& p : *run.Points) {
        std::size_t k = 0;
        for (std::size_t i = 0; i < by_lap.size(); ++i)
            if (run.Laps->Item(static_cast<std::int32_t>(i) + 1)->Start_Time <= p->Time) k = i;
        by_lap[k].push_back(p.get());
    }
    return by_lap;
}

void Tcx_Run(std::ostream& o, const cRun& run) {
    o << "    <Activity Sport=\"" << Sport(run.Sport_Type) << "\">\n";
    o << "      <Id>" << Iso_Time(run.Laps->Item(1)->Start_Time) << "</Id>\n";
    const auto points = Points_By_Lap(run);
    for (std::size_t i = 0; i < points.size(); ++i)
        Tcx_Lap(o, *run.Laps->Item(static_cast<std::int32_t>(i) + 1), points[i]);
    o << "    </Activity>\n";
}

// ---------------------------------------------------------------- GPX and JSON

void Gpx_Run(std::ostream& o, const cRun& run) {
    o << "  <trk>\n    <name>" << Sport(run.Sport_Type);
    if (run.Laps->Count()) o << ' ' << Iso_Time(run.Laps->Item(1)->Start_Time);
    o << "</name>\n    <type>" << Sport(run.Sport_Type) << "</type>\n";
    for (const auto& lap : Points_By_Lap(run)) {
        o << "    <trkseg>\n";
        for (const cFitness_Point* p : lap) {
            if (!Placed(p->Lat, p->Lon)) continue;  // GPX has no point without a position
            o << "      <trkpt lat=\"" << Fixed(p->Lat, 8) << "\" lon=\"" << Fixed(p->Lon, 8) << "\">";
            if (Has_Value(p->Alt)) o << "<ele>" << Fixed(p->Alt, 3) << "</ele>";
            o << "<time>" << Iso_Time(p->Time) << "</time>";
            if (p->Heart_Rate || p->Cadence != kNo_Cadence) {
                o << "<extensions><gpxtpx:TrackPointExtension>";
                if (p->Heart_Rate) o << "<gpxtpx:hr>" << +p->Heart_Rate << "</gpxtpx:hr>";
                if (p->Cadence != kNo_Cadence) o << "<gpxtpx:cad>" << +p->Cadence << "</gpxtpx:cad>";
                o << "</gpxtpx:TrackPointExtension></extensions>";
            }
            o << "</trkpt>\n";
        }
        o << "    </trkseg>\n";
    }
    o << "  </trk>\n";
}

json Position_Json(double lat, double lon) {
    return Placed(lat, lon) ? json{{"lat", lat}, {"lon", lon}} : json(nullptr);
}

json Run_Json(const cRun& r) {
    json laps = json::array(), points = json::array();
    for (const auto& l : *r.Laps) {
        json j{{"index", l->Index}, {"start", Iso_Time(l->Start_Time)}, {"total_time_s", l->Total_Time / 100.0},
               {"calories", l->Calories}, {"begin", Position_Json(l->Begin_Lat, l->Begin_Lon)},
               {"end", Position_Json(l->End_Lat, l->End_Lon)}, {"intensity", l->Intensity ? "Resting" : "Active"},
               {"trigger", Trigger(l->Trigger_Method)}};
        if (Has_Value(l->Total_Dist)) j["distance_m"] = l->Total_Dist;
        if (Has_Value(l->Max_Speed)) j["max_speed_mps"] = l->Max_Speed;
        if (l->Avg_Heart_Rate) j["avg_heart_rate"] = l->Avg_Heart_Rate;
        if (l->Max_Heart_Rate) j["max_heart_rate"] = l->Max_Heart_Rate;
        if (l->Avg_Cadence != kNo_Cadence) j["avg_cadence"] = l->Avg_Cadence;
        laps.push_back(std::move(j));
    }
    for (const auto& p : *r.Points) {
        json j{{"time", Iso_Time(p->Time)}, {"position", Position_Json(p->Lat, p->Lon)}};
        if (Has_Value(p->Alt)) j["alt_m"] = p->Alt;
        if (Has_Value(p->Distance)) j["distance_m"] = p->Distance;
        if (p->Heart_Rate) j["heart_rate"] = p->Heart_Rate;
        if (p->Cadence != kNo_Cadence) j["cadence"] = p->Cadence;
        if (p->Sensor != kNo_Sensor) j["sensor"] = p->Sensor != 0;
        points.push_back(std::move(j));
    }
    return {{"sport", Sport(r.Sport_Type)}, {"track_index", r.Track_Index}, {"first_lap", r.First_Lap_Index},
            {"last_lap", r.Last_Lap_Index}, {"laps", std::move(laps)}, {"points", std::move(points)}};
}

const char* kTcx_Head =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<TrainingCenterDatabase xmlns=\"http://www.garmin.com/xmlschemas/TrainingCenterDatabase/v2\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\"http://www.garmin.com/xmlschemas/"
    "TrainingCenterDatabase/v2 http://www.garmin.com/xmlschemas/TrainingCenterDatabasev2.xsd\">\n";
const char* kGpx_Head =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<gpx version=\"1.1\" creator=\"trekcom\" xmlns=\"http://www.topografix.com/GPX/1/1\" "
    "xmlns:gpxtpx=\"http://www.garmin.com/xmlschemas/TrackPointExtension/v1\">\n";

}  // namespace

Fitness_Format Fitness_Format_Of(const std::string& path, bool as_json) {
    if (as_json || path.ends_with(".json")) return Fitness_Format::json;
    return path.ends_with(".gpx") ? Fitness_Format::gpx : Fitness_Format::tcx;
}

Run_Writer::Run_Writer(std::ostream& out, Fitness_Format format) : out_(out), format_(format) {
    if (format_ == Fitness_Format::tcx) out_ << kTcx_Head << "  <Activities>\n";
    if (format_ == Fitness_Format::gpx) out_ << kGpx_Head;
    if (format_ == Fitness_Format::json) out_ << "[";
}

void Run_Writer::Run(const cRun& run) {
    if (!run.Laps || !run.Points) return;
    if (format_ == Fitness_Format::tcx) {
        if (run.Laps->Count() == 0) return;  // an Activity needs a lap
        Tcx_Run(out_, run);
    } else if (format_ == Fitness_Format::gpx) {
        Gpx_Run(out_, run);
    } else {
        out_ << (written_ ? ",\n" : "\n") << Run_Json(run).dump(2, ' ', false, json::error_handler_t::replace);
    }
    ++written_;
    out_.flush();
}

void Run_Writer::End() {
    if (format_ == Fitness_Format::tcx) out_ << "  </Activities>\n</TrainingCenterDatabase>\n";
    if (format_ == Fitness_Format::gpx) out_ << "</gpx>\n";
    if (format_ == Fitness_Format::json) out_ << "\n]\n";
    out_.flush();
}

// ---------------------------------------------------------------- courses out

namespace {

void Tcx_Course(std::ostream& o, const cCourse& c) {
    const char* pad = "        ";
    o << "    <Course>\n      <Name>" << Escaped(c.Course_Name.substr(0, 15)) << "</Name>\n";
    if (c.Laps)
        for (const auto& l : *c.Laps) {
            o << "      <Lap>\n" << pad << "<TotalTimeSeconds>" << Fixed(l->Total_Time / 100.0, 2) << "</TotalTimeSeconds>\n";
            o << pad << "<DistanceMeters>" << Fixed(Has_Value(l->Total_Dist) ? l->Total_Dist : 0, 2) << "</DistanceMeters>\n";
            Tcx_Position(o, "BeginPosition", l->Begin_Lat, l->Begin_Lon, pad);
            Tcx_Position(o, "EndPosition", l->End_Lat, l->End_Lon, pad);
            Tcx_Bpm(o, "AverageHeartRateBpm", l->Avg_Heart_Rate, pad);
            Tcx_Bpm(o, "MaximumHeartRateBpm", l->Max_Heart_Rate, pad);
            o << pad << "<Intensity>" << (l->Intensity ? "Resting" : "Active") << "</Intensity>\n";
            if (l->Avg_Cadence != kNo_Cadence) o << pad << "<Cadence>" << +l->Avg_Cadence << "</Cadence>\n";
            o << "      </Lap>\n";
        }
    std::vector<const cFitness_Point*> points;
    if (c.Points)
        for (const auto& p : *c.Points) points.push_back(p.get());
    Tcx_Track(o, points);
    if (c.Course_Points)
        for (const auto& m : *c.Course_Points) {
            o << "      <CoursePoint>\n" << pad << "<Name>" << Escaped(m->Name.substr(0, 10)) << "</Name>\n";
            o << pad << "<Time>" << Iso_Time(m->Track_Point_Time) << "</Time>\n";
            for (const cFitness_Point* p : points)
                if (p->Time == m->Track_Point_Time) {
                    Tcx_Position(o, "Position", p->Lat, p->Lon, pad);
                    break;
                }
            o << pad << "<PointType>" << (m->Point_Type < 16 ? kPoint_Types[m->Point_Type] : "Generic")
              << "</PointType>\n      </CoursePoint>\n";
        }
    o << "    </Course>\n";
}

}  // namespace

void Write_Courses(std::ostream& out, const Collection<cCourse>& courses, Fitness_Format format) {
    if (format == Fitness_Format::tcx) {
        out << kTcx_Head << "  <Courses>\n";
        for (const auto& c : courses) Tcx_Course(out, *c);
        out << "  </Courses>\n</TrainingCenterDatabase>\n";
        return;
    }
    // Elsewhere a course is a run without laps of its own: its track.
    Run_Writer w(out, format);
    for (const auto& c : courses) {
        cRun run;
        run.Laps = std::make_shared<Collection<cFitness_Lap>>();
        run.Points = c->Points ? c->Points : std::make_shared<Collection<cFitness_Point>>();
        w.Run(run);
    }
    w.End();
}

// ---------------------------------------------------------------- courses in

namespace {

double Number_At(pugi::xml_node node, const char* path, double otherwise) {
    const pugi::xml_node n = node.first_element_by_path(path);
    return n ? n.text().as_double(otherwise) : otherwise;
}

cFitness_Point Point_From(pugi::xml_node tp, bool gpx) {
    cFitness_Point p;
    p.Lat = p.Lon = std::nan("");
    p.Alt = p.Distance = kNo_Value;
    p.Cadence = kNo_Cadence;
    p.Sensor = kNo_Sensor;
    const auto time = Parse_Iso_Time(tp.child_value(gpx ? "time" : "Time"));
    if (time) p.Time = static_cast<std::uint32_t>(*time);
    if (gpx) {
        p.Lat = tp.attribute("lat").as_double(std::nan("")), p.Lon = tp.attribute("lon").as_double(std::nan(""));
        p.Alt = static_cast<float>(Number_At(tp, "ele", kNo_Value));
        for (pugi::xml_node e : tp.child("extensions").children())
            for (pugi::xml_node v : e.children()) {
                const std::string name = v.name();
                if (name.ends_with(":hr") || name == "hr") p.Heart_Rate = static_cast<std::uint8_t>(v.text().as_uint());
                if (name.ends_with(":cad") || name == "cad") p.Cadence = static_cast<std::uint8_t>(v.text().as_uint());
            }
        return p;
    }
    p.Lat = Number_At(tp, "Position/LatitudeDegrees", std::nan(""));
    p.Lon = Number_At(tp, "Position/LongitudeDegrees", std::nan(""));
    p.Alt = static_cast<float>(Number_At(tp, "AltitudeMeters", kNo_Value));
    p.Distance = static_cast<float>(Number_At(tp, "DistanceMeters", kNo_Value));
    p.Heart_Rate = static_cast<std::uint8_t>(Number_At(tp, "HeartRateBpm/Value", 0));
    p.Cadence = static_cast<std::uint8_t>(Number_At(tp, "Cadence", kNo_Cadence));
    return p;
}

std::shared_ptr<cCourse> New_Course(std::size_t index, const std::string& name) {
    auto c = std::make_shared<cCourse>();
    c->Index = static_cast<std::uint16_t>(index);
    c->Track_Index = static_cast<std::uint16_t>(index);
    c->Course_Name = name.substr(0, 15);
    c->Laps = std::make_shared<Collection<cCourse_Lap>>();
    c->Course_Points = std::make_shared<Collection<cCourse_Point>>();
    c->Points = std::make_shared<Collection<cFitness_Point>>();
    return c;
}

void Tcx_Course_In(pugi::xml_node node, cCourse& c) {
    for (pugi::xml_node lap : node.children("Lap")) {
        auto l = std::make_shared<cCourse_Lap>();
        l->Course_Index = c.Index;
        l->Lap_Index = static_cast<std::uint16_t>(c.Laps->Count());
        l->Total_Time = static_cast<std::uint32_t>(std::lround(Number_At(lap, "TotalTimeSeconds", 0) * 100));
        l->Total_Dist = static_cast<float>(Number_At(lap, "DistanceMeters", 0));
        l->Begin_Lat = Number_At(lap, "BeginPosition/LatitudeDegrees", std::nan(""));
        l->Begin_Lon = Number_At(lap, "BeginPosition/LongitudeDegrees", std::nan(""));
        l->End_Lat = Number_At(lap, "EndPosition/LatitudeDegrees", std::nan(""));
        l->End_Lon = Number_At(lap, "EndPosition/LongitudeDegrees", std::nan(""));
        l->Avg_Heart_Rate = static_cast<std::uint8_t>(Number_At(lap, "AverageHeartRateBpm/Value", 0));
        l->Max_Heart_Rate = static_cast<std::uint8_t>(Number_At(lap, "MaximumHeartRateBpm/Value", 0));
        l->Intensity = std::string(lap.child_value("Intensity")) == "Resting" ? 1 : 0;
        l->Avg_Cadence = static_cast<std::uint8_t>(Number_At(lap, "Cadence", kNo_Cadence));
        c.Laps->Add(l);
    }
    for (pugi::xpath_node tp : node.select_nodes("Track/Trackpoint"))
        c.Points->Add(std::make_shared<cFitness_Point>(Point_From(tp.node(), false)));
    for (pugi::xml_node m : node.children("CoursePoint")) {
        auto p = std::make_shared<cCourse_Point>();
        p->Name = std::string(m.child_value("Name")).substr(0, 10);
        p->Course_Index = c.Index;
        if (const auto t = Parse_Iso_Time(m.child_value("Time"))) p->Track_Point_Time = static_cast<std::uint32_t>(*t);
        const std::string type = m.child_value("PointType");
        for (std::uint8_t k = 0; k < 16; ++k)
            if (type == kPoint_Types[k]) p->Point_Type = k;
        c.Course_Points->Add(p);
    }
}

// A GPX track as a course of one lap from its first point to its last.
void Gpx_Course_In(pugi::xml_node trk, cCourse& c) {
    for (pugi::xpath_node tp : trk.select_nodes("trkseg/trkpt"))
        c.Points->Add(std::make_shared<cFitness_Point>(Point_From(tp.node(), true)));
    if (c.Points->Count() == 0) return;
    const cFitness_Point& first = *c.Points->Item(1);
    const cFitness_Point& last = *c.Points->Item(c.Points->Count());
    auto l = std::make_shared<cCourse_Lap>();
    l->Course_Index = c.Index;
    l->Total_Time = (last.Time - first.Time) * 100;
    double metres = 0;
    for (std::int32_t i = 2; i <= c.Points->Count(); ++i) {
        const cFitness_Point& a = *c.Points->Item(i - 1);
        const cFitness_Point& b = *c.Points->Item(i);
        const double k = M_PI / 180, dlat = (b.Lat - a.Lat) * k, dlon = (b.Lon - a.Lon) * k;
        const double h = std::sin(dlat / 2) * std::sin(dlat / 2) +
                         std::cos(a.Lat * k) * std::cos(b.Lat * k) * std::sin(dlon / 2) * std::sin(dlon / 2);
        metres += 2 * 6371000.0 * std::asin(std::sqrt(h));
        c.Points->Item(i)->Distance = static_cast<float>(metres);
    }
    c.Points->Item(1)->Distance = 0;
    l->Total_Dist = static_cast<float>(metres);
    l->Begin_Lat = first.Lat, l->Begin_Lon = first.Lon, l->End_Lat = last.Lat, l->End_Lon = last.Lon;
    l->Avg_Cadence = kNo_Cadence;
    c.Laps->Add(l);
}

}  // namespace

bool Read_Courses(const std::string& path, Collection<cCourse>& out, std::string& error) {
    pugi::xml_document doc;
    const pugi::xml_parse_result parsed = doc.load_file(path.c_str());
    if (!parsed) {
        error = path + ": " + parsed.description();
        return false;
    }
    for (pugi::xpath_node node : doc.select_nodes("/TrainingCenterDatabase/Courses/Course")) {
        auto c = New_Course(static_cast<std::size_t>(out.Count()), node.node().child_value("Name"));
        Tcx_Course_In(node.node(), *c);
        out.Add(c);
    }
    for (pugi::xpath_node trk : doc.select_nodes("/gpx/trk")) {
        auto c = New_Course(static_cast<std::size_t>(out.Count()), trk.node().child_value("name"));
        Gpx_Course_In(trk.node(), *c);
        if (c->Points->Count()) out.Add(c);
    }
    if (out.Count() == 0) error = path + ": no course (TCX Courses) or track (GPX) in it";
    return out.Count() > 0;
}

}  // namespace trekcom::tool
