// Multi-record transfers: the download requests, the record counts, the
// framing of uploads, and the prebuilt packets they send.
#include <cstdlib>
#include <utility>

#include "link/framing.h"
#include "link/little_endian.h"
#include "protocol/engine.h"
#include "records/fields.h"

namespace trekcom::protocol {

namespace {

constexpr std::uint8_t kCmnd_Unit_ID = 14;
constexpr std::uint8_t kCmnd_Voltages = 17;
constexpr std::int32_t kDownload_Wait = 2;
constexpr std::int32_t kCount_Wait = 500;
constexpr std::int32_t kUpload_Wait = 2;
// Too short a time to swap a unit on an open port.
constexpr double kIdentity_Fresh_ms = 1000;

bool Blank(const std::string& protocol) { return protocol.find_first_not_of(' ') == std::string::npos; }

// The records packet counts in 16 bits. A unit with more records than that
// sends either the low 16 bits of its count or, in some firmware, the
// largest count it can (65,535). So what arrives is counted in 32 bits and
// compared in those 16 bits, and a count stuck at 65,535 is met by anything
// from 65,535 up. Only a transfer short by a multiple of 65,536 records
// passes unseen, and no count on the wire could tell that one apart.
constexpr std::uint32_t kCount_Modulus = 0x10000;
constexpr std::uint16_t kCount_Largest = 0xFFFF;

bool Count_Met(std::uint16_t announced, std::uint32_t received) {
    if (received % kCount_Modulus == announced) return true;
    return announced == kCount_Largest && received >= kCount_Largest;
}

// The announced count as nearly as its 16 bits tell: the number with those
// low bits that lies nearest to what arrived.
std::uint32_t Announced_Total(std::uint16_t announced, std::uint32_t received) {
    const std::int64_t base = std::int64_t{received} - received % kCount_Modulus + announced;
    std::int64_t best = base;
    for (std::int64_t candidate : {base - std::int64_t{kCount_Modulus}, base + std::int64_t{kCount_Modulus}})
        if (candidate >= 0 && std::llabs(candidate - received) < std::llabs(best - received)) best = candidate;
    return static_cast<std::uint32_t>(best);
}

// The completion packet names the transfer it closes, as the unit's own
// completion packet does, in the command codes in force.
void Name_Transfer(link::Packet& completion, std::uint8_t command) {
    link::Put_LE<std::int16_t>(completion.data, 0, command);
}

}  // namespace

Engine::Engine(link::Link& link, link::Packet_Ids& ids, Engine_Host& host)
    : link_(link), ids_(ids), host_(host), table_(Parse_Product_Table(kProduct_Table_Resource)) {
    Set_Default_Protocols();
    Build_Packets();
}

std::shared_ptr<Collection<cWaypoint>>& Engine::Waypoints() { return Created(waypoints_); }
std::shared_ptr<Collection<cRoute>>& Engine::Routes() { return Created(routes_); }
std::shared_ptr<Collection<cTrack>>& Engine::Tracks() { return Created(tracks_); }
std::shared_ptr<Collection<cLap>>& Engine::Laps() { return Created(laps_); }
std::shared_ptr<Collection<cFlightbook_Record>>& Engine::Flightbook_Records() { return Created(flightbook_); }

void Engine::Build_Packets() {
    // Command ids travel as 16-bit words: the code, then 0.
    const auto command = [this](std::uint8_t code) { return link::Packet{ids_.PID_Command_Data, {code, 0}, std::nullopt}; };
    packets_.Records = {ids_.PID_Records, {0, 0}, std::nullopt};
    packets_.Xfer_Cmplt = {ids_.PID_Xfer_Cmplt, {0, 0}, std::nullopt};
    packets_.Transfer_Wpt = command(ids_.CMND_Transfer_Wpt);
    packets_.Transfer_Prx = command(ids_.CMND_Transfer_Prx);
    packets_.Transfer_Rte = command(ids_.CMND_Transfer_Rte);
    packets_.Transfer_Trk = command(ids_.CMND_Transfer_Trk);
    packets_.Transfer_Flightbook = command(ids_.CMND_Transfer_Flightbook);
    packets_.Transfer_Lap = command(ids_.CMND_Transfer_Lap);
    packets_.Transfer_Alm = command(ids_.CMND_Transfer_Alm);
    packets_.Transfer_Time = command(ids_.CMND_Transfer_Time);
    packets_.Transfer_Posn = command(ids_.CMND_Transfer_Posn);
    packets_.Start_Pvt_Data = command(ids_.CMND_Start_Pvt_Data);
    packets_.Stop_Pvt_Data = command(ids_.CMND_Stop_Pvt_Data);
    packets_.Turn_Off_Pwr = command(ids_.CMND_Turn_Off_Pwr);
    packets_.Unit_ID_Request = command(kCmnd_Unit_ID);
    packets_.Voltages_Request = command(kCmnd_Voltages);
}

bool Engine::Exchange(const link::Packet& packet, std::uint8_t response, std::int32_t wait_time) {
    if (link_.Send_Packet(packet, response, wait_time)) return true;
    link_.No_Response();
    return false;
}

// ---------------------------------------------------------------- downloads

void Engine::Begin_Request() {
    link_.Shared().RawSuppressed = false;
    shared_.Error_Latch = false;
    // A new request ends what the unit was sending: the host chose to stop it.
    tally_ = {};
    // Every download identifies the unit again, as it may have been
    // swapped, unless it has only just said who it is.
    if (!identified_ms_ || link_.Now_ms() - *identified_ms_ > kIdentity_Fresh_ms) Request_Product_Data();
}

void Engine::Download(Transfer_Kind kind, link::Packet Prebuilt::*command) {
    Begin_Request();
    if (!Supports(kind, Asker::Request)) return;
    switch (kind) {
        case Transfer_Kind::Waypoints:
        case Transfer_Kind::Prox_Waypoints: Waypoints()->Clear(); break;
        case Transfer_Kind::Routes: Routes()->Clear(); break;
        case Transfer_Kind::Tracks: Tracks()->Clear(); break;
        case Transfer_Kind::Laps: Laps()->Clear(); break;
        case Transfer_Kind::Flightbook: Flightbook_Records()->Clear(); break;
    }
    // Read only now: identification may have rebuilt the packet for L002.
    if (Could_Raise_Line()) Raise_Line_For(Announced_Count(command));
    Exchange(packets_.*command, ids_.PID_Records, kDownload_Wait);
    // The records arrive through Dispatch_Packet and end at Complete_Transfer.
}

void Engine::Request_Waypoints() { Download(Transfer_Kind::Waypoints, &Prebuilt::Transfer_Wpt); }
void Engine::Request_Prox_Waypoints() { Download(Transfer_Kind::Prox_Waypoints, &Prebuilt::Transfer_Prx); }
void Engine::Request_Routes() { Download(Transfer_Kind::Routes, &Prebuilt::Transfer_Rte); }
void Engine::Request_Tracks() { Download(Transfer_Kind::Tracks, &Prebuilt::Transfer_Trk); }
void Engine::Request_Laps() { Download(Transfer_Kind::Laps, &Prebuilt::Transfer_Lap); }
void Engine::Request_Flightbook() { Download(Transfer_Kind::Flightbook, &Prebuilt::Transfer_Flightbook); }

void Engine::Request_Counts() {
    Begin_Request();
    *shared_.Counts = cRecord_Counts{};
    // The unit announces each count and is then stopped before its first
    // record: no Receive events, no ACK of the records packet, and the
    // completion packets that follow raise no download event.
    link_.Shared().RawSuppressed = true;

    struct Kind {
        const std::string& protocol;
        link::Packet Prebuilt::*command;
        std::uint8_t code;
        std::int16_t cRecord_Counts::*count;
    };
    const Kind kinds[] = {
        {shared_.P.WayPoint_Transfer_Protocol, &Prebuilt::Transfer_Wpt, ids_.CMND_Transfer_Wpt, &cRecord_Counts::Waypoint_Records},
        {shared_.P.Route_Transfer_Protocol, &Prebuilt::Transfer_Rte, ids_.CMND_Transfer_Rte, &cRecord_Counts::Route_Records},
        {shared_.P.Prox_Wpt_Transfer_Protocol, &Prebuilt::Transfer_Prx, ids_.CMND_Transfer_Prx,
         &cRecord_Counts::Prox_Waypoint_records},
        {shared_.P.Track_Transfer_Protocol, &Prebuilt::Transfer_Trk, ids_.CMND_Transfer_Trk, &cRecord_Counts::Track_Records},
    };
    for (const Kind& kind : kinds) {
        shared_.Incoming_Records_Count = -1;
        if (!Blank(kind.protocol)) {
            Exchange(packets_.*kind.command, ids_.PID_Records, kCount_Wait);
            Name_Transfer(packets_.Xfer_Cmplt, kind.code);
            Exchange(packets_.Xfer_Cmplt, ids_.PID_Ack_Byte, kCount_Wait);
        }
        (*shared_.Counts).*kind.count = shared_.Incoming_Records_Count;  // -1: not supported, or no count came
    }
    shared_.Incoming_Records_Count = 0;
    // RawSuppressed stays set until the next request clears it.
    const cRecord_Counts c = *shared_.Counts;
    host_.Raise_ReceiveCounts(c.Waypoint_Records, c.Prox_Waypoint_records, c.Route_Records, c.Track_Records);
}

// ---------------------------------------------------------------- download counts

void Engine::Open_Tally(const Bytes& records_packet) {
    // While counting, the records packets only tell the counts.
    if (link_.Shared().RawSuppressed) return;
    tally_ = {true, static_cast<std::uint16_t>(records::Pkt2Int(records_packet, 3)), 0, records_packet};
}

void Engine::Close_Tally() {
    if (!tally_.open) return;
    const Tally t = std::move(tally_);
    tally_ = {};  // closed before reporting: the report may end the download again
    if (Count_Met(t.announced, t.received)) return;
    std::string message = host_.xLate("Incomplete transfer: %1 of %2 records received");
    for (const auto& [mark, value] :
         {std::pair{"%1", std::to_string(t.received)}, {"%2", std::to_string(Announced_Total(t.announced, t.received))}})
        if (const std::size_t at = message.find(mark); at != std::string::npos) message.replace(at, 2, value);
    host_.Raise_Error(kIncomplete_Transfer, message, t.records_packet);
}

// ---------------------------------------------------------------- uploads

void Engine::Start_of_Records(std::int16_t& ocount) {
    shared_.Error_Latch = false;
    Raise_Line_For(static_cast<std::uint16_t>(ocount));
    link::Put_LE<std::int16_t>(packets_.Records.data, 0, ocount);
    Exchange(packets_.Records, ids_.PID_Ack_Byte, kUpload_Wait);
}

void Engine::End_of_Records() {
    shared_.Error_Latch = false;
    // The last packet sent is the upload's last record (the unit only ACKs
    // while we upload), and its id tells which transfer this closes.
    Name_Transfer(packets_.Xfer_Cmplt, Command_Of_Record(link_.Last_Sent().id));
    Exchange(packets_.Xfer_Cmplt, ids_.PID_Ack_Byte, kUpload_Wait);
    Restore_Line_Rate();
}

std::uint8_t Engine::Command_Of_Record(std::uint16_t pid) const {
    if (pid == ids_.PID_Wpt_Data) return ids_.CMND_Transfer_Wpt;
    if (pid == ids_.PID_Prx_Wpt_Data) return ids_.CMND_Transfer_Prx;
    if (pid == ids_.PID_Rte_Hdr || pid == ids_.PID_Rte_Wpt_Data || pid == ids_.PID_Rte_Link)
        return ids_.CMND_Transfer_Rte;
    if (pid == ids_.PID_Trk_Hdr || pid == ids_.PID_Trk_Data) return ids_.CMND_Transfer_Trk;
    if (pid == ids_.PID_Almanac_Data) return ids_.CMND_Transfer_Alm;
    if (pid == ids_.PID_Lap) return ids_.CMND_Transfer_Lap;
    if (pid == ids_.PID_Flightbook_Record) return ids_.CMND_Transfer_Flightbook;
    // An empty upload (only the records packet went out) names no transfer.
    return ids_.CMND_Reset_Transfer;
}

}  // namespace trekcom::protocol
