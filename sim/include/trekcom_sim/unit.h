// A simulated Garmin receiver: the receiver's side of the serial link (DLE
// framing, ACK/NAK, stop and wait), the product identification of several
// generations of units, every download and upload, the real-time data, and
// faults on request. It is built from the public device protocol on its own
// record layouts, so a host that gets a layout wrong is caught, not echoed.
//
// The core (Unit) knows no transport: bytes from the host go in through
// Host_Wrote, its own bytes go out through a Line with the time they reach the
// host, and it asks the Line to wake it for its time-outs and streams. Two
// transports are provided: Virtual_Unit (the virtual platform, no real time
// passes) and the trekcom-sim tool (a pseudo-terminal and a real clock).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "trekcom/types.h"
#include "trekcom/virtual_platform.h"
#include "trekcom_sim/data.h"

namespace trekcom::sim {

// The unit's screen: what its user sees, and how the unit lays the frame out
// when a host asks for it (command 32, answered by a stream of Pid 69 packets).
struct Screen {
    int bpp = 0;  // 1, 2, 4 or 8 bits per pixel; 0: the unit has no screen to send
    int width = 0, height = 0;  // as the user sees it
    // Palette indices, width × height, row after row from the top as the user sees it.
    std::vector<std::uint8_t> pixels;
    // 0xRRGGBB per index, 2^bpp of them; empty: a grey unit, whose header
    // carries its brightness levels (0..15) instead.
    std::vector<std::uint32_t> palette;
    std::vector<std::uint8_t> grey_levels{15, 10, 5, 0};
    // The frame the unit sends is the screen turned clockwise by this many
    // quarters; a host turns it back.
    int frame_quarters = 0;
    bool frame_mirrored = false;  // then its rows run right to left as well
    // Over USB the frame is also offered through the image transfer (ids 875
    // and up), as image 0, its rows last first.
    bool image_transfer = false;

    // An asymmetric test picture: a turn or a mirror shows in any corner.
    static Screen Pattern(int bpp, int width, int height, int frame_quarters, bool colour);
};

// The 256 colours of a unit's custom icons (16 x 16, 8 bpp); the last, magenta, is not drawn.
std::vector<std::uint32_t> Icon_Palette();

// What a unit is: identity and the protocols and record layouts it speaks.
// Layouts are D numbers (108 for D108); 0 means the unit lacks the transfer.
struct Profile {
    std::string name;
    std::uint16_t product_id = 0;
    std::int16_t software_version = 0;  // version × 100
    std::vector<std::string> descriptions;
    std::vector<std::string> extended;  // extended product data; empty: none is sent
    bool capability_array = true;       // false: known to hosts by product id only
    int link = 1;                       // L001 or L002 (which also means A010 or A011)
    std::uint16_t waypoint_type = 100;
    std::uint16_t route_protocol = 200;  // A200 or A201
    std::uint16_t route_header_type = 200;
    std::uint16_t route_waypoint_type = 100;
    std::uint16_t route_link_type = 0;  // D210 with A201
    std::uint16_t track_protocol = 0;   // A300, A301 or A302
    std::uint16_t track_header_type = 0;
    std::uint16_t track_point_type = 0;
    std::uint16_t proximity_protocol = 0;  // A400
    std::uint16_t proximity_type = 0;      // D400, D403, D450 or a waypoint layout
    std::uint16_t almanac_type = 500;
    bool date_time = true;   // A600 / D600
    bool position = true;    // A700 / D700
    bool pvt = false;        // A800 / D800
    bool laps = false;       // A906 / D906
    std::uint16_t lap_type = 906;  // D1001, D1011 or D1015 on a fitness unit
    // A fitness unit: runs (A1000 with run_type) and courses (A1006..A1009,
    // A1012), with laps of lap_type and A302 tracks of track_point_type.
    bool fitness = false;
    std::uint16_t run_type = 1009;
    bool flightbook = false; // A650 / D650
    bool unit_id = true;     // answers command 14
    bool voltages = false;   // answers command 17
    bool satellites = false; // sends the satellite table with each PVT record
    Screen screen;           // answers command 32 when it has one
    int icon_slots = 0;      // custom symbols 0..N-1, 16 x 16 at 8 bpp, through the image transfer on USB

