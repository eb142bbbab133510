#include "receiver.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <type_traits>

#include "commands.h"
#include "records.h"

namespace trekcom::python {

namespace {

// Receivers share the platform's one event loop, which one thread runs at a
// time: their waits take turns, while other Python threads go on.
std::mutex& Conversation() {
    static std::mutex conversation;
    return conversation;
}

// The simulated unit on its pty is one per process.
bool g_sim_open = false;

// Python's own SIGINT handler only sets a flag that its interpreter loop
// checks, which a wait in C++ never reaches. While a wait runs, this handler
// ends it instead; Python hears of the signal once the wait is over.
std::atomic<Platform*> g_interrupt_target{nullptr};
volatile sig_atomic_t g_interrupted = 0;
extern "C" void On_Sigint(int) {
    g_interrupted = 1;
    if (Platform* p = g_interrupt_target.load()) p->Interrupt();
}

bool On_Main_Thread() {
    const py::module_ threading = py::module_::import("threading");
    return threading.attr("current_thread")().is(threading.attr("main_thread")());
}

class Sigint_Guard {
public:
    explicit Sigint_Guard(Platform& platform) {
        // Signals reach the main thread only; and a program that ignores them keeps doing so.
        if (!On_Main_Thread() || sigaction(SIGINT, nullptr, &saved_) != 0 || saved_.sa_handler == SIG_IGN) return;
        struct sigaction ours {};
        ours.sa_handler = On_Sigint;
        sigemptyset(&ours.sa_mask);
        g_interrupted = 0;
        g_interrupt_target = &platform;
        installed_ = sigaction(SIGINT, &ours, nullptr) == 0;
    }
    ~Sigint_Guard() { Restore(); }
    Sigint_Guard(const Sigint_Guard&) = delete;
    Sigint_Guard& operator=(const Sigint_Guard&) = delete;

    // True when Ctrl-C came while this handler was in place.
    bool Fired() const { return installed_ && g_interrupted != 0; }

