#include "commands.h"

#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <sstream>

#include "devices.h"
#include "files.h"
#include "gpsd.h"
#include "tcx.h"

namespace trekcom::tool {

namespace {

using nlohmann::json;

constexpr double kRad_To_Deg = 180.0 / std::numbers::pi;

std::string Upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string Format(const char* fmt, auto... args) {
    char text[256];
    std::snprintf(text, sizeof text, fmt, args...);
    return text;
}

// A session opened and, unless told otherwise, introduced to the receiver.
struct Opened {
    explicit Opened(Session_Options& options, bool identify = true) : session(options) {
        session.Open();
        if (identify) session.Identify();
    }
    Session session;
    TrekcomCtl& ctl() { return session.Ctl(); }
};

void Print_Json(const json& j) { std::cout << j.dump(2, ' ', false, json::error_handler_t::replace) << '\n'; }

// Where `get` writes: standard output ("-") or a file. A file is written
// beside its place and put there by Keep(), so a download that fails leaves
// whatever was there before.
class Output_File {
public:
    explicit Output_File(const std::string& path) : path_(path), part_(path + ".part") {
        if (path_ == "-") return;
        file_.open(part_, std::ios::binary | std::ios::trunc);
        if (!file_) throw Failure(kError, "cannot write " + path_);
    }
    ~Output_File() {
        if (path_ == "-" || kept_) return;
        file_.close();
        std::remove(part_.c_str());
    }
    Output_File(const Output_File&) = delete;
    Output_File& operator=(const Output_File&) = delete;

    std::ostream& Stream() { return path_ == "-" ? std::cout : file_; }
    void Keep() {
        if (path_ == "-") return;
        file_.close();
        if (!file_ || std::rename(part_.c_str(), path_.c_str()) != 0) throw Failure(kError, "cannot write " + path_);
        kept_ = true;
    }

private:
    std::string path_, part_;
    std::ofstream file_;
    bool kept_ = false;
};

std::vector<Kind> Parse_Kinds(const std::vector<std::string>& names, bool& all) {
    std::vector<Kind> kinds;
    all = false;
    for (const auto& n : names) {
        if (Upper(n) == "ALL") {
            all = true;
            kinds.assign(std::begin(kAll_Kinds), std::end(kAll_Kinds));
            continue;
        }
        const auto k = Kind_Named(n);
        if (!k) throw Failure(kUsage, "unknown kind \"" + n + "\" (waypoints, proximity, routes, tracks, laps, "
                                      "flightbook, almanac, all)");
        if (std::find(kinds.begin(), kinds.end(), *k) == kinds.end()) kinds.push_back(*k);
    }
    return kinds;
}

// Counts the records on their way to another writer (if any), for the summary.
class Record_Tally : public Record_Writer {
public:
    explicit Record_Tally(Record_Writer* next = nullptr) : next_(next) {}

    void Begin(const std::string& source) override { Pass(&Record_Writer::Begin, source); }
    void Begin_Kind(Kind k) override {
        kinds_.push_back(k);
        kind_ = k;
        Pass(&Record_Writer::Begin_Kind, k);
    }
    void Waypoint(const cWaypoint& w) override {
        if (kind_ == Kind::Routes) {
            if (count_[kind_] == 0) ++count_[kind_];  // points before any header: a nameless route
            ++points_[kind_];
        } else {
            ++count_[kind_];
        }
        Pass(&Record_Writer::Waypoint, w);
    }
    void Route(const cRoute& header) override { ++count_[kind_]; Pass(&Record_Writer::Route, header); }
    void Track(const cTrack& header) override { ++count_[kind_]; Pass(&Record_Writer::Track, header); }
    void Track_Point(const cTrack& point) override {
        if (count_[kind_] == 0) ++count_[kind_];
        ++points_[kind_];
        Pass(&Record_Writer::Track_Point, point);
    }
    void Lap(const cLap& l) override { ++count_[kind_]; Pass(&Record_Writer::Lap, l); }
    void Flight(const cFlightbook_Record& f) override { ++count_[kind_]; Pass(&Record_Writer::Flight, f); }
    void Almanac(const cAlmanac& a) override { ++count_[kind_]; Pass(&Record_Writer::Almanac, a); }
    void End_Kind(Kind k) override { Pass(&Record_Writer::End_Kind, k); }
    void Finish() override {
        if (next_) next_->Finish();
    }

