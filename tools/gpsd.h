// The objects gpsd's clients read (its JSON protocol's TPV and SKY), made
// from a receiver's PVT records and satellite tables, so that a client of
// gpsd can follow a Garmin binary-protocol receiver without gpsd's driver.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include <trekcom/trekcom.h>

namespace trekcom::tool {

// A TPV object for a PVT record whose time is `garmin_seconds` (UTC, since the
// receiver's epoch, as Pvt_Garmin_Seconds gives it). A record without a fix
// carries its time and mode only.
nlohmann::ordered_json Gpsd_Tpv(const cPvtData& pvt, double garmin_seconds, const std::string& device);
// A SKY object of a satellite table; empty channels are left out.
nlohmann::ordered_json Gpsd_Sky(const Collection<cSat>& sats, const std::string& device);
// One object a line, ended by CR LF as gpsd ends its own (its Python client
// takes a line only so), and flushed: a client follows the stream live.
void Write_Gpsd(std::ostream& out, const nlohmann::ordered_json& object);
// "2019-12-15T20:46:57.000Z": gpsd's time, to the millisecond.
std::string Gpsd_Time(double garmin_seconds);

// The horizontal speed (m/s) and the track (degrees true, 0 to 360) of a PVT record.
double Pvt_Speed(const cPvtData& pvt);
double Pvt_Track(const cPvtData& pvt);

}  // namespace trekcom::tool
