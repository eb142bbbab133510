// The receive-and-decode path in memory: a long stream of framed D301 track
// points through Parse_Input and Process_Packet, Dispatch_Packet and the
// track decoder into the Tracks collection, with the ACK of every packet
// made, as in a download; and the same stream with the decoding left out.
// Chunk sizes from a whole stream down to one byte; 10x the frames should
// take 10x as long (a flat MB/s).
#include <benchmark/benchmark.h>

#include <cmath>

#include "control/control.h"
#include "link/framing.h"
#include "link/serial_transport.h"
#include "records/codecs/codecs.h"
#include "trekcom/trekcom.h"

namespace {

using trekcom::Bytes;

// What a unit with D310 headers and D301 points says of itself.
void Identify(trekcom::detail::Control& c) {
    c.engine.Dispatch_Packet(trekcom::link::Make_Packet(255, {0xE8, 3, 0x7C, 1, 'S', 'I', 'M', 0}));
    Bytes array;
    for (const auto& [tag, n] : {std::pair{'L', 1}, {'A', 10}, {'A', 301}, {'D', 310}, {'D', 301}})
        array.insert(array.end(), {static_cast<std::uint8_t>(tag), static_cast<std::uint8_t>(n),
                                   static_cast<std::uint8_t>(n >> 8)});
    c.engine.Dispatch_Packet(trekcom::link::Make_Packet(253, array));
}

std::string Stream(std::size_t points, std::uint8_t point_id) {
    std::string wire;
    auto add = [&wire](const Bytes& packet) {
        const Bytes w = trekcom::link::Stuff_Packet(packet);
        wire.append(w.begin(), w.end());
    };
    trekcom::cTrack header;
    header.Ident = "ACTIVE LOG";
    add(trekcom::link::Frame_Of(*trekcom::records::Encode_Track_Header(header, "D310", 99)));
    for (std::size_t i = 0; i < points; ++i) {
        trekcom::cTrack p;
        p.Lat = 46.5 + 1e-5 * static_cast<double>(i % 1000);
        p.Lon = 6.6 + 1e-5 * static_cast<double>(i % 777);
        p.Seconds = 1'000'000'000 + static_cast<std::int32_t>(i);
        p.Alt = static_cast<float>(400 + i % 50);
        p.New_Segment = i % 500 == 0;
        auto packet = *trekcom::records::Encode_Track_Point(p, "D301", point_id);
        // The unit sends the point's true size; the encoder announces the host's 13.
        packet.announced.reset();
        add(trekcom::link::Frame_Of(packet));
    }
    return wire;
}

// Feeds the stream in chunks, then lets the parser drain what is left.
void Feed(trekcom::detail::Control& c, std::string_view wire, std::size_t chunk) {
    for (std::size_t pos = 0; pos < wire.size(); pos += chunk) c.link.Serial().Parse_Input(wire.substr(pos, chunk));
    for (std::size_t before = c.link.Serial().Buffer().size(); before > 0; before = c.link.Serial().Buffer().size()) {
        c.link.Serial().Parse_Input({});
        if (c.link.Serial().Buffer().size() >= before) break;
    }
}

// decode 1: identified as a D310/D301 unit, every point lands in Tracks.
// decode 0: the points carry an id nothing handles: the frames are found,
// unstuffed, checked and acknowledged, and dropped.
void BM_Receive(benchmark::State& state) {
    const std::size_t points = static_cast<std::size_t>(state.range(0));
    const std::size_t chunk = static_cast<std::size_t>(state.range(1));
    const bool decode = state.range(2) != 0;
    const std::string wire = Stream(points, decode ? 34 : 200);
    auto vp = std::make_shared<trekcom::VirtualPlatform>();
    trekcom::TrekcomCtl ctl(vp);
    auto& c = trekcom::detail::Control::Of(ctl);
    Identify(c);
    for (auto _ : state) {
        ctl.Tracks()->Clear();
        Feed(c, wire, chunk);
    }
    if (static_cast<std::size_t>(ctl.Tracks()->Count()) != (decode ? points + 1 : 1)) {
        state.SkipWithError("the points were not decoded as expected");
        return;
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * wire.size()));
    state.counters["records_per_s"] =
        benchmark::Counter(static_cast<double>(points + 1), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_Receive)->ArgNames({"points", "chunk", "decode"})
    ->Args({10000, 1 << 20, 1})->Args({100000, 1 << 20, 1})->Args({100000, 64, 1})->Args({100000, 1, 1})
    ->Args({100000, 1 << 20, 0})
    ->Unit(benchmark::kMillisecond);

// What bounds decode 1: the same points handed to the dispatcher as whole
// packets, without the line (store 1: into Tracks, as in a download), and
// to the codec alone (store 0: each point decoded and dropped).
void BM_Decode(benchmark::State& state) {
    const std::size_t points = static_cast<std::size_t>(state.range(0));
    const bool store = state.range(1) != 0;
    std::vector<Bytes> frames;
    const std::string wire = Stream(points, 34);
    for (std::size_t at = 0; at < wire.size();) {
        trekcom::link::Frame_Reader reader;
        reader.Next(std::string_view(wire).substr(at));
        at += reader.Length();
        frames.push_back(std::move(reader.Packet()));
    }
    auto vp = std::make_shared<trekcom::VirtualPlatform>();
    trekcom::TrekcomCtl ctl(vp);
    auto& c = trekcom::detail::Control::Of(ctl);
    Identify(c);
    const trekcom::cTrack current;
    for (auto _ : state) {
        ctl.Tracks()->Clear();
        for (const Bytes& frame : frames) {
            if (store) {
                c.engine.Dispatch_Packet(frame);
            } else {
                benchmark::DoNotOptimize(trekcom::records::Decode_Track_Point(trekcom::link::Data_Of(frame), "D301", current));
            }
        }
    }
    state.counters["records_per_s"] =
        benchmark::Counter(static_cast<double>(frames.size()), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_Decode)->ArgNames({"points", "store"})->Args({100000, 1})->Args({100000, 0})->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