    // "12 waypoints, 2 routes (9 points), ...": what went by.
    std::string Summary() const {
        static const std::map<Kind, const char*> kNames = {
            {Kind::Waypoints, "waypoints"}, {Kind::Proximity, "proximity waypoints"}, {Kind::Routes, "routes"},
            {Kind::Tracks, "tracks"},       {Kind::Laps, "laps"},  {Kind::Flightbook, "flightbook records"},
            {Kind::Almanac, "almanac entries"}};
        std::string out;
        for (Kind k : kinds_) {
            if (!out.empty()) out += ", ";
            out += std::to_string(Count(count_, k)) + " " + kNames.at(k);
            if (k == Kind::Routes || k == Kind::Tracks) out += " (" + std::to_string(Count(points_, k)) + " points)";
        }
        return out.empty() ? "nothing" : out;
    }

private:
    template <typename... Args, typename... Given>
    void Pass(void (Record_Writer::*step)(Args...), Given&&... given) {
        if (next_) (next_->*step)(std::forward<Given>(given)...);
    }
    static std::size_t Count(const std::map<Kind, std::size_t>& m, Kind k) {
        const auto it = m.find(k);
        return it == m.end() ? 0 : it->second;
    }

    Record_Writer* next_;
    Kind kind_ = Kind::Waypoints;
    std::vector<Kind> kinds_;
    std::map<Kind, std::size_t> count_, points_;
};

// ---------------------------------------------------------------- info

std::string Trim(std::string s) {
    while (!s.empty() && (std::isspace(static_cast<unsigned char>(s.back())) || s.back() == 0)) s.pop_back();
    std::size_t start = 0;
    while (start < s.size() && std::isspace(static_cast<unsigned char>(s[start]))) ++start;
    return s.substr(start);
}

std::string Version(std::int16_t v) { return Format("%d.%02d", v / 100, v % 100); }

// ---------------------------------------------------------------- put --verify

bool Same_Ident(const std::string& sent, const std::string& read) {
    // The receiver keeps identifiers upper-case and cut to its field.
    const std::string r = Upper(Trim(read)), s = Upper(Trim(sent));
    return !r.empty() && s.compare(0, r.size(), r) == 0;
}

bool Same_Place(double lat1, double lon1, double lat2, double lon2) {
    return std::fabs(lat1 - lat2) < 1e-6 && std::fabs(lon1 - lon2) < 1e-6;
}

void Verify(const Data& sent, const Data& read) {
    auto find_waypoint = [](const cWaypoint& w, const std::vector<cWaypoint>& in) {
        return std::any_of(in.begin(), in.end(), [&](const cWaypoint& r) {
            return Same_Ident(w.Ident, r.Ident) && Same_Place(w.Lat, w.Lon, r.Lat, r.Lon);
        });
    };
    for (const auto& w : sent.waypoints)
        if (!find_waypoint(w, read.waypoints)) throw Failure(kRefused, "waypoint " + w.Ident + " did not read back");
    for (const auto& w : sent.proximity)
        if (!find_waypoint(w, read.proximity))
            throw Failure(kRefused, "proximity waypoint " + w.Ident + " did not read back");
    for (const auto& r : sent.routes) {
        const bool found = std::any_of(read.routes.begin(), read.routes.end(), [&](const Route_Data& g) {
            // Layouts name routes or number them, not both: the points say which route it is.
            if (g.points.size() != r.points.size()) return false;
            for (std::size_t i = 0; i < r.points.size(); ++i)
                if (!Same_Place(r.points[i].Lat, r.points[i].Lon, g.points[i].Lat, g.points[i].Lon)) return false;
            return true;
        });
        if (!found)
            throw Failure(kRefused, "route " + (r.header.Ident.empty() ? std::to_string(r.header.Number) : r.header.Ident) +
                                        " did not read back");
    }
    for (const auto& t : sent.tracks) {
        const bool found = std::any_of(read.tracks.begin(), read.tracks.end(), [&](const Track_Data& g) {
            if (!Same_Ident(t.header.Ident, g.header.Ident) && !t.header.Ident.empty() && !g.header.Ident.empty())
                return false;
            if (g.points.size() < t.points.size()) return false;
            // A unit without track headers keeps all points in one log: look for the run.
            for (std::size_t start = 0; start + t.points.size() <= g.points.size(); ++start) {
                bool all = true;
                for (std::size_t i = 0; all && i < t.points.size(); ++i)
                    all = Same_Place(t.points[i].Lat, t.points[i].Lon, g.points[start + i].Lat, g.points[start + i].Lon);
                if (all) return true;
            }
            return false;
        });
        if (!found) throw Failure(kRefused, "track " + t.header.Ident + " did not read back");
    }
    // Laps, flights and almanac entries are known by their times and satellite.
    auto expect = [](const auto& sent_list, const auto& read_list, auto same, auto name) {
        for (const auto& x : sent_list)
            if (std::none_of(read_list.begin(), read_list.end(), [&](const auto& r) { return same(x, r); }))
                throw Failure(kRefused, name(x) + " did not read back");
    };
    expect(sent.laps, read.laps,
           [](const cLap& a, const cLap& b) {
               return a.Start_Time_Seconds == b.Start_Time_Seconds && a.Total_Time == b.Total_Time;
           },
           [](const cLap& l) { return "the lap of " + Record_Iso_Time(l.Start_Time_Seconds); });
    expect(sent.flights, read.flights,
           [](const cFlightbook_Record& a, const cFlightbook_Record& b) {
               return a.Takeoff_Seconds == b.Takeoff_Seconds && a.Landing_Seconds == b.Landing_Seconds;
           },
           [](const cFlightbook_Record& f) { return "the flight of " + Record_Iso_Time(f.Takeoff_Seconds); });
    expect(sent.almanac, read.almanac,
           [](const cAlmanac& a, const cAlmanac& b) { return a.svid == b.svid && a.wn == b.wn && a.toa == b.toa; },
           [](const cAlmanac& a) { return "the almanac entry of satellite " + std::to_string(a.svid); });
}

// ---------------------------------------------------------------- NMEA and PVT text

std::string With_Checksum(const std::string& body) {
    std::uint8_t x = 0;
    for (char c : body) x ^= static_cast<std::uint8_t>(c);
    return "$" + body + Format("*%02X", x);
}

std::string Nmea_Angle(double deg, bool lat) {
    const double a = std::fabs(deg);
    const int whole = static_cast<int>(a);
    const double minutes = (a - whole) * 60.0;
    return Format(lat ? "%02d%07.4f,%c" : "%03d%07.4f,%c", whole, minutes,
                  lat ? (deg < 0 ? 'S' : 'N') : (deg < 0 ? 'W' : 'E'));
}

const char* Fix_Name(std::int16_t fix) {
    static const char* kNames[] = {"unusable", "invalid", "2D", "3D", "2D diff", "3D diff"};
    return fix >= 0 && fix <= 5 ? kNames[fix] : "?";
}

}  // namespace

std::vector<Protocol_Row> Protocol_Table(const TrekcomCtl& c) {
    return {
        {"Link", c.Link_Protocol(), {}},
        {"Waypoints", c.WayPoint_Transfer_Protocol(), {c.Waypoint_Data_Format()}},
        {"Routes", c.Route_Transfer_Protocol(),
         {c.Route_Header_Format(), c.Route_Wpt_Data_Format(), c.Route_Link_Format()}},
        {"Tracks", c.Track_Transfer_Protocol(), {c.Track_Header_Format(), c.Track_Point_Format()}},
        {"Proximity", c.Prox_Wpt_Transfer_Protocol(), {c.Prox_Wpt_Data_Format()}},
        {"Almanac", c.Almanac_Transfer_Protocol(), {c.Almanac_Data_Format()}},
        {"Date and time", c.Date_Transfer_Protocol(), {c.Date_Data_Format()}},
        {"Position", c.Posn_Transfer_Protocol(), {c.Posn_Data_Format()}},
        {"PVT", c.Pvt_Transfer_Protocol(), {c.Pvt_Data_Format()}},
        {"Laps", c.Laps_Transfer_Protocol(), {c.Laps_Data_Format()}},
        {"Flightbook", c.Flightbook_Transfer_Protocol(), {c.Flightbook_Data_Format()}},
    };
}

std::string Summary(const Data& d) {
    Record_Tally tally;
    Write_Set(d, tally);
    return tally.Summary();
}

double Pvt_Garmin_Seconds(const cPvtData& p, double host_garmin_seconds) {
    // The week's start in days since the epoch, plus the time of week, less
    // the leap seconds GPS time runs ahead of UTC.
    double t = static_cast<double>(p.wn_days) * 86400.0 + p.tow - p.leap_scnds;
    // The week number a receiver counts is ten bits wide; a unit that wraps
    // it early reports dates 1024 weeks behind. No receiver's fix is half
    // that span older than the host's clock, so such a date is one of those.
    constexpr double kWeek = 7 * 86400.0;
    while (host_garmin_seconds - t > 512 * kWeek) t += 1024 * kWeek;
    return t;
}

double Pvt_Garmin_Seconds(const cPvtData& p) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return Pvt_Garmin_Seconds(p, std::chrono::duration<double>(now).count() - kGarmin_Epoch_Unix);
}

