#include "control.h"

#include "platform/translate.h"

namespace trekcom::detail {

Control::Control(std::shared_ptr<Platform> p)
    : platform(std::move(p)),
      comGarmin(platform->Create_Serial_Port()),
      tmrTimeout(platform->Create_Timer()),
      tmrPVTData(platform->Create_Timer()),
      tmrAsync(platform->Create_Timer()),
      usb(std::make_shared<cUSB>(platform)),
      link(*platform, *comGarmin, *tmrTimeout, ids, *this, *usb),
      engine(link, ids, *this) {
    usb->SetLanguage(Language);
}

Control::~Control() { Terminate(); }

void Control::Terminate() {
    engine.Restore_Line_Rate();
    // Waits still on the stack see the flag and give up.
    link.Detach();  // no USB events from a control being torn down
    link.Shared().Terminating = true;
    tmrTimeout->Enabled(false);
    tmrPVTData->Enabled(false);
    tmrAsync->Enabled(false);
    comGarmin->OnComm = nullptr;
    comGarmin->PortOpen(false);
    sak.reset();
    Display.reset();
}

void Control::Raise_Receive(const Bytes& packet) {
    if (!sink) return;
    Bytes bytes = packet;
    sink->Receive(bytes);
    // vcReceive carries what the Receive handler left, as the error pair does.
    std::string text = Bytes2String(bytes);
    sink->vcReceive(text);
}

// Once terminated the control speaks English: its translation files may be
// gone with the host's folders.
std::string Control::xLate(const std::string& phrase) {
    return link.Shared().Terminating ? phrase : Translate(*platform, Language, phrase);
}

void Control::Raise_Error(std::int16_t code, const std::string& message, const Bytes& packet) {
    std::int16_t cErr = code;
    Ask_Error(cErr, message, packet);
}

void Control::Ask_Error(std::int16_t& code, const std::string& message, const Bytes& packet) {
    if (sink) {
        std::string text = message;
        Bytes bytes = packet;
        sink->cError(code, text, bytes);
        std::string as_text = Bytes2String(bytes);
        sink->vcError(code, text, as_text);
    } else {
        code = 0;  // nobody to answer: a device search ends here
    }
    // The link (or the USB transport) has given up: a download still open
    // has ended with it.
    engine.Close_Tally();
    engine.Forget_Identity();
    engine.Restore_Line_Rate();
}

void Control::Raise_HexDebug(const std::string& text) {
    if (!sink) return;
    std::string line = text;
    sink->HexDebug(line);
}

void Control::Raise_ReceiveCounts(std::int16_t wCount, std::int16_t pCount, std::int16_t rCount,
                                  std::int16_t tCount) {
    if (sink) sink->ReceiveCounts(wCount, pCount, rCount, tCount);
}

void Control::Raise_ReceivedWaypoints(std::shared_ptr<Collection<cWaypoint>>& list) {
    if (sink) sink->ReceivedWaypoints(list);
}

void Control::Raise_ReceivedRoutes(std::shared_ptr<Collection<cRoute>>& list) {
    if (sink) sink->ReceivedRoutes(list);
}

void Control::Raise_ReceivedTracks(std::shared_ptr<Collection<cTrack>>& list) {
    if (sink) sink->ReceivedTracks(list);
}

void Control::Refuse_Read_Only() {
    constexpr int kRead_Only = 383;
    throw RuntimeError(kRead_Only, xLate("Property is Read Only"));
}

}  // namespace trekcom::detail

// ---------------------------------------------------------------- TrekcomCtl

