// Record uploads, one record per call between Start_of_Records and
// End_of_Records, and the almanac download. The codecs build the packets;
// every packet leaves through the command exchange, so End_of_Records can
// tell from the last one which transfer it closes.
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "link/framing.h"
#include "protocol/engine.h"
#include "records/codecs/codecs.h"
#include "records/fields.h"

namespace trekcom::protocol {

namespace {
// A record's ACK, and the almanac's records packet, within the short wait.
constexpr std::int32_t kRecord_Wait = 2;
// The run-time error number of an overflow, as hosts know it.
constexpr std::int16_t kOverflow = 6;
}  // namespace

std::string Engine::Waypoint_Format(std::uint8_t pid) const {
    if (pid == ids_.PID_Rte_Wpt_Data) return shared_.P.Route_Wpt_Data_Format;
    if (pid != ids_.PID_Prx_Wpt_Data) return shared_.P.Waypoint_Data_Format;
    // The unit names its proximity layout (D400, D403, D450); the codecs know
    // it as the waypoint layout it extends and tell the two apart by size.
    static const std::pair<std::string_view, std::string_view> kBase[] = {
        {"D400", "D100"}, {"D403", "D103"}, {"D450", "D150"}};
    for (const auto& [proximity, base] : kBase)
        if (shared_.P.Prox_Wpt_Data_Format == proximity) return std::string(base);
    return shared_.P.Prox_Wpt_Data_Format;
}

void Engine::Send_Record(const std::function<std::optional<link::Packet>()>& encode) {
    std::optional<link::Packet> packet;
    try {
        packet = encode();
    } catch (const records::Overflow_Error& e) {
        // A value with no wire form (a position at or beyond 180 degrees, a
        // number too big for its field, texts too long for one packet): the
        // record is not sent and the host hears why, as an error event.
        host_.Raise_Error(kOverflow, host_.xLate("Overflow") + ": " + e.what(), Bytes{0});
        return;
    }
    if (!packet) return;  // a format this control cannot write
    Exchange(*packet, ids_.PID_Ack_Byte, kRecord_Wait);
}

// ---------------------------------------------------------------- waypoints

void Engine::Send_Waypoint() {
    if (!Supports(Transfer_Kind::Waypoints, Asker::Send)) return;
    const std::uint8_t pid = ids_.PID_Wpt_Data;
    Send_Record([&] { return records::Encode_Waypoint(*Created(shared_.Waypoint), Waypoint_Format(pid), pid, false); });
}

void Engine::Send_Prox_Waypoint() {
    if (!Supports(Transfer_Kind::Prox_Waypoints, Asker::Send)) return;
    const std::uint8_t pid = ids_.PID_Prx_Wpt_Data;
    Send_Record([&] { return records::Encode_Waypoint(*Created(shared_.Waypoint), Waypoint_Format(pid), pid, true); });
}

void Engine::Send_Route_Waypoint() {
    if (!Supports(Transfer_Kind::Routes, Asker::Send)) return;
    const std::uint8_t pid = ids_.PID_Rte_Wpt_Data;
    Send_Record([&] { return records::Encode_Waypoint(*Created(shared_.Waypoint), Waypoint_Format(pid), pid, false); });
}

// ---------------------------------------------------------------- routes and tracks

void Engine::Send_Route_Header() {
    if (!Supports(Transfer_Kind::Routes, Asker::Send)) return;
    Send_Record([&] { return records::Encode_Route_Header(*Created(shared_.Route), shared_.P.Route_Header_Format, ids_.PID_Rte_Hdr); });
}

void Engine::Send_Route_Link() {
    if (!Supports(Transfer_Kind::Routes, Asker::Send)) return;
    Send_Record([&] { return records::Encode_Route_Link(*Created(shared_.Route), ids_.PID_Rte_Link); });
}

void Engine::Send_Track_Header() {
    if (!Supports(Transfer_Kind::Tracks, Asker::Send)) return;
    Send_Record([&] { return records::Encode_Track_Header(*Created(shared_.Track), shared_.P.Track_Header_Format, ids_.PID_Trk_Hdr); });
}

void Engine::Send_Track() {
    if (!Supports(Transfer_Kind::Tracks, Asker::Send)) return;
    Send_Record([&] {
        auto p = records::Encode_Track_Point(*Created(shared_.Track), shared_.P.Track_Point_Format, ids_.PID_Trk_Data);
        // The codec announces the D300 size for every layout; a host that
        // asked for the true size gets the data's own.
        if (shared_.Track_Point_True_Size && p) p->announced.reset();
        return p;
    });
}

// ---------------------------------------------------------------- almanac, laps, flightbook

void Engine::Request_Almanac_Data() {
    Begin_Request();
    // Read only now: identification may have rebuilt the packet for L002.
    Exchange(packets_.Transfer_Alm, ids_.PID_Records, kRecord_Wait);
    // The entries arrive through Dispatch_Packet, each filling Almanac.
}

void Engine::Send_Almanac_Data() {
    // No support test: a unit without an almanac layout gets nothing, as the
    // encoder knows no blank format.
    Send_Record([&] { return records::Encode_Almanac(*Created(shared_.Almanac), shared_.P.Almanac_Data_Format, ids_.PID_Almanac_Data); });
}

void Engine::Send_Lap() {
    if (!Supports(Transfer_Kind::Laps, Asker::Send)) return;
    Send_Record([&] { return records::Encode_Lap(*Created(shared_.Lap), ids_.PID_Lap); });
}

void Engine::Send_Flightbook_Record() {
    if (!Supports(Transfer_Kind::Flightbook, Asker::Send)) return;
    Send_Record([&] { return records::Encode_Flightbook(*Created(shared_.Flightbook_Record), ids_.PID_Flightbook_Record); });
}

}  // namespace trekcom::protocol
