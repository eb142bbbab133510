// The USB block assembler: interrupt blocks and bulk reads of any content
// and size, lying headers included, cut into packets and turned into their
// serial form. Every packet handed on must be whole, and its serial form
// must turn back into the same USB packet.
//
// Input: byte 0 chooses the id awaited (mod 5: none, the session answer,
// records, any expanded packet, product data). Then reads, each one byte of
// pipe and length (bit 7: bulk pipe; bits 0..6: length, which may run past
// the input) and that many bytes.
#include <cstdlib>
#include <deque>

#include "fuzz_common.h"

namespace {

using namespace trekcom;

struct Pipes {
    std::deque<Bytes> interrupt, bulk;
};

class Fuzz_Reader final : public UsbInterruptReader {
public:
    explicit Fuzz_Reader(Pipes& p) : pipes_(p) {}
    Usb_Status Read(Bytes& block, int, bool& at_once) override {
        block.clear();
        at_once = !pipes_.interrupt.empty();
        if (pipes_.interrupt.empty()) return Usb_Status::timed_out;
        block = std::move(pipes_.interrupt.front());
        pipes_.interrupt.pop_front();
        return Usb_Status::ok;
    }

private:
    Pipes& pipes_;
};

class Fuzz_Driver final : public UsbDriver {
public:
    explicit Fuzz_Driver(Pipes& p) : pipes_(p) {}
    Usb_Status Find(int index, std::string& path) override {
        if (index != 0) return Usb_Status::not_found;
        path = "fuzz";
        return Usb_Status::ok;
    }
    Usb_Status Open(const std::string&) override {
        open_ = true;
        return Usb_Status::ok;
    }
    bool Is_Open() const override { return open_; }
    void Close() override { open_ = false; }
    std::unique_ptr<UsbInterruptReader> Open_Interrupt_Reader(Usb_Status& status) override {
        status = Usb_Status::ok;
        return std::make_unique<Fuzz_Reader>(pipes_);
    }
    Usb_Status Io_Control(std::uint32_t, Bytes& out) override {
        out = {64, 0, 0, 0};
        return Usb_Status::ok;
    }
    // A read takes at most max bytes of the next chunk; the rest waits.
    Usb_Status Bulk_Read(Bytes& out, std::size_t max, int) override {
        out.clear();
        if (pipes_.bulk.empty()) return Usb_Status::timed_out;
        Bytes& next = pipes_.bulk.front();
        const std::size_t n = std::min(max, next.size());
        out.assign(next.begin(), next.begin() + static_cast<std::ptrdiff_t>(n));
        next.erase(next.begin(), next.begin() + static_cast<std::ptrdiff_t>(n));
        if (next.empty()) pipes_.bulk.pop_front();
        return Usb_Status::ok;
    }
    Usb_Status Write(const Bytes&) override { return Usb_Status::ok; }
    Usb_Status Reset() override { return Usb_Status::ok; }
    std::string Last_Error() const override { return {}; }
    long Last_Error_Code() const override { return 0; }

private:
    Pipes& pipes_;
    bool open_ = false;
};

std::uint32_t Size_Of(const Bytes& usb) {
    return usb[8] | (usb[9] << 8) | (usb[10] << 16) | (static_cast<std::uint32_t>(usb[11]) << 24);
}

struct Checks : cUSBEvents {
    void USBReceived(Bytes& packet, Bytes& usb) override {
        const std::uint32_t size = usb.size() >= 12 ? Size_Of(usb) : 0;
        const unsigned id = usb.size() >= 12 ? usb[4] | (usb[5] << 8) : 0;
        // The expanded form is chosen by id and size: an application packet
        // whose id is 123 itself comes out in the normal form.
        const bool expanded = id >= 256 || size >= 256;
        const bool whole = usb.size() >= 12 && size >= 1 && size <= cUSB::kMax_Data && usb.size() == 12 + size &&
                           packet.size() == size + (expanded ? 12u : 6u);
        if (!whole) std::abort();
        // Back to USB: the same type, id, size and data; the reserved bytes
        // go out as zeros. (An application packet whose id is 123 itself is
        // read back as the expanded form: the serial form cannot tell them apart.)
        Bytes same = usb;
        for (const std::size_t reserved : {1, 2, 3, 6, 7}) same[reserved] = 0;
        if (usb[0] == cUSB::kApplication_Layer && id != cUSB::kExpanded_Id && cUSB::Usb_Form(packet) != same)
            std::abort();
    }
    void USBError(std::int16_t& seq, std::string&, Bytes&) override { seq = 0; }  // never search again
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    static constexpr std::uint16_t kExpected[] = {0, 1, 27, cUSB::kExpanded_Id, 255};
    const std::uint16_t expected = kExpected[data[0] % 5];
    Pipes pipes;
    for (std::size_t at = 1; at < size;) {
        const bool bulk = (data[at] & 0x80) != 0;
        const std::size_t n = std::min<std::size_t>(data[at] & 0x7F, size - at - 1);
        (bulk ? pipes.bulk : pipes.interrupt).push_back(fuzz::Exact(data + at + 1, n));
        at += 1 + n;
    }
    auto vp = std::make_shared<VirtualPlatform>();
    vp->Usb_Driver_Handler([&pipes] { return std::make_unique<Fuzz_Driver>(pipes); });
    Checks checks;
    cUSB usb(vp);
    usb.Advise(checks);
    if (!usb.Open()) std::abort();
    // Read on until both pipes are empty, as a polling host does.
    for (int reads = 0; reads < 64 && !(pipes.interrupt.empty() && pipes.bulk.empty()); ++reads)
        usb.Read_Packets(expected);
    return 0;
}
