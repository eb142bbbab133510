// The screen capture's ties to the host, and the unit's identity.
#include "control.h"

namespace trekcom::detail {

namespace {

// Some units never answer the unit-id request: it is asked once, briefly.
constexpr std::int32_t kUnit_ID_Wait_ms = 500;

}  // namespace

protocol::Screen_Capture::Host_Side Control::Screen_Side() {
    protocol::Screen_Capture::Host_Side side;
    side.progress = [this](std::int16_t& pct, Picture& image) {
        if (sink) sink->ReceiveImage(pct, image);
    };
    side.palette_file = [this] { return Palette_File; };
    side.turn = [this] { return Display_Turn; };
    side.display = [this]() -> cDisplay& {
        if (!Display) Display = std::make_shared<cDisplay>();
        return *Display;
    };
    return side;
}

void Control::Raise_Icon(std::int16_t& seq, Picture& image, Bytes& bmp) {
    if (!sink) return;
    sink->ReceiveIcon(seq, image, bmp);
    std::string text = Bytes2String(bmp);
    sink->vcReceiveIcon(seq, image, text);
}

void Control::Request_GPS_Name() {
    auto& pd = engine.Shared().Product_Data;
    if (!pd) pd = std::make_shared<cProduct_Data>();
    pd->Unit_ID.clear();
    engine.Request_Product_Data();
    pd->GPS_Name = protocol::Model_Of(pd->Product_Description_1);
    if (!pd->Unit_ID.empty()) return;
    // Identification asks for the id only of units with a capability array;
    // the others may know it too. A unit that does not answer is no error.
    std::uint8_t response = ids.PID_Unit_ID;
    link.Send_Packet(engine.Packets().Unit_ID_Request, response, kUnit_ID_Wait_ms);
    link.Stop_Watchdog();
    if (pd->Unit_ID.empty() && link.Port() <= 0 && usb->Session_Unit_ID() != 0)
        pd->Unit_ID = std::to_string(usb->Session_Unit_ID());
}

void Control::Change_GPS_Name() {
    // No receiver documents a rename, and packets a unit does not expect can
    // harm it, so nothing goes out.
    Raise_Error(0,
                xLate("The unit's name cannot be changed: no receiver has a documented way to rename it, so nothing "
                      "was sent"),
                {});
}

}  // namespace trekcom::detail
