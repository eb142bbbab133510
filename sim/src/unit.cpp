// The receiver's side of the link and its answers. One packet of the unit's
// own is in flight at a time: it waits for the host's ACK before the next,
// re-sends on NAK, re-sends once after a time-out and then gives the transfer
// up, as real units do. Streamed packets (PVT, satellites) and the unit's own
// ACK/NAK go out at once and are never acknowledged.
#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
#include <limits>
#include <numbers>
#include <optional>
#include <tuple>
#include <utility>

#include "deframer.h"
#include "fitness.h"
#include "formats.h"
#include "framer.h"
#include "nmea.h"
#include "screen.h"
#include "trekcom_sim/unit.h"
#include "usb_packet.h"
#include "wire.h"

namespace trekcom::sim {

namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr double kStreamPeriod_ms = 1000;

// Fixed packet ids (the same for both link protocols).
constexpr std::uint8_t kAck = 6;
constexpr std::uint8_t kNak = 21;
constexpr std::uint8_t kAsyncOff = 28;
constexpr std::uint8_t kUnitId = 38;
constexpr std::uint8_t kDisplay = 69;
constexpr int kScreen_Dump = 32;
constexpr std::uint8_t kVoltages = 40;
constexpr std::uint8_t kBaudRequest = 48;
constexpr std::uint8_t kBaudReply = 49;
constexpr std::uint8_t kSatellites = 114;
constexpr std::uint8_t kExtProductData = 248;
constexpr std::uint8_t kProtocolArray = 253;
constexpr std::uint8_t kProductRequest = 254;
constexpr std::uint8_t kProductData = 255;

constexpr int kNone = -1;

// Packet ids and command codes of one unit: L001/A010 or L002/A011.
struct Ids {
    int command, xfer_cmplt, date_time, position, prx_wpt, records, rte_hdr, rte_wpt, almanac, trk, wpt, pvt,
        rte_link, trk_hdr, flight, lap;
    int c_abort, c_alm, c_posn, c_prx, c_rte, c_time, c_trk, c_wpt, c_off, c_pvt_start, c_pvt_stop, c_flight,
        c_laps, c_unit_id, c_voltages;

    static Ids For(int link) {
        if (link == 2)
            return {11, 12, 20, 24, 27, 35, 37, 39, 4, kNone, 43, kNone, kNone, kNone, kNone, kNone,
                    0,  4,  kNone, 17, 8, 20, kNone, 21, 26, kNone, kNone, kNone, kNone, 14, 17};
        return {10, 12, 14, 17, 19, 27, 29, 30, 31, 34, 35, 51, 98, 99, 134, 149,
                0,  1,  2,  3,  4,  5,  6,  7,  8,  49, 50, 92, 117, 14, 17};
    }
};

enum class Kind { waypoints, proximity, routes, tracks, almanac, laps, flights };

Bytes U16_Data(std::uint16_t v) { return {static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v >> 8)}; }

template <typename T>
void Replace_Or_Append(std::vector<T>& list, T item, auto same) {
    auto it = std::find_if(list.begin(), list.end(), [&](const T& x) { return same(x, item); });
    if (it != list.end())
        *it = std::move(item);
    else
        list.push_back(std::move(item));
}

}  // namespace

Subclass Default_Subclass() {
    Subclass s{};
    std::fill(s.begin() + 6, s.end(), std::uint8_t{0xFF});
    return s;
}

std::int32_t Deg_To_Semi(double degrees) {
    if (!std::isfinite(degrees)) return 0;
    double d = std::fmod(degrees, 360.0);
    if (d >= 180.0) d -= 360.0;
    if (d < -180.0) d += 360.0;
    const double s = std::nearbyint(d * (2147483648.0 / 180.0));
    return static_cast<std::int32_t>(std::clamp(s, -2147483648.0, 2147483647.0));
}

double Semi_To_Deg(std::int32_t semicircles) { return semicircles * (180.0 / 2147483648.0); }

struct Unit::Impl {
    struct Out {
        Bytes packet;   // unstuffed, sealed
        int record = -1;  // index within a transfer (0: the records packet); -1: not part of one
    };
    // A record of a download: its packet id and data.
    struct Record {
        int id;
        Bytes data;
    };
    using Record_Source = std::function<std::optional<Record>()>;

    Impl(Profile p, Data_Set d, Options o)
        : profile(std::move(p)),
          data(std::move(d)),
          options(o),
          ids(Ids::For(profile.link)),
          baud(o.baud),
          mode(o.mode),
          deframer([this](const Deframer::Frame& f) { On_Frame(f); }) {}

    Profile profile;
    Data_Set data;
    Data_Set uploaded;
    Options options;
    Faults faults;
    Counters counters;
    Ids ids;
    Line* line = nullptr;

    std::int32_t baud;
    std::int32_t pending_baud = 0;  // takes effect once the baud reply is acknowledged
    Output_Mode mode;
    bool powered = true;
    double power_on_ms = kNever;
    bool pvt_on = false;
    double next_pvt_ms = kNever;
    double next_nmea_ms = kNever;
    double start_ms = 0;

    std::deque<Out> queue;
    // The rest of the download in progress, made as the queue empties.
    struct Out_Record {
        Record record;
        int index;
    };
    std::function<std::optional<Out_Record>()> source;
    std::optional<Out> waiting;
    double deadline_ms = kNever;
    int timeouts = 0;
    int nak_resends = 0;
    double line_free_ms = 0;
    long data_transmissions = 0;

    bool upload_active = false;
    bool route_open = false;
    bool track_open = false;
    int almanac_index = 0;

    bool usb = false;  // the host talks USB: answers go to the two pipes, unframed
    usb::Pipe usb_interrupt;
    usb::Pipe usb_bulk;
    // A fault that cut the current USB transfer short, and what the unit
    // does once the host has read what was kept.
    enum class Usb_Cut { none, stall, hang_up, off };
    bool usb_cutting = false;
    Usb_Cut usb_after_read = Usb_Cut::none;

