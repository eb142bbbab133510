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

// Reads a record set from a GPX file or a JSON file (a JSON object), told
// apart by their first character. Files are untrusted: anything malformed,
// or a value a receiver cannot take, fails the whole read with the file's
// name and what is wrong (its line for GPX, the value's place for JSON).
bool Read_Records(const std::string& path, Data& out, std::string& error);
// GPX text already in memory (name is used in messages): waypoints, routes and tracks.
bool Parse_Gpx(const std::string& text, const std::string& name, Data& out, std::string& error);
// JSON text as Json_Text writes it: every kind.
bool Parse_Json(const std::string& text, const std::string& name, Data& out, std::string& error);

}  // namespace trekcom::tool
