#include "protocol/PZStringEncoding.h"

#include <array>
#include <cstdint>

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

// Appends "%" and the lowercase hexadecimal of a UTF-16 unit, without leading zeros.
void appendUnit(std::string& out, std::uint16_t unit) {
    char buffer[5];
    int n = 0;
    do {
        buffer[n++] = kHexDigits[unit & 0xF];
        unit = static_cast<std::uint16_t>(unit >> 4);
    } while (unit != 0);
    out.push_back('%');
    while (n > 0) {
        out.push_back(buffer[--n]);
    }
}

// Decodes one code point from UTF-8 at text[i]; advances i. Invalid sequences give U+FFFD for one byte.
char32_t nextCodePoint(std::string_view text, std::size_t& i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        ++i;
        return lead;
    }
    std::size_t extra = 0;
    char32_t cp = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        extra = 1;
        cp = lead & 0x1F;
        minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2;
        cp = lead & 0x0F;
        minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3;
        cp = lead & 0x07;
        minimum = 0x10000;
    } else {
        ++i;
        return 0xFFFD;
    }
    if (i + extra >= text.size()) {
        ++i;
        return 0xFFFD;
    }
    for (std::size_t k = 1; k <= extra; ++k) {
        const unsigned char c = byte(i + k);
        if ((c & 0xC0) != 0x80) {
            ++i;
            return 0xFFFD;
        }
        cp = (cp << 6) | (c & 0x3F);
    }
    if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        ++i;
        return 0xFFFD;
    }
    i += extra + 1;
    return cp;
}

// Writes bytes into a buffer known to be large enough.
struct BufferWriter {
    char* next;
    void put(char c) { *next++ = c; }
};

// Appends bytes to a string.
struct StringWriter {
    std::string& out;
    void put(char c) { out.push_back(c); }
};

template <typename Writer> void appendUTF8(Writer& out, char32_t cp) {
    if (cp < 0x80) {
        out.put(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.put(static_cast<char>(0xC0 | (cp >> 6)));
        out.put(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.put(static_cast<char>(0xE0 | (cp >> 12)));
        out.put(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.put(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.put(static_cast<char>(0xF0 | (cp >> 18)));
        out.put(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.put(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.put(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Hexadecimal digit values, -1 for other bytes.
constexpr std::array<std::int8_t, 256> kHexValues = [] {
    std::array<std::int8_t, 256> table{};
    for (int c = 0; c < 256; ++c) {
        table[c] = -1;
    }
    for (int c = '0'; c <= '9'; ++c) {
        table[c] = static_cast<std::int8_t>(c - '0');
    }
    for (int c = 'a'; c <= 'f'; ++c) {
        table[c] = static_cast<std::int8_t>(c - 'a' + 10);
        table[c - 'a' + 'A'] = static_cast<std::int8_t>(c - 'a' + 10);
    }
    return table;
}();

int hexValue(char c) {
    return kHexValues[static_cast<unsigned char>(c)];
}

// Decodes the pieces of text from the "%" at first on: each piece is one UTF-16 unit, characters after
// its hexadecimal digits are ignored, unpaired surrogates become U+FFFD.
template <typename Writer> void decodePieces(std::string_view text, std::size_t first, Writer& out) {
    // A high surrogate waits for the unit that follows it.
    std::uint32_t pendingHigh = 0;
    bool hasPending = false;
    std::size_t pos = first + 1;
    while (true) {
        std::uint32_t unit = 0;
        while (pos < text.size()) {
            const int digit = hexValue(text[pos]);
            if (digit < 0) {
                break;
            }
            unit = ((unit << 4) | static_cast<std::uint32_t>(digit)) & 0xFFFF;
            ++pos;
        }
        const bool low = unit >= 0xDC00 && unit <= 0xDFFF;
        if (unit < 0x80 && !hasPending) {
            out.put(static_cast<char>(unit));
        } else if (hasPending && low) {
            appendUTF8(out, 0x10000 + ((pendingHigh - 0xD800) << 10) + (unit - 0xDC00));
            hasPending = false;
        } else {
            if (hasPending) {
                appendUTF8(out, 0xFFFD);
                hasPending = false;
            }
            if (unit >= 0xD800 && unit <= 0xDBFF) {
                pendingHigh = unit;
                hasPending = true;
            } else {
                appendUTF8(out, low ? 0xFFFD : unit);
            }
        }
        // Trailing characters of the piece are ignored.
        if (pos < text.size() && text[pos] == '%') {
            ++pos;
            continue;
        }
        const std::size_t next = text.find('%', pos);
        if (next == std::string_view::npos) {
            break;
        }
        pos = next + 1;
    }
    if (hasPending) {
        appendUTF8(out, 0xFFFD);
    }
}

} // namespace

void PZStringEncoding::appendRawURLEncode(std::string_view text, std::string& out) {
    out.reserve(out.size() + text.size() * 3);
    std::size_t i = 0;
    while (i < text.size()) {
        const char32_t cp = nextCodePoint(text, i);
        if (cp >= 0x10000) {
            const char32_t v = cp - 0x10000;
            appendUnit(out, static_cast<std::uint16_t>(0xD800 + (v >> 10)));
            appendUnit(out, static_cast<std::uint16_t>(0xDC00 + (v & 0x3FF)));
        } else {
            appendUnit(out, static_cast<std::uint16_t>(cp));
        }
    }
}

std::string PZStringEncoding::stringWithRawURLEncode(std::string_view text) {
    std::string out;
    appendRawURLEncode(text, out);
    return out;
}

void PZStringEncoding::appendRawURLDecode(std::string_view text, std::string& out) {
    const std::size_t first = text.find('%');
    if (first == std::string_view::npos) {
        return;
    }
    // A piece never decodes to more bytes than it has characters, so short texts are decoded into a
    // buffer on the stack and appended at once.
    constexpr std::size_t kBufferSize = 256;
    if (text.size() - first <= kBufferSize) {
        char buffer[kBufferSize];
        BufferWriter writer{buffer};
        decodePieces(text, first, writer);
        out.append(buffer, writer.next);
        return;
    }
    out.reserve(out.size() + text.size() / 3 + 1);
    StringWriter writer{out};
    decodePieces(text, first, writer);
}

std::string PZStringEncoding::stringWithRawURLDecode(std::string_view text) {
    std::string out;
    appendRawURLDecode(text, out);
    return out;
}

std::string PZStringEncoding::stringHTTPEncode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "%26";
            break;
        case '+':
            out += "%2b";
            break;
        case '.':
            out += "%2e";
            break;
        default:
            out.push_back(c);
        }
    }
    return out;
}
