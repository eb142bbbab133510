// Every record decoder, on packets of any size and content; each decoded
// record is encoded again in its format, which must not fail except by the
// encoders' documented overflow.
//
// Input: byte 0 chooses the decoder and format (mod the table's size); the
// rest is the packet (DLE, id, size, data, checksum, DLE, ETX, or anything),
// whose data the decoder gets as the dispatcher gives it: all but the first
// three and last three bytes, whatever the size byte says.
#include <algorithm>

#include "decoder_table.h"
#include "fuzz_common.h"
#include "link/framing.h"
#include "records/codecs/codecs.h"
#include "records/codecs/fitness.h"
#include "records/fields.h"

namespace {

using namespace trekcom;
using fuzz::Kind;

// A fitness record decoded from a whole packet goes back byte for byte.
void Same_Bytes(const std::optional<link::Packet>& again, link::Data_View data) {
    if (again && data.size() >= again->data.size() && !std::equal(again->data.begin(), again->data.end(), data.begin()))
        __builtin_trap();
}

// Encoding a decoded record may refuse a value with no wire form; nothing else.
template <typename Encode>
void Encode_Again(Encode encode) {
    try {
        encode();
    } catch (const records::Overflow_Error&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    const fuzz::Decoder& d = fuzz::kDecoders[data[0] % fuzz::kDecoders.size()];
    const Bytes packet = fuzz::Exact(data + 1, size - 1);
    const std::uint8_t id = packet.size() > 1 ? packet[1] : 0;
    const link::Data_View bytes = link::Data_Of(packet);
    switch (d.kind) {
    case Kind::waypoint: {
        const cWaypoint w = records::Decode_Waypoint(bytes, d.format);
        Encode_Again([&] { records::Encode_Waypoint(w, d.format, id, d.format.starts_with("D4")); });
        break;
    }
    case Kind::route_header: {
        const cRoute r = records::Decode_Route_Header(bytes, d.format);
        Encode_Again([&] { records::Encode_Route_Header(r, d.format, id); });
        break;
    }
    case Kind::route_link: {
        cRoute r;
        records::Decode_Route_Link(bytes, r);
        Encode_Again([&] { records::Encode_Route_Link(r, id); });
        break;
    }
    case Kind::track_header: {
        const cTrack t = records::Decode_Track_Header(bytes, d.format);
        Encode_Again([&] { records::Encode_Track_Header(t, d.format, id); });
        break;
    }
    case Kind::track_point: {
        const cTrack current{};
        const cTrack t = records::Decode_Track_Point(bytes, d.format, current);
        Encode_Again([&] { records::Encode_Track_Point(t, d.format, id); });
        break;
    }
    case Kind::almanac: {
        cAlmanac a;
        records::Decode_Almanac(bytes, d.format, a);
        Encode_Again([&] { records::Encode_Almanac(a, d.format, id); });
        break;
    }
    case Kind::lap: {
        const cLap l = records::Decode_Lap(bytes);
        Encode_Again([&] { records::Encode_Lap(l, id); });
        break;
    }
    case Kind::flightbook: {
        const cFlightbook_Record r = records::Decode_Flightbook(bytes);
        Encode_Again([&] { records::Encode_Flightbook(r, id); });
        break;
    }
    case Kind::run: Same_Bytes(records::Encode_Run(records::Decode_Run(bytes, d.format), d.format, id), bytes); break;
    case Kind::fitness_lap:
        Same_Bytes(records::Encode_Fitness_Lap(records::Decode_Fitness_Lap(bytes, d.format), d.format, id), bytes);
        break;
    case Kind::fitness_point:
        Same_Bytes(records::Encode_Fitness_Point(records::Decode_Fitness_Point(bytes, d.format, 0), d.format, id), bytes);
        break;
    // Names end at their first NUL: what lies behind it is not kept.
    case Kind::course: records::Encode_Course(records::Decode_Course(bytes), id); break;
    case Kind::course_point: records::Encode_Course_Point(records::Decode_Course_Point(bytes), id); break;
    case Kind::course_lap: Same_Bytes(records::Encode_Course_Lap(records::Decode_Course_Lap(bytes), id), bytes); break;
    case Kind::course_limits:
        Same_Bytes(records::Encode_Course_Limits(records::Decode_Course_Limits(bytes), id), bytes);
        break;
    }
    return 0;
}
