// What every platform shares about USB drivers: the handler a host may plug
// in, the names of the statuses, and the null driver.
#include "trekcom/platform.h"
#include "trekcom/usb_driver.h"

namespace trekcom {

const char* to_string(Usb_Status status) {
    switch (status) {
        case Usb_Status::ok: return "ok";
        case Usb_Status::timed_out: return "timed_out";
        case Usb_Status::not_found: return "not_found";
        case Usb_Status::enumeration_failed: return "enumeration_failed";
        case Usb_Status::no_device_list: return "no_device_list";
        case Usb_Status::no_path: return "no_path";
        case Usb_Status::no_permission: return "no_permission";
        case Usb_Status::busy: return "busy";
        case Usb_Status::open_failed: return "open_failed";
        case Usb_Status::duplicate_failed: return "duplicate_failed";
        case Usb_Status::gone: return "gone";
        case Usb_Status::io_error: return "io_error";
        case Usb_Status::not_open: return "not_open";
        case Usb_Status::not_supported: return "not_supported";
    }
    return "unknown";
}

namespace {

// Finds nothing, opens nothing: the library builds and fails cleanly where
// no USB driver applies.
class Null_Usb_Driver final : public UsbDriver {
public:
    explicit Null_Usb_Driver(Usb_Status why) : why_(why) {}

    Usb_Status Find(int, std::string& path) override {
        path.clear();
        return why_;
    }
    Usb_Status Open(const std::string&) override { return why_; }
    bool Is_Open() const override { return false; }
    void Close() override {}
    std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) override {
        status = Usb_Status::not_open;
        return nullptr;
    }
    Usb_Status Io_Control(std::uint32_t, Bytes& out) override {
        out.clear();
        return Usb_Status::not_open;
    }
    Usb_Status Bulk_Read(Bytes& out, std::size_t, int) override {
        out.clear();
        return Usb_Status::not_open;
    }
    Usb_Status Write(const Bytes&) override { return Usb_Status::not_open; }
    Usb_Status Reset() override { return why_; }
    std::string Last_Error() const override {
        return why_ == Usb_Status::not_supported ? "USB is not supported on this system" : "no USB receiver";
    }
    long Last_Error_Code() const override { return 0; }

private:
    Usb_Status why_;
};

// Another driver, whose receivers from `first` on are counted from 0: the
// transport looks for the first receiver, and this makes that the chosen one.
class Shifted_Usb_Driver final : public UsbDriver {
public:
    Shifted_Usb_Driver(std::unique_ptr<UsbDriver> inner, int first) : inner_(std::move(inner)), first_(first) {}

    Usb_Status Find(int index, std::string& path) override { return inner_->Find(first_ + index, path); }
    Usb_Status Open(const std::string& path) override { return inner_->Open(path); }
    bool Is_Open() const override { return inner_->Is_Open(); }
    void Close() override { inner_->Close(); }
    std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) override {
        return inner_->Open_Interrupt_Reader(status);
    }
    Usb_Status Io_Control(std::uint32_t code, Bytes& out) override { return inner_->Io_Control(code, out); }
    Usb_Status Bulk_Read(Bytes& out, std::size_t max, int timeout_ms) override {
        return inner_->Bulk_Read(out, max, timeout_ms);
    }
    Usb_Status Write(const Bytes& packet) override { return inner_->Write(packet); }
    Usb_Status Reset() override { return inner_->Reset(); }
    std::string Last_Error() const override { return inner_->Last_Error(); }
    long Last_Error_Code() const override { return inner_->Last_Error_Code(); }

private:
    std::unique_ptr<UsbDriver> inner_;
    int first_;
};

}  // namespace

std::unique_ptr<UsbDriver> Make_Null_Usb_Driver(Usb_Status why) { return std::make_unique<Null_Usb_Driver>(why); }

std::unique_ptr<UsbDriver> Platform::Create_Usb_Driver() {
    std::unique_ptr<UsbDriver> driver;
    if (usb_driver_factory_) driver = usb_driver_factory_();
    if (!driver) driver = System_Usb_Driver();
    if (!driver) driver = Make_Null_Usb_Driver();
    if (usb_device_ > 0) driver = std::make_unique<Shifted_Usb_Driver>(std::move(driver), usb_device_);
    return driver;
}

void Platform::Usb_Driver_Handler(std::function<std::unique_ptr<UsbDriver>()> factory) {
    usb_driver_factory_ = std::move(factory);
}

std::unique_ptr<UsbDriver> Platform::System_Usb_Driver() { return Make_Null_Usb_Driver(); }

}  // namespace trekcom
