// The protocol engine: what the receiver speaks (packet ids, command codes,
// transfer protocols and record formats), learnt from its capability array or
// from the built-in product table; the routing of every received application
// packet; and the bookkeeping of multi-record downloads and uploads.
//
// It sits between the control and the link: the control owns it and forwards
// the host's calls; it sends through the link's command exchange and writes
// the ids in force into the Packet_Ids the link reads.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "link/link.h"
#include "link/packet.h"
#include "link/packet_ids.h"
#include "protocol/product_table.h"
#include "protocol/record_pool.h"
#include "trekcom/collection.h"
#include "trekcom/record_sink.h"
#include "trekcom/records.h"
#include "trekcom/types.h"

namespace trekcom::protocol {

// What the engine needs from the control above it.
class Engine_Host {
public:
    virtual ~Engine_Host() = default;
    // cError then vcError; the message is already translated.
    virtual void Raise_Error(std::int16_t code, const std::string& message, const Bytes& packet) = 0;
    virtual std::string xLate(const std::string& phrase) = 0;
    virtual void Raise_ReceiveCounts(std::int16_t wCount, std::int16_t pCount, std::int16_t rCount,
                                     std::int16_t tCount) = 0;
    virtual void Raise_ReceivedWaypoints(std::shared_ptr<Collection<cWaypoint>>& list) = 0;
    virtual void Raise_ReceivedRoutes(std::shared_ptr<Collection<cRoute>>& list) = 0;
    virtual void Raise_ReceivedTracks(std::shared_ptr<Collection<cTrack>>& list) = 0;
    virtual void Raise_ReceivedRun(std::shared_ptr<cRun>& run) { (void)run; }
    virtual void Raise_ReceivedRuns(std::shared_ptr<Collection<cRun>>& list) { (void)list; }
    virtual void Raise_ReceivedCourses(std::shared_ptr<Collection<cCourse>>& list) { (void)list; }
};

// The transfer protocol and record formats of a receiver. Four characters
// each ("A100", "D108"); blank (spaces) or empty means the receiver lacks it.
struct Protocols {
    std::string Link_Protocol;
    std::string WayPoint_Transfer_Protocol;
    std::string Route_Transfer_Protocol;
    std::string Track_Transfer_Protocol;
    std::string Prox_Wpt_Transfer_Protocol;
    std::string Almanac_Transfer_Protocol;
    std::string Flightbook_Transfer_Protocol;
    std::string Laps_Transfer_Protocol;
    std::string Date_Transfer_Protocol;
    std::string Posn_Transfer_Protocol;
    std::string Pvt_Transfer_Protocol;
    std::string Waypoint_Data_Format;
    std::string Route_Header_Format;
    std::string Route_Wpt_Data_Format;
    std::string Route_Link_Format;
    std::string Track_Header_Format;
    std::string Track_Point_Format;
    std::string Prox_Wpt_Data_Format;
    std::string Almanac_Data_Format;
    std::string Flightbook_Data_Format;
    std::string Laps_Data_Format;
    std::string Date_Data_Format;
    std::string Posn_Data_Format;
    std::string Pvt_Data_Format;
};

// What the control's properties read and set on the engine: what the unit
// said of itself, the flags of the requests in progress, and the records
// each upload encodes and each decoder fills or replaces.
struct State {
    Protocols P;
    // Every transfer protocol of the capability array ("A1000") with the
    // record formats that follow it, in order: the fitness transfers read
    // theirs here.
    std::map<std::string, std::vector<std::string>> Data_Types;
    // Any A900..A905 entry of the capability array; nothing reads it.
    std::string A900_Protocol;
    bool Protocol_Array_Received = false;
    // The count of the last records packet; -1 while Request_Counts waits for one.
    std::int16_t Incoming_Records_Count = 0;
    // The rate the receiver answered a baud change with.
    std::int32_t Baud_Reply = 0;
    // Set by a refused upload once it has reported, so a batch reports once.
    bool Error_Latch = false;
    // Ids of the expanded and icon packets, held for the icon transfers.
    std::int32_t PID_Expanded_ID = 0;
    std::int32_t PID_Icon = 0;
    std::int32_t PID_Expanded_Length = 0;
    // Null is never left here: the setters put an empty object instead.
    std::shared_ptr<cProduct_Data> Product_Data = std::make_shared<cProduct_Data>();
    std::shared_ptr<cRecord_Counts> Counts = std::make_shared<cRecord_Counts>();
    // The current records: the host may set objects of its own; a null one
    // is replaced by an empty record when next used.
    std::shared_ptr<cWaypoint> Waypoint = std::make_shared<cWaypoint>();
    std::shared_ptr<cRoute> Route = std::make_shared<cRoute>();
    std::shared_ptr<cTrack> Track = std::make_shared<cTrack>();
    std::shared_ptr<cAlmanac> Almanac = std::make_shared<cAlmanac>();
    std::shared_ptr<cLap> Lap = std::make_shared<cLap>();
    std::shared_ptr<cFlightbook_Record> Flightbook_Record = std::make_shared<cFlightbook_Record>();
    // The host's choice: track points carry their true data size (see TrekcomCtl.h).
    bool Track_Point_True_Size = false;
    // Where downloaded records go instead of the collections; null: the collections.
    Record_Sink* Sink = nullptr;
    // The host's choice: big serial transfers run at the fastest rate the
    // unit accepts, and the line goes back to its rate afterwards.
    bool Auto_Baud_Rate = false;
};

// The six multi-record kinds, each with its support test.
enum class Transfer_Kind { Waypoints, Prox_Waypoints, Routes, Tracks, Flightbook, Laps };

// Who asks for the support test: a download always reports a refusal; an
// upload reports only the first refusal of a batch (the error latch).
enum class Asker { Request, Send };

class Engine {
public:
    Engine(link::Link& link, link::Packet_Ids& ids, Engine_Host& host);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // ---- what the control's properties read and set
    State& Shared() { return shared_; }
    const State& Shared() const { return shared_; }
    // The error a download reports when it ends with another number of
    // records than it announced.
    static constexpr std::int16_t kIncomplete_Transfer = 7;

