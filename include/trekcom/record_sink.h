// Records as they arrive, for hosts that keep them their own way.
//
// A host that gives the control a sink (TrekcomCtl::Record_Sink) receives
// each downloaded record once, as soon as it is decoded, and the control
// keeps none of them: the collections a download fills otherwise
// (Waypoints, Routes, Tracks, Laps, Flightbook_Records) stay empty, so a
// download of a million track points costs the control no more memory than
// one of ten. Everything else is unchanged: the current record properties
// (Waypoint, Track, ...) still follow each record, and the completion events
// (ReceivedWaypoints, ReceivedRoutes, ReceivedTracks) still mark the end of
// a download, with an empty collection.
//
// The almanac, which fills the one Almanac record in place and no
// collection, is read there as before. A record is lent for the call only:
// copy what must outlive it. Track points are decoded into the current
// Track record itself, so with a sink that one object is rewritten for each
// point and nothing is allocated for it: a host that keeps the Track() it
// was given sees it change.
#pragma once

#include "trekcom/records.h"

namespace trekcom {

class Record_Sink {
public:
    virtual ~Record_Sink() = default;

    // A waypoint, proximity waypoint or route waypoint: the download asked
    // for tells which. A route's waypoints follow its header.
    virtual void Waypoint(const cWaypoint& w) { (void)w; }
    // A route header; its own Waypoints stay empty: its waypoints come here.
    virtual void Route(const cRoute& header) { (void)header; }
    // A track header; the points that follow it carry its name.
    virtual void Track_Header(const cTrack& header) { (void)header; }
    virtual void Track_Point(const cTrack& point) { (void)point; }
    virtual void Lap(const cLap& lap) { (void)lap; }
    virtual void Flightbook_Record(const cFlightbook_Record& record) { (void)record; }
};

}  // namespace trekcom
