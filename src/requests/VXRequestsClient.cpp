#include "requests/VXRequestsClient.h"

#include "protocol/PZNumberText.h"

#include <algorithm>
#include <vector>

namespace {

std::vector<std::string_view> splitOnDots(std::string_view text) {
    std::vector<std::string_view> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t dot = text.find('.', start);
        if (dot == std::string_view::npos) {
            pieces.push_back(text.substr(start));
            return pieces;
        }
        pieces.push_back(text.substr(start, dot - start));
        start = dot + 1;
    }
}

} // namespace

int VXRequestsClient::compareWithVersion(std::string_view a, std::string_view b) {
    const auto left = splitOnDots(a);
    const auto right = splitOnDots(b);
    const std::size_t count = std::max(left.size(), right.size());
    for (std::size_t i = 0; i < count; ++i) {
        const std::int32_t x = i < left.size() ? PZNumberText::intValue(left[i]) : 0;
        const std::int32_t y = i < right.size() ? PZNumberText::intValue(right[i]) : 0;
        if (x > y) {
            return 1;
        }
        if (y > x) {
            return -1;
        }
    }
    return 0;
}
