// The one entry for every received application packet, serial or USB: it
// looks at the id alone and hands the packet to its handler.
#include <string>

#include "protocol/engine.h"
#include "records/codecs/codecs.h"
#include "protocol/realtime.h"
#include "protocol/screen.h"
#include "records/fields.h"

namespace trekcom::protocol {

namespace {
constexpr std::uint8_t kExt_Product_Data = 248;
constexpr std::uint8_t kIcon_Packet_1 = 124;
constexpr std::uint8_t kIcon_Packet_2 = 125;
}  // namespace

void Engine::Dispatch_Packet(const Bytes& packet) {
    if (packet.size() < 2) return;
    const std::uint8_t id = packet[1];
    if (tally_.open && Command_Of_Record(id) != ids_.CMND_Reset_Transfer) ++tally_.received;
    if (fitness_ && On_Fitness_Packet(packet)) return;
    // The ids are the ones in force, so an L002 unit is routed by its own
    // numbers. Where two of them coincide, the first row wins: the order is
    // part of the behaviour.
    if (id == ids_.PID_Trk_Hdr) {
        On_Track_Header(packet);
    } else if (id == ids_.PID_Trk_Data) {
        On_Track_Point(packet);
    } else if (id == ids_.PID_Records) {
        shared_.Incoming_Records_Count = records::Pkt2Int(packet, 3);
        Open_Tally(packet);
    } else if (id == ids_.PID_Product_Data) {
        Process_Product_Data(packet);
    } else if (id == kExt_Product_Data) {
        Process_Ext_Product_Data(packet);
    } else if (id == ids_.PID_Protocol_Array) {
        Parse_Protocol_Array(packet);
    } else if (id == ids_.PID_Unit_ID) {
        // The unit id is an unsigned 32-bit number shown in plain decimal.
        shared_.Product_Data->Unit_ID = std::to_string(static_cast<std::uint32_t>(records::Pkt2Long(packet, 3)));
    } else if (id == ids_.PID_Date_Time) {
        On_Date_Time(packet);
    } else if (id == ids_.PID_Pvt_Data) {
        On_Pvt_Data(packet);
    } else if (id == ids_.PID_Almanac_Data) {
        On_Almanac(packet);
    } else if (id == ids_.PID_Position_Data) {
        On_Position(packet);
    } else if (id == ids_.PID_Wpt_Data || id == ids_.PID_Rte_Wpt_Data || id == ids_.PID_Prx_Wpt_Data) {
        On_Waypoint(packet);
    } else if (id == ids_.PID_Rte_Hdr) {
        On_Route_Header(packet);
    } else if (id == ids_.PID_Rte_Link) {
        On_Route_Link(packet);
    } else if (id == ids_.PID_Voltages) {
        On_Voltages(packet);
    } else if (id == ids_.PID_Display_Data) {
        On_Display_Data(packet);
    } else if (id == ids_.PID_Flightbook_Record) {
        On_Flightbook_Record(packet);
    } else if (id == ids_.PID_Lap) {
        On_Lap(packet);
    } else if (id == ids_.PID_Sats) {
        On_Sats(packet);
    } else if (id == ids_.PID_Xfer_Cmplt) {
        Complete_Transfer(packet);
    } else if (id == ids_.PID_Nak_Byte || id == ids_.PID_Ack_Byte) {
        // acknowledgements belong to the command exchange
    } else if (id == ids_.PID_Baud_Reply) {
        shared_.Baud_Reply = records::Pkt2Long(packet, 3);
    } else if (id == ids_.PID_Expanded_Packet || id == kIcon_Packet_1 || id == kIcon_Packet_2) {
        On_Expanded_Packet(packet);
    }
    // Anything else is not ours to judge: dropped without an error.
}

void Engine::Complete_Transfer(const Bytes& packet) {
    // While counting, the completion packets answer our own aborts.
    if (link_.Shared().RawSuppressed) return;
    // The data names the command the transfer answered; only its low byte counts.
    if (packet.size() < 4 || packet[2] < 1) return;
    Close_Tally();
    Restore_Line_Rate();
    const std::uint8_t command = packet[3];
    if (command == ids_.CMND_Transfer_Wpt || command == ids_.CMND_Transfer_Prx) {
        // Proximity waypoints share the waypoint collection and event.
        host_.Raise_ReceivedWaypoints(Waypoints());
    } else if (command == ids_.CMND_Transfer_Rte) {
        host_.Raise_ReceivedRoutes(Routes());
    } else if (command == ids_.CMND_Transfer_Trk) {
        host_.Raise_ReceivedTracks(Tracks());
    }
    // Laps, flightbook and almanac downloads end without an event: the host
    // reads those records through their properties.
}

// ---------------------------------------------------------------- decoder hooks
//
// The record decoders and the real-time handlers are called from here. Until
// one is wired, its packets are dropped and its record keeps its start values.

void Engine::On_Track_Header(const Bytes& packet) {
    shared_.Track = track_pool_.Make(records::Decode_Track_Header(link::Data_Of(packet), shared_.P.Track_Header_Format));
    Keep(shared_.Track, *Tracks(), &Record_Sink::Track_Header);
}
void Engine::On_Track_Point(const Bytes& packet) {
    // A host taking points as they come keeps none: each is decoded into the
    // current record, in place, and lent to its sink.
    if (shared_.Sink) {
        records::Decode_Track_Point_Into(link::Data_Of(packet), shared_.P.Track_Point_Format, *Created(shared_.Track));
        return shared_.Sink->Track_Point(*shared_.Track);
    }
    // Each point carries the name, colour and display flag of the record
    // before it, so a whole track carries its header's.
    shared_.Track = track_pool_.Make(records::Decode_Track_Point(link::Data_Of(packet), shared_.P.Track_Point_Format, *Created(shared_.Track)));
    Keep(shared_.Track, *Tracks(), &Record_Sink::Track_Point);
}
void Engine::On_Date_Time(const Bytes& packet) {
    if (live_) live_->Decode_Date_Time(packet);
}
void Engine::On_Pvt_Data(const Bytes& packet) {
    if (live_) live_->Decode_Pvt(packet);
}
void Engine::On_Almanac(const Bytes& packet) {
    // Filled in place: what an entry's layout cannot set keeps its value.
    records::Decode_Almanac(link::Data_Of(packet), shared_.P.Almanac_Data_Format, *Created(shared_.Almanac));
}
void Engine::On_Position(const Bytes& packet) {
    if (live_) live_->Decode_Position(packet);
}
void Engine::On_Waypoint(const Bytes& packet) {
    shared_.Waypoint = std::make_shared<cWaypoint>(records::Decode_Waypoint(link::Data_Of(packet), Waypoint_Format(packet[1])));
    if (shared_.Sink) return shared_.Sink->Waypoint(*shared_.Waypoint);
    Waypoints()->Add(shared_.Waypoint);
    // Whatever the transfer: a route's waypoints follow its header this way.
    records::Join_Last_Route(*Routes(), shared_.Waypoint);
}
void Engine::On_Route_Header(const Bytes& packet) {
    shared_.Route = std::make_shared<cRoute>(records::Decode_Route_Header(link::Data_Of(packet), shared_.P.Route_Header_Format));
    Keep(shared_.Route, *Routes(), &Record_Sink::Route);
}
void Engine::On_Route_Link(const Bytes& packet) { records::Decode_Route_Link(link::Data_Of(packet), *Created(shared_.Route)); }
void Engine::On_Voltages(const Bytes& packet) {
    if (live_) live_->Decode_Voltages(packet);
}
void Engine::On_Display_Data(const Bytes& packet) {
    if (screen_) screen_->On_Packet(packet);
}
void Engine::On_Flightbook_Record(const Bytes& packet) {
    shared_.Flightbook_Record = std::make_shared<cFlightbook_Record>(records::Decode_Flightbook(link::Data_Of(packet)));
    Keep(shared_.Flightbook_Record, *Flightbook_Records(), &Record_Sink::Flightbook_Record);
}
void Engine::On_Lap(const Bytes& packet) {
    shared_.Lap = std::make_shared<cLap>(records::Decode_Lap(link::Data_Of(packet)));
    Keep(shared_.Lap, *Laps(), &Record_Sink::Lap);
}
void Engine::On_Sats(const Bytes& packet) {
    if (live_) live_->Decode_Sats(packet);
}
void Engine::On_Expanded_Packet(const Bytes& packet) {
    if (screen_) screen_->On_Expanded(packet);
}

}  // namespace trekcom::protocol
