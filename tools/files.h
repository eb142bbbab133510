// GPX 1.1 and JSON files of the tool's record sets.
//
// GPX: waypoints as wpt (proximity waypoints carry <type>proximity</type>),
// routes as rte, tracks as trk with a new trkseg wherever the receiver
// starts a new segment; depth, temperature and proximity distance in the
// Garmin GPX extensions; laps, flightbook records and the almanac, which GPX
// has no element for, as trekcom: elements in the file's extensions.
// JSON: every field of every record class, named as the class names it.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "data.h"

namespace trekcom::tool {

// Where records go, one at a time and in the order a download delivers
// them: the kinds in the order of kAll_Kinds, each between Begin_Kind and
// End_Kind; a route's waypoints after its header, a track's points after
// its header (points before any header belong to a nameless track). A
// writer that writes a file holds no more than the record in hand.
class Record_Writer {
public:
    virtual ~Record_Writer() = default;
    virtual void Begin(const std::string& source) { (void)source; }
    virtual void Begin_Kind(Kind k) { (void)k; }
    // A waypoint of the kind begun: waypoints, proximity, or the current route's.
    virtual void Waypoint(const cWaypoint& w) { (void)w; }
    virtual void Route(const cRoute& header) { (void)header; }
    virtual void Track(const cTrack& header) { (void)header; }
    virtual void Track_Point(const cTrack& point) { (void)point; }
    virtual void Lap(const cLap& lap) { (void)lap; }
    virtual void Flight(const cFlightbook_Record& flight) { (void)flight; }
    virtual void Almanac(const cAlmanac& entry) { (void)entry; }
    virtual void End_Kind(Kind k) { (void)k; }
    // Completes the file; nothing follows.
    virtual void Finish() {}
};

std::unique_ptr<Record_Writer> Gpx_Writer(std::ostream& out);
std::unique_ptr<Record_Writer> Json_Writer(std::ostream& out);

// A writer that keeps every record in a set.
class Data_Writer : public Record_Writer {
public:
    explicit Data_Writer(Data& into) : data_(into) {}
    void Begin(const std::string& source) override { data_.source = source; }
    void Begin_Kind(Kind k) override;
    void Waypoint(const cWaypoint& w) override;
    void Route(const cRoute& header) override;
    void Track(const cTrack& header) override { data_.tracks.push_back({header, {}}); }
    void Track_Point(const cTrack& point) override;
    void Lap(const cLap& lap) override { data_.laps.push_back(lap); }
    void Flight(const cFlightbook_Record& flight) override { data_.flights.push_back(flight); }
    void Almanac(const cAlmanac& entry) override { data_.almanac.push_back(entry); }

private:
    Data& data_;
    Kind kind_ = Kind::Waypoints;
};

// Gives a set to a writer as a download would deliver it: every kind the
// set names or holds records of.
void Write_Set(const Data& data, Record_Writer& out);

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
