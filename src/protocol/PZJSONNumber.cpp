#include "protocol/PZJSONNumber.h"

#include "protocol/PZStringEncoding.h"

void PZJSONNumber::decodeWithRawdecoding() {
    numberString_ = PZStringEncoding::stringWithRawURLDecode(numberString_);
}
