// The USB driver seam: the few things the USB transport (cUSB, cUSB.h) needs
// from the system to reach a Garmin receiver, and nothing more.
//
// The platform hands out drivers (Platform::Create_Usb_Driver): libusb-1.0 on
// Linux, the Garmin USB device driver on Windows, elsewhere a driver that
// fails every call with Usb_Status::not_supported. A host or a test may plug
// in its own (Platform::Usb_Driver_Handler), which is how the simulated
// receiver is reached in tests. Everything above this seam (packet layout,
// session start, block assembly, the device search and reset) is written
// once, in cUSB.
//
// The interface is public because a Platform, which hosts may implement,
// hands these out. Drivers are single-threaded like the rest of the control,
// and every call returns within its stated bound: none blocks indefinitely.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "trekcom/types.h"

namespace trekcom {

// What a driver call came to. Details of a failure (the system call, its
// native code and message) are kept for UsbDriver::Last_Error at the failure
// site, since the system's last-error state does not survive later calls.
enum class Usb_Status {
    ok,                  // done; a read may still have returned no bytes
    timed_out,           // nothing came within the bound; the request was cancelled
    not_found,           // no receiver at that index (unplugged or switched off)
    enumeration_failed,  // the system's list of devices could not be read
    no_device_list,      // the list came back unusable
    no_path,             // the receiver is listed but its path could not be read
    no_permission,       // the receiver is there but this user may not open it
    busy,                // another program or a kernel driver holds it
    open_failed,         // any other failure to open
    duplicate_failed,    // the interrupt reader could not get its own handles
    gone,                // the receiver went away while open
    io_error,            // a transfer failed
    not_open,            // the call needs an open device
    not_supported,       // this system has no USB driver
};

// A short English name, for traces ("not_found").
const char* to_string(Usb_Status status);

// Reads the interrupt pipe on handles of its own, so a read can be waited
// for and cancelled without touching the transport's bulk and write I/O.
// Made by UsbDriver::Open_Interrupt_Reader; the driver must outlive it.
class UsbInterruptReader {
public:
    virtual ~UsbInterruptReader() = default;
    // One asynchronous-data request (control code kIoctl_Async_In) for at most
    // kInterrupt_Block bytes. block is resized to the bytes returned. at_once
    // is true when the request completed without waiting (data was ready).
    // Waits at most timeout_ms, then cancels: timed_out with no bytes.
    virtual Usb_Status Read(Bytes& block, int timeout_ms, bool& at_once) = 0;
};

class UsbDriver {
public:
    // Control codes of the Garmin USB device driver.
    static constexpr std::uint32_t kIoctl_Api_Version = 0x222000;   // 4 bytes: the driver's version
    static constexpr std::uint32_t kIoctl_Async_In = 0x222140;      // one interrupt-in transfer
    static constexpr std::uint32_t kIoctl_Packet_Size = 0x222144;   // 4 bytes: the bulk pipe's packet size
    // Every control code is issued with an output buffer of this size, and
    // interrupt reads come in blocks of at most this size.
    static constexpr std::size_t kInterrupt_Block = 64;
    static constexpr int kInterrupt_Wait_ms = 80;
    static constexpr int kBulk_Wait_ms = 50;
    static constexpr std::uint16_t kGarmin_Vendor = 0x091E;

    virtual ~UsbDriver() = default;

    // Looks for the Garmin receiver with this 0-based index among those
    // present. ok: path names it for Open. not_found: none at that index.
    virtual Usb_Status Find(int index, std::string& path) = 0;
    // Opens the receiver Find named, for reading and writing.
    virtual Usb_Status Open(const std::string& path) = 0;
    virtual bool Is_Open() const = 0;
    // Cancels pending I/O and releases the receiver; harmless when closed.
    // The readers made by Open_Interrupt_Reader must be gone first.
    virtual void Close() = 0;
    // A fresh reader of the interrupt pipe of the open receiver (nullptr and
    // a status when that fails).
    virtual std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) = 0;

    // A control code other than kIoctl_Async_In (version, packet size):
    // out is resized to the bytes returned (at most kInterrupt_Block).
    virtual Usb_Status Io_Control(std::uint32_t code, Bytes& out) = 0;
    // One read of the bulk pipe: at most max bytes, waiting at most
    // timeout_ms. out is resized to the bytes read (none when nothing came).
    virtual Usb_Status Bulk_Read(Bytes& out, std::size_t max, int timeout_ms) = 0;
    // Writes one USB packet and waits for the write to complete.
    virtual Usb_Status Write(const Bytes& packet) = 0;
    // Restarts the receiver last found, after an error. The receiver must be
    // closed; it stays closed (Find and Open it again).
    virtual Usb_Status Reset() = 0;

    // "<call>: <system message> (<native code>)" of the last failure.
    virtual std::string Last_Error() const = 0;
    // The native code of the last failure (a system error code, a libusb
    // error number), 0 when there is none.
    virtual long Last_Error_Code() const = 0;
};

// A driver that finds nothing: every call fails with `why` (not_supported on
// systems without USB, not_found for a machine with no receiver).
std::unique_ptr<UsbDriver> Make_Null_Usb_Driver(Usb_Status why = Usb_Status::not_supported);

}  // namespace trekcom
