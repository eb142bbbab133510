// The control's private state, in one place: the platform and its children,
// the event sink, the ids in force, the flags shared by the layers, and the
// components. TrekcomCtl's public methods forward here.
#pragma once

#include <memory>
#include <string>

#include "link/link.h"
#include "link/packet_ids.h"
#include "trekcom/TrekcomCtl.h"

namespace trekcom::detail {

class Control final : public link::Link_Host {
public:
    explicit Control(std::shared_ptr<Platform> platform);
    ~Control() override;

    // The internals of a control, for the library's own layers and tests.
    static Control& Of(TrekcomCtl& ctl) { return *ctl.impl_; }

    // ---- Link_Host
    void Raise_Receive(const Bytes& packet) override;
    void Raise_Error(std::int16_t code, const std::string& message, const Bytes& packet) override;
    void Raise_HexDebug(const std::string& text) override;
    void Dispatch_Packet(const Bytes& packet) override;
    void Line_Received(const std::string& line, bool text_line) override;
    std::string xLate(const std::string& phrase) override;
    void Clear_Error_Latch() override { error_latch = false; }

    // NMEA: two hex digits of the XOR from the second character to the first "*".
    static std::string NMEA_Checksum(const std::string& msg);

    std::shared_ptr<Platform> platform;
    TrekcomCtlEvents* sink = nullptr;
    link::Packet_Ids ids;
    // Set by a refused upload once it has reported, so a batch reports once.
    bool error_latch = false;
    bool IgnoreCheckSum = false;
    std::string Language = "English";

    std::unique_ptr<SerialPort> comGarmin;
    std::unique_ptr<Timer> tmrTimeout;
    std::unique_ptr<Timer> tmrPVTData;
    std::unique_ptr<Timer> tmrAsync;
    link::Link link;
};

}  // namespace trekcom::detail
