// Text crosses between UTF-8 on the host and Windows-1252 on the wire; the
// fixed-width reader and writer measure in wire bytes.
#include <gtest/gtest.h>

#include "records/codepage.h"
#include "records/fields.h"
#include "trekcom/types.h"

using namespace trekcom;
using namespace trekcom::records;

namespace {
Bytes B(std::string_view s) { return Bytes(s.begin(), s.end()); }
}  // namespace

TEST(Pkt2Str, FixedWidthReads) {
    const Bytes buf = B(std::string_view("\x10\x23\x09" "ABC\0\0\0XY", 11));
    struct Case {
        std::int16_t start, length, keep;
        std::string want;
    } cases[] = {
        {3, 6, 0, "ABC   "},                         // NUL ends the text, spaces follow
        {3, 6, -1, std::string("ABC\0\0\0", 6)},     // any nonzero flag keeps NULs
        {9, 5, 0, "XY   "},                          // the buffer's end ends the text
        {11, 3, 0, "   "},                           // start just past the end
        {-2, 4, 0, "    "},                          // negative start reads nothing
        {3, 0, 0, ""},
        {3, -5, 0, ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Pkt2Str(buf, c.start, c.length, c.keep), c.want) << c.start << "," << c.length;
}

TEST(Pkt2Str, DecodesTheWireCodePage) {
    const Bytes buf{0, 0, 0, 0xE9, 0x80, 0x9F, 'a'};
    const std::string s = Pkt2Str(buf, 3, 5, 0);
    EXPECT_EQ(s, "é€Ÿa ");  // five characters, more UTF-8 bytes
    EXPECT_EQ(s.size(), 2u + 3u + 2u + 1u + 1u);
}

// Every wire byte survives the round trip; what the wire cannot carry
// becomes question marks; upper-casing follows the wire page.
TEST(CodePage, RoundTripQuestionMarksAndUpperCase) {
    std::string all;
    for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
    EXPECT_EQ(To_Wire(From_Wire(all)), all);

    EXPECT_EQ(To_Wire("Zürich €5"), "Z\xFCrich \x80" "5");
    EXPECT_EQ(To_Wire("Łódź"), "?\xF3" "d?");
    EXPECT_EQ(To_Wire("\x80" "a\xC3"), "?a?");      // stray and cut-off bytes
    EXPECT_EQ(To_Wire("\xC0\xAF"), "??");           // overlong '/'
    EXPECT_EQ(To_Wire("\xED\xA0\x80"), "???");      // a surrogate
    EXPECT_EQ(To_Wire("\xC2\x80"), "?");            // U+0080 is not in the page

    EXPECT_EQ(Upper_Wire(To_Wire("abc é ÿ š œ ž ß µ ÷ 1")), To_Wire("ABC É Ÿ Š Œ Ž ß µ ÷ 1"));
    EXPECT_EQ(Upper_Wire_Byte(0xFF), 0x9F);
    EXPECT_EQ(Upper_Text("straße ÿ 日本 \xFF"), "STRAßE Ÿ 日本 \xFF");  // outside the page: kept
}

TEST(Str2Pkt, PadsAndCutsInWireBytes) {
    Bytes f(6, 0);
    Str2Pkt("ABCDEFGH", f);
    EXPECT_EQ(f, B("ABCDEF"));
    Str2Pkt("éé", f);  // two characters, four UTF-8 bytes, two wire bytes
    EXPECT_EQ(f, B("\xE9\xE9    "));
    Str2Pkt("", Buffer{});  // an empty field: nothing to fill, nothing touched
    Str2Pkt("", f);
    EXPECT_EQ(f, B("      "));
    Str2Pkt("ééééééé", f);
    EXPECT_EQ(f, B("\xE9\xE9\xE9\xE9\xE9\xE9"));
}
