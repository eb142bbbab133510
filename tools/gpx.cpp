#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>
#include <sstream>
#include <pugixml.hpp>

#include "files.h"

namespace trekcom::tool {

namespace {

constexpr const char* kGarmin_Ns = "http://www.garmin.com/xmlschemas/GpxExtensions/v3";
constexpr const char* kTrackPoint_Ns = "http://www.garmin.com/xmlschemas/TrackPointExtension/v1";
constexpr const char* kTrekcom_Ns = "urn:trekcom:gpx:1";
constexpr const char* kProximity_Type = "proximity";

// ---------------------------------------------------------------- writing

// Nine decimals keep a position to a small fraction of the receiver's
// resolution (about 8e-8 degrees), so a file read back uploads the same units.
std::string Degrees(double d) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9f", d);
    return text;
}

// The shortest text that reads back as the same float.
std::string Number(double v) {
    char text[32];
    const auto r = std::to_chars(text, text + sizeof text, v);
    return std::string(text, r.ptr);
}
std::string Number(float v) {
    char text[32];
    const auto r = std::to_chars(text, text + sizeof text, v);
    return std::string(text, r.ptr);
}

void Text_Child(pugi::xml_node parent, const char* name, const std::string& text) {
    if (!text.empty()) parent.append_child(name).text().set(text.c_str());
}

void Point(pugi::xml_node node, const cWaypoint& w, bool proximity) {
    node.append_attribute("lat") = Degrees(w.Lat).c_str();
    node.append_attribute("lon") = Degrees(w.Lon).c_str();
    if (Has_Value(w.Alt)) Text_Child(node, "ele", Number(w.Alt));
    if (Has_Time(w.Time_Seconds)) Text_Child(node, "time", Record_Iso_Time(w.Time_Seconds));
    Text_Child(node, "name", w.Ident);
    Text_Child(node, "cmt", w.Cmnt);
    Text_Child(node, "sym", Symbol_Name(w.Smbl));
    if (proximity) Text_Child(node, "type", kProximity_Type);
    const bool dist = Has_Value(w.Dist) && w.Dist > 0, temp = Has_Value(w.Temp) && w.Temp != 0,
               depth = Has_Value(w.Dpth) && w.Dpth != 0;
    if (!dist && !temp && !depth) return;
    auto ext = node.append_child("extensions").append_child("gpxx:WaypointExtension");
    if (dist) Text_Child(ext, "gpxx:Proximity", Number(w.Dist));
    if (temp) Text_Child(ext, "gpxx:Temperature", Number(w.Temp));
    if (depth) Text_Child(ext, "gpxx:Depth", Number(w.Dpth));
}

void Track_Point(pugi::xml_node node, const cTrack& p) {
    node.append_attribute("lat") = Degrees(p.Lat).c_str();
    node.append_attribute("lon") = Degrees(p.Lon).c_str();
    if (Has_Value(p.Alt)) Text_Child(node, "ele", Number(p.Alt));
    if (Has_Time(p.Seconds)) Text_Child(node, "time", Record_Iso_Time(p.Seconds));
    const bool temp = Has_Value(p.Temp) && p.Temp != 0, depth = Has_Value(p.Dpth) && p.Dpth != 0;
    if (!temp && !depth) return;
    auto ext = node.append_child("extensions").append_child("gpxtpx:TrackPointExtension");
    if (temp) Text_Child(ext, "gpxtpx:atemp", Number(p.Temp));
    if (depth) Text_Child(ext, "gpxtpx:depth", Number(p.Dpth));
}

void Set(pugi::xml_node node, const char* name, const std::string& value) {
    node.append_attribute(name) = value.c_str();
}

void Lap_Element(pugi::xml_node n, const cLap& l) {
    Set(n, "start", Record_Iso_Time(l.Start_Time_Seconds));
    Set(n, "totalTime", std::to_string(l.Total_Time));
    Set(n, "distance", Number(l.Total_Distance));
    Set(n, "beginLat", Degrees(l.Begin_Lat));
    Set(n, "beginLon", Degrees(l.Begin_Lon));
    Set(n, "endLat", Degrees(l.End_Lat));
    Set(n, "endLon", Degrees(l.End_Lon));
    Set(n, "calories", std::to_string(l.Calories));
    Set(n, "trackIndex", std::to_string(l.Track_Index));
}

void Flight_Element(pugi::xml_node n, const cFlightbook_Record& f) {
    Set(n, "takeoff", Record_Iso_Time(f.Takeoff_Seconds));
    Set(n, "landing", Record_Iso_Time(f.Landing_Seconds));
    Set(n, "takeoffLat", Degrees(f.Takeoff_Lat));
    Set(n, "takeoffLon", Degrees(f.Takeoff_Lon));
    Set(n, "landingLat", Degrees(f.Landing_Lat));
    Set(n, "landingLon", Degrees(f.Landing_Lon));
    Set(n, "from", f.Departure_Airport_Ident);
    Set(n, "to", f.Arrival_Airport_Ident);
    Set(n, "aircraft", f.Aircraft_ID);
    Set(n, "landings", std::to_string(f.Num_Landings));
    Set(n, "distance", Number(f.Distance));
}

void Almanac_Element(pugi::xml_node n, const cAlmanac& a) {
    Set(n, "svid", std::to_string(a.svid));
    Set(n, "wn", std::to_string(a.wn));
    for (auto [name, v] : {std::pair{"toa", a.toa}, {"af0", a.af0}, {"af1", a.af1}, {"e", a.e}, {"sqrta", a.sqrta},
                           {"m0", a.m0}, {"w", a.w}, {"omg0", a.omg0}, {"odot", a.odot}, {"i", a.i}, {"hlth", a.hlth}})
        Set(n, name, Number(v));
}

// An element written in two halves around its children, which arrive one
// by one. Until its first child it is only pending, so one that gets none
// is written empty, as a document would write it.
class Open_Element {
public:
    Open_Element(std::ostream& out, std::string tag, unsigned depth) : out_(out), tag_(std::move(tag)), depth_(depth) {}
    // Before each child.
    void Child() {
        if (std::exchange(started_, true)) return;
        Indent();
        out_ << '<' << tag_ << ">\n";
    }
    void Close() {
        Indent();
        if (started_)
            out_ << "</" << Name() << ">\n";
        else
            out_ << '<' << tag_ << " />\n";
    }
    bool Started() const { return started_; }

private:
    void Indent() {
        for (unsigned i = 0; i < depth_; ++i) out_ << "  ";
    }
    std::string Name() const { return tag_.substr(0, tag_.find(' ')); }
    std::ostream& out_;
    std::string tag_;  // the name and its attributes
    unsigned depth_;
    bool started_ = false;
};

// GPX written as the records come: each record is built as a small element
// of its own, printed at its depth and dropped; the elements that hold
// records (gpx, rte, trk, trkseg, extensions) are written around them.
class Gpx_Stream : public Record_Writer {
public:
    explicit Gpx_Stream(std::ostream& out) : out_(out) {}

