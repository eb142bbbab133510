#include "sim_port.h"

#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <thread>

#include "pty_line.h"
#include "trekcom_sim/unit.h"
#include "trekcom_sim/usb.h"

namespace trekcom::tool {

namespace {

// Stops the unit's thread. The signal is aimed at that thread, so its
// handler, and the only write of the flag, runs there: the flag is shared
// with nothing but the thread's own loop. One simulated unit per process.
constexpr int kStop_Signal = SIGUSR1;
volatile sig_atomic_t g_stop = 0;
extern "C" void On_Stop(int) { g_stop = 1; }

}  // namespace

struct Sim_Port::Impl {
    std::string dir;
    std::string link;
    std::unique_ptr<sim::Pty_Line> line;
    std::unique_ptr<sim::Unit> unit;
    std::shared_ptr<sim::Usb_Receiver> usb;  // a USB-only unit, served in-process
    std::thread thread;

    ~Impl() {
        if (thread.joinable()) {
            // The thread has the signal blocked except inside its ppoll, so
            // it cannot slip in between the loop's check and its wait.
            pthread_kill(thread.native_handle(), kStop_Signal);
            thread.join();
        }
        if (unit) unit->Connect(nullptr);
        line.reset();  // removes the link
        if (!dir.empty()) rmdir(dir.c_str());
    }
};

namespace {

bool Unit_Of(const Sim_Options& options, sim::Profile& profile, sim::Data_Set& data, std::string& error) {
    try {
        profile = sim::Profile::Named(options.profile);
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
    data = sim::Builtin_Data();
    if (profile.fitness) sim::Add_Fitness_Data(data);
    if (!options.data_file.empty() && !sim::Load_Data(options.data_file, data, error)) return false;
    if (options.empty) {
        const sim::Situation where = data.situation;
        data = {};
        data.situation = where;
    }
    return true;
}

}  // namespace

bool Sim_Port::Usb_Only(const std::string& profile) {
    try {
        return sim::Profile::Named(profile).fitness;
    } catch (const std::exception&) {
        return false;
    }
}

std::unique_ptr<Sim_Port> Sim_Port::Start_Usb(const Sim_Options& options, const std::shared_ptr<Platform>& platform,
                                              std::string& error) {
    auto impl = std::make_unique<Impl>();
    sim::Profile profile;
    sim::Data_Set data;
    if (!Unit_Of(options, profile, data, error)) return nullptr;
    impl->usb = sim::Plug_In(platform, std::move(profile));
    impl->usb->unit.Data() = std::move(data);
    return std::make_unique<Sim_Port>(std::move(impl));
}

std::unique_ptr<Sim_Port> Sim_Port::Start(const Sim_Options& options, std::string& error) {
    auto impl = std::make_unique<Impl>();
    sim::Profile profile;
    sim::Data_Set data;
    if (!Unit_Of(options, profile, data, error)) return nullptr;
    sim::Options unit_options;
    unit_options.mode = options.mode == "nmea"   ? sim::Output_Mode::nmea
                        : options.mode == "text" ? sim::Output_Mode::text
                                                 : sim::Output_Mode::garmin;

    std::string dir = "/tmp/trekcom-sim-XXXXXX";
    if (!mkdtemp(dir.data())) {
        error = "cannot make a directory for the simulated receiver's link";
        return nullptr;
    }
    impl->dir = dir;
    impl->link = dir + "/gps";
    // Bytes pass whatever rate the host sets. The pty line judges a byte's
    // rate when its thread reads it, not when it was written, so the ACK a
    // host writes just before it reopens the port at a new rate would be
    // judged at the new rate and lost; a real line sends it first.
    impl->line = std::make_unique<sim::Pty_Line>(impl->link, false);
    if (!impl->line->Open(error)) return nullptr;
    impl->unit = std::make_unique<sim::Unit>(profile, std::move(data), unit_options);
    impl->unit->Connect(impl->line.get());

    struct sigaction sa {};
    sa.sa_handler = On_Stop;
    sigemptyset(&sa.sa_mask);
    sigaction(kStop_Signal, &sa, nullptr);
    g_stop = 0;
    sigset_t wake, saved;
    sigemptyset(&wake);
    sigaddset(&wake, kStop_Signal);
    // The new thread inherits the blocked signal; this thread gets its mask back.
    pthread_sigmask(SIG_BLOCK, &wake, &saved);
    Impl* raw = impl.get();
    impl->thread = std::thread([raw] { raw->line->Run(*raw->unit, g_stop); });
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    return std::make_unique<Sim_Port>(std::move(impl));
}

Sim_Port::Sim_Port(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Sim_Port::~Sim_Port() = default;

const std::string& Sim_Port::Path() const { return impl_->link; }

}  // namespace trekcom::tool
