// TrekcomCtl: the control a host program uses to talk to a Garmin receiver.
//
// It is single-threaded: create it, call it and run its platform's loop on
// one thread. Methods that wait for the receiver pump the loop while they
// wait, so events (and other handlers) may run before they return.
// Do not destroy a control from inside one of its own event handlers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "trekcom/cUSB.h"
#include "trekcom/collection.h"
#include "trekcom/events.h"
#include "trekcom/platform.h"
#include "trekcom/record_sink.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

// A read-only property: the getter reads; the setter changes nothing and
// throws RuntimeError 383 "Property is Read Only" (translated).
#define TREKCOM_READ_ONLY(Type, Getter, Setter) \
    Type Getter() const;                        \
    [[noreturn]] void Setter(Type value)

namespace trekcom {

namespace detail {
class Control;
}

class TrekcomCtl {
public:
    // On the real platform (Default_Platform()).
    TrekcomCtl();
    // On another platform, e.g. a VirtualPlatform in tests.
    explicit TrekcomCtl(std::shared_ptr<trekcom::Platform> platform);
    ~TrekcomCtl();
    TrekcomCtl(const TrekcomCtl&) = delete;
    TrekcomCtl& operator=(const TrekcomCtl&) = delete;

    std::shared_ptr<trekcom::Platform> Platform() const;
    // The USB transport used with Port 0 (cUSB.h). Its events are bound to
    // the control; a host that advises its own sink takes them over.
    std::shared_ptr<cUSB> USB() const;

    // One event sink at a time; it must outlive the advice (or be unadvised).
    void Advise(TrekcomCtlEvents& sink);
    void Unadvise();

    // ---- link properties: plain stores, used at the next PortOpen
    // Serial port number; 0 selects USB.
    std::int16_t Port() const;
    void Port(std::int16_t n);
    // Device path that overrides Port on POSIX systems ("/dev/ttyUSB0", a pty).
    std::string Port_Name() const;
    void Port_Name(const std::string& path);
    // "baud,parity,data,stop", default "9600,N,8,1".
    std::string Settings() const;
    void Settings(const std::string& settings);
    bool RTSEnable() const;
    void RTSEnable(bool on);
    bool DTREnable() const;
    void DTREnable(bool on);
    Handshaking_Values Handshaking() const;
    void Handshaking(Handshaking_Values h);
    // The host answers packets itself: no ACK, NAK or watchdog from the control.
    bool UserFlowControl() const;
    void UserFlowControl(bool on);
    // Raise a HexDebug trace line for every packet in and out.
    bool DebugLog() const;
    void DebugLog(bool on);
    // Response time-out in ms, 2000..5000; other values become 2000 with a message box.
    std::int16_t Time_Out() const;
    void Time_Out(std::int16_t ms);

    // ---- link methods
    bool PortOpen();
    void PortClose();
    // Tries `settings` first, then every rate from 4800 to 115200; returns the
    // rate the receiver answered at (9600 with an error event when none did).
    std::int32_t FindBaud(std::string& settings);
    bool Change_Baud_Rate(std::int32_t Baud);
    // Off (the default), transfers run at the rate of Settings. On, a serial
    // download or upload of enough records to be worth it first asks the
    // unit to change to the fastest rate of the baud list, and the line goes
    // back to its rate when the transfer ends, fails or times out, when the
    // port is closed and when the control is destroyed, an interrupted wait
    // included. A plain store, read by each transfer.
    bool Auto_Baud_Rate() const;
    void Auto_Baud_Rate(bool on);
    // Clears the link state and pings the receiver (error 0 when it does not answer).
    void Reset();
    // Sends a raw packet (DLE, id, size, data, then room for checksum, DLE,
    // ETX: data size + 6 bytes). Response: the id to wait for (0 none, 2
    // write only); WaitTime: below 30 seconds, else milliseconds, 0 Time_Out.
    void Send(const Bytes& Packet, std::uint8_t Response = 0, std::int32_t WaitTime = 0);
    // Waits, running the loop: below 30 seconds, from 30 up milliseconds.
    void WaitFor(std::int32_t d);