    // Created on first use; the record decoders add to them.
    std::shared_ptr<Collection<cWaypoint>>& Waypoints();
    std::shared_ptr<Collection<cRoute>>& Routes();
    std::shared_ptr<Collection<cTrack>>& Tracks();
    std::shared_ptr<Collection<cLap>>& Laps();
    std::shared_ptr<Collection<cFlightbook_Record>>& Flightbook_Records();

    const std::vector<Product_Row>& Product_Protocol_Table() const { return table_; }

    // ---- identification
    void Request_Product_Data();
    // What the unit said of itself no longer stands for the next request:
    // the port was opened or closed, or something failed.
    void Forget_Identity() { identified_ms_.reset(); }
    void Process_Product_Data(const Bytes& packet);
    void Process_Ext_Product_Data(const Bytes& packet);
    void Parse_Protocol_Array(const Bytes& packet);
    void Set_Default_Protocols();
    void Clear_Protocols();
    // False (after reporting as the asker's rule says) when the receiver
    // lacks the kind's transfer protocol.
    bool Supports(Transfer_Kind kind, Asker asker);

    // ---- received packets
    void Dispatch_Packet(const Bytes& packet);

    // ---- transfers
    void Request_Waypoints();
    void Request_Prox_Waypoints();
    void Request_Routes();
    void Request_Tracks();
    void Request_Laps();
    void Request_Flightbook();
    void Request_Counts();
    void Start_of_Records(std::int16_t& ocount);
    void End_of_Records();
    // The end of a download's count: its completion packet, or an error (the
    // link or the USB transport gave up). Error 7 when the number of records
    // that arrived is not the number announced; nothing when none is open.
    void Close_Tally();
    // Puts a line raised for a transfer back to the rate it had: the
    // transfer ended, failed, or the host closes the port. Nothing when the
    // line was not raised. A unit left fast is a unit that the next program,
    // opening at the usual rate, cannot find.
    void Restore_Line_Rate();
    bool Line_Raised() const { return !raised_from_.empty(); }