std::vector<std::string> Pvt_Sentences(const cPvtData& p) {
    const double t = Pvt_Garmin_Seconds(p);
    const auto whole = static_cast<std::int64_t>(std::floor(t));
    const std::string iso = Iso_Time(whole);  // 2024-05-01T10:00:00Z
    const std::string hms = iso.substr(11, 2) + iso.substr(14, 2) + iso.substr(17, 2) +
                            Format(".%02d", static_cast<int>((t - static_cast<double>(whole)) * 100));
    const std::string dmy = iso.substr(8, 2) + iso.substr(5, 2) + iso.substr(2, 2);
    const double lat = p.Lat * kRad_To_Deg, lon = p.Lon * kRad_To_Deg;
    const bool fixed = p.pfix >= 2;
    const int quality = !fixed ? 0 : p.pfix >= 4 ? 2 : 1;
    // Alt is above the ellipsoid; msl_hght is the ellipsoid above sea level.
    const double msl = p.Alt + p.msl_hght;
    return {With_Checksum("GPGGA," + hms + "," + Nmea_Angle(lat, true) + "," + Nmea_Angle(lon, false) + "," +
                          std::to_string(quality) + ",,," + Format("%.1f", msl) + ",M," +
                          Format("%.1f", -p.msl_hght) + ",M,,"),
            With_Checksum("GPRMC," + hms + "," + (fixed ? "A" : "V") + "," + Nmea_Angle(lat, true) + "," +
                          Nmea_Angle(lon, false) + "," + Format("%.1f", Pvt_Speed(p) * 3600.0 / 1852.0) + "," +
                          Format("%.1f", Pvt_Track(p)) + "," + dmy + ",,," + (fixed ? "A" : "N"))};
}

