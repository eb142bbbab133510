// Record codecs: one received packet into one record, one record into one
// packet to send. Pure functions, no state of their own: what the control
// must remember between packets is listed below, and the control keeps it.
//
// Decoders take a packet's data alone (data byte k at offset k), of any size
// and content, as untrusted input: a field that does not lie wholly inside
// the data reads as 0 or "", and nothing outside the data is read. A new
// record starts at its class's initial values, so a field a format lacks, or
// a short packet never reaches, stays 0 or "". Decoders do not throw.
//
// Encoders return the application packet: the id they are given and the data
// they write. Its `announced` size is empty (the data's own length) except
// for D301 and D302 track points. No packet means the format is not one this
// encoder knows: send nothing. Encoders throw records::Overflow_Error when a
// value has no wire form: a position outside -180 <= degrees < 180, a number
// too big for its byte or Integer field, a record whose variable texts make
// it longer than the 255 data bytes a packet carries. The operation that
// sends catches it.
//
// Format names are the D-type texts the capability properties hold ("D108"),
// compared exactly.
//
// What the caller (the dispatcher and the Send_* methods) keeps:
//
// - Waypoint: the current Waypoint, the Waypoints collection, the Routes
//   collection. For every waypoint-family packet (PID_Wpt_Data,
//   PID_Rte_Wpt_Data, PID_Prx_Wpt_Data, whatever the transfer), pick the
//   format by the packet id (Waypoint_Data_Format, Route_Wpt_Data_Format,
//   Prox_Wpt_Data_Format), decode, make the result current, add it to
//   Waypoints, then Join_Last_Route(Routes, it). The proximity variants are
//   recognised inside the decoder, by size, from the base formats.
//   Join_Last_Route looks at the last item of Routes, not at the current
//   Route: waypoints downloaded after a route download join that old route
//   too, as they always have.
// - Route: the current Route and the Routes collection. A route header makes
//   a new route (Decode_Route_Header gives it its own empty Waypoints),
//   current and added to Routes. A route link fills the current Route in
//   place (Decode_Route_Link); the control holds an empty current Route from
//   the start, so a link before any header fills that one.
// - Track: the current Track (an empty one from the start) and the Tracks
//   collection (headers and points together in arrival order). A header and
//   a point both become the current Track and join Tracks. A point copies its
//   name, colour and display flag from the current Track, so pass it in
//   (Decode_Track_Point); the chain of points carries the header's values on.
// - Almanac: the current Almanac, filled in place (Decode_Almanac); fields
//   the packet cannot set keep their values, so do not replace the object
//   per packet.
// - Lap, Flightbook_Record: a new record per packet, made current and added
//   to its collection.
//
// Formats and their lengths:
//   waypoints  D100..D110, D150, D151, D152, D154, D155; proximity D400 (D100
//              of 62 bytes), D403 (D103 of 64), D450 (D150 of 121)
//   routes     headers D200, D201, D202; links D210 (one layout, no format)
//   tracks     headers D310, D311, D312; points D300, D301, D302
//   almanac    D500, D501, D550, D551
//   laps       the D906 layout; flightbook the D650 layout (no format)
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "link/packet.h"
#include "trekcom/collection.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

namespace trekcom::records {

// ---------------------------------------------------------------- waypoints

// A new waypoint from a waypoint, route-waypoint or proximity-waypoint packet.
// D100 of 62 bytes, D103 of 64 and D150 of 121 are the proximity variants
// and also set Dist (and Prox_Index for D450). In D108..D110 Sub_Class is
// read only for a Wpt_Class above 127. An unknown format gives a waypoint
// with its initial values.
cWaypoint Decode_Waypoint(link::Data_View data, std::string_view format);

// The packet for one waypoint. `proximity` adds the distance to D100 (as
// D400) and D103 (as D403); no other format has a proximity form when sent.
// In D108..D110 a Wpt_Class of 127 or more sends Sub_Class, a smaller one the
// default subclass bytes; the decoder's bound is above 127, so class 127 sends
// a subclass it will not read back.
std::optional<link::Packet> Encode_Waypoint(const cWaypoint& w, std::string_view format, std::uint16_t packet_id,
                                            bool proximity);

// Adds the waypoint to the Waypoints of the last route in `routes`, as every
// decoded waypoint does. Nothing happens when there is no route or the last
// one has no Waypoints collection.
void Join_Last_Route(const Collection<cRoute>& routes, const std::shared_ptr<cWaypoint>& waypoint);

// ---------------------------------------------------------------- routes

// A new route from a route header (D200, D201, D202), with its own empty
// Waypoints collection, whatever the format.
cRoute Decode_Route_Header(link::Data_View data, std::string_view format);
std::optional<link::Packet> Encode_Route_Header(const cRoute& route, std::string_view format, std::uint16_t packet_id);

// Sets Link_Class, Link_Sub_Class and Link_Ident of `route` (the current
// route) from a D210 link; the subclass is "" for classes 3 and 255.
void Decode_Route_Link(link::Data_View data, cRoute& route);
std::optional<link::Packet> Encode_Route_Link(const cRoute& route, std::uint16_t packet_id);

// ---------------------------------------------------------------- tracks

// A new track header (D310, D311, D312). The display flag is never taken
// from the packet: a decoded header has Dspl false.
cTrack Decode_Track_Header(link::Data_View data, std::string_view format);
std::optional<link::Packet> Encode_Track_Header(const cTrack& header, std::string_view format, std::uint16_t packet_id);

// A new track point (D300, D301, D302) carrying Ident, Color and Dspl of
// `current`, the current Track (the last header or point), whatever the
// format.
cTrack Decode_Track_Point(link::Data_View data, std::string_view format, const cTrack& current);
// The same into the point before, which becomes this one (a stream of
// points decoded into one record reuses its text buffers).
void Decode_Track_Point_Into(link::Data_View data, std::string_view format, cTrack& point);
// D301 and D302 go out with their full data but announcing 13 data bytes,
// the D300 size; receivers that check the size against the frame refuse
// them. A caller that wants the true size clears `announced`.
std::optional<link::Packet> Encode_Track_Point(const cTrack& point, std::string_view format, std::uint16_t packet_id);

// ---------------------------------------------------------------- almanac

// Fills `almanac` (the current one) in place from D500, D501, D550 or D551;
// an unknown format leaves it untouched, and a field the data does not reach
// is set to 0. D550/D551: svid is set only when the first byte is a digit
// '0'..'9' (its value), and af0 is read one byte before where the encoder
// puts it. A one-byte health, as receivers send it, is too short for the
// Single it is read as and gives 0.
void Decode_Almanac(link::Data_View data, std::string_view format, cAlmanac& almanac);
std::optional<link::Packet> Encode_Almanac(const cAlmanac& almanac, std::string_view format, std::uint16_t packet_id);

// ---------------------------------------------------------------- laps, flightbook

// One layout (D906), whatever the lap format property says. The encoder
// always sends 0 in the unused byte.
cLap Decode_Lap(link::Data_View data);
std::optional<link::Packet> Encode_Lap(const cLap& lap, std::uint16_t packet_id);

// One layout (D650). Of the five texts at the end, a text with no NUL after
// it is left "", and so are all that follow.
cFlightbook_Record Decode_Flightbook(link::Data_View data);
std::optional<link::Packet> Encode_Flightbook(const cFlightbook_Record& record, std::uint16_t packet_id);

}  // namespace trekcom::records