    void Begin(const std::string& source) override {
        out_ << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
        gpx_.emplace(out_,
                     std::string("gpx version=\"1.1\" creator=\"trekcom\" xmlns=\"http://www.topografix.com/GPX/1/1\"") +
                         " xmlns:gpxx=\"" + kGarmin_Ns + "\" xmlns:gpxtpx=\"" + kTrackPoint_Ns +
                         "\" xmlns:trekcom=\"" + kTrekcom_Ns + "\"",
                     0);
        if (source.empty()) return;
        auto metadata = Scratch("metadata");
        metadata.append_child("desc").text().set(source.c_str());
        Put(metadata, 1);
    }
    void Begin_Kind(Kind k) override { kind_ = k; }
    void Waypoint(const cWaypoint& w) override {
        if (kind_ != Kind::Routes) {
            auto node = Scratch("wpt");
            Point(node, w, kind_ == Kind::Proximity);
            return Put(node, 1);
        }
        if (!route_) Route(cRoute{});
        auto node = Scratch("rtept");
        Point(node, w, false);
        route_->Child();
        Put(node, 2);
    }
    void Route(const cRoute& header) override {
        Close_Route();
        route_.emplace(out_, "rte", 1);
        auto rte = Scratch("rte");
        Text_Child(rte, "name", header.Ident);
        Text_Child(rte, "cmt", header.Cmnt);
        // Layouts that name routes carry no number: a file full of 0s would say nothing.
        if (header.Number != 0 || header.Ident.empty()) Text_Child(rte, "number", std::to_string(header.Number));
        Put_Children(*route_, rte, 2);
    }
    void Track(const cTrack& header) override {
        Close_Track();
        track_.emplace(out_, "trk", 1);
        auto trk = Scratch("trk");
        Text_Child(trk, "name", header.Ident);
        Put_Children(*track_, trk, 2);
    }
    void Track_Point(const cTrack& p) override {
        if (!track_) Track(cTrack{});
        if (!segment_ || (p.New_Segment && segment_->Started())) {
            Close_Segment();
            track_->Child();
            segment_.emplace(out_, "trkseg", 2);
        }
        auto node = Scratch("trkpt");
        ::trekcom::tool::Track_Point(node, p);
        segment_->Child();
        Put(node, 3);
    }
    void Lap(const cLap& l) override { Extra("trekcom:lap", [&](pugi::xml_node n) { Lap_Element(n, l); }); }
    void Flight(const cFlightbook_Record& f) override {
        Extra("trekcom:flight", [&](pugi::xml_node n) { Flight_Element(n, f); });
    }
    void Almanac(const cAlmanac& a) override {
        Extra("trekcom:almanac", [&](pugi::xml_node n) { Almanac_Element(n, a); });
    }
    void End_Kind(Kind) override { Close_Track(); }
    void Finish() override {
        Close_Track();
        if (extensions_) extensions_->Close();
        extensions_.reset();
        if (gpx_) gpx_->Close();
        gpx_.reset();
        out_.flush();
    }

private:
    pugi::xml_node Scratch(const char* name) {
        doc_.reset();
        return doc_.append_child(name);
    }
    // Prints one finished element at its depth (children of gpx: depth 1).
    void Put(pugi::xml_node node, unsigned depth) {
        if (gpx_) gpx_->Child();
        node.print(out_, "  ", pugi::format_default, pugi::encoding_utf8, depth);
    }
    void Put_Children(Open_Element& parent, pugi::xml_node node, unsigned depth) {
        if (gpx_) gpx_->Child();
        for (auto child : node.children()) {
            parent.Child();
            child.print(out_, "  ", pugi::format_default, pugi::encoding_utf8, depth);
        }
    }
    template <typename Fill>
    void Extra(const char* name, Fill fill) {
        Close_Track();
        if (!extensions_) extensions_.emplace(out_, "extensions", 1);
        auto node = Scratch(name);
        fill(node);
        extensions_->Child();
        Put(node, 2);
    }
    void Close_Segment() {
        if (segment_) segment_->Close();
        segment_.reset();
    }
    void Close_Track() {
        Close_Segment();
        if (track_) track_->Close();
        track_.reset();
        Close_Route();
    }
    void Close_Route() {
        if (route_) route_->Close();
        route_.reset();
    }

