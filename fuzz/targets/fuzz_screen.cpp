// The screen frame and the icon bitmaps: Pid 69 packets of any size and
// content, in any order, then the frame drawn every way; and the same bytes
// read as a bitmap file.
//
// Input: a run of packets, each a length byte and that many data bytes.
#include "fuzz_common.h"
#include "protocol/icons.h"
#include "protocol/screen.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    protocol::Screen_Frame frame;
    for (std::size_t at = 0; at < size;) {
        const std::size_t n = std::min<std::size_t>(data[at], size - at - 1);
        const Bytes packet = fuzz::Exact(data + at + 1, n);
        frame.Feed(packet);
        at += n + 1;
    }
    if (frame.Started()) {
        const auto colours = protocol::Frame_Colours(frame, {0xFF0000});
        for (const Screen_Turn turn : {Screen_Turn::Upright, Screen_Turn::Quarter_Left, Screen_Turn::Quarter_Right,
                                       Screen_Turn::Half, Screen_Turn::Mirror})
            protocol::Draw_Frame(frame, colours, turn);
    }
    if (const auto picture = protocol::Bmp_Picture(fuzz::Exact(data, size)))
        protocol::To_Palette(*picture, {0, 0xFFFFFF, 0xFF00FF}, 0xFF00FF);
    return 0;
}