    screen::Image_Store images{profile.screen, profile.icon_slots};
    Deframer deframer;
    std::function<void(char, std::uint8_t, const Bytes&)> trace;

    void Trace(char from, const Bytes& packet) {
        if (trace && packet.size() >= frame::kOverhead) trace(from, packet[1], frame::Data(packet));
    }

    // ---------------------------------------------------------------- time

    double Now() const { return line ? line->Now_ms() : 0.0; }

    std::uint32_t Utc_Now() const {
        const double s = std::max(0.0, (Now() - start_ms) / 1000.0);
        return data.situation.utc_start + static_cast<std::uint32_t>(std::floor(s));
    }

    void Reschedule() {
        if (!line) return;
        double next = kNever;
        if (waiting) next = std::min(next, deadline_ms);
        if (pvt_on && powered) next = std::min(next, next_pvt_ms);
        if (mode != Output_Mode::garmin && powered) next = std::min(next, next_nmea_ms);
        if (!powered) next = std::min(next, power_on_ms);
        if (next < kNever)
            line->Wake_At(next);
        else
            line->Cancel_Wake();
    }

    // ---------------------------------------------------------------- sending

    // Line time: with pacing each byte takes 10 bits at the unit's rate.
    void Transmit_Wire(Bytes wire) {
        if (!faults.garbage.empty()) wire.insert(wire.begin(), faults.garbage.begin(), faults.garbage.end());
        if (usb || !line) return;
        const double now = Now();
        double at = std::max(now, line_free_ms);
        if (options.pace && baud > 0) at += static_cast<double>(wire.size()) * 10.0 * 1000.0 / baud;
        line_free_ms = at;
        line->Send(wire, at);
    }

    void Transmit_Data(const Bytes& packet) {
        Trace('U', packet);
        ++data_transmissions;
        Bytes p = packet;
        if (faults.corrupt_every > 0 && data_transmissions % faults.corrupt_every == 0)
            p[p.size() - 3] = static_cast<std::uint8_t>(p[p.size() - 3] ^ 0x5A);
        Bytes wire = frame::Wire(p);
        if (faults.drop_byte_every > 0 && data_transmissions % faults.drop_byte_every == 0)
            wire.erase(wire.begin() + static_cast<std::ptrdiff_t>(wire.size() / 2));
        Transmit_Wire(std::move(wire));
    }

    void Send_Link(std::uint8_t pid, std::uint8_t about) {
        Transmit_Wire(frame::Wire(frame::Packet(pid, {about, 0})));
        ++(pid == kAck ? counters.acks_sent : counters.naks_sent);
    }

    // A packet that waits its turn and its acknowledgement.
    void Queue(int id, Bytes data, int record = -1) {
        // Ids past a byte only travel over USB.
        if (id < 0 || id > (usb ? 0xFFFF : 255)) return;
        // An answer asked for during a download waits for the download's end.
        if (record < 0)
            while (source) Refill();
        if (usb) return Usb_Send(static_cast<std::uint16_t>(id), data, record);
        queue.push_back({frame::Packet(static_cast<std::uint8_t>(id), data), record});
    }

    // A packet that goes at once and is never acknowledged.
    void Stream(std::uint8_t id, const Bytes& data) {
        if (usb) return Usb_Send(id, data, -1);
        Transmit_Data(frame::Packet(id, data));
    }

    void Pump() {
        if (queue.empty() && !waiting && powered) Refill();
        if (waiting || queue.empty() || !powered) return;
        Out o = std::move(queue.front());
        queue.pop_front();
        if (o.record >= 0 && faults.stall_after_record >= 0 && o.record > faults.stall_after_record) {
            // The unit goes quiet in the middle of the transfer.
            faults.stall_after_record = -1;
            queue.clear();
            source = nullptr;
            return;
        }
        Transmit_Data(o.packet);
        ++counters.packets_sent;
        timeouts = 0;
        nak_resends = 0;
        deadline_ms = line_free_ms + options.ack_timeout_ms;
        const auto after = [&](int& knob) {
            if (o.record < 0 || knob < 0 || o.record < knob) return false;
            knob = -1;
            return true;
        };
        const bool hang_up = after(faults.hang_up_after_record);
        const bool off = after(faults.off_after_record);
        waiting = std::move(o);
        if (hang_up) {
            Drop_Transfer();
            line_free_ms = Now();
            if (line) line->Hang_Up();
        } else if (off) {
            Power_Off();  // the record already on the line still arrives
        }
    }

    void Drop_Transfer() {
        if (waiting && waiting->packet[1] == kBaudReply) Switch_Baud();
        waiting.reset();
        queue.clear();
        source = nullptr;
        usb_bulk.Drop_Unread();
        deadline_ms = kNever;
    }

    bool Transfer_Active() const {
        return !queue.empty() || source || (waiting && waiting->record >= 0) || usb_bulk.Has_Unread();
    }

    void Switch_Baud() {
        if (pending_baud <= 0) return;
        baud = pending_baud;
        pending_baud = 0;
        if (line && mode == Output_Mode::garmin) line->Line_Rate(baud);
    }

    // ---------------------------------------------------------------- receiving

    void On_Frame(const Deframer::Frame& f) {
        if (!f.good) {
            ++counters.bad_frames;
            // A damaged ACK or NAK is left to the time-out; anything else is refused.
            if (f.id != kAck && f.id != kNak) Send_Link(kNak, f.id);
            return;
        }
        ++counters.frames_received;
        if (trace) trace('H', f.id, f.data);
        if (f.id == kAck) return On_Ack(f.data);
        if (f.id == kNak) return On_Nak();
        if (faults.nak_first > 0) {
            --faults.nak_first;
            Send_Link(kNak, f.id);
            return;
        }
        Send_Link(kAck, f.id);
        Dispatch(f.id, f.data);
    }

