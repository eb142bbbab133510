#include "protocol/screen.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "link/little_endian.h"
#include "link/framing.h"
#include "protocol/engine.h"

namespace trekcom::protocol {

namespace {

// The packet's first two fields: which part of the capture it is, and where
// its bytes go.
enum Section : std::uint32_t { kHeader = 0, kPixels = 1, kPalette = 2 };
constexpr std::size_t kPrefix = 8;
constexpr std::uint16_t kScreen_Dump = 32;
// No unit has a frame near this big; a header beyond it is not believed.
constexpr std::uint32_t kMax_Stride = 16384;
constexpr std::uint32_t kMax_Rows = 8192;
constexpr std::size_t kMax_Frame_Bytes = std::size_t{1} << 22;
// A unit that never stops sending is given up after this long: the largest
// frames take a minute and a half at 9600 baud.
constexpr double kMax_Capture_ms = 5 * 60 * 1000;
// How long a USB unit may take to say whether it has the image transfer.
constexpr std::int32_t kProbe_ms = 500;

std::uint32_t U32(link::Data_View d, std::size_t at) { return link::Get_LE<std::uint32_t>(d, at); }

std::uint32_t Grey(std::uint32_t level) { return level * 0x010101u; }

}  // namespace

// ---------------------------------------------------------------- the frame

void Screen_Frame::Feed(link::Data_View data) {
    if (data.size() < kPrefix) return;
    const std::uint32_t offset = U32(data, 4);
    switch (U32(data, 0)) {
        case kHeader: return Header(data);
        case kPixels: return Pixels(offset, data.subspan(kPrefix));
        case kPalette: return Colour(offset, data.subspan(kPrefix));
        default: return;
    }
}

void Screen_Frame::Header(link::Data_View data) {
    Screen_Layout l;
    l.stride = U32(data, 8);
    l.bpp = U32(data, 12);
    l.width = U32(data, 16);
    l.height = U32(data, 20);
    if (l.bpp == 2 && data.size() >= 28) {
        // Brightness levels 0..15 for the four values; anything else is not a level.
        std::vector<std::uint32_t> greys;
        for (std::size_t i = 24; i < 28; ++i)
            if (data[i] <= 15) greys.push_back(Grey(data[i] * 17u));
        if (greys.size() == 4) l.greys = std::move(greys);
    }
    const std::uint32_t bpp = l.bpp;
    if (!Start(std::move(l))) refused_bpp_ = bpp;
}

bool Screen_Frame::Start(Screen_Layout l) {
    const bool depth_known = l.bpp == 1 || l.bpp == 2 || l.bpp == 4 || l.bpp == 8;
    if (!depth_known || l.stride == 0 || l.stride > kMax_Stride || l.height == 0 || l.height > kMax_Rows ||
        l.width == 0 || std::size_t{l.stride} * l.height > kMax_Frame_Bytes)
        return false;
    // A width past the stride is padding the row cannot hold.
    l.width = std::min(l.width, l.stride * 8 / l.bpp);
    *this = {};
    started_ = true;
    layout_ = std::move(l);
    raw_.assign(std::size_t{layout_.stride} * layout_.height, 0);
    have_.assign(raw_.size(), false);
    const std::size_t entries = std::size_t{1} << layout_.bpp;
    palette_.assign(entries, 0);
    have_colour_.assign(entries, false);
    return true;
}

bool Screen_Frame::Load(Screen_Layout layout, link::Data_View rows_last_first, const std::vector<std::uint32_t>& palette) {
    if (!Start(std::move(layout))) return false;
    const std::size_t stride = layout_.stride;
    for (std::size_t row = 0; row * stride < rows_last_first.size() && row < layout_.height; ++row)
        Pixels(static_cast<std::uint32_t>((layout_.height - 1 - row) * stride),
               rows_last_first.subspan(row * stride, std::min(stride, rows_last_first.size() - row * stride)));
    if (palette.size() >= palette_.size()) {
        std::copy_n(palette.begin(), palette_.size(), palette_.begin());
        have_colour_.assign(palette_.size(), true);
        colours_ = palette_.size();
    }
    return true;
}

void Screen_Frame::Pixels(std::uint32_t offset, link::Data_View bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::size_t at = std::size_t{offset} + i;
        if (at >= raw_.size()) return;
        raw_[at] = bytes[i];
        if (!have_[at]) {
            have_[at] = true;
            ++received_;
        }
    }
}

void Screen_Frame::Colour(std::uint32_t offset, link::Data_View bgr) {
    const std::size_t index = offset / 3;
    if (offset % 3 != 0 || index >= palette_.size() || bgr.size() < 3) return;
    palette_[index] = std::uint32_t{bgr[2]} << 16 | std::uint32_t{bgr[1]} << 8 | bgr[0];
    if (!have_colour_[index]) {
        have_colour_[index] = true;
        ++colours_;
    }
}

bool Screen_Frame::Complete() const {
    const bool palette_done = colours_ == 0 || colours_ == palette_.size();
    return started_ && received_ == raw_.size() && palette_done;
}

