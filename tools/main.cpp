// trekcom: talk to a Garmin receiver from the command line.
//
//   trekcom [--port PATH|N|usb|sim] [options] COMMAND ...
//
// Every command prints its result on standard output (JSON with --json) and
// fails with one line on standard error and the exit code of its kind
// (session.h, docs/trekcom.md).
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "commands.h"
#include "session.h"

namespace {

// The loop every wait of this run pumps: SIGINT and SIGTERM ask it to give up.
std::atomic<trekcom::Platform*> g_platform{nullptr};
// A signal that came before the platform was there, for main to pass on.
std::atomic<bool> g_early_interrupt{false};
static_assert(std::atomic<trekcom::Platform*>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

extern "C" void On_Interrupt(int) {
    if (trekcom::Platform* p = g_platform.load())
        p->Interrupt();
    else
        g_early_interrupt = true;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace trekcom::tool;
    // First of all, so that an interrupt is never lost, however early.
    struct sigaction sa {};
    sa.sa_handler = On_Interrupt;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    CLI::App app{"Talks to a Garmin GPS receiver over a serial port, USB or the built-in simulated receiver."};
    app.require_subcommand(1);
    app.footer("Exit codes: 0 ok, 1 other failure, 2 usage, 3 no device, 4 timeout, 5 unsupported kind,\n"
               "6 bad file, 7 refused or not read back, 130 interrupted. See docs/trekcom.md.");
    Session_Options options;
    Command_Options command;
    bool no_progress = false;
    app.add_option("--port,-p", options.port,
                   "Serial device path, port number N (/dev/ttyS<N-1>), usb (the first Garmin receiver on USB), usb:N (the "
                   "one after N others, as list shows them), or sim (the built-in simulated receiver)")
        ->capture_default_str();
    app.add_option("--settings", options.settings, "Line settings \"baud,parity,data,stop\" (default 9600,N,8,1)");
    app.add_option("--timeout", options.timeout_ms, "Milliseconds of silence before giving up (answers wait 2000..5000)")
        ->check(CLI::Range(100, 600000))
        ->capture_default_str();
    app.add_option("--language", options.language, "Language of the control's messages");
    app.add_option("--trace", options.trace_file, "Write the packet trace (HexDebug lines) to FILE");
    app.add_flag("--json", command.json, "Print data as JSON");
    app.add_flag("--no-progress", no_progress, "Never draw a progress bar");
    auto* sim_group = app.add_option_group("Simulated receiver (--port sim)");
    sim_group->add_option("--sim-profile", options.sim.profile, "Which unit it plays (trekcom-sim --list-profiles)")
        ->capture_default_str();
    sim_group->add_option("--sim-data", options.sim.data_file, "JSON data set it holds (trekcom-sim's format)");
    sim_group->add_flag("--sim-empty", options.sim.empty, "It starts with no records");
    sim_group->add_option("--sim-mode", options.sim.mode, "garmin, nmea or text")
        ->check(CLI::IsMember({"garmin", "nmea", "text"}));

    auto* info = app.add_subcommand("info", "Identify the receiver: product, version, unit id, protocols");

    auto* get = app.add_subcommand("get", "Download records to a GPX file (or JSON with --json)");
    get->add_option("kinds", command.kinds,
                    "waypoints, proximity, routes, tracks, laps, flightbook, almanac, or all; or runs or courses "
                    "of a fitness unit (TCX, or GPX or JSON by the file's name or --json)")
        ->required();
    get->add_option("-o,--output", command.output, "Output file; - for standard output")->capture_default_str();
    bool no_fast = false;
    constexpr const char* kNo_Fast = "Stay at the line rate of --settings (on serial, a big transfer otherwise "
                                     "runs at the fastest rate the receiver accepts)";
    get->add_flag("--no-fast", no_fast, kNo_Fast);

    auto* put = app.add_subcommand("put", "Upload the waypoints, routes and tracks of a GPX file");
    put->add_option("file", command.input, "GPX file")->required();
    put->add_flag("--verify", command.verify, "Download again and check that every record reads back");
    put->add_flag("--courses", command.courses, "Send the file's tracks as courses (a .tcx file always is)");
    put->add_flag("--no-fast", no_fast, kNo_Fast);

    auto* pvt = app.add_subcommand("pvt", "Print live position, velocity and time until Ctrl-C");
    pvt->add_option("-n,--count", command.count, "Stop after N updates");
    auto* pvt_nmea = pvt->add_flag("--nmea", command.nmea_out, "Print NMEA 0183 GGA and RMC sentences instead");
    pvt->add_flag("--gpsd", command.gpsd,
                  "Print gpsd's JSON instead: a TPV object per update and a SKY object per satellite table, "
                  "one a line (-n counts the TPV objects)")
        ->excludes(pvt_nmea);

    auto* time = app.add_subcommand("time", "Print the receiver's date and time (UTC)");
    auto* position = app.add_subcommand("position", "Print the receiver's position");
    auto* sats = app.add_subcommand("sats", "Print the satellites in view");
    auto* voltages = app.add_subcommand("voltages", "Print the supply voltages");
    auto* counts = app.add_subcommand("counts", "Print how many records of each kind the receiver holds");
    auto* baud = app.add_subcommand("baud", "Find the receiver's line rate, or change it to RATE");
    baud->add_option("rate", command.rate, "New rate (4800 .. 115200)")->check(CLI::PositiveNumber);
    auto* off = app.add_subcommand("off", "Switch the receiver off");
    auto* nmea = app.add_subcommand("nmea", "Print the NMEA sentences the receiver sends, or send one");
    nmea->add_option("-n,--count", command.count, "Stop after N sentences");
    nmea->add_option("--send", command.sentence, "Send this sentence (\"$PGRMO,,3\") and exit");
    auto* list = app.add_subcommand("list", "List the serial ports and the Garmin receivers on USB");
    auto* replay = app.add_subcommand("replay", "Replay a saved packet trace through the control");
    replay->add_option("log", command.input, "Trace file (the lines --trace writes)")->required();

    auto* screenshot = app.add_subcommand("screenshot", "Capture the receiver's screen as a PNG picture");
    screenshot->add_option("-o,--output", command.image, "PNG file")->capture_default_str();
    screenshot->add_option("--palette", command.palette, "GIMP palette (.gpl) for units that send no colours")
        ->check(CLI::ExistingFile);
    screenshot->add_option("--rotate", command.rotate, "How to turn the frame: auto (the model's way), none, left, "
                                                       "right, half or mirror")
        ->check(CLI::IsMember({"auto", "none", "left", "right", "half", "mirror"}))
        ->capture_default_str();
    auto* icon = app.add_subcommand("icon", "Read (get) or write (put) custom waypoint symbol N as PNG (USB only)");
    icon->add_option("action", command.icon_action, "get or put")->required()->check(CLI::IsMember({"get", "put"}));
    icon->add_option("n", command.icon, "Custom symbol number (symbol 7680 + N)")->required()->check(CLI::NonNegativeNumber);
    icon->add_option("file", command.input, "put: the PNG to write (magenta or transparent pixels are not drawn)");
    icon->add_option("-o,--output", command.icon_file, "get: the PNG file")->capture_default_str();
    auto* name = app.add_subcommand("name", "Print the receiver's name and unit id");
    name->add_option("new_name", command.new_name, "A new name: no receiver has a documented way to take one");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // A mistyped command is not a subcommand, so the parser reports a
        // missing one; the word the user typed says more.
        const auto extra = app.remaining();
        if (app.get_subcommands().empty() && !extra.empty() && e.get_name() == "RequiredError") {
            std::string names;
            for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
                names += (names.empty() ? "" : ", ") + sub->get_name();
            std::cerr << "trekcom: unknown command \"" << extra.front() << "\" (commands: " << names << ")\n";
            return kUsage;
        }
        const int code = app.exit(e);
        return code == 0 ? kOk : kUsage;
    }
    options.progress = !no_progress;
    options.fast = (get->parsed() || put->parsed()) && !no_fast;

    options.platform = trekcom::Default_Platform();
    g_platform = options.platform.get();
    if (g_early_interrupt) options.platform->Interrupt();

    const std::pair<CLI::App*, int (*)(Session_Options&, const Command_Options&)> kCommands[] = {
        {info, Run_Info},   {get, Run_Get},         {put, Run_Put},   {pvt, Run_Pvt},
        {time, Run_Time},   {position, Run_Position}, {sats, Run_Sats}, {voltages, Run_Voltages},
        {counts, Run_Counts}, {baud, Run_Baud},     {off, Run_Off},   {nmea, Run_Nmea},
        {list, Run_List},   {replay, Run_Replay},   {screenshot, Run_Screenshot}, {name, Run_Name},
        {icon, Run_Icon}};
    for (const auto& [sub, run] : kCommands)
        if (sub->parsed()) return Run_Command(run, options, command, std::cerr);
    return kUsage;
}