// ---------------------------------------------------------------- the commands

int Run_Command(Command run, Session_Options& s, const Command_Options& c, std::ostream& err) {
    if (!s.platform) s.platform = Default_Platform();
    auto fail = [&](int code, const char* what) {
        // A wait cut short by an interrupt often surfaces as a timeout or a
        // refusal: the interrupt is the real reason.
        if (s.platform->Interrupted() && code != kInterrupted) {
            err << "trekcom: interrupted\n";
            return static_cast<int>(kInterrupted);
        }
        err << "trekcom: " << what << '\n';
        return code;
    };
    try {
        return run(s, c);
    } catch (const Failure& f) {
        return fail(f.code, f.what());
    } catch (const std::exception& e) {
        return fail(kError, e.what());
    }
}

int Run_Info(Session_Options& s, const Command_Options& c) {
    Opened o(s);
    o.ctl().Request_GPS_Name();  // the unit id also where identification did not ask for it
    const cProduct_Data& pd = *o.ctl().Product_Data();
    std::vector<std::string> descriptions;
    for (const auto* d : {&pd.Product_Description_1, &pd.Product_Description_2, &pd.Product_Description_3,
                          &pd.Product_Description_4, &pd.Product_Description_5, &pd.Product_Description_6})
        if (!Trim(*d).empty()) descriptions.push_back(Trim(*d));
    const auto table = Protocol_Table(o.ctl());
    if (c.json) {
        json j = {{"Product_ID", pd.Product_ID}, {"Software_Version", Version(pd.Software_Version)},
                  {"Descriptions", descriptions}, {"Unit_ID", Trim(pd.Unit_ID)}, {"Protocols", json::object()}};
        for (const auto& row : table) {
            json formats = json::array();
            for (const auto& f : row.formats)
                if (!Trim(f).empty()) formats.push_back(Trim(f));
            j["Protocols"][row.label] = {{"Protocol", Trim(row.protocol)}, {"Formats", formats}};
        }
        Print_Json(j);
        return kOk;
    }
    std::cout << "Product:      " << o.session.Describe() << '\n'
              << "Product id:   " << pd.Product_ID << ", software " << Version(pd.Software_Version) << '\n';
    for (std::size_t i = 1; i < descriptions.size(); ++i) std::cout << "              " << descriptions[i] << '\n';
    if (!Trim(pd.Unit_ID).empty()) std::cout << "Unit id:      " << Trim(pd.Unit_ID) << '\n';
    std::cout << "Protocols:\n";
    for (const auto& row : table) {
        std::string line = Format("  %-14s %-5s", row.label, Trim(row.protocol).empty() ? "-" : Trim(row.protocol).c_str());
        for (const auto& f : row.formats)
            if (!Trim(f).empty()) line += " " + Trim(f);
        while (!line.empty() && line.back() == ' ') line.pop_back();
        std::cout << line << '\n';
    }
    return kOk;
}

