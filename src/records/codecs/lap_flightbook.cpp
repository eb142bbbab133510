// Fitness laps (the D906 layout) and aviation flightbook entries (D650).
#include <optional>
#include <utility>

#include "records/codecs/codecs.h"
#include "packet_io.h"
#include "../garmin_time.h"

namespace trekcom::records {
using namespace codec;
namespace {

constexpr std::size_t kLapSize = 32;
constexpr int kFlightbookTexts = 45;  // where the five texts begin

}  // namespace

cLap Decode_Lap(link::Data_View data) {
    cLap lap;
    lap.Start_Time_Seconds = Data_Long(data, 0);
    lap.Start_Time = Seconds2Time(lap.Start_Time_Seconds);
    lap.Total_Time = Data_Long(data, 4);
    lap.Total_Distance = Data_Single(data, 8);
    Positions_At(data, 12, {&lap.Begin_Lat, &lap.Begin_Lon, &lap.End_Lat, &lap.End_Lon});
    lap.Calories = Data_Int(data, 28);
    lap.Track_Index = Data_Byte(data, 30);
    lap.Unused = Data_Byte(data, 31);
    return lap;
}

std::optional<link::Packet> Encode_Lap(const cLap& lap, std::uint16_t packet_id) {
    Bytes p = New_Data(kLapSize);
    Put_Long(p, 0, Wire_Time(lap.Start_Time_Seconds, lap.Start_Time));
    Put_Long(p, 4, lap.Total_Time);
    Put_Single(p, 8, lap.Total_Distance);
    Put_Positions(p, 12, {lap.Begin_Lat, lap.Begin_Lon, lap.End_Lat, lap.End_Lon});
    Put_Int(p, 28, lap.Calories);
    Put_Byte(p, 30, lap.Track_Index);
    // The unused byte goes out as 0, whatever the record holds.
    return link::Packet{packet_id, std::move(p), std::nullopt};
}

cFlightbook_Record Decode_Flightbook(link::Data_View data) {
    cFlightbook_Record r;
    r.Takeoff_Seconds = Data_Long(data, 0);
    r.Takeoff_Time = Seconds2Time(r.Takeoff_Seconds);
    r.Landing_Seconds = Data_Long(data, 4);
    r.Landing_Time = Seconds2Time(r.Landing_Seconds);
    Positions_At(data, 8, {&r.Takeoff_Lat, &r.Takeoff_Lon, &r.Landing_Lat, &r.Landing_Lon});
    r.Night_Time = Data_Long(data, 24);
    r.Num_Landings = Data_Long(data, 28);
    r.Max_Speed = Data_Single(data, 32);
    r.Max_Alt = Data_Single(data, 36);
    r.Distance = Data_Single(data, 40);
    r.Cross_Country = Data_Byte(data, 44) > 0;
    auto texts = Texts_From(data, kFlightbookTexts, 5);
    r.Departure_Airport_Name = std::move(texts[0]);
    r.Departure_Airport_Ident = std::move(texts[1]);
    r.Arrival_Airport_Name = std::move(texts[2]);
    r.Arrival_Airport_Ident = std::move(texts[3]);
    r.Aircraft_ID = std::move(texts[4]);
    return r;
}

std::optional<link::Packet> Encode_Flightbook(const cFlightbook_Record& r, std::uint16_t packet_id) {
    const std::string texts = Terminated_Texts({r.Departure_Airport_Name, r.Departure_Airport_Ident,
                                                r.Arrival_Airport_Name, r.Arrival_Airport_Ident, r.Aircraft_ID});
    Bytes p = New_Data(kFlightbookTexts + texts.size());
    Put_Long(p, 0, Wire_Time(r.Takeoff_Seconds, r.Takeoff_Time));
    Put_Long(p, 4, Wire_Time(r.Landing_Seconds, r.Landing_Time));
    Put_Positions(p, 8, {r.Takeoff_Lat, r.Takeoff_Lon, r.Landing_Lat, r.Landing_Lon});
    Put_Long(p, 24, r.Night_Time);
    Put_Long(p, 28, r.Num_Landings);
    Put_Single(p, 32, r.Max_Speed);
    Put_Single(p, 36, r.Max_Alt);
    Put_Single(p, 40, r.Distance);
    Put_Byte(p, 44, r.Cross_Country ? 1 : 0);
    Put_Wire(p, kFlightbookTexts, texts);
    return link::Packet{packet_id, std::move(p), std::nullopt};
}

}  // namespace trekcom::records
