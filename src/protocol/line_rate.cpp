// The line rate of big serial transfers. Most serial units start at 9600
// baud and accept 115200: a long track log then takes seconds instead of
// minutes. The line is raised just before such a transfer and put back when
// it ends, however it ends.
#include <utility>

#include "link/little_endian.h"
#include "protocol/engine.h"

namespace trekcom::protocol {

namespace {
// Below this many records the two rate changes (a request, a reopened port
// and a ping each way) cost more than the faster line saves.
constexpr std::uint32_t kWorth_Records = 100;
constexpr std::int32_t kProbe_Wait = 500;
}  // namespace

bool Engine::Could_Raise_Line() const {
    if (!shared_.Auto_Baud_Rate || Line_Raised() || link_.Port() < 1) return false;
    return link::Link::Baud_Of(link_.Shared().Settings) < link::Link::Baud_Of(link::Link::BaudList.back());
}

// Asked as Request_Counts asks: the unit announces its count and is stopped
// before its first record. Nothing is reported: a unit that does not answer
// here does not answer the download either, which reports it.
std::uint32_t Engine::Announced_Count(link::Packet Prebuilt::*command) {
    link_.Shared().RawSuppressed = true;
    shared_.Incoming_Records_Count = -1;
    std::uint8_t response = ids_.PID_Records;
    const bool announced = link_.Send_Packet(packets_.*command, response, kProbe_Wait);
    const auto count = static_cast<std::uint16_t>(shared_.Incoming_Records_Count);
    link::Put_LE<std::int16_t>(packets_.Xfer_Cmplt.data, 0, (packets_.*command).data[0]);
    response = ids_.PID_Ack_Byte;
    link_.Send_Packet(packets_.Xfer_Cmplt, response, kProbe_Wait);
    link_.Shared().RawSuppressed = false;
    return announced ? count : 0;
}

void Engine::Raise_Line_For(std::uint32_t records) {
    if (!Could_Raise_Line() || records < kWorth_Records) return;
    const std::string before = link_.Shared().Settings;
    if (link_.Change_Baud_Rate(link::Link::Baud_Of(link::Link::BaudList.back()))) raised_from_ = before;
}

void Engine::Restore_Line_Rate() {
    if (!Line_Raised()) return;
    // Cleared first: errors raised while restoring come back here.
    const std::string before = std::exchange(raised_from_, {});
    link_.Restore_Settings(before);
}

}  // namespace trekcom::protocol
