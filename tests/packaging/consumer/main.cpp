// Uses only the umbrella header: a fresh control reports its defaults.
#include <trekcom/trekcom.h>

int main() {
    trekcom::TrekcomCtl ctl(std::make_shared<trekcom::VirtualPlatform>());
    return ctl.Time_Out() == 2000 && ctl.Settings() == "9600,N,8,1" ? 0 : 1;
}
