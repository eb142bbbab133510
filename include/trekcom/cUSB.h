// cUSB: the USB transport. It finds the receiver, opens it, starts a
// session, turns each outgoing packet of the control's serial form into a
// USB packet and writes it, and reads incoming USB packets (the interrupt
// pipe in 64-byte blocks, the bulk pipe when the receiver announces Data
// Available), turning each back into the serial form. The control owns one
// and selects it with Port 0; its events reach the control's handlers.
//
// USB packet (little-endian):
//   0  type: 0 USB protocol layer, 20 application layer
//   1  3 reserved bytes, zero
//   4  id, 16 bits
//   6  2 reserved bytes, zero
//   8  data size, 32 bits
//  12  data
// Serial form inside the control (an unstuffed frame, checksum left 0):
//   normal    16, id, size, data..., 0, 16, 3              (id and size < 256)
//   expanded  16, 123, min(size+6, 255), size (4 bytes), id (2 bytes),
//             data..., 0, 16, 3                            (otherwise)
//
// Everything runs on the host's thread. Reads wait in short bounded steps
// (80 ms on the interrupt pipe, 50 ms on the bulk pipe) and let the host's
// loop run after each delivered packet, so an event handler may call back
// into the control; a read started while another is assembling returns at
// once (Busy()).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "trekcom/platform.h"
#include "trekcom/types.h"
#include "trekcom/usb_driver.h"

namespace trekcom {

// The transport's events, in dispatch order. Arguments by reference; USBError's
// seq is read back: while a handler leaves it at 4 ("device not found"), the
// device search goes on.
class cUSBEvents {
public:
    virtual ~cUSBEvents() = default;
    // One incoming packet: its serial form and its USB form.
    virtual void USBReceived(Bytes& Packet, Bytes& usbpacket) {
        (void)Packet;
        (void)usbpacket;
    }
    // One outgoing packet in its USB form, about to be written.
    virtual void USBSent(Bytes& usbpacket) { (void)usbpacket; }
    // A note for the trace (":USB Device Reset", "!" error details).
    virtual void USBDebug(std::string& Text) { (void)Text; }
    // A failure: code, translated message, the packet concerned.
    virtual void USBError(std::int16_t& seq, std::string& message, Bytes& Packet) {
        (void)seq;
        (void)message;
        (void)Packet;
    }
};

// The interrupt reader: one asynchronous-data request per GetIO, on handles
// of its own (duplicates of the transport's, where the system has handles).
class cIOCTL {
public:
    cIOCTL() = default;
    ~cIOCTL();
    cIOCTL(const cIOCTL&) = delete;
    cIOCTL& operator=(const cIOCTL&) = delete;

    // Takes its own reader of the driver's open device. True on success.
    bool SetHandles(UsbDriver& driver);
    // One interrupt read into buffer (resized to what came, at most 64
    // bytes); BytesReturned is that count. Returns 1 when the request
    // completed at once (data was ready), else 0. last_status says how the
    // read ended (timed_out when nothing came within 80 ms).
    std::int32_t GetIO(Bytes& buffer, std::int32_t& BytesReturned);
    // Releases the reader, if any.
    void CloseHandles();
    bool Has_Handles() const { return reader_ != nullptr; }
    Usb_Status Last_Status() const { return last_status_; }

private:
    std::unique_ptr<UsbInterruptReader> reader_;
    Usb_Status last_status_ = Usb_Status::ok;
};

class cUSB {
public:
    // Protocol-layer ids.
    static constexpr std::uint16_t kData_Available = 2;
    static constexpr std::uint16_t kStart_Session = 5;
    static constexpr std::uint16_t kSession_Started = 6;
    static constexpr std::uint16_t kStart_Session_2 = 16;
    static constexpr std::uint16_t kSession_Started_2 = 17;
    static constexpr std::uint8_t kProtocol_Layer = 0;
    static constexpr std::uint8_t kApplication_Layer = 20;
    static constexpr std::uint8_t kExpanded_Id = 123;
    static constexpr std::size_t kHeader_Size = 12;
    static constexpr std::uint32_t kMax_Data = 1046;  // sizes 1..1046 are delivered

    // The driver comes from the platform (Platform::Create_Usb_Driver) the
    // first time it is needed. The platform is also what waits yield to.
    explicit cUSB(std::shared_ptr<Platform> platform = Default_Platform());
    ~cUSB();
    cUSB(const cUSB&) = delete;
    cUSB& operator=(const cUSB&) = delete;

    // One event sink at a time (the control's own handlers, for the
    // control's transport); it must outlive the advice.
    void Advise(cUSBEvents& sink) { sink_ = &sink; }
    void Unadvise() { sink_ = nullptr; }

