// Record times: a count of seconds since the Garmin epoch, 1989-12-31
// 00:00:00, and the same instant as the text "yyyy/mm/dd-hh:mm:ss".
//
// Pure calendar arithmetic (proleptic Gregorian, every day 86400 seconds):
// no time zone, no daylight saving, no locale, no C library time functions.
// A receiver's clock and a host's text mean the same wall-clock time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace trekcom::records {

// The text of a wire time. The four wire bytes are read as a signed Long, so
// the "no value" pattern FFFFFFFF is -1 and gives "1989/12/30-23:59:59";
// every Long gives a valid text (1921 .. 2058).
std::string Seconds2Time(std::int32_t seconds);
// The same into `text`, whose buffer is reused: a stream of points decoded
// into one record allocates nothing for their times.
void Seconds2Time(std::int32_t seconds, std::string& text);

// Seconds since the epoch of a time text. The first 10 characters are the
// date "yyyy/mm/dd" ('-' also accepted as the date separator, one-digit month
// and day too); the characters from the 12th on are the clock time
// "hh:mm:ss" or "hh:mm" (one-digit parts accepted; missing = midnight); the
// 11th character separates them and is not looked at. Spaces around either
// part are ignored.
// Malformed text, an impossible date or time (month 13, 31 April, hour 24),
// and an instant whose count does not fit a signed Long all give 0, the
// count of the epoch itself, so a bad text sends the epoch rather than
// failing the whole record.
std::int32_t Time2Seconds(std::string_view text);

// The count an encoder writes: the seconds field when it is nonzero, else
// the count of the text field.
std::int32_t Wire_Time(std::int32_t seconds, std::string_view text);

}  // namespace trekcom::records
