// The simulated receiver on USB: a UsbDriver whose "hardware" is a Unit's USB
// side, so any host on any platform can talk to it as to a receiver on the
// cable, with the faults a real one has: not plugged in, no permission,
// blocks of any content, a session answer that never comes, a reset that
// fails, a receiver that vanishes mid-transfer. Plug_In makes it the
// platform's USB driver.
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "trekcom/platform.h"
#include "trekcom_sim/unit.h"

namespace trekcom::sim {

// The receiver at the end of the cable, shared by every driver made for it.
struct Usb_Receiver : Line {
    explicit Usb_Receiver(Platform& p, Profile profile = Profile::Named("current"));
    ~Usb_Receiver() override;

    // Line: the unit's clock is the platform's; its streams are woken by the
    // driver's reads (early wakes are harmless).
    double Now_ms() const override { return platform.Now_ms(); }
    void Send(const Bytes&, double) override {}
    void Wake_At(double) override {}
    void Cancel_Wake() override {}
    // The unit's hang-up on USB: the cable is pulled.
    void Hang_Up() override { present = false; }

    Platform& platform;
    Unit unit;
    bool present = true;             // plugged in and switched on
    bool deny_open = false;          // present, but this user may not open it
    bool reset_fails = false;
    int swallow_session_starts = 0;  // the next N Start Session requests get no answer
    int vanish_after_bulk_reads = -1;  // the receiver goes away after N bulk reads
    int slow_answers = 0;              // after each write, N interrupt reads find nothing yet
    int not_yet = 0;
    std::deque<Bytes> interrupt_blocks;  // read before anything the unit sends
    std::vector<Bytes> written;
    long searches = 0, resets = 0, interrupt_reads = 0, bulk_reads = 0;
};

// A receiver with this profile, plugged into the platform: from now on the
// platform's USB driver reaches it.
std::shared_ptr<Usb_Receiver> Plug_In(const std::shared_ptr<Platform>& platform,
                                      Profile profile = Profile::Named("current"));

}  // namespace trekcom::sim
