// The built-in product table: the transfer protocols and record formats of
// receivers that predate the capability array, keyed by product id and a
// range of software versions. Its rows are a resource of the library,
// embedded at build time from resources/product_table.txt.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trekcom::protocol {

// One row. Columns 3..23 are four-character texts (an empty column reads as
// four spaces); 18..23 (date, position and PVT) are never in the resource and
// stay empty. Columns 0..2 are held as numbers.
struct Product_Row {
    std::int16_t Product_ID = 0;
    float Min_Version = 0;  // software version in units (3.01), single precision
    float Max_Version = 0;
    std::array<std::string, 24> Column;
};

// The embedded rows: "identifier<TAB>text" lines, "#" lines are notes.
extern const std::string_view kProduct_Table_Resource;

// Parses rows 1001 upwards until the row "*END" (or the last identifier,
// 1256). A missing identifier ends the table as "*END" does.
std::vector<Product_Row> Parse_Product_Table(std::string_view resource);

// The first row for this product whose bounds hold the version (x 100): the
// version is compared in double precision against the single-precision bounds.
const Product_Row* Find_Product_Row(const std::vector<Product_Row>& table, std::int16_t product_id,
                                    std::int16_t software_version);

}  // namespace trekcom::protocol
