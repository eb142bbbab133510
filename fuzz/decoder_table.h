// The record decoders the decoder fuzz target chooses from, by the input's
// first byte (its index here); the seed generator picks indices from it too.
#pragma once

#include <array>
#include <string_view>

namespace trekcom::fuzz {

enum class Kind {
    waypoint, route_header, route_link, track_header, track_point, almanac, lap, flightbook,
    run, fitness_lap, fitness_point, course, course_lap, course_point, course_limits
};

struct Decoder {
    Kind kind;
    std::string_view format;
};

constexpr std::array kDecoders{
    Decoder{Kind::waypoint, "D100"},     Decoder{Kind::waypoint, "D101"},     Decoder{Kind::waypoint, "D102"},
    Decoder{Kind::waypoint, "D103"},     Decoder{Kind::waypoint, "D104"},     Decoder{Kind::waypoint, "D105"},
    Decoder{Kind::waypoint, "D106"},     Decoder{Kind::waypoint, "D107"},     Decoder{Kind::waypoint, "D108"},
    Decoder{Kind::waypoint, "D109"},     Decoder{Kind::waypoint, "D110"},     Decoder{Kind::waypoint, "D150"},
    Decoder{Kind::waypoint, "D151"},     Decoder{Kind::waypoint, "D152"},     Decoder{Kind::waypoint, "D154"},
    Decoder{Kind::waypoint, "D155"},     Decoder{Kind::waypoint, "D400"},     Decoder{Kind::waypoint, "D403"},
    Decoder{Kind::waypoint, "D450"},     Decoder{Kind::route_header, "D200"}, Decoder{Kind::route_header, "D201"},
    Decoder{Kind::route_header, "D202"}, Decoder{Kind::route_link, "D210"},   Decoder{Kind::track_header, "D310"},
    Decoder{Kind::track_header, "D311"}, Decoder{Kind::track_header, "D312"}, Decoder{Kind::track_point, "D300"},
    Decoder{Kind::track_point, "D301"},  Decoder{Kind::track_point, "D302"},  Decoder{Kind::almanac, "D500"},
    Decoder{Kind::almanac, "D501"},      Decoder{Kind::almanac, "D550"},      Decoder{Kind::almanac, "D551"},
    Decoder{Kind::lap, "D906"},          Decoder{Kind::flightbook, "D650"},   Decoder{Kind::run, "D1000"},
    Decoder{Kind::run, "D1009"},         Decoder{Kind::run, "D1010"},         Decoder{Kind::fitness_lap, "D1001"},
    Decoder{Kind::fitness_lap, "D1011"}, Decoder{Kind::fitness_lap, "D1015"}, Decoder{Kind::fitness_point, "D303"},
    Decoder{Kind::fitness_point, "D304"}, Decoder{Kind::course, "D1006"},    Decoder{Kind::course_lap, "D1007"},
    Decoder{Kind::course_point, "D1012"}, Decoder{Kind::course_limits, "D1013"},
};

// The index of a format's decoder, or -1.
constexpr int Decoder_Index(Kind kind, std::string_view format) {
    for (std::size_t i = 0; i < kDecoders.size(); ++i)
        if (kDecoders[i].kind == kind && kDecoders[i].format == format) return static_cast<int>(i);
    return -1;
}

}  // namespace trekcom::fuzz
