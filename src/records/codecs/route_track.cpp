// Route headers and links, track headers and points.
#include <memory>

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

// The size byte every track point goes out with: the D300 size.
constexpr std::uint8_t kTrackPointSizeByte = 13;

}  // namespace

// ---------------------------------------------------------------- routes

cRoute Decode_Route_Header(const Bytes& packet, std::string_view format) {
    cRoute route;
    route.Waypoints = std::make_shared<Collection<cWaypoint>>();
    if (format == "D200") {
        route.Number = Byte_At(packet, 0);
    } else if (format == "D201") {
        route.Number = Byte_At(packet, 0);
        route.Cmnt = Trim_Null(Raw_Text(packet, 1, 20));
    } else if (format == "D202") {
        // All the data but its last byte, the terminator.
        route.Ident = Trim_Null(Raw_Text(packet, 0, Data_Size(packet) - 1));
    }
    return route;
}

Bytes Encode_Route_Header(const cRoute& route, std::string_view format, std::uint8_t packet_id) {
    Bytes p;
    if (format == "D200") {
        p = New_Packet(packet_id, 1);
        Put_Byte(p, At(0), Wire_Byte(route.Number));
    } else if (format == "D201") {
        p = New_Packet(packet_id, 21);
        Put_Byte(p, At(0), Wire_Byte(route.Number));
        // A route with no comment is shown by its name.
        Put_Upper_Text(p, 1, 20, route.Cmnt.empty() ? route.Ident : route.Cmnt);
    } else if (format == "D202") {
        const std::string texts = Terminated_Texts({route.Ident});
        p = New_Packet(packet_id, texts.size());
        Put_Wire(p, 0, texts);
    } else {
        return {};
    }
    Seal(p);
    return p;
}

void Decode_Route_Link(const Bytes& packet, cRoute& route) {
    route.Link_Class = Pkt2Int(packet, At(0));
    route.Link_Sub_Class = Link_Has_Subclass(route.Link_Class) ? Fixed_Text(packet, 2, 18) : std::string();
    route.Link_Ident = Fixed_Text(packet, 20, Data_Size(packet) - 20);
}

Bytes Encode_Route_Link(const cRoute& route, std::uint8_t packet_id) {
    const std::string texts = Terminated_Texts({route.Link_Ident});
    Bytes p = New_Packet(packet_id, 20 + texts.size());
    Put_Int(p, At(0), route.Link_Class);
    // Unlike a waypoint's, a link's subclass is sent upper-cased.
    if (Link_Has_Subclass(route.Link_Class))
        Put_Upper_Text(p, 2, 18, route.Link_Sub_Class);
    else
        Put_Default_Subclass(p, 2);
    Put_Wire(p, 20, texts);
    Seal(p);
    return p;
}

// ---------------------------------------------------------------- tracks

cTrack Decode_Track_Header(const Bytes& packet, std::string_view format) {
    cTrack header;
    if (Is_Named_Track_Header(format)) {
        // The display byte is not read: a decoded header shows Dspl false,
        // as hosts have always seen it.
        header.Color = Byte_At(packet, 1);
        header.Ident = Fixed_Text(packet, 2, Data_Size(packet) - 3);
    } else if (format == "D311") {
        header.Index = Pkt2Int(packet, At(0));
    }
    return header;
}

Bytes Encode_Track_Header(const cTrack& header, std::string_view format, std::uint8_t packet_id) {
    Bytes p;
    if (Is_Named_Track_Header(format)) {
        const std::string texts = Terminated_Texts({header.Ident});
        p = New_Packet(packet_id, 2 + texts.size());
        Put_Byte(p, At(0), header.Dspl ? 1 : 0);
        Put_Byte(p, At(1), header.Color);
        Put_Wire(p, 2, texts);
    } else if (format == "D311") {
        p = New_Packet(packet_id, 2);
        Put_Int(p, At(0), header.Index);
    } else {
        return {};
    }
    Seal(p);
    return p;
}

cTrack Decode_Track_Point(const Bytes& packet, std::string_view format, const cTrack& current) {
    cTrack point;
    // Points carry their track's name, colour and display flag, whatever
    // their format: a host lists points without looking back for the header.
    point.Ident = current.Ident;
    point.Color = current.Color;
    point.Dspl = current.Dspl;
    const int segment_at = Segment_Offset(format);
    if (segment_at == 0) return point;
    point.Lat = Position_At(packet, 0);
    point.Lon = Position_At(packet, 4);
    point.Seconds = Pkt2Long(packet, At(8));
    point.Time = Seconds2Time(point.Seconds);
    if (format != "D300") {
        point.Alt = Pkt2Single(packet, At(12));
        point.Dpth = Pkt2Single(packet, At(16));
    }
    if (format == "D302") point.Temp = Pkt2Single(packet, At(20));
    point.New_Segment = Byte_At(packet, segment_at) == 1;
    return point;
}

Bytes Encode_Track_Point(const cTrack& point, std::string_view format, std::uint8_t packet_id) {
    const int segment_at = Segment_Offset(format);
    if (segment_at == 0) return {};
    Bytes p = New_Packet(packet_id, static_cast<std::size_t>(segment_at) + 1);
    // Every point says 13 data bytes, the D300 size, even when it holds the
    // 21 of D301 or the 25 of D302. That is how the control has always sent
    // points and it is kept; a receiver that checks the size byte against
    // the frame refuses D301 and D302 points.
    p[2] = kTrackPointSizeByte;
    Put_Position(p, 0, point.Lat);
    Put_Position(p, 4, point.Lon);
    Put_Long(p, At(8), Wire_Time(point.Seconds, point.Time));
    // D302 sends no altitude or depth: those eight bytes stay zero.
    if (format == "D301") {
        Put_Single(p, At(12), point.Alt);
        Put_Single(p, At(16), point.Dpth);
    }
    if (format == "D302") Put_Single(p, At(20), point.Temp);
    Put_Byte(p, At(segment_at), point.New_Segment ? 1 : 0);
    Seal(p);
    return p;
}

}  // namespace trekcom::records
