// The Garmin serial frame: DLE, id, size, data, checksum, DLE, ETX, with every
// 16 in size, data and checksum doubled on the wire. These few functions are
// the one place that knows the layout; the control and the simulated receiver
// both use them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "link/packet.h"
#include "trekcom/types.h"

namespace trekcom::link {

inline constexpr std::uint8_t DLE = 16;
inline constexpr std::uint8_t ETX = 3;
// The serial form of a packet whose id or size does not fit a byte: DLE,
// 123, a size byte, the size in 4 bytes, the id in 2, the data.
inline constexpr std::uint8_t kExpanded_Id = 123;
inline constexpr std::size_t kExpanded_Head = 6;
// An unstuffed packet has data size + 6 elements.
inline constexpr std::size_t kFrameOverhead = 6;

// Two's complement of the sum of id, size and data: elements 1 .. n-3 of an
// unstuffed packet. Packets shorter than a frame have a checksum of 0.
std::uint8_t Calc_Checksum(const Bytes& packet);

// Completes an unstuffed packet in place: the DLE, the checksum, the DLE ETX.
// The caller has filled id, size and data; packets under 6 elements are left alone.
void Seal_Packet(Bytes& packet);

// A complete unstuffed packet with this id and data (data beyond 255 bytes is cut).
Bytes Make_Packet(std::uint8_t id, const Bytes& data);

// The wire form: size, data and checksum with each 16 doubled; id and the
// framing DLE ETX as they are.
Bytes Stuff_Packet(const Bytes& packet);
// The same into a buffer the caller keeps, as the port takes it.
void Stuff_Into(const Bytes& packet, std::string& wire);

// Reads the frame at the front of a byte stream, a byte at a time. After the
// opening DLE and the id (taken as it is, whatever its value), a DLE is
// followed either by a second DLE (one data byte 16) or by ETX (the end):
// pairs are read in order, so a run of 16s before a 3 ends the frame exactly
// when the run is odd. A DLE followed by anything else breaks the frame; that
// DLE may well open the next one.
//
// The stream may arrive in pieces: Next() is called again with the same front
// and more bytes behind it, and goes on where it stopped. Anything that moves
// the front of the stream must Reset() the reader.
class Frame_Reader {
public:
    enum class Status {
        incomplete,  // more bytes are needed
        frame,       // Packet() is the frame, unstuffed; Length() wire bytes hold it
        broken,      // the first Length() bytes are no frame; a new one may start there
    };

    // `stream` starts with the frame's opening DLE.
    Status Next(std::string_view stream);
    std::size_t Length() const { return read_; }
    // DLE, id, the unstuffed bytes between the id and the end, DLE, ETX.
    Bytes& Packet() { return packet_; }
    void Reset();
    // Hands back the storage of a frame taken with Packet(), so that the next
    // frame is read into it instead of a new heap block. An idle reader with
    // no storage of its own takes it; one that a nested parse has started on
    // keeps what it has.
    void Recycle(Bytes&& storage);

private:
    bool Take_Whole(std::string_view stream);
    void Append_Run(const char* bytes, std::size_t n);

    std::size_t read_ = 0;  // wire bytes consumed so far
    bool dle_ = false;      // the last byte read was a DLE inside the frame
    Bytes packet_;
};

// Whether an unstuffed frame's length agrees with its size byte: data size +
// 6 elements. The expanded form (id 123) carries its size elsewhere, so only
// its length can be judged.
bool Length_Agrees(const Bytes& packet);

// Unstuffs one whole wire frame (DLE through ETX) into a packet. Returns
// nothing when it is not exactly one frame or its length disagrees with its
// size byte.
std::optional<Bytes> Unstuff_Frame(std::string_view frame);

// The data bytes of an unstuffed packet (elements 3 .. n-4), clipped to what exists.
Bytes Packet_Data(const Bytes& packet);
// The same, without a copy: a view into the packet.
Data_View Data_Of(const Bytes& packet);

// The serial form of an application packet, the form the host's events carry
// whatever the transport: an unstuffed frame whose size byte is the announced
// size, or the expanded form when the id or the size does not fit a byte.
// USB carries no checksum: its frames leave that byte 0.
enum class Checksum { computed, zero };
Bytes Frame_Of(const Packet& packet, Checksum checksum = Checksum::computed);
// The same into a buffer the caller keeps, so a stream of packets does not
// allocate one frame each.
void Frame_Into(const Packet& packet, Bytes& frame, Checksum checksum = Checksum::computed);

// The application packet of a serial-form frame (normal or expanded); nothing
// for fewer elements than a frame has. Of an expanded frame only the data its
// size field claims and the frame holds.
std::optional<Packet> Packet_Of(const Bytes& frame);

}  // namespace trekcom::link
