// The USB transport, written once over the platform's USB driver: device
// search and opening, the session start, packet conversion between the USB
// form and the control's serial form, block assembly of incoming packets
// and the device reset.
//
// Incoming blocks are untrusted: a block is only read within its own size,
// a header that claims more than a read brought is dropped, and sizes
// outside 1..1046 never reach the control.
#include "trekcom/cUSB.h"

#include <algorithm>

#include "link/framing.h"
#include "link/little_endian.h"
#include "platform/translate.h"

namespace trekcom {

// The public constant and the framing's are one fact.
static_assert(cUSB::kExpanded_Id == link::kExpanded_Id);

namespace {

constexpr std::uint16_t kRecords = 27;        // a record transfer's first packet
constexpr std::uint16_t kXfer_Complete = 12;  // and its last
constexpr double kWrite_Pause_ms = 50;
constexpr double kBulk_Pause_ms = 50;
// A record transfer that announced itself but then stays silent this long
// is given up, so a receiver that stalls cannot hold the host forever (the
// control's watchdog then reports the incomplete transfer).
constexpr double kBulk_Stall_ms = 10000;
// The session's answers: a receiver that is just waking up takes a moment.
constexpr double kSession_Wait_ms = 1000;
// A bulk read's buffer: room for the largest packet, header included.
constexpr std::size_t kBulk_Buffer = 4096;
// One read collects at most this many blocks: a receiver that never stops
// talking still ends the read.
constexpr std::size_t kMax_Blocks = 200000;
// Zero-length packets read past in one read of the interrupt pipe.
constexpr int kMax_Zero_Lengths = 64;

std::uint32_t Le32(const Bytes& bytes, std::size_t at = 0) { return link::Get_LE<std::uint32_t>(bytes, at); }
std::uint16_t Le16(const Bytes& bytes, std::size_t at) { return link::Get_LE<std::uint16_t>(bytes, at); }

// The header fields of a block that starts a packet.
struct Header {
    std::uint8_t type;
    std::uint16_t id;
    std::uint32_t size;
};
bool Read_Header(const Bytes& block, Header& h) {
    if (block.size() < cUSB::kHeader_Size) return false;
    h = {block[0], Le16(block, 4), Le32(block, 8)};
    return true;
}

// Clears the busy flag however a read ends.
struct Busy_Guard {
    bool& flag;
    explicit Busy_Guard(bool& f) : flag(f) { flag = true; }
    ~Busy_Guard() { flag = false; }
};

}  // namespace

// ------------------------------------------------------------------ cIOCTL

cIOCTL::~cIOCTL() { CloseHandles(); }

bool cIOCTL::SetHandles(UsbDriver& driver) {
    CloseHandles();
    reader_ = driver.Open_Interrupt_Reader(last_status_);
    if (last_status_ != Usb_Status::ok) reader_.reset();
    return reader_ != nullptr;
}

std::int32_t cIOCTL::GetIO(Bytes& buffer, std::int32_t& BytesReturned) {
    BytesReturned = 0;
    buffer.clear();
    if (!reader_) {
        last_status_ = Usb_Status::not_open;
        return 0;
    }
    bool at_once = false;
    last_status_ = reader_->Read(buffer, UsbDriver::kInterrupt_Wait_ms, at_once);
    // A driver that returns more than a block is not believed past it.
    if (buffer.size() > UsbDriver::kInterrupt_Block) buffer.resize(UsbDriver::kInterrupt_Block);
    BytesReturned = static_cast<std::int32_t>(buffer.size());
    return at_once && last_status_ == Usb_Status::ok ? 1 : 0;
}

void cIOCTL::CloseHandles() { reader_.reset(); }

// -------------------------------------------------------------------- cUSB

cUSB::cUSB(std::shared_ptr<Platform> platform) : platform_(std::move(platform)) {}

std::string cUSB::xLate(const std::string& phrase) const {
    return detail::Translate(*platform_, language_, phrase);
}

cUSB::~cUSB() { Close(); }

UsbDriver& cUSB::Driver() {
    if (!driver_) driver_ = platform_->Create_Usb_Driver();
    return *driver_;
}

bool cUSB::Is_Open() const { return driver_ && driver_->Is_Open() && ioctl_.Has_Handles(); }

std::int32_t cUSB::USBHandle() const { return Is_Open() ? 1 : 0; }

void cUSB::USBHandle(std::int32_t) {
    constexpr int kRead_Only = 383;
    throw RuntimeError(kRead_Only, xLate("Property is Read Only"));
}

void cUSB::Raise_Error(std::int16_t seq, const std::string& message, const Bytes& packet) {
    if (!sink_) return;
    std::string text = message;
    Bytes bytes = packet;
    sink_->USBError(seq, text, bytes);
}

void cUSB::Raise_Debug(const std::string& text) {
    if (!sink_) return;
    std::string line = text;
    sink_->USBDebug(line);
}

void cUSB::Raise_Received(Bytes& packet, Bytes& usbpacket) {
    ++stats_.packets_received;
    if (sink_) sink_->USBReceived(packet, usbpacket);
}

void cUSB::Device_Failed(const std::string& phrase) {
    Raise_Debug("!USB: " + Driver().Last_Error());
    Close();
    Raise_Error(0, xLate(phrase));
}

void cUSB::Pause(double ms) {
    // The host's loop runs meanwhile, as everywhere the control waits.
    platform_->Run_Until([] { return false; }, ms);
}

bool cUSB::Open() {
    Close();
    UsbDriver& driver = Driver();
    std::string path;
    for (;;) {
        ++stats_.searches;
        const Usb_Status found = driver.Find(0, path);
        if (found == Usb_Status::ok) break;
        const std::string code = std::to_string(driver.Last_Error_Code());
        switch (found) {
            case Usb_Status::not_found: {
                std::int16_t seq = 4;
                std::string text = xLate("Garmin USB GPS device not found") + "\r\n" + xLate("or device not turned on.");
                Bytes none;
                // The host keeps the search going by leaving the code at 4;
                // with nobody listening there is nobody to plug the receiver in.
                if (!sink_) return false;
                sink_->USBError(seq, text, none);
                if (seq != 4) return false;
                platform_->DoEvents();
                continue;
            }
            case Usb_Status::enumeration_failed:
                Raise_Debug("!USB: " + driver.Last_Error());
                Raise_Error(0, xLate("SetupDI Error ") + code);
                return false;
            case Usb_Status::no_device_list:
                Raise_Error(0, xLate("Garmin PNP Entry not found") + " " + code);
                return false;
            case Usb_Status::not_supported:
                Raise_Error(0, xLate("USB is not supported on this system"));
                return false;
            default:
                Raise_Debug("!USB: " + driver.Last_Error());
                Raise_Error(0, xLate("Unable to retrieve device path"));
                return false;
        }
    }
    device_path_ = path;
    const Usb_Status opened = driver.Open(path);
    if (opened != Usb_Status::ok) {
        Raise_Debug("!USB: " + driver.Last_Error());
        std::string text = xLate("Unable to Open Device");
        if (opened == Usb_Status::no_permission)
            text = xLate("No permission to use the Garmin USB device.") + "\r\n" +
                   xLate("Give your user access to it (on Linux: the udev rule of docs/usb.md) and plug it in again.");
        else if (opened == Usb_Status::busy)
            text += "\r\n" + xLate("Another program is using the receiver.");
        Raise_Error(0, text);
        return false;
    }
    if (!ioctl_.SetHandles(driver)) {
        Raise_Debug("!USB: " + driver.Last_Error());
        driver.Close();
        Raise_Error(0, xLate("Unable to duplicate handles"));
        return false;
    }
    return true;
}

void cUSB::Close() {
    ioctl_.CloseHandles();
    if (driver_) driver_->Close();
}

bool cUSB::Reset_Device() {
    Close();
    const Usb_Status reset = Driver().Reset();
    if (reset != Usb_Status::ok) Raise_Debug("!USB: " + Driver().Last_Error());
    // Reopened even after a failed restart: a receiver that came back by
    // itself is still usable, though the reset is reported as failed.
    const bool opened = Open();
    if (reset == Usb_Status::ok && opened) {
        Raise_Debug(":USB Device Reset");
        return true;
    }
    Raise_Error(0, xLate("USB Device failed to reset after error"));
    return false;
}

bool cUSB::Start_Session() {
    if (!Is_Open()) return false;
    UsbDriver& driver = Driver();
    Bytes answer;
    if (driver.Io_Control(UsbDriver::kIoctl_Api_Version, answer) == Usb_Status::ok && answer.size() >= 4)
        driver_version_ = Le32(answer);
    if (driver.Io_Control(UsbDriver::kIoctl_Packet_Size, answer) == Usb_Status::ok && answer.size() >= 4)
        max_packet_size_ = Le32(answer);

    // Two protocol-layer exchanges, each a bare request and its answer.
    auto exchange = [&](std::uint16_t request, std::uint16_t expected) {
        if (!Write_Packet(Bytes{0, static_cast<std::uint8_t>(request)}, 2)) return false;
        const double until = platform_->Now_ms() + kSession_Wait_ms;
        do {
            if (Read_Packets(expected)) return true;
            if (!Is_Open()) return false;
            platform_->DoEvents();
        } while (platform_->Now_ms() < until && !platform_->Interrupted());
        return false;
    };
    // Expected id 1 is how a read of Session Started (6) is asked for: a plain
    // 6 means "the link's acknowledgement", which USB does not have.
    if (!exchange(kStart_Session, 1)) return false;
    return exchange(kStart_Session_2, kSession_Started_2);
}

Bytes cUSB::Usb_Form(const Bytes& packet) {
    if (packet.size() < 2) return {};
    if (packet[0] != link::DLE) {
        // A bare protocol-layer request: its id alone.
        Bytes usb(kHeader_Size, 0);
        usb[4] = packet[1];
        return usb;
    }
    // A host's frame is taken as loosely as it comes: with or without its
    // trailer, and never for more data than it holds.
    std::uint16_t id = packet[1];
    std::size_t claimed = packet.size() > 2 ? packet[2] : 0;
    std::size_t first = 3;
    if (packet[1] == link::kExpanded_Id && packet.size() >= 3 + link::kExpanded_Head) {
        claimed = Le32(packet, 3);
        id = Le16(packet, 7);
        first = 3 + link::kExpanded_Head;
    }
    const std::size_t available = packet.size() > first ? packet.size() - first : 0;
    const std::size_t size = std::min(claimed, available);
    return Usb_Form(id, packet.data() + std::min(first, packet.size()), static_cast<std::uint32_t>(size));
}

Bytes cUSB::Usb_Form(std::uint16_t id, const std::uint8_t* data, std::uint32_t size) {
    Bytes usb(kHeader_Size + size, 0);
    usb[0] = kApplication_Layer;
    link::Put_LE<std::uint16_t>(usb, 4, id);
    link::Put_LE<std::uint32_t>(usb, 8, size);
    if (size) std::copy_n(data, size, usb.begin() + kHeader_Size);
    return usb;
}

Bytes cUSB::Serial_Form(std::uint16_t id, const std::uint8_t* data, std::uint32_t size) {
    return link::Frame_Of(link::Packet{id, Bytes(data, data + size), std::nullopt}, link::Checksum::zero);
}

bool cUSB::Write_Packet(const Bytes& packet, int wait_mode) { return Write_Usb_Packet(Usb_Form(packet), wait_mode); }

bool cUSB::Write_Usb_Packet(Bytes usb, int wait_mode) {
    // Nothing is traced as sent that could not be written.
    if (usb.empty() || !Is_Open()) return false;
    if (sink_) sink_->USBSent(usb);
    if (Driver().Write(usb) != Usb_Status::ok) {
        Device_Failed("USB device write failed");
        return false;
    }
    ++stats_.packets_sent;
    if (wait_mode != 2) {
        // The answer may come during the pause: it is the writer's to read.
        Exchange_Scope exchange(*this);
        Pause(kWrite_Pause_ms);
    }
    return true;
}

bool cUSB::Read_Packets(std::uint16_t expected, std::uint16_t second) {
    if (busy_ || (expected == 0 && exchanges_ > 0)) return false;
    // The link's acknowledgement and the bare protocol answers have no USB
    // counterpart: waiting for them succeeds at once.
    if (expected == kSession_Started || expected == kData_Available) return true;
    if (expected == 1) expected = kSession_Started;
    second_came_ = false;
    if (!Is_Open()) return false;
    Busy_Guard guard(busy_);

    std::vector<Bytes> blocks;
    Bytes block;
    std::int32_t count = 0;
    auto failed = [&] {
        const Usb_Status s = ioctl_.Last_Status();
        return s != Usb_Status::ok && s != Usb_Status::timed_out;
    };
    // The next block with data; false when a read finds none. A zero-length
    // packet ends one USB transfer, not the data: reading goes on past it
    // (a few times per call, for a device that sends nothing else).
    int zero_lengths = 0;
    auto next_block = [&] {
        for (;;) {
            ioctl_.GetIO(block, count);
            if (count > 0) return true;
            if (ioctl_.Last_Status() != Usb_Status::ok || ++zero_lengths > kMax_Zero_Lengths) return false;
        }
    };
    if (!next_block()) {
        if (failed()) Device_Failed("USB device read failed");
        return false;
    }
    Header h{};
    Read_End end = Read_End::complete;
    if (Read_Header(block, h) && h.type == kProtocol_Layer && h.id == kData_Available) {
        end = Read_Bulk(blocks, expected);
        if (end == Read_End::closed) return false;
    } else {
        blocks.reserve(5000);
        do {
            blocks.push_back(std::move(block));
        } while (blocks.size() < kMax_Blocks && next_block());
        if (failed()) end = Read_End::failed;
    }
    bool came = false;
    // The whole packets read before a stall or a failure are delivered
    // first: the records that did arrive are the host's.
    Deliver(blocks, expected, second, came);
    if (end == Read_End::failed) {
        Device_Failed("USB device read failed");
        return came;  // the answer awaited may have come before the failure
    }
    // Stalled: the host hears of it once the records that came are in.
    if (end == Read_End::stalled) Raise_Error(0, xLate("No response from device"));
    return came || expected == 0;
}

cUSB::Read_End cUSB::Read_Bulk(std::vector<Bytes>& chunks, std::uint16_t expected) {
    UsbDriver& driver = Driver();
    chunks.reserve(5000);
    // Where the packets start, to know the id of the last one read.
    std::size_t still_needed = 0;
    std::uint16_t last_id = 0;
    double quiet_since = platform_->Now_ms();
    Bytes buffer;
    while (chunks.size() < kMax_Blocks) {
        const Usb_Status s = driver.Bulk_Read(buffer, kBulk_Buffer, UsbDriver::kBulk_Wait_ms);
        if (s != Usb_Status::ok && s != Usb_Status::timed_out) return Read_End::failed;
        if (!buffer.empty()) {
            Header h{};
            if (still_needed == 0 && Read_Header(buffer, h)) {
                last_id = h.id;
                // Sizes past the largest packet are junk and end where the read ends.
                const std::size_t whole = kHeader_Size + std::min<std::size_t>(h.size, kMax_Data);
                still_needed = whole > buffer.size() ? whole - buffer.size() : 0;
            } else {
                still_needed = still_needed > buffer.size() ? still_needed - buffer.size() : 0;
            }
            chunks.push_back(std::move(buffer));
            buffer = Bytes();
            quiet_since = platform_->Now_ms();
            continue;
        }
        // A record transfer runs until its completion packet; a pause in
        // between is the receiver catching up.
        if (expected == kRecords && last_id != kXfer_Complete) {
            // The host may give up on the wait sooner (Platform::Interrupt).
            if (platform_->Now_ms() - quiet_since < kBulk_Stall_ms && !platform_->Interrupted()) {
                Pause(kBulk_Pause_ms);
                if (!Is_Open()) return Read_End::closed;
                continue;
            }
            return Read_End::stalled;
        }
        break;
    }
    return Read_End::complete;
}

void cUSB::Deliver(const std::vector<Bytes>& blocks, std::uint16_t expected, std::uint16_t second, bool& came) {
    // A device that failed during the read still has its packets delivered;
    // only a handler that closes the transport stops the delivery.
    const bool was_open = Is_Open();
    std::size_t i = 0;
    while (i < blocks.size()) {
        Header h{};
        if (!Read_Header(blocks[i], h) || (h.type != kProtocol_Layer && h.type != kApplication_Layer) || h.id < 1 ||
            h.size < 1 || h.size > kMax_Data) {
            // A protocol-layer answer carries no data (the session's second
            // answer): it is not delivered, but it is the answer awaited.
            if (h.type == kProtocol_Layer && h.size == 0 && h.id >= 1 && blocks[i].size() >= kHeader_Size) {
                if (h.id == expected) came = true;
                if (h.id == second) second_came_ = true;
            }
            ++stats_.blocks_dropped;
            ++i;
            continue;
        }
        const std::size_t whole = kHeader_Size + h.size;
        Bytes usb;
        usb.reserve(whole);
        std::size_t j = i;
        while (j < blocks.size() && usb.size() < whole) {
            usb.insert(usb.end(), blocks[j].begin(), blocks[j].end());
            ++j;
        }
        if (usb.size() < whole) {  // cut off by the end of the read
            ++stats_.packets_cut;
            return;
        }
        usb.resize(whole);
        if (h.type == kProtocol_Layer && h.id == kSession_Started && h.size >= 4)
            session_unit_id_ = Le32(usb, kHeader_Size);
        Bytes packet = Serial_Form(h.id, usb.data() + kHeader_Size, h.size);
        if (h.id == expected || (expected == link::kExpanded_Id && packet[1] == link::kExpanded_Id)) came = true;
        if (h.id == second) second_came_ = true;
        Raise_Received(packet, usb);
        platform_->DoEvents();
        i = j;
        if (was_open && !Is_Open()) return;  // a handler closed the transport
    }
}

}  // namespace trekcom
