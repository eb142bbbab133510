#include "session.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "devices.h"
#include "progress.h"

namespace trekcom::tool {

namespace {

// A wait is cut into slices so that the progress bar moves.
constexpr double kSlice_ms = 50;
// The control's error for a download that ended short of its announced count.
constexpr std::int16_t kIncomplete_Transfer = 7;
// How late the control's watchdog may report on a busy machine.
constexpr double kWatchdog_Margin_ms = 1000;
// What the control raises while it finds no USB receiver; leaving it makes it look again.
constexpr std::int16_t kUsb_Not_Found = 4;
// Between two looks for a USB receiver: each look lists the whole bus.
constexpr double kUsb_Search_Pause_ms = 250;

// The control breaks some messages into lines; the tool's failures are one.
std::string One_Line(std::string s) {
    for (std::size_t at; (at = s.find("\r\n")) != std::string::npos;) s.replace(at, 2, " ");
    return s;
}

bool Blank(const std::string& s) {
    return std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isspace(c) || c == 0; });
}

}  // namespace

Session::Session(Session_Options options)
    : options_(std::move(options)), ctl_(options_.platform ? options_.platform : Default_Platform()) {
    ctl_.Advise(*this);
}

Session::~Session() {
    // Message boxes went to this session's trace (Open): no longer.
    if (ctl_.Platform()) ctl_.Platform()->Message_Box_Handler(nullptr);
    ctl_.Unadvise();
    if (ctl_.Platform()) ctl_.PortClose();
}

std::string Session::Port_Text() const { return options_.port == "sim" ? "the simulated receiver" : options_.port; }

void Session::Open() {
    if (!options_.trace_file.empty()) {
        trace_.open(options_.trace_file, std::ios::out | std::ios::trunc);
        if (!trace_) throw Failure(kError, "cannot write the trace file " + options_.trace_file);
        ctl_.DebugLog(true);
    }
    if (!options_.language.empty()) ctl_.Language(options_.language);
    // Messages the control would show in a box go to the trace instead of
    // interleaving with the tool's output; failures reach the user as the
    // tool's own one-line message.
    ctl_.Platform()->Message_Box_Handler([this](const std::string& text) {
        if (trace_) trace_ << "message: " << text << '\n';
    });
    const std::string& port = options_.port;
    if (port == "sim" && Sim_Port::Usb_Only(options_.sim.profile)) {
        std::string error;
        sim_ = Sim_Port::Start_Usb(options_.sim, ctl_.Platform(), error);
        if (!sim_) throw Failure(kNo_Device, "cannot start the simulated receiver: " + error);
        ctl_.Port(0);
    } else if (port == "sim") {
        std::string error;
        sim_ = Sim_Port::Start(options_.sim, error);
        if (!sim_) throw Failure(kNo_Device, "cannot start the simulated receiver: " + error);
        ctl_.Port_Name(sim_->Path());
    } else if (Usb()) {
        // usb:N, the receiver after N others; plain usb, the first.
        const std::string n = port == "usb" ? "0" : port.substr(4);
        if (n.empty() || n.size() > 3 || !std::all_of(n.begin(), n.end(), [](unsigned char c) { return std::isdigit(c); }))
            throw Failure(kUsage, "--port " + port + ": use usb or usb:N (trekcom list shows N)");
        ctl_.Platform()->Usb_Device(std::stoi(n));
        ctl_.Port(0);
    } else if (!port.empty() && std::all_of(port.begin(), port.end(), [](unsigned char c) { return std::isdigit(c); })) {
        if (port.size() > 4) throw Failure(kUsage, "--port " + port + ": no such port number");
        ctl_.Port(static_cast<std::int16_t>(std::stoi(port)));
    } else {
        struct stat st {};
        if (stat(port.c_str(), &st) != 0)
            throw Failure(kNo_Device, "no device at " + port + " (" + std::strerror(errno) + ")");
        ctl_.Port_Name(port);
    }
    if (!options_.settings.empty()) ctl_.Settings(options_.settings);
    ctl_.Time_Out(static_cast<std::int16_t>(std::clamp(options_.timeout_ms, 2000, 5000)));
    // Receivers with D301 or D302 track points refuse points that carry the
    // D300 size: the tool always sends the true one.
    ctl_.Track_Point_True_Size(true);
    ctl_.Auto_Baud_Rate(options_.fast);
    const std::size_t before = errors_.size();
    if (!ctl_.PortOpen()) {
        if (ctl_.Platform()->Interrupted()) throw Failure(kInterrupted, "interrupted: opening " + Port_Text());
        // What the system shows about a receiver that is there says more
        // than the driver's status.
        const std::string diagnosis = Usb() ? Usb_Diagnosis(options_.system_root) : "";
        if (!diagnosis.empty()) throw Failure(kNo_Device, "no device: " + diagnosis);
        if (usb_search_given_up_)
            throw Failure(kNo_Device, "no device: no Garmin USB receiver appeared within " +
                                          std::to_string(options_.timeout_ms) + " ms (" + options_.timeout_name + ")");
        const std::string why = errors_.size() > before ? One_Line(errors_.back()) : "cannot open the port";
        throw Failure(kNo_Device, "no device: " + Port_Text() + ": " + why);
    }
}

