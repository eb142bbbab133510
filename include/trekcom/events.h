// The control's events. A host derives from TrekcomCtlEvents, overrides what
// it wants and calls ctl.Advise(sink). Every argument is passed by reference;
// where the control reads an argument back after the call, the event says so.
// Events are raised on the host's thread, from inside the control's methods
// or the platform's loop; a handler may call the control again.
//
// Dispatch identifiers, in the order a container numbers them:
//   1 vcReceive   2 Receive     3 HexDebug        4 NMEA
//   5 cError      6 vcError     7 ReceiveCounts   8 ReceivedWaypoints
//   9 ReceivedRoutes             10 ReceivedTracks 11 ReceivedFlightbook
//  12 ReceivedLaps             13 ReceiveImage  14 ReceiveIcon
//  15 vcReceiveIcon          16 ReceivedRuns  17 ReceivedCourses
//  18 ReceivedRun
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "trekcom/collection.h"
#include "trekcom/picture.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

namespace trekcom {

class TrekcomCtlEvents {
public:
    virtual ~TrekcomCtlEvents() = default;

    // Every received packet as text, one char per byte (raised after Receive).
    virtual void vcReceive(std::string& Packet) { (void)Packet; }
    // Every received packet that unstuffed: DLE, id, size, data, checksum, DLE, ETX.
    virtual void Receive(Bytes& Packet) { (void)Packet; }
    // One packet trace line or diagnostic note.
    virtual void HexDebug(std::string& dbgText) { (void)dbgText; }
    // One NMEA sentence or text line; chkerr is true when its checksum was checked and good.
    virtual void NMEA(std::string& Sentence, bool& chkerr) {
        (void)Sentence;
        (void)chkerr;
    }
    // An operation could not go on: code, translated message, the packet concerned.
    virtual void cError(std::int16_t& cErr, std::string& message, Bytes& Packet) {
        (void)cErr;
        (void)message;
        (void)Packet;
    }
    // The same error with the packet as text (raised after cError).
    virtual void vcError(std::int16_t& cErr, std::string& message, std::string& Packet) {
        (void)cErr;
        (void)message;
        (void)Packet;
    }
    // Record counts: waypoints, proximity waypoints, routes, tracks (-1: not supported).
    virtual void ReceiveCounts(std::int16_t& wCount, std::int16_t& pCount, std::int16_t& rCount,
                               std::int16_t& tCount) {
        (void)wCount;
        (void)pCount;
        (void)rCount;
        (void)tCount;
    }
    // A waypoint or proximity waypoint download is complete.
    virtual void ReceivedWaypoints(std::shared_ptr<Collection<cWaypoint>>& Waypoints) { (void)Waypoints; }
    // A route download is complete.
    virtual void ReceivedRoutes(std::shared_ptr<Collection<cRoute>>& Routes) { (void)Routes; }
    // A track download is complete.
    virtual void ReceivedTracks(std::shared_ptr<Collection<cTrack>>& Tracks) { (void)Tracks; }
    // Part of the interface, never raised: flightbook and lap downloads end
    // without an event, and their records are read through the control.
    virtual void ReceivedFlightbook(std::shared_ptr<Collection<cFlightbook_Record>>& Flightbook_records) {
        (void)Flightbook_records;
    }
    virtual void ReceivedLaps(std::shared_ptr<Collection<cLap>>& Laps) { (void)Laps; }
    // One run of a runs download, with its laps and track points, as soon as
    // it is whole (in the order of the runs); then all of them, or the courses.
    virtual void ReceivedRun(std::shared_ptr<cRun>& Run) { (void)Run; }
    virtual void ReceivedRuns(std::shared_ptr<Collection<cRun>>& Runs) { (void)Runs; }
    virtual void ReceivedCourses(std::shared_ptr<Collection<cCourse>>& Courses) { (void)Courses; }
    // Screen capture progress in percent, and the image so far.
    virtual void ReceiveImage(std::int16_t& pct, Picture& Image) {
        (void)pct;
        (void)Image;
    }
    // An icon read from the receiver: its number, the image and its bitmap bytes.
    virtual void ReceiveIcon(std::int16_t& seq, Picture& Image, Bytes& BMP) {
        (void)seq;
        (void)Image;
        (void)BMP;
    }
    // The same icon with the bitmap as text (raised after ReceiveIcon).
    virtual void vcReceiveIcon(std::int16_t& seq, Picture& Image, std::string& BMP) {
        (void)seq;
        (void)Image;
        (void)BMP;
    }
};

}  // namespace trekcom