// The output file, or standard output for "-".
struct Output {
    explicit Output(const std::string& path) : path(path) {
        if (path == "-") return;
        file.open(path, std::ios::binary | std::ios::trunc);
        if (!file) throw Failure(kError, "cannot write " + path);
    }
    std::ostream& Stream() { return path == "-" ? std::cout : file; }
    void Close() {
        if (path == "-") return;
        file.close();
        if (!file) throw Failure(kError, "cannot write " + path);
    }
    std::string path;
    std::ofstream file;
};

// Runs go to the file one by one as they come whole; courses once all are in.
int Run_Get_Fitness(Session_Options& s, const Command_Options& c, bool runs) {
    Opened o(s);
    Output out(c.output);
    const Fitness_Format format = Fitness_Format_Of(c.output, c.json);
    int count = 0;
    if (runs) {
        Run_Writer writer(out.Stream(), format);
        o.session.Download_Runs([&](const cRun& run) { writer.Run(run), ++count; });
        writer.End();
    } else {
        const auto courses = o.session.Download_Courses();
        Write_Courses(out.Stream(), *courses, format);
        count = courses->Count();
    }
    out.Close();
    (c.output == "-" ? std::cerr : std::cout) << (c.output == "-" ? "" : c.output + ": ") << count
                                              << (runs ? " runs" : " courses") << " from " << o.session.Describe()
                                              << '\n';
    return kOk;
}

int Run_Get(Session_Options& s, const Command_Options& c) {
    if (c.kinds.size() == 1 && (Upper(c.kinds[0]) == "RUNS" || Upper(c.kinds[0]) == "COURSES"))
        return Run_Get_Fitness(s, c, Upper(c.kinds[0]) == "RUNS");
    bool all = false;
    auto kinds = Parse_Kinds(c.kinds, all);
    // Files are written as the records arrive, and they hold the kinds in one order.
    std::sort(kinds.begin(), kinds.end());
    Opened o(s);
    Output_File file(c.output);
    const auto writer = c.json ? Json_Writer(file.Stream()) : Gpx_Writer(file.Stream());
    Record_Tally tally(writer.get());
    o.session.Download(kinds, all, tally);
    file.Keep();
    // The summary goes where it does not mix with the data.
    (c.output == "-" ? std::cerr : std::cout) << (c.output == "-" ? "" : c.output + ": ") << tally.Summary() << " from "
                                              << o.session.Describe() << '\n';
    // What came short is saved all the same, and said.
    if (!o.session.Shortfall().empty()) throw Failure(kIncomplete, o.session.Shortfall());
    return kOk;
}

// A TCX file's courses, or a GPX file's tracks as courses, to a fitness unit.
int Run_Put_Courses(Session_Options& s, const Command_Options& c) {
    Collection<cCourse> courses;
    std::string error;
    if (!Read_Courses(c.input, courses, error)) throw Failure(kBad_File, "bad file: " + error);
    Opened o(s);
    o.session.Upload_Courses(courses);
    std::cout << "uploaded " << courses.Count() << " courses to " << o.session.Describe() << '\n';
    return kOk;
}

