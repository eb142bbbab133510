// The receive path's throughput: a long stream of framed track-point-sized
// packets through Parse_Input and Process_Packet, in one chunk and in small
// chunks, so that time linear in the stream's length shows as a flat MB/s.
#include <benchmark/benchmark.h>

#include "control/control.h"
#include "link/framing.h"
#include "trekcom/trekcom.h"

namespace {

std::string Stream(std::size_t frames) {
    std::string wire;
    for (std::size_t i = 0; i < frames; ++i) {
        trekcom::Bytes data(24);
        for (std::size_t k = 0; k < data.size(); ++k) data[k] = static_cast<std::uint8_t>(i * 7 + k);
        const trekcom::Bytes w = trekcom::link::Stuff_Packet(trekcom::link::Make_Packet(34, data));
        wire.append(w.begin(), w.end());
    }
    return wire;
}

void BM_Receive(benchmark::State& state) {
    const std::size_t frames = static_cast<std::size_t>(state.range(0));
    const std::size_t chunk = static_cast<std::size_t>(state.range(1));
    const std::string wire = Stream(frames);
    auto vp = std::make_shared<trekcom::VirtualPlatform>();
    trekcom::TrekcomCtl ctl(vp);
    auto& link = trekcom::detail::Control::Of(ctl).link;
    for (auto _ : state) {
        for (std::size_t pos = 0; pos < wire.size(); pos += chunk) {
            link.Parse_Input(std::string_view(wire).substr(pos, chunk));
            while (!link.ReceiveBuffer.empty() && link.ReceiveBuffer.size() > 40) link.Parse_Input({});
        }
        while (!link.ReceiveBuffer.empty()) {
            const std::size_t before = link.ReceiveBuffer.size();
            link.Parse_Input({});
            if (link.ReceiveBuffer.size() == before) break;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * wire.size()));
    state.counters["frames_per_s"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsIterationInvariantRate);
}
// Linear time: 10x the frames should take 10x as long (same MB/s).
BENCHMARK(BM_Receive)->Args({10000, 1 << 20})->Args({100000, 1 << 20})->Args({100000, 64})->Args({100000, 1});

}  // namespace

BENCHMARK_MAIN();
