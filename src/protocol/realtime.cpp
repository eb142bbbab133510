// Real-time data: the requests, the decoders of their answers, the PVT
// watchdog and the asynchronous polling.
#include "protocol/realtime.h"

#include <algorithm>
#include <cmath>

#include "link/framing.h"
#include "link/little_endian.h"
#include "protocol/engine.h"

namespace trekcom::protocol {

namespace {

constexpr std::uint8_t kAsync_Off_Id = 28;
constexpr std::size_t kSat_Entries = 12;
constexpr int kSat_Entry_Size = 7;

// Wait values of the exchanges: below 30 seconds, from 30 up milliseconds.
constexpr std::int32_t kDate_Time_Wait = 1000;
constexpr std::int32_t kPosition_Wait = 3;
constexpr std::int32_t kVoltages_Wait = 500;
constexpr std::int32_t kAsync_Off_Wait = 500;
constexpr std::int32_t kAck_Wait = 2;

// A serial unit streams a PVT record every second: two seconds without one
// means it has left PVT mode. Over USB the watchdog is the poll itself.
constexpr std::int32_t kSerial_Watchdog_ms = 2000;
constexpr std::int32_t kPoll_ms = 1000;
constexpr std::int32_t kAsync_Poll_ms = 1;

const double kPi = 4 * std::atan(1.0);
const double kRad_To_Deg = 180 / kPi;
const double kDeg_To_Rad = kPi / 180;

template <typename T>
T& Held(std::shared_ptr<T>& record) {
    if (!record) record = std::make_shared<T>();
    return *record;
}

// A received packet's data as the decoders read it: fields at data offsets,
// taken only from the data bytes that the size byte declares and the packet
// holds. A field that does not fit reads as 0.
class Data_Reader {
public:
    explicit Data_Reader(const Bytes& packet) {
        if (packet.size() <= 3) return;
        data_ = link::Data_View(packet).subspan(3);
        data_ = data_.first(std::min<std::size_t>(data_.size(), packet[2]));
    }

