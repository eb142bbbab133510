// What a receiver says when it is set to NMEA 0183 or to its text output.
#pragma once

#include <cstdint>
#include <string>

namespace trekcom::sim::nmea {

struct Fix {
    std::uint32_t receiver_seconds = 0;  // UTC, seconds since 1989-12-31
    double lat_deg = 0, lon_deg = 0;
    float alt_m = 0;
    int satellites = 7;
};

// One second's sentences ($GPRMC, $GPGGA, $GPGSA, $GPGSV, $PGRME, $PGRMZ), CR LF each.
std::string Sentences(const Fix& fix);
// One second's "@" text line, CR LF terminated.
std::string Text_Line(const Fix& fix);
// "*hh": the XOR of the characters between '$' and '*'.
std::string Checksum(const std::string& body);

}  // namespace trekcom::sim::nmea
