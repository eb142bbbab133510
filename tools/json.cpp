#include <nlohmann/json.hpp>

#include "files.h"

namespace trekcom::tool {

namespace {

using nlohmann::json;

// Fields with no value stay out, as they do in GPX.
void Put_Float(json& j, const char* name, float v) {
    if (Has_Value(v)) j[name] = v;
}

json Waypoint(const cWaypoint& w) {
    json j = {{"Ident", w.Ident},   {"Lat", w.Lat},           {"Lon", w.Lon},
              {"Cmnt", w.Cmnt},     {"Smbl", w.Smbl},         {"Symbol", Symbol_Name(w.Smbl)},
              {"Dspl", w.Dspl},     {"Color", w.Color},       {"Wpt_Class", w.Wpt_Class},
              {"Attrib", w.Attrib}, {"Prox_Index", w.Prox_Index}, {"Wpt_Category", w.Wpt_Category}};
    Put_Float(j, "Alt", w.Alt);
    Put_Float(j, "Dpth", w.Dpth);
    Put_Float(j, "Dist", w.Dist);
    Put_Float(j, "Temp", w.Temp);
    if (Has_Time(w.Time_Seconds)) j["Time"] = Record_Iso_Time(w.Time_Seconds);
    for (auto [name, text] : {std::pair{"Facility", &w.Facility}, {"City", &w.City}, {"State", &w.State},
                              {"Country", &w.Country}, {"Address", &w.Address}, {"Cross_Road", &w.Cross_Road},
                              {"Link", &w.Link}})
        if (!text->empty()) j[name] = *text;
    return j;
}

json Track_Point(const cTrack& p) {
    json j = {{"Lat", p.Lat}, {"Lon", p.Lon}, {"New_Segment", p.New_Segment}};
    Put_Float(j, "Alt", p.Alt);
    Put_Float(j, "Dpth", p.Dpth);
    Put_Float(j, "Temp", p.Temp);
    if (Has_Time(p.Seconds)) j["Time"] = Record_Iso_Time(p.Seconds);
    return j;
}

}  // namespace

std::string Json_Text(const Data& data) {
    json j = json::object();
    if (!data.source.empty()) j["source"] = data.source;
    for (Kind k : data.kinds) j[std::string(Kind_Name(k))] = json::array();
    for (const auto& w : data.waypoints) j["waypoints"].push_back(Waypoint(w));
    for (const auto& w : data.proximity) j["proximity"].push_back(Waypoint(w));
    for (const auto& r : data.routes) {
        json jr = {{"Number", r.header.Number}, {"Ident", r.header.Ident}, {"Cmnt", r.header.Cmnt},
                   {"Waypoints", json::array()}};
        for (const auto& w : r.points) jr["Waypoints"].push_back(Waypoint(w));
        j["routes"].push_back(std::move(jr));
    }
    for (const auto& t : data.tracks) {
        json jt = {{"Ident", t.header.Ident}, {"Color", t.header.Color}, {"Dspl", t.header.Dspl},
                   {"Index", t.header.Index}, {"Points", json::array()}};
        for (const auto& p : t.points) jt["Points"].push_back(Track_Point(p));
        j["tracks"].push_back(std::move(jt));
    }
    for (const auto& l : data.laps)
        j["laps"].push_back({{"Start_Time", Record_Iso_Time(l.Start_Time_Seconds)}, {"Total_Time", l.Total_Time},
                             {"Total_Distance", l.Total_Distance}, {"Begin_Lat", l.Begin_Lat},
                             {"Begin_Lon", l.Begin_Lon}, {"End_Lat", l.End_Lat}, {"End_Lon", l.End_Lon},
                             {"Calories", l.Calories}, {"Track_Index", l.Track_Index}});
    for (const auto& f : data.flights)
        j["flightbook"].push_back({{"Takeoff_Time", Record_Iso_Time(f.Takeoff_Seconds)},
                                   {"Landing_Time", Record_Iso_Time(f.Landing_Seconds)},
                                   {"Takeoff_Lat", f.Takeoff_Lat}, {"Takeoff_Lon", f.Takeoff_Lon},
                                   {"Landing_Lat", f.Landing_Lat}, {"Landing_Lon", f.Landing_Lon},
                                   {"Night_Time", f.Night_Time}, {"Num_Landings", f.Num_Landings},
                                   {"Max_Speed", f.Max_Speed}, {"Max_Alt", f.Max_Alt}, {"Distance", f.Distance},
                                   {"Cross_Country", f.Cross_Country},
                                   {"Departure_Airport_Name", f.Departure_Airport_Name},
                                   {"Departure_Airport_Ident", f.Departure_Airport_Ident},
                                   {"Arrival_Airport_Name", f.Arrival_Airport_Name},
                                   {"Arrival_Airport_Ident", f.Arrival_Airport_Ident},
                                   {"Aircraft_ID", f.Aircraft_ID}});
    for (const auto& a : data.almanac)
        j["almanac"].push_back({{"svid", a.svid}, {"wn", a.wn}, {"toa", a.toa}, {"af0", a.af0}, {"af1", a.af1},
                                {"e", a.e}, {"sqrta", a.sqrta}, {"m0", a.m0}, {"w", a.w}, {"omg0", a.omg0},
                                {"odot", a.odot}, {"i", a.i}, {"hlth", a.hlth}});
    // Text from a receiver is not always valid UTF-8: replace what is not.
    return j.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace trekcom::tool