    void On_Ack(const Bytes& d) {
        // Some hosts acknowledge the screen stream, which waits for nothing.
        if (!d.empty() && d[0] == kDisplay && (!waiting || waiting->packet[1] != kDisplay)) return;
        if (!waiting || (!d.empty() && d[0] != waiting->packet[1])) {
            ++counters.stray_acks;
            return;
        }
        if (waiting->packet[1] == kBaudReply) Switch_Baud();
        waiting.reset();
        deadline_ms = kNever;
        Pump();
    }

    void On_Nak() {
        if (!waiting) {
            ++counters.stray_acks;
            return;
        }
        if (++nak_resends > options.max_resends_after_nak) {
            ++counters.abandoned;
            Drop_Transfer();
            return;
        }
        ++counters.resends_after_nak;
        Transmit_Data(waiting->packet);
        deadline_ms = line_free_ms + options.ack_timeout_ms;
    }

    void On_Wake() {
        const double now = Now();
        if (!powered) {
            if (now >= power_on_ms) Power_On();
            return;
        }
        if (waiting && now >= deadline_ms) {
            if (timeouts++ == 0) {
                ++counters.resends_after_timeout;
                Transmit_Data(waiting->packet);
                deadline_ms = line_free_ms + options.ack_timeout_ms;
            } else {
                ++counters.abandoned;
                Drop_Transfer();
            }
        }
        if (pvt_on && now >= next_pvt_ms) {
            Send_Pvt();
            next_pvt_ms = std::max(next_pvt_ms + kStreamPeriod_ms, now + 1);
        }
        if (mode != Output_Mode::garmin && now >= next_nmea_ms) {
            Send_Nmea();
            next_nmea_ms = std::max(next_nmea_ms + kStreamPeriod_ms, now + 1);
        }
        Pump();
    }

    void Power_On() {
        powered = true;
        power_on_ms = kNever;
        deframer.Reset();
        baud = options.baud;
        if (line) line->Line_Rate(mode == Output_Mode::garmin ? baud : 4800);
    }

    // ---------------------------------------------------------------- answers

    void Dispatch(int pid, const Bytes& d) {
        if (pid == kProductRequest) {
            Drop_Transfer();
            Product_Data();
        } else if (pid == ids.command) {
            if (d.empty()) {
                ++counters.unknown_packets;
                return;
            }
            Command(d.size() >= 2 ? d[0] | (d[1] << 8) : d[0]);
        } else if (pid == kAsyncOff) {
            // Asynchronous messages are not simulated; nothing to switch off.
        } else if (pid == kBaudRequest) {
            Baud_Request(d);
        } else if (pid == ids.xfer_cmplt) {
            if (upload_active) {
                Finish_Upload();
            } else if (Transfer_Active()) {
                ++counters.transfers_aborted;
                Drop_Transfer();
            }
        } else if (pid == ids.records) {
            Start_Upload();
        } else if (pid == ids.position) {
            double lat = 0, lon = 0;
            if (formats::Decode_Position(d, lat, lon)) {
                data.situation.lat_deg = lat * 180.0 / std::numbers::pi;
                data.situation.lon_deg = lon * 180.0 / std::numbers::pi;
            } else {
                ++counters.records_rejected;
            }
        } else if (pid == ids.date_time) {
            formats::Date_Time dt;
            if (formats::Decode_Date_Time(d, dt)) {
                data.situation.utc_start = formats::From_Date_Time(dt);
                start_ms = Now();
            } else {
                ++counters.records_rejected;
            }
        } else if (!Upload_Record(pid, d)) {
            ++counters.unknown_packets;
        }
        Pump();
    }

    void Product_Data() {
        wire::Writer w;
        w.U16(profile.product_id);
        w.I16(profile.software_version);
        for (const auto& s : profile.descriptions) w.Text(s, 100);
        Queue(kProductData, w.Take());
        if (!profile.extended.empty()) {
            wire::Writer x;
            for (const auto& s : profile.extended) x.Text(s, 100);
            Queue(kExtProductData, x.Take());
        }
        if (profile.capability_array) {
            wire::Writer c;
            for (const auto& [tag, n] : profile.Capabilities()) {
                c.U8(static_cast<std::uint8_t>(tag));
                c.U16(n);
            }
            Queue(kProtocolArray, c.Take());
        }
    }

    void Command(int cmd) {
        Flush_Upload();
        if (Transfer_Active()) {
            ++counters.transfers_aborted;
            Drop_Transfer();
        }
        const Profile& p = profile;
        if (cmd == ids.c_abort) return;  // also the host's ping
        if (cmd == ids.c_wpt) return Download(Kind::waypoints, cmd);
        if (cmd == ids.c_prx && p.proximity_protocol) return Download(Kind::proximity, cmd);
        if (cmd == ids.c_rte && p.route_protocol) return Download(Kind::routes, cmd);
        if (p.fitness && Fitness_Command(cmd)) return;
        if (cmd == ids.c_trk && p.track_protocol) return Download(Kind::tracks, cmd);
        if (cmd == ids.c_alm && p.almanac_type) return Download(Kind::almanac, cmd);
        if (cmd == ids.c_laps && p.laps) return Download(Kind::laps, cmd);
        if (cmd == ids.c_flight && p.flightbook) return Download(Kind::flights, cmd);
        if (cmd == ids.c_time && p.date_time)
            return Queue(ids.date_time, formats::Encode_Date_Time(formats::To_Date_Time(Utc_Now())));
        if (cmd == ids.c_posn && p.position) {
            const double k = std::numbers::pi / 180.0;
            return Queue(ids.position,
                         formats::Encode_Position(data.situation.lat_deg * k, data.situation.lon_deg * k));
        }
        if (cmd == ids.c_pvt_start && p.pvt) {
            if (!pvt_on) next_pvt_ms = Now() + kStreamPeriod_ms;
            pvt_on = true;
            return;
        }
        if (cmd == ids.c_pvt_stop && p.pvt) {
            pvt_on = false;
            return;
        }
        if (cmd == ids.c_off) return Power_Off();
        if (cmd == ids.c_unit_id && p.unit_id) {
            wire::Writer w;
            w.U32(data.situation.unit_id);
            return Queue(kUnitId, w.Take());
        }
        if (cmd == kScreen_Dump && p.screen.bpp) return Send_Screen();
        if (cmd == ids.c_voltages && p.voltages) {
            wire::Writer w;
            w.I16(static_cast<std::int16_t>(std::lround(std::clamp(data.situation.internal_v, 0.0f, 300.0f) * 100)));
            w.I16(static_cast<std::int16_t>(std::lround(std::clamp(data.situation.external_v, 0.0f, 300.0f) * 100)));
            return Queue(kVoltages, w.Take());
        }
        ++counters.unknown_packets;
    }

