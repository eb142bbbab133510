#include "protocol/product_table.h"

#include <charconv>
#include <map>

namespace trekcom::protocol {

namespace {

constexpr int kFirstRow = 1001;
constexpr int kLastRow = 1256;
constexpr std::size_t kColumnsInResource = 18;
constexpr std::size_t kCellWidth = 4;

std::string_view Trim_Spaces(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// A cell is always four characters: "" becomes four spaces, "999" becomes
// "999 " and longer texts are cut, so every protocol name compares alike.
std::string Cell(std::string_view raw) {
    std::string cell(Trim_Spaces(raw).substr(0, kCellWidth));
    cell.resize(kCellWidth, ' ');
    return cell;
}

template <typename T>
T Number(std::string_view cell) {
    const std::string_view text = Trim_Spaces(cell);
    T value{};
    std::from_chars(text.data(), text.data() + text.size(), value);  // not a number: 0
    return value;
}

std::map<int, std::string_view> Rows_By_Id(std::string_view resource) {
    std::map<int, std::string_view> rows;
    while (!resource.empty()) {
        const std::size_t end = resource.find('\n');
        std::string_view line = resource.substr(0, end);
        resource.remove_prefix(end == std::string_view::npos ? resource.size() : end + 1);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);  // a checkout with CRLF endings
        if (line.empty() || line.front() == '#') continue;
        const std::size_t tab = line.find('\t');
        if (tab == std::string_view::npos) continue;
        int id = 0;
        const auto [ptr, ec] = std::from_chars(line.data(), line.data() + tab, id);
        if (ec != std::errc{} || ptr != line.data() + tab) continue;
        rows.emplace(id, line.substr(tab + 1));
    }
    return rows;
}

}  // namespace

std::vector<Product_Row> Parse_Product_Table(std::string_view resource) {
    const auto rows = Rows_By_Id(resource);
    std::vector<Product_Row> table;
    for (int id = kFirstRow; id <= kLastRow; ++id) {
        const auto found = rows.find(id);
        if (found == rows.end()) break;
        const std::string line = std::string(found->second) + ",";
        if (line == "*END,") break;
        Product_Row row;
        std::size_t start = 0;
        for (std::size_t column = 0; column < kColumnsInResource; ++column) {
            std::string_view text;
            if (start < line.size()) {
                const std::size_t comma = line.find(',', start);
                text = std::string_view(line).substr(start, comma - start);
                start = comma == std::string::npos ? line.size() : comma + 1;
            }
            row.Column[column] = Cell(text);
        }
        row.Product_ID = Number<std::int16_t>(row.Column[0]);
        row.Min_Version = Number<float>(row.Column[1]);
        row.Max_Version = Number<float>(row.Column[2]);
        table.push_back(std::move(row));
    }
    return table;
}

const Product_Row* Find_Product_Row(const std::vector<Product_Row>& table, std::int16_t product_id,
                                    std::int16_t software_version) {
    // The bounds stay single precision while the version is a double, so 3.60
    // lies above a 3.60 bound (3.5999999) and below a 3.61 one: such a
    // version matches no row, as it always has.
    const double version = software_version / 100.0;
    for (const Product_Row& row : table)
        if (row.Product_ID == product_id && version >= static_cast<double>(row.Min_Version) &&
            version <= static_cast<double>(row.Max_Version))
            return &row;
    return nullptr;
}

}  // namespace trekcom::protocol
