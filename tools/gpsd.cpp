#include "gpsd.h"

#include <cmath>
#include <cstdio>
#include <numbers>

#include "data.h"

namespace trekcom::tool {

namespace {

using nlohmann::ordered_json;

constexpr double kRad_To_Deg = 180.0 / std::numbers::pi;

// The receiver's floats carry about seven digits: printing more only shows
// the conversion to double. Positions keep nine decimals (a tenth of a millimetre).
double Rounded(double x, int decimals) {
    const double scale = std::pow(10.0, decimals);
    return std::round(x * scale) / scale + 0.0;  // + 0.0: no "-0" for a rounded-away value
}

// gpsd's modes: 1 no fix, 2 a 2D fix, 3 a 3D fix; 0 a value it cannot place.
int Mode(std::int16_t pfix) {
    switch (pfix) {
        case 0: case 1: return 1;   // unusable, invalid
        case 2: case 4: return 2;   // 2D, 2D differential
        case 3: case 5: return 3;   // 3D, 3D differential
        default: return 0;
    }
}

}  // namespace

double Pvt_Speed(const cPvtData& p) { return std::hypot(p.east, p.north); }

double Pvt_Track(const cPvtData& p) {
    const double track = std::atan2(p.east, p.north) * kRad_To_Deg;
    return track < 0 ? track + 360 : track;
}

void Write_Gpsd(std::ostream& out, const ordered_json& object) {
    out << object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) << "\r\n" << std::flush;
}

std::string Gpsd_Time(double garmin_seconds) {
    const auto ms = static_cast<std::int64_t>(std::llround(garmin_seconds * 1000.0));
    // Floor division, so that a time before the epoch keeps a positive fraction.
    const std::int64_t whole = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
    std::string text = Iso_Time(whole);  // ...T20:46:57Z
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(ms - whole * 1000));
    text.replace(text.size() - 1, 1, fraction);
    return text;
}

ordered_json Gpsd_Tpv(const cPvtData& p, double garmin_seconds, const std::string& device) {
    const int mode = Mode(p.pfix);
    ordered_json tpv = {{"class", "TPV"}, {"device", device}, {"mode", mode}};
    // gpsd's status 2 is a differential fix; a plain fix goes without one, as gpsd sends it.
    if (p.pfix == 4 || p.pfix == 5) tpv["status"] = 2;
    tpv["time"] = Gpsd_Time(garmin_seconds);
    if (mode < 2) return tpv;
    tpv["leapseconds"] = p.leap_scnds;
    tpv["lat"] = Rounded(p.Lat * kRad_To_Deg, 9);
    tpv["lon"] = Rounded(p.Lon * kRad_To_Deg, 9);
    if (mode == 3) {
        // Alt is above the ellipsoid; msl_hght is the ellipsoid above sea level.
        const double msl = static_cast<double>(p.Alt) + p.msl_hght;
        tpv["altHAE"] = Rounded(p.Alt, 3);
        tpv["altMSL"] = Rounded(msl, 3);
        tpv["alt"] = Rounded(msl, 3);
    }
    tpv["geoidSep"] = Rounded(-p.msl_hght, 3);
    tpv["speed"] = Rounded(Pvt_Speed(p), 3);
    tpv["track"] = Rounded(Pvt_Track(p), 4);
    if (mode == 3) tpv["climb"] = Rounded(p.up, 3);
    tpv["velN"] = Rounded(p.north, 3);
    tpv["velE"] = Rounded(p.east, 3);
    if (mode == 3) tpv["velD"] = Rounded(-p.up, 3);
    // The receiver's errors are two-sigma: gpsd's eph, epv and sep are of about
    // that confidence. It gives no error per axis, so epx and epy stay out.
    tpv["eph"] = Rounded(p.eph, 3);
    if (mode == 3) tpv["epv"] = Rounded(p.epv, 3);
    tpv["sep"] = Rounded(p.epe, 3);
    return tpv;
}

ordered_json Gpsd_Sky(const Collection<cSat>& sats, const std::string& device) {
    // Bit 2 of a channel's status: the satellite is used in the solution.
    constexpr std::uint8_t kUsed = 4;
    ordered_json list = ordered_json::array();
    for (const auto& sat : sats) {
        if (!sat || sat->svid == 0xFF) continue;  // an empty channel
        list.push_back({{"PRN", sat->svid}, {"el", sat->elev}, {"az", sat->azimuth},
                        {"ss", sat->snr / 100.0},  // hundredths of a dB; -1 when not tracked
                        {"used", (sat->status & kUsed) != 0}});
    }
    return {{"class", "SKY"}, {"device", device}, {"satellites", list}};
}

}  // namespace trekcom::tool
