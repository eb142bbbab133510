// The product table's resource text, as a checkout or an edit may leave it:
// notes, CRLF endings, rows without a tab or with a bad identifier, gaps,
// short and long rows, "*END". Whatever the text, every row read has its
// identifier among the rows the text gave, every protocol cell is four
// characters, and a lookup finds only a row of the table.
//
// Input: the resource text.
#include <cstdlib>
#include <string_view>

#include "fuzz_common.h"
#include "protocol/product_table.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace trekcom::protocol;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::vector<Product_Row> table = Parse_Product_Table(text);
    if (table.size() > 256) std::abort();
    for (const Product_Row& row : table) {
        // The resource's cells are four characters; the columns it never
        // holds (date, position and PVT) stay empty.
        for (std::size_t c = 3; c < row.Column.size(); ++c)
            if (row.Column[c].size() != (c < 18 ? 4u : 0u)) std::abort();
        const Product_Row* found = Find_Product_Row(table, row.Product_ID, 0);
        if (found && (found < table.data() || found >= table.data() + table.size())) std::abort();
    }
    return 0;
}