void Session::Identify() {
    const std::size_t before = errors_.size();
    ctl_.Request_Product_Data();
    const auto& pd = *ctl_.Product_Data();
    if (pd.Product_ID == 0 && Blank(pd.Product_Description_1)) {
        const std::string why = errors_.size() > before ? errors_.back() : "no answer";
        throw Failure(kTimeout, "timeout: no receiver answers on " + Port_Text() + " (" + why + ")");
    }
}

std::string Session::Describe() const {
    const auto& pd = *ctl_.Product_Data();
    std::string text = pd.Product_Description_1;
    if (text.empty()) text = "product " + std::to_string(pd.Product_ID);
    return text;
}

std::string Session::Device() const {
    if (Usb()) return options_.port == "usb" ? "usb:0" : options_.port;
    if (sim_) return sim_->Path();
    if (!ctl_.Port_Name().empty()) return ctl_.Port_Name();
    // A port given by number: the platform's own name for it.
    const auto port = ctl_.Platform()->Create_Serial_Port();
    port->CommPort(ctl_.Port());
    return port->Device_Name();
}

bool Session::Supports(Kind k) const {
    switch (k) {
        case Kind::Waypoints: return !Blank(ctl_.WayPoint_Transfer_Protocol());
        case Kind::Proximity: return !Blank(ctl_.Prox_Wpt_Transfer_Protocol());
        case Kind::Routes: return !Blank(ctl_.Route_Transfer_Protocol());
        case Kind::Tracks: return !Blank(ctl_.Track_Transfer_Protocol());
        case Kind::Laps: return !Blank(ctl_.Laps_Transfer_Protocol());
        case Kind::Flightbook: return !Blank(ctl_.Flightbook_Transfer_Protocol());
        case Kind::Almanac: return !Blank(ctl_.Almanac_Transfer_Protocol()) || !Blank(ctl_.Almanac_Data_Format());
    }
    return false;
}

void Session::Expect_No_New_Errors(std::size_t before, int code, const std::string& doing) {
    if (errors_.size() > before) throw Failure(code, doing + ": " + errors_[before]);
}

void Session::Wait(const char* what, const std::function<bool()>& done, double silence_ms) {
    auto& platform = *ctl_.Platform();
    last_packet_ms_ = platform.Now_ms();
    const double limit_ms = std::max<double>(options_.timeout_ms, silence_ms);
    while (!done()) {
        if (platform.Interrupted()) throw Failure(kInterrupted, std::string("interrupted: ") + what);
        platform.Run_Until(done, kSlice_ms);
        if (!done() && platform.Now_ms() - last_packet_ms_ > limit_ms)
            throw Failure(kTimeout, std::string("timeout: the receiver stopped answering during ") + what);
    }
}

void Session::Request(const char* what, const std::function<void()>& request) {
    const std::size_t before = errors_.size();
    request();
    Expect_No_New_Errors(before, kTimeout, std::string("timeout: ") + what);
}

// ---------------------------------------------------------------- fitness units

void Session::Fitness_Failure(std::size_t before, const std::string& doing) {
    if (errors_.size() <= before) return;
    const std::int16_t code = error_codes_[before];
    const std::string& why = errors_[before];
    if (why.find("does not support") != std::string::npos)
        throw Failure(kUnsupported, "unsupported kind: " + Describe() + " has no " + doing);
    if (code == 8 || code == 6) throw Failure(kRefused, "refused: " + why);
    if (code == kIncomplete_Transfer) throw Failure(kIncomplete, doing + ": " + why);
    throw Failure(kTimeout, "timeout: " + doing + ": " + why);
}

void Session::Download_Runs(const std::function<void(const cRun&)>& on_run) {
    const std::size_t before = errors_.size();
    on_run_ = on_run;
    ctl_.Request_Runs();
    on_run_ = nullptr;
    Fitness_Failure(before, "runs");
}

std::shared_ptr<Collection<cCourse>> Session::Download_Courses() {
    const std::size_t before = errors_.size();
    ctl_.Request_Courses();
    Fitness_Failure(before, "courses");
    return ctl_.Courses();
}

void Session::Upload_Courses(const Collection<cCourse>& courses) {
    const std::size_t before = errors_.size();
    ctl_.Send_Courses(courses);
    Fitness_Failure(before, "courses");
}

// ---------------------------------------------------------------- downloads