    std::uint8_t Byte(int offset) const { return Get<std::uint8_t>(offset); }
    std::int16_t Int(int offset) const { return Get<std::int16_t>(offset); }
    std::int32_t Long(int offset) const { return Get<std::int32_t>(offset); }
    float Single(int offset) const { return Get<float>(offset); }
    double Double(int offset) const { return Get<double>(offset); }

private:
    template <typename T>
    T Get(int offset) const {
        return offset < 0 ? T{} : link::Get_LE<T>(data_, static_cast<std::size_t>(offset));
    }
    link::Data_View data_{};
};

}  // namespace

Realtime::Realtime(Engine& engine, link::Link& link, link::Link_Host& host, Platform& platform, Timer& tmrPVTData,
                   Timer& tmrAsync)
    : engine_(engine),
      link_(link),
      host_(host),
      platform_(platform),
      pvt_timer_(tmrPVTData),
      async_timer_(tmrAsync),
      async_off_{kAsync_Off_Id, {0, 0}, std::nullopt} {
    pvt_timer_.Tick = [this] { Pvt_Tick(); };
    async_timer_.Tick = [this] { Async_Tick(); };
    engine_.live_ = this;
}

Realtime::~Realtime() {
    engine_.live_ = nullptr;
    pvt_timer_.Enabled(false);
    async_timer_.Enabled(false);
    pvt_timer_.Tick = nullptr;
    async_timer_.Tick = nullptr;
}

const link::Packet_Ids& Realtime::Ids() const { return engine_.ids_; }

void Realtime::Clear_Flags() {
    link_.Shared().RawSuppressed = false;
    engine_.Shared().Error_Latch = false;
}

// ---------------------------------------------------------------- requests

// The answers come through the dispatcher while the exchange waits; a missing
// one is reported by the exchange and the record keeps its values.
void Realtime::Request_Date_Time() {
    Clear_Flags();
    engine_.Exchange(engine_.Packets().Transfer_Time, Ids().PID_Date_Time, kDate_Time_Wait);
}

void Realtime::Request_Position_Data() {
    Clear_Flags();
    engine_.Exchange(engine_.Packets().Transfer_Posn, Ids().PID_Position_Data, kPosition_Wait);
}

void Realtime::Request_Voltages() {
    Clear_Flags();
    engine_.Exchange(engine_.Packets().Voltages_Request, Ids().PID_Voltages, kVoltages_Wait);
}

void Realtime::Send_Position_Data() {
    // The unit takes the position in radians; the host holds degrees.
    const cPosition& where = Held(Position);
    link::Packet packet{Ids().PID_Position_Data, Bytes(16, 0), std::nullopt};
    link::Put_LE<double>(packet.data, 0, where.Lat * kDeg_To_Rad);
    link::Put_LE<double>(packet.data, 8, where.Lon * kDeg_To_Rad);
    engine_.Exchange(packet, Ids().PID_Ack_Byte, kAck_Wait);
}

void Realtime::Power_Off() {
    // A unit that is off streams nothing: re-commanding it every two seconds
    // would only fill the trace, so PVT mode ends here too.
    engine_.Shared().Error_Latch = false;
    pvt_timer_.Enabled(false);
    engine_.Exchange(engine_.Packets().Turn_Off_Pwr, 0, 0);
}

// ---------------------------------------------------------------- PVT mode

void Realtime::Pvt_Data_Start() {
    Clear_Flags();
    pvt_timer_.Enabled(false);
    // A unit sending asynchronous messages would bury the PVT records.
    engine_.Exchange(async_off_, Ids().PID_Ack_Byte, kAsync_Off_Wait);
    // The records themselves answer this command: nothing is awaited.
    engine_.Exchange(engine_.Packets().Start_Pvt_Data, 0, 0);
    if (link_.Needs_Polling()) {
        Poll();
        pvt_timer_.Interval(kPoll_ms);
    } else {
        pvt_timer_.Interval(kSerial_Watchdog_ms);
    }
    pvt_timer_.Enabled(true);
}

void Realtime::Pvt_Data_Stop() {
    Clear_Flags();
    pvt_timer_.Enabled(false);
    engine_.Exchange(engine_.Packets().Stop_Pvt_Data, Ids().PID_Ack_Byte, kAck_Wait);
}

void Realtime::Pvt_Tick() {
    if (link_.Needs_Polling()) {
        Poll();
        return;
    }
    // A whole period without a PVT record: the unit has left PVT mode (it was
    // reset, or switched off and on). Say so and command it again.
    host_.Raise_HexDebug("PC ** GPS " + host_.xLate("Not receiving PVT data"));
    Pvt_Data_Start();
}

// ---------------------------------------------------------------- asynchronous mode

void Realtime::Async_Start() {
    Clear_Flags();
    async_timer_.Interval(kAsync_Poll_ms);
    async_timer_.Enabled(true);
}

void Realtime::Async_Stop() {
    Clear_Flags();
    async_timer_.Enabled(false);
    engine_.Exchange(async_off_, Ids().PID_Ack_Byte, kAsync_Off_Wait);
}

void Realtime::Async_Tick() {
    // A transport that is not polled delivers on its own.
    if (link_.Needs_Polling()) Poll();
}

void Realtime::Poll() {
    // One read of what the unit has ready; the transport delivers it to the
    // dispatcher. Never a wait: this runs every millisecond.
    link_.Poll();
    platform_.DoEvents();
}

// ---------------------------------------------------------------- decoders

void Realtime::Decode_Date_Time(const Bytes& packet) {
    const Data_Reader in(packet);
    cDate_Time& t = Held(Date_Time);
    t.month = in.Byte(0);
    t.day = in.Byte(1);
    t.year = in.Int(2);
    t.hour = in.Int(4);
    t.minute = in.Byte(6);
    t.second = in.Byte(7);
}

void Realtime::Decode_Position(const Bytes& packet) {
    const Data_Reader in(packet);
    cPosition& p = Held(Position);
    p.Lat = in.Double(0) * kRad_To_Deg;
    p.Lon = in.Double(8) * kRad_To_Deg;
}

void Realtime::Decode_Pvt(const Bytes& packet) {
    const Data_Reader in(packet);
    cPvtData& p = Held(PvtData);
    p.Alt = in.Single(0);
    p.epe = in.Single(4);
    p.eph = in.Single(8);
    p.epv = in.Single(12);
    p.pfix = in.Int(16);
    p.tow = in.Double(18);
    p.Lat = in.Double(26);
    p.Lon = in.Double(34);
    p.east = in.Single(42);
    p.north = in.Single(46);
    p.up = in.Single(50);
    p.msl_hght = in.Single(54);
    p.leap_scnds = in.Int(58);
    p.wn_days = in.Long(60);
    // The watchdog's period counts anew from this record. Only while PVT mode
    // is on: a record still on its way after Pvt_Data_Stop must not bring
    // the watchdog, and with it the stream, back.
    if (pvt_timer_.Enabled()) {
        pvt_timer_.Enabled(false);
        pvt_timer_.Enabled(true);
    }
}

void Realtime::Decode_Sats(const Bytes& packet) {
    // Always twelve entries, whatever the packet's length: the ones it does
    // not reach are zero.
    const Data_Reader in(packet);
    Collection<cSat>& list = Held(Sats);
    list.Clear();
    for (std::size_t k = 0; k < kSat_Entries; ++k) {
        const int at = static_cast<int>(k) * kSat_Entry_Size;
        auto entry = std::make_shared<cSat>();
        entry->svid = in.Byte(at);
        entry->snr = in.Int(at + 1);
        entry->elev = in.Byte(at + 3);
        entry->azimuth = in.Int(at + 4);
        entry->status = in.Byte(at + 6);
        list.Add(entry);
        sat = std::move(entry);
    }
}

void Realtime::Decode_Voltages(const Bytes& packet) {
    // Hundredths of a volt on the wire.
    const Data_Reader in(packet);
    cVoltages& v = Held(Voltages);
    v.Internal_Voltage = static_cast<float>(in.Int(0) / 100.0);
    v.External_Voltage = static_cast<float>(in.Int(2) / 100.0);
}

}  // namespace trekcom::protocol
