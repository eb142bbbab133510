#include "trekcom_sim/usb_device.h"

#include <optional>
#include <utility>

#include "trekcom/usb_driver.h"

namespace trekcom::sim {

namespace {

constexpr const char* kPath = "sim:0";

// The unit's clock is the platform's; it is woken by each read, so it needs
// no timers of its own.
struct Clock final : Line {
    explicit Clock(Platform& p) : platform(p) {}
    double Now_ms() const override { return platform.Now_ms(); }
    void Send(const Bytes&, double) override {}
    void Wake_At(double) override {}
    void Cancel_Wake() override {}
    Platform& platform;
};

struct Receiver {
    Receiver(Platform& platform, Profile profile, Data_Set data)
        : clock(platform), unit(std::make_shared<Unit>(std::move(profile), std::move(data))) {
        unit->Connect(&clock);
    }
    ~Receiver() { unit->Connect(nullptr); }
    Clock clock;
    std::shared_ptr<Unit> unit;
};

// What a read of either pipe gives: a transfer, or a time-out when nothing waits.
Usb_Status Take(std::optional<Bytes> transfer, Bytes& out) {
    out = transfer ? std::move(*transfer) : Bytes{};
    return transfer ? Usb_Status::ok : Usb_Status::timed_out;
}

class Driver final : public UsbDriver {
public:
    explicit Driver(std::shared_ptr<Receiver> r) : r_(std::move(r)) {}

    Usb_Status Find(int index, std::string& path) override {
        if (index != 0) return Usb_Status::not_found;
        path = kPath;
        return Usb_Status::ok;
    }
    Usb_Status Open(const std::string& path) override {
        open_ = path == kPath;
        return open_ ? Usb_Status::ok : Usb_Status::open_failed;
    }
    bool Is_Open() const override { return open_; }
    void Close() override { open_ = false; }
    std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) override {
        status = open_ ? Usb_Status::ok : Usb_Status::not_open;
        return open_ ? std::make_unique<Reader>(r_) : nullptr;
    }
    Usb_Status Io_Control(std::uint32_t code, Bytes& out) override {
        out = code == kIoctl_Packet_Size ? Bytes{64, 0, 0, 0} : Bytes{2, 0, 1, 0};
        return open_ ? Usb_Status::ok : Usb_Status::not_open;
    }
    Usb_Status Bulk_Read(Bytes& out, std::size_t max, int) override {
        if (!open_) return Usb_Status::not_open;
        r_->unit->Wake();
        return Take(r_->unit->Usb_Bulk_Transfer(max), out);
    }
    Usb_Status Write(const Bytes& packet) override {
        if (!open_) return Usb_Status::not_open;
        r_->unit->Usb_Host_Wrote(packet);
        return Usb_Status::ok;
    }
    Usb_Status Reset() override { return Usb_Status::ok; }
    std::string Last_Error() const override { return "simulated receiver"; }
    long Last_Error_Code() const override { return 0; }

private:
    struct Reader final : UsbInterruptReader {
        explicit Reader(std::shared_ptr<Receiver> r) : r(std::move(r)) {}
        Usb_Status Read(Bytes& block, int, bool& at_once) override {
            r->unit->Wake();
            const Usb_Status status = Take(r->unit->Usb_Interrupt_Transfer(kInterrupt_Block), block);
            at_once = status == Usb_Status::ok;
            return status;
        }
        std::shared_ptr<Receiver> r;
    };

    std::shared_ptr<Receiver> r_;
    bool open_ = false;
};

}  // namespace

std::shared_ptr<Unit> Plug_In_Usb(Platform& platform, Profile profile, Data_Set data) {
    auto receiver = std::make_shared<Receiver>(platform, std::move(profile), std::move(data));
    platform.Usb_Driver_Handler([receiver] { return std::make_unique<Driver>(receiver); });
    return receiver->unit;
}

}  // namespace trekcom::sim