int Run_Put(Session_Options& s, const Command_Options& c) {
    if (c.input.ends_with(".tcx") || c.courses) return Run_Put_Courses(s, c);
    Data data;
    std::string error;
    // The whole file is read and checked before the receiver hears a byte.
    if (!Read_Records(c.input, data, error)) throw Failure(kBad_File, "bad file: " + error);
    Opened o(s);
    const std::vector<Kind> skipped = o.session.Upload(data);
    for (Kind k : skipped) {
        *s.notes << "trekcom: skipped " << data.Count(k) << " " << Kind_Name(k) << ": " << o.session.Describe()
                 << " takes none\n";
        data.Clear(k);
    }
    std::vector<Kind> sent;
    for (Kind k : data.kinds)
        if (data.Count(k) > 0) sent.push_back(k);
    data.kinds = sent;
    std::cout << "uploaded " << Summary(data) << " to " << o.session.Describe() << '\n';
    if (c.verify) {
        const Data back = o.session.Download(sent, false);
        Verify(data, back);
        std::cout << "verified: every record read back (" << Summary(back) << " on the receiver)\n";
    }
    return kOk;
}

namespace {

// One PVT record in the output form asked for.
void Print_Pvt(const cPvtData& v, const Command_Options& c, const std::string& device) {
    const double t = Pvt_Garmin_Seconds(v);
    const double lat = v.Lat * kRad_To_Deg, lon = v.Lon * kRad_To_Deg;
    if (c.gpsd) {
        Write_Gpsd(std::cout, Gpsd_Tpv(v, t, device));
    } else if (c.nmea_out) {
        for (const auto& line : Pvt_Sentences(v)) std::cout << line << "\r\n";
    } else if (c.json) {
        std::cout << json{{"Time", Iso_Time(static_cast<std::int64_t>(std::floor(t)))},
                          {"Lat", lat}, {"Lon", lon}, {"Alt", v.Alt}, {"Alt_MSL", v.Alt + v.msl_hght},
                          {"Fix", Fix_Name(v.pfix)},
                          {"east", v.east}, {"north", v.north}, {"up", v.up}, {"epe", v.epe}}
                         .dump()
                  << '\n';
    } else {
        std::cout << Iso_Time(static_cast<std::int64_t>(std::floor(t)))
                  << Format("  %10.6f %11.6f  %7.1f m  %-7s %5.1f m/s  epe %.1f m", lat, lon, v.Alt + v.msl_hght,
                            Fix_Name(v.pfix), Pvt_Speed(v), v.epe)
                  << '\n';
    }
    std::cout.flush();
}

}  // namespace

int Run_Pvt(Session_Options& s, const Command_Options& c) {
    Opened o(s, false);
    TrekcomCtl& ctl = o.ctl();
    const std::string device = o.session.Device();
    long seen = 0;
    // Records count from the moment the port is open: a receiver may be streaming already.
    o.session.On_Packet = [&](const Bytes& p) {
        if (c.count > 0 && seen >= c.count) return;
        if (p[1] == ctl.PID_Sats() && c.gpsd) {
            Write_Gpsd(std::cout, Gpsd_Sky(*ctl.Sats(), device));
        } else if (p[1] == ctl.PID_Pvt_Data()) {
            ++seen;
            Print_Pvt(*ctl.PvtData(), c, device);
        }
    };
    try {
        o.session.Identify();
    } catch (const Failure& f) {
        // A unit set to stream PVT by itself (a GPS 18x in binary output)
        // may not say who it is: its records are answer enough.
        if (f.code != kTimeout || seen == 0) throw;
    }
    ctl.Pvt_Data_Start();
    try {
        o.session.Wait("the PVT stream", [&] { return c.count > 0 && seen >= c.count; });
    } catch (...) {
        ctl.Pvt_Data_Stop();
        throw;
    }
    ctl.Pvt_Data_Stop();
    return kOk;
}

int Run_Time(Session_Options& s, const Command_Options& c) {
    Opened o(s);
    o.session.Request("asking for the date and time", [&] { o.ctl().Request_Date_Time(); });
    const cDate_Time& t = *o.ctl().Date_Time();
    const std::string iso = Format("%04d-%02d-%02dT%02d:%02d:%02dZ", t.year, t.month, t.day, t.hour, t.minute, t.second);
    if (c.json)
        Print_Json({{"Time", iso}});
    else
        std::cout << iso << '\n';
    return kOk;
}

int Run_Position(Session_Options& s, const Command_Options& c) {
    Opened o(s);
    o.session.Request("asking for the position", [&] { o.ctl().Request_Position_Data(); });
    const cPosition& p = *o.ctl().Position();
    if (c.json)
        Print_Json({{"Lat", p.Lat}, {"Lon", p.Lon}});
    else
        std::cout << Format("%.6f %.6f", p.Lat, p.Lon) << '\n';
    return kOk;
}

