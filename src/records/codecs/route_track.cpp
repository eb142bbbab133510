// Route headers and links, track headers and points.
#include <memory>
#include <optional>
#include <utility>

#include "records/codecs/codecs.h"
#include "packet_io.h"
#include "../garmin_time.h"

namespace trekcom::records {
using namespace codec;
namespace {

// Direct (3) and snapped (255) links carry no subclass of their own.
bool Link_Has_Subclass(std::int16_t link_class) { return link_class != 3 && link_class != 255; }

bool Is_Named_Track_Header(std::string_view format) { return format == "D310" || format == "D312"; }

// Where a track point format keeps its new-segment byte; 0 for a format
// that is not a track point.
int Segment_Offset(std::string_view format) {
    if (format == "D300") return 12;
    if (format == "D301") return 20;
    if (format == "D302") return 24;
    return 0;
}

// The size every track point announces: the D300 size.
constexpr std::uint8_t kTrackPointSize = 13;

}  // namespace

// ---------------------------------------------------------------- routes

cRoute Decode_Route_Header(link::Data_View data, std::string_view format) {
    cRoute route;
    route.Waypoints = std::make_shared<Collection<cWaypoint>>();
    if (format == "D200") {
        route.Number = Data_Byte(data, 0);
    } else if (format == "D201") {
        route.Number = Data_Byte(data, 0);
        route.Cmnt = Trim_Null(Raw_Text(data, 1, 20));
    } else if (format == "D202") {
        // All the data but its last byte, the terminator.
        route.Ident = Trim_Null(Raw_Text(data, 0, static_cast<int>(data.size()) - 1));
    }
    return route;
}

std::optional<link::Packet> Encode_Route_Header(const cRoute& route, std::string_view format, std::uint16_t packet_id) {
    Bytes p;
    if (format == "D200") {
        p = New_Data(1);
        Put_Byte(p, 0, Wire_Byte(route.Number));
    } else if (format == "D201") {
        p = New_Data(21);
        Put_Byte(p, 0, Wire_Byte(route.Number));
        // A route with no comment is shown by its name.
        Put_Upper_Text(p, 1, 20, route.Cmnt.empty() ? route.Ident : route.Cmnt);
    } else if (format == "D202") {
        const std::string texts = Terminated_Texts({route.Ident});
        p = New_Data(texts.size());
        Put_Wire(p, 0, texts);
    } else {
        return std::nullopt;
    }
    return link::Packet{packet_id, std::move(p), std::nullopt};
}

void Decode_Route_Link(link::Data_View data, cRoute& route) {
    route.Link_Class = Data_Int(data, 0);
    route.Link_Sub_Class = Link_Has_Subclass(route.Link_Class) ? Fixed_Text(data, 2, 18) : std::string();
    route.Link_Ident = Fixed_Text(data, 20, static_cast<int>(data.size()) - 20);
}

std::optional<link::Packet> Encode_Route_Link(const cRoute& route, std::uint16_t packet_id) {
    const std::string texts = Terminated_Texts({route.Link_Ident});
    Bytes p = New_Data(20 + texts.size());
    Put_Int(p, 0, route.Link_Class);
    // Unlike a waypoint's, a link's subclass is sent upper-cased.
    if (Link_Has_Subclass(route.Link_Class))
        Put_Upper_Text(p, 2, 18, route.Link_Sub_Class);
    else
        Put_Default_Subclass(p, 2);
    Put_Wire(p, 20, texts);
    return link::Packet{packet_id, std::move(p), std::nullopt};
}

// ---------------------------------------------------------------- tracks

cTrack Decode_Track_Header(link::Data_View data, std::string_view format) {
    cTrack header;
    if (Is_Named_Track_Header(format)) {
        // The display byte is not read: a decoded header shows Dspl false,
        // as hosts have always seen it.
        header.Color = Data_Byte(data, 1);
        header.Ident = Fixed_Text(data, 2, static_cast<int>(data.size()) - 3);
    } else if (format == "D311") {
        header.Index = Data_Int(data, 0);
    }
    return header;
}

std::optional<link::Packet> Encode_Track_Header(const cTrack& header, std::string_view format,
                                                std::uint16_t packet_id) {
    Bytes p;
    if (Is_Named_Track_Header(format)) {
        const std::string texts = Terminated_Texts({header.Ident});
        p = New_Data(2 + texts.size());
        Put_Byte(p, 0, header.Dspl ? 1 : 0);
        Put_Byte(p, 1, header.Color);
        Put_Wire(p, 2, texts);
    } else if (format == "D311") {
        p = New_Data(2);
        Put_Int(p, 0, header.Index);
    } else {
        return std::nullopt;
    }
    return link::Packet{packet_id, std::move(p), std::nullopt};
}

namespace {

// What a point's packet holds, read over `point`; false when the format has no points.
bool Read_Point(link::Data_View data, std::string_view format, cTrack& point) {
    const int segment_at = Segment_Offset(format);
    if (segment_at == 0) return false;
    point.Lat = Position_At(data, 0);
    point.Lon = Position_At(data, 4);
    point.Seconds = Data_Long(data, 8);
    if (format != "D300") {
        point.Alt = Data_Single(data, 12);
        point.Dpth = Data_Single(data, 16);
    }
    if (format == "D302") point.Temp = Data_Single(data, 20);
    point.New_Segment = Data_Byte(data, segment_at) == 1;
    return true;
}

}  // namespace

cTrack Decode_Track_Point(link::Data_View data, std::string_view format, const cTrack& current) {
    cTrack point;
    // Points carry their track's name, colour and display flag, whatever
    // their format: a host lists points without looking back for the header.
    point.Ident = current.Ident;
    point.Color = current.Color;
    point.Dspl = current.Dspl;
    if (Read_Point(data, format, point)) point.Time = Seconds2Time(point.Seconds);
    return point;
}

void Decode_Track_Point_Into(link::Data_View data, std::string_view format, cTrack& point) {
    // The track's name, colour and display flag stay, and the text buffers
    // are reused; every other field is this point's or its default.
    const cTrack fresh;
    point.Datum.clear();
    point.Time.clear();
    point.Lat = fresh.Lat, point.Lon = fresh.Lon, point.Seconds = fresh.Seconds;
    point.Alt = fresh.Alt, point.Dpth = fresh.Dpth, point.Temp = fresh.Temp;
    point.Index = fresh.Index;
    point.New_Segment = fresh.New_Segment;
    if (Read_Point(data, format, point)) Seconds2Time(point.Seconds, point.Time);
}

std::optional<link::Packet> Encode_Track_Point(const cTrack& point, std::string_view format, std::uint16_t packet_id) {
    const int segment_at = Segment_Offset(format);
    if (segment_at == 0) return std::nullopt;
    Bytes p = New_Data(static_cast<std::size_t>(segment_at) + 1);
    Put_Position(p, 0, point.Lat);
    Put_Position(p, 4, point.Lon);
    Put_Long(p, 8, Wire_Time(point.Seconds, point.Time));
    // D302 sends no altitude or depth: those eight bytes stay zero.
    if (format == "D301") {
        Put_Single(p, 12, point.Alt);
        Put_Single(p, 16, point.Dpth);
    }
    if (format == "D302") Put_Single(p, 20, point.Temp);
    Put_Byte(p, segment_at, point.New_Segment ? 1 : 0);
    // Every point announces 13 data bytes, the D300 size, even when it holds
    // the 21 of D301 or the 25 of D302. That is how the control has always
    // sent points and it is kept; a receiver that checks the size byte
    // against the frame refuses D301 and D302 points.
    link::Packet packet{packet_id, std::move(p), std::nullopt};
    if (packet.data.size() != kTrackPointSize) packet.announced = kTrackPointSize;
    return packet;
}

}  // namespace trekcom::records
