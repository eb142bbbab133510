// The control's private state, in one place: the platform and its children,
// the event sink, the ids in force, the flags shared by the layers, and the
// components. TrekcomCtl's public methods forward here.
#pragma once

#include <memory>
#include <string>

#include "link/link.h"
#include "link/packet_ids.h"
#include "protocol/engine.h"
#include "protocol/realtime.h"
#include "protocol/icons.h"
#include "protocol/screen.h"
#include "trekcom/TrekcomCtl.h"
#include "trekcom/cSAK.h"
#include "trekcom/cUSB.h"

namespace trekcom::detail {

class Control final : public link::Link_Host, public protocol::Engine_Host {
public:
    explicit Control(std::shared_ptr<Platform> platform);
    ~Control() override;

    // The internals of a control, for the library's own layers and tests.
    static Control& Of(TrekcomCtl& ctl) { return *ctl.impl_; }

    // ---- Link_Host and Engine_Host
    void Raise_Receive(const Bytes& packet) override;
    void Raise_Error(std::int16_t code, const std::string& message, const Bytes& packet) override;
    void Ask_Error(std::int16_t& code, const std::string& message, const Bytes& packet) override;
    void Raise_HexDebug(const std::string& text) override;
    void Dispatch_Packet(const Bytes& packet) override { engine.Dispatch_Packet(packet); }
    void Line_Received(const std::string& line, bool text_line) override;
    std::string xLate(const std::string& phrase) override;
    void Clear_Error_Latch() override { engine.Shared().Error_Latch = false; }
    void Raise_ReceiveCounts(std::int16_t wCount, std::int16_t pCount, std::int16_t rCount,
                             std::int16_t tCount) override;
    void Raise_ReceivedWaypoints(std::shared_ptr<Collection<cWaypoint>>& list) override;
    void Raise_ReceivedRoutes(std::shared_ptr<Collection<cRoute>>& list) override;
    void Raise_ReceivedTracks(std::shared_ptr<Collection<cTrack>>& list) override;
    void Raise_ReceivedRun(std::shared_ptr<cRun>& run) override {
        if (sink) sink->ReceivedRun(run);
    }
    void Raise_ReceivedRuns(std::shared_ptr<Collection<cRun>>& list) override {
        if (sink) sink->ReceivedRuns(list);
    }
    void Raise_ReceivedCourses(std::shared_ptr<Collection<cCourse>>& list) override {
        if (sink) sink->ReceivedCourses(list);
    }
    // Setting Language passes it on to the USB unit's object too, so USB
    // errors are translated alike.
    void Usb_Language(const std::string& language) { usb->SetLanguage(language); }

    // Assignment to a read-only property: error 383, the value unchanged.
    [[noreturn]] void Refuse_Read_Only();

    std::shared_ptr<Platform> platform;
    TrekcomCtlEvents* sink = nullptr;
    link::Packet_Ids ids;
    bool IgnoreCheckSum = false;
    std::string Language = "English";

    std::unique_ptr<SerialPort> comGarmin;
    std::unique_ptr<Timer> tmrTimeout;
    std::unique_ptr<Timer> tmrPVTData;
    std::unique_ptr<Timer> tmrAsync;
    // The USB unit's object (the host reaches it as USB()); the link drives
    // it on Port 0.
    std::shared_ptr<cUSB> usb;
    link::Link link;
    protocol::Engine engine;

    // ---- real-time data: the records, the PVT watchdog on tmrPVTData and the
    // asynchronous polling on tmrAsync. Built after the engine, it registers
    // with it for the dispatcher.
    protocol::Realtime realtime{engine, link, *this, *platform, *tmrPVTData, *tmrAsync};
    // ---- host surface: the utility object, language, diagnostics, NMEA,
    // display and icons. The utility object serves the control's own
    // utility methods and goes at terminate.
    std::unique_ptr<cSAK> sak = std::make_unique<cSAK>(platform);
    std::string Palette_File;
    std::shared_ptr<cDisplay> Display = std::make_shared<cDisplay>();
    Screen_Turn Display_Turn = Screen_Turn::Automatic;
    // ---- the screen capture and the unit's identity (ctl_screen.cpp)
    protocol::Screen_Capture screen{engine, link, ids, *this, *platform, Screen_Side()};
    protocol::Screen_Capture::Host_Side Screen_Side();
    protocol::Icons icons{engine, link, screen.Images(), *this, [this](std::int16_t& seq, Picture& image, Bytes& bmp) {
                              Raise_Icon(seq, image, bmp);
                          }};
    void Raise_Icon(std::int16_t& seq, Picture& image, Bytes& bmp);
    void Request_GPS_Name();
    void Change_GPS_Name();
    // Stores the language and hands it to everything that translates.
    void Set_Language(const std::string& language);
    // Completes the sentence's checksum and writes it with CR LF.
    void NMEA_Send(std::string& message);
    // A received packet handled the way the USB transport hands one over:
    // traced, dispatched, raised; never acknowledged.
    void Receive_As_USB(const Bytes& packet);
    // Feeds the received packets of a trace log to Receive_As_USB; false
    // when no log could be read.
    bool Replay_Log(const std::string& path);
    // The screen capture request: it replays a trace log chosen in the file
    // dialog, or else captures the screen.
    void Request_Display();
    // cError/vcError 0 with the translated phrase: the operation is not available.
    void Not_Supported(const std::string& phrase);
    // Stops the waits, the timers and the port, and lets go of the held objects.
    void Terminate();
};

}  // namespace trekcom::detail
