// Identification: the product data, the capability array, the product table
// for receivers that send none, and the support test that every transfer
// makes before it starts.
#include <algorithm>
#include <cstdio>

#include "link/framing.h"
#include "protocol/engine.h"
#include "records/fields.h"

namespace trekcom::protocol {

namespace {

constexpr std::uint8_t kAsync_Off = 28;  // asynchronous-message switch, data 0, 0: all off
constexpr double kArray_Wait_ms = 500;
constexpr std::int32_t kAfter_Wait = 500;

const std::string kBlank = "    ";

// The data size the packet claims, never more than lies between its header
// and its checksum.
std::size_t Data_Length(const Bytes& packet) {
    if (packet.size() < link::kFrameOverhead) return 0;
    return std::min<std::size_t>(packet[2], packet.size() - link::kFrameOverhead);
}

// Data bytes from offset `from` to the end of the data, one character per
// byte (NULs kept), then split at NULs into at most `fields` texts: the last
// field stops at its NUL, or takes the rest when there is none; a text with
// no NUL at all is the first field alone.
std::vector<std::string> Nul_Fields(const Bytes& packet, std::size_t from, std::size_t fields) {
    const std::size_t length = Data_Length(packet);
    const std::string text =
        length > from ? records::Wire_Text(packet, static_cast<std::int64_t>(3 + from),
                                           static_cast<std::int64_t>(length - from), 1)
                      : std::string();
    std::vector<std::string> out;
    std::size_t start = 0;
    while (out.size() < fields) {
        const std::size_t nul = text.find('\0', start);
        out.push_back(text.substr(start, nul == std::string::npos ? std::string::npos : nul - start));
        if (nul == std::string::npos) break;
        start = nul + 1;
    }
    return out;
}

bool Trimmed_Empty(const std::string& protocol) { return protocol.find_first_not_of(' ') == std::string::npos; }

// "A" and 10 give "A010": at least three digits.
std::string Entry_Name(char tag, std::int16_t number) {
    char digits[8];
    if (number < 0)
        std::snprintf(digits, sizeof digits, "-%03d", -static_cast<int>(number));
    else
        std::snprintf(digits, sizeof digits, "%03d", static_cast<int>(number));
    return std::string(1, tag) + digits;
}

}  // namespace

void Engine::Set_Default_Protocols() {
    shared_.Data_Types.clear();
    shared_.P.Link_Protocol = "L001";
    shared_.P.WayPoint_Transfer_Protocol = "A100";
    shared_.P.Route_Transfer_Protocol = "A200";
    shared_.P.Track_Transfer_Protocol = kBlank;
    shared_.P.Prox_Wpt_Transfer_Protocol = kBlank;
    shared_.P.Almanac_Transfer_Protocol = "A500";
    shared_.P.Flightbook_Transfer_Protocol = "A650";
    shared_.P.Laps_Transfer_Protocol = "A906";
    shared_.P.Date_Transfer_Protocol = "A600";
    shared_.P.Posn_Transfer_Protocol = "A700";
    shared_.P.Pvt_Transfer_Protocol = "A800";
    shared_.P.Waypoint_Data_Format = "D100";
    shared_.P.Route_Header_Format = "D200";
    shared_.P.Route_Wpt_Data_Format = "D100";
    shared_.P.Route_Link_Format = kBlank;
    shared_.P.Track_Header_Format = kBlank;
    shared_.P.Track_Point_Format = kBlank;
    shared_.P.Prox_Wpt_Data_Format = kBlank;
    shared_.P.Almanac_Data_Format = "D500";
    shared_.P.Flightbook_Data_Format = "D650";
    shared_.P.Laps_Data_Format = "D906";
    shared_.P.Date_Data_Format = "D600";
    shared_.P.Posn_Data_Format = "D700";
    shared_.P.Pvt_Data_Format = "D800";
}

void Engine::Clear_Protocols() {
    // A900_Protocol has no property and is left as it is.
    shared_.Data_Types.clear();
    shared_.P.Link_Protocol = "   ";
    for (std::string* member :
         {&shared_.P.WayPoint_Transfer_Protocol, &shared_.P.Route_Transfer_Protocol, &shared_.P.Track_Transfer_Protocol,
          &shared_.P.Prox_Wpt_Transfer_Protocol, &shared_.P.Almanac_Transfer_Protocol, &shared_.P.Flightbook_Transfer_Protocol,
          &shared_.P.Laps_Transfer_Protocol, &shared_.P.Date_Transfer_Protocol, &shared_.P.Posn_Transfer_Protocol, &shared_.P.Pvt_Transfer_Protocol,
          &shared_.P.Waypoint_Data_Format, &shared_.P.Route_Header_Format, &shared_.P.Route_Wpt_Data_Format, &shared_.P.Route_Link_Format,
          &shared_.P.Track_Header_Format, &shared_.P.Track_Point_Format, &shared_.P.Prox_Wpt_Data_Format, &shared_.P.Almanac_Data_Format,
          &shared_.P.Flightbook_Data_Format, &shared_.P.Laps_Data_Format, &shared_.P.Date_Data_Format, &shared_.P.Posn_Data_Format,
          &shared_.P.Pvt_Data_Format})
        *member = kBlank;
}

void Engine::Apply_L002(bool from_capability_array) {
    ids_.PID_Command_Data = 11;
    ids_.PID_Xfer_Cmplt = 12;
    ids_.PID_Date_Time = 20;
    ids_.PID_Position_Data = 24;
    ids_.PID_Records = 35;
    ids_.PID_Rte_Hdr = 37;
    ids_.PID_Almanac_Data = 4;
    ids_.PID_Wpt_Data = 43;
    ids_.CMND_Reset_Transfer = 0;
    ids_.CMND_Transfer_Alm = 4;
    ids_.CMND_Transfer_Rte = 8;
    ids_.CMND_Transfer_Time = 20;
    ids_.CMND_Transfer_Wpt = 21;
    ids_.CMND_Turn_Off_Pwr = 26;
    // The table path has always left the proximity id and command at their
    // L001 values; only a capability array moves them. Route waypoints keep
    // id 30 on both paths.
    if (from_capability_array) {
        ids_.PID_Prx_Wpt_Data = 27;
        ids_.CMND_Transfer_Prx = 17;
    }
    // The prebuilt packets and the link's ping carry the ids they were built
    // with, and an L002 unit does not know the L001 command id 10 or the A010
    // codes: rebuild them so every later request speaks the unit's numbers.
    Build_Packets();
    link_.Build_Fixed_Packets();
}

void Engine::Request_Product_Data() {
    link_.Shared().RawSuppressed = false;
    shared_.Error_Latch = false;
    if (!link_.Start_Session()) return;
    shared_.Protocol_Array_Received = false;
    Forget_Identity();
    if (!Exchange({ids_.PID_Product_Rqst, {}, std::nullopt}, ids_.PID_Product_Data, 0)) return;
    identified_ms_ = link_.Now_ms();

    // The capability array, if the unit has one, follows its product data
    // at once; older units send none, and only they wait the whole time.
    const bool array_came = link_.Wait_Until([this] { return shared_.Protocol_Array_Received; }, kArray_Wait_ms);
    if (!array_came) return;  // older units: no unit id to ask for either

    // Some units never answer the unit-id request: their silence is no error.
    std::uint8_t unit_id = ids_.PID_Unit_ID;
    link_.Send_Packet(packets_.Unit_ID_Request, unit_id, kAfter_Wait);
    link_.Stop_Watchdog();
    Exchange({kAsync_Off, {0, 0}, std::nullopt}, ids_.PID_Ack_Byte, kAfter_Wait);
}

void Engine::Process_Product_Data(const Bytes& packet) {
    cProduct_Data& pd = *shared_.Product_Data;
    pd.Product_ID = records::Pkt2Int(packet, 3);
    pd.Software_Version = records::Pkt2Int(packet, 5);
    const auto texts = Nul_Fields(packet, 4, 3);
    std::string* targets[] = {&pd.Product_Description_1, &pd.Product_Description_2, &pd.Product_Description_3};
    for (std::size_t i = 0; i < texts.size(); ++i) *targets[i] = texts[i];

    if (shared_.Protocol_Array_Received) return;
    // Units send their product data before their capability array, so the
    // table's guess is made first and an array that follows overrides it.
    Set_Default_Protocols();
    const Product_Row* row = Find_Product_Row(table_, pd.Product_ID, pd.Software_Version);
    if (!row) return;
    const auto& c = row->Column;
    shared_.P.Link_Protocol = c[3];
    shared_.P.WayPoint_Transfer_Protocol = c[5];
    shared_.P.Waypoint_Data_Format = c[6];
    shared_.P.Route_Transfer_Protocol = c[7];
    shared_.P.Route_Header_Format = c[8];
    shared_.P.Route_Wpt_Data_Format = c[9];
    shared_.P.Route_Link_Format = c[10];
    shared_.P.Track_Transfer_Protocol = c[11];
    // Column 12 holds the single track type of A300 units and goes to the
    // point format; column 13 goes to the header format, whatever the row holds.
    shared_.P.Track_Point_Format = c[12];
    shared_.P.Track_Header_Format = c[13];
    shared_.P.Prox_Wpt_Transfer_Protocol = c[14];
    shared_.P.Prox_Wpt_Data_Format = c[15];
    shared_.P.Almanac_Transfer_Protocol = c[16];
    shared_.P.Almanac_Data_Format = c[17];
    shared_.P.Date_Transfer_Protocol = c[18];
    shared_.P.Date_Data_Format = c[19];
    shared_.P.Posn_Transfer_Protocol = c[20];
    shared_.P.Posn_Data_Format = c[21];
    shared_.P.Pvt_Transfer_Protocol = c[22];
    shared_.P.Pvt_Data_Format = c[23];
    if (shared_.P.Link_Protocol == "L002") Apply_L002(false);
}

void Engine::Process_Ext_Product_Data(const Bytes& packet) {
    cProduct_Data& pd = *shared_.Product_Data;
    const auto texts = Nul_Fields(packet, 0, 3);
    std::string* targets[] = {&pd.Product_Description_4, &pd.Product_Description_5, &pd.Product_Description_6};
    for (std::size_t i = 0; i < texts.size(); ++i) *targets[i] = texts[i];
}

void Engine::Parse_Protocol_Array(const Bytes& packet) {
    Clear_Protocols();
    shared_.Protocol_Array_Received = true;
    std::string current_a;
    int d_count = 0;
    const std::size_t length = Data_Length(packet);
    for (std::size_t at = 0; at < length; at += 3) {
        const char tag = static_cast<char>(packet[3 + at]);
        // The number may run past a short last entry into the checksum; the
        // reader keeps it inside the packet.
        const std::int16_t number = records::Pkt2Int(packet, static_cast<std::int16_t>(3 + at + 1));
        const std::string name = Entry_Name(tag, number);
        if (tag == 'L') {
            shared_.P.Link_Protocol = name;
        } else if (tag == 'A') {
            d_count = 0;
            current_a = name;
            shared_.Data_Types[name];
            if (number == 100) shared_.P.WayPoint_Transfer_Protocol = name;
            else if (number == 200 || number == 201) shared_.P.Route_Transfer_Protocol = name;
            else if (number == 300 || number == 301) shared_.P.Track_Transfer_Protocol = name;
            else if (number == 400 || number == 401) shared_.P.Prox_Wpt_Transfer_Protocol = name;
            else if (number == 500 || number == 501) shared_.P.Almanac_Transfer_Protocol = name;
            else if (number == 600) shared_.P.Date_Transfer_Protocol = name;
            else if (number == 650) shared_.P.Flightbook_Transfer_Protocol = name;
            else if (number == 700) shared_.P.Posn_Transfer_Protocol = name;
            else if (number >= 800 && number <= 802) shared_.P.Pvt_Transfer_Protocol = name;
            else if (number >= 900 && number <= 905) shared_.A900_Protocol = name;
            else if (number == 906) shared_.P.Laps_Transfer_Protocol = name;
        } else if (tag == 'D') {
            ++d_count;
            if (!current_a.empty()) shared_.Data_Types[current_a].push_back(name);
            if (number >= 100 && number <= 199) {
                // A waypoint layout names whichever transfer it follows.
                if (current_a == "A100") shared_.P.Waypoint_Data_Format = name;
                if (current_a.starts_with("A2")) shared_.P.Route_Wpt_Data_Format = name;
                if (current_a.starts_with("A4")) shared_.P.Prox_Wpt_Data_Format = name;
            } else if (number >= 200 && number <= 299) {
                // Route header first, then the route waypoint, then the link.
                if (d_count == 1) shared_.P.Route_Header_Format = name;
                if (d_count == 3) shared_.P.Route_Link_Format = name;
            } else if (number >= 300 && number <= 309) {
                shared_.P.Track_Point_Format = name;
            } else if (number >= 310 && number <= 313) {
                shared_.P.Track_Header_Format = name;
            } else if (number >= 400 && number <= 499) {
                shared_.P.Prox_Wpt_Data_Format = name;
            } else if (number >= 500 && number <= 599) {
                shared_.P.Almanac_Data_Format = name;
            } else if (number == 600) {
                shared_.P.Date_Data_Format = name;
            } else if (number == 650) {
                // Not recorded: hosts have always seen a blank flightbook format
                // from a capability array, and there is only one flightbook
                // layout to decode, so nothing depends on it.
            } else if (number == 700) {
                shared_.P.Posn_Data_Format = name;
            } else if (number >= 800 && number <= 802) {
                shared_.P.Pvt_Data_Format = name;
            } else if (number == 906) {
                shared_.P.Laps_Data_Format = name;
            }
        }
        // "P" (the product entry) and unknown tags say nothing we use.
    }
    if (shared_.P.Link_Protocol == "L002") Apply_L002(true);
}

bool Engine::Supports(Transfer_Kind kind, Asker asker) {
    const std::string* protocol = nullptr;
    const char* message = nullptr;
    switch (kind) {
        case Transfer_Kind::Waypoints:
            protocol = &shared_.P.WayPoint_Transfer_Protocol;
            message = "GPS model/version does not support Waypoints";
            break;
        case Transfer_Kind::Prox_Waypoints:
            protocol = &shared_.P.Prox_Wpt_Transfer_Protocol;
            message = "GPS model/version does not support Proximity Waypoints";
            break;
        case Transfer_Kind::Routes:
            protocol = &shared_.P.Route_Transfer_Protocol;
            message = "GPS model/version does not support Routes";
            break;
        case Transfer_Kind::Tracks:
            protocol = &shared_.P.Track_Transfer_Protocol;
            message = "GPS model/version does not support Tracks";
            break;
        case Transfer_Kind::Flightbook:
            protocol = &shared_.P.Flightbook_Transfer_Protocol;
            message = "GPS model/version does not support Flightbook Data";
            break;
        case Transfer_Kind::Laps:
            protocol = &shared_.P.Laps_Transfer_Protocol;
            message = "GPS model/version does not support Lap Data";
            break;
    }
    if (!protocol || !Trimmed_Empty(*protocol)) return true;
    // A batch of uploads to a unit that lacks the transfer reports once.
    if (asker == Asker::Send) {
        if (shared_.Error_Latch) return false;
        shared_.Error_Latch = true;
    }
    host_.Raise_Error(0, host_.xLate(message), Bytes{0});
    return false;
}

}  // namespace trekcom::protocol