int Run_Voltages(Session_Options& s, const Command_Options& c) {
    Opened o(s);
    o.session.Request("asking for the voltages", [&] { o.ctl().Request_Voltages(); });
    const cVoltages& v = *o.ctl().Voltages();
    if (c.json)
        Print_Json({{"Internal_Voltage", v.Internal_Voltage}, {"External_Voltage", v.External_Voltage}});
    else
        std::cout << Format("internal %.2f V, external %.2f V", v.Internal_Voltage, v.External_Voltage) << '\n';
    return kOk;
}

int Run_Sats(Session_Options& s, const Command_Options& c) {
    Opened o(s);
    TrekcomCtl& ctl = o.ctl();
    if (Trim(ctl.Pvt_Transfer_Protocol()).empty())
        throw Failure(kUnsupported, "unsupported kind: " + o.session.Describe() + " sends no PVT data");
    bool got = false;
    o.session.On_Packet = [&](const Bytes& p) { got = got || p[1] == ctl.PID_Sats(); };
    ctl.Pvt_Data_Start();
    try {
        o.session.Wait("waiting for the satellite table", [&] { return got; });
    } catch (...) {
        ctl.Pvt_Data_Stop();
        throw;
    }
    ctl.Pvt_Data_Stop();
    json j = json::array();
    if (!c.json) std::cout << "svid  snr  elev  azimuth  status\n";
    for (const auto& sat : *ctl.Sats()) {
        if (!sat || sat->svid == 0xFF) continue;  // an empty channel
        if (c.json)
            j.push_back({{"svid", sat->svid}, {"snr", sat->snr}, {"elev", sat->elev}, {"azimuth", sat->azimuth},
                         {"status", sat->status}});
        else
            std::cout << Format("%4u %4d %5u %8d  %6u", sat->svid, sat->snr, sat->elev, sat->azimuth, sat->status)
                      << '\n';
    }
    if (c.json) Print_Json(j);
    return kOk;
}

int Run_Counts(Session_Options& s, const Command_Options& c) {
    Opened o(s);
    bool got = false;
    std::int16_t n[4] = {};
    o.session.On_Counts = [&](std::int16_t w, std::int16_t p, std::int16_t r, std::int16_t t) {
        n[0] = w, n[1] = p, n[2] = r, n[3] = t;
        got = true;
    };
    o.session.Request("asking for the record counts", [&] { o.ctl().Request_Counts(); });
    o.session.Wait("the record counts", [&] { return got; });
    static const char* kNames[] = {"waypoints", "proximity", "routes", "tracks"};
    json j = json::object();
    for (int i = 0; i < 4; ++i) {
        // -1: the receiver has no such kind.
        if (c.json)
            j[kNames[i]] = n[i] < 0 ? json(nullptr) : json(n[i]);
        else
            std::cout << Format("%-10s %s", kNames[i], n[i] < 0 ? "-" : std::to_string(n[i]).c_str()) << '\n';
    }
    // A fitness unit's runs and courses; other units have neither.
    const cRecord_Counts& fitness = *o.ctl().Counts();
    for (const auto& [name, n] : {std::pair{"runs", fitness.Run_Records}, {"courses", fitness.Course_Records}}) {
        if (n < 0) continue;
        c.json ? void(j[name] = n) : void(std::cout << Format("%-10s %d", name, n) << '\n');
    }
    if (c.json) Print_Json(j);
    return kOk;
}

int Run_Baud(Session_Options& s, const Command_Options& c) {
    Opened o(s, false);
    TrekcomCtl& ctl = o.ctl();
    if (c.rate == 0) {
        std::string settings = ctl.Settings();
        const std::size_t before = o.session.Errors().size();
        const std::int32_t rate = ctl.FindBaud(settings);
        if (o.session.Errors().size() > before || rate == 0)
            throw Failure(kTimeout, "timeout: no rate found at which the receiver answers");
        c.json ? Print_Json({{"Baud", rate}}) : void(std::cout << rate << '\n');
        return kOk;
    }
    o.session.Identify();
    if (!ctl.Change_Baud_Rate(c.rate))
        throw Failure(kRefused, "the receiver did not change to " + std::to_string(c.rate) + " baud");
    c.json ? Print_Json({{"Baud", c.rate}}) : void(std::cout << "now at " << c.rate << " baud\n");
    return kOk;
}