int Screen_Frame::Percent() const {
    if (raw_.empty()) return 0;
    return static_cast<int>(received_ * 100 / raw_.size());
}

std::vector<std::uint32_t> Screen_Frame::Palette() const {
    return colours_ == palette_.size() ? palette_ : std::vector<std::uint32_t>{};
}

std::uint32_t Screen_Frame::Index_At(std::uint32_t x, std::uint32_t y) const {
    const std::size_t bit = std::size_t{x} * layout_.bpp;
    const std::size_t at = std::size_t{y} * layout_.stride + bit / 8;
    if (at >= raw_.size()) return 0;
    const std::uint32_t mask = (1u << layout_.bpp) - 1;
    return (raw_[at] >> (bit % 8)) & mask;
}

// ---------------------------------------------------------------- drawing

std::vector<std::uint32_t> Frame_Colours(const Screen_Frame& frame, const std::vector<std::uint32_t>& file_colours) {
    std::vector<std::uint32_t> colours = frame.Palette();
    if (!colours.empty()) return colours;
    const Screen_Layout& l = frame.Layout();
    const std::size_t n = std::size_t{1} << l.bpp;
    for (std::size_t i = 0; i < n; ++i) {
        if (i < file_colours.size())
            colours.push_back(file_colours[i]);
        else if (l.greys && i < l.greys->size())
            colours.push_back((*l.greys)[i]);
        else
            colours.push_back(Grey(static_cast<std::uint32_t>(255 - i * 255 / (n - 1))));
    }
    return colours;
}

Picture Draw_Frame(const Screen_Frame& frame, const std::vector<std::uint32_t>& colours, Screen_Turn turn) {
    const std::uint32_t w = frame.Layout().width, h = frame.Layout().height;
    const bool quarter = turn == Screen_Turn::Quarter_Left || turn == Screen_Turn::Quarter_Right;
    Picture p;
    p.Width = static_cast<std::int32_t>(quarter ? h : w);
    p.Height = static_cast<std::int32_t>(quarter ? w : h);
    p.Pixels.reserve(std::size_t{w} * h);
    // For each pixel of the picture, the frame pixel that lands there.
    for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(p.Height); ++y) {
        for (std::uint32_t x = 0; x < static_cast<std::uint32_t>(p.Width); ++x) {
            std::uint32_t fx = x, fy = y;
            switch (turn) {
                case Screen_Turn::Quarter_Right: fx = y; fy = h - 1 - x; break;
                case Screen_Turn::Quarter_Left: fx = w - 1 - y; fy = x; break;
                case Screen_Turn::Half: fx = w - 1 - x; fy = h - 1 - y; break;
                case Screen_Turn::Mirror: fx = w - 1 - x; break;
                default: break;
            }
            const std::uint32_t index = frame.Index_At(fx, fy);
            p.Pixels.push_back(index < colours.size() ? colours[index] : 0);
        }
    }
    return p;
}

std::string Model_Of(const std::string& description) {
    std::string name = description.substr(0, description.find(" Software Version"));
    while (!name.empty() && (name.back() == ' ' || name.back() == '\0')) name.pop_back();
    return name;
}

Screen_Turn Model_Turn(const std::string& description) {
    // Units whose frames are known to lie turned, by the model name that
    // opens their description.
    static const std::pair<const char*, Screen_Turn> kModels[] = {
        {"eTrex Legend", Screen_Turn::Quarter_Left},
        {"eMap", Screen_Turn::Quarter_Left},
        {"eTrex Summit", Screen_Turn::Quarter_Right},
        {"Geko 201", Screen_Turn::Upright},
    };
    const std::string model = Model_Of(description);
    for (const auto& [name, turn] : kModels)
        if (model == name) return turn;
    return Screen_Turn::Upright;
}

std::optional<std::vector<std::uint32_t>> Read_Gpl(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line) || line.rfind("GIMP Palette", 0) != 0) return std::nullopt;
    std::vector<std::uint32_t> colours;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#' || line.rfind("Name:", 0) == 0 || line.rfind("Columns:", 0) == 0) continue;
        std::istringstream fields(line);
        int r = -1, g = -1, b = -1;
        if (!(fields >> r >> g >> b) || std::min({r, g, b}) < 0 || std::max({r, g, b}) > 255) return std::nullopt;
        colours.push_back(static_cast<std::uint32_t>(r << 16 | g << 8 | b));
    }
    return colours;
}

// ---------------------------------------------------------------- the capture

Screen_Capture::Screen_Capture(Engine& engine, link::Link& link, const link::Packet_Ids& ids, Engine_Host& host,
                               Platform& platform, Host_Side side)
    : engine_(engine), link_(link), ids_(ids), host_(host), platform_(platform), side_(std::move(side)) {
    engine_.screen_ = this;
}

Screen_Capture::~Screen_Capture() { engine_.screen_ = nullptr; }

