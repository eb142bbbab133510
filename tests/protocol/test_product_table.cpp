// The built-in product table: the embedded rows and the resource format.
#include <gtest/gtest.h>

#include "protocol/product_table.h"

namespace trekcom::protocol {
namespace {

// (The embedded rows are read through identification in Identify: blank and
// missing cells, and the neighbouring rows of product 29 at 3.99 and 4.00.)
TEST(ProductTable, ResourceTextEdgeCases) {
    // CRLF endings, notes, long cells cut, a short row padded, and a gap in
    // the identifiers ending the table as "*END" does.
    const auto table = Parse_Product_Table(
        "# note\r\n1001\t12, 1.5, 2.25, L0012345, A010\r\n1002\t13,0,9\n1004\t14, 0, 999\n");
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table[0].Product_ID, 12);
    EXPECT_EQ(table[0].Min_Version, 1.5f);
    EXPECT_EQ(table[0].Max_Version, 2.25f);
    EXPECT_EQ(table[0].Column[3], "L001");
    EXPECT_EQ(table[0].Column[4], "A010");
    EXPECT_EQ(table[0].Column[5], "    ");
    EXPECT_EQ(table[1].Max_Version, 9.0f);
    EXPECT_TRUE(Parse_Product_Table("1001\t*END\n1002\t7, 0, 999\n").empty());
    EXPECT_TRUE(Parse_Product_Table("1001 no tab\n").empty());
    EXPECT_EQ(Find_Product_Row(Parse_Product_Table(kProduct_Table_Resource), 7, -1), nullptr);
}

}  // namespace
}  // namespace trekcom::protocol
