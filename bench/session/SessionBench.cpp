// Server figures: the round trip of an info request through a real server over loopback (one phone, and
// 200 phones each sending 50 requests a second) beside a plain TCP ping-pong of the same message sizes;
// 1,000 phones connecting at once (time until every handshake is done), then the server's resident
// memory and processor time while they stay connected with the change push running and nothing changes.
//
// The server runs in a child process (server socket, client manager, sessions over a fake computer whose
// values never change), so that its memory and processor time are its own; the phones are driven by one
// epoll loop in the parent. Run: build/session_bench [phones]
#include "VXHVersion.h"
#include "phone/VXPhoneDecoder.h"
#include "protocol/VXInfo.h"
#include "protocol/VXRequest.h"
#include "session/VXClientManager.h"
#include "support/FakeSystem.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"
#include "transport/PZServerSocket.h"
#include "transport/PZThread.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <string>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

using Bytes = std::vector<std::uint8_t>;

// The request every latency figure times, and the answer the server gives to it.
const Bytes kRequest = VXRequest("info", "vx").getJSONData();
const Bytes kAnswer = VXInfo("vx", VXH_VERSION_STRING).getJSONData();

void raiseFileLimit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

// ---------------------------------------------------------------------------------------------------
// The processes under measurement.

// A child process running a server; its listening port is read from a pipe.
struct Child {
    pid_t pid = -1;
    int port = 0;

    ~Child() {
        if (pid > 0) {
            ::kill(pid, SIGTERM);
            ::waitpid(pid, nullptr, 0);
        }
    }
};

template <typename F> Child spawn(F&& serve) {
    int fds[2];
    if (::pipe(fds) != 0) {
        std::perror("pipe");
        std::exit(1);
    }
    Child child;
    child.pid = ::fork();
    if (child.pid == 0) {
        ::close(fds[0]);
        serve(fds[1]);
        std::_Exit(0);
    }
    ::close(fds[1]);
    if (::read(fds[0], &child.port, sizeof child.port) != static_cast<ssize_t>(sizeof child.port)) {
        std::fprintf(stderr, "the server did not start\n");
        std::exit(1);
    }
    ::close(fds[0]);
    return child;
}

// The real server over a fake computer: 12 windows, a volume and a brightness that never change.
void serveSessions(int portPipe) {
    PZLogger::setEchoEnabled(false); // thousands of thread lines otherwise
    const auto home = std::filesystem::temp_directory_path() / ("vxh-bench-" + std::to_string(::getpid()));
    FakeSystem system(home.string(), 1s);
    std::vector<VXRunningProcess> windows;
    for (int i = 0; i < 12; ++i) {
        windows.push_back(FakeSystem::running(1000 + i, "application" + std::to_string(i)));
    }
    system.processes->setProcesses(windows);

    auto serverSocket = std::make_shared<PZServerSocket>();
    serverSocket->startOnPort(0);
    VXClientOptions options;
    options.systemInfo = system.systemInfo;
    options.commandExecute = system.executor;
    options.connectionPassword = [] { return std::optional<std::string>(); };
    auto manager = VXClientManager::clientManagerWithServerSocket(serverSocket, options);
    auto loop = PZRunLoop::current();
    manager->scheduleInRunLoop(loop);
    manager->start();
    const int port = serverSocket->getPort();
    if (::write(portPipe, &port, sizeof port) != static_cast<ssize_t>(sizeof port)) {
        std::_Exit(1);
    }
    ::close(portPipe);
    loop->run();
}

// The floor: a plain TCP server with one blocking thread per connection (as the server has), answering
// every request-sized run of bytes with answer-sized bytes.
void servePingPong(int portPipe) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(listener, SOMAXCONN);
    socklen_t length = sizeof address;
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    const int port = ntohs(address.sin_port);
    if (::write(portPipe, &port, sizeof port) != static_cast<ssize_t>(sizeof port)) {
        std::_Exit(1);
    }
    ::close(portPipe);
    for (;;) {
        const int accepted = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0) {
            continue;
        }
        ::setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        PZThread::detach("pingPong", [accepted] {
            std::uint8_t buffer[2048];
            std::size_t have = 0;
            for (;;) {
                const ssize_t n = ::recv(accepted, buffer, sizeof buffer, 0);
                if (n <= 0) {
                    ::close(accepted);
                    return;
                }
                have += static_cast<std::size_t>(n);
                while (have >= kRequest.size()) {
                    have -= kRequest.size();
                    ::send(accepted, kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL);
                }
            }
        });
    }
}

