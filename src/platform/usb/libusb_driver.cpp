// The USB driver on Linux (and other systems libusb-1.0 serves): a Garmin
// receiver is a vendor-specific interface with three endpoints, interrupt
// in, bulk in and bulk out. What the Windows driver does in its kernel part
// is done here: the interrupt transfer stands for the asynchronous-data
// control code, and the two query codes are answered from the descriptors.
//
// Linux's own garmin_gps driver (a USB serial driver) claims the receiver
// when it is loaded; it is detached while the receiver is open and given
// back when it is closed. Opening needs write access to the receiver's
// /dev/bus/usb node: without it the status is no_permission, which the
// transport turns into a message that points at the udev rule (docs/usb.md).
#include <libusb.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "system_usb_driver.h"

namespace trekcom::platform {
namespace {

constexpr int kWrite_Wait_ms = 2000;  // a receiver takes a packet well within this

// A Garmin interface: vendor class, with the three endpoints the protocol uses.
struct Endpoints {
    int interface_number = -1;
    std::uint8_t interrupt_in = 0;
    std::uint8_t bulk_in = 0;
    std::uint8_t bulk_out = 0;
    std::uint16_t bulk_out_size = 64;
    bool Complete() const { return interface_number >= 0 && interrupt_in && bulk_in && bulk_out; }
};

Endpoints Find_Endpoints(libusb_device* device) {
    Endpoints found;
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_active_config_descriptor(device, &config) != 0 &&
        libusb_get_config_descriptor(device, 0, &config) != 0)
        return found;
    for (int i = 0; i < config->bNumInterfaces && !found.Complete(); ++i) {
        const libusb_interface& interface = config->interface[i];
        for (int a = 0; a < interface.num_altsetting && !found.Complete(); ++a) {
            const libusb_interface_descriptor& alt = interface.altsetting[a];
            if (alt.bInterfaceClass != LIBUSB_CLASS_VENDOR_SPEC) continue;
            Endpoints e;
            e.interface_number = alt.bInterfaceNumber;
            for (int k = 0; k < alt.bNumEndpoints; ++k) {
                const libusb_endpoint_descriptor& ep = alt.endpoint[k];
                const int kind = ep.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
                const bool in = (ep.bEndpointAddress & LIBUSB_ENDPOINT_DIR_MASK) == LIBUSB_ENDPOINT_IN;
                if (kind == LIBUSB_TRANSFER_TYPE_INTERRUPT && in) {
                    e.interrupt_in = ep.bEndpointAddress;
                } else if (kind == LIBUSB_TRANSFER_TYPE_BULK && in) {
                    e.bulk_in = ep.bEndpointAddress;
                } else if (kind == LIBUSB_TRANSFER_TYPE_BULK) {
                    e.bulk_out = ep.bEndpointAddress;
                    if (ep.wMaxPacketSize) e.bulk_out_size = ep.wMaxPacketSize;
                }
            }
            if (e.Complete()) found = e;
        }
    }
    libusb_free_config_descriptor(config);
    return found;
}

std::string Path_Of(libusb_device* device) {
    char text[32];
    std::snprintf(text, sizeof text, "usb:%03u:%03u", static_cast<unsigned>(libusb_get_bus_number(device)),
                  static_cast<unsigned>(libusb_get_device_address(device)));
    return text;
}

Usb_Status Status_Of(int rc) {
    switch (rc) {
        case LIBUSB_SUCCESS: return Usb_Status::ok;
        case LIBUSB_ERROR_TIMEOUT: return Usb_Status::timed_out;
        case LIBUSB_ERROR_NO_DEVICE: return Usb_Status::gone;
        case LIBUSB_ERROR_NOT_FOUND: return Usb_Status::not_found;
        case LIBUSB_ERROR_ACCESS: return Usb_Status::no_permission;
        case LIBUSB_ERROR_BUSY: return Usb_Status::busy;
        case LIBUSB_ERROR_NOT_SUPPORTED: return Usb_Status::not_supported;
        default: return Usb_Status::io_error;
    }
}

class Libusb_Driver;

class Libusb_Reader final : public UsbInterruptReader {
public:
    explicit Libusb_Reader(Libusb_Driver& driver) : driver_(driver) {}
    Usb_Status Read(Bytes& block, int timeout_ms, bool& at_once) override;

private:
    Libusb_Driver& driver_;
};

class Libusb_Driver final : public UsbDriver {
public:
    Libusb_Driver() {
        const int rc = libusb_init(&context_);
        if (rc != 0) {
            context_ = nullptr;
            Fail("libusb_init", rc);
        }
    }
    ~Libusb_Driver() override {
        Close();
        Forget_Found();
        if (context_) libusb_exit(context_);
    }