    // Finds and opens the receiver. While none is found, USBError code 4
    // asks the host whether to search again (leave the code at 4) or give up
    // (any other value). Returns whether the receiver is open.
    bool Open();
    // Releases the interrupt reader and the device. Harmless when closed.
    void Close();
    bool Is_Open() const;
    // Queries the driver, then the two protocol-layer exchanges 5 -> 6 and
    // 16 -> 17; the result is that of the second.
    bool Start_Session();
    // Writes a serial-form packet as a USB packet; a packet that does not
    // start with 16 is a bare protocol-layer request whose id is byte 1.
    // wait_mode 2 returns once the write completed; any other value then
    // pauses 50 ms (the host's loop runs meanwhile). False when the write failed.
    bool Write_Packet(const Bytes& packet, int wait_mode = 0);
    // Writes a packet already in its USB form, as Write_Packet does.
    bool Write_Usb_Packet(Bytes usbpacket, int wait_mode = 0);
    // Reads what the receiver has sent and raises USBReceived for each
    // packet. expected: the id awaited (0 none; 6 and 2 read nothing and
    // succeed; 1 reads and awaits 6; 123 any expanded-form packet); second:
    // another id of interest (Second_Came()). Returns whether the expected
    // packet came (true when expected was 0 and anything was read).
    bool Read_Packets(std::uint16_t expected, std::uint16_t second = 0);
    // Closes, restarts and reopens the receiver after an error; raises
    // USBDebug ":USB Device Reset" or USBError on failure.
    bool Reset_Device();
    // The language of the transport's error texts.
    void SetLanguage(const std::string& lang) { language_ = lang; }

    // The open device as a number (1 when open, 0 when not: handles are
    // the driver's business). Read-only: the setter throws RuntimeError 383.
    std::int32_t USBHandle() const;
    [[noreturn]] void USBHandle(std::int32_t value);
    // True while a read is assembling packets.
    bool Busy() const { return busy_; }
    // An exchange waiting for its answer, from its write's pause to the end
    // of its wait, for the scope's life: meanwhile a poll (Read_Packets with
    // expected 0, as the timers make) reads nothing, so the answer is left
    // for the exchange's own reads. Scopes nest.
    class Exchange_Scope {
    public:
        explicit Exchange_Scope(cUSB& usb) : usb_(usb) { ++usb_.exchanges_; }
        ~Exchange_Scope() { --usb_.exchanges_; }
        Exchange_Scope(const Exchange_Scope&) = delete;
        Exchange_Scope& operator=(const Exchange_Scope&) = delete;

    private:
        cUSB& usb_;
    };
    // Whether the second id of the last read came.
    bool Second_Came() const { return second_came_; }
    // The driver's answers to the session start's queries.
    std::uint32_t Driver_Version() const { return driver_version_; }
    std::uint32_t Max_Packet_Size() const { return max_packet_size_; }
    // The unit id the last Session Started carried (0: none yet).
    std::uint32_t Session_Unit_ID() const { return session_unit_id_; }

    // Monotonic counters, for tests and diagnostics.
    struct Counters {
        long packets_received = 0;  // raised as USBReceived
        long packets_sent = 0;
        long blocks_dropped = 0;    // blocks skipped at a packet start
        long packets_cut = 0;       // a packet cut off by the end of a read
        long searches = 0;          // device searches (Find calls)
    };
    const Counters& Stats() const { return stats_; }

    // The driver in use (made on first use).
    UsbDriver& Driver();

    // Serial form of a USB packet's fields (normal or expanded form).
    static Bytes Serial_Form(std::uint16_t id, const std::uint8_t* data, std::uint32_t size);
    // USB form of a serial-form packet (or of a bare protocol request).
    static Bytes Usb_Form(const Bytes& packet);
    // USB form of an application-layer packet.
    static Bytes Usb_Form(std::uint16_t id, const std::uint8_t* data, std::uint32_t size);

private:
    void Raise_Error(std::int16_t seq, const std::string& message, const Bytes& packet = {});
    void Raise_Debug(const std::string& text);
    void Raise_Received(Bytes& packet, Bytes& usbpacket);
    // A transfer failed: the error event, then the device is closed so the
    // next request reopens it instead of waiting on a dead one.
    void Device_Failed(const std::string& phrase);
    // How a read ended: every packet read, the receiver fell silent in the
    // middle of a record transfer, the device failed, or the transport was
    // closed meanwhile (by a handler of the host's loop).
    enum class Read_End { complete, stalled, failed, closed };
    Read_End Read_Bulk(std::vector<Bytes>& chunks, std::uint16_t expected);
    void Deliver(const std::vector<Bytes>& chunks, std::uint16_t expected, std::uint16_t second, bool& came);
    void Pause(double ms);
    std::string xLate(const std::string& phrase) const;

    std::shared_ptr<Platform> platform_;
    std::unique_ptr<UsbDriver> driver_;
    cIOCTL ioctl_;
    std::string language_ = "English";
    cUSBEvents* sink_ = nullptr;
    std::string device_path_;
    bool busy_ = false;
    int exchanges_ = 0;
    bool second_came_ = false;
    std::uint32_t driver_version_ = 0;
    std::uint32_t session_unit_id_ = 0;
    std::uint32_t max_packet_size_ = 0;
    Counters stats_;
};

}  // namespace trekcom
