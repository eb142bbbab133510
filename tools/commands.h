// The subcommands. Each opens its own session from the options, prints its
// result and returns the exit code; failures are thrown as Failure.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "session.h"

namespace trekcom::tool {

struct Command_Options {
    bool json = false;
    std::vector<std::string> kinds;
    std::string output = "-";
    std::string input;
    bool verify = false;
    bool courses = false;  // put: the file's tracks go up as courses
    long count = 0;  // 0: until interrupted
    bool nmea_out = false;
    bool gpsd = false;  // pvt: gpsd's TPV and SKY objects
    std::int32_t rate = 0;
    std::string sentence;
    std::string image = "screen.png";  // screenshot output
    std::string palette;               // GIMP palette for units without colours
    std::string rotate = "auto";       // auto, none, left, right, half, mirror
    std::string new_name;              // name: the rename asked for
    std::string icon_action;           // icon: get or put
    std::int32_t icon = 0;             // icon: custom symbol N
    std::string icon_file = "icon.png";  // icon get: output
};

int Run_Info(Session_Options& s, const Command_Options& c);
int Run_Get(Session_Options& s, const Command_Options& c);
int Run_Put(Session_Options& s, const Command_Options& c);
int Run_Pvt(Session_Options& s, const Command_Options& c);
int Run_Time(Session_Options& s, const Command_Options& c);
int Run_Position(Session_Options& s, const Command_Options& c);
int Run_Sats(Session_Options& s, const Command_Options& c);
int Run_Voltages(Session_Options& s, const Command_Options& c);
int Run_Counts(Session_Options& s, const Command_Options& c);
int Run_Baud(Session_Options& s, const Command_Options& c);
int Run_Off(Session_Options& s, const Command_Options& c);
int Run_Nmea(Session_Options& s, const Command_Options& c);
int Run_Replay(Session_Options& s, const Command_Options& c);
int Run_Screenshot(Session_Options& s, const Command_Options& c);
// The unit's name and id; asked to rename, it says why it cannot.
int Run_Name(Session_Options& s, const Command_Options& c);
// icon get N -o FILE, icon put N FILE: custom symbol N as PNG.
int Run_Icon(Session_Options& s, const Command_Options& c);
// The serial ports and the Garmin receivers on USB, each USB one by name.
int Run_List(Session_Options& s, const Command_Options& c);

using Command = int (*)(Session_Options&, const Command_Options&);
// Runs a command the way the tool does: a failure becomes one line on err and
// its exit code, and any failure once the platform was interrupted is kInterrupted.
int Run_Command(Command run, Session_Options& s, const Command_Options& c, std::ostream& err);

// What the receiver announced: per capability its protocol and its record layouts.
struct Protocol_Row {
    const char* label;
    std::string protocol;
    std::vector<std::string> formats;
};
std::vector<Protocol_Row> Protocol_Table(const TrekcomCtl& ctl);

// "12 waypoints, 2 routes (9 points), ...": what a set holds.
std::string Summary(const Data& data);
// The sentences a PVT record gives: GGA and RMC, each with its checksum.
std::vector<std::string> Pvt_Sentences(const cPvtData& pvt);
// Seconds since the receiver's epoch of a PVT record's time (UTC). A date
// more than 512 weeks before the host's clock (host_garmin_seconds, the same
// scale) is one of a receiver whose week count wrapped early: it is moved on
// by 1024 weeks until it is not. Without a clock, the system's.
double Pvt_Garmin_Seconds(const cPvtData& pvt, double host_garmin_seconds);
double Pvt_Garmin_Seconds(const cPvtData& pvt);

}  // namespace trekcom::tool
