// The numeric readers' uneven limits are relied on by every codec and by
// hosts using cSAK; one table pins all eight, plus the writers and semicircles.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include "records/fields.h"
#include "trekcom/cSAK.h"
#include "trekcom/virtual_platform.h"

using namespace trekcom;
using namespace trekcom::records;

namespace {

struct Reader {
    const char* name;
    std::function<double(const Bytes&, std::int64_t)> read;
    int last_ok_from_end;  // last accepted index = size - 1 - this
    bool long_index;       // Byte2* take a Long index, Pkt2* a 16-bit one
};

std::vector<Reader> All_Readers() {
    auto sak = std::make_shared<cSAK>(std::make_shared<VirtualPlatform>());
    auto i16 = [](std::int64_t i) { return static_cast<std::int16_t>(i); };
    auto i32 = [](std::int64_t i) { return static_cast<std::int32_t>(i); };
    return {
        {"Pkt2Int", [=](const Bytes& b, std::int64_t i) { return double(Pkt2Int(b, i16(i))); }, 2, false},
        {"Pkt2Long", [=](const Bytes& b, std::int64_t i) { return double(Pkt2Long(b, i16(i))); }, 4, false},
        {"Pkt2Single", [=](const Bytes& b, std::int64_t i) { return double(Pkt2Single(b, i16(i))); }, 4, false},
        {"Pkt2Double", [=](const Bytes& b, std::int64_t i) { return Pkt2Double(b, i16(i)); }, 8, false},
        {"Byte2Int", [=](const Bytes& b, std::int64_t i) { return double(sak->Byte2Int(b, i32(i))); }, 2, true},
        {"Byte2Long", [=](const Bytes& b, std::int64_t i) { return double(sak->Byte2Long(b, i32(i))); }, 3, true},
        {"Byte2Single", [=](const Bytes& b, std::int64_t i) { return double(sak->Byte2Single(b, i32(i))); }, 4, true},
        {"Byte2Double", [=](const Bytes& b, std::int64_t i) { return sak->Byte2Double(b, i32(i)); }, 8, true},
    };
}

}  // namespace

TEST(Readers, RefuseExactlyPastTheirLimitAndNeverReadOutside) {
    // Every buffer size from empty up, every index around it: a read is
    // nonzero (0x41 in every byte) exactly when index <= upper bound - limit.
    // Under the sanitizer build this also proves nothing outside is touched.
    for (const auto& r : All_Readers()) {
        SCOPED_TRACE(r.name);
        for (std::size_t size = 0; size <= 12; ++size) {
            const Bytes buf(size, 0x41);
            const std::int64_t last_ok = static_cast<std::int64_t>(size) - 1 - r.last_ok_from_end;
            for (std::int64_t i = -20; i <= 20; ++i)
                EXPECT_EQ(r.read(buf, i) != 0, i >= 0 && i <= last_ok) << "size " << size << " index " << i;
        }
        const Bytes buf(20, 0x41);
        std::vector<std::int64_t> bad{-32768, 32767};
        if (r.long_index) {
            bad.push_back(std::numeric_limits<std::int32_t>::min());
            bad.push_back(std::numeric_limits<std::int32_t>::max());
        }
        for (std::int64_t i : bad) EXPECT_EQ(r.read(buf, i), 0) << i;
    }
}

TEST(Readers, LongEndingOnTheLastElement) {
    const Bytes b{16, 0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(Pkt2Long(b, 1), 0);
    EXPECT_EQ(cSAK(std::make_shared<VirtualPlatform>()).Byte2Long(b, 1), 0x12345678);
}

TEST(Readers, LittleEndianAndSigned) {
    const Bytes b{0xFE, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x80, 0x3F, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(Pkt2Int(b, 0), -2);
    EXPECT_EQ(Pkt2Long(b, 0), -2);
    EXPECT_EQ(Pkt2Single(b, 4), 1.0f);
}

TEST(Writers, RoundTripThroughTheReadersBitForBit) {
    Bytes b(32, 0);
    const float big = 1.0e25f;
    const double nan_payload = std::bit_cast<double>(std::uint64_t{0x7FF8DEADBEEF0001});
    ASSERT_TRUE(Put_Int(b, 3, -12345));
    ASSERT_TRUE(Put_Long(b, 5, std::numeric_limits<std::int32_t>::min()));
    ASSERT_TRUE(Put_Single(b, 9, big));
    ASSERT_TRUE(Put_Double(b, 13, nan_payload));
    ASSERT_TRUE(Put_Byte(b, 21, 0xAB));
    EXPECT_EQ(Pkt2Int(b, 3), -12345);
    EXPECT_EQ(Pkt2Long(b, 5), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(Pkt2Single(b, 9), big);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(Pkt2Double(b, 13)), 0x7FF8DEADBEEF0001u);
    EXPECT_EQ(b[21], 0xAB);
    EXPECT_EQ(b[3], 0xC7);  // low byte first
}

TEST(Writers, AFieldThatDoesNotFitWritesNothing) {
    Bytes b(8, 0x55);
    const Bytes before = b;
    EXPECT_FALSE(Put_Int(b, 7, 1));
    EXPECT_FALSE(Put_Long(b, 5, 1));
    EXPECT_FALSE(Put_Double(b, 1, 1));
    EXPECT_FALSE(Put_Single(b, -1, 1));
    EXPECT_FALSE(Put_Byte(b, 8, 1));
    EXPECT_FALSE(Put_Long(b, std::numeric_limits<std::int64_t>::max(), 1));
    EXPECT_FALSE(Put_Str(b, 4, 5, "ABCDE"));
    EXPECT_FALSE(Put_Str(b, 2, -1, "A"));
    EXPECT_EQ(b, before);
    EXPECT_TRUE(Put_Double(b, 0, 1));
    EXPECT_TRUE(Put_Str(b, 4, 4, "ab"));
    EXPECT_EQ(std::string(b.begin() + 4, b.end()), "ab  ");
}

TEST(Semicircles, KnownValuesAndOverflow) {
    EXPECT_EQ(Deg2Semi(90), 1073741824);
    EXPECT_EQ(Deg2Semi(-90), -1073741824);
    EXPECT_EQ(Deg2Semi(-180), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(Deg2Semi(0), 0);
    EXPECT_DOUBLE_EQ(Semi2Deg(1073741824), 90.0);
    EXPECT_DOUBLE_EQ(Semi2Deg(std::numeric_limits<std::int32_t>::min()), -180.0);
    for (double bad : {180.0, -180.0001, 1e300, std::numeric_limits<double>::quiet_NaN(),
                       std::numeric_limits<double>::infinity()})
        EXPECT_THROW(Deg2Semi(bad), Overflow_Error) << bad;
    // Just below +180 still fits: the largest Long.
    EXPECT_EQ(Deg2Semi(Semi2Deg(std::numeric_limits<std::int32_t>::max())), std::numeric_limits<std::int32_t>::max());
}

TEST(Semicircles, HalfwayValuesRoundToEven) {
    // Degrees whose scaled value is exactly k + 0.5; found rather than
    // hard-coded because the factor 2^31/180 is inexact.
    int ties = 0;
    for (int k = -2000; k < 2000; ++k) {
        const double deg = (k + 0.5) * 180.0 / 2147483648.0;
        if (2147483648.0 / 180.0 * deg != k + 0.5) continue;
        ++ties;
        const std::int32_t even = (k % 2 == 0) ? k : k + 1;
        EXPECT_EQ(Deg2Semi(deg), even) << k;
    }
    EXPECT_GT(ties, 10);
}
