// Fitness laps (the D906 layout) and aviation flightbook entries (D650).
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

cLap Decode_Lap(const Bytes& packet) {
    cLap lap;
    lap.Start_Time_Seconds = Pkt2Long(packet, At(0));
    lap.Start_Time = Seconds2Time(lap.Start_Time_Seconds);
    lap.Total_Time = Pkt2Long(packet, At(4));
    lap.Total_Distance = Pkt2Single(packet, At(8));
    lap.Begin_Lat = Position_At(packet, 12);
    lap.Begin_Lon = Position_At(packet, 16);
    lap.End_Lat = Position_At(packet, 20);
    lap.End_Lon = Position_At(packet, 24);
    lap.Calories = Pkt2Int(packet, At(28));
    lap.Track_Index = Byte_At(packet, 30);
    lap.Unused = Byte_At(packet, 31);
    return lap;
}

Bytes Encode_Lap(const cLap& lap, std::uint8_t packet_id) {
    Bytes p = New_Packet(packet_id, kLapSize);
    Put_Long(p, At(0), Wire_Time(lap.Start_Time_Seconds, lap.Start_Time));
    Put_Long(p, At(4), lap.Total_Time);
    Put_Single(p, At(8), lap.Total_Distance);
    Put_Position(p, 12, lap.Begin_Lat);
    Put_Position(p, 16, lap.Begin_Lon);
    Put_Position(p, 20, lap.End_Lat);
    Put_Position(p, 24, lap.End_Lon);
    Put_Int(p, At(28), lap.Calories);
    Put_Byte(p, At(30), lap.Track_Index);
    // The unused byte goes out as 0, whatever the record holds.
    Seal(p);
    return p;
}

cFlightbook_Record Decode_Flightbook(const Bytes& packet) {
    cFlightbook_Record r;
    r.Takeoff_Seconds = Pkt2Long(packet, At(0));
    r.Takeoff_Time = Seconds2Time(r.Takeoff_Seconds);
    r.Landing_Seconds = Pkt2Long(packet, At(4));
    r.Landing_Time = Seconds2Time(r.Landing_Seconds);
    r.Takeoff_Lat = Position_At(packet, 8);
    r.Takeoff_Lon = Position_At(packet, 12);
    r.Landing_Lat = Position_At(packet, 16);
    r.Landing_Lon = Position_At(packet, 20);
    r.Night_Time = Pkt2Long(packet, At(24));
    r.Num_Landings = Pkt2Long(packet, At(28));
    r.Max_Speed = Pkt2Single(packet, At(32));
    r.Max_Alt = Pkt2Single(packet, At(36));
    r.Distance = Pkt2Single(packet, At(40));
    r.Cross_Country = Byte_At(packet, 44) > 0;
    auto texts = Texts_From(packet, kFlightbookTexts, 5);
    r.Departure_Airport_Name = std::move(texts[0]);
    r.Departure_Airport_Ident = std::move(texts[1]);
    r.Arrival_Airport_Name = std::move(texts[2]);
    r.Arrival_Airport_Ident = std::move(texts[3]);
    r.Aircraft_ID = std::move(texts[4]);
    return r;
}

Bytes Encode_Flightbook(const cFlightbook_Record& r, std::uint8_t packet_id) {
    const std::string texts = Terminated_Texts({r.Departure_Airport_Name, r.Departure_Airport_Ident,
                                                r.Arrival_Airport_Name, r.Arrival_Airport_Ident, r.Aircraft_ID});
    Bytes p = New_Packet(packet_id, kFlightbookTexts + texts.size());
    Put_Long(p, At(0), Wire_Time(r.Takeoff_Seconds, r.Takeoff_Time));
    Put_Long(p, At(4), Wire_Time(r.Landing_Seconds, r.Landing_Time));
    Put_Position(p, 8, r.Takeoff_Lat);
    Put_Position(p, 12, r.Takeoff_Lon);
    Put_Position(p, 16, r.Landing_Lat);
    Put_Position(p, 20, r.Landing_Lon);
    Put_Long(p, At(24), r.Night_Time);
    Put_Long(p, At(28), r.Num_Landings);
    Put_Single(p, At(32), r.Max_Speed);
    Put_Single(p, At(36), r.Max_Alt);
    Put_Single(p, At(40), r.Distance);
    Put_Byte(p, At(44), r.Cross_Country ? 1 : 0);
    Put_Wire(p, kFlightbookTexts, texts);
    Seal(p);
    return p;
}

}  // namespace trekcom::records