    Usb_Status Find(int index, std::string& path) override {
        path.clear();
        if (!context_) return Usb_Status::enumeration_failed;
        Forget_Found();
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context_, &list);
        if (count < 0) return Fail("libusb_get_device_list", static_cast<int>(count), Usb_Status::enumeration_failed);
        int seen = 0;
        for (ssize_t i = 0; i < count && !found_; ++i) {
            libusb_device_descriptor descriptor{};
            if (libusb_get_device_descriptor(list[i], &descriptor) != 0) continue;
            if (descriptor.idVendor != kGarmin_Vendor) continue;
            // Garmin also makes mass-storage units and other gadgets: only a
            // unit with the protocol's interface counts.
            const Endpoints e = Find_Endpoints(list[i]);
            if (!e.Complete()) continue;
            if (seen++ != index) continue;
            found_ = libusb_ref_device(list[i]);
            found_endpoints_ = e;
            path = Path_Of(found_);
        }
        libusb_free_device_list(list, 1);
        return found_ ? Usb_Status::ok : Usb_Status::not_found;
    }

    Usb_Status Open(const std::string& path) override {
        Close();
        if (!found_ || Path_Of(found_) != path) return Fail("open " + path, LIBUSB_ERROR_NOT_FOUND);
        int rc = libusb_open(found_, &handle_);
        if (rc != 0) {
            handle_ = nullptr;
            return Fail("libusb_open " + path, rc);
        }
        ep_ = found_endpoints_;
        // garmin_gps (or any other kernel driver) lets go while we use the unit.
        if (libusb_kernel_driver_active(handle_, ep_.interface_number) == 1) {
            rc = libusb_detach_kernel_driver(handle_, ep_.interface_number);
            if (rc != 0) return Close_After("libusb_detach_kernel_driver " + path, rc);
            detached_ = true;
        }
        rc = libusb_claim_interface(handle_, ep_.interface_number);
        if (rc != 0) return Close_After("libusb_claim_interface " + path, rc);
        claimed_ = true;
        return Usb_Status::ok;
    }

    bool Is_Open() const override { return handle_ != nullptr; }

    void Close() override {
        if (!handle_) return;
        if (claimed_) libusb_release_interface(handle_, ep_.interface_number);
        if (detached_) libusb_attach_kernel_driver(handle_, ep_.interface_number);
        libusb_close(handle_);
        handle_ = nullptr;
        claimed_ = detached_ = false;
    }