    // The frame goes out unasked once the command is acknowledged: on serial
    // without waiting for the host's ACKs, on USB as one bulk transfer.
    void Send_Screen() {
        const std::vector<Bytes> packets = screen::Display_Packets(profile.screen, faults.display_rows_reversed);
        const int drop = std::exchange(faults.drop_display_packet, 0);
        for (std::size_t i = 0; i < packets.size(); ++i) {
            if (static_cast<int>(i) + 1 == drop) continue;
            if (usb)
                Usb_Send(kDisplay, packets[i], static_cast<int>(i));
            else
                Stream(kDisplay, packets[i]);
        }
    }

    void Power_Off() {
        Drop_Transfer();
        pvt_on = false;
        powered = false;
        deframer.Reset();
        power_on_ms = options.power_on_after_ms > 0 ? Now() + options.power_on_after_ms : kNever;
    }

    void Baud_Request(const Bytes& d) {
        wire::Reader r(d);
        const std::uint32_t asked = r.U32();
        if (!r.Ok()) {
            ++counters.records_rejected;
            return;
        }
        // The unit answers with the rate it will use: the nearest it supports.
        static constexpr std::int32_t kRates[] = {4800, 9600, 19200, 28800, 38400, 57600, 115200};
        std::int32_t best = kRates[0];
        for (std::int32_t rate : kRates)
            if (std::llabs(std::int64_t{rate} - asked) < std::llabs(std::int64_t{best} - asked)) best = rate;
        Drop_Transfer();
        pending_baud = best;
        wire::Writer w;
        w.U32(static_cast<std::uint32_t>(best));
        Queue(kBaudReply, w.Take());
    }

    // ---------------------------------------------------------------- downloads

    // A download's records are made one at a time, as the line takes them
    // (Pump): a unit serving a million track points holds one packet, not a million.
    // The track log: each track's header (where the unit sends headers),
    // then its points. Indices, not iterators: an upload may grow the log.
    Record_Source Track_Source() const {
        return [this, t = std::size_t{0}, i = std::size_t{0}, header_sent = false]() mutable -> std::optional<Record> {
            const bool headers = profile.track_protocol != 300 && profile.track_header_type;
            for (; t < data.tracks.size(); ++t, i = 0, header_sent = false) {
                const Track& track = data.tracks[t];
                if (headers && !header_sent) {
                    header_sent = true;
                    return Record{ids.trk_hdr, formats::Encode_Track_Header(track, profile.track_header_type)};
                }
                if (i < track.points.size()) {
                    Track_Point p = track.points[i];
                    p.new_segment = p.new_segment || i == 0;
                    ++i;
                    return Record{ids.trk, formats::Encode_Track_Point(p, profile.track_point_type)};
                }
            }
            return std::nullopt;
        };
    }

    std::size_t Track_Records() const {
        const bool headers = profile.track_protocol != 300 && profile.track_header_type;
        std::size_t n = 0;
        for (const Track& t : data.tracks) n += (headers ? 1 : 0) + t.points.size();
        return n;
    }

    // The other kinds are small: made at once.
    std::vector<Record> Small_Records(Kind kind) const {
        std::vector<Record> out;
        auto add = [&](int id, Bytes b) { out.push_back({id, std::move(b)}); };
        const Profile& p = profile;
        switch (kind) {
            case Kind::waypoints:
                for (const auto& w : data.waypoints) add(ids.wpt, formats::Encode_Waypoint(w, p.waypoint_type));
                break;
            case Kind::proximity:
                for (const auto& w : data.proximity) add(ids.prx_wpt, formats::Encode_Waypoint(w, p.proximity_type));
                break;
            case Kind::routes:
                for (const Route& r : data.routes) {
                    add(ids.rte_hdr, formats::Encode_Route_Header(r, p.route_header_type));
                    for (std::size_t i = 0; i < r.points.size(); ++i) {
                        add(ids.rte_wpt, formats::Encode_Waypoint(r.points[i], p.route_waypoint_type));
                        if (p.route_link_type && i + 1 < r.points.size())
                            add(ids.rte_link, formats::Encode_Route_Link(i < r.links.size() ? r.links[i] : Route_Link{}));
                    }
                }
                break;
            case Kind::tracks: break;
            case Kind::almanac:
                for (const auto& a : data.almanac) add(ids.almanac, formats::Encode_Almanac(a, p.almanac_type));
                break;
            case Kind::laps:
                for (const auto& l : data.laps) add(ids.lap, formats::Encode_Lap(l));
                break;
            case Kind::flights:
                for (const auto& f : data.flights) add(ids.flight, formats::Encode_Flight(f));
                break;
        }
        return out;
    }

    void Download(Kind kind, int cmd) {
        Record_Source next;
        std::size_t count = 0;
        if (kind == Kind::tracks) {
            count = Track_Records();
            next = Track_Source();
        } else {
            auto records = Small_Records(kind);
            count = records.size();
            next = From_List(std::move(records));
        }
        Serve(count, std::move(next), cmd);
    }

