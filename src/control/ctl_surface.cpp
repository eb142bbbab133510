// The control's host surface: language and translation, diagnostics, NMEA,
// and the screen, icon and unit-name requests.
#include "control.h"
#include "nmea.h"
#include "replay.h"

namespace trekcom::detail {

void Control::Set_Language(const std::string& language) {
    Language = language;
    if (sak) sak->Language(language);
    Usb_Language(language);  // the USB transport translates its own messages
}

void Control::Not_Supported(const std::string& phrase) { Raise_Error(0, xLate(phrase), {}); }

void Control::Request_Display() {
    // A request like any other: what an earlier count left set (raw events
    // off, records-only) would otherwise drop the replayed packets unseen.
    link.Shared().RawSuppressed = false;
    engine.Shared().Error_Latch = false;
    if (Replay_Log(platform->Open_File_Dialog(replay::kLog_Filter))) return;
    screen.Capture();
}

}  // namespace trekcom::detail

namespace trekcom {

void TrekcomCtl::Site() { Language("English"); }

std::string TrekcomCtl::Language() const { return impl_->Language; }
void TrekcomCtl::Language(const std::string& language) { impl_->Set_Language(language); }
std::string TrekcomCtl::xLate(const std::string& Phrase) { return impl_->xLate(Phrase); }

bool TrekcomCtl::IgnoreCheckSum() const { return impl_->IgnoreCheckSum; }
void TrekcomCtl::IgnoreCheckSum(bool on) { impl_->IgnoreCheckSum = on; }
std::string TrekcomCtl::Palette_File() const { return impl_->Palette_File; }
void TrekcomCtl::Palette_File(const std::string& path) { impl_->Palette_File = path; }

std::string TrekcomCtl::version() const { return TREKCOM_VERSION; }
void TrekcomCtl::version(std::string) { impl_->Refuse_Read_Only(); }

std::string TrekcomCtl::TrimNull(std::string& instring) { return impl_->sak->TrimNull(instring); }
std::int32_t TrekcomCtl::Address_Of(std::int32_t pfn) { return impl_->sak->Address_Of(pfn); }
void TrekcomCtl::WaitFor(std::int32_t d) { impl_->sak->WaitFor(d); }

std::string TrekcomCtl::NMEA_Checksum(const std::string& msg) { return detail::nmea::Checksum(msg); }
void TrekcomCtl::NMEA_Send(std::string& message) { impl_->NMEA_Send(message); }

void TrekcomCtl::Request_Display() { impl_->Request_Display(); }
void TrekcomCtl::Request_Icon(std::int32_t seq) { impl_->icons.Request_Icon(seq); }
void TrekcomCtl::Send_Icon(std::int32_t seq, const Bytes& BMP) { impl_->icons.Send_Icon(seq, BMP); }
void TrekcomCtl::Request_GPS_Name() { impl_->Request_GPS_Name(); }
void TrekcomCtl::Change_GPS_Name(const std::string&) { impl_->Change_GPS_Name(); }
std::shared_ptr<cDisplay> TrekcomCtl::Display() const { return impl_->Display; }
void TrekcomCtl::Display(std::shared_ptr<cDisplay> value) { impl_->Display = std::move(value); }
Screen_Turn TrekcomCtl::Display_Turn() const { return impl_->Display_Turn; }
void TrekcomCtl::Display_Turn(Screen_Turn turn) { impl_->Display_Turn = turn; }

}  // namespace trekcom
