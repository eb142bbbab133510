// The simulated unit on a pseudo-terminal: the slave end is linked to a path
// a host opens as its serial port; this side runs a poll(2) loop on the master
// with a monotonic clock.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

#include "trekcom_sim/unit.h"

namespace trekcom::sim {

class Pty_Line : public Line {
public:
    // enforce_rate: bytes pass only while the host's line speed is the unit's.
    Pty_Line(std::string link_path, bool enforce_rate);
    ~Pty_Line() override;
    Pty_Line(const Pty_Line&) = delete;
    Pty_Line& operator=(const Pty_Line&) = delete;

    // Creates the pty and the link; false with a reason.
    bool Open(std::string& error);
    const std::string& Slave_Name() const { return slave_name_; }
    // Serves until stop becomes true (checked after each wake-up).
    void Run(Unit& unit, const volatile int& stop);
    // The host's bytes reach the unit only after their line time at the
    // unit's rate, as the unit's own bytes reach the host.
    void Pace_Host(bool on) { pace_host_ = on; }
    // Bytes that crossed the line each way.
    std::uint64_t Unit_Bytes() const { return unit_bytes_; }
    std::uint64_t Host_Bytes() const { return host_bytes_; }

    double Now_ms() const override;
    void Send(const Bytes& bytes, double at_ms) override;
    void Wake_At(double at_ms) override { wake_ms_ = at_ms; }
    void Cancel_Wake() override { wake_ms_ = -1; }
    void Line_Rate(std::int32_t baud) override { unit_baud_ = baud; }
    void Hang_Up() override { hang_up_ = true; }

private:
    void Close();
    bool Rates_Match() const;
    void Flush_Due();
    void Deliver_Due(Unit& unit);
    void Heard(Unit& unit, Bytes bytes);

    std::string link_path_;
    bool enforce_rate_;
    int master_ = -1;
    int slave_ = -1;  // kept open so the master never sees the host's close
    std::string slave_name_;
    std::int32_t unit_baud_ = 0;
    double wake_ms_ = -1;
    bool hang_up_ = false;
    struct Chunk {
        double at_ms;
        Bytes bytes;
    };
    std::deque<Chunk> out_;
    std::deque<Chunk> in_;  // the host's bytes still on the line (pacing only)
    double in_free_ms_ = 0;
    bool pace_host_ = false;
    std::uint64_t unit_bytes_ = 0;
    std::uint64_t host_bytes_ = 0;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// The host's line speed on a tty, in bits per second (0 when unknown).
std::int32_t Tty_Speed(int fd);

}  // namespace trekcom::sim
