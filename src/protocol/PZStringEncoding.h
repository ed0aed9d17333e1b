#pragma once

#include <string>
#include <string_view>

// The string codecs of the protocol. Every string value on the wire is "%" plus the lowercase
// hexadecimal of each UTF-16 code unit of the text, with no fixed width.
class PZStringEncoding {
public:
    // Raw URL encoding of UTF-8 text; a non-BMP character is two units, invalid UTF-8 bytes become U+FFFD.
    static std::string stringWithRawURLEncode(std::string_view text);
    // Raw URL decoding to UTF-8: text before the first "%" is dropped, each piece is one unit, unpaired
    // surrogates become U+FFFD; text without "%" decodes to "".
    static std::string stringWithRawURLDecode(std::string_view text);
    // Appends the raw URL decoding of text to out (same rules as stringWithRawURLDecode).
    static void appendRawURLDecode(std::string_view text, std::string& out);
    // Appends the raw URL encoding of text to out (same rules as stringWithRawURLEncode).
    static void appendRawURLEncode(std::string_view text, std::string& out);
    // Encodes only "&", "+" and "." (as %26, %2b, %2e) and copies every other byte.
    static std::string stringHTTPEncode(std::string_view text);
};
