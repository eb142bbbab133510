// trekcom-sim: a simulated Garmin receiver on a pseudo-terminal.
//
//   trekcom-sim --link /tmp/gps [--profile NAME] [--data FILE] [options]
//
// Prints one line "trekcom-sim: ready on PATH ..." when a host may open PATH,
// and serves until SIGINT or SIGTERM, then removes PATH and exits 0.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>

#include "pty_line.h"
#include "trekcom_sim/unit.h"

namespace {

volatile int g_stop = 0;
extern "C" void On_Signal(int) { g_stop = 1; }

}  // namespace

int main(int argc, char** argv) {
    using namespace trekcom::sim;
    CLI::App app{"A simulated Garmin receiver on a pseudo-terminal"};
    std::string link_path, profile_name = "current", data_file, dump_file, save_file, garbage, mode = "garmin";
    std::size_t gen_track = 0;
    Options options;
    Faults faults;
    bool any_baud = false, list = false, trace = false, line_stats = false, dle_etx_noise = false;
    app.add_option("--link", link_path, "Path of the link to the pty's slave end (the host's port)");
    app.add_option("--profile", profile_name, "Unit profile (--list-profiles)");
    app.add_flag("--list-profiles", list, "List the profiles and exit");
    app.add_flag("--trace", trace, "Write every packet to standard error");
    app.add_option("--data", data_file, "JSON data file to serve instead of the built-in set");
    app.add_option("--gen-track", gen_track, "Append a generated track of N points");
    app.add_option("--dump", dump_file, "Write everything uploaded to FILE (JSON) on exit");
    app.add_option("--save-data", save_file, "Write the data set (JSON) to FILE and exit");
    app.add_option("--baud", options.baud, "The unit's line rate")->check(CLI::PositiveNumber);
    app.add_flag("--pace", options.pace, "Take real line time: 10 bits per byte at the unit's rate, both ways (spins a core)");
    app.add_flag("--line-stats", line_stats, "On exit, print the bytes that crossed the line each way");
    app.add_flag("--any-baud", any_baud, "Let bytes through whatever rate the host sets");
    app.add_option("--ack-timeout", options.ack_timeout_ms, "Milliseconds before a packet is sent again");
    app.add_option("--power-on-after", options.power_on_after_ms, "Milliseconds off after a power-off (0: stay off)");
    app.add_option("--mode", mode, "garmin, nmea or text")->check(CLI::IsMember({"garmin", "nmea", "text"}));
    app.add_option("--nak-first", faults.nak_first, "NAK the host's first N packets");
    app.add_option("--corrupt-every", faults.corrupt_every, "Corrupt the checksum of every Kth packet sent");
    app.add_option("--drop-byte-every", faults.drop_byte_every, "Drop one byte of every Kth packet sent");
    app.add_option("--garbage", garbage, "Bytes written before every packet");
    app.add_flag("--dle-etx-noise", dle_etx_noise, "Write noise holding DLE ETX before every packet (after --garbage)");
    app.add_option("--stall-after", faults.stall_after_record, "Go silent after record K of the next transfer");
    app.add_option("--hang-up-after", faults.hang_up_after_record, "Close the line after record K of the next transfer");
    app.add_option("--drop-screen-packet", faults.drop_display_packet,
                   "Leave out the Kth packet (1-based) of the next screen capture");
    app.add_flag("--screen-rows-reversed", faults.display_rows_reversed, "Send the screen's rows last first");
    app.add_option("--off-after", faults.off_after_record,
                   "Switch off after record K of the next transfer (see --power-on-after)");
    CLI11_PARSE(app, argc, argv);

    if (list) {
        for (const auto& n : Profile::Names()) std::cout << n << '\n';
        return 0;
    }
    Profile profile;
    try {
        profile = Profile::Named(profile_name);
    } catch (const std::exception& e) {
        std::cerr << "trekcom-sim: " << e.what() << '\n';
        return 2;
    }
    Data_Set data = Builtin_Data();
    if (profile.fitness) Add_Fitness_Data(data);  // --save-data then writes a fitness set to start from
    std::string error;
    if (!data_file.empty() && !Load_Data(data_file, data, error)) {
        std::cerr << "trekcom-sim: " << error << '\n';
        return 2;
    }
    if (gen_track > 0) Add_Generated_Track(data, gen_track);
    if (!save_file.empty()) {
        if (!Save_Data(save_file, data, error)) {
            std::cerr << "trekcom-sim: " << error << '\n';
            return 1;
        }
        return 0;
    }
    if (link_path.empty()) {
        std::cerr << "trekcom-sim: --link PATH is required\n";
        return 2;
    }
    options.mode = mode == "nmea" ? Output_Mode::nmea : mode == "text" ? Output_Mode::text : Output_Mode::garmin;
    faults.garbage.assign(garbage.begin(), garbage.end());
    if (dle_etx_noise) {
        const trekcom::Bytes noise = Dle_Etx_Noise();
        faults.garbage.insert(faults.garbage.end(), noise.begin(), noise.end());
    }

    // Signals arrive only inside the loop's ppoll, so none is missed between checks.
    sigset_t block;
    sigemptyset(&block);
    sigaddset(&block, SIGINT);
    sigaddset(&block, SIGTERM);
    sigprocmask(SIG_BLOCK, &block, nullptr);
    struct sigaction sa {};
    sa.sa_handler = On_Signal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    Pty_Line line(link_path, !any_baud);
    if (!line.Open(error)) {
        std::cerr << "trekcom-sim: " << error << '\n';
        return 1;
    }
    if (options.pace) {
        line.Pace_Host(true);
    }
    Unit unit(profile, std::move(data), options);
    unit.Fault_Knobs() = faults;
    if (trace)
        unit.Trace_Handler([&line](char from, std::uint8_t id, const trekcom::Bytes& data) {
            std::fprintf(stderr, "%10.1f %s %3u [%3zu]", line.Now_ms(), from == 'H' ? "host>" : "unit>", id, data.size());
            for (auto b : data) std::fprintf(stderr, " %02X", b);
            std::fprintf(stderr, "\n");
        });
    unit.Connect(&line);
    std::printf("trekcom-sim: ready on %s (%s, profile %s, %d baud)\n", link_path.c_str(), line.Slave_Name().c_str(),
                profile.name.c_str(), static_cast<int>(options.baud));
    std::fflush(stdout);

    line.Run(unit, g_stop);
    unit.Connect(nullptr);
    if (line_stats)
        std::fprintf(stderr, "trekcom-sim: line: unit sent %llu bytes, host sent %llu bytes\n",
                     static_cast<unsigned long long>(line.Unit_Bytes()), static_cast<unsigned long long>(line.Host_Bytes()));
    if (!dump_file.empty() && !unit.Dump_Uploads(dump_file, error)) {
        std::cerr << "trekcom-sim: " << error << '\n';
        return 1;
    }
    return 0;
}
