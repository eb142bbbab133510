// Screen capture: the receiver's display frame as a stream of Pid 69 packets
// (a header, one packet per palette colour on colour units, then the pixel
// bytes), assembled by the byte offsets the packets carry, never by their
// order of arrival, and drawn as a Picture.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "link/link.h"
#include "link/packet.h"
#include "protocol/images.h"
#include "trekcom/picture.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

namespace trekcom::protocol {

class Engine;
class Engine_Host;

// The frame as the unit lays it out: `height` rows of `stride` bytes; of each
// row the first width × bpp bits are pixels, the rest padding. Pixels smaller
// than a byte are packed from its least significant bits.
struct Screen_Layout {
    std::uint32_t stride = 0;
    std::uint32_t bpp = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::optional<std::vector<std::uint32_t>> greys;  // 2 bpp: the header's levels as 0xRRGGBB
};

// Collects one capture's packets. Anything that does not fit the header
// (an unknown section, bytes beyond the frame) is dropped; a second header
// starts the frame again.
class Screen_Frame {
public:
    // One Pid 69 packet's data.
    void Feed(link::Data_View data);
    // A frame read whole or in part by the image transfer: its rows come
    // last first. False for a layout that cannot be drawn.
    bool Load(Screen_Layout layout, link::Data_View rows_last_first, const std::vector<std::uint32_t>& palette);
    bool Started() const { return started_; }
    // The depth of the last header that was not believed (0: none was refused).
    std::uint32_t Refused_Bpp() const { return refused_bpp_; }
    // Every frame byte and, on a colour unit, every palette entry has come.
    bool Complete() const;
    // 0..100, by the frame bytes that have come.
    int Percent() const;
    std::size_t Bytes_Received() const { return received_; }
    std::size_t Bytes_Expected() const { return raw_.size(); }
    const Screen_Layout& Layout() const { return layout_; }
    const Bytes& Raw() const { return raw_; }
    // The unit's palette (0xRRGGBB), empty when it sent none.
    std::vector<std::uint32_t> Palette() const;
    // The palette index of a pixel of the frame as it lies.
    std::uint32_t Index_At(std::uint32_t x, std::uint32_t y) const;

private:
    void Header(link::Data_View data);
    bool Start(Screen_Layout layout);
    void Pixels(std::uint32_t offset, link::Data_View bytes);
    void Colour(std::uint32_t offset, link::Data_View bgr);

    bool started_ = false;
    std::uint32_t refused_bpp_ = 0;
    Screen_Layout layout_;
    Bytes raw_;
    std::vector<bool> have_;
    std::size_t received_ = 0;
    std::vector<std::uint32_t> palette_;
    std::vector<bool> have_colour_;
    std::size_t colours_ = 0;
};

// The colours of a frame's palette indices: the unit's palette, else the
// host's palette file, else the unit's grey levels, else greys spread from
// white (0) to black.
std::vector<std::uint32_t> Frame_Colours(const Screen_Frame& frame, const std::vector<std::uint32_t>& file_colours);
// The frame drawn with those colours and turned as asked (never Automatic).
Picture Draw_Frame(const Screen_Frame& frame, const std::vector<std::uint32_t>& colours, Screen_Turn turn);
// The model a product description names: "eTrex Legend Software Version
// 3.70" gives "eTrex Legend".
std::string Model_Of(const std::string& description);
// The turn a model is known to need, from its product description.
Screen_Turn Model_Turn(const std::string& description);
// The colours of a GIMP palette file (.gpl); nothing when it cannot be read.
std::optional<std::vector<std::uint32_t>> Read_Gpl(const std::string& path);

// The capture itself: command 32, then the stream until the frame is whole.
class Screen_Capture {
public:
    struct Host_Side {
        std::function<void(std::int16_t& pct, Picture& image)> progress;  // ReceiveImage
        std::function<std::string()> palette_file;
        std::function<Screen_Turn()> turn;
        std::function<cDisplay&()> display;  // the record a whole frame fills
    };
    Screen_Capture(Engine& engine, link::Link& link, const link::Packet_Ids& ids, Engine_Host& host, Platform& platform,
                   Host_Side side);
    ~Screen_Capture();
    Screen_Capture(const Screen_Capture&) = delete;
    Screen_Capture& operator=(const Screen_Capture&) = delete;

    // Asks for the screen and waits until the frame is whole or the unit
    // falls silent (error 7).
    void Capture();
    // A Pid 69 packet (whole serial form), from the dispatcher.
    void On_Packet(const Bytes& packet);
    // An expanded-form packet: the image transfer's answers.
    void On_Expanded(const Bytes& packet) { images_.On_Packet(packet); }
    Image_Transfer& Images() { return images_; }

private:
    // A frame starts: nothing reported of it yet; the host's palette read once.
    void Begin_Frame();
    // The frame so far, in its colours and turned as the host or the model says.
    Picture Draw() const;
    // Raises ReceiveImage with the picture so far when the percentage grew.
    void Report_Progress();
    void Finish();
    void Fail();
    // Over USB: the screen through the image transfer. False when the unit
    // offers none (the Pid 69 stream is asked for then).
    bool Capture_Image();

    Engine& engine_;
    link::Link& link_;
    const link::Packet_Ids& ids_;
    Engine_Host& host_;
    Platform& platform_;
    Host_Side side_;
    Image_Transfer images_{link_};
    Screen_Frame frame_;
    std::vector<std::uint32_t> file_colours_;
    double last_packet_ms_ = 0;
    int last_pct_ = -1;
    bool done_ = false;
};

}  // namespace trekcom::protocol
