#include "sysinfo/VXSystemSnapshot.h"

#include "protocol/VXProcess.h"
#include "sysinfo/VXSystemInfo.h"
#include "sysinfo/fakes/FakeAudioOutput.h"
#include "sysinfo/fakes/FakeBacklight.h"
#include "sysinfo/fakes/FakeProcessSource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;

namespace {

VXSystemInfoBackEnds fakeBackEnds(std::shared_ptr<FakeProcessSource> processes,
                                  std::shared_ptr<FakeAudioOutput> audio,
                                  std::shared_ptr<FakeBacklight> backlight,
                                  std::chrono::milliseconds interval) {
    VXSystemInfoBackEnds backEnds;
    backEnds.processes = std::move(processes);
    backEnds.audio = std::move(audio);
    backEnds.backlight = std::move(backlight);
    backEnds.dataDirs = {"/nonexistent"};
    backEnds.snapshotInterval = interval;
    return backEnds;
}

TEST(VXSystemSnapshotTest, reads_manySessionsOnManyThreads_askTheSystemOncePerInterval) {
    std::atomic<int> volumeQueries{0};
    std::atomic<int> processQueries{0};
    VXSystemSnapshot snapshot(
        [&] {
            ++processQueries;
            std::this_thread::sleep_for(5ms); // a slow X server: the others must wait, not ask too
            return VXSystemSnapshot::Processes{VXProcess::processWithNamePid("gedit", 42)};
        },
        [&] {
            ++volumeQueries;
            return 0.25f;
        },
        [] { return -1.0f; }, 1h);

    std::vector<std::thread> sessions;
    std::atomic<int> wrong{0};
    for (int i = 0; i < 16; ++i) {
        sessions.emplace_back([&] {
            for (int k = 0; k < 50; ++k) {
                const auto processes = snapshot.processes();
                if (processes.size() != 1 || snapshot.volume() != 0.25f || snapshot.brightness() != -1.0f) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& session : sessions) {
        session.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(processQueries.load(), 1);
    EXPECT_EQ(volumeQueries.load(), 1);
    EXPECT_EQ(snapshot.brightnessReads(), 1u);
}

TEST(VXSystemSnapshotTest, reads_ownSetsFreshAtOnceOtherChangesAfterTheInterval) {
    auto processes = std::make_shared<FakeProcessSource>();
    auto audio = std::make_shared<FakeAudioOutput>();
    auto backlight = std::make_shared<FakeBacklight>();
    backlight->setDisplays({{1, 0.3f, 0, 0}});
    processes->setProcesses({{101, "gedit", "gedit", "Gedit", "notes.txt"}});
    VXSystemInfo info(fakeBackEnds(processes, audio, backlight, 200ms));
    ASSERT_EQ(info.snapshot().processes().size(), 1u);
    EXPECT_FLOAT_EQ(info.snapshot().volume(), 0.5f);
    EXPECT_FLOAT_EQ(info.snapshot().brightness(), 0.3f);
    info.setVolume(0.75f);
    info.setBrightness(0.6f);
    EXPECT_FLOAT_EQ(info.snapshot().volume(), 0.75f);
    EXPECT_FLOAT_EQ(info.snapshot().brightness(), 0.6f);

    processes->setProcesses(
        {{101, "gedit", "gedit", "Gedit", "notes.txt"}, {202, "xterm", "xterm", "XTerm", "~"}});
    audio->setLevel(0.9f);
    EXPECT_EQ(info.snapshot().processes().size(), 1u);
    EXPECT_FLOAT_EQ(info.snapshot().volume(), 0.75f);
    std::this_thread::sleep_for(250ms);
    const auto now = info.snapshot().processes();
    ASSERT_EQ(now.size(), 2u);
    EXPECT_EQ(now[1]->name(), "xterm");
    EXPECT_FLOAT_EQ(info.snapshot().volume(), 0.9f);
    EXPECT_EQ(processes->listReads(), 2);
    EXPECT_EQ(info.snapshot().volumeReads(), 3u);
}

TEST(VXSystemSnapshotTest, setAndRead_concurrentSessions_neverDeadlockAndEndFresh) {
    auto audio = std::make_shared<FakeAudioOutput>();
    VXSystemInfo info(fakeBackEnds(std::make_shared<FakeProcessSource>(), audio, nullptr, 0ms));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&info, t] {
            for (int k = 0; k < 200; ++k) {
                if (t % 2 == 0) {
                    info.setVolume(static_cast<float>(k % 10) / 10.0f + 0.05f);
                } else {
                    info.snapshot().volume();
                    info.snapshot().processes();
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    info.setVolume(0.42f);
    EXPECT_FLOAT_EQ(info.snapshot().volume(), 0.42f);
}

} // namespace
