// TrekcomCtl's record objects and record uploads: forwarders to the engine,
// which keeps the records and encodes them.
#include "control.h"

namespace trekcom {

#define RECORD_OBJECT(Type, name)                                                        \
    std::shared_ptr<Type> TrekcomCtl::name() const { return impl_->engine.Shared().name; }\
    void TrekcomCtl::name(std::shared_ptr<Type> value) { impl_->engine.Shared().name = std::move(value); }

RECORD_OBJECT(cWaypoint, Waypoint)
RECORD_OBJECT(cRoute, Route)
RECORD_OBJECT(cTrack, Track)
RECORD_OBJECT(cAlmanac, Almanac)
RECORD_OBJECT(cLap, Lap)
RECORD_OBJECT(cFlightbook_Record, Flightbook_Record)

#undef RECORD_OBJECT

trekcom::Record_Sink* TrekcomCtl::Record_Sink() const { return impl_->engine.Shared().Sink; }
void TrekcomCtl::Record_Sink(trekcom::Record_Sink* sink) { impl_->engine.Shared().Sink = sink; }

void TrekcomCtl::Laps(std::shared_ptr<Collection<cLap>> value) { impl_->engine.Laps() = std::move(value); }
std::shared_ptr<Collection<cFlightbook_Record>> TrekcomCtl::Flightbook_Records() const {
    return impl_->engine.Flightbook_Records();
}
void TrekcomCtl::Flightbook_Records(std::shared_ptr<Collection<cFlightbook_Record>> value) {
    impl_->engine.Flightbook_Records() = std::move(value);
}

void TrekcomCtl::Send_Waypoint() { impl_->engine.Send_Waypoint(); }
void TrekcomCtl::Send_Prox_Waypoint() { impl_->engine.Send_Prox_Waypoint(); }
void TrekcomCtl::Send_Route_Waypoint() { impl_->engine.Send_Route_Waypoint(); }
void TrekcomCtl::Send_Route_Header() { impl_->engine.Send_Route_Header(); }
void TrekcomCtl::Send_Route_Link() { impl_->engine.Send_Route_Link(); }
void TrekcomCtl::Send_Track_Header() { impl_->engine.Send_Track_Header(); }
void TrekcomCtl::Send_Track() { impl_->engine.Send_Track(); }
bool TrekcomCtl::Track_Point_True_Size() const { return impl_->engine.Shared().Track_Point_True_Size; }
void TrekcomCtl::Track_Point_True_Size(bool on) { impl_->engine.Shared().Track_Point_True_Size = on; }
bool TrekcomCtl::Auto_Baud_Rate() const { return impl_->engine.Shared().Auto_Baud_Rate; }
void TrekcomCtl::Auto_Baud_Rate(bool on) { impl_->engine.Shared().Auto_Baud_Rate = on; }
void TrekcomCtl::Send_Almanac_Data() { impl_->engine.Send_Almanac_Data(); }
void TrekcomCtl::Send_Lap() { impl_->engine.Send_Lap(); }
void TrekcomCtl::Send_Flightbook_Record() { impl_->engine.Send_Flightbook_Record(); }
void TrekcomCtl::Request_Almanac_Data() { impl_->engine.Request_Almanac_Data(); }

}  // namespace trekcom
