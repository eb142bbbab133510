// The fitness units' transfers: runs joined with their laps and tracks, and
// courses with their laps, course points and tracks, down and up.
//
// Each download is a row of plain transfers (records packet, records,
// completion), one after the other; the records of all of them are gathered
// here and joined once the last is over, so the host is handed whole runs and
// whole courses. Their ids and command codes lie above 255: over USB they
// arrive in the expanded form.
#include <algorithm>
#include <set>
#include <optional>
#include <tuple>
#include <utility>
#include <string>
#include <vector>

#include "link/framing.h"
#include "link/little_endian.h"
#include "protocol/engine.h"
#include "records/codecs/codecs.h"
#include "records/codecs/fitness.h"
#include "records/fields.h"

namespace trekcom::protocol {

namespace {

constexpr std::uint16_t kPid_Run = 990;
constexpr std::uint16_t kPid_Course = 1061;
constexpr std::uint16_t kPid_Course_Lap = 1062;
constexpr std::uint16_t kPid_Course_Point = 1063;
constexpr std::uint16_t kPid_Course_Trk_Hdr = 1064;
constexpr std::uint16_t kPid_Course_Trk_Data = 1065;
constexpr std::uint16_t kPid_Course_Limits = 1066;
constexpr std::uint16_t kCmnd_Transfer_Runs = 450;
constexpr std::uint16_t kCmnd_Transfer_Courses = 561;
constexpr std::uint16_t kCmnd_Transfer_Course_Laps = 562;
constexpr std::uint16_t kCmnd_Transfer_Course_Points = 563;
constexpr std::uint16_t kCmnd_Transfer_Course_Tracks = 564;
constexpr std::uint16_t kCmnd_Transfer_Course_Limits = 565;

// A whole transfer may hold thousands of track points: its completion is
// awaited this long (seconds), as long as records keep coming.
constexpr std::int32_t kTransfer_Wait = 29;
constexpr std::int32_t kRecord_Wait = 2;

template <typename T>
std::shared_ptr<Collection<T>> New_Collection() {
    return std::make_shared<Collection<T>>();
}

}  // namespace

// What the transfers of one fitness download gather before they are joined.
struct Engine::Fitness_Transfer {
    std::vector<std::shared_ptr<cFitness_Lap>> laps;
    std::vector<std::shared_ptr<cFitness_Point>> points;  // of every track, each with its track's index
    std::vector<std::shared_ptr<cCourse_Lap>> course_laps;
    std::vector<std::shared_ptr<cCourse_Point>> course_points;
    std::optional<cCourse_Limits> limits;
    std::uint16_t track_index = 0;  // of the last track header
    // The runs download hands over each run once its track is over: the
    // runs before `released` have been; `ended` holds the tracks that are over.
    bool releasing = false, in_track = false;
    std::int32_t released = 0;
    std::set<std::uint32_t> ended;
    std::string run_format, lap_format, point_format, course_point_format;
};

std::shared_ptr<Collection<cRun>>& Engine::Runs() { return Created(runs_); }
std::shared_ptr<Collection<cCourse>>& Engine::Courses() { return Created(courses_); }

bool Engine::Has_Protocol(const char* tag) {
    if (shared_.Data_Types.contains(tag)) return true;
    host_.Raise_Error(0, host_.xLate("GPS model/version does not support") + " " + tag, Bytes{0});
    return false;
}

std::string Engine::Format_Of(const char* tag, std::size_t k, const std::string& otherwise) const {
    const auto it = shared_.Data_Types.find(tag);
    return it != shared_.Data_Types.end() && k < it->second.size() ? it->second[k] : otherwise;
}

// One transfer of the row: the command, then its records until the
// completion packet (or the response asked for) has come.
bool Engine::Fetch(std::uint16_t command, std::uint8_t response) {
    const link::Packet packet{ids_.PID_Command_Data,
                              {static_cast<std::uint8_t>(command), static_cast<std::uint8_t>(command >> 8)},
                              std::nullopt};
    return Exchange(packet, response, kTransfer_Wait);
}

bool Engine::On_Fitness_Packet(const Bytes& frame) {
    const std::optional<link::Packet> packet = link::Packet_Of(frame);
    if (!packet) return false;
    Fitness_Transfer& f = *fitness_;
    const std::uint16_t id = packet->id;
    const link::Data_View data = packet->data;
    const bool expanded = frame[1] == link::kExpanded_Id;
    if (id == ids_.PID_Xfer_Cmplt) {
        Close_Tally();
    } else if (id == ids_.PID_Lap) {
        f.laps.push_back(std::make_shared<cFitness_Lap>(records::Decode_Fitness_Lap(data, f.lap_format)));
    } else if (id == ids_.PID_Trk_Hdr || id == kPid_Course_Trk_Hdr) {
        On_Fitness_Track(static_cast<std::uint16_t>(records::Decode_Track_Header(data, "D311").Index));
    } else if (id == ids_.PID_Trk_Data || id == kPid_Course_Trk_Data) {
        f.points.push_back(std::make_shared<cFitness_Point>(
            records::Decode_Fitness_Point(data, f.point_format, f.track_index)));
    } else if (id == kPid_Run) {
        Runs()->Add(std::make_shared<cRun>(records::Decode_Run(data, f.run_format)));
    } else if (id == kPid_Course) {
        Courses()->Add(std::make_shared<cCourse>(records::Decode_Course(data)));
    } else if (id == kPid_Course_Lap) {
        f.course_laps.push_back(std::make_shared<cCourse_Lap>(records::Decode_Course_Lap(data)));
    } else if (id == kPid_Course_Point) {
        f.course_points.push_back(std::make_shared<cCourse_Point>(records::Decode_Course_Point(data)));
    } else if (id == kPid_Course_Limits) {
        f.limits = records::Decode_Course_Limits(data);
    } else {
        return false;
    }
    // The dispatcher counts the records of one-byte ids; the expanded ones are counted here.
    if (expanded && tally_.open && id != kPid_Course_Limits) ++tally_.received;
    return true;
}

// ---------------------------------------------------------------- runs

namespace {

void Join(cRun& run, const std::vector<std::shared_ptr<cFitness_Lap>>& laps,
          const std::vector<std::shared_ptr<cFitness_Point>>& points) {
    run.Laps = New_Collection<cFitness_Lap>();
    run.Points = New_Collection<cFitness_Point>();
    for (const auto& lap : laps)
        if (lap->Index >= run.First_Lap_Index && lap->Index <= run.Last_Lap_Index) run.Laps->Add(lap);
    if (run.Track_Index == kNo_Track) return;
    for (const auto& point : points)
        if (point->Track_Index == run.Track_Index) run.Points->Add(point);
}

}  // namespace

// A new track header ends the track before it.
void Engine::On_Fitness_Track(std::uint16_t index) {
    Fitness_Transfer& f = *fitness_;
    if (f.in_track) f.ended.insert(f.track_index);
    f.in_track = true;
    f.track_index = index;
    if (f.releasing) Release_Runs(false);
}

// Hands over the runs that are whole, in order; `all` once nothing more can come.
void Engine::Release_Runs(bool all) {
    const auto held = fitness_;
    Fitness_Transfer& f = *held;
    while (f.released < Runs()->Count()) {
        std::shared_ptr<cRun> run = Runs()->Item(f.released + 1);
        if (!all && run->Track_Index != kNo_Track && !f.ended.contains(run->Track_Index)) return;
        Join(*run, f.laps, f.points);
        ++f.released;
        host_.Raise_ReceivedRun(run);
    }
}

void Engine::Request_Runs() {
    Begin_Request();
    if (!Has_Protocol("A1000")) return;
    Runs()->Clear();
    // Held here too: a host's handler may start another request meanwhile.
    const auto held = fitness_ = std::make_shared<Fitness_Transfer>();
    Fitness_Transfer& f = *held;
    f.run_format = Format_Of("A1000", 0, "D1009");
    f.lap_format = Format_Of("A906", 0, "D1001");
    f.point_format = Format_Of("A302", 1, "D304");
    bool done = Fetch(kCmnd_Transfer_Runs, ids_.PID_Xfer_Cmplt);
    // A unit without a lap or track transfer still has runs, without laps or points.
    if (done && shared_.Data_Types.contains("A906")) done = Fetch(ids_.CMND_Transfer_Lap, ids_.PID_Xfer_Cmplt);
    f.releasing = done;
    if (done && shared_.Data_Types.contains("A302")) done = Fetch(ids_.CMND_Transfer_Trk, ids_.PID_Xfer_Cmplt);
    if (done && fitness_ == held) Release_Runs(true);
    fitness_.reset();
    if (done) host_.Raise_ReceivedRuns(Runs());
}

// ---------------------------------------------------------------- courses

void Engine::Request_Courses() {
    Begin_Request();
    if (!Has_Protocol("A1006")) return;
    Courses()->Clear();
    fitness_ = std::make_shared<Fitness_Transfer>();
    fitness_->point_format = Format_Of("A1012", 1, Format_Of("A302", 1, "D304"));
    bool done = Fetch(kCmnd_Transfer_Courses, ids_.PID_Xfer_Cmplt);
    for (const auto& [tag, command] : {std::pair{"A1007", kCmnd_Transfer_Course_Laps},
                                       {"A1008", kCmnd_Transfer_Course_Points},
                                       {"A1012", kCmnd_Transfer_Course_Tracks}})
        if (done && shared_.Data_Types.contains(tag)) done = Fetch(command, ids_.PID_Xfer_Cmplt);
    const auto gathered = std::exchange(fitness_, nullptr);
    if (!done) return;
    for (const auto& course : *Courses()) {
        course->Laps = New_Collection<cCourse_Lap>();
        course->Course_Points = New_Collection<cCourse_Point>();
        course->Points = New_Collection<cFitness_Point>();
        for (const auto& lap : gathered->course_laps)
            if (lap->Course_Index == course->Index) course->Laps->Add(lap);
        for (const auto& point : gathered->course_points)
            if (point->Course_Index == course->Index) course->Course_Points->Add(point);
        for (const auto& point : gathered->points)
            if (point->Track_Index == course->Track_Index) course->Points->Add(point);
    }
    host_.Raise_ReceivedCourses(Courses());
}

bool Engine::Upload(std::uint16_t command, const std::vector<link::Packet>& records) {
    link::Put_LE<std::int16_t>(packets_.Records.data, 0, static_cast<std::int16_t>(records.size()));
    if (!Exchange(packets_.Records, ids_.PID_Ack_Byte, kRecord_Wait)) return false;
    for (const link::Packet& record : records)
        if (!Exchange(record, ids_.PID_Ack_Byte, kRecord_Wait)) return false;
    link::Packet done = packets_.Xfer_Cmplt;
    link::Put_LE<std::uint16_t>(done.data, 0, command);
    return Exchange(done, ids_.PID_Ack_Byte, kRecord_Wait);
}

void Engine::Send_Courses(const Collection<cCourse>& courses) {
    Begin_Request();
    if (!Has_Protocol("A1006")) return;
    const std::string point_format = Format_Of("A1012", 1, Format_Of("A302", 1, "D304"));
    std::vector<link::Packet> heads, laps, course_points, tracks;
    std::size_t track_points = 0;
    try {
        for (const auto& c : courses) {
            if (!c) continue;
            heads.push_back(records::Encode_Course(*c, kPid_Course));
            if (c->Laps)
                for (const auto& l : *c->Laps) laps.push_back(records::Encode_Course_Lap(*l, kPid_Course_Lap));
            if (c->Course_Points)
                for (const auto& p : *c->Course_Points)
                    course_points.push_back(records::Encode_Course_Point(*p, kPid_Course_Point));
            cTrack header;
            header.Index = static_cast<std::int16_t>(c->Track_Index);
            tracks.push_back(*records::Encode_Track_Header(header, "D311", kPid_Course_Trk_Hdr));
            if (c->Points)
                for (const auto& p : *c->Points)
                    if (auto packet = records::Encode_Fitness_Point(*p, point_format, kPid_Course_Trk_Data)) {
                        tracks.push_back(std::move(*packet));
                        ++track_points;
                    }
        }
    } catch (const records::Overflow_Error& e) {
        host_.Raise_Error(6, host_.xLate("Overflow") + ": " + e.what(), Bytes{0});
        return;
    }
    if (shared_.Data_Types.contains("A1009")) {
        fitness_ = std::make_shared<Fitness_Transfer>();
        Fetch(kCmnd_Transfer_Course_Limits, link::kExpanded_Id);
        const auto limits = std::exchange(fitness_, nullptr)->limits;
        if (!limits) return;
        for (const auto& [what, count, most] :
             {std::tuple{"courses", heads.size(), limits->Max_Courses}, {"course laps", laps.size(), limits->Max_Course_Laps},
              {"course points", course_points.size(), limits->Max_Course_Pnt},
              {"course track points", track_points, limits->Max_Course_Trk_Pnt}}) {
            if (count <= most) continue;
            host_.Raise_Error(kCourse_Too_Big,
                              host_.xLate("Course too big for the unit") + ": " + std::to_string(count) + " " +
                                  what + ", at most " + std::to_string(most),
                              Bytes{0});
            return;
        }
    }
    if (!Upload(kCmnd_Transfer_Courses, heads)) return;
    if (!laps.empty() && !Upload(kCmnd_Transfer_Course_Laps, laps)) return;
    if (!course_points.empty() && !Upload(kCmnd_Transfer_Course_Points, course_points)) return;
    Upload(kCmnd_Transfer_Course_Tracks, tracks);
}

}  // namespace trekcom::protocol
