// What waiting costs on the real platform. The control spends most of its
// life waiting (a 2-second watchdog, a 29-second baud search, a host's loop
// of DoEvents); each wait must sleep in the kernel, not spin. The figure to
// read is cpu_fraction: process CPU time over wall time, target below 0.05.
#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>
#include <optional>
#include <string>

#include "platform/pty.h"
#include "trekcom/platform.h"

namespace {

constexpr double kWait_ms = 2000;

double Cpu_Seconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double Wall_Seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The loop with something to watch, as during a transfer: a port open on a
// pty and the response watchdog running. state.range(0) == 0 leaves both out.
struct Setting {
    explicit Setting(bool busy) {
        if (!busy) return;
        std::string error;
        pty = trekcom::platform::Pty::Open(error);
        if (!pty) return;
        port = platform->Create_Serial_Port();
        port->Port_Name(pty->Slave_Path());
        port->RThreshold(1);
        port->OnComm = [this] { port->Input(); };
        port->PortOpen(true);
        watchdog = platform->Create_Timer();
        watchdog->Tick = [] {};
        watchdog->Interval(1000);
        watchdog->Enabled(true);
    }
    bool Ready(benchmark::State& state) const {
        if (state.range(0) == 0 || (port && port->PortOpen())) return true;
        state.SkipWithError(port ? port->Last_Error().c_str() : "no pty pair");
        return false;
    }

    std::shared_ptr<trekcom::Platform> platform = trekcom::Default_Platform();
    std::optional<trekcom::platform::Pty> pty;
    std::unique_ptr<trekcom::SerialPort> port;
    std::unique_ptr<trekcom::Timer> watchdog;
};

void Report(benchmark::State& state, double cpu_s, double wall_s, double pumps) {
    state.counters["cpu_fraction"] = cpu_s / wall_s;
    state.counters["wall_s"] = wall_s;
    state.counters["pumps_per_s"] = pumps / wall_s;  // 0 for Run_Until: CSV wants every counter in every row
}

// A wait with a deadline and nothing arriving (Run_Until, as the waits of
// the control are made).
void BM_Run_Until_Idle_2s(benchmark::State& state) {
    Setting setting(state.range(0) != 0);
    if (!setting.Ready(state)) return;
    double cpu = 0, wall = 0;
    for (auto _ : state) {
        const double cpu0 = Cpu_Seconds(), wall0 = Wall_Seconds();
        benchmark::DoNotOptimize(setting.platform->Run_Until([] { return false; }, kWait_ms));
        cpu += Cpu_Seconds() - cpu0;
        wall += Wall_Seconds() - wall0;
    }
    Report(state, cpu, wall, 0);
}

// A host that yields with DoEvents in a loop of its own: each call may wait
// about a millisecond, so the loop wakes about a thousand times a second.
void BM_DoEvents_Loop_2s(benchmark::State& state) {
    Setting setting(state.range(0) != 0);
    if (!setting.Ready(state)) return;
    double cpu = 0, wall = 0, pumps = 0;
    for (auto _ : state) {
        const double cpu0 = Cpu_Seconds(), wall0 = Wall_Seconds();
        const double end = setting.platform->Now_ms() + kWait_ms;
        while (setting.platform->Now_ms() < end) {
            setting.platform->DoEvents();
            ++pumps;
        }
        cpu += Cpu_Seconds() - cpu0;
        wall += Wall_Seconds() - wall0;
    }
    Report(state, cpu, wall, pumps);
}

BENCHMARK(BM_Run_Until_Idle_2s)->ArgName("port_and_timer")->Arg(0)->Arg(1)
    ->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DoEvents_Loop_2s)->ArgName("port_and_timer")->Arg(0)->Arg(1)
    ->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
