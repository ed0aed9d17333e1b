#include "transport/PZException.h"
#include "transport/PZLogger.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

TEST(PZLogger, observer_seesEachLineWithoutTrailingNewline) {
    std::vector<std::string> lines;
    const auto token = PZLogger::addObserver([&](std::string_view line) { lines.emplace_back(line); });
    PZLog("procedure enQueue: Element not inserted.\n");
    PZLog("second");
    PZLogger::removeObserver(token);
    PZLog("not seen");
    EXPECT_EQ(lines, (std::vector<std::string>{"procedure enQueue: Element not inserted.", "second"}));
}

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

TEST(PZException, carriesNameAndReason) {
    try {
        throw PZException("PZServerSocket startOnPort:", "ServerSocket is just starting");
    } catch (const PZException& e) {
        EXPECT_EQ(e.name(), "PZServerSocket startOnPort:");
        EXPECT_EQ(e.reason(), "ServerSocket is just starting");
        EXPECT_STREQ(e.what(), "PZServerSocket startOnPort:: ServerSocket is just starting");
    }
}