Data Session::Download(const std::vector<Kind>& kinds, bool skip_unsupported) {
    Data out;
    Data_Writer keep(out);
    Download(kinds, skip_unsupported, keep);
    return out;
}

void Session::Download(const std::vector<Kind>& kinds, bool skip_unsupported, Record_Writer& out) {
    // The records go through the session to `out`; the control keeps none.
    struct Streaming {
        Session& s;
        Streaming(Session& s, Record_Writer& out) : s(s) {
            s.writer_ = &out;
            s.ctl_.Record_Sink(&s);
        }
        ~Streaming() {
            s.ctl_.Record_Sink(nullptr);
            s.writer_ = nullptr;
        }
    } streaming(*this, out);
    shortfall_.clear();
    out.Begin(Describe());
    for (Kind k : kinds) {
        if (!Supports(k)) {
            if (skip_unsupported) continue;
            throw Failure(kUnsupported, "unsupported kind: " + Describe() + " has no " + std::string(Kind_Name(k)));
        }
        out.Begin_Kind(k);
        Download_One(k);
        out.End_Kind(k);
        if (!shortfall_.empty()) break;
    }
    out.Finish();
}

void Session::Download_One(Kind k) {
    static constexpr void (TrekcomCtl::*kRequest[])() = {
        &TrekcomCtl::Request_Waypoints, &TrekcomCtl::Request_Prox_Waypoints, &TrekcomCtl::Request_Routes,
        &TrekcomCtl::Request_Tracks,    &TrekcomCtl::Request_Laps,           &TrekcomCtl::Request_Flightbook,
        &TrekcomCtl::Request_Almanac_Data};
    const std::string name(Kind_Name(k));
    records_seen_ = 0;
    const long completions = completions_;
    Progress bar(name, options_.progress);
    const std::size_t before = errors_.size();
    // A short download is never taken for a whole one: the control's count
    // check comes first, and what did arrive is kept; then any other error.
    auto expect_whole = [&] {
        for (std::size_t i = before; i < errors_.size(); ++i)
            if (error_codes_[i] == kIncomplete_Transfer) {
                shortfall_ = name + ": " + errors_[i];
                return;
            }
        Expect_No_New_Errors(before, kTimeout, "timeout: downloading " + name);
    };
    (ctl_.*kRequest[static_cast<int>(k)])();
    expect_whole();
    if (!shortfall_.empty()) return;
    // The control ends a download that falls silent by itself, within two
    // watchdog periods, and says how many records came: give it that long.
    Wait(
        name.c_str(),
        [&] {
            bar.Update(records_seen_, static_cast<std::uint16_t>(ctl_.Incoming_Records_Count()));
            return completions_ > completions || errors_.size() > before;
        },
        2.0 * ctl_.Time_Out() + kWatchdog_Margin_ms);
    expect_whole();
}

// ---------------------------------------------------------------- uploads