    // The capability array the unit sends (tag, number), built from the fields above.
    std::vector<std::pair<char, std::uint16_t>> Capabilities() const;

    // "current", "d110", "aviator", "legacy25", "legacy29-399", "legacy29-400",
    // "l002", "l002-d551", "grey-legend"; Named also knows "fitness", a running
    // unit that Names leaves out: its ids do not fit a serial frame, it speaks
    // USB only. Throws std::invalid_argument for another name.
    static Profile Named(const std::string& name);
    static std::vector<std::string> Names();
};

enum class Output_Mode {
    garmin,  // the binary protocol
    nmea,    // NMEA 0183 sentences at 4800 baud; binary input is ignored
    text,    // the "@" text output at 4800 baud; binary input is ignored
};

// Faults, each off by default. Packet counts are 1-based; records of a
// transfer are numbered 1..n after the records packet, which is record 0.
struct Faults {
    int nak_first = 0;            // NAK the first N good packets from the host
    int corrupt_every = 0;        // every Kth data packet sent has a wrong checksum
    int drop_byte_every = 0;      // every Kth data packet sent loses one byte
    Bytes garbage;                // written before every packet the unit sends
    // The next transfer, once: go silent after record K; close the line (on
    // USB: unplugged) as record K goes out, so it is lost; switch off after
    // record K. On USB the host reads the records kept before it happens.
    int stall_after_record = -1;
    int hang_up_after_record = -1;
    int off_after_record = -1;
    bool usb_zero_length = false;  // USB: every packet on either pipe is followed by a zero-length packet
    // The next screen capture, once: the Kth Pid 69 packet (1-based) is not sent.
    int drop_display_packet = 0;
    // Screen pixel packets go out last row first (their offsets place them).
    bool display_rows_reversed = false;
};

// Line noise that holds DLE ETX: a bare one, and a frame start whose stuffed
// DLE runs into an ETX. For Faults::garbage.
Bytes Dle_Etx_Noise();

struct Options {
    std::int32_t baud = 9600;
    bool pace = false;                // bytes take 10 bits of line time each
    double ack_timeout_ms = 1000;     // re-send once after this, give up after twice
    int max_resends_after_nak = 10;   // then the transfer is dropped
    Output_Mode mode = Output_Mode::garmin;
    double power_on_after_ms = 0;     // after a power off; 0: stays off until Power_On
};

// Monotonic counters, for assertions.
struct Counters {
    long frames_received = 0;    // good frames from the host
    long bad_frames = 0;         // checksum, size or framing faults
    long garbage_bytes = 0;      // bytes outside any frame
    long acks_sent = 0;
    long naks_sent = 0;
    long packets_sent = 0;       // data packets, first sends only
    long resends_after_nak = 0;
    long resends_after_timeout = 0;
    long abandoned = 0;          // packets given up after the second time-out or too many NAKs
    long transfers_aborted = 0;  // by the host's abort or transfer-complete
    long unknown_packets = 0;
    long stray_acks = 0;         // ACK/NAK when nothing waited, or for another id
    long records_uploaded = 0;
    long records_rejected = 0;   // upload records that do not fit the unit's layouts
    long uploads_completed = 0;
    long pvt_records = 0;
};

// The transport a Unit talks through.
class Line {
public:
    virtual ~Line() = default;
    virtual double Now_ms() const = 0;
    // Bytes that reach the host at at_ms (never earlier than bytes sent before).
    virtual void Send(const Bytes& bytes, double at_ms) = 0;
    // Call Unit::Wake at at_ms; a later request replaces an earlier one.
    virtual void Wake_At(double at_ms) = 0;
    virtual void Cancel_Wake() = 0;
    // The unit's line rate changed (after a baud change, or NMEA mode).
    virtual void Line_Rate(std::int32_t baud) { (void)baud; }
    // Drop the connection, as a pulled cable does.
    virtual void Hang_Up() {}
};

class Unit {
public:
    explicit Unit(Profile profile = Profile::Named("current"), Data_Set data = Builtin_Data(),
                  Options options = {});
    ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    // The transport; it must outlive the unit or be replaced by nullptr.
    void Connect(Line* line);
    // Bytes the host wrote.
    void Host_Wrote(const Bytes& bytes);
    // The time asked for with Line::Wake_At has come (early calls are harmless).
    void Wake();

