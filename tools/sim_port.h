// `--port sim`: the simulated receiver served on a real pseudo-terminal by a
// thread of this process, so every command runs the real serial path (the
// platform's port, termios, the line rate) without hardware.
//
// A thread rather than a second process: the unit dies with the tool however
// the tool ends, and nothing is left running or linked in /tmp. The unit and
// the control share nothing but the pty: the unit lives on its thread only.
#pragma once

#include <memory>
#include <string>

#include <trekcom/platform.h>

namespace trekcom::tool {

struct Sim_Options {
    std::string profile = "current";
    std::string data_file;  // JSON data set; empty: the built-in one
    std::string mode = "garmin";  // garmin, nmea or text
    bool empty = false;           // no records at all (uploads then read back alone)
};

class Sim_Port {
public:
    // Starts the unit; nullptr with a reason when it cannot.
    static std::unique_ptr<Sim_Port> Start(const Sim_Options& options, std::string& error);
    // A unit that speaks USB only (the fitness profile) is not put on a pty
    // but plugged in as the platform's USB receiver: the host opens Port 0.
    static bool Usb_Only(const std::string& profile);
    static std::unique_ptr<Sim_Port> Start_Usb(const Sim_Options& options, const std::shared_ptr<Platform>& platform,
                                               std::string& error);
    ~Sim_Port();
    Sim_Port(const Sim_Port&) = delete;
    Sim_Port& operator=(const Sim_Port&) = delete;

    // The path a serial port opens to reach the unit.
    const std::string& Path() const;

    struct Impl;
    // Only Start can make an Impl, so only Start can make a Sim_Port.
    explicit Sim_Port(std::unique_ptr<Impl> impl);

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace trekcom::tool
