#include "transport/PZLogger.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

TEST(PZLogger, write_fromManyThreads_everyLineArrivesWhole) {
    std::vector<std::string> lines;
    PZLogger::setEchoEnabled(false);
    const auto token = PZLogger::addObserver([&](std::string_view line) { lines.emplace_back(line); });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                PZLog("thread " + std::to_string(t) + " line");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    PZLogger::removeObserver(token);
    PZLogger::setEchoEnabled(true);
    ASSERT_EQ(lines.size(), 800u);
    for (const auto& line : lines) {
        EXPECT_EQ(line.size(), std::string("thread 0 line").size());
    }
}

TEST(PZLogger, observerAndThreadFilter_linesWithoutTrailingNewlineFilteredOnTheFiltersThreadOnly) {
    std::vector<std::string> lines;
    std::mutex mutex;
    const auto token = PZLogger::addObserver([&](std::string_view line) {
        std::lock_guard<std::mutex> lock(mutex);
        lines.emplace_back(line);
    });
    std::thread filtered([] {
        PZLogger::setThreadFilter([](std::string_view line) {
            if (line == "drop me") {
                PZLog("dropped one"); // written as it is, not filtered again
                return false;
            }
            return true;
        });
        PZLog("keep me\n");
        PZLog("drop me");
        PZLogger::setThreadFilter({});
        PZLog("drop me");
    });
    filtered.join();
    std::thread other([] { PZLog("drop me"); });
    other.join();
    PZLogger::removeObserver(token);
    PZLog("not seen");
    EXPECT_EQ(lines, (std::vector<std::string>{"keep me", "dropped one", "drop me", "drop me"}));
}