std::vector<Kind> Session::Upload(const Data& data) {
    struct Batch {
        Kind kind;
        std::size_t records;
    };
    std::vector<Batch> batches;
    std::vector<Kind> skipped;
    const bool links = !Blank(ctl_.Route_Link_Format());
    const bool headers = !Blank(ctl_.Track_Header_Format());
    std::size_t route_records = 0, track_records = 0;
    for (const auto& r : data.routes)
        route_records += 1 + r.points.size() + (links && !r.points.empty() ? r.points.size() - 1 : 0);
    for (const auto& t : data.tracks) track_records += (headers ? 1 : 0) + t.points.size();
    for (Kind kind : kAll_Kinds) {
        const std::size_t n = kind == Kind::Routes ? route_records : kind == Kind::Tracks ? track_records : data.Count(kind);
        if (n == 0) continue;
        // An almanac goes up in the unit's own layout, so it needs one.
        const bool takes = kind == Kind::Almanac ? !Blank(ctl_.Almanac_Data_Format()) : Supports(kind);
        if (!takes) {
            skipped.push_back(kind);
            continue;
        }
        if (n > 32767)
            throw Failure(kError, "too many " + std::string(Kind_Name(kind)) + " for one upload: " + std::to_string(n));
        batches.push_back({kind, n});
    }

    for (const Batch& b : batches) {
        const std::string name(Kind_Name(b.kind));
        Progress bar("put " + name, options_.progress);
        long sent = 0;
        const std::size_t before = errors_.size();
        auto sent_one = [&] {
            bar.Update(++sent, static_cast<long>(b.records));
            if (ctl_.Platform()->Interrupted()) throw Failure(kInterrupted, "interrupted: uploading " + name);
            Expect_No_New_Errors(before, kRefused, "uploading " + name);
        };
        // Records the control takes as they are: each set as the current one, then sent.
        auto send_each = [&](const auto& list, auto set_current, void (TrekcomCtl::*send)()) {
            for (const auto& r : list) {
                set_current(std::make_shared<std::decay_t<decltype(r)>>(r));
                (ctl_.*send)();
                sent_one();
            }
        };
        std::int16_t count = static_cast<std::int16_t>(b.records);
        ctl_.Start_of_Records(count);
        Expect_No_New_Errors(before, kTimeout, "timeout: uploading " + name);
        switch (b.kind) {
            case Kind::Waypoints:
            case Kind::Proximity:
                for (const auto& w : b.kind == Kind::Waypoints ? data.waypoints : data.proximity) {
                    ctl_.Waypoint(std::make_shared<cWaypoint>(w));
                    b.kind == Kind::Waypoints ? ctl_.Send_Waypoint() : ctl_.Send_Prox_Waypoint();
                    sent_one();
                }
                break;
            case Kind::Routes:
                for (const auto& r : data.routes) {
                    auto header = std::make_shared<cRoute>(r.header);
                    ctl_.Route(header);
                    ctl_.Send_Route_Header();
                    sent_one();
                    for (std::size_t i = 0; i < r.points.size(); ++i) {
                        ctl_.Waypoint(std::make_shared<cWaypoint>(r.points[i]));
                        ctl_.Send_Route_Waypoint();
                        sent_one();
                        if (links && i + 1 < r.points.size()) {
                            ctl_.Send_Route_Link();
                            sent_one();
                        }
                    }
                }
                break;
            case Kind::Tracks:
                for (const auto& t : data.tracks) {
                    if (headers) {
                        ctl_.Track(std::make_shared<cTrack>(t.header));
                        ctl_.Send_Track_Header();
                        sent_one();
                    }
                    for (const auto& p : t.points) {
                        auto point = std::make_shared<cTrack>(p);
                        point->Ident = t.header.Ident;
                        ctl_.Track(point);
                        ctl_.Send_Track();
                        sent_one();
                    }
                }
                break;
            case Kind::Laps: send_each(data.laps, [&](auto r) { ctl_.Lap(r); }, &TrekcomCtl::Send_Lap); break;
            case Kind::Flightbook:
                send_each(data.flights, [&](auto r) { ctl_.Flightbook_Record(r); }, &TrekcomCtl::Send_Flightbook_Record);
                break;
            case Kind::Almanac:
                send_each(data.almanac, [&](auto r) { ctl_.Almanac(r); }, &TrekcomCtl::Send_Almanac_Data);
                break;
        }
        ctl_.End_of_Records();
        Expect_No_New_Errors(before, kRefused, "uploading " + name);
    }
    return skipped;
}

// ---------------------------------------------------------------- events

void Session::Receive(Bytes& packet) {
    if (packet.size() < 2) return;
    last_packet_ms_ = ctl_.Platform()->Now_ms();
    const std::uint8_t id = packet[1];
    if (id == ctl_.PID_Xfer_Cmplt()) {
        ++completions_;
    } else if (id == ctl_.PID_Records()) {
        records_seen_ = 0;
    } else if (id != ctl_.PID_Ack_Byte() && id != ctl_.PID_Nak_Byte()) {
        ++records_seen_;
        // Almanac entries fill the control's one record in place: each is passed on as it comes.
        if (id == ctl_.PID_Almanac_Data() && ctl_.Almanac() && writer_) writer_->Almanac(*ctl_.Almanac());
    }
    if (On_Packet) On_Packet(packet);
}

void Session::HexDebug(std::string& line) {
    if (trace_) trace_ << line << '\n';
}

void Session::NMEA(std::string& sentence, bool& good) {
    last_packet_ms_ = ctl_.Platform()->Now_ms();
    if (On_Nmea) On_Nmea(sentence, good);
}

void Session::cError(std::int16_t& code, std::string& message, Bytes&) {
    if (trace_) trace_ << "error " << code << ": " << message << '\n';
    if (code == kUsb_Not_Found && Usb()) {
        Usb_Not_Found(code);
        return;
    }
    errors_.push_back(message);
    error_codes_.push_back(code);
}

void Session::Usb_Not_Found(std::int16_t& code) {
    Platform& platform = *ctl_.Platform();
    if (usb_search_start_ms_ < 0) {
        usb_search_start_ms_ = platform.Now_ms();
        *options_.notes << "trekcom: waiting for a Garmin USB receiver (connect it and switch it on)...\n";
    }
    platform.Run_Until([] { return false; }, kUsb_Search_Pause_ms);
    if (platform.Now_ms() - usb_search_start_ms_ >= options_.timeout_ms) {
        usb_search_given_up_ = true;
        code = 0;
    }
}

void Session::ReceiveCounts(std::int16_t& w, std::int16_t& p, std::int16_t& r, std::int16_t& t) {
    if (On_Counts) On_Counts(w, p, r, t);
}

}  // namespace trekcom::tool