    static Record_Source From_List(std::vector<Record> records) {
        return [records = std::move(records), i = std::size_t{0}]() mutable -> std::optional<Record> {
            if (i == records.size()) return std::nullopt;
            return std::move(records[i++]);
        };
    }

    void Serve(std::size_t count, Record_Source next, int cmd) {
        // The count field holds 16 bits: a bigger log announces the most it can.
        Queue(ids.records, U16_Data(static_cast<std::uint16_t>(std::min<std::size_t>(count, 0xFFFF))), 0);
        // The completion packet follows the last record.
        source = [this, next = std::move(next), cmd, record = 0, done = false]() mutable -> std::optional<Out_Record> {
            if (done) return std::nullopt;
            ++record;
            if (auto r = next()) return Out_Record{std::move(*r), record};
            done = true;
            return Out_Record{{ids.xfer_cmplt, U16_Data(static_cast<std::uint16_t>(cmd))}, record};
        };
        // USB puts a whole transfer on the bulk pipe at once.
        if (usb)
            while (source) Refill();
    }

    // The next record of the download in progress into the queue.
    void Refill() {
        if (auto o = source ? source() : std::nullopt)
            Queue(o->record.id, std::move(o->record.data), o->index);
        else
            source = nullptr;
    }

    // ---------------------------------------------------------------- fitness

    void Serve_Tracks(const std::vector<Fitness_Track>& tracks, int hdr, int trk, int cmd) {
        std::vector<Record> records;
        for (const Fitness_Track& t : tracks) {
            records.push_back({hdr, fitness::Encode_Track_Index(t.index)});
            for (const Fitness_Point& pt : t.points)
                records.push_back({trk, fitness::Encode_Point(pt, profile.track_point_type)});
        }
        const std::size_t count = records.size();
        Serve(count, From_List(std::move(records)), cmd);
    }

    template <typename T, typename Encode>
    void Serve_List(const std::vector<T>& list, int id, int cmd, Encode encode) {
        std::vector<Record> records;
        for (const T& item : list) records.push_back({id, encode(item)});
        Serve(list.size(), From_List(std::move(records)), cmd);
    }

    bool Fitness_Command(int cmd) {
        namespace f = fitness;
        if (cmd == ids.c_laps) {
            Serve_List(data.fitness_laps, ids.lap, cmd, [&](const auto& l) { return f::Encode_Lap(l, profile.lap_type); });
        } else if (cmd == ids.c_trk) {
            Serve_Tracks(data.fitness_tracks, ids.trk_hdr, ids.trk, cmd);
        } else if (cmd == f::kCmnd_Runs) {
            Serve_List(data.runs, f::kPid_Run, cmd, [&](const auto& r) { return f::Encode_Run(r, profile.run_type); });
        } else if (cmd == f::kCmnd_Courses) {
            Serve_List(data.courses, f::kPid_Course, cmd, f::Encode_Course);
        } else if (cmd == f::kCmnd_Course_Laps) {
            Serve_List(data.course_laps, f::kPid_Course_Lap, cmd, f::Encode_Course_Lap);
        } else if (cmd == f::kCmnd_Course_Points) {
            Serve_List(data.course_points, f::kPid_Course_Point, cmd, f::Encode_Course_Point);
        } else if (cmd == f::kCmnd_Course_Tracks) {
            Serve_Tracks(data.course_tracks, f::kPid_Course_Trk_Hdr, f::kPid_Course_Trk_Data, cmd);
        } else if (cmd == f::kCmnd_Course_Limits) {
            Queue(f::kPid_Course_Limits, f::Encode_Limits(data.course_limits));
        } else {
            return false;
        }
        return true;
    }

    // Uploaded courses join the stored ones; a course track grows point by point.
    bool Upload_Fitness(int id, const Bytes& d, bool& ok) {
        namespace f = fitness;
        if (id == f::kPid_Course) {
            Course c;
            if ((ok = f::Decode_Course(d, c))) uploaded.courses.push_back(c), data.courses.push_back(c);
        } else if (id == f::kPid_Course_Lap) {
            Course_Lap l;
            if ((ok = f::Decode_Course_Lap(d, l))) uploaded.course_laps.push_back(l), data.course_laps.push_back(l);
        } else if (id == f::kPid_Course_Point) {
            Course_Point p;
            if ((ok = f::Decode_Course_Point(d, p))) uploaded.course_points.push_back(p), data.course_points.push_back(p);
        } else if (id == f::kPid_Course_Trk_Hdr) {
            Fitness_Track t;
            if ((ok = f::Decode_Track_Index(d, t.index))) uploaded.course_tracks.push_back(t), data.course_tracks.push_back(t);
        } else if (id == f::kPid_Course_Trk_Data) {
            Fitness_Point p;
            ok = !uploaded.course_tracks.empty() && f::Decode_Point(d, profile.track_point_type, p);
            if (ok) uploaded.course_tracks.back().points.push_back(p), data.course_tracks.back().points.push_back(p);
        } else {
            return false;
        }
        return true;
    }

    // ---------------------------------------------------------------- uploads

    void Start_Upload() {
        Flush_Upload();
        if (Transfer_Active()) {
            ++counters.transfers_aborted;
            Drop_Transfer();
        }
        upload_active = true;
        almanac_index = 0;
    }

    void Finish_Upload() {
        Flush_Upload();
        upload_active = false;
        ++counters.uploads_completed;
    }

    // Routes and tracks are complete when the next one starts or the upload ends.
    void Flush_Upload() {
        if (route_open && !uploaded.routes.empty()) {
            const bool by_ident = profile.route_header_type == 202;
            Replace_Or_Append(data.routes, uploaded.routes.back(), [by_ident](const Route& a, const Route& b) {
                return by_ident ? a.ident == b.ident : a.number == b.number;
            });
        }
        if (track_open && !uploaded.tracks.empty()) {
            Replace_Or_Append(data.tracks, uploaded.tracks.back(), [](const Track& a, const Track& b) {
                return !a.ident.empty() && a.ident == b.ident;
            });
        }
        route_open = track_open = false;
    }