namespace trekcom {

TrekcomCtl::TrekcomCtl() : TrekcomCtl(Default_Platform()) {}
TrekcomCtl::TrekcomCtl(std::shared_ptr<trekcom::Platform> platform)
    : impl_(std::make_unique<detail::Control>(std::move(platform))) {}
TrekcomCtl::~TrekcomCtl() = default;

std::shared_ptr<trekcom::Platform> TrekcomCtl::Platform() const { return impl_->platform; }
void TrekcomCtl::Advise(TrekcomCtlEvents& sink) { impl_->sink = &sink; }
void TrekcomCtl::Unadvise() { impl_->sink = nullptr; }

std::int16_t TrekcomCtl::Port() const { return impl_->link.Port(); }
void TrekcomCtl::Port(std::int16_t n) { impl_->link.Port(n); }
std::string TrekcomCtl::Port_Name() const { return impl_->link.Shared().Port_Name; }
void TrekcomCtl::Port_Name(const std::string& path) { impl_->link.Shared().Port_Name = path; }
std::string TrekcomCtl::Settings() const { return impl_->link.Shared().Settings; }
void TrekcomCtl::Settings(const std::string& settings) { impl_->link.Shared().Settings = settings; }
bool TrekcomCtl::RTSEnable() const { return impl_->link.Shared().RTSEnable; }
void TrekcomCtl::RTSEnable(bool on) { impl_->link.Shared().RTSEnable = on; }
bool TrekcomCtl::DTREnable() const { return impl_->link.Shared().DTREnable; }
void TrekcomCtl::DTREnable(bool on) { impl_->link.Shared().DTREnable = on; }
Handshaking_Values TrekcomCtl::Handshaking() const { return impl_->link.Shared().Handshaking; }
void TrekcomCtl::Handshaking(Handshaking_Values h) { impl_->link.Shared().Handshaking = h; }
bool TrekcomCtl::UserFlowControl() const { return impl_->link.Shared().UserFlowControl; }
void TrekcomCtl::UserFlowControl(bool on) { impl_->link.Shared().UserFlowControl = on; }
bool TrekcomCtl::DebugLog() const { return impl_->link.Shared().DebugLog; }
void TrekcomCtl::DebugLog(bool on) { impl_->link.Shared().DebugLog = on; }
std::int16_t TrekcomCtl::Time_Out() const { return impl_->link.Time_Out(); }
void TrekcomCtl::Time_Out(std::int16_t ms) { impl_->link.Time_Out(ms); }

bool TrekcomCtl::PortOpen() {
    impl_->engine.Forget_Identity();
    return impl_->link.PortOpen();
}
void TrekcomCtl::PortClose() {
    impl_->engine.Forget_Identity();
    impl_->engine.Restore_Line_Rate();
    impl_->link.PortClose();
}
std::int32_t TrekcomCtl::FindBaud(std::string& settings) { return impl_->link.FindBaud(settings); }
bool TrekcomCtl::Change_Baud_Rate(std::int32_t Baud) { return impl_->link.Change_Baud_Rate(Baud); }
void TrekcomCtl::Reset() { impl_->link.Reset(); }
void TrekcomCtl::Send(const Bytes& Packet, std::uint8_t Response, std::int32_t WaitTime) {
    impl_->link.Send(Packet, Response, WaitTime);
}

void TrekcomCtl::Request_Product_Data() { impl_->engine.Request_Product_Data(); }
void TrekcomCtl::Request_Waypoints() { impl_->engine.Request_Waypoints(); }
void TrekcomCtl::Request_Prox_Waypoints() { impl_->engine.Request_Prox_Waypoints(); }
void TrekcomCtl::Request_Routes() { impl_->engine.Request_Routes(); }
void TrekcomCtl::Request_Tracks() { impl_->engine.Request_Tracks(); }
void TrekcomCtl::Request_Laps() { impl_->engine.Request_Laps(); }
void TrekcomCtl::Request_Runs() { impl_->engine.Request_Runs(); }
void TrekcomCtl::Request_Courses() { impl_->engine.Request_Courses(); }
void TrekcomCtl::Send_Courses(const Collection<cCourse>& courses) { impl_->engine.Send_Courses(courses); }
std::shared_ptr<Collection<cRun>> TrekcomCtl::Runs() const { return impl_->engine.Runs(); }
std::shared_ptr<Collection<cCourse>> TrekcomCtl::Courses() const { return impl_->engine.Courses(); }
void TrekcomCtl::Request_Flightbook() { impl_->engine.Request_Flightbook(); }
void TrekcomCtl::Request_Counts() { impl_->engine.Request_Counts(); }
void TrekcomCtl::Start_of_Records(std::int16_t& ocount) { impl_->engine.Start_of_Records(ocount); }
void TrekcomCtl::End_of_Records() { impl_->engine.End_of_Records(); }

std::shared_ptr<cProduct_Data> TrekcomCtl::Product_Data() const { return impl_->engine.Shared().Product_Data; }
// Identification, the dispatcher and the counts write into these objects
// at any time: a null one is taken as a fresh, empty object.
void TrekcomCtl::Product_Data(std::shared_ptr<cProduct_Data> value) {
    impl_->engine.Shared().Product_Data = value ? std::move(value) : std::make_shared<cProduct_Data>();
}
std::shared_ptr<cRecord_Counts> TrekcomCtl::Counts() const { return impl_->engine.Shared().Counts; }
void TrekcomCtl::Counts(std::shared_ptr<cRecord_Counts> value) {
    impl_->engine.Shared().Counts = value ? std::move(value) : std::make_shared<cRecord_Counts>();
}
std::shared_ptr<Collection<cWaypoint>> TrekcomCtl::Waypoints() const { return impl_->engine.Waypoints(); }
std::shared_ptr<Collection<cRoute>> TrekcomCtl::Routes() const { return impl_->engine.Routes(); }
std::shared_ptr<Collection<cTrack>> TrekcomCtl::Tracks() const { return impl_->engine.Tracks(); }
std::shared_ptr<Collection<cLap>> TrekcomCtl::Laps() const { return impl_->engine.Laps(); }

// Read-only properties: one getter reading `where`, one refusing setter.
#define READ_ONLY(Type, Getter, Setter, where)                      \
    Type TrekcomCtl::Getter() const { return impl_->where; }        \
    void TrekcomCtl::Setter(Type) { impl_->Refuse_Read_Only(); }
#define PROTOCOL(name) READ_ONLY(std::string, name, name, engine.Shared().P.name)
#define PACKET_ID(name) READ_ONLY(std::uint8_t, name, name, ids.name)

READ_ONLY(std::int16_t, Incoming_Records_Count, Incoming_Records_Count, engine.Shared().Incoming_Records_Count)

PROTOCOL(Link_Protocol)
PROTOCOL(WayPoint_Transfer_Protocol)
PROTOCOL(Route_Transfer_Protocol)
PROTOCOL(Track_Transfer_Protocol)
PROTOCOL(Prox_Wpt_Transfer_Protocol)
PROTOCOL(Almanac_Transfer_Protocol)
PROTOCOL(Date_Transfer_Protocol)
PROTOCOL(Posn_Transfer_Protocol)
PROTOCOL(Pvt_Transfer_Protocol)
PROTOCOL(Laps_Transfer_Protocol)
PROTOCOL(Flightbook_Transfer_Protocol)
PROTOCOL(Waypoint_Data_Format)
PROTOCOL(Route_Header_Format)
PROTOCOL(Route_Link_Format)
PROTOCOL(Route_Wpt_Data_Format)
PROTOCOL(Track_Header_Format)
PROTOCOL(Track_Point_Format)
PROTOCOL(Prox_Wpt_Data_Format)
PROTOCOL(Almanac_Data_Format)
PROTOCOL(Date_Data_Format)
PROTOCOL(Posn_Data_Format)
PROTOCOL(Pvt_Data_Format)
PROTOCOL(Laps_Data_Format)
PROTOCOL(Flightbook_Data_Format)

PACKET_ID(PID_Ack_Byte)
PACKET_ID(PID_Nak_Byte)
PACKET_ID(PID_Command_Data)
PACKET_ID(PID_Xfer_Cmplt)
PACKET_ID(PID_Date_Time)
PACKET_ID(PID_Position_Data)
PACKET_ID(PID_Prx_Wpt_Data)
PACKET_ID(PID_Records)
PACKET_ID(PID_Rte_Hdr)
PACKET_ID(PID_Rte_Wpt_Data)
PACKET_ID(PID_Rte_Link)
PACKET_ID(PID_Almanac_Data)
PACKET_ID(PID_Trk_Data)
PACKET_ID(PID_Trk_Hdr)
PACKET_ID(PID_Wpt_Data)
PACKET_ID(PID_Pvt_Data)
PACKET_ID(PID_Product_Rqst)
PACKET_ID(PID_Product_Data)
PACKET_ID(PID_Protocol_Array)
PACKET_ID(PID_Baud_Reply)
PACKET_ID(PID_Voltages)
PACKET_ID(PID_Display_Data)
PACKET_ID(PID_Lap)
PACKET_ID(PID_Sats)
PACKET_ID(PID_Flightbook_Record)
PACKET_ID(PID_Unit_ID)
PACKET_ID(PID_Expanded_Packet)
READ_ONLY(std::int32_t, PID_Expanded_ID, PID_Expanded_ID, engine.Shared().PID_Expanded_ID)
READ_ONLY(std::int32_t, PID_Icon, PID_Icon, engine.Shared().PID_Icon)
READ_ONLY(std::int32_t, PID_Expanded_Length, PID_Expanded_Lengh, engine.Shared().PID_Expanded_Length)

PACKET_ID(CMND_Reset_Transfer)
PACKET_ID(CMND_Transfer_Alm)
PACKET_ID(CMND_Transfer_Posn)
PACKET_ID(CMND_Transfer_Prx)
PACKET_ID(CMND_Transfer_Rte)
PACKET_ID(CMND_Transfer_Time)
PACKET_ID(CMND_Transfer_Trk)
PACKET_ID(CMND_Transfer_Wpt)
PACKET_ID(CMND_Transfer_Lap)
PACKET_ID(CMND_Transfer_Flightbook)
PACKET_ID(CMND_Turn_Off_Pwr)
PACKET_ID(CMND_Start_Pvt_Data)
PACKET_ID(CMND_Stop_Pvt_Data)
PACKET_ID(CMND_Start_Async)
PACKET_ID(CMND_Change_Baud)

#undef PACKET_ID
#undef PROTOCOL
#undef READ_ONLY

}  // namespace trekcom

namespace trekcom {

std::shared_ptr<cUSB> TrekcomCtl::USB() const { return impl_->usb; }

}  // namespace trekcom