    std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) override {
        // libusb handles need no duplicating: the reader borrows the driver's.
        status = handle_ ? Usb_Status::ok : Usb_Status::not_open;
        return handle_ ? std::make_unique<Libusb_Reader>(*this) : nullptr;
    }

    Usb_Status Io_Control(std::uint32_t code, Bytes& out) override {
        out.clear();
        if (!handle_) return Usb_Status::not_open;
        std::uint32_t value = 0;
        if (code == kIoctl_Api_Version) {
            const libusb_version* v = libusb_get_version();
            value = (static_cast<std::uint32_t>(v->major) << 16) | v->minor;
        } else if (code == kIoctl_Packet_Size) {
            value = ep_.bulk_out_size;
        } else {
            return Fail("Io_Control", LIBUSB_ERROR_NOT_SUPPORTED);
        }
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        return Usb_Status::ok;
    }

    Usb_Status Transfer_In(bool interrupt, Bytes& out, std::size_t max, int timeout_ms) {
        out.assign(max, 0);
        if (!handle_) {
            out.clear();
            return Usb_Status::not_open;
        }
        int got = 0;
        const int length = static_cast<int>(std::min<std::size_t>(max, 1u << 20));
        const int rc = interrupt
                           ? libusb_interrupt_transfer(handle_, ep_.interrupt_in, out.data(), length, &got, timeout_ms)
                           : libusb_bulk_transfer(handle_, ep_.bulk_in, out.data(), length, &got, timeout_ms);
        out.resize(got > 0 ? static_cast<std::size_t>(std::min(got, length)) : 0);
        if (rc == 0 || (rc == LIBUSB_ERROR_TIMEOUT && !out.empty())) return Usb_Status::ok;
        if (rc == LIBUSB_ERROR_TIMEOUT) return Usb_Status::timed_out;
        return Fail(interrupt ? "libusb_interrupt_transfer" : "libusb_bulk_transfer", rc);
    }

    Usb_Status Bulk_Read(Bytes& out, std::size_t max, int timeout_ms) override {
        return Transfer_In(false, out, max, timeout_ms);
    }

    Usb_Status Write(const Bytes& packet) override {
        if (!handle_) return Usb_Status::not_open;
        Bytes copy = packet;  // libusb wants a mutable buffer
        int sent = 0;
        int rc = libusb_bulk_transfer(handle_, ep_.bulk_out, copy.data(), static_cast<int>(copy.size()), &sent,
                                      kWrite_Wait_ms);
        if (rc != 0) return Fail("libusb_bulk_transfer (write)", rc);
        // A write that fills its last USB packet exactly is ended by an empty
        // one, or the receiver waits for more.
        if (ep_.bulk_out_size && copy.size() % ep_.bulk_out_size == 0) {
            rc = libusb_bulk_transfer(handle_, ep_.bulk_out, copy.data(), 0, &sent, kWrite_Wait_ms);
            if (rc != 0) return Fail("libusb_bulk_transfer (end of write)", rc);
        }
        return Usb_Status::ok;
    }

    Usb_Status Reset() override {
        if (!found_) return Fail("reset", LIBUSB_ERROR_NOT_FOUND);
        libusb_device_handle* handle = nullptr;
        int rc = libusb_open(found_, &handle);
        if (rc != 0) return Fail("libusb_open (reset)", rc);
        rc = libusb_reset_device(handle);
        libusb_close(handle);
        // A unit that comes back under a new address is found again by Open's search.
        if (rc != 0 && rc != LIBUSB_ERROR_NOT_FOUND) return Fail("libusb_reset_device", rc);
        return Usb_Status::ok;
    }

    std::string Last_Error() const override { return last_error_; }
    long Last_Error_Code() const override { return last_code_; }

private:
    friend class Libusb_Reader;

    Usb_Status Fail(const std::string& call, int rc, Usb_Status status) {
        last_code_ = rc;
        last_error_ = call + ": " + libusb_strerror(static_cast<libusb_error>(rc)) + " (" + std::to_string(rc) + ")";
        return status;
    }
    Usb_Status Fail(const std::string& call, int rc) { return Fail(call, rc, Status_Of(rc)); }
    Usb_Status Close_After(const std::string& call, int rc) {
        const Usb_Status status = Fail(call, rc);
        Close();
        return status;
    }
    void Forget_Found() {
        if (found_) libusb_unref_device(found_);
        found_ = nullptr;
    }

    libusb_context* context_ = nullptr;
    libusb_device* found_ = nullptr;
    Endpoints found_endpoints_;
    libusb_device_handle* handle_ = nullptr;
    Endpoints ep_;
    bool claimed_ = false;
    bool detached_ = false;
    std::string last_error_;
    long last_code_ = 0;
};

Usb_Status Libusb_Reader::Read(Bytes& block, int timeout_ms, bool& at_once) {
    // libusb cannot tell a transfer that was ready from one it waited for.
    at_once = false;
    return driver_.Transfer_In(true, block, UsbDriver::kInterrupt_Block, timeout_ms);
}

}  // namespace

std::unique_ptr<UsbDriver> Make_Libusb_Driver() { return std::make_unique<Libusb_Driver>(); }

#ifndef _WIN32
std::unique_ptr<UsbDriver> Make_System_Usb_Driver() { return Make_Libusb_Driver(); }
#endif

}  // namespace trekcom::platform
