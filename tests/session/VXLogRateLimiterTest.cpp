#include "session/VXLogRateLimiter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Clock = VXLogRateLimiter::Clock;
using std::chrono::milliseconds;

struct Recorder {
    std::vector<std::string> lines;
    VXLogRateLimiter::Writer writer() {
        return [this](std::string_view line) { lines.emplace_back(line); };
    }
};

TEST(VXLogRateLimiter, admit_sameLine_tenPassAWindowThenOneCountLineAndTheAllowanceRenewed) {
    Recorder written;
    VXLogRateLimiter limiter(written.writer());
    const auto start = Clock::now();
    const std::string line = "VXTranslator error: after < there isn't '/'";
    int passed = 0;
    for (int i = 0; i < 25; ++i) {
        passed += limiter.admit(line, start + milliseconds(i)) ? 1 : 0;
    }
    EXPECT_EQ(passed, 10);
    EXPECT_EQ(limiter.nextFlush(), start + milliseconds(1000));
    limiter.flush(start + milliseconds(999));
    EXPECT_TRUE(written.lines.empty());
    limiter.flush(start + milliseconds(1000));
    EXPECT_EQ(written.lines, std::vector<std::string>{line + " [left out 15 more times]"});
    EXPECT_FALSE(limiter.nextFlush());

    // Without a flush, the next admission after the window writes the count line first.
    for (int i = 0; i < 12; ++i) {
        limiter.admit("same", start + milliseconds(2000));
    }
    EXPECT_TRUE(limiter.admit("same", start + milliseconds(3500)));
    EXPECT_EQ(written.lines.back(), "same [left out 2 more times]");
    for (int i = 0; i < 9; ++i) {
        EXPECT_TRUE(limiter.admit("same", start + milliseconds(3600)));
    }
    EXPECT_FALSE(limiter.admit("same", start + milliseconds(3700)));
}

TEST(VXLogRateLimiter, admit_manyDifferentLines_totalPerWindowIsCappedAndCounted) {
    Recorder written;
    VXLogRateLimiter limiter(written.writer(), 10, 100);
    const auto start = Clock::now();
    int passed = 0;
    for (int i = 0; i < 150; ++i) {
        passed += limiter.admit("request " + std::to_string(i), start) ? 1 : 0;
    }
    EXPECT_EQ(passed, 100);
    limiter.flush(start + milliseconds(1000));
    EXPECT_EQ(written.lines, std::vector<std::string>{"[left out 50 more lines]"});
    EXPECT_TRUE(limiter.admit("request 149", start + milliseconds(1001)));
}

TEST(VXLogRateLimiter, destruction_writesTheCountsStillDue) {
    Recorder written;
    {
        VXLogRateLimiter limiter(written.writer(), 1, 100);
        const auto start = Clock::now();
        limiter.admit("a", start);
        limiter.admit("a", start);
        limiter.admit("b", start);
        EXPECT_TRUE(written.lines.empty());
    }
    EXPECT_EQ(written.lines, std::vector<std::string>{"a [left out 1 more times]"});
}

} // namespace