    // ---- fitness units (fitness_transfers.cpp). A runs download also
    // fetches the laps and the tracks, and delivers whole runs; a course
    // download its laps, course points and tracks. Both end with their
    // Received* event; each run is raised on its own as soon as it is whole.
    std::shared_ptr<Collection<cRun>>& Runs();
    std::shared_ptr<Collection<cCourse>>& Courses();
    void Request_Runs();
    void Request_Courses();
    // Uploads courses with their laps, course points and tracks, once they
    // are found to fit the unit's course limits; too big, nothing is sent
    // and an error tells which limit.
    void Send_Courses(const Collection<cCourse>& courses);
    static constexpr std::int16_t kCourse_Too_Big = 8;

    // ---- prebuilt packets
    struct Prebuilt {
        link::Packet Records;     // two data bytes: the count of an upload
        link::Packet Xfer_Cmplt;  // two data bytes: the command the transfer answered
        link::Packet Transfer_Wpt, Transfer_Prx, Transfer_Rte, Transfer_Trk, Transfer_Flightbook, Transfer_Lap,
            Transfer_Alm, Transfer_Time, Transfer_Posn, Start_Pvt_Data, Stop_Pvt_Data, Turn_Off_Pwr,
            Unit_ID_Request, Voltages_Request;
    };
    const Prebuilt& Packets() const { return packets_; }

    // ---- record uploads
    // One record per call, acknowledged by the unit. A unit that lacks the
    // transfer gets nothing (reported once per batch); a record with a value
    // its layout cannot carry is reported and not sent.
    void Send_Waypoint();
    void Send_Prox_Waypoint();
    void Send_Route_Waypoint();
    void Send_Route_Header();
    void Send_Route_Link();
    void Send_Track_Header();
    void Send_Track();
    void Send_Almanac_Data();
    void Send_Lap();
    void Send_Flightbook_Record();
    // The almanac download: each entry fills Almanac in place.
    void Request_Almanac_Data();
    // ---- real-time data (realtime.h). The control builds that part beside
    // the engine, as it drives the control's timers; it registers here for
    // its lifetime so the dispatcher can hand it the real-time packets, which
    // are dropped while nothing is registered. It sends through Exchange.
    friend class Realtime;
    // The screen capture (screen.h) registers the same way for Pid 69.
    friend class Screen_Capture;

private:
    // (Re)builds the prebuilt packets from the ids and codes in force.
    void Build_Packets();
    void Apply_L002(bool from_capability_array);
    // One send-and-wait; a missing answer is reported and the caller goes on.
    bool Exchange(const link::Packet& packet, std::uint8_t response, std::int32_t wait_time);
    void Download(Transfer_Kind kind, link::Packet Prebuilt::*command);
    void Complete_Transfer(const Bytes& packet);
    // The download between its records packet and its end: what the unit
    // announced and what arrived.
    struct Tally {
        bool open = false;
        std::uint16_t announced = 0;  // as the records packet carries it
        std::uint32_t received = 0;
        Bytes records_packet;
    };
    Tally tally_;
    void Open_Tally(const Bytes& records_packet);
    // Raises the serial line before a transfer of `records` records that
    // is worth it; the count of a download comes from asking the unit.
    void Raise_Line_For(std::uint32_t records);
    bool Could_Raise_Line() const;
    std::uint32_t Announced_Count(link::Packet Prebuilt::*command);
    // When the unit last told who it is. A download right after that (a
    // host that identifies, checks what the unit offers, then asks for it)
    // does not ask again.
    std::optional<double> identified_ms_;
    std::string raised_from_;  // the line settings before the raise; empty: not raised
    std::uint8_t Command_Of_Record(std::uint16_t pid) const;
    // What every request does first: clear the flags, identify the unit again.
    void Begin_Request();
    // The waypoint format the codecs use for a waypoint-family packet id.
    std::string Waypoint_Format(std::uint8_t pid) const;
    // Encodes one record and sends it, waiting for its ACK; an encoder's
    // overflow is reported instead. No packet sends nothing.
    void Send_Record(const std::function<std::optional<link::Packet>()>& encode);
    // The object behind a held pointer, made (empty) when there is none yet
    // or the host set null: collections on first use, current records.
    template <typename T>
    static std::shared_ptr<T>& Created(std::shared_ptr<T>& held) {
        if (!held) held = std::make_shared<T>();
        return held;
    }