void Screen_Capture::Capture() {
    // Like every request, it identifies the unit first: the ids and the
    // model's turn are its own.
    engine_.Request_Product_Data();
    if (link_.Port() <= 0 && Capture_Image()) return;
    frame_ = {};
    Begin_Frame();
    std::uint8_t response = ids_.PID_Display_Data;
    const link::Packet dump{ids_.PID_Command_Data,
                            {static_cast<std::uint8_t>(kScreen_Dump), static_cast<std::uint8_t>(kScreen_Dump >> 8)},
                            std::nullopt};
    if (!link_.Send_Packet(dump, response, 0)) {
        link_.No_Response();
        return;
    }
    // No packet ends the stream: the header said how much comes, and a unit
    // that falls silent before it has all come has lost some.
    const double stall_ms = link_.Time_Out();
    const double give_up_ms = platform_.Now_ms() + kMax_Capture_ms;
    const auto stalled = [&] {
        const double now = platform_.Now_ms();
        return now - last_packet_ms_ >= stall_ms || now >= give_up_ms;
    };
    while (!done_ && !link_.Abandoned() && !stalled() && !frame_.Refused_Bpp()) {
        if (link_.Needs_Polling()) link_.Poll();
        platform_.Run_Until([&] { return done_ || link_.Abandoned() || stalled(); }, 50);
    }
    if (!done_) Fail();
}

void Screen_Capture::Fail() {
    // Some newer units announce a 16-bit frame whose stream no host has made sense of.
    if (const std::uint32_t bpp = frame_.Refused_Bpp())
        return host_.Raise_Error(0, host_.xLate("The unit's screen cannot be read: its frame has ") +
                                        std::to_string(bpp) + " " + host_.xLate("bits per pixel"),
                                 {});
    host_.Raise_Error(Engine::kIncomplete_Transfer,
                      host_.xLate("Incomplete screen capture: ") + std::to_string(frame_.Bytes_Received()) + " " +
                          host_.xLate("of") + " " + std::to_string(frame_.Bytes_Expected()) + " " +
                          host_.xLate("bytes received"),
                      {});
}

bool Screen_Capture::Capture_Image() {
    const auto toc = images_.Contents(kProbe_ms);
    if (!toc) return false;
    const auto entry = std::find_if(toc->begin(), toc->end(),
                                    [](const auto& e) { return e.category == Image_Transfer::kScreen; });
    if (entry == toc->end()) return false;
    const auto def = images_.Define(entry->index);
    const Screen_Layout layout{def ? def->stride : 0, def ? def->bpp : 0, def ? def->width : 0,
                               def ? def->height : 0, std::nullopt};
    const auto handle = frame_.Load(layout, {}, {}) ? images_.Open(entry->index) : std::nullopt;
    if (!handle) {
        Fail();
        return true;
    }
    const auto colours = images_.Colours(*handle, std::size_t{1} << layout.bpp).value_or(std::vector<std::uint32_t>{});
    const std::size_t size = std::size_t{layout.stride} * layout.height;
    const auto bytes = images_.Read(*handle, size, [&](link::Data_View so_far) {
        frame_.Load(layout, so_far, colours);
        Report_Progress();
    });
    images_.Close(*handle);
    if (bytes) frame_.Load(layout, *bytes, colours);
    if (!bytes || !frame_.Complete()) {
        Fail();
        return true;
    }
    Finish();
    return true;
}

void Screen_Capture::On_Packet(const Bytes& packet) {
    last_packet_ms_ = platform_.Now_ms();
    const link::Data_View data = link::Data_Of(packet);
    // A header starts a frame, asked for or not (a replayed log holds them too).
    if (data.size() >= kPrefix && U32(data, 0) == kHeader) Begin_Frame();
    frame_.Feed(data);
    if (done_ || !frame_.Started()) return;
    if (frame_.Complete()) return Finish();
    Report_Progress();
}

void Screen_Capture::Report_Progress() {
    const int pct = frame_.Percent();
    if (pct == last_pct_ || pct >= 100) return;
    last_pct_ = pct;
    Picture so_far = Draw();
    std::int16_t p = static_cast<std::int16_t>(pct);
    side_.progress(p, so_far);
}

void Screen_Capture::Begin_Frame() {
    done_ = false;
    last_pct_ = -1;
    const std::string path = side_.palette_file();
    file_colours_ = path.empty() ? std::vector<std::uint32_t>{} : Read_Gpl(path).value_or(std::vector<std::uint32_t>{});
}

Picture Screen_Capture::Draw() const {
    Screen_Turn turn = side_.turn();
    if (turn == Screen_Turn::Automatic) turn = Model_Turn(engine_.Shared().Product_Data->Product_Description_1);
    return Draw_Frame(frame_, Frame_Colours(frame_, file_colours_), turn);
}

void Screen_Capture::Finish() {
    done_ = true;
    Picture image = Draw();
    cDisplay& d = side_.display();
    d.Width = static_cast<std::int16_t>(image.Width);
    d.Height = static_cast<std::int16_t>(image.Height);
    d.Bits_Per_Pixel = static_cast<std::int16_t>(frame_.Layout().bpp);
    d.Pixels = frame_.Raw();
    std::int16_t pct = 100;
    side_.progress(pct, image);
}

}  // namespace trekcom::protocol