    std::ostream& out_;
    pugi::xml_document doc_;  // holds the record in hand only
    Kind kind_ = Kind::Waypoints;
    std::optional<Open_Element> gpx_, route_, track_, segment_, extensions_;
};

// ---------------------------------------------------------------- reading

struct Bad_File {
    std::ptrdiff_t offset;
    std::string what;
};

// Element names compare without their prefix: files bind the Garmin
// namespaces to prefixes of their own choosing.
std::string_view Local(const char* name) {
    std::string_view n(name);
    const auto colon = n.find(':');
    return colon == std::string_view::npos ? n : n.substr(colon + 1);
}

pugi::xml_node Child(pugi::xml_node node, std::string_view name) {
    for (auto c : node.children())
        if (c.type() == pugi::node_element && Local(c.name()) == name) return c;
    return {};
}

template <typename T>
T Parse_Number(pugi::xml_node at, std::string_view what, std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    T v{};
    const auto r = std::from_chars(text.data(), text.data() + text.size(), v);
    if (r.ec != std::errc{} || r.ptr != text.data() + text.size() || !std::isfinite(static_cast<double>(v)))
        throw Bad_File{at.offset_debug(), std::string(what) + " \"" + std::string(text) + "\" is not a number"};
    return v;
}

// A float child element, or the receiver's no-value marker when there is none.
float Float_Child(pugi::xml_node node, std::string_view name) {
    auto c = Child(node, name);
    if (!c) return kNo_Value;
    const float v = Parse_Number<float>(c, name, c.child_value());
    if (!Has_Value(v)) throw Bad_File{c.offset_debug(), std::string(name) + " " + c.child_value() + " is out of range"};
    return v;
}

std::int32_t Time_Child(pugi::xml_node node) {
    auto c = Child(node, "time");
    if (!c) return kNo_Time;
    const auto t = Parse_Iso_Time(c.child_value());
    if (!t) throw Bad_File{c.offset_debug(), std::string("time \"") + c.child_value() + "\" is not an ISO 8601 time"};
    // The receiver counts unsigned seconds from its epoch; all ones means none.
    if (*t < 0 || *t >= 0xFFFFFFFFLL)
        throw Bad_File{c.offset_debug(), std::string("time ") + c.child_value() + " is before 1990 or after 2126"};
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(*t));
}

