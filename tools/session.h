// One conversation with a receiver: the control, its event sink, the port
// (or the simulated receiver), and the waits a command-line tool needs, with
// every way it can fail turned into a Failure that carries the exit code.
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <trekcom/trekcom.h>

#include "data.h"
#include "files.h"
#include "sim_port.h"

namespace trekcom::tool {

// The exit codes, as docs/trekcom.md lists them.
enum Exit : int {
    kOk = 0,
    kError = 1,        // anything else (a file that cannot be written, ...)
    kUsage = 2,        // the command line is wrong
    kNo_Device = 3,    // the port cannot be opened
    kTimeout = 4,      // the receiver does not answer, or stops answering
    kUnsupported = 5,  // the receiver lacks what was asked for
    kBad_File = 6,     // an input file is unreadable or not valid GPX
    kRefused = 7,      // the receiver refused records, or they did not read back
    kIncomplete = 8,   // a download ended with another number of records than announced
    kInterrupted = 130,
};

struct Failure : std::runtime_error {
    Failure(int code, const std::string& message) : std::runtime_error(message), code(code) {}
    int code;
};

struct Session_Options {
    std::string port = "1";  // PATH, N, usb or sim
    std::string settings;    // empty: the control's default
    int timeout_ms = 5000;   // silence that ends a wait
    std::string timeout_name = "--timeout";  // how the user sets it, for messages
    std::string language;
    std::string trace_file;
    bool progress = true;    // may draw a bar when standard error is a terminal
    bool fast = false;       // big serial transfers at the fastest rate the receiver accepts
    Sim_Options sim;
    // The loop the control runs on; null: the real one. Interrupting it
    // (Platform::Interrupt) ends whatever the session is waiting for.
    std::shared_ptr<Platform> platform;
    // Where notes for the user go while a command runs (the device search's).
    std::ostream* notes = &std::cerr;
    // Where the kernel's files are read to say why a USB receiver cannot be used.
    std::string system_root = "/";
};

class Session : private TrekcomCtlEvents, private Record_Sink {
public:
    explicit Session(Session_Options options);
    ~Session() override;

    TrekcomCtl& Ctl() { return ctl_; }
    // Opens the port (starting the simulated receiver for "sim").
    void Open();
    // Asks the receiver who it is; a receiver that does not answer is kTimeout.
    void Identify();
    std::string Describe() const;  // product description and version, one line
    // The port's path once open (the simulated receiver's pty for "sim"; usb:N over USB).
    std::string Device() const;

    bool Supports(Kind k) const;
    // Downloads the kinds; a kind the receiver lacks fails with kUnsupported
    // unless skip_unsupported, which leaves it out. A kind that came short of
    // its announced count keeps what arrived and ends the downloads there;
    // Shortfall() then says what was short, until the next download.
    Data Download(const std::vector<Kind>& kinds, bool skip_unsupported);
    // The same download, each record handed to `out` as it arrives; the
    // session keeps none. `out` is finished unless the download fails.
    void Download(const std::vector<Kind>& kinds, bool skip_unsupported, Record_Writer& out);
    const std::string& Shortfall() const { return shortfall_; }
    // Uploads every kind the set holds records of that the receiver takes;
    // returns the kinds it holds records of that the receiver does not take.
    std::vector<Kind> Upload(const Data& data);
    // A fitness unit's runs, each handed to on_run as soon as it is whole;
    // its courses; an upload of courses. A unit without them is kUnsupported,
    // courses too big for it kRefused.
    void Download_Runs(const std::function<void(const cRun&)>& on_run);
    std::shared_ptr<Collection<cCourse>> Download_Courses();
    void Upload_Courses(const Collection<cCourse>& courses);

    // One request of the real-time kind, failing with kTimeout when the
    // receiver raises an error instead of answering.
    void Request(const char* what, const std::function<void()>& request);
    // Runs the loop until done() or interrupted; silence of timeout_ms (or
    // of silence_ms, when longer) ends it with kTimeout.
    void Wait(const char* what, const std::function<bool()>& done, double silence_ms = 0);
    // Called for every packet received (after the control has decoded it).
    std::function<void(const Bytes&)> On_Packet;
    std::function<void(const std::string&, bool)> On_Nmea;
    std::function<void(std::int16_t, std::int16_t, std::int16_t, std::int16_t)> On_Counts;
    std::function<void(std::int16_t, const Picture&)> On_Image;
    std::function<void(const Picture&)> On_Icon;

    const std::vector<std::string>& Errors() const { return errors_; }
    // The control's number for each of Errors().
    const std::vector<std::int16_t>& Error_Codes() const { return error_codes_; }
    int Timeout_ms() const { return options_.timeout_ms; }

private:
    void Download_One(Kind k);
    void Expect_No_New_Errors(std::size_t before, int code, const std::string& doing);
    std::string Port_Text() const;
    bool Usb() const { return options_.port == "usb" || options_.port.starts_with("usb:"); }
    // The control's device search asks after each look whether to go on.
    void Usb_Not_Found(std::int16_t& code);

    void Receive(Bytes& packet) override;
    void HexDebug(std::string& line) override;
    void NMEA(std::string& sentence, bool& good) override;
    void cError(std::int16_t& code, std::string& message, Bytes& packet) override;
    void ReceiveCounts(std::int16_t& w, std::int16_t& p, std::int16_t& r, std::int16_t& t) override;
    void ReceiveImage(std::int16_t& pct, Picture& image) override {
        if (On_Image) On_Image(pct, image);
    }
    void ReceiveIcon(std::int16_t&, Picture& image, Bytes&) override {
        if (On_Icon) On_Icon(image);
    }
    void ReceivedRun(std::shared_ptr<cRun>& run) override {
        if (on_run_) on_run_(*run);
    }
    // What the control said went wrong in a fitness transfer, as a failure.
    void Fitness_Failure(std::size_t before, const std::string& doing);
    std::function<void(const cRun&)> on_run_;

    // The control's records, on to the writer of the download in progress.
    void Waypoint(const cWaypoint& w) override { writer_->Waypoint(w); }
    void Route(const cRoute& header) override { writer_->Route(header); }
    void Track_Header(const cTrack& header) override { writer_->Track(header); }
    void Track_Point(const cTrack& point) override { writer_->Track_Point(point); }
    void Lap(const cLap& lap) override { writer_->Lap(lap); }
    void Flightbook_Record(const cFlightbook_Record& record) override { writer_->Flight(record); }

    Session_Options options_;
    std::unique_ptr<Sim_Port> sim_;
    TrekcomCtl ctl_;
    std::ofstream trace_;
    std::vector<std::string> errors_;
    std::vector<std::int16_t> error_codes_;  // beside errors_
    std::string shortfall_;                  // "waypoints: ... 5 of 6 records received"
    double usb_search_start_ms_ = -1;  // when the device search first found nothing
    bool usb_search_given_up_ = false;
    double last_packet_ms_ = 0;
    long completions_ = 0;      // transfer-complete packets
    long records_seen_ = 0;     // record packets of the current transfer
    Record_Writer* writer_ = nullptr;  // while a download runs
};

}  // namespace trekcom::tool
