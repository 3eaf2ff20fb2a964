#include "kestrelml/store/EditDistance.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace kestrelml::detail {

std::size_t editDistance(std::u16string_view a, std::u16string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char16_t unit : a) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t substituted = diagonal + (unit == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({substituted, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace kestrelml::detail
