// The platform layer: the only door between the control and the outside world.
//
// Everything the control touches outside itself goes through here: the serial
// port (the child control comGarmin), the timers (tmrTimeout, tmrPVTData,
// tmrAsync), the clocks, the host's message loop (DoEvents), message boxes and
// the file dialog. Two implementations exist: the real one (Default_Platform(),
// an Asio event loop with real serial ports and ptys) and VirtualPlatform
// (virtual_platform.h), whose clock only moves when nothing else is pending.
//
// Threading and re-entrancy rules
// -------------------------------
// * There is one thread. Every callback (a port's OnComm, a timer's Tick, a
//   message box handler) runs on the thread that called DoEvents or Run_Until,
//   from inside that call, never from an I/O completion handler: the event loop
//   only moves bytes into port buffers, and callbacks run after it returns.
// * Callbacks may call DoEvents or Run_Until again (a wait inside a handler is
//   a nested pump). Nesting is unbounded in principle; what keeps it harmless:
//     - a timer's Tick is never re-entered: while it runs, that timer does not
//       fire again (other timers do);
//     - a port's OnComm is never re-entered, and it fires only while the port's
//       RThreshold is at least 1 and its input buffer holds at least that many
//       bytes; a handler that sets RThreshold to 0 reads the port by itself.
// * Destroying a SerialPort or Timer from inside its own callback is not
//   allowed; destroying it anywhere else is, and it stops at once.
// * The platform must outlive every port and timer created from it.
//
// Abandoning a wait
// -----------------
// Interrupt() asks every wait to give up: Run_Until returns within about a
// tenth of a second, and the control's own waits (an answer, a transfer, the
// baud search, the USB device search) end as if their time had run out. It
// is the one call that may come from a signal handler or another thread. The
// request stands until Clear_Interrupt(), so a wait that starts after it ends
// at once too; a host that goes on talking to the receiver clears it first.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "trekcom/types.h"
#include "trekcom/usb_driver.h"

namespace trekcom {

class Platform;

// The serial communications control: its property surface, an input buffer
// filled by the platform's event loop, and the receive event OnComm.
// Property setters store; Settings, RTSEnable, DTREnable and Handshaking also
// apply at once when the port is open. Failures never throw: PortOpen(true)
// that fails leaves PortOpen() false and Last_Error() says why.
class SerialPort {
public:
    // CommEvent values used by the control.
    static constexpr std::int16_t comEvReceive = 2;
    static constexpr std::int16_t comEventFrame = 1004;  // line error (> 1000)

    virtual ~SerialPort();
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;

    void CommPort(std::int16_t n) { comm_port_ = n; }
    std::int16_t CommPort() const { return comm_port_; }
    // Device path that overrides CommPort on POSIX systems ("" = use CommPort).
    void Port_Name(const std::string& name) { port_name_ = name; }
    const std::string& Port_Name() const { return port_name_; }
    // The device the port opens: Port_Name, else "/dev/ttyS<n-1>" ("COM<n>" on Windows).
    std::string Device_Name() const;

    void Settings(const std::string& settings);
    const std::string& Settings() const { return settings_; }
    void PortOpen(bool open);
    bool PortOpen() const { return open_; }
    void RTSEnable(bool on);
    bool RTSEnable() const { return rts_; }
    void DTREnable(bool on);
    bool DTREnable() const { return dtr_; }
    void Handshaking(Handshaking_Values h);
    Handshaking_Values Handshaking() const { return handshaking_; }

    void RThreshold(std::int16_t n) { rthreshold_ = n; }
    std::int16_t RThreshold() const { return rthreshold_; }
    void SThreshold(std::int16_t n) { sthreshold_ = n; }
    std::int16_t SThreshold() const { return sthreshold_; }
    void InBufferSize(std::int16_t n) { in_buffer_size_ = n; }
    std::int16_t InBufferSize() const { return in_buffer_size_; }
    void OutBufferSize(std::int16_t n) { out_buffer_size_ = n; }
    std::int16_t OutBufferSize() const { return out_buffer_size_; }
    void InputLen(std::int16_t n) { input_len_ = n; }
    std::int16_t InputLen() const { return input_len_; }

    // Bytes waiting; reading it first collects what the device has ready.
    // Setting it to 0 discards them.
    int InBufferCount();
    void InBufferCount(int n);
    // Bytes not yet written out (always 0: writes complete before returning).
    int OutBufferCount() const { return 0; }
    void OutBufferCount(int) {}

    // Reads the waiting bytes (at most InputLen of them; 0 = all), as text.
    std::string Input();
    // Writes bytes to the line. Ignored while the port is closed.
    void Output(const std::string& bytes);

    std::int16_t CommEvent() const { return comm_event_; }
    std::function<void()> OnComm;

    const std::string& Last_Error() const { return last_error_; }

    // Parses "9600,N,8,1"; false when the text is not of that form.
    struct Line_Settings {
        std::int32_t baud = 9600;
        char parity = 'N';
        int data_bits = 8;
        int stop_bits = 1;
    };
    static bool Parse_Settings(const std::string& text, Line_Settings& out);

protected:
    explicit SerialPort(Platform& platform);

    // Backend duties, called only by this class.
    // Open the device named by Device_Name() with the current properties.
    virtual bool Open_Device(std::string& error) = 0;
    virtual void Close_Device() = 0;
    // Apply Settings, RTS, DTR and Handshaking to the open device.
    virtual bool Apply_Line(std::string& error) = 0;
    virtual void Write_Device(const std::string& bytes) = 0;
    // Move bytes the device already has into the input buffer, without blocking.
    virtual void Collect() {}

