// Transport figures: PZSocket throughput against plain send() calls, and the latency of an invocation
// posted to another thread's run loop. Run: build/transport_bench [runs]
#include "transport/PZBackgroundObject.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"
#include "transport/PZSocket.h"
#include "transport/PZThread.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t kPayload = 8u << 20;

// A connected loopback pair: {sending end, receiving end}.
std::pair<int, int> loopbackPair() {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener, 1);
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    const int sender = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::connect(sender, reinterpret_cast<sockaddr*>(&address), sizeof address);
    const int receiver = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    return {sender, receiver};
}

// Reads count bytes on its own thread; the future holds the time the last one arrived.
std::future<Clock::time_point> drain(int fd, std::size_t count) {
    return std::async(std::launch::async, [fd, count] {
        std::vector<std::uint8_t> buffer(1 << 16);
        std::size_t total = 0;
        while (total < count) {
            const ssize_t n = ::recv(fd, buffer.data(), buffer.size(), 0);
            if (n <= 0) {
                break;
            }
            total += static_cast<std::size_t>(n);
        }
        return Clock::now();
    });
}

// Processor time of the whole process (every thread), in milliseconds.
double processorMs() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return (static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3) +
           (static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3);
}

// One measured transfer: wall-clock rate and the processor time it cost.
struct Figure {
    double megabytesPerSecond;
    double processorMs;
};

double megabytesPerSecond(Clock::duration elapsed) {
    return static_cast<double>(kPayload) / 1e6 / std::chrono::duration<double>(elapsed).count();
}

// Sends the payload through a fresh PZSocket, then once more through the same one. The first send finds
// the socket's node pool empty, the second reuses the nodes the first freed.
std::pair<Figure, Figure> pzSocketRuns(const std::vector<std::uint8_t>& payload) {
    auto [sender, receiver] = loopbackPair();
    auto socket = std::make_shared<PZSocket>(sender, std::nullopt);
    socket->scheduleInRunLoop(PZRunLoop::current());
    socket->start();
    Figure figures[2];
    for (Figure& figure : figures) {
        auto done = drain(receiver, payload.size());
        const double cpu = processorMs();
        const auto start = Clock::now();
        socket->sendData(payload);
        figure.megabytesPerSecond = megabytesPerSecond(done.get() - start);
        figure.processorMs = processorMs() - cpu;
    }
    socket->close();
    ::close(receiver);
    while (PZThread::runningCount() > 0) {
        std::this_thread::sleep_for(1ms);
    }
    PZRunLoop::current()->runOnce(0ms);
    return {figures[0], figures[1]};
}

Figure plainSendRun(const std::vector<std::uint8_t>& payload) {
    auto [sender, receiver] = loopbackPair();
    // The same kind of connection as a PZSocket's: small writes are not held back.
    const int one = 1;
    ::setsockopt(sender, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    auto done = drain(receiver, payload.size());
    const double cpu = processorMs();
    const auto start = Clock::now();
    for (std::size_t offset = 0; offset < payload.size();) {
        const std::size_t chunk = std::min<std::size_t>(1024, payload.size() - offset);
        const ssize_t n = ::send(sender, payload.data() + offset, chunk, MSG_NOSIGNAL);
        if (n <= 0) {
            break;
        }
        offset += static_cast<std::size_t>(n);
    }
    const Figure figure{megabytesPerSecond(done.get() - start), processorMs() - cpu};
    ::close(sender);
    ::close(receiver);
    return figure;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Two run loops hand one invocation back and forth; each records how long its deliveries took from
// the post to the perform.
struct PingPong : std::enable_shared_from_this<PingPong> {
    std::shared_ptr<PZBackgroundObject> toMain = std::make_shared<PZBackgroundObject>();
    std::shared_ptr<PZBackgroundObject> toWorker = std::make_shared<PZBackgroundObject>();
    std::vector<double> latencies[2]; // microseconds; [0] arrivals on main, [1] on the worker
    int remaining = 0;
};

void post(const std::shared_ptr<PingPong>& game, bool toWorker) {
    const auto posted = Clock::now();
    (toWorker ? game->toWorker : game->toMain)
        ->postInvocation(std::weak_ptr<PingPong>(game), [posted, toWorker](PingPong& g) {
            g.latencies[toWorker].push_back(
                std::chrono::duration<double, std::micro>(Clock::now() - posted).count());
            if (--g.remaining > 0) {
                post(g.shared_from_this(), !toWorker);
            } else {
                g.toMain->invalidate(); // both loops then have nothing left and return
                g.toWorker->invalidate();
            }
        });
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1,
                           static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

void pingPong(int posts) {
    auto game = std::make_shared<PingPong>();
    game->remaining = posts;
    game->toMain->scheduleInRunLoop(PZRunLoop::current());
    std::promise<void> ready;
    std::thread worker([&] {
        game->toWorker->scheduleInRunLoop(PZRunLoop::current());
        ready.set_value();
        PZRunLoop::current()->run();
    });
    ready.get_future().wait();
    const auto start = Clock::now();
    post(game, true);
    PZRunLoop::current()->run();
    worker.join();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::vector<double> all = game->latencies[0];
    all.insert(all.end(), game->latencies[1].begin(), game->latencies[1].end());
    std::printf("Invocation posted to another thread's run loop, %zu posts (ping-pong):\n", all.size());
    std::printf("  median %.1f us, p99 %.1f us, p99.9 %.1f us; %.0f posts/s (goal: median <= 20 us)\n",
                percentile(all, 0.5), percentile(all, 0.99), percentile(all, 0.999),
                static_cast<double>(all.size()) / seconds);
}

} // namespace

int main(int argc, char** argv) {
    PZLogger::setEchoEnabled(false);
    const int runs = argc > 1 ? std::atoi(argv[1]) : 9;

    std::vector<std::uint8_t> payload(kPayload);
    for (std::size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<std::uint8_t>(i * 131);
    }
    std::vector<Figure> fresh, reused, plain;
    for (int i = 0; i < runs; ++i) {
        plain.push_back(plainSendRun(payload));
        const auto [first, second] = pzSocketRuns(payload);
        fresh.push_back(first);
        reused.push_back(second);
    }
    auto rate = [](const std::vector<Figure>& f) {
        std::vector<double> v;
        for (const auto& x : f) {
            v.push_back(x.megabytesPerSecond);
        }
        return median(v);
    };
    auto cost = [](const std::vector<Figure>& f) {
        std::vector<double> v;
        for (const auto& x : f) {
            v.push_back(x.processorMs);
        }
        return median(v);
    };
    std::printf("8 MiB over loopback, median of %d interleaved runs (rate; processor time of all threads):\n",
                runs);
    std::printf("  plain 1024-byte send() loop:          %7.1f MB/s  %6.1f ms\n", rate(plain), cost(plain));
    std::printf(
        "  PZSocket sendData, fresh socket:      %7.1f MB/s  %6.1f ms  (%.2f of plain; goal >= 0.50)\n",
        rate(fresh), cost(fresh), rate(fresh) / rate(plain));
    std::printf("  PZSocket sendData, same socket again: %7.1f MB/s  %6.1f ms  (%.2f of plain)\n",
                rate(reused), cost(reused), rate(reused) / rate(plain));
    pingPong(100000);
    return 0;
}