    // ---- host surface: language, diagnostics, NMEA, display and icons
    // The container's "sited" notification: Language goes back to "English".
    // A host that wants another language sets it after siting.
    void Site();
    // The message language. Messages come from "<folder>/<base>_<Language>.tlt"
    // (section "Translations"), where folder and base are those of the running
    // program unless Platform::Translation_Folder names another folder.
    // "English" (the default) or empty: the control's own phrases.
    std::string Language() const;
    void Language(const std::string& language);
    // The phrase in the current language; a phrase the file lacks is added to it.
    std::string xLate(const std::string& Phrase);
    // Received NMEA checksums are not compared (every NMEA event then has
    // chkerr false). Plain store.
    bool IgnoreCheckSum() const;
    void IgnoreCheckSum(bool on);
    // A GIMP palette (.gpl) whose colours screen captures use for units that
    // send none (docs/screen.md); empty: the unit's grey levels.
    std::string Palette_File() const;
    void Palette_File(const std::string& path);
    // The library's version text.
    TREKCOM_READ_ONLY(std::string, version, version);
    // Utility forwarders to the control's cSAK.
    std::string TrimNull(std::string& instring);
    std::int32_t Address_Of(std::int32_t pfn);
    // Two upper-case hex digits: the XOR of the characters from the second to
    // the first '*' (or the end).
    std::string NMEA_Checksum(const std::string& msg);
    // Sends one sentence with CR LF; the caller supplies the '$'. Without a
    // '*' it gets "*" and its checksum, ending in '*' only the checksum, with
    // a '*' before its end it goes as it is. `message` receives what was sent
    // (without CR LF).
    void NMEA_Send(std::string& message);
    // The screen, icons and unit name. Request_Display first offers to replay
    // a saved trace log (the lines of HexDebug): the platform's file dialog
    // callback picks it, and the receiver's packets in it go through the
    // receive path as if they had just arrived. When no log is chosen it
    // captures the screen: ReceiveImage reports the percentage as the frame
    // arrives and carries the finished picture at 100, and Display() holds
    // the frame's size, depth and bytes. A capture that stalls or loses a
    // packet ends with error 7 and no picture. Frames without colours of
    // their own take those of Palette_File (a GIMP palette, docs/screen.md)
    // or else the unit's grey levels. Request_Icon(N) reads custom symbol N
    // (7680 + N) and raises ReceiveIcon with the picture and an 8-bit bitmap
    // file; Send_Icon(N, BMP) writes a bitmap file (8-bit, 24- or 32-bit)
    // of the slot's size, in the unit's colours, magenta as transparent.
    // Icons travel over USB only; a serial port reports error 0 and sends
    // nothing. Request_GPS_Name fills Product_Data().GPS_Name and Unit_ID
    // (empty when the unit does not tell). Change_GPS_Name sends nothing:
    // no receiver has a documented way to be renamed, so it reports error 0
    // and says so.
    void Request_Display();
    void Request_Icon(std::int32_t seq);
    void Send_Icon(std::int32_t seq, const Bytes& BMP);
    void Request_GPS_Name();
    void Change_GPS_Name(const std::string& NewName);
    // The record a screen capture fills.
    std::shared_ptr<cDisplay> Display() const;
    void Display(std::shared_ptr<cDisplay> value);
    // How captured frames are turned into pictures (default Automatic).
    Screen_Turn Display_Turn() const;
    void Display_Turn(Screen_Turn turn);