// ---------------------------------------------------------------------------------------------------
// The phones.

enum class Target { Server, PingPong };

struct Phone {
    int fd = -1;
    bool connected = false;
    bool json = false;
    bool deviceSent = false;
    bool conform = false;
    bool listAnswered = false;
    VXPhoneDecoder decoder;
    std::size_t floorBytes = 0; // ping-pong: answer bytes not yet counted
    std::deque<Clock::time_point> sentAt;
    Clock::time_point nextSend{};
};

class Phones {
public:
    Phones(Target target, int port) : target_(target), port_(port), poller_(::epoll_create1(EPOLL_CLOEXEC)) {}
    ~Phones() {
        for (Phone& phone : phones_) {
            if (phone.fd >= 0) {
                ::close(phone.fd);
            }
        }
        ::close(poller_);
    }

    // Starts count connections at once (non-blocking).
    void connectAll(std::size_t count) {
        phones_.resize(count);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port_));
        for (std::size_t i = 0; i < count; ++i) {
            Phone& phone = phones_[i];
            phone.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            if (phone.fd < 0) {
                std::perror("socket");
                std::exit(1);
            }
            const int one = 1;
            ::setsockopt(phone.fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
            if (::connect(phone.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 &&
                errno != EINPROGRESS) {
                std::perror("connect");
                std::exit(1);
            }
            epoll_event event{};
            event.events = EPOLLIN | EPOLLOUT;
            event.data.u64 = i;
            ::epoll_ctl(poller_, EPOLL_CTL_ADD, phone.fd, &event);
        }
    }

    // Runs the loop until done() or the deadline; false on the deadline.
    template <typename Done> bool runUntil(Done&& done, Clock::time_point deadline) {
        epoll_event ready[512];
        while (!done()) {
            const auto now = Clock::now();
            if (now >= deadline) {
                return false;
            }
            sendDue(now);
            auto wake = deadline;
            if (nextDue_) {
                wake = std::min(wake, *nextDue_);
            }
            const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(wake - Clock::now());
            const int count =
                ::epoll_wait(poller_, ready, 512, static_cast<int>(std::max<long>(0, wait.count())));
            for (int i = 0; i < count; ++i) {
                handle(phones_[ready[i].data.u64], ready[i].events);
            }
        }
        return true;
    }

    // Every phone sends one request each interval from now on (staggered), until stopSending().
    void startSending(Clock::duration interval) {
        interval_ = interval;
        const auto start = Clock::now();
        for (std::size_t i = 0; i < phones_.size(); ++i) {
            phones_[i].nextSend = start + interval * static_cast<long>(i) / static_cast<long>(phones_.size());
        }
        nextDue_ = start;
    }
    void stopSending() { nextDue_.reset(); }
    // Ping-pong: each phone sends its next request as soon as the answer to the last one arrived.
    void startPingPong() {
        pingPong_ = true;
        for (Phone& phone : phones_) {
            sendRequest(phone, Clock::now());
        }
    }

    std::size_t conformCount() const { return conform_; }
    std::size_t connectedCount() const { return connected_; }
    std::size_t listsAnswered() const { return listsAnswered_; }
    std::vector<double>& latencies() { return latencies_; }
    std::size_t unanswered() const {
        std::size_t total = 0;
        for (const Phone& phone : phones_) {
            total += phone.sentAt.size();
        }
        return total;
    }

private:
    void write(Phone& phone, const Bytes& bytes) {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::send(phone.fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
            if (n > 0) {
                done += static_cast<std::size_t>(n);
            } else if (n < 0 && errno == EAGAIN) {
                std::this_thread::yield(); // tiny messages: the buffer is never full for long
            } else {
                return;
            }
        }
    }

    void sendRequest(Phone& phone, Clock::time_point now) {
        phone.sentAt.push_back(now);
        write(phone, kRequest);
    }

    void sendDue(Clock::time_point now) {
        if (!nextDue_ || now < *nextDue_) {
            return;
        }
        Clock::time_point next = Clock::time_point::max();
        for (Phone& phone : phones_) {
            if (phone.nextSend <= now) {
                sendRequest(phone, now);
                phone.nextSend += interval_;
            }
            next = std::min(next, phone.nextSend);
        }
        nextDue_ = next;
    }

    void handle(Phone& phone, std::uint32_t events) {
        if ((events & EPOLLOUT) && !phone.connected) {
            phone.connected = true;
            ++connected_;
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u64 = static_cast<std::uint64_t>(&phone - phones_.data());
            ::epoll_ctl(poller_, EPOLL_CTL_MOD, phone.fd, &event);
        }
        if (!(events & EPOLLIN)) {
            return;
        }
        std::uint8_t buffer[16384];
        const ssize_t n = ::recv(phone.fd, buffer, sizeof buffer, 0);
        if (n <= 0) {
            return;
        }
        const auto now = Clock::now();
        if (target_ == Target::PingPong) {
            phone.floorBytes += static_cast<std::size_t>(n);
            while (phone.floorBytes >= kAnswer.size()) {
                phone.floorBytes -= kAnswer.size();
                answered(phone, now);
            }
            return;
        }
        for (const VXPhoneMessage& message : phone.decoder.decode(std::span<const std::uint8_t>(buffer, n))) {
            onMessage(phone, message, now);
        }
    }

    void answered(Phone& phone, Clock::time_point now) {
        if (phone.sentAt.empty()) {
            return;
        }
        latencies_.push_back(std::chrono::duration<double, std::micro>(now - phone.sentAt.front()).count());
        phone.sentAt.pop_front();
        if (pingPong_) {
            sendRequest(phone, now);
        }
    }

    void onMessage(Phone& phone, const VXPhoneMessage& message, Clock::time_point now) {
        if (message.kind == "request" && message.type == "info") {
            const std::string subject = message.string("text").value_or("");
            const auto answer = [&](const std::string& value) {
                write(phone, *VXInfo(subject, value).getXMLData());
            };
            if (subject == "protocol") {
                answer("json");
            } else if (subject == "app") {
                answer("Velorix");
            } else if (subject == "version") {
                answer("3.0");
            } else if (subject == "os") {
                answer("Android 14");
            } else if (subject == "device") {
                write(phone, *VXRequest("info", "os").getXMLData());
                answer("bench");
                phone.json = true;
                phone.deviceSent = true;
                write(phone, VXRequest("info", "protocol").getJSONData());
            }
            return;
        }
        if (!phone.conform) {
            if (phone.deviceSent && message.isInfo("protocol") &&
                message.encoding == VXPhoneMessage::Encoding::JSON) {
                phone.conform = true;
                ++conform_;
                write(phone, VXRequest("processList", "UIElement").getJSONData());
            }
            return;
        }
        if (message.kind == "processList" && !phone.listAnswered) {
            phone.listAnswered = true;
            ++listsAnswered_;
        } else if (message.isInfo("vx")) {
            answered(phone, now);
        }
    }

    Target target_;
    int port_;
    int poller_;
    std::vector<Phone> phones_;
    std::size_t connected_ = 0;
    std::size_t conform_ = 0;
    std::size_t listsAnswered_ = 0;
    std::vector<double> latencies_;
    Clock::duration interval_{};
    std::optional<Clock::time_point> nextDue_;
    bool pingPong_ = false;
};