    // True when the id is one of the unit's record ids (stored or rejected).
    bool Upload_Record(int id, const Bytes& d) {
        const Profile& p = profile;
        bool ok = false;
        if (id == ids.wpt) {
            ok = Upload_Waypoint(d, p.waypoint_type, uploaded.waypoints, data.waypoints);
        } else if (id == ids.prx_wpt && p.proximity_protocol) {
            ok = Upload_Waypoint(d, p.proximity_type, uploaded.proximity, data.proximity);
        } else if (id == ids.rte_hdr && p.route_protocol) {
            Route r;
            ok = formats::Decode_Route_Header(d, p.route_header_type, r);
            if (ok) {
                Flush_Upload();
                uploaded.routes.push_back(std::move(r));
                route_open = true;
            }
        } else if (id == ids.rte_wpt && p.route_protocol) {
            Waypoint w;
            ok = formats::Decode_Waypoint(d, p.route_waypoint_type, w);
            if (ok) Open_Route().points.push_back(std::move(w));
        } else if (id == ids.rte_link && p.route_link_type) {
            Route_Link l;
            ok = formats::Decode_Route_Link(d, l);
            if (ok) Open_Route().links.push_back(std::move(l));
        } else if (id == ids.trk_hdr && p.track_protocol && p.track_header_type) {
            Track t;
            ok = formats::Decode_Track_Header(d, p.track_header_type, t);
            if (ok) {
                Flush_Upload();
                uploaded.tracks.push_back(std::move(t));
                track_open = true;
            }
        } else if (id == ids.trk && p.track_protocol) {
            Track_Point pt;
            ok = formats::Decode_Track_Point(d, p.track_point_type, pt);
            if (ok) {
                if (!track_open) {
                    uploaded.tracks.emplace_back();
                    track_open = true;
                }
                uploaded.tracks.back().points.push_back(pt);
            }
        } else if (id == ids.almanac && p.almanac_type) {
            Almanac a;
            ok = formats::Decode_Almanac(d, p.almanac_type, a);
            if (ok) {
                if (p.almanac_type < 550) a.svid = static_cast<std::uint8_t>(almanac_index);
                ++almanac_index;
                uploaded.almanac.push_back(a);
                Replace_Or_Append(data.almanac, a, [](const Almanac& x, const Almanac& y) { return x.svid == y.svid; });
            }
        } else if (id == ids.lap && p.laps) {
            Lap l;
            ok = formats::Decode_Lap(d, l);
            if (ok) {
                uploaded.laps.push_back(l);
                data.laps.push_back(l);
            }
        } else if (p.fitness && Upload_Fitness(id, d, ok)) {
        } else if (id == ids.flight && p.flightbook) {
            Flight f;
            ok = formats::Decode_Flight(d, f);
            if (ok) {
                uploaded.flights.push_back(f);
                data.flights.push_back(std::move(f));
            }
        } else {
            return false;
        }
        ++(ok ? counters.records_uploaded : counters.records_rejected);
        return true;
    }

    // A waypoint replaces the stored one of the same ident.
    static bool Upload_Waypoint(const Bytes& d, std::uint16_t type, std::vector<Waypoint>& received,
                                std::vector<Waypoint>& stored) {
        Waypoint w;
        if (!formats::Decode_Waypoint(d, type, w)) return false;
        received.push_back(w);
        Replace_Or_Append(stored, std::move(w), [](const Waypoint& a, const Waypoint& b) { return a.ident == b.ident; });
        return true;
    }

    Route& Open_Route() {
        if (!route_open) {
            Flush_Upload();
            uploaded.routes.emplace_back();
            route_open = true;
        }
        return uploaded.routes.back();
    }

    // ---------------------------------------------------------------- streams

    void Send_Pvt() {
        const Situation& s = data.situation;
        const std::uint32_t utc = Utc_Now();
        formats::Pvt v;
        v.alt = s.alt_m + 20.0f;
        v.msl_hght = -20.0f;
        v.epe = 6.5f;
        v.eph = 4.2f;
        v.epv = 5.1f;
        v.fix = 3;
        v.wn_days = utc / 86400 / 7 * 7;  // the epoch is a Sunday
        v.tow = static_cast<double>(utc - v.wn_days * 86400) + v.leap_scnds;
        const double k = std::numbers::pi / 180.0;
        v.lat_rad = s.lat_deg * k;
        v.lon_rad = s.lon_deg * k;
        Stream(static_cast<std::uint8_t>(ids.pvt), formats::Encode_Pvt(v));
        ++counters.pvt_records;
        if (profile.satellites) Stream(kSatellites, Satellites());
    }

    static Bytes Satellites() {
        struct Sat {
            std::uint8_t svid;
            std::int16_t snr;
            std::uint8_t elev;
            std::int16_t azimuth;
            std::uint8_t status;
        };
        static constexpr Sat kSky[12] = {{1, 4200, 45, 120, 5},   {4, 3800, 30, 45, 5},    {6, 4500, 60, 300, 21},
                                         {12, 3300, 15, 210, 5},  {14, 3600, 25, 90, 21},  {19, 4700, 70, 180, 21},
                                         {29, 3000, 10, 330, 4},  {31, -100, 5, 20, 0},    {255, 0, 0, 0, 0},
                                         {255, 0, 0, 0, 0},       {255, 0, 0, 0, 0},       {255, 0, 0, 0, 0}};
        wire::Writer w;
        for (const Sat& s : kSky) {
            w.U8(s.svid);
            w.I16(s.snr);
            w.U8(s.elev);
            w.I16(s.azimuth);
            w.U8(s.status);
        }
        return w.Take();
    }

