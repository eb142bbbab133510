// One receiver as Python sees it: a conversation (the tool's Session, with
// its port, waits and failures) whose every wait runs without the GIL and
// ends at Ctrl-C.
#pragma once

#include <pybind11/pybind11.h>

#include <deque>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "session.h"

namespace trekcom::python {

namespace py = pybind11;

struct Receiver_Options {
    std::string port;          // a serial path, a port number, "usb", "usb:N" or "sim"
    std::string sim_profile = "current";
    std::string sim_data;      // the simulated unit's data set (JSON); empty: the built-in one
    bool sim_empty = false;    // a simulated unit that holds no records
    int timeout_ms = 5000;
    bool fast = true;          // big serial transfers at 115200
    std::string trace_file;
};

class Receiver {
public:
    // Opens the port; raises NoDeviceError when it cannot.
    explicit Receiver(Receiver_Options options);
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void Close();
    bool Closed() const { return !session_; }
    std::string Port() const { return options_.port; }

    py::object Identify();
    // A kind as the tool names it: waypoints, proximity, routes, tracks,
    // laps, flightbook, almanac, runs, courses.
    py::list Get(const std::string& kind);
    void Put(const std::string& kind, py::handle records);

    void Pvt_Start();
    py::object Next_Pvt();
    void Pvt_Stop();
    py::list Satellites();
    py::object Position();
    py::object Date_Time();
    py::object Voltages();

private:
    tool::Session& Session();
    void Ensure_Identified();
    void Warn_Of_Dropped_Heights(const tool::Data& data);
    // Runs work without the GIL, one conversation at a time in the process
    // (the receivers share the platform's one loop), and turns a failure or
    // a Ctrl-C into the Python exception.
    template <class Work>
    auto Blocking(Work&& work) -> decltype(work());
    [[noreturn]] void Raise(const tool::Failure& failure, std::size_t errors_before);

    Receiver_Options options_;
    std::unique_ptr<tool::Session> session_;
    bool identified_ = false;
    bool sim_ = false;
    bool streaming_ = false;      // between Pvt_Start and Pvt_Stop
    std::deque<cPvtData> fixes_;  // arrived and not yet taken
    long sat_tables_ = 0;         // satellite tables that arrived while streaming
    std::ostringstream notes_;    // the device search's notes: a library prints nothing
};

// Raises trekcom.errors.<cls>(message, number, text).
// number: the control's, or none when the failure was found around it.
// received: what a download that came short did bring (IncompleteError).
[[noreturn]] void Raise_Error(const char* cls, const std::string& message, std::optional<int> number,
                              const std::string& text, const py::object& received = py::object());

}  // namespace trekcom::python
