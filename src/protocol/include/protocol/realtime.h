// Real-time data: the receiver's live state (date and time, position, the
// PVT stream, the satellite table, supply voltages) and switching it off.
//
// The host starts each reading with a request; the answer arrives through the
// engine's dispatcher, which hands it to a decoder here, and the decoder fills
// the record object that the control exposes. No event is raised: the host
// reads the properties. Two of the control's timers are driven from here:
// tmrPVTData, the PVT watchdog, and tmrAsync, the USB polling of asynchronous
// mode.
//
// The control builds this part beside the engine (it needs the control's
// timers) and it registers with the engine for its lifetime, so that the
// dispatcher can reach the decoders.
#pragma once

#include <cstdint>
#include <memory>

#include "link/link.h"
#include "link/link_host.h"
#include "link/packet_ids.h"
#include "trekcom/collection.h"
#include "trekcom/platform.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

namespace trekcom::protocol {

class Engine;

class Realtime {
public:
    Realtime(Engine& engine, link::Link& link, link::Link_Host& host, Platform& platform, Timer& tmrPVTData,
             Timer& tmrAsync);
    ~Realtime();
    Realtime(const Realtime&) = delete;
    Realtime& operator=(const Realtime&) = delete;

    // ---- the records. The host may replace or empty any of them; a decoder
    // that finds one empty starts a fresh record.
    std::shared_ptr<cDate_Time> Date_Time = std::make_shared<cDate_Time>();
    std::shared_ptr<cPosition> Position = std::make_shared<cPosition>();  // degrees
    std::shared_ptr<cPvtData> PvtData = std::make_shared<cPvtData>();     // radians, as received
    // The last satellite entry decoded (the twelfth of the last table).
    std::shared_ptr<cSat> sat = std::make_shared<cSat>();
    std::shared_ptr<Collection<cSat>> Sats = std::make_shared<Collection<cSat>>();
    std::shared_ptr<cVoltages> Voltages = std::make_shared<cVoltages>();

    // ---- the host's methods
    void Request_Date_Time();
    void Request_Position_Data();
    void Send_Position_Data();
    void Request_Voltages();
    void Power_Off();
    void Pvt_Data_Start();
    void Pvt_Data_Stop();
    void Async_Start();
    void Async_Stop();

    // ---- decoders, called by the dispatcher with the whole received packet.
    // They read fixed positions and never past the data the packet declares
    // and holds: a field that is not there reads as 0.
    void Decode_Date_Time(const Bytes& packet);
    void Decode_Position(const Bytes& packet);
    void Decode_Pvt(const Bytes& packet);
    void Decode_Sats(const Bytes& packet);
    void Decode_Voltages(const Bytes& packet);

    // Switches asynchronous messages off; built once, it never changes.
    const link::Packet& Async_Off_Packet() const { return async_off_; }

private:
    void Pvt_Tick();
    void Async_Tick();
    // One read of whatever a polled transport has waiting, then the host's events.
    void Poll();
    // The packet ids and command codes in force (the engine's).
    const link::Packet_Ids& Ids() const;
    // The flags every real-time method but Power_Off clears first.
    void Clear_Flags();

    Engine& engine_;
    link::Link& link_;
    link::Link_Host& host_;
    Platform& platform_;
    Timer& pvt_timer_;
    Timer& async_timer_;
    link::Packet async_off_;
};

}  // namespace trekcom::protocol