void Position(pugi::xml_node node, double& lat, double& lon) {
    for (auto [name, target, limit] : {std::tuple{"lat", &lat, 90.0}, {"lon", &lon, 180.0}}) {
        auto a = node.attribute(name);
        if (!a) throw Bad_File{node.offset_debug(), std::string(node.name()) + " has no " + name};
        *target = Parse_Number<double>(node, std::string(node.name()) + " " + name, a.value());
        // 180 degrees of longitude has no semicircle form: it is -180.
        if (*target < -limit || *target > limit)
            throw Bad_File{node.offset_debug(), std::string(node.name()) + " " + name + " " + a.value() +
                                                    " is outside -" + Number(limit) + ".." + Number(limit)};
    }
    if (lon == 180.0) lon = -180.0;
}

std::string Text(pugi::xml_node node, std::string_view name) {
    auto c = Child(node, name);
    return c ? std::string(c.child_value()) : std::string();
}

cWaypoint Read_Waypoint(pugi::xml_node node) {
    cWaypoint w;
    Position(node, w.Lat, w.Lon);
    w.Ident = Text(node, "name");
    if (w.Ident.empty()) throw Bad_File{node.offset_debug(), std::string(node.name()) + " has no name"};
    w.Cmnt = Text(node, "cmt");
    if (w.Cmnt.empty()) w.Cmnt = Text(node, "desc");
    w.Alt = Float_Child(node, "ele");
    w.Time_Seconds = Time_Child(node);
    // A symbol a receiver has no code for becomes its plain waypoint mark.
    w.Smbl = Symbol_Code(Text(node, "sym")).value_or(18);
    w.Color = 0xFF;  // the unit's default colour
    w.Dpth = w.Temp = w.Dist = kNo_Value;
    w.Ete = -1;
    if (auto ext = Child(Child(node, "extensions"), "WaypointExtension")) {
        w.Dist = Float_Child(ext, "Proximity");
        w.Temp = Float_Child(ext, "Temperature");
        w.Dpth = Float_Child(ext, "Depth");
    }
    return w;
}

