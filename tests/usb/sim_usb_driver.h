// A USB driver whose "hardware" is the simulated receiver's USB side, with
// the faults a real receiver has: not plugged in, blocks of any content,
// a session answer that never comes, a receiver that vanishes mid-transfer.
// Plugged into a platform with Platform::Usb_Driver_Handler.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "trekcom/platform.h"
#include "trekcom/usb_driver.h"
#include "trekcom_sim/unit.h"

namespace trekcom::testing {

// The receiver at the end of the cable, shared by every driver made for it.
struct Sim_Usb_Receiver : sim::Line {
    explicit Sim_Usb_Receiver(Platform& p, sim::Profile profile = sim::Profile::Named("current"))
        : platform(p), unit(std::move(profile)) {
        unit.Connect(this);
    }
    ~Sim_Usb_Receiver() override { unit.Connect(nullptr); }

    // sim::Line: the unit's clock is the platform's; its streams are woken
    // by the driver's reads (early wakes are harmless).
    double Now_ms() const override { return platform.Now_ms(); }
    void Send(const Bytes&, double) override {}
    void Wake_At(double) override {}
    void Cancel_Wake() override {}
    // The unit's hang-up on USB: the cable is pulled.
    void Hang_Up() override { present = false; }

    Platform& platform;
    sim::Unit unit;
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

class Sim_Usb_Driver final : public UsbDriver {
public:
    explicit Sim_Usb_Driver(std::shared_ptr<Sim_Usb_Receiver> r) : r_(std::move(r)) {}

    Usb_Status Find(int index, std::string& path) override {
        ++r_->searches;
        if (!r_->present || index != 0) return Usb_Status::not_found;
        path = "sim:0";
        return Usb_Status::ok;
    }
    Usb_Status Open(const std::string& path) override {
        if (path != "sim:0" || !r_->present) return Usb_Status::open_failed;
        if (r_->deny_open) return Usb_Status::no_permission;
        open_ = true;
        return Usb_Status::ok;
    }
    bool Is_Open() const override { return open_; }
    void Close() override { open_ = false; }

    std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) override {
        status = open_ ? Usb_Status::ok : Usb_Status::not_open;
        return open_ ? std::make_unique<Reader>(*this) : nullptr;
    }
    Usb_Status Io_Control(std::uint32_t code, Bytes& out) override {
        out = code == kIoctl_Packet_Size ? Bytes{64, 0, 0, 0} : Bytes{2, 0, 1, 0};
        return open_ ? Usb_Status::ok : Usb_Status::not_open;
    }
    Usb_Status Bulk_Read(Bytes& out, std::size_t max, int) override {
        out.clear();
        if (Lost()) return Usb_Status::gone;
        ++r_->bulk_reads;
        if (r_->vanish_after_bulk_reads >= 0 && r_->bulk_reads > r_->vanish_after_bulk_reads) {
            r_->present = false;
            return Usb_Status::gone;
        }
        r_->unit.Wake();
        std::optional<Bytes> transfer = r_->unit.Usb_Bulk_Transfer(max);
        if (!transfer) return Lost() ? Usb_Status::gone : Usb_Status::timed_out;
        out = std::move(*transfer);  // empty: a zero-length packet
        return Usb_Status::ok;
    }
    Usb_Status Write(const Bytes& packet) override {
        if (Lost()) return Usb_Status::gone;
        r_->written.push_back(packet);
        r_->not_yet = r_->slow_answers;
        const bool session_start = packet.size() >= 12 && packet[0] == 0 && packet[4] == 5;
        if (session_start && r_->swallow_session_starts > 0) {
            --r_->swallow_session_starts;
            return Usb_Status::ok;
        }
        r_->unit.Usb_Host_Wrote(packet);
        return Usb_Status::ok;
    }
    Usb_Status Reset() override {
        ++r_->resets;
        return r_->reset_fails ? Usb_Status::io_error : Usb_Status::ok;
    }
    std::string Last_Error() const override { return "simulated receiver"; }
    long Last_Error_Code() const override { return 0; }

private:
    struct Reader final : UsbInterruptReader {
        explicit Reader(Sim_Usb_Driver& d) : driver(d) {}
        Usb_Status Read(Bytes& block, int, bool& at_once) override {
            at_once = false;
            block.clear();
            if (driver.Lost()) return Usb_Status::gone;
            Sim_Usb_Receiver& r = *driver.r_;
            ++r.interrupt_reads;
            if (r.not_yet > 0) {
                --r.not_yet;
                return Usb_Status::timed_out;
            }
            if (!r.interrupt_blocks.empty()) {
                block = std::move(r.interrupt_blocks.front());
                r.interrupt_blocks.pop_front();
            } else {
                r.unit.Wake();
                std::optional<Bytes> transfer = r.unit.Usb_Interrupt_Transfer(kInterrupt_Block);
                if (!transfer) return driver.Lost() ? Usb_Status::gone : Usb_Status::timed_out;
                block = std::move(*transfer);  // empty: a zero-length packet
                at_once = true;
                return Usb_Status::ok;
            }
            at_once = !block.empty();
            return block.empty() ? Usb_Status::timed_out : Usb_Status::ok;
        }
        Sim_Usb_Driver& driver;
    };
    bool Lost() {
        if (!r_->present) open_ = false;
        return !open_;
    }

    std::shared_ptr<Sim_Usb_Receiver> r_;
    bool open_ = false;
};

inline std::shared_ptr<Sim_Usb_Receiver> Plug_In(const std::shared_ptr<Platform>& platform,
                                                 sim::Profile profile = sim::Profile::Named("current")) {
    auto receiver = std::make_shared<Sim_Usb_Receiver>(*platform, std::move(profile));
    platform->Usb_Driver_Handler([receiver] { return std::make_unique<Sim_Usb_Driver>(receiver); });
    return receiver;
}

}  // namespace trekcom::testing