int Run_Off(Session_Options& s, const Command_Options&) {
    Opened o(s);
    o.session.Request("switching the receiver off", [&] { o.ctl().Power_Off(); });
    std::cout << o.session.Describe() << " switched off\n";
    return kOk;
}

int Run_Nmea(Session_Options& s, const Command_Options& c) {
    // NMEA receivers talk at 4800 baud.
    if (s.settings.empty() && (s.port != "sim" || s.sim.mode != "garmin")) s.settings = "4800,N,8,1";
    Opened o(s, false);
    if (!c.sentence.empty()) {
        std::string sentence = c.sentence;
        o.ctl().NMEA_Send(sentence);
        std::cout << sentence << '\n';
        return kOk;
    }
    long seen = 0;
    o.session.On_Nmea = [&](const std::string& sentence, bool good) {
        if (c.count > 0 && seen >= c.count) return;
        ++seen;
        std::cout << sentence << (good ? "" : "   (checksum not checked or wrong)") << '\n' << std::flush;
    };
    o.session.Wait("NMEA sentences", [&] { return c.count > 0 && seen >= c.count; });
    return kOk;
}

int Run_List(Session_Options& s, const Command_Options& c) {
    // More than this many receivers on one machine is not a setup anyone has.
    constexpr int kMax_Usb_Receivers = 16;
    const auto serial = Serial_Ports(s.system_root);
    std::vector<std::string> usb_paths;
    {
        s.platform->Usb_Device(0);
        auto driver = s.platform->Create_Usb_Driver();
        std::string path;
        while (static_cast<int>(usb_paths.size()) < kMax_Usb_Receivers &&
               driver->Find(static_cast<int>(usb_paths.size()), path) == Usb_Status::ok)
            usb_paths.push_back(path);
    }
    // Each USB receiver is asked who it is, the way `info` asks.
    std::vector<std::string> names;
    for (std::size_t i = 0; i < usb_paths.size(); ++i) {
        Session_Options one = s;
        one.port = "usb:" + std::to_string(i);
        try {
            Opened o(one);
            names.push_back(o.session.Describe());
        } catch (const Failure& f) {
            if (f.code == kInterrupted) throw;
            names.push_back(std::string("(") + f.what() + ")");
        }
    }
    if (c.json) {
        json j = {{"serial", json::array()}, {"usb", json::array()}};
        for (const auto& p : serial) j["serial"].push_back({{"port", p.path}, {"driver", p.driver}});
        for (std::size_t i = 0; i < names.size(); ++i)
            j["usb"].push_back({{"port", "usb:" + std::to_string(i)}, {"product", names[i]}});
        Print_Json(j);
        return kOk;
    }
    std::cout << "Serial ports:\n";
    for (const auto& p : serial) std::cout << Format("  %-16s %s", p.path.c_str(), p.driver.c_str()) << '\n';
    if (serial.empty()) std::cout << "  none\n";
    std::cout << "Garmin receivers on USB:\n";
    for (std::size_t i = 0; i < names.size(); ++i)
        std::cout << Format("  %-16s %s", ("usb:" + std::to_string(i)).c_str(), names[i].c_str()) << '\n';
    if (names.empty()) std::cout << "  none\n";
    return kOk;
}

int Run_Replay(Session_Options& s, const Command_Options& c) {
    if (access(c.input.c_str(), R_OK) != 0) throw Failure(kBad_File, "bad file: " + c.input + ": cannot be read");
    // The replay needs no receiver: the log stands in for it on an unopened port.
    Session session(s);
    long packets = 0;
    session.On_Packet = [&](const Bytes& p) {
        ++packets;
        std::cout << Format("packet %3u, %3zu data bytes", p[1], p.size() >= 6 ? p.size() - 6 : 0) << '\n';
    };
    // The control offers a saved log before it asks for a screen; the file
    // dialog's answer is the log, and its packets come in as if just received.
    session.Ctl().Platform()->File_Dialog_Handler([&c](const std::string&) { return c.input; });
    session.Ctl().Request_Display();
    TrekcomCtl& ctl = session.Ctl();
    std::cout << packets << " packets replayed from " << c.input << ": " << ctl.Waypoints()->Count()
              << " waypoints, " << ctl.Routes()->Count() << " routes, " << ctl.Tracks()->Count()
              << " track records decoded\n";
    return kOk;
}

}  // namespace trekcom::tool