    // For backends: bytes arrived, or the line reported an error.
    void Received(const std::string& bytes);
    void Line_Error(std::int16_t event);
    // For backends: a failure outside Open_Device/Apply_Line (a write that
    // failed or timed out, a line that hung up), for Last_Error() to report.
    void Record_Error(const std::string& message) { last_error_ = message; }

    Platform& platform_;

private:
    friend class Platform;
    // Raises OnComm when it is due (called by the platform's loop).
    void Service();

    std::int16_t comm_port_ = 1;
    std::string port_name_;
    std::string settings_ = "9600,N,8,1";
    bool open_ = false;
    bool rts_ = false;
    bool dtr_ = false;
    Handshaking_Values handshaking_ = Handshaking_Values::comNone;
    std::int16_t rthreshold_ = 0;
    std::int16_t sthreshold_ = 0;
    std::int16_t in_buffer_size_ = 1024;
    std::int16_t out_buffer_size_ = 512;
    std::int16_t input_len_ = 0;
    std::int16_t comm_event_ = 0;
    bool pending_error_ = false;
    bool in_oncomm_ = false;
    std::string input_;
    std::size_t input_head_ = 0;  // consumed prefix of input_
    std::string last_error_;
};

// A timer child: Enabled, Interval (ms) and the Timer event, here Tick.
// It fires every Interval milliseconds while enabled; Interval 0 never fires.
// Enabling a stopped timer, or changing the interval of a running one, starts
// a fresh period.
class Timer {
public:
    explicit Timer(Platform& platform);
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void Enabled(bool on);
    bool Enabled() const { return enabled_; }
    void Interval(std::int32_t ms);
    std::int32_t Interval() const { return interval_ms_; }

    std::function<void()> Tick;

private:
    friend class Platform;
    void Restart();

    Platform& platform_;
    bool enabled_ = false;
    bool ticking_ = false;
    std::int32_t interval_ms_ = 0;
    double due_ms_ = 0;
};

class Platform {
public:
    virtual ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    // Monotonic milliseconds: what waits and timers are measured on.
    virtual double Now_ms() const = 0;
    // Seconds since local midnight, as the runtime's Timer function gives it
    // (trace time stamps). It wraps at midnight; never use it to measure a wait.
    virtual double Seconds_Since_Midnight() const = 0;

    // Handles what is pending once: moves arrived bytes into ports, raises due
    // OnComm and Tick events. Waits for I/O or the next timer for about a
    // millisecond at most (the virtual platform moves its clock instead).
    void DoEvents();
    // Runs the loop until done() is true, timeout_ms have passed or the wait
    // is interrupted; returns done().
    bool Run_Until(const std::function<bool()>& done, double timeout_ms);

    // ---- abandoning waits (see the top of this file)
    void Interrupt() noexcept { interrupted_.store(true, std::memory_order_relaxed); }
    bool Interrupted() const noexcept { return interrupted_.load(std::memory_order_relaxed); }
    void Clear_Interrupt() noexcept { interrupted_.store(false, std::memory_order_relaxed); }

    virtual std::unique_ptr<SerialPort> Create_Serial_Port() = 0;
    std::unique_ptr<Timer> Create_Timer() { return std::make_unique<Timer>(*this); }

    // Message boxes never block: they go to this handler, by default standard error.
    void Message_Box_Handler(std::function<void(const std::string&)> handler);
    void MsgBox(const std::string& text);

    // The open-file dialog (log replay): the host's callback, given the filter,
    // returns the chosen path; without a callback the choice is empty.
    void File_Dialog_Handler(std::function<std::string(const std::string& filter)> handler);
    std::string Open_File_Dialog(const std::string& filter);

    // The folder of the message translation files ("<base>_<language>.tlt").
    // Empty, the default: the folder of the running program.
    void Translation_Folder(const std::string& folder) { translation_folder_ = folder; }
    const std::string& Translation_Folder() const { return translation_folder_; }

    // ---- USB (Port 0): the driver seam of usb_driver.h.
    // A fresh driver: the handler's when one is set, else the platform's own
    // (libusb on Linux, the Garmin driver on Windows, otherwise one that
    // reports "not supported"). A handler lets a host or a test plug in
    // another driver on any platform, the simulated receiver's for instance.
    std::unique_ptr<UsbDriver> Create_Usb_Driver();
    void Usb_Driver_Handler(std::function<std::unique_ptr<UsbDriver>()> factory);
    // Which of several Garmin receivers on USB Port 0 reaches: 0 (the
    // default) the first found, N the one after N others. Read by each new driver.
    void Usb_Device(int index) { usb_device_ = index < 0 ? 0 : index; }
    int Usb_Device() const { return usb_device_; }

protected:
    virtual std::unique_ptr<UsbDriver> System_Usb_Driver();

private:
    std::function<std::unique_ptr<UsbDriver>()> usb_driver_factory_;
    int usb_device_ = 0;
    // ---- end of USB

protected:
    Platform();
    // Waits up to max_ms for I/O and moves what arrived into the ports' buffers.
    virtual void Wait_For_Events(double max_ms) = 0;

private:
    friend class SerialPort;
    friend class Timer;
    void Pump(double max_wait_ms);
    double Next_Timer_Due() const;
    void Fire_Due_Timers();
    void Service_Ports();

    // Lock-free, so setting it is safe in a signal handler.
    static_assert(std::atomic<bool>::is_always_lock_free);
    std::atomic<bool> interrupted_{false};
    std::vector<Timer*> timers_;
    std::vector<SerialPort*> ports_;
    std::function<void(const std::string&)> message_box_;
    std::function<std::string(const std::string&)> file_dialog_;
    std::string translation_folder_;
};

// The real platform, one per process.
std::shared_ptr<Platform> Default_Platform();

}  // namespace trekcom