    // ---- identification and transfers
    // Asks the receiver who it is and what it speaks, and refreshes every
    // protocol property below. Every download repeats it first.
    void Request_Product_Data();
    // Downloads. Each returns once the receiver has announced its record
    // count; the records then arrive while the loop runs, and the matching
    // Received* event carries them (laps and flightbook records raise none:
    // read Laps() once the transfer is over). A download that ends with
    // another number of records than the receiver announced (a record lost,
    // or the link gave up half-way) reports error 7, "Incomplete transfer:
    // N of M records received"; what did arrive stays in the collections.
    void Request_Waypoints();
    void Request_Prox_Waypoints();  // delivered through ReceivedWaypoints
    void Request_Routes();
    void Request_Tracks();
    void Request_Laps();
    void Request_Flightbook();
    // Asks for the four record counts without transferring a record and
    // raises ReceiveCounts (-1 for a kind the receiver lacks). Until the next
    // request, completion packets raise no download event.
    void Request_Counts();
    // Fitness units. Request_Runs fetches the runs, then the laps and the
    // tracks they name, and raises ReceivedRuns with whole runs (each with its
    // Laps and Points); Request_Courses likewise raises ReceivedCourses. Both
    // return when everything has come. Send_Courses uploads courses with
    // their laps, course points and tracks, after checking them against the
    // unit's course limits (error 8 and nothing sent when they are too big).
    void Request_Runs();
    void Request_Courses();
    void Send_Courses(const Collection<cCourse>& courses);
    std::shared_ptr<Collection<cRun>> Runs() const;
    std::shared_ptr<Collection<cCourse>> Courses() const;
    // An upload: Start_of_Records(n), one Send_* per record, End_of_Records().
    void Start_of_Records(std::int16_t& ocount);
    void End_of_Records();

    // ---- record objects and collections. Setting Product_Data or Counts to
    // null gives the control a fresh, empty object instead.
    std::shared_ptr<cProduct_Data> Product_Data() const;
    void Product_Data(std::shared_ptr<cProduct_Data> value);
    std::shared_ptr<cRecord_Counts> Counts() const;
    void Counts(std::shared_ptr<cRecord_Counts> value);
    std::shared_ptr<Collection<cWaypoint>> Waypoints() const;
    std::shared_ptr<Collection<cRoute>> Routes() const;
    std::shared_ptr<Collection<cTrack>> Tracks() const;
    std::shared_ptr<Collection<cLap>> Laps() const;
    // Null (the default): downloads fill the collections above. A sink: each
    // downloaded record goes to it as it arrives and the collections stay
    // empty (record_sink.h). Not owned; it must outlive its use or be reset.
    trekcom::Record_Sink* Record_Sink() const;
    void Record_Sink(trekcom::Record_Sink* sink);

    // ---- record uploads and record objects
    // The records a download fills and a Send_* encodes. A host fills the
    // object in place or sets one of its own; a download replaces Waypoint,
    // Route, Track, Lap and Flightbook_Record with each new record and fills
    // Almanac in place. Waypoints also join the last route of Routes().
    std::shared_ptr<cWaypoint> Waypoint() const;
    void Waypoint(std::shared_ptr<cWaypoint> value);
    std::shared_ptr<cRoute> Route() const;
    void Route(std::shared_ptr<cRoute> value);
    std::shared_ptr<cTrack> Track() const;
    void Track(std::shared_ptr<cTrack> value);
    std::shared_ptr<cAlmanac> Almanac() const;
    void Almanac(std::shared_ptr<cAlmanac> value);
    std::shared_ptr<cLap> Lap() const;
    void Lap(std::shared_ptr<cLap> value);
    void Laps(std::shared_ptr<Collection<cLap>> value);
    std::shared_ptr<cFlightbook_Record> Flightbook_Record() const;
    void Flightbook_Record(std::shared_ptr<cFlightbook_Record> value);
    // Filled by Request_Flightbook.
    std::shared_ptr<Collection<cFlightbook_Record>> Flightbook_Records() const;
    void Flightbook_Records(std::shared_ptr<Collection<cFlightbook_Record>> value);
    // One record each, between Start_of_Records and End_of_Records, waiting
    // for the receiver's ACK. A receiver that lacks the transfer gets nothing
    // and cError/vcError report it once per batch; a record with a value its
    // layout cannot carry (a position at 180 degrees or beyond) is not sent
    // and cError/vcError report it with code 6, "Overflow".
    void Send_Waypoint();        // Waypoint, as a waypoint
    void Send_Prox_Waypoint();   // Waypoint, as a proximity waypoint (with Dist)
    void Send_Route_Waypoint();  // Waypoint, as a waypoint of the route being sent
    void Send_Route_Header();    // Route's header fields
    void Send_Route_Link();      // Route's link fields
    void Send_Track_Header();    // Track's header fields
    void Send_Track();           // Track as one track point
    // Off (the default), Send_Track gives every point the size byte of a
    // D300 point, 13, whatever the layout, as the control always has; a
    // receiver that checks the size byte against the frame refuses D301 and
    // D302 points sent so. On, the size byte is the true data size of the
    // layout (21 for D301, 25 for D302). A plain store, read by each Send_Track.
    bool Track_Point_True_Size() const;
    void Track_Point_True_Size(bool on);
    void Send_Almanac_Data();
    void Send_Lap();
    void Send_Flightbook_Record();
    // Downloads the almanac; each entry fills Almanac in place, so the last
    // one is what remains. No event marks the end.
    void Request_Almanac_Data();

