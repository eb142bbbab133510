// TrekcomCtl's real-time methods and records: forwarders to the control's
// real-time part.
#include "control.h"

namespace trekcom {

void TrekcomCtl::Request_Date_Time() { impl_->realtime.Request_Date_Time(); }
void TrekcomCtl::Request_Position_Data() { impl_->realtime.Request_Position_Data(); }
void TrekcomCtl::Request_Voltages() { impl_->realtime.Request_Voltages(); }
void TrekcomCtl::Send_Position_Data() { impl_->realtime.Send_Position_Data(); }
void TrekcomCtl::Power_Off() { impl_->realtime.Power_Off(); }
void TrekcomCtl::Pvt_Data_Start() { impl_->realtime.Pvt_Data_Start(); }
void TrekcomCtl::Pvt_Data_Stop() { impl_->realtime.Pvt_Data_Stop(); }
void TrekcomCtl::Async_Start() { impl_->realtime.Async_Start(); }
void TrekcomCtl::Async_Stop() { impl_->realtime.Async_Stop(); }

// Record properties: a getter and a setter of the shared record.
#define RECORD(Type, name)                                                  \
    std::shared_ptr<Type> TrekcomCtl::name() const { return impl_->realtime.name; } \
    void TrekcomCtl::name(std::shared_ptr<Type> value) { impl_->realtime.name = std::move(value); }

RECORD(cDate_Time, Date_Time)
RECORD(cPosition, Position)
RECORD(cPvtData, PvtData)
RECORD(cSat, sat)
RECORD(Collection<cSat>, Sats)
RECORD(cVoltages, Voltages)

#undef RECORD

}  // namespace trekcom