cTrack Read_Track_Point(pugi::xml_node node) {
    cTrack p;
    Position(node, p.Lat, p.Lon);
    p.Alt = Float_Child(node, "ele");
    p.Seconds = Time_Child(node);
    p.Dpth = p.Temp = kNo_Value;
    if (auto ext = Child(Child(node, "extensions"), "TrackPointExtension")) {
        p.Temp = Float_Child(ext, "atemp");
        p.Dpth = Float_Child(ext, "depth");
    }
    return p;
}

void Read_Document(const pugi::xml_document& doc, Data& out) {
    auto gpx = doc.document_element();
    if (Local(gpx.name()) != "gpx") throw Bad_File{gpx.offset_debug(), "the root element is not gpx"};
    int route_number = 0;
    for (auto node : gpx.children()) {
        if (node.type() != pugi::node_element) continue;
        const std::string_view name = Local(node.name());
        if (name == "wpt") {
            cWaypoint w = Read_Waypoint(node);
            (Text(node, "type") == kProximity_Type ? out.proximity : out.waypoints).push_back(std::move(w));
        } else if (name == "rte") {
            Route_Data r;
            r.header.Ident = Text(node, "name");
            r.header.Cmnt = Text(node, "cmt");
            r.header.Number = static_cast<std::int16_t>(route_number);
            if (auto n = Child(node, "number")) {
                const int v = Parse_Number<int>(n, "rte number", n.child_value());
                if (v < 0 || v > 255) throw Bad_File{n.offset_debug(), "rte number " + std::to_string(v) + " is outside 0..255"};
                r.header.Number = static_cast<std::int16_t>(v);
            }
            route_number = r.header.Number + 1;
            for (auto pt : node.children())
                if (pt.type() == pugi::node_element && Local(pt.name()) == "rtept") r.points.push_back(Read_Waypoint(pt));
            out.routes.push_back(std::move(r));
        } else if (name == "trk") {
            Track_Data t;
            t.header.Ident = Text(node, "name");
            t.header.Dspl = true;
            t.header.Color = 0xFF;
            for (auto seg : node.children()) {
                if (seg.type() != pugi::node_element || Local(seg.name()) != "trkseg") continue;
                bool first = true;
                for (auto pt : seg.children()) {
                    if (pt.type() != pugi::node_element || Local(pt.name()) != "trkpt") continue;
                    cTrack p = Read_Track_Point(pt);
                    p.New_Segment = first;
                    first = false;
                    t.points.push_back(std::move(p));
                }
            }
            out.tracks.push_back(std::move(t));
        }
    }
    out.kinds = {Kind::Waypoints, Kind::Proximity, Kind::Routes, Kind::Tracks};
}

int Line_Of(const std::string& text, std::ptrdiff_t offset) {
    if (offset < 0) return 0;
    const auto end = text.begin() + std::min<std::ptrdiff_t>(offset, static_cast<std::ptrdiff_t>(text.size()));
    return 1 + static_cast<int>(std::count(text.begin(), end, '\n'));
}

}  // namespace

std::unique_ptr<Record_Writer> Gpx_Writer(std::ostream& out) { return std::make_unique<Gpx_Stream>(out); }

std::string Gpx_Text(const Data& data) {
    std::ostringstream os;
    Write_Set(data, *Gpx_Writer(os));
    return os.str();
}

bool Parse_Gpx(const std::string& text, const std::string& name, Data& out, std::string& error) {
    pugi::xml_document doc;
    const auto result = doc.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) {
        error = name + ":" + std::to_string(Line_Of(text, result.offset)) + ": " + result.description();
        return false;
    }
    Data read;
    try {
        Read_Document(doc, read);
    } catch (const Bad_File& e) {
        error = name + ":" + std::to_string(Line_Of(text, e.offset)) + ": " + e.what;
        return false;
    }
    out = std::move(read);
    return true;
}

}  // namespace trekcom::tool