    // True when Ctrl-C came during the wait; Python's handler is back.
    bool Restore() {
        if (!installed_) return false;
        sigaction(SIGINT, &saved_, nullptr);
        g_interrupt_target = nullptr;
        installed_ = false;
        return g_interrupted != 0;
    }

private:
    struct sigaction saved_ {};
    bool installed_ = false;
};

const char* Error_Class(int code) {
    switch (code) {
        case tool::kNo_Device: return "NoDeviceError";
        case tool::kTimeout: return "TimeoutError";
        case tool::kUnsupported: return "UnsupportedError";
        case tool::kRefused: return "RefusedError";
        case tool::kIncomplete: return "IncompleteError";
        case tool::kBad_File: return "FileFormatError";
        default: return "Error";
    }
}

std::vector<std::string> Protocols(const TrekcomCtl& ctl) {
    std::vector<std::string> ids;
    auto add = [&](std::string id) {
        while (!id.empty() && (id.back() == ' ' || id.back() == '\0')) id.pop_back();
        if (!id.empty() && std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(std::move(id));
    };
    for (const auto& row : tool::Protocol_Table(ctl)) {
        add(row.protocol);
        for (const auto& f : row.formats) add(f);
    }
    return ids;
}

}  // namespace

[[noreturn]] void Raise_Error(const char* cls, const std::string& message, std::optional<int> number,
                              const std::string& text, const py::object& received) {
    const py::object number_or_none = number ? py::object(py::int_(*number)) : py::none();
    const py::object error_class = py::module_::import("trekcom.errors").attr(cls);
    const py::object error = received ? error_class(message, number_or_none, text, received)
                                      : error_class(message, number_or_none, text);
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

Receiver::Receiver(Receiver_Options options) : options_(std::move(options)) {
    sim_ = options_.port == "sim";
    if (sim_ && g_sim_open) throw py::value_error("one simulated receiver at a time: close the other first");
    tool::Session_Options s;
    s.port = options_.port;
    s.timeout_ms = options_.timeout_ms;
    s.timeout_name = "timeout";
    s.trace_file = options_.trace_file;
    s.progress = false;
    s.fast = options_.fast;
    s.sim.profile = options_.sim_profile;
    s.sim.data_file = options_.sim_data;
    s.sim.empty = options_.sim_empty;
    s.notes = &notes_;
    session_ = std::make_unique<tool::Session>(std::move(s));
    try {
        Blocking([&] { session_->Open(); });
    } catch (...) {
        session_.reset();
        throw;
    }
    if (sim_) g_sim_open = true;
}

Receiver::~Receiver() {
    py::gil_scoped_release nogil;
    std::lock_guard lock(Conversation());
    session_.reset();
    if (sim_) g_sim_open = false;
}

void Receiver::Close() {
    if (!session_) return;
    {
        py::gil_scoped_release nogil;
        std::lock_guard lock(Conversation());
        session_.reset();
    }
    if (sim_) g_sim_open = false;
}

tool::Session& Receiver::Session() {
    if (!session_) throw py::value_error("the receiver is closed");
    return *session_;
}

template <class Work>
auto Receiver::Blocking(Work&& work) -> decltype(work()) {
    using Result = decltype(work());
    tool::Session& session = Session();
    Platform& platform = *session.Ctl().Platform();
    const std::size_t errors_before = session.Errors().size();
    std::optional<tool::Failure> failure;
    std::exception_ptr other;
    std::optional<std::conditional_t<std::is_void_v<Result>, bool, Result>> result;
    Sigint_Guard sigint(platform);
    {
        py::gil_scoped_release nogil;
        std::lock_guard lock(Conversation());
        // A stale request from an earlier wait goes; one made while this wait
        // queued for its turn stays, and the wait ends at once.
        if (!sigint.Fired()) platform.Clear_Interrupt();
        try {
            if constexpr (std::is_void_v<Result>) {
                work();
                result = true;
            } else {
                result = work();
            }
        } catch (const tool::Failure& f) {
            failure = f;
        } catch (...) {
            other = std::current_exception();
        }
        platform.Clear_Interrupt();
    }
    if (sigint.Restore() || (failure && failure->code == tool::kInterrupted)) {
        // Python's handler decides: by default a KeyboardInterrupt.
        PyErr_SetInterrupt();
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
    if (other) std::rethrow_exception(other);
    if (failure) Raise(*failure, errors_before);
    if constexpr (!std::is_void_v<Result>) return std::move(*result);
}

void Receiver::Raise(const tool::Failure& failure, std::size_t errors_before) {
    if (failure.code == tool::kUsage) throw py::value_error(failure.what());
    // The control's own number and words for what went wrong, where it raised an error.
    const auto& codes = Session().Error_Codes();
    const auto& texts = Session().Errors();
    const bool raised = codes.size() > errors_before;
    Raise_Error(Error_Class(failure.code), failure.what(),
                raised ? std::optional<int>(codes[errors_before]) : std::nullopt,
                raised ? texts[errors_before] : std::string());
}

void Receiver::Ensure_Identified() {
    if (identified_) return;
    session_->Identify();
    identified_ = true;
}

py::object Receiver::Identify() {
    Blocking([&] {
        identified_ = false;
        Ensure_Identified();
    });
    const TrekcomCtl& ctl = Session().Ctl();
    return Product_To_Python(*ctl.Product_Data(), Protocols(ctl));
}

namespace {

tool::Kind Kind_Of(const std::string& name) {
    if (auto k = tool::Kind_Named(name)) return *k;
    std::string known;
    for (tool::Kind k : tool::kAll_Kinds) known += std::string(tool::Kind_Name(k)) + ", ";
    throw py::value_error("no record kind '" + name + "': use one of " + known + "runs, courses");
}

}  // namespace

py::list Receiver::Get(const std::string& kind) {
    if (kind == "runs") {
        std::vector<cRun> runs;
        Blocking([&] {
            Ensure_Identified();
            session_->Download_Runs([&](const cRun& run) { runs.push_back(run); });
        });
        py::list out;
        for (const cRun& run : runs) out.append(Run_To_Python(run));
        return out;
    }
    if (kind == "courses") {
        const auto courses = Blocking([&] {
            Ensure_Identified();
            return session_->Download_Courses();
        });
        return courses ? Courses_To_Python(*courses) : py::list();
    }
    const tool::Kind k = Kind_Of(kind);
    const tool::Data data = Blocking([&] {
        Ensure_Identified();
        return session_->Download({k}, false);
    });
    py::list records = Kind_To_Python(data, k);
    if (!session_->Shortfall().empty()) {
        // What did arrive is not lost: it rides on the error, with the control's count error.
        constexpr std::int16_t kIncomplete_Transfer = 7;
        const auto& codes = session_->Error_Codes();
        const auto at = std::find(codes.rbegin(), codes.rend(), kIncomplete_Transfer);
        const std::size_t i = static_cast<std::size_t>(codes.rend() - at) - 1;
        Raise_Error("IncompleteError", session_->Shortfall(), kIncomplete_Transfer,
                    at == codes.rend() ? session_->Shortfall() : session_->Errors()[i], records);
    }
    return records;
}

void Receiver::Put(const std::string& kind, py::handle records) {
    if (kind == "courses") {
        const Collection<cCourse> courses = Courses_From_Python(records);
        Blocking([&] {
            Ensure_Identified();
            session_->Upload_Courses(courses);
        });
        return;
    }
    if (kind == "runs") throw py::value_error("runs cannot be uploaded: a unit only records them");
    const tool::Kind k = Kind_Of(kind);
    tool::Data data;
    Kind_From_Python(records, k, data);
    Blocking([&] { Ensure_Identified(); });
    if (k == tool::Kind::Tracks) Warn_Of_Dropped_Heights(data);
    Blocking([&] {
        if (!session_->Upload(data).empty())
            throw tool::Failure(tool::kUnsupported,
                                "unsupported kind: " + session_->Describe() + " takes no " + kind);
    });
}

void Receiver::Warn_Of_Dropped_Heights(const tool::Data& data) {
    // The control sends D302 track points without their altitude and depth
    // (zero bytes in their place), as it always has: say so rather than lose them quietly.
    if (session_->Ctl().Track_Point_Format().rfind("D302", 0) != 0) return;
    for (const auto& track : data.tracks)
        for (const auto& p : track.points)
            if ((p.Alt != 0 && p.Alt < 1.0e24f) || (p.Dpth != 0 && p.Dpth < 1.0e24f)) {
                if (PyErr_WarnEx(PyExc_UserWarning,
                                 "this unit's track points (D302) go up without altitude and depth", 1) != 0)
                    throw py::error_already_set();
                return;
            }
}

// ---------------------------------------------------------------- real-time data

void Receiver::Pvt_Start() {
    Blocking([&] {
        Ensure_Identified();
        TrekcomCtl& ctl = session_->Ctl();
        // A unit without PVT leaves the protocol blank (spaces or NULs).
        if (ctl.Pvt_Transfer_Protocol().find_first_not_of(" \0", 0, 2) == std::string::npos)
            throw tool::Failure(tool::kUnsupported, "unsupported kind: " + session_->Describe() + " sends no PVT data");
        fixes_.clear();
        session_->On_Packet = [this, &ctl](const Bytes& p) {
            if (p[1] == ctl.PID_Pvt_Data() && ctl.PvtData()) fixes_.push_back(*ctl.PvtData());
            if (p[1] == ctl.PID_Sats()) ++sat_tables_;
        };
        ctl.Pvt_Data_Start();
    });
    streaming_ = true;
}

py::object Receiver::Next_Pvt() {
    if (!streaming_) throw py::value_error("the PVT stream is not started");
    Blocking([&] { session_->Wait("the PVT stream", [&] { return !fixes_.empty(); }); });
    const cPvtData fix = fixes_.front();
    fixes_.pop_front();
    return Pvt_To_Python(fix);
}

void Receiver::Pvt_Stop() {
    if (!session_ || !streaming_) return;
    streaming_ = false;
    Blocking([&] {
        session_->On_Packet = nullptr;
        fixes_.clear();
        session_->Ctl().Pvt_Data_Stop();
    });
}

py::list Receiver::Satellites() {
    const bool was_streaming = streaming_;
    if (!was_streaming) Pvt_Start();
    const long before = sat_tables_;
    try {
        Blocking([&] { session_->Wait("waiting for the satellite table", [&] { return sat_tables_ > before; }); });
    } catch (...) {
        if (!was_streaming) Pvt_Stop();
        throw;
    }
    if (!was_streaming) Pvt_Stop();
    const auto sats = Session().Ctl().Sats();
    return sats ? Sats_To_Python(*sats) : py::list();
}

py::object Receiver::Position() {
    Blocking([&] {
        Ensure_Identified();
        session_->Request("asking for the position", [&] { session_->Ctl().Request_Position_Data(); });
    });
    return Position_To_Python(*Session().Ctl().Position());
}

py::object Receiver::Date_Time() {
    Blocking([&] {
        Ensure_Identified();
        session_->Request("asking for the date and time", [&] { session_->Ctl().Request_Date_Time(); });
    });
    return Date_Time_To_Python(*Session().Ctl().Date_Time());
}

py::object Receiver::Voltages() {
    Blocking([&] {
        Ensure_Identified();
        session_->Request("asking for the voltages", [&] { session_->Ctl().Request_Voltages(); });
    });
    return Voltages_To_Python(*Session().Ctl().Voltages());
}

}  // namespace trekcom::python
