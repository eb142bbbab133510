#include "nmea.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "civil_time.h"
#include "trekcom_sim/data.h"

namespace trekcom::sim::nmea {

namespace {

std::string Format(const char* fmt, auto... args) {
    char buf[160];
    const int n = std::snprintf(buf, sizeof buf, fmt, args...);
    return std::string(buf, static_cast<std::size_t>(std::clamp(n, 0, static_cast<int>(sizeof buf) - 1)));
}

std::string Sentence(const std::string& body) { return "$" + body + Checksum(body) + "\r\n"; }

// ddmm.mmmm and the hemisphere letter.
std::string Angle(double deg, int degree_digits, char pos, char neg) {
    const char hemi = deg < 0 ? neg : pos;
    deg = std::fabs(deg);
    int d = static_cast<int>(deg);
    double m = (deg - d) * 60.0;
    if (m >= 59.99995) {
        m = 0;
        ++d;
    }
    return Format(degree_digits == 2 ? "%02d%07.4f,%c" : "%03d%07.4f,%c", d, m, hemi);
}

}  // namespace

std::string Checksum(const std::string& body) {
    unsigned x = 0;
    for (char c : body) x ^= static_cast<unsigned char>(c);
    return Format("*%02X", x);
}

std::string Sentences(const Fix& f) {
    const Civil c = Civil_From_Unix(std::int64_t{f.receiver_seconds} + kEpochOffset_s);
    const std::string hms = Format("%02d%02d%02d", c.hour, c.minute, c.second);
    const std::string date = Format("%02d%02d%02d", c.day, c.month, c.year % 100);
    const std::string lat = Angle(f.lat_deg, 2, 'N', 'S');
    const std::string lon = Angle(f.lon_deg, 3, 'E', 'W');
    std::string out;
    out += Sentence("GPRMC," + hms + ",A," + lat + "," + lon + ",000.0,000.0," + date + ",001.0,E");
    out += Sentence("GPGGA," + hms + "," + lat + "," + lon + Format(",1,%02d,1.2,%.1f,M,0.0,M,,", f.satellites,
                                                                    static_cast<double>(f.alt_m)));
    out += Sentence("GPGSA,A,3,02,05,07,13,15,20,30,,,,,,2.1,1.2,1.7");
    out += Sentence("GPGSV,2,1,07,02,45,120,42,05,30,045,38,07,60,300,45,13,15,210,33");
    out += Sentence("GPGSV,2,2,07,15,25,090,36,20,70,180,47,30,10,330,30");
    out += Sentence("PGRME,4.5,M,6.1,M,7.6,M");
    out += Sentence(Format("PGRMZ,%d,f,3", static_cast<int>(std::lround(f.alt_m / 0.3048))));
    return out;
}

std::string Text_Line(const Fix& f) {
    const Civil c = Civil_From_Unix(std::int64_t{f.receiver_seconds} + kEpochOffset_s);
    auto part = [](double deg, int digits, char pos, char neg) {
        const char hemi = deg < 0 ? neg : pos;
        deg = std::fabs(deg);
        const int d = static_cast<int>(deg);
        const int mmm = std::min(59999, static_cast<int>(std::lround((deg - d) * 60000.0)));
        return Format(digits == 2 ? "%c%02d%05d" : "%c%03d%05d", hemi, d, mmm);
    };
    const long alt = std::lround(std::clamp(f.alt_m, -9999.0f, 99999.0f));
    return Format("@%02d%02d%02d%02d%02d%02d", c.year % 100, c.month, c.day, c.hour, c.minute, c.second) +
           part(f.lat_deg, 2, 'N', 'S') + part(f.lon_deg, 3, 'E', 'W') + "G006" +
           Format("%c%05ld", alt < 0 ? '-' : '+', std::labs(alt)) + "E0000N0000U0000\r\n";
}

}  // namespace trekcom::sim::nmea