    const Profile& Unit_Profile() const;
    // What the unit serves; changes take effect at the next request.
    Data_Set& Data();
    const Data_Set& Data() const;
    // Every record received in uploads, in arrival order (also merged into Data()).
    const Data_Set& Uploaded() const;
    // The data as this unit's layouts carry it (text cut to fields, values
    // rounded as they travel): what a correct host reads back.
    Data_Set Visible_Data() const;

    Faults& Fault_Knobs();
    const Counters& Stats() const;
    std::int32_t Baud() const;
    bool Pvt_On() const;
    bool Powered() const;
    void Power_On();
    // Switches between the binary protocol and NMEA or text output.
    void Set_Mode(Output_Mode mode);
    Output_Mode Mode() const;

    // The USB side. Usb_Host_Wrote takes one USB packet (12-byte header and
    // data) as the host wrote it; anything else is counted as a bad frame and
    // ignored. The unit answers on two IN pipes:
    //   interrupt: the protocol-layer answers (Session Started), Data
    //     Available, and every application packet that is not part of a
    //     record transfer (product data, unit id, date and time, position,
    //     PVT and satellite records);
    //   bulk: the packets of a record transfer (records count, records,
    //     transfer complete), each transfer announced by one Data Available
    //     on the interrupt pipe.
    // A read returns up to max bytes of the next waiting packet, never bytes
    // of two packets, and is empty when nothing waits; a host that reads the
    // interrupt pipe in 64-byte blocks thus gets each packet in whole blocks.
    // A new request or the host's abort drops what waits unread on the bulk pipe.
    void Usb_Host_Wrote(const Bytes& usb_packet);
    Bytes Usb_Interrupt_Read(std::size_t max = 64);
    Bytes Usb_Bulk_Read(std::size_t max);
    // The same reads as USB transfers: nothing when nothing waits, empty for
    // a zero-length packet (Faults::usb_zero_length).
    std::optional<Bytes> Usb_Interrupt_Transfer(std::size_t max = 64);
    std::optional<Bytes> Usb_Bulk_Transfer(std::size_t max);

    // Sees every packet: 'H' from the host (good frames), 'U' from the unit.
    void Trace_Handler(std::function<void(char from, std::uint8_t id, const Bytes& data)> handler);

    // Writes Uploaded() as JSON (the data file layout).
    bool Dump_Uploads(const std::string& path, std::string& error) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// A unit on the virtual platform:
//     auto unit = std::make_shared<Virtual_Unit>(Profile::Named("legacy25"));
//     platform.Attach("gps", unit);   // a port with Port_Name "gps" reaches it
//     ... unit->Sim().Uploaded().waypoints ...
// The unit's rate is the line's Device_Baud, so a host at another rate hears nothing.
class Virtual_Unit : public trekcom::VirtualDevice {
public:
    explicit Virtual_Unit(Profile profile = Profile::Named("current"), Data_Set data = Builtin_Data(),
                          Options options = {});
    ~Virtual_Unit() override;

    Unit& Sim() { return unit_; }
    const Unit& Sim() const { return unit_; }

    void Attached(trekcom::VirtualLine& line) override;
    void Host_Wrote(const Bytes& bytes) override;
    void Wake() override;

private:
    class Adapter;
    std::unique_ptr<Adapter> adapter_;
    Unit unit_;
};

}  // namespace trekcom::sim
