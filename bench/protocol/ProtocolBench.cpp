// Throughput of the protocol layer: decoding JSON and XML trackpad commands fed in 2048-byte
// chunks (as the socket's reader delivers them), and encoding commands and a 1 MiB file.
// Usage: vxh_bench_protocol [messages [json|xml|encode|file]]   (default: 1000000 messages, all parts)
// Times are the best of three runs; both the wall-clock and the thread's CPU time are reported, since
// the CPU time is what counts on a machine shared with other work.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "protocol/VXCommand.h"
#include "protocol/VXDiscardingStreamSink.h"
#include "protocol/VXFile.h"
#include "protocol/VXNullProcessNameLookup.h"
#include "protocol/VXTrackpadCommand.h"
#include "protocol/VXTranslator.h"
#include "transport/PZLogger.h"

namespace {

class CountingDelegate : public VXTranslatorDelegate {
public:
    void translatorDidGetCommand(VXTranslator&, std::shared_ptr<VXCommand> command) override {
        ++commands;
        checksum += command->process() ? static_cast<std::uint64_t>(command->process()->pid()) : 0;
    }
    std::uint64_t commands = 0;
    std::uint64_t checksum = 0;
};

using Clock = std::chrono::steady_clock;

double threadCPUSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

struct Timing {
    double wall = 1e300;
    double cpu = 1e300;
};

// The best of three runs, in seconds.
Timing bestOfThree(const std::function<void()>& run) {
    Timing best;
    for (int i = 0; i < 3; ++i) {
        const auto start = Clock::now();
        const double cpuStart = threadCPUSeconds();
        run();
        best.cpu = std::min(best.cpu, threadCPUSeconds() - cpuStart);
        best.wall = std::min(best.wall, std::chrono::duration<double>(Clock::now() - start).count());
    }
    return best;
}

void report(const char* name, double amount, const Timing& timing, const char* unit) {
    std::printf("%-40s %12.0f %s (CPU time) %12.0f %s (wall)\n", name, amount / timing.cpu, unit,
                amount / timing.wall, unit);
}

std::vector<std::uint8_t> trackpadStream(std::size_t count, bool json) {
    std::vector<std::uint8_t> stream;
    for (std::size_t i = 0; i < count; ++i) {
        VXTrackpadCommand command;
        command.setProcess(VXProcess(std::nullopt, static_cast<std::int64_t>(i % 1000)));
        command.setTouchState(static_cast<std::int32_t>(i % 4));
        command.setFingers(static_cast<std::int16_t>(1 + i % 3));
        command.setTapCount(static_cast<std::int16_t>(i % 2));
        command.setShift({static_cast<double>(i % 17) - 8.5, static_cast<double>(i % 23) * 0.25});
        const auto bytes = json ? command.getJSONData() : *command.getXMLData();
        stream.insert(stream.end(), bytes.begin(), bytes.end());
    }
    return stream;
}

void decode(const std::vector<std::uint8_t>& stream, std::uint32_t protocol, std::size_t expected,
            const char* name) {
    CountingDelegate delegate;
    const Timing timing = bestOfThree([&] {
        VXTranslator translator(std::make_shared<VXDiscardingStreamSink>(),
                                std::make_shared<VXNullProcessNameLookup>());
        translator.setProtocol(protocol);
        delegate.commands = 0;
        translator.setDelegate(&delegate);
        for (std::size_t offset = 0; offset < stream.size(); offset += 2048) {
            translator.translateBytes(stream.data() + offset,
                                      std::min<std::size_t>(2048, stream.size() - offset));
        }
    });
    if (delegate.commands != expected) {
        std::fprintf(stderr, "%s: decoded %llu of %zu messages\n", name,
                     static_cast<unsigned long long>(delegate.commands), expected);
        std::exit(1);
    }
    report(name, static_cast<double>(expected), timing, "messages/s");
}

} // namespace

int main(int argc, char** argv) {
    PZLogger::setEchoEnabled(false);
    const std::size_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000000;
    const std::string only = argc > 2 ? argv[2] : "";
    const auto wanted = [&](const char* part) { return only.empty() || only == part; };

    if (wanted("json")) {
        decode(trackpadStream(count, true), VXTranslator::kProtocolJSON, count,
               "decode JSON trackpad, 2048-byte chunks");
    }
    if (wanted("xml")) {
        decode(trackpadStream(count, false), VXTranslator::kProtocolXML, count,
               "decode XML trackpad, 2048-byte chunks");
    }

    std::size_t sink = 1;
    if (wanted("encode")) {
        VXCommand command("keyboard", VXProcess("gedit", 4242), "cmd shift s");
        const Timing timing = bestOfThree([&] {
            for (std::size_t i = 0; i < count; ++i) {
                sink += command.getJSONData().size();
            }
        });
        report("encode VXCommand getJSONData", static_cast<double>(count), timing, "messages/s");
    }
    if (!wanted("file")) {
        return sink == 0 ? 1 : 0;
    }

    std::vector<std::uint8_t> content(1 << 20);
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<std::uint8_t>(i * 31);
    }
    auto file = VXFile::fileWithDataPath(content, "/home/u/data.bin");
    file->setOriginalPath("/home/u/data.bin");
    file->setName("data.bin");
    const int files = 200;
    const Timing fileTiming = bestOfThree([&] {
        for (int i = 0; i < files; ++i) {
            sink += file->getJSONData().size();
        }
    });
    report("encode VXFile of 1 MiB getJSONData", files * (static_cast<double>(content.size()) / 1e6),
           fileTiming, "MB/s");
    return sink == 0 ? 1 : 0;
}