    // ---- what the receiver speaks (read-only)
    // Records announced by the last records packet.
    TREKCOM_READ_ONLY(std::int16_t, Incoming_Records_Count, Incoming_Records_Count);

    // Transfer protocols and record formats: four characters ("A100",
    // "D108"); blank means the receiver lacks it.
    TREKCOM_READ_ONLY(std::string, Link_Protocol, Link_Protocol);
    TREKCOM_READ_ONLY(std::string, WayPoint_Transfer_Protocol, WayPoint_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Route_Transfer_Protocol, Route_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Track_Transfer_Protocol, Track_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Prox_Wpt_Transfer_Protocol, Prox_Wpt_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Almanac_Transfer_Protocol, Almanac_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Date_Transfer_Protocol, Date_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Posn_Transfer_Protocol, Posn_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Pvt_Transfer_Protocol, Pvt_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Laps_Transfer_Protocol, Laps_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Flightbook_Transfer_Protocol, Flightbook_Transfer_Protocol);
    TREKCOM_READ_ONLY(std::string, Waypoint_Data_Format, Waypoint_Data_Format);
    TREKCOM_READ_ONLY(std::string, Route_Header_Format, Route_Header_Format);
    TREKCOM_READ_ONLY(std::string, Route_Link_Format, Route_Link_Format);
    TREKCOM_READ_ONLY(std::string, Route_Wpt_Data_Format, Route_Wpt_Data_Format);
    TREKCOM_READ_ONLY(std::string, Track_Header_Format, Track_Header_Format);
    TREKCOM_READ_ONLY(std::string, Track_Point_Format, Track_Point_Format);
    TREKCOM_READ_ONLY(std::string, Prox_Wpt_Data_Format, Prox_Wpt_Data_Format);
    TREKCOM_READ_ONLY(std::string, Almanac_Data_Format, Almanac_Data_Format);
    TREKCOM_READ_ONLY(std::string, Date_Data_Format, Date_Data_Format);
    TREKCOM_READ_ONLY(std::string, Posn_Data_Format, Posn_Data_Format);
    TREKCOM_READ_ONLY(std::string, Pvt_Data_Format, Pvt_Data_Format);
    TREKCOM_READ_ONLY(std::string, Laps_Data_Format, Laps_Data_Format);
    TREKCOM_READ_ONLY(std::string, Flightbook_Data_Format, Flightbook_Data_Format);

