#include "trekcom_sim/usb.h"

#include <optional>
#include <string>

#include "trekcom/usb_driver.h"

namespace trekcom::sim {

Usb_Receiver::Usb_Receiver(Platform& p, Profile profile) : platform(p), unit(std::move(profile)) {
    unit.Connect(this);
}

Usb_Receiver::~Usb_Receiver() { unit.Connect(nullptr); }

namespace {

class Receiver_Driver final : public UsbDriver {
public:
    explicit Receiver_Driver(std::shared_ptr<Usb_Receiver> r) : r_(std::move(r)) {}

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
        explicit Reader(Receiver_Driver& d) : driver(d) {}
        Usb_Status Read(Bytes& block, int, bool& at_once) override {
            at_once = false;
            block.clear();
            if (driver.Lost()) return Usb_Status::gone;
            Usb_Receiver& r = *driver.r_;
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
        Receiver_Driver& driver;
    };
    bool Lost() {
        if (!r_->present) open_ = false;
        return !open_;
    }

    std::shared_ptr<Usb_Receiver> r_;
    bool open_ = false;
};

}  // namespace

std::shared_ptr<Usb_Receiver> Plug_In(const std::shared_ptr<Platform>& platform, Profile profile) {
    auto receiver = std::make_shared<Usb_Receiver>(*platform, std::move(profile));
    platform->Usb_Driver_Handler([receiver] { return std::make_unique<Receiver_Driver>(receiver); });
    return receiver;
}

}  // namespace trekcom::sim