    // Hooks of the record decoders and the real-time and screen handlers.
    // Each is called with the whole received packet; where no decoder is
    // wired yet the packet is dropped and its record keeps its start values.
    void On_Track_Header(const Bytes& packet);
    void On_Track_Point(const Bytes& packet);
    void On_Date_Time(const Bytes& packet);
    void On_Pvt_Data(const Bytes& packet);
    void On_Almanac(const Bytes& packet);
    void On_Position(const Bytes& packet);
    void On_Waypoint(const Bytes& packet);  // waypoint, route waypoint or proximity waypoint: see packet[1]
    void On_Route_Header(const Bytes& packet);
    void On_Route_Link(const Bytes& packet);
    void On_Voltages(const Bytes& packet);
    void On_Display_Data(const Bytes& packet);
    void On_Flightbook_Record(const Bytes& packet);
    void On_Lap(const Bytes& packet);
    void On_Sats(const Bytes& packet);
    void On_Expanded_Packet(const Bytes& packet);  // expanded form, ids 124 and 125
    // The fitness transfer in progress takes the packets of its kinds.
    struct Fitness_Transfer;
    std::shared_ptr<Fitness_Transfer> fitness_;
    bool On_Fitness_Packet(const Bytes& packet);
    void On_Fitness_Track(std::uint16_t index);
    void Release_Runs(bool all);
    link::Packet Command_Packet(std::uint16_t command) const;
    bool Fetch(std::uint16_t command, std::uint8_t response);
    // Counting: the unit announces a transfer's count and is stopped before
    // its first record; a fitness unit's runs and courses are counted so too.
    void Count_Transfer(const link::Packet& command, std::uint16_t code);
    void Count_Fitness(cRecord_Counts& counts);
    bool Has_Protocol(const char* tag);
    std::string Format_Of(const char* tag, std::size_t k, const std::string& otherwise) const;
    bool Upload(std::uint16_t command, const std::vector<link::Packet>& records);
    std::shared_ptr<Collection<cRun>> runs_;
    std::shared_ptr<Collection<cCourse>> courses_;
    // A decoded record goes to the host's sink when there is one, else into its collection.
    template <typename T>
    void Keep(const std::shared_ptr<T>& record, Collection<T>& list, void (Record_Sink::*sink)(const T&)) {
        if (shared_.Sink)
            (shared_.Sink->*sink)(*record);
        else
            list.Add(record);
    }

    State shared_;
    class Realtime* live_ = nullptr;  // the registered real-time part, if any
    class Screen_Capture* screen_ = nullptr;
    link::Link& link_;
    link::Packet_Ids& ids_;
    Engine_Host& host_;
    std::vector<Product_Row> table_;
    Prebuilt packets_;
    std::shared_ptr<Collection<cWaypoint>> waypoints_;
    std::shared_ptr<Collection<cRoute>> routes_;
    std::shared_ptr<Collection<cTrack>> tracks_;
    Record_Pool<cTrack> track_pool_;  // track points arrive by the hundred thousand
    std::shared_ptr<Collection<cLap>> laps_;
    std::shared_ptr<Collection<cFlightbook_Record>> flightbook_;
};

}  // namespace trekcom::protocol
