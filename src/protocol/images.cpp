#include "protocol/images.h"

#include <utility>

#include "link/framing.h"
#include "link/little_endian.h"

namespace trekcom::protocol {

namespace {

enum : std::uint16_t {
    kRead_Toc = 877, kToc = 878, kRead_Def = 879, kDef = 880, kOpen = 881, kHandle = 882, kClose = 883,
    kRead_Img = 884, kImg_Data = 885, kRead_Rgb = 886, kRgb_Data = 887,
};
constexpr std::size_t kHandle_Size = 4;
constexpr std::size_t kDefinition_Size = 16;

Bytes U16_Bytes(std::uint16_t v) { return {static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(v >> 8)}; }

Bytes U32_Bytes(std::uint32_t v) {
    Bytes b(4);
    link::Put_LE<std::uint32_t>(b, 0, v);
    return b;
}

}  // namespace

void Image_Transfer::On_Packet(const Bytes& packet) {
    const auto p = link::Packet_Of(packet);
    if (p && awaited_ != 0 && p->id == awaited_) reply_ = p->data;
}

std::optional<Bytes> Image_Transfer::Ask(std::uint16_t id, Bytes data, std::uint16_t answer, std::int32_t wait_ms) {
    awaited_ = answer;
    reply_.reset();
    std::uint8_t response = link::kExpanded_Id;
    link_.Send_Packet({id, std::move(data), std::nullopt}, response, wait_ms);
    link_.Stop_Watchdog();
    awaited_ = 0;
    return std::exchange(reply_, std::nullopt);
}

std::optional<std::vector<Image_Transfer::Entry>> Image_Transfer::Contents(std::int32_t wait_ms) {
    const auto toc = Ask(kRead_Toc, {}, kToc, wait_ms);
    if (!toc) return std::nullopt;
    std::vector<Entry> entries;
    for (std::size_t at = 0; at + 4 <= toc->size(); at += 4)
        entries.push_back({link::Get_LE<std::uint16_t>(*toc, at), (*toc)[at + 2] != 0, (*toc)[at + 3]});
    return entries;
}

std::optional<Image_Transfer::Definition> Image_Transfer::Define(std::uint16_t index) {
    const auto d = Ask(kRead_Def, U16_Bytes(index), kDef);
    if (!d || d->size() < kDefinition_Size) return std::nullopt;  // empty: no such image
    Definition def;
    def.bpp = (*d)[1];
    def.height = link::Get_LE<std::uint16_t>(*d, 4);
    def.width = link::Get_LE<std::uint16_t>(*d, 6);
    def.stride = link::Get_LE<std::uint16_t>(*d, 8);
    if ((*d)[12] || (*d)[13] || (*d)[14])
        def.transparent = std::uint32_t{(*d)[12]} << 16 | std::uint32_t{(*d)[13]} << 8 | (*d)[14];
    return def;
}

std::optional<std::uint32_t> Image_Transfer::Open(std::uint16_t index) {
    const auto h = Ask(kOpen, U16_Bytes(index), kHandle);
    if (!h || h->size() < kHandle_Size) return std::nullopt;
    return link::Get_LE<std::uint32_t>(*h, 0);
}

std::optional<std::vector<std::uint32_t>> Image_Transfer::Colours(std::uint32_t handle, std::size_t n) {
    const auto t = Ask(kRead_Rgb, U32_Bytes(handle), kRgb_Data);
    if (!t || t->size() < kHandle_Size + 4 * n) return std::nullopt;
    // Entries as a bitmap file keeps them: blue, green, red, unused.
    std::vector<std::uint32_t> colours;
    for (std::size_t i = 0; i < n; ++i) {
        const std::size_t at = kHandle_Size + 4 * i;
        colours.push_back(std::uint32_t{(*t)[at + 2]} << 16 | std::uint32_t{(*t)[at + 1]} << 8 | (*t)[at]);
    }
    return colours;
}

std::optional<Bytes> Image_Transfer::Read(std::uint32_t handle, std::size_t size,
                                          const std::function<void(link::Data_View)>& progress) {
    Bytes image;
    while (image.size() < size) {
        const auto piece = Ask(kRead_Img, U32_Bytes(handle), kImg_Data);
        if (!piece || piece->size() < kHandle_Size) return std::nullopt;
        if (piece->size() == kHandle_Size) break;  // the unit has no more
        image.insert(image.end(), piece->begin() + kHandle_Size, piece->end());
        progress(image);
    }
    if (image.size() < size) return std::nullopt;
    image.resize(size);
    return image;
}

bool Image_Transfer::Write_Colours(std::uint32_t handle, const std::vector<std::uint32_t>& colours) {
    Bytes table = U32_Bytes(handle);
    for (const std::uint32_t c : colours)
        table.insert(table.end(), {static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(c >> 8),
                                   static_cast<std::uint8_t>(c >> 16), 0});
    const auto ack = Ask(kRgb_Data, std::move(table), kRead_Rgb);
    return ack && link::Get_LE<std::uint32_t>(*ack, 0) == handle && ack->size() >= kHandle_Size;
}

bool Image_Transfer::Write_Row(std::uint32_t handle, link::Data_View row) {
    Bytes data = U32_Bytes(handle);
    data.insert(data.end(), row.begin(), row.end());
    const auto ack = Ask(kImg_Data, std::move(data), kRead_Img);
    return ack && ack->size() >= kHandle_Size && link::Get_LE<std::uint32_t>(*ack, 0) == handle;
}

void Image_Transfer::Close(std::uint32_t handle) {
    std::uint8_t no_wait = 0;
    link_.Send_Packet({kClose, U32_Bytes(handle), std::nullopt}, no_wait, 0);
    link_.Stop_Watchdog();
}

}  // namespace trekcom::protocol