    void Send_Nmea() {
        nmea::Fix f;
        f.receiver_seconds = Utc_Now();
        f.lat_deg = data.situation.lat_deg;
        f.lon_deg = data.situation.lon_deg;
        f.alt_m = data.situation.alt_m;
        const std::string text = mode == Output_Mode::nmea ? nmea::Sentences(f) : nmea::Text_Line(f);
        Transmit_Wire(Bytes(text.begin(), text.end()));
    }

    void Set_Mode(Output_Mode m) {
        mode = m;
        Drop_Transfer();
        pvt_on = false;
        deframer.Reset();
        next_nmea_ms = m == Output_Mode::garmin ? kNever : Now() + kStreamPeriod_ms;
        if (line) line->Line_Rate(m == Output_Mode::garmin ? baud : 4800);
    }

    // ---------------------------------------------------------------- USB

    // Short answers and streamed records go on the interrupt pipe. A record
    // transfer is too long for it: the unit announces it there once, with
    // Data Available, and puts the transfer on the bulk pipe, where the host
    // reads until the pipe is empty.
    void Usb_Send(std::uint16_t id, const Bytes& d, int record) {
        if (record >= 0 && Usb_Cut_Here(record)) return;
        if (trace) trace('U', static_cast<std::uint8_t>(id), d);
        Bytes packet = usb::Make_Packet(usb::kApplication, id, d);
        if (record < 0) return Usb_Put(usb_interrupt, std::move(packet));
        if (record == 0) Usb_Put(usb_interrupt, usb::Make_Packet(usb::kProtocol, usb::kDataAvailable, {}));
        Usb_Put(usb_bulk, std::move(packet));
    }

    void Usb_Put(usb::Pipe& pipe, Bytes packet) {
        pipe.Put(std::move(packet));
        if (faults.usb_zero_length) pipe.Put_Zero_Length();
    }

    // A record transfer goes onto the bulk pipe at once, so a fault after
    // record K keeps records 0..K and drops the rest of that transfer; a
    // hang-up or a power-off follows once the host has read what was kept.
    bool Usb_Cut_Here(int record) {
        if (record == 0) usb_cutting = false;
        if (usb_cutting) return true;
        // As on the serial line, the hang-up takes record K with it.
        for (auto [knob, cut, first_lost] :
             {std::tuple{&faults.stall_after_record, Usb_Cut::stall, faults.stall_after_record + 1},
              {&faults.hang_up_after_record, Usb_Cut::hang_up, faults.hang_up_after_record},
              {&faults.off_after_record, Usb_Cut::off, faults.off_after_record + 1}}) {
            if (*knob < 0 || record < first_lost) continue;
            *knob = -1;
            usb_cutting = true;
            usb_after_read = cut;
            return true;
        }
        return false;
    }

    std::optional<Bytes> Usb_Read(usb::Pipe& pipe, std::size_t max) {
        std::optional<Bytes> transfer = pipe.Take(max);
        if (transfer || usb_bulk.Has_Unread()) return transfer;
        const Usb_Cut cut = std::exchange(usb_after_read, Usb_Cut::none);
        if (cut == Usb_Cut::hang_up && line) line->Hang_Up();
        if (cut == Usb_Cut::off) Power_Off();
        return transfer;
    }

    void Usb_Packet(const Bytes& packet) {
        usb::Packet p;
        if (!usb::Parse(packet, p)) {
            ++counters.bad_frames;
            return;
        }
        ++counters.frames_received;
        usb = true;
        if (p.type == usb::kProtocol) {
            if (p.id == usb::kStartSession) {
                wire::Writer w;
                w.U32(data.situation.unit_id);
                usb_interrupt.Put(usb::Make_Packet(usb::kProtocol, usb::kSessionStarted, w.Take()));
            } else if (p.id == usb::kStartSession2) {
                usb_interrupt.Put(usb::Make_Packet(usb::kProtocol, usb::kSessionStarted2, {}));
            } else {
                ++counters.unknown_packets;
            }
            return;
        }
        if (p.id >= screen::kFirst_Image_Id && p.id <= screen::kLast_Image_Id) {
            // The image transfer, which answers on the interrupt pipe.
            if (auto answer = images.Answer(p.id, p.data))
                Usb_Put(usb_interrupt, usb::Make_Packet(usb::kApplication, answer->first, answer->second));
            else
                ++counters.unknown_packets;
            return;
        }
        if (trace) trace('H', static_cast<std::uint8_t>(p.id), p.data);
        Dispatch(p.id, p.data);
    }
};

// ---------------------------------------------------------------- Unit

Unit::Unit(Profile profile, Data_Set data, Options options)
    : impl_(std::make_unique<Impl>(std::move(profile), std::move(data), options)) {}

Unit::~Unit() = default;

void Unit::Connect(Line* line) {
    impl_->line = line;
    if (!line) return;
    impl_->start_ms = line->Now_ms();
    impl_->line_free_ms = line->Now_ms();
    if (impl_->mode != Output_Mode::garmin) impl_->next_nmea_ms = line->Now_ms() + kStreamPeriod_ms;
    line->Line_Rate(impl_->mode == Output_Mode::garmin ? impl_->baud : 4800);
    impl_->Reschedule();
}

void Unit::Host_Wrote(const Bytes& bytes) {
    Impl& m = *impl_;
    if (!m.powered || m.mode != Output_Mode::garmin) return;
    m.usb = false;
    m.deframer.Feed(bytes);
    m.counters.garbage_bytes = m.deframer.Garbage_Bytes();
    m.Reschedule();
}

void Unit::Wake() {
    impl_->On_Wake();
    impl_->Reschedule();
}

const Profile& Unit::Unit_Profile() const { return impl_->profile; }
Data_Set& Unit::Data() { return impl_->data; }
const Data_Set& Unit::Data() const { return impl_->data; }
const Data_Set& Unit::Uploaded() const { return impl_->uploaded; }
Faults& Unit::Fault_Knobs() { return impl_->faults; }
const Counters& Unit::Stats() const { return impl_->counters; }
std::int32_t Unit::Baud() const { return impl_->baud; }
bool Unit::Pvt_On() const { return impl_->pvt_on; }
bool Unit::Powered() const { return impl_->powered; }

