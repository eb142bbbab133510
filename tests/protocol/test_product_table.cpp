// The built-in product table: the embedded rows and the resource format.
#include <gtest/gtest.h>

#include "protocol/product_table.h"

namespace trekcom::protocol {
namespace {

TEST(ProductTable, EmbeddedRowsParseIntoFourCharacterCells) {
    const auto table = Parse_Product_Table(kProduct_Table_Resource);
    ASSERT_EQ(table.size(), 55u);
    const Product_Row& first = table.front();
    EXPECT_EQ(first.Product_ID, 7);
    EXPECT_EQ(first.Column[0], "7   ");
    EXPECT_EQ(first.Column[2], "999 ");
    EXPECT_EQ(first.Column[11], "    ");  // "     " in the row
    EXPECT_EQ(first.Column[17], "D500");
    EXPECT_EQ(table.back().Product_ID, 128);
    for (int column = 18; column < 24; ++column) EXPECT_EQ(table.back().Column[column], "") << column;
    // Neighbouring version ranges: 3.49 and 3.50 are in different rows.
    EXPECT_EQ(Find_Product_Row(table, 77, 349)->Column[14], "A400");
    EXPECT_EQ(Find_Product_Row(table, 77, 350)->Column[14], "    ");
    EXPECT_EQ(Find_Product_Row(table, 7, -1), nullptr);
}

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
}

}  // namespace
}  // namespace trekcom::protocol