// ---------------------------------------------------------------------------------------------------
// Figures.

double percentile(std::vector<double> values, double p) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<std::size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
    return values[std::min(index, values.size() - 1)];
}

void printLatencies(const char* what, const std::vector<double>& values, std::size_t unanswered) {
    std::printf("%-44s n=%-7zu p50 %8.1f us   p99 %8.1f us   p99.9 %8.1f us   unanswered %zu\n", what,
                values.size(), percentile(values, 0.5), percentile(values, 0.99), percentile(values, 0.999),
                unanswered);
}

// The child's resident memory (KiB) and thread count.
std::pair<long, long> memoryAndThreads(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    long rss = 0;
    long threads = 0;
    while (std::getline(status, line)) {
        if (line.starts_with("VmRSS:")) {
            rss = std::strtol(line.c_str() + 6, nullptr, 10);
        } else if (line.starts_with("Threads:")) {
            threads = std::strtol(line.c_str() + 8, nullptr, 10);
        }
    }
    return {rss, threads};
}

// The child's processor time so far, seconds.
double processorSeconds(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const auto close = text.rfind(')');
    std::vector<std::string> fields;
    std::size_t start = close + 2;
    while (start < text.size()) {
        const auto end = text.find(' ', start);
        fields.push_back(text.substr(start, end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    // Fields from "state" on: utime and stime are the 14th and 15th of the whole line.
    const double ticks = std::strtod(fields[11].c_str(), nullptr) + std::strtod(fields[12].c_str(), nullptr);
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// Connects, runs every handshake; false when they did not all finish in time.
bool conformAll(Phones& phones, std::size_t count, Clock::duration* took = nullptr) {
    const auto start = Clock::now();
    phones.connectAll(count);
    const bool done =
        phones.runUntil([&] { return phones.conformCount() == count; }, start + std::chrono::seconds(60));
    if (took) {
        *took = Clock::now() - start;
    }
    if (!done) {
        std::printf("only %zu of %zu phones connected, %zu finished the handshake\n", phones.connectedCount(),
                    count, phones.conformCount());
    }
    phones.runUntil([&] { return phones.listsAnswered() == phones.conformCount(); }, Clock::now() + 30s);
    return done;
}

void onePhone(Target target, int port, const char* what) {
    Phones phones(target, port);
    if (target == Target::Server) {
        conformAll(phones, 1);
    } else {
        phones.connectAll(1);
    }
    phones.startPingPong();
    phones.runUntil([&] { return phones.latencies().size() >= 2000; }, Clock::now() + 60s); // warm-up
    phones.latencies().clear();
    phones.runUntil([&] { return phones.latencies().size() >= 20000; }, Clock::now() + 120s);
    printLatencies(what, phones.latencies(), 0);
}

void manyPhones(Target target, int port, std::size_t count, const char* what) {
    Phones phones(target, port);
    if (target == Target::Server) {
        conformAll(phones, count);
    } else {
        phones.connectAll(count);
        phones.runUntil([&] { return phones.connectedCount() == count; }, Clock::now() + 30s);
    }
    phones.startSending(20ms);                                // 50 requests a second each
    phones.runUntil([] { return false; }, Clock::now() + 2s); // warm-up
    phones.latencies().clear();
    phones.runUntil([] { return false; }, Clock::now() + 10s);
    phones.stopSending();
    printLatencies(what, phones.latencies(), phones.unanswered());
}

} // namespace

int main(int argc, char** argv) {
    const std::size_t crowd = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000;
    raiseFileLimit();
    std::printf("request %zu bytes, answer %zu bytes\n\n", kRequest.size(), kAnswer.size());

    {
        Child server = spawn(serveSessions);
        onePhone(Target::Server, server.port, "server, 1 phone, ping-pong");
    }
    {
        Child floor = spawn(servePingPong);
        onePhone(Target::PingPong, floor.port, "plain TCP, 1 connection, ping-pong");
    }
    {
        Child server = spawn(serveSessions);
        manyPhones(Target::Server, server.port, 200, "server, 200 phones x 50/s");
    }
    {
        Child floor = spawn(servePingPong);
        manyPhones(Target::PingPong, floor.port, 200, "plain TCP, 200 connections x 50/s");
    }
    {
        Child server = spawn(serveSessions);
        std::this_thread::sleep_for(500ms);
        const auto [idleRss, idleThreads] = memoryAndThreads(server.pid);
        Phones phones(Target::Server, server.port);
        Clock::duration took{};
        const bool all = conformAll(phones, crowd, &took);
        std::printf("\n%zu phones connecting at once: %s after %.0f ms\n", crowd,
                    all ? "every handshake done" : "NOT every handshake done",
                    std::chrono::duration<double, std::milli>(took).count());
        phones.runUntil([] { return false; }, Clock::now() + 3s); // the first pushes settle
        const auto [rss, threads] = memoryAndThreads(server.pid);
        const double before = processorSeconds(server.pid);
        const auto start = Clock::now();
        phones.runUntil([] { return false; }, start + 10s);
        const double used = processorSeconds(server.pid) - before;
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::printf("server with no phone: %ld KiB resident, %ld threads\n", idleRss, idleThreads);
        std::printf(
            "server with %zu conform phones: %ld KiB resident (%.1f MiB), %ld threads, %.1f KiB a phone\n",
            phones.conformCount(), rss, rss / 1024.0, threads,
            static_cast<double>(rss - idleRss) / static_cast<double>(std::max<std::size_t>(1, crowd)));
        std::printf("server processor time while nothing changes: %.3f s in %.1f s = %.2f%% of one core\n",
                    used, seconds, 100.0 * used / seconds);
    }
    return 0;
}
