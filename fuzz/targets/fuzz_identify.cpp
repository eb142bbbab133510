// The identification handlers: product data, extended product data and the
// capability array, as packets of any size and content. Whatever they leave
// in force must still build the command packets and take a download.
//
// Input: byte 0 chooses the handler (mod 3) and the identity in force before
// it (byte 0 / 3, mod 3); the rest is the packet.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom;
    if (size < 1) return 0;
    fuzz::Fuzz_Control f(fuzz::Identity_Of(static_cast<std::uint8_t>(data[0] / 3)));
    protocol::Engine& engine = f.C().engine;
    const Bytes packet = fuzz::Exact(data + 1, size - 1);
    switch (data[0] % 3) {
    case 0: engine.Process_Product_Data(packet); break;
    case 1: engine.Process_Ext_Product_Data(packet); break;
    default: engine.Parse_Protocol_Array(packet); break;
    }
    // The ids and formats now in force meet a record of each kind.
    const Bytes record(40, 0x41);
    for (std::uint8_t id : {f.C().ids.PID_Wpt_Data, f.C().ids.PID_Trk_Data, f.C().ids.PID_Trk_Hdr,
                            f.C().ids.PID_Rte_Hdr, f.C().ids.PID_Almanac_Data, f.C().ids.PID_Pvt_Data})
        engine.Dispatch_Packet(link::Make_Packet(id, record));
    return 0;
}
