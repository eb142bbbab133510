// The units the simulator can be. Units that send a capability array say
// what they speak; older ones are known to hosts only by product id and
// software version, so their layouts here follow what such units used.
#include <stdexcept>

#include "trekcom_sim/unit.h"

namespace trekcom::sim {

std::vector<std::pair<char, std::uint16_t>> Profile::Capabilities() const {
    std::vector<std::pair<char, std::uint16_t>> c;
    auto add = [&c](char tag, std::uint16_t n) { c.emplace_back(tag, n); };
    add('P', 0);
    add('L', static_cast<std::uint16_t>(link == 2 ? 2 : 1));
    add('A', link == 2 ? 11 : 10);
    add('A', 100);
    add('D', waypoint_type);
    if (route_protocol) {
        add('A', route_protocol);
        add('D', route_header_type);
        add('D', route_waypoint_type);
        if (route_link_type) add('D', route_link_type);
    }
    if (track_protocol) {
        add('A', track_protocol);
        if (track_header_type) add('D', track_header_type);
        add('D', track_point_type);
    }
    // The protocols that each carry one layout.
    auto one_layout = [&add](bool on, std::uint16_t protocol, std::uint16_t layout) {
        if (!on) return;
        add('A', protocol);
        add('D', layout);
    };
    one_layout(proximity_protocol != 0, proximity_protocol, proximity_type);
    one_layout(almanac_type != 0, 500, almanac_type);
    one_layout(date_time, 600, 600);
    one_layout(flightbook, 650, 650);
    one_layout(position, 700, 700);
    one_layout(pvt, 800, 800);
    one_layout(laps, 906, lap_type);
    if (fitness) {
        one_layout(true, 1000, run_type);
        one_layout(true, 1006, 1006);
        one_layout(true, 1007, 1007);
        one_layout(true, 1008, 1012);
        one_layout(true, 1009, 1013);
        add('A', 1012);
        add('D', 311);
        add('D', track_point_type);
    }
    return c;
}

namespace {

Profile Current() {
    Profile p;
    p.name = "current";
    p.product_id = 1000;
    p.software_version = 380;
    p.descriptions = {"TREKSIM 60 Software Version 3.80"};
    p.extended = {"SIM Basemap 2.00", "Trekcom simulated receiver"};
    p.waypoint_type = 108;
    p.route_protocol = 201;
    p.route_header_type = 202;
    p.route_waypoint_type = 108;
    p.route_link_type = 210;
    p.track_protocol = 301;
    p.track_header_type = 310;
    p.track_point_type = 301;
    p.proximity_protocol = 400;
    p.proximity_type = 400;  // a D100 waypoint with its distance
    p.almanac_type = 501;
    p.pvt = true;
    p.laps = true;
    p.voltages = true;
    p.satellites = true;
    p.screen = Screen::Pattern(4, 150, 100, 0, true);
    return p;
}

Profile With_Waypoints(Profile p, const char* name, std::uint16_t product, std::uint16_t wpt,
                       std::uint16_t trk_hdr, std::uint16_t trk_pt) {
    p.name = name;
    p.product_id = product;
    p.waypoint_type = wpt;
    p.route_waypoint_type = wpt;
    p.track_header_type = trk_hdr;
    p.track_point_type = trk_pt;
    p.proximity_protocol = 0;
    p.proximity_type = 0;
    p.laps = false;
    p.extended.clear();
    return p;
}

Profile Legacy(const char* name, std::uint16_t product, std::int16_t version, std::uint16_t wpt,
               std::uint16_t rte_hdr, std::uint16_t prox) {
    Profile p;
    p.name = name;
    p.product_id = product;
    p.software_version = version;
    p.descriptions = {"LEGACY " + std::to_string(product) + " Software Version " + std::to_string(version / 100) +
                      "." + (version % 100 < 10 ? "0" : "") + std::to_string(version % 100)};
    p.capability_array = false;
    p.waypoint_type = wpt;
    p.route_protocol = 200;
    p.route_header_type = rte_hdr;
    p.route_waypoint_type = wpt;
    p.track_protocol = 300;
    p.track_point_type = 300;
    p.proximity_protocol = 400;
    p.proximity_type = prox;
    p.almanac_type = 500;
    return p;
}

Profile L002(const char* name, std::uint16_t product, std::uint16_t almanac) {
    Profile p;
    p.name = name;
    p.product_id = product;
    p.software_version = 250;
    p.descriptions = {"LEGACY " + std::to_string(product) + " Software Version 2.50"};
    p.capability_array = false;
    p.link = 2;
    p.waypoint_type = 150;
    p.route_protocol = 200;
    p.route_header_type = 201;
    p.route_waypoint_type = 150;
    p.proximity_protocol = 400;
    p.proximity_type = 450;
    p.almanac_type = almanac;
    p.position = false;  // the A011 command set has no position request
    p.unit_id = false;
    return p;
}

}  // namespace

Profile Profile::Named(const std::string& name) {
    if (name == "current") return Current();
    if (name == "d110") {
        Profile p = With_Waypoints(Current(), "d110", 1001, 110, 312, 302);
        p.descriptions = {"TREKSIM 76 Software Version 2.70"};
        p.software_version = 270;
        p.screen = Screen::Pattern(8, 120, 90, 0, true);
        p.screen.image_transfer = true;
        p.icon_slots = 24;
        return p;
    }
    if (name == "aviator") {
        Profile p = With_Waypoints(Current(), "aviator", 1002, 109, 310, 302);
        p.descriptions = {"TREKSIM AV Software Version 4.10"};
        p.software_version = 410;
        p.flightbook = true;
        p.voltages = false;
        return p;
    }
    if (name == "grey-legend") {
        // A 2-bpp grey handheld whose frame lies a quarter turn from its screen.
        Profile p = With_Waypoints(Current(), "grey-legend", 411, 108, 310, 301);
        p.descriptions = {"eTrex Legend Software Version 3.70"};
        p.pvt = false;
        p.satellites = false;
        p.screen = Screen::Pattern(2, 160, 288, 1, false);
        return p;
    }
    if (name == "legacy25") return Legacy("legacy25", 25, 300, 100, 200, 400);
    if (name == "legacy29-399") return Legacy("legacy29-399", 29, 399, 101, 201, 101);
    if (name == "legacy29-400") return Legacy("legacy29-400", 29, 400, 102, 201, 102);
    if (name == "l002") return L002("l002", 20, 550);
    if (name == "l002-d551") return L002("l002-d551", 64, 551);
    if (name == "fitness") {
        Profile p = With_Waypoints(Current(), "fitness", 1010, 110, 311, 304);
        p.descriptions = {"TREKSIM RUN 305 Software Version 2.80"};
        p.software_version = 280;
        p.track_protocol = 302;
        p.laps = true;
        p.lap_type = 1015;
        p.fitness = true;
        p.voltages = false;
        return p;
    }
    throw std::invalid_argument("unknown profile \"" + name + "\"");
}

std::vector<std::string> Profile::Names() {
    return {"current", "d110", "aviator", "legacy25", "legacy29-399", "legacy29-400", "l002", "l002-d551", "grey-legend"};
}

}  // namespace trekcom::sim
