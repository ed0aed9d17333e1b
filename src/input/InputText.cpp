#include "input/InputText.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cwctype>
#include <locale.h>

namespace {

locale_t utf8Locale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return locale;
}

char asciiLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool matchesAt(std::string_view text, std::size_t at, std::string_view word) {
    if (at + word.size() > text.size()) {
        return false;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (asciiLower(text[at + i]) != asciiLower(word[i])) {
            return false;
        }
    }
    return true;
}

} // namespace

std::vector<char32_t> InputText::codePoints(std::string_view text) {
    std::vector<char32_t> points;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        int length = 0;
        char32_t value = 0;
        if (lead < 0x80) {
            length = 1;
            value = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2;
            value = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            value = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            value = lead & 0x07;
        }
        bool valid = length > 0 && i + static_cast<std::size_t>(length) <= text.size();
        for (int k = 1; valid && k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
            valid = (next & 0xC0) == 0x80;
            value = (value << 6) | (next & 0x3F);
        }
        // Overlong forms, surrogates and values beyond Unicode are invalid too.
        static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (valid && (value < smallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))) {
            valid = false;
        }
        if (!valid) {
            points.push_back(0xFFFD);
            i += 1;
        } else {
            points.push_back(value);
            i += static_cast<std::size_t>(length);
        }
    }
    return points;
}

std::string InputText::fromCodePoint(char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        c = 0xFFFD;
    }
    std::string out;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

std::string InputText::fromUtf16Unit(char16_t unit) {
    return fromCodePoint(unit);
}

int InputText::firstUtf16Unit(std::string_view text) {
    if (text.empty()) {
        return -1;
    }
    const char32_t first = codePoints(text.substr(0, std::min<std::size_t>(4, text.size()))).front();
    if (first >= 0x10000) {
        return static_cast<int>(0xD800 + ((first - 0x10000) >> 10)); // the high surrogate
    }
    return static_cast<int>(first);
}

std::string InputText::lowercase(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const locale_t locale = utf8Locale();
    for (char32_t c : codePoints(text)) {
        if (c < 0x80) {
            out += asciiLower(static_cast<char>(c));
        } else if (locale != static_cast<locale_t>(nullptr)) {
            out += fromCodePoint(static_cast<char32_t>(towlower_l(static_cast<wint_t>(c), locale)));
        } else {
            out += fromCodePoint(c);
        }
    }
    return out;
}

bool InputText::equalsIgnoringCase(std::string_view a, std::string_view b) {
    // ASCII text (every key name) is compared in place; other text is lowered first.
    bool ascii = true;
    for (char c : a) {
        ascii = ascii && static_cast<unsigned char>(c) < 0x80;
    }
    for (char c : b) {
        ascii = ascii && static_cast<unsigned char>(c) < 0x80;
    }
    if (ascii) {
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
                   return asciiLower(x) == asciiLower(y);
               });
    }
    return a == b || lowercase(a) == lowercase(b);
}

bool InputText::containsIgnoringCase(std::string_view text, std::string_view word) {
    for (std::size_t at = 0; at + word.size() <= text.size(); ++at) {
        if (matchesAt(text, at, word)) {
            return true;
        }
    }
    return false;
}

std::string InputText::removingIgnoringCase(std::string_view text, std::string_view word) {
    std::string out;
    std::size_t at = 0;
    while (at < text.size()) {
        if (!word.empty() && matchesAt(text, at, word)) {
            at += word.size();
        } else {
            out += text[at++];
        }
    }
    return out;
}

std::vector<std::string> InputText::split(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = text.find(separator, start);
        if (end == std::string_view::npos) {
            pieces.emplace_back(text.substr(start));
            return pieces;
        }
        pieces.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string InputText::number(double value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string InputText::point(double x, double y) {
    return "{" + number(x) + ", " + number(y) + "}";
}

std::string InputText::size(double width, double height) {
    return "{" + number(width) + ", " + number(height) + "}";
}

std::string InputText::describeNumbers(const std::optional<std::vector<int>>& numbers) {
    if (!numbers) {
        return "(null)";
    }
    std::string text = "(";
    for (std::size_t i = 0; i < numbers->size(); ++i) {
        text += "\n    " + std::to_string((*numbers)[i]) + (i + 1 < numbers->size() ? "," : "");
    }
    return text + "\n)";
}
