#pragma once

#include <optional>
#include <string>
#include <string_view>

// What a request dispatcher asks of the session it serves: the phone application's version, for
// answers that depend on it.
class VXRequestsClient {
public:
    virtual ~VXRequestsClient() = default;

    // The phone application's version, when it is known.
    virtual std::optional<std::string> getVersion() const = 0;

    // Compares two dotted versions piece by piece (a missing piece counts as 0): -1, 0 or 1.
    static int compareWithVersion(std::string_view a, std::string_view b);
};
