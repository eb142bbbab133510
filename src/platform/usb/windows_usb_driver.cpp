// The USB driver on Windows: the Garmin USB device driver, reached through
// the setup interface (the receiver is found by its device interface class)
// and overlapped device I/O on the path that interface gives.
//
// Reads never block for long: each overlapped request is waited for on an
// event with a bound (80 ms for the interrupt pipe, 50 ms for the bulk pipe)
// and cancelled when the bound passes. The interrupt reader works on
// duplicates of the device handle and the event, so cancelling its request
// does not disturb the transport's own I/O.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#include <setupapi.h>

#include <algorithm>
#include <string>
#include <vector>

#include "system_usb_driver.h"

namespace trekcom::platform {
namespace {

// The Garmin USB device interface class.
const GUID kGarmin_Interface = {0x2C9C45C2, 0x8E7D, 0x4C08, {0xA1, 0x2D, 0x81, 0x6B, 0xBA, 0xE7, 0x22, 0xC0}};

constexpr DWORD kWrite_Wait_ms = 2000;

std::string System_Message(DWORD code) {
    char* text = nullptr;
    const DWORD n = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                       FORMAT_MESSAGE_IGNORE_INSERTS,
                                   nullptr, code, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string message = n && text ? std::string(text, n) : "error";
    if (text) LocalFree(text);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r' || message.back() == ' '))
        message.pop_back();
    return message;
}

// One handle, closed when it goes.
class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE h) : h_(h) {}
    ~Handle() { Reset(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle(Handle&& other) noexcept : h_(other.h_) { other.h_ = nullptr; }
    Handle& operator=(Handle&& other) noexcept {
        if (this != &other) {
            Reset();
            h_ = other.h_;
            other.h_ = nullptr;
        }
        return *this;
    }
    HANDLE Get() const { return h_; }
    bool Valid() const { return h_ && h_ != INVALID_HANDLE_VALUE; }
    void Reset(HANDLE h = nullptr) {
        if (Valid()) CloseHandle(h_);
        h_ = h;
    }

private:
    HANDLE h_ = nullptr;
};

// The error kept at the failure site: the call, the system's code and text.
struct Error_Note {
    std::string text;
    long code = 0;
    Usb_Status Fail(const char* call, DWORD error, Usb_Status status) {
        code = static_cast<long>(error);
        text = std::string(call) + ": " + System_Message(error) + " (" + std::to_string(error) + ")";
        return status;
    }
};

Usb_Status Status_Of(DWORD error, Usb_Status otherwise) {
    switch (error) {
        case ERROR_DEVICE_NOT_CONNECTED:
        case ERROR_GEN_FAILURE:
        case ERROR_BAD_COMMAND:
        case ERROR_FILE_NOT_FOUND:
        case ERROR_INVALID_HANDLE: return Usb_Status::gone;
        case ERROR_ACCESS_DENIED: return Usb_Status::no_permission;
        case ERROR_SHARING_VIOLATION: return Usb_Status::busy;
        default: return otherwise;
    }
}

// Issues one overlapped request (started by `start`) and waits for it at
// most wait_ms on the record's event; a request still pending then is
// cancelled and counts as empty. at_once: it completed without pending.
Usb_Status Overlapped_Request(HANDLE device, OVERLAPPED& ov, DWORD wait_ms, DWORD& bytes, bool& at_once,
                              Error_Note& note, const char* call, BOOL (*start)(HANDLE, OVERLAPPED&, void*),
                              void* context) {
    bytes = 0;
    at_once = false;
    ResetEvent(ov.hEvent);
    if (start(device, ov, context)) {
        at_once = true;
        GetOverlappedResult(device, &ov, &bytes, TRUE);
        return Usb_Status::ok;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_IO_PENDING) return note.Fail(call, error, Status_Of(error, Usb_Status::io_error));
    if (WaitForSingleObject(ov.hEvent, wait_ms) != WAIT_OBJECT_0) {
        CancelIo(device);
        // Collect the cancelled request so the buffer is no longer in use.
        GetOverlappedResult(device, &ov, &bytes, TRUE);
        bytes = 0;
        return Usb_Status::timed_out;
    }
    if (!GetOverlappedResult(device, &ov, &bytes, FALSE)) {
        const DWORD e = GetLastError();
        if (e == ERROR_OPERATION_ABORTED) return Usb_Status::timed_out;
        return note.Fail(call, e, Status_Of(e, Usb_Status::io_error));
    }
    return Usb_Status::ok;
}

struct Ioctl_Request {
    DWORD code;
    std::uint8_t* out;
    DWORD size;
};

BOOL Start_Ioctl(HANDLE device, OVERLAPPED& ov, void* context) {
    auto* r = static_cast<Ioctl_Request*>(context);
    return DeviceIoControl(device, r->code, nullptr, 0, r->out, r->size, nullptr, &ov);
}

struct Read_Request {
    std::uint8_t* out;
    DWORD size;
};

BOOL Start_Read(HANDLE device, OVERLAPPED& ov, void* context) {
    auto* r = static_cast<Read_Request*>(context);
    return ReadFile(device, r->out, r->size, nullptr, &ov);
}

class Windows_Reader final : public UsbInterruptReader {
public:
    Windows_Reader(Handle device, Handle event) : device_(std::move(device)), event_(std::move(event)) {
        ov_.hEvent = event_.Get();
    }
    ~Windows_Reader() override {
        if (device_.Valid()) CancelIo(device_.Get());
    }

    Usb_Status Read(Bytes& block, int timeout_ms, bool& at_once) override {
        block.assign(UsbDriver::kInterrupt_Block, 0);
        Ioctl_Request request{UsbDriver::kIoctl_Async_In, block.data(), static_cast<DWORD>(block.size())};
        DWORD bytes = 0;
        Error_Note note;
        const Usb_Status status = Overlapped_Request(device_.Get(), ov_, static_cast<DWORD>(timeout_ms), bytes,
                                                     at_once, note, "DeviceIoControl", Start_Ioctl, &request);
        block.resize(status == Usb_Status::ok ? std::min<DWORD>(bytes, UsbDriver::kInterrupt_Block) : 0);
        return status;
    }

private:
    Handle device_;
    Handle event_;
    OVERLAPPED ov_{};
};

class Windows_Usb_Driver final : public UsbDriver {
public:
    ~Windows_Usb_Driver() override {
        Close();
        Destroy_Set();
    }

    Usb_Status Find(int index, std::string& path) override {
        path.clear();
        Destroy_Set();
        SetLastError(0);
        HDEVINFO set = SetupDiGetClassDevsA(&kGarmin_Interface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
        const DWORD error = GetLastError();
        if (error != 0 && error != ERROR_IO_PENDING) {
            if (set != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(set);
            return note_.Fail("SetupDiGetClassDevsA", error, Usb_Status::enumeration_failed);
        }
        if (set == INVALID_HANDLE_VALUE) return note_.Fail("SetupDiGetClassDevsA", error, Usb_Status::no_device_list);
        set_ = set;

        SP_DEVICE_INTERFACE_DATA interface{};
        interface.cbSize = sizeof interface;
        if (!SetupDiEnumDeviceInterfaces(set_, nullptr, &kGarmin_Interface, static_cast<DWORD>(index), &interface)) {
            note_.Fail("SetupDiEnumDeviceInterfaces", GetLastError(), Usb_Status::not_found);
            Destroy_Set();
            return Usb_Status::not_found;
        }
        DWORD needed = 0;
        SetupDiGetDeviceInterfaceDetailA(set_, &interface, nullptr, 0, &needed, nullptr);
        if (needed < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A))
            return note_.Fail("SetupDiGetDeviceInterfaceDetailA", GetLastError(), Usb_Status::no_path);
        // The detail record has a variable-length path: a buffer of the
        // size asked for, aligned for the record.
        std::vector<DWORD> buffer((needed + sizeof(DWORD) - 1) / sizeof(DWORD));
        auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(buffer.data());
        detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
        device_info_ = SP_DEVINFO_DATA{};
        device_info_.cbSize = sizeof device_info_;
        if (!SetupDiGetDeviceInterfaceDetailA(set_, &interface, detail, needed, nullptr, &device_info_))
            return note_.Fail("SetupDiGetDeviceInterfaceDetailA", GetLastError(), Usb_Status::no_path);
        have_info_ = true;
        path = detail->DevicePath;
        return Usb_Status::ok;
    }

    Usb_Status Open(const std::string& path) override {
        Close();
        SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        HANDLE device = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    &inherit, OPEN_EXISTING, FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL, nullptr);
        if (device == INVALID_HANDLE_VALUE) {
            const DWORD error = GetLastError();
            return note_.Fail("CreateFileA", error, Status_Of(error, Usb_Status::open_failed));
        }
        device_.Reset(device);
        // Auto-reset, not signalled, inheritable: for the overlapped reads and writes.
        HANDLE event = CreateEventA(&inherit, FALSE, FALSE, nullptr);
        if (!event) {
            const DWORD error = GetLastError();
            device_.Reset();
            return note_.Fail("CreateEventA", error, Usb_Status::open_failed);
        }
        event_.Reset(event);
        ov_ = OVERLAPPED{};
        ov_.hEvent = event_.Get();
        return Usb_Status::ok;
    }

    bool Is_Open() const override { return device_.Valid(); }

    void Close() override {
        if (device_.Valid()) {
            CancelIo(device_.Get());
            FlushFileBuffers(device_.Get());
        }
        device_.Reset();
        event_.Reset();
    }

    std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) override {
        if (!device_.Valid()) {
            status = Usb_Status::not_open;
            return nullptr;
        }
        // Duplicated through the process's own id, as another process's
        // handles would be.
        HANDLE process = OpenProcess(PROCESS_DUP_HANDLE, FALSE, GetCurrentProcessId());
        if (!process) {
            status = note_.Fail("OpenProcess", GetLastError(), Usb_Status::duplicate_failed);
            return nullptr;
        }
        HANDLE device = nullptr;
        HANDLE event = nullptr;
        const BOOL ok_device = DuplicateHandle(process, device_.Get(), GetCurrentProcess(), &device, 0, FALSE,
                                               DUPLICATE_SAME_ACCESS);
        const DWORD device_error = ok_device ? 0 : GetLastError();
        const BOOL ok_event =
            DuplicateHandle(process, event_.Get(), GetCurrentProcess(), &event, 0, FALSE, DUPLICATE_SAME_ACCESS);
        const DWORD event_error = ok_event ? 0 : GetLastError();
        const BOOL closed = CloseHandle(process);
        Handle d(ok_device ? device : nullptr);
        Handle e(ok_event ? event : nullptr);
        if (!ok_device || !ok_event || !closed) {
            status = note_.Fail("DuplicateHandle", device_error ? device_error : event_error,
                                Usb_Status::duplicate_failed);
            return nullptr;
        }
        status = Usb_Status::ok;
        return std::make_unique<Windows_Reader>(std::move(d), std::move(e));
    }

    Usb_Status Io_Control(std::uint32_t code, Bytes& out) override {
        out.assign(kInterrupt_Block, 0);
        if (!device_.Valid()) {
            out.clear();
            return Usb_Status::not_open;
        }
        Ioctl_Request request{code, out.data(), static_cast<DWORD>(out.size())};
        DWORD bytes = 0;
        bool at_once = false;
        const Usb_Status status = Overlapped_Request(device_.Get(), ov_, kWrite_Wait_ms, bytes, at_once, note_,
                                                     "DeviceIoControl", Start_Ioctl, &request);
        out.resize(status == Usb_Status::ok ? std::min<DWORD>(bytes, kInterrupt_Block) : 0);
        return status;
    }

    Usb_Status Bulk_Read(Bytes& out, std::size_t max, int timeout_ms) override {
        out.assign(max, 0);
        if (!device_.Valid()) {
            out.clear();
            return Usb_Status::not_open;
        }
        Read_Request request{out.data(), static_cast<DWORD>(max)};
        DWORD bytes = 0;
        bool at_once = false;
        const Usb_Status status = Overlapped_Request(device_.Get(), ov_, static_cast<DWORD>(timeout_ms), bytes,
                                                     at_once, note_, "ReadFile", Start_Read, &request);
        out.resize(status == Usb_Status::ok ? std::min<std::size_t>(bytes, max) : 0);
        return status;
    }

    Usb_Status Write(const Bytes& packet) override {
        if (!device_.Valid()) return Usb_Status::not_open;
        ResetEvent(ov_.hEvent);
        DWORD written = 0;
        if (!WriteFile(device_.Get(), packet.data(), static_cast<DWORD>(packet.size()), nullptr, &ov_)) {
            const DWORD error = GetLastError();
            if (error != ERROR_IO_PENDING) return note_.Fail("WriteFile", error, Status_Of(error, Usb_Status::io_error));
            if (WaitForSingleObject(ov_.hEvent, kWrite_Wait_ms) != WAIT_OBJECT_0) {
                CancelIo(device_.Get());
                GetOverlappedResult(device_.Get(), &ov_, &written, TRUE);
                return note_.Fail("WriteFile", WAIT_TIMEOUT, Usb_Status::timed_out);
            }
        }
        if (!GetOverlappedResult(device_.Get(), &ov_, &written, FALSE)) {
            const DWORD error = GetLastError();
            return note_.Fail("WriteFile", error, Status_Of(error, Usb_Status::io_error));
        }
        FlushFileBuffers(device_.Get());
        return Usb_Status::ok;
    }

    Usb_Status Reset() override {
        if (!have_info_ || set_ == INVALID_HANDLE_VALUE)
            return note_.Fail("SetupDiSetClassInstallParamsA", ERROR_NO_SUCH_DEVINST, Usb_Status::not_found);
        // A property change of the configuration-specific kind restarts the device.
        SP_PROPCHANGE_PARAMS params{};
        params.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
        params.ClassInstallHeader.InstallFunction = DIF_PROPERTYCHANGE;
        params.StateChange = DICS_PROPCHANGE;
        params.Scope = DICS_FLAG_CONFIGSPECIFIC;
        params.HwProfile = 0;
        if (!SetupDiSetClassInstallParamsA(set_, &device_info_, &params.ClassInstallHeader, sizeof params))
            return note_.Fail("SetupDiSetClassInstallParamsA", GetLastError(), Usb_Status::io_error);
        if (!SetupDiCallClassInstaller(DIF_PROPERTYCHANGE, set_, &device_info_))
            return note_.Fail("SetupDiCallClassInstaller", GetLastError(), Usb_Status::io_error);
        return Usb_Status::ok;
    }

    std::string Last_Error() const override { return note_.text; }
    long Last_Error_Code() const override { return note_.code; }

private:
    void Destroy_Set() {
        if (set_ != INVALID_HANDLE_VALUE) SetupDiDestroyDeviceInfoList(set_);
        set_ = INVALID_HANDLE_VALUE;
        have_info_ = false;
    }

    // Kept from the search for a later reset.
    HDEVINFO set_ = INVALID_HANDLE_VALUE;
    SP_DEVINFO_DATA device_info_{};
    bool have_info_ = false;
    Handle device_;
    Handle event_;
    OVERLAPPED ov_{};
    Error_Note note_;
};

}  // namespace

std::unique_ptr<UsbDriver> Make_System_Usb_Driver() { return std::make_unique<Windows_Usb_Driver>(); }

}  // namespace trekcom::platform
