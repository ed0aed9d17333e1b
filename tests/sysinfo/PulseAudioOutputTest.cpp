#include "sysinfo/linux/PulseAudioOutput.h"
#include "sysinfo/HMVolumeControl.h"
#include "sysinfo/linux/ProgramOutput.h"

#include "TempTree.h"
#include "support/LogCapture.h"
#include "support/TestPlatform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

bool pulseInstalled() {
    return std::system("command -v pulseaudio >/dev/null 2>&1 && command -v pactl >/dev/null 2>&1") == 0;
}

// pactl against a given server: its output, "(pactl failed)" when it failed.
std::string pactl(const std::string& server, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"pactl", "--server=" + server});
    return ProgramOutput::run(arguments).value_or("(pactl failed)");
}

// A private daemon with a null sink, for a test that stops and restarts its audio server.
class PulseAudioProcess {
public:
    ~PulseAudioProcess() { stop(); }
    bool start() {
        const std::string log = "--log-target=file:" + folder_ + "/pulse.log";
        const pid_t parent = getpid();
        pid_ = fork();
        if (pid_ == 0) {
            TestPlatform::endWithParent(parent);
            const int devnull = open("/dev/null", O_RDWR);
            for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                dup2(devnull, fd);
            }
            setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
            setenv("HOME", folder_.c_str(), 1);
            unsetenv("PULSE_SERVER");
            execlp("pulseaudio", "pulseaudio", "--daemonize=no", "-n", "--exit-idle-time=-1", log.c_str(),
                   "--load=module-native-protocol-unix", "--load=module-null-sink sink_name=test_sink",
                   nullptr);
            _exit(127);
        }
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (std::chrono::steady_clock::now() < deadline) {
            if (ProgramOutput::run({"pactl", "--server=" + server(), "info"})) {
                return true;
            }
            if (waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }
    void stop() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }
    std::string server() const { return "unix:" + folder_ + "/pulse/native"; }

private:
    TempTree runtime_; // private to this user, as the daemon wants it
    const std::string folder_ = runtime_.path();
    pid_t pid_ = -1;
};

class PulseAudioSharedTest : public testing::Test {
protected:
    void SetUp() override {
        server_ = TestPlatform::pulseServer();
        VXH_REQUIRE_PLATFORM(!server_.empty(), "no PulseAudio server (VXH_TEST_PULSE unset)");
        output_ = std::make_shared<PulseAudioOutput>(server_);
        ASSERT_NE(output_->defaultOutputDevice(), 0u) << "the test server has no default sink";
    }

    std::string server_;
    std::shared_ptr<PulseAudioOutput> output_;
};

TEST_F(PulseAudioSharedTest, volume_setByPactlOrByCode_eachSeesTheOther) {
    HMVolumeControl control(output_);
    for (const char* percent : {"100%", "0%", "73%"}) {
        ASSERT_NE(pactl(server_, {"set-sink-volume", "@DEFAULT_SINK@", percent}), "(pactl failed)");
        EXPECT_NEAR(control.volume(), std::stof(percent) / 100.0f, 0.001f) << percent;
    }
    pactl(server_, {"set-sink-mute", "@DEFAULT_SINK@", "1"});
    EXPECT_NEAR(control.volume(), 0.73f, 0.001f); // muted: the level setting still reads
    pactl(server_, {"set-sink-mute", "@DEFAULT_SINK@", "0"});
    pactl(server_, {"set-sink-volume", "@DEFAULT_SINK@", "150%"});
    EXPECT_EQ(control.volume(), 0.0f); // above the scale

    control.setVolume(0.65f);
    EXPECT_NE(pactl(server_, {"get-sink-volume", "@DEFAULT_SINK@"}).find(" 65% "), std::string::npos);
    EXPECT_NE(pactl(server_, {"get-sink-mute", "@DEFAULT_SINK@"}).find("Mute: no"), std::string::npos);

    control.setVolume(0.0005f);
    EXPECT_NE(pactl(server_, {"get-sink-mute", "@DEFAULT_SINK@"}).find("Mute: yes"), std::string::npos);
    EXPECT_NE(pactl(server_, {"get-sink-volume", "@DEFAULT_SINK@"}).find(" 65% "), std::string::npos);
    EXPECT_NEAR(control.volume(), 0.65f, 0.001f);

    control.setVolume(0.001f);
    EXPECT_NE(pactl(server_, {"get-sink-mute", "@DEFAULT_SINK@"}).find("Mute: no"), std::string::npos);
    EXPECT_NEAR(control.volume(), 0.001f, 0.0001f);

    control.setVolume(0.5f);
}

TEST_F(PulseAudioSharedTest, volume_manyThreads_allAnswer) {
    HMVolumeControl control(output_);
    control.setVolume(0.3f);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 25; ++i) {
                if (std::abs(output_->volume(output_->defaultOutputDevice()).value_or(-1.0f) - 0.3f) >
                    0.001f) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    control.setVolume(0.5f);
}

TEST(PulseAudioPrivateTest, volume_serverKilledAndRestarted_neutralThenRecovers) {
    VXH_REQUIRE_PLATFORM(pulseInstalled(), "pulseaudio is not installed");
    PulseAudioProcess pulse;
    ASSERT_TRUE(pulse.start());
    auto output = std::make_shared<PulseAudioOutput>(pulse.server());
    output->setRetryInterval(std::chrono::milliseconds(20));
    HMVolumeControl control(output);
    control.setVolume(0.4f);
    ASSERT_NEAR(control.volume(), 0.4f, 0.001f);

    LogCapture log;
    pulse.stop();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(control.volume(), 0.0f);
        control.setVolume(0.9f);
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    EXPECT_EQ(log.countContaining("Cannot find default output device!"), 1u);
    EXPECT_EQ(log.countContaining("Volume: no audio server answers"), 1u);

    ASSERT_TRUE(pulse.start());
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const std::uint32_t device = control.defaultOutputDeviceID();
    EXPECT_NE(device, 0u);
    control.setVolume(0.25f);
    EXPECT_NEAR(control.volume(), 0.25f, 0.001f);
    EXPECT_NE(pactl(pulse.server(), {"get-sink-volume", "@DEFAULT_SINK@"}).find(" 25% "), std::string::npos);
}

TEST(PulseAudioPrivateTest, everyOperation_noServerAtAll_neutral) {
    PulseAudioOutput output("unix:/nonexistent/pulse/native");
    EXPECT_EQ(output.defaultOutputDevice(), 0u);
    EXPECT_FALSE(output.volume(1));
    EXPECT_FALSE(output.setVolume(1, 0.5f));
    EXPECT_FALSE(output.setMute(1, true));
    EXPECT_FALSE(output.muted(1));
    EXPECT_FALSE(output.canSetVolume(1));
}

} // namespace
