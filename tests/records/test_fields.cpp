// The numeric readers' uneven limits are relied on by the control and by
// hosts using cSAK; one table pins all eight, the codecs' five exact ones
// beside them, plus the writers and semicircles.
#include <gtest/gtest.h>

#include <bit>
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
        // The codecs' readers on data alone: a field is read exactly when it fits.
        {"Data_Byte", [](const Bytes& b, std::int64_t i) { return double(Data_Byte(b, i)); }, 0, true},
        {"Data_Int", [](const Bytes& b, std::int64_t i) { return double(Data_Int(b, i)); }, 1, true},
        {"Data_Long", [](const Bytes& b, std::int64_t i) { return double(Data_Long(b, i)); }, 3, true},
        {"Data_Single", [](const Bytes& b, std::int64_t i) { return double(Data_Single(b, i)); }, 3, true},
        {"Data_Double", [](const Bytes& b, std::int64_t i) { return Data_Double(b, i); }, 7, true},
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
        const std::int64_t extreme = r.long_index ? std::numeric_limits<std::int32_t>::max() : 32767;
        for (std::int64_t i : {extreme, -extreme - 1}) EXPECT_EQ(r.read(Bytes(20, 0x41), i), 0) << i;
    }
}

TEST(Writers, LittleEndianBitForBitAndNothingOutside) {
    Bytes b(24, 0);
    const double nan_payload = std::bit_cast<double>(std::uint64_t{0x7FF8DEADBEEF0001});
    ASSERT_TRUE(Put_Int(b, 3, -12345) && Put_Long(b, 5, std::numeric_limits<std::int32_t>::min()) &&
                Put_Single(b, 9, 1.0e25f) && Put_Double(b, 13, nan_payload) && Put_Byte(b, 22, 0xAB));
    EXPECT_EQ(b[3], 0xC7);  // low byte first
    EXPECT_EQ(Pkt2Int(b, 3), -12345);
    EXPECT_EQ(Pkt2Long(b, 5), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(Pkt2Single(b, 9), 1.0e25f);  // "no value" floats pass through
    EXPECT_EQ(std::bit_cast<std::uint64_t>(Pkt2Double(b, 13)), 0x7FF8DEADBEEF0001u);

    const Bytes before = b;
    EXPECT_FALSE(Put_Int(b, 23, 1) || Put_Long(b, 21, 1) || Put_Double(b, 17, 1) || Put_Single(b, -1, 1) ||
                 Put_Byte(b, 24, 1) || Put_Long(b, std::numeric_limits<std::int64_t>::max(), 1) ||
                 Put_Str(b, 20, 5, "ABCDE") || Put_Str(b, 2, -1, "A"));
    EXPECT_EQ(b, before);
    EXPECT_TRUE(Put_Str(b, 20, 4, "ab"));
    EXPECT_EQ(std::string(b.begin() + 20, b.end()), "ab  ");
}

TEST(Semicircles, KnownValuesAndOverflow) {
    EXPECT_EQ(Deg2Semi(90), 1073741824);
    EXPECT_EQ(Deg2Semi(-180), std::numeric_limits<std::int32_t>::min());
    EXPECT_DOUBLE_EQ(Semi2Deg(1073741824), 90.0);
    EXPECT_DOUBLE_EQ(Semi2Deg(std::numeric_limits<std::int32_t>::min()), -180.0);
    for (double bad : {180.0, -180.0001, 1e300, std::numeric_limits<double>::quiet_NaN(),
                       std::numeric_limits<double>::infinity()})
        EXPECT_THROW(Deg2Semi(bad), Overflow_Error) << bad;
    const std::int32_t largest = std::numeric_limits<std::int32_t>::max();  // just below +180 still fits
    EXPECT_EQ(Deg2Semi(Semi2Deg(largest)), largest);
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