void Unit::Power_On() {
    impl_->Power_On();
    impl_->Reschedule();
}

void Unit::Set_Mode(Output_Mode mode) {
    impl_->Set_Mode(mode);
    impl_->Reschedule();
}

Output_Mode Unit::Mode() const { return impl_->mode; }

void Unit::Usb_Host_Wrote(const Bytes& usb_packet) {
    if (!impl_->powered) return;
    impl_->Usb_Packet(usb_packet);
}

Bytes Unit::Usb_Interrupt_Read(std::size_t max) { return Usb_Interrupt_Transfer(max).value_or(Bytes()); }

Bytes Unit::Usb_Bulk_Read(std::size_t max) { return Usb_Bulk_Transfer(max).value_or(Bytes()); }

std::optional<Bytes> Unit::Usb_Interrupt_Transfer(std::size_t max) {
    return impl_->Usb_Read(impl_->usb_interrupt, max);
}

std::optional<Bytes> Unit::Usb_Bulk_Transfer(std::size_t max) { return impl_->Usb_Read(impl_->usb_bulk, max); }

Bytes Dle_Etx_Noise() { return {0x10, 0x03, 0x55, 0x10, 0x41, 0x07, 0x10, 0x10, 0x03, 0x00}; }

Data_Set Unit::Visible_Data() const {
    const Profile& p = impl_->profile;
    const Data_Set& d = impl_->data;
    Data_Set v;
    v.situation = d.situation;
    auto wpt = [](const Waypoint& w, std::uint16_t type) {
        Waypoint out;
        formats::Decode_Waypoint(formats::Encode_Waypoint(w, type), type, out);
        return out;
    };
    for (const auto& w : d.waypoints) v.waypoints.push_back(wpt(w, p.waypoint_type));
    if (p.proximity_protocol)
        for (const auto& w : d.proximity) v.proximity.push_back(wpt(w, p.proximity_type));
    if (p.route_protocol) {
        for (const Route& r : d.routes) {
            Route out;
            formats::Decode_Route_Header(formats::Encode_Route_Header(r, p.route_header_type), p.route_header_type, out);
            for (const auto& w : r.points) out.points.push_back(wpt(w, p.route_waypoint_type));
            if (p.route_link_type)
                for (std::size_t i = 0; i + 1 < r.points.size(); ++i) {
                    Route_Link l;
                    formats::Decode_Route_Link(formats::Encode_Route_Link(i < r.links.size() ? r.links[i] : Route_Link{}),
                                               l);
                    out.links.push_back(l);
                }
            v.routes.push_back(std::move(out));
        }
    }
    if (p.track_protocol) {
        for (const Track& t : d.tracks) {
            Track out;
            if (p.track_protocol != 300 && p.track_header_type)
                formats::Decode_Track_Header(formats::Encode_Track_Header(t, p.track_header_type), p.track_header_type,
                                             out);
            for (std::size_t i = 0; i < t.points.size(); ++i) {
                Track_Point pt = t.points[i];
                pt.new_segment = pt.new_segment || i == 0;
                Track_Point back;
                formats::Decode_Track_Point(formats::Encode_Track_Point(pt, p.track_point_type), p.track_point_type,
                                            back);
                out.points.push_back(back);
            }
            v.tracks.push_back(std::move(out));
        }
    }
    if (p.almanac_type)
        for (const auto& a : d.almanac) {
            Almanac out;
            formats::Decode_Almanac(formats::Encode_Almanac(a, p.almanac_type), p.almanac_type, out);
            v.almanac.push_back(out);
        }
    if (p.laps) v.laps = d.laps;
    if (p.fitness) {
        v.runs = d.runs, v.fitness_laps = d.fitness_laps, v.fitness_tracks = d.fitness_tracks;
        v.courses = d.courses, v.course_laps = d.course_laps, v.course_points = d.course_points;
        v.course_tracks = d.course_tracks, v.course_limits = d.course_limits;
    }
    if (p.flightbook)
        for (const auto& f : d.flights) {
            Flight out;
            formats::Decode_Flight(formats::Encode_Flight(f), out);
            v.flights.push_back(out);
        }
    return v;
}

void Unit::Trace_Handler(std::function<void(char, std::uint8_t, const Bytes&)> handler) {
    impl_->trace = std::move(handler);
}

bool Unit::Dump_Uploads(const std::string& path, std::string& error) const {
    return Save_Data(path, impl_->uploaded, error);
}

// ---------------------------------------------------------------- Virtual_Unit

class Virtual_Unit::Adapter : public Line {
public:
    explicit Adapter(trekcom::VirtualLine& line) : line_(line) {}
    double Now_ms() const override { return line_.Now_ms(); }
    void Send(const Bytes& bytes, double at_ms) override { line_.Send(bytes, at_ms); }
    void Wake_At(double at_ms) override { line_.Wake_At(at_ms); }
    void Cancel_Wake() override { line_.Cancel_Wake(); }
    void Line_Rate(std::int32_t baud) override { line_.Device_Baud(baud); }
    void Hang_Up() override { line_.Break(); }

private:
    trekcom::VirtualLine& line_;
};

Virtual_Unit::Virtual_Unit(Profile profile, Data_Set data, Options options)
    : unit_(std::move(profile), std::move(data), options) {}

Virtual_Unit::~Virtual_Unit() { unit_.Connect(nullptr); }

void Virtual_Unit::Attached(trekcom::VirtualLine& line) {
    adapter_ = std::make_unique<Adapter>(line);
    unit_.Connect(adapter_.get());
}

void Virtual_Unit::Host_Wrote(const Bytes& bytes) { unit_.Host_Wrote(bytes); }

void Virtual_Unit::Wake() { unit_.Wake(); }

}  // namespace trekcom::sim
