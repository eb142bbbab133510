// GPX 1.1 and JSON files of the tool's record sets.
//
// GPX: waypoints as wpt (proximity waypoints carry <type>proximity</type>),
// routes as rte, tracks as trk with a new trkseg wherever the receiver
// starts a new segment; depth, temperature and proximity distance in the
// Garmin GPX extensions; laps, flightbook records and the almanac, which GPX
// has no element for, as trekcom: elements in the file's extensions.
// JSON: every field of every record class, named as the class names it.
#pragma once

#include <string>

#include "data.h"

namespace trekcom::tool {

std::string Gpx_Text(const Data& data);
std::string Json_Text(const Data& data);

// Reads waypoints, routes and tracks from a GPX file. The file is untrusted:
// anything that is not well-formed GPX, or a value a receiver cannot take,
// fails the whole read with "FILE:LINE: what is wrong" in error.
bool Read_Gpx(const std::string& path, Data& out, std::string& error);
// The same from text already in memory (name is used in messages).
bool Parse_Gpx(const std::string& text, const std::string& name, Data& out, std::string& error);

}  // namespace trekcom::tool