    // Packet ids in force (L001 until the receiver reports L002).
    TREKCOM_READ_ONLY(std::uint8_t, PID_Ack_Byte, PID_Ack_Byte);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Nak_Byte, PID_Nak_Byte);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Command_Data, PID_Command_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Xfer_Cmplt, PID_Xfer_Cmplt);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Date_Time, PID_Date_Time);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Position_Data, PID_Position_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Prx_Wpt_Data, PID_Prx_Wpt_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Records, PID_Records);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Rte_Hdr, PID_Rte_Hdr);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Rte_Wpt_Data, PID_Rte_Wpt_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Rte_Link, PID_Rte_Link);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Almanac_Data, PID_Almanac_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Trk_Data, PID_Trk_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Trk_Hdr, PID_Trk_Hdr);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Wpt_Data, PID_Wpt_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Pvt_Data, PID_Pvt_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Product_Rqst, PID_Product_Rqst);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Product_Data, PID_Product_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Protocol_Array, PID_Protocol_Array);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Baud_Reply, PID_Baud_Reply);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Voltages, PID_Voltages);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Display_Data, PID_Display_Data);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Lap, PID_Lap);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Sats, PID_Sats);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Flightbook_Record, PID_Flightbook_Record);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Unit_ID, PID_Unit_ID);
    TREKCOM_READ_ONLY(std::uint8_t, PID_Expanded_Packet, PID_Expanded_Packet);
    TREKCOM_READ_ONLY(std::int32_t, PID_Expanded_ID, PID_Expanded_ID);
    TREKCOM_READ_ONLY(std::int32_t, PID_Icon, PID_Icon);
    // The setter's name is PID_Expanded_Lengh, as the interface has always spelled it.
    TREKCOM_READ_ONLY(std::int32_t, PID_Expanded_Length, PID_Expanded_Lengh);

    // Command codes in force (A010 until the receiver reports L002 / A011).
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Reset_Transfer, CMND_Reset_Transfer);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Alm, CMND_Transfer_Alm);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Posn, CMND_Transfer_Posn);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Prx, CMND_Transfer_Prx);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Rte, CMND_Transfer_Rte);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Time, CMND_Transfer_Time);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Trk, CMND_Transfer_Trk);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Wpt, CMND_Transfer_Wpt);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Lap, CMND_Transfer_Lap);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Transfer_Flightbook, CMND_Transfer_Flightbook);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Turn_Off_Pwr, CMND_Turn_Off_Pwr);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Start_Pvt_Data, CMND_Start_Pvt_Data);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Stop_Pvt_Data, CMND_Stop_Pvt_Data);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Start_Async, CMND_Start_Async);
    TREKCOM_READ_ONLY(std::uint8_t, CMND_Change_Baud, CMND_Change_Baud);

    // ---- real-time data
    // Each request sends one command and waits for its answer, which fills
    // the matching record below ("No response from device" as an error
    // event when none comes; the record then keeps its values). No event
    // says a record changed: read it.
    void Request_Date_Time();
    void Request_Position_Data();
    void Request_Voltages();
    // Sends Position() (degrees) to the receiver as its new position.
    void Send_Position_Data();
    // Switches the receiver off; PVT mode ends with it.
    void Power_Off();
    // PVT mode: the receiver streams a PvtData() record every second (and,
    // some units, the satellite table, Sats()). On a serial port a watchdog
    // commands the receiver again after every two seconds without a record,
    // with a HexDebug line each time, until Pvt_Data_Stop(). Over USB the
    // control polls the receiver after every second without one.
    void Pvt_Data_Start();
    void Pvt_Data_Stop();
    // Asynchronous mode: over USB the control polls the receiver every
    // millisecond; a serial port delivers by itself, so nothing changes there.
    // Async_Stop() also tells the receiver to stop asynchronous messages.
    void Async_Start();
    void Async_Stop();

    // The records. Each is filled in place by its packet and keeps its last
    // values until the next one; an empty (null) record is replaced by a new
    // one when its next packet comes.
    std::shared_ptr<cDate_Time> Date_Time() const;
    void Date_Time(std::shared_ptr<cDate_Time> value);
    // Degrees; also what Send_Position_Data() sends.
    std::shared_ptr<cPosition> Position() const;
    void Position(std::shared_ptr<cPosition> value);
    // As received: Lat and Lon in radians.
    std::shared_ptr<cPvtData> PvtData() const;
    void PvtData(std::shared_ptr<cPvtData> value);
    // The last satellite entry decoded (the twelfth of the last table).
    std::shared_ptr<cSat> sat() const;
    void sat(std::shared_ptr<cSat> value);
    // The last satellite table: always twelve entries.
    std::shared_ptr<Collection<cSat>> Sats() const;
    void Sats(std::shared_ptr<Collection<cSat>> value);
    std::shared_ptr<cVoltages> Voltages() const;
    void Voltages(std::shared_ptr<cVoltages> value);

private:
    friend class detail::Control;
    std::unique_ptr<detail::Control> impl_;
};

}  // namespace trekcom

#undef TREKCOM_READ_ONLY
