// The replay of a saved packet trace: the lines the control raised through
// HexDebug, kept by a host as a log, are read back and every packet the
// receiver sent is handed to the receive path again.
//
// A received line is "PC «- GPS (   12.5 ms) 10 06 02 0A 00 EE 10 03 "
// (« in UTF-8, or as the single byte 171 of a log saved in Windows-1252).
// The time piece is removed, the line trimmed, and only lines that then begin
// with the received mark are kept. Their hex bytes hold either a serial
// packet (DLE, id, size, data, checksum, DLE, ETX) or a USB packet (type,
// three reserved bytes, 16-bit id, two reserved bytes, 32-bit size, data);
// USB application packets (type 20) become serial packets, expanded (id 123)
// when their id or size does not fit a byte. Everything else is skipped: other
// directions, notes, bad hex, sizes that disagree, serial checksums that fail,
// USB protocol-layer packets (type 0), lines longer than any trace line.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

#include "trekcom/types.h"

namespace trekcom::detail::replay {

// The file dialog's filter for choosing a log.
inline constexpr const char* kLog_Filter = "Log Files (*.log,*.txt)|*.log;*.txt|All Files|*.*";

// The received packet recorded on one trace line, in serial form.
std::optional<Bytes> Received_Packet(std::string_view line);

// Calls on_packet with each received packet of the log, in order. False when
// the file cannot be opened.
bool Read_Log(const std::filesystem::path& file, const std::function<void(const Bytes&)>& on_packet);

}  // namespace trekcom::detail::replay
