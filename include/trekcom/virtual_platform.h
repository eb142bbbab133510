// The virtual platform: a clock that moves only when nothing else is pending,
// and serial lines wired to in-process devices. A 29-second wait or a
// 2-second watchdog costs no real time, and every run is the same.
//
// A device attaches to a port (by number, or by the Port_Name a host sets).
// It sees the host's writes in order, sends bytes back that arrive at a time
// it chooses, and can ask to be woken at a later time. Bytes pass only while
// the host's port is open and, when the device has set a baud rate, only while
// the host's line runs at that rate: a wrong rate loses every byte both ways,
// which is how a baud search sees it.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "trekcom/platform.h"

namespace trekcom {

class VirtualPlatform;
class VirtualSerialPort;

// What a device sees of its line.
class VirtualLine {
public:
    // Lines are made by VirtualPlatform::Attach.
    explicit VirtualLine(VirtualPlatform& platform) : platform_(platform) {}

    double Now_ms() const;
    // Bytes to the host, arriving at at_ms (never before now, never before
    // bytes sent earlier on this line).
    void Send(const Bytes& bytes, double at_ms);
    void Send(const Bytes& bytes) { Send(bytes, Now_ms()); }
    // Wake the device (VirtualDevice::Wake) at at_ms; one request is kept.
    void Wake_At(double at_ms);
    void Cancel_Wake() { wake_ms_ = -1; }
    // The device's own line rate; 0 means "any rate gets through".
    void Device_Baud(std::int32_t baud) { device_baud_ = baud; }
    std::int32_t Device_Baud() const { return device_baud_; }
    // What the host has set up.
    bool Host_Open() const;
    std::string Host_Settings() const;
    // Drops what is in flight to the host, and reports a line error on its port.
    void Break();

private:
    friend class VirtualPlatform;
    friend class VirtualSerialPort;
    bool Rates_Match() const;

    VirtualPlatform& platform_;
    VirtualSerialPort* host_ = nullptr;
    std::int32_t device_baud_ = 0;
    double wake_ms_ = -1;
    struct Chunk {
        double at_ms;
        Bytes bytes;
    };
    std::deque<Chunk> in_flight_;  // ordered by time
};

// The receiver's side of a virtual line.
class VirtualDevice {
public:
    virtual ~VirtualDevice() = default;
    // Called once when attached; the line lives as long as the platform.
    virtual void Attached(VirtualLine& line) { (void)line; }
    // The host wrote these bytes (only those that got through).
    virtual void Host_Wrote(const Bytes& bytes) = 0;
    // The host opened, closed or re-set its port.
    virtual void Host_Line_Changed() {}
    // The time asked for with VirtualLine::Wake_At has come.
    virtual void Wake() {}
};

class VirtualPlatform : public Platform {
public:
    // start_seconds_since_midnight sets the time-of-day clock's start.
    explicit VirtualPlatform(double start_seconds_since_midnight = 12 * 3600.0);
    ~VirtualPlatform() override;

    double Now_ms() const override { return now_ms_; }
    double Seconds_Since_Midnight() const override;

    // Moves the clock forward by ms, handling everything due on the way.
    void Advance(double ms);

    std::unique_ptr<SerialPort> Create_Serial_Port() override;

    // Wires a device to the port with this number, or to this Port_Name.
    VirtualLine& Attach(std::int16_t port, std::shared_ptr<VirtualDevice> device);
    VirtualLine& Attach(const std::string& port_name, std::shared_ptr<VirtualDevice> device);
    // Ports that exist but have nothing attached open fine and stay silent;
    // listing a port here makes opening it fail, as a missing device does.
    void Missing_Port(std::int16_t port) { missing_.push_back(std::to_string(port)); }

protected:
    void Wait_For_Events(double max_ms) override;

private:
    friend class VirtualLine;
    friend class VirtualSerialPort;
    struct Wire {
        std::unique_ptr<VirtualLine> line;
        std::shared_ptr<VirtualDevice> device;
    };
    Wire* Find_Wire(const std::string& key);
    static std::string Key_Of(const SerialPort& port);
    bool Deliver_Due();
    double Next_Event_ms() const;

    double now_ms_ = 0;
    double start_tod_s_;
    std::map<std::string, Wire> wires_;  // key: port number as text, or port name
    std::vector<std::string> missing_;
};

}  // namespace trekcom
