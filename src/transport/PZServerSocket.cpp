#include "transport/PZServerSocket.h"

#include "transport/PZException.h"
#include "transport/PZLogger.h"
#include "transport/PZThread.h"

#include <cerrno>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

// After a failed accept for want of descriptors or memory, the next try waits this long: the pending
// connection stays in the backlog, and retrying at once would only spin.
constexpr std::chrono::milliseconds kAcceptBackoff{100};

// An accepted descriptor on its way to the delegate; closed if the delivery is dropped.
class AcceptedDescriptor {
public:
    explicit AcceptedDescriptor(int descriptor) : descriptor_(descriptor) {}
    AcceptedDescriptor(const AcceptedDescriptor&) = delete;
    AcceptedDescriptor& operator=(const AcceptedDescriptor&) = delete;
    ~AcceptedDescriptor() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    int take() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

} // namespace

// What the server socket shares with its accepting thread. The thread closes the listening descriptor
// when it ends; close() waits for that, so the port is free when close() returns.
struct PZServerSocket::AcceptState {
    explicit AcceptState(int fd) : descriptor(fd) {}

    const int descriptor;
    std::atomic<bool> listening{true};
    std::mutex mutex; // guards finished, thread and the closing of descriptor
    std::condition_variable changed;
    bool finished = false;
    std::thread::id thread;
};

PZServerSocket::PZServerSocket() = default;

PZServerSocket::~PZServerSocket() {
    setDelegate({});
    close();
}

void PZServerSocket::startOnPort(int port) {
    std::lock_guard<std::mutex> lock(monitor_);
    if (bound()) {
        throw PZException("PZServerSocket startOnPort:", "ServerSocket is just starting");
    }
    // A closed server socket stays closed, also before its posted invalidation has run.
    if (!isValid() || (bound_.load() && tcpSocket_.load() <= 0)) {
        throw PZException("PZServerSocket startOnPort:", "You can't start socket after closing");
    }
    int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (descriptor < 0) {
        descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    }
    const int one = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    ::setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof one);

    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<std::uint16_t>(port & 0xffff));
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1 ||
        ::listen(descriptor, SOMAXCONN) == -1) {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        tcpSocket_ = 0; // the mark of a failed start (no descriptor is held)
        throw PZException("PZServerSocket startOnPort:",
                          "Can't bind the socket on port " + std::to_string(port));
    }
    tcpSocket_ = descriptor;
    bound_ = true;
    acceptState_ = std::make_shared<AcceptState>(descriptor);
    PZThread::detach("accepting thread",
                     [self = weakSelf<PZServerSocket>(), state = acceptState_] { accepting(self, state); });
}

bool PZServerSocket::bound() const {
    return tcpSocket_.load() >= 0 && bound_.load();
}

int PZServerSocket::getPort() const {
    std::lock_guard<std::mutex> lock(monitor_);
    if (!acceptState_) {
        return 0;
    }
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (::getsockname(acceptState_->descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

void PZServerSocket::close() {
    std::shared_ptr<AcceptState> state;
    {
        std::lock_guard<std::mutex> lock(monitor_);
        if (tcpSocket_.load() < 0) {
            return;
        }
        tcpSocket_ = -1;
        state = std::move(acceptState_);
    }
    if (state) {
        std::unique_lock<std::mutex> lock(state->mutex);
        state->listening = false;
        if (!state->finished) {
            // close() alone does not wake a thread blocked in accept() on Linux; shutdown() does.
            ::shutdown(state->descriptor, SHUT_RDWR);
        }
        state->changed.notify_all();
        if (state->thread != std::this_thread::get_id()) {
            state->changed.wait(lock, [&] { return state->finished; });
        }
    }
    std::weak_ptr<PZServerSocketDelegate> target = delegate();
    auto self = weakSelf<PZServerSocket>();
    postInvocation(target, [self](PZServerSocketDelegate& delegate) {
        if (auto serverSocket = self.lock()) {
            delegate.serverSocketClosed(*serverSocket);
        }
    });
    postInvocation(self, [](PZServerSocket& serverSocket) { serverSocket.invalidate(); });
}

std::weak_ptr<PZServerSocketDelegate> PZServerSocket::delegate() const {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    return delegate_;
}

void PZServerSocket::setDelegate(std::weak_ptr<PZServerSocketDelegate> delegate) {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    delegate_ = std::move(delegate);
}

void PZServerSocket::postAccepted(int descriptor, std::vector<std::uint8_t> address) {
    auto accepted = std::make_shared<AcceptedDescriptor>(descriptor);
    postInvocation(delegate(), [self = weakSelf<PZServerSocket>(), accepted,
                                address = std::move(address)](PZServerSocketDelegate& delegate) {
        if (auto serverSocket = self.lock()) {
            delegate.serverSocketAcceptedAddress(*serverSocket, accepted->take(), address);
        }
    });
}

void PZServerSocket::accepting(std::weak_ptr<PZServerSocket> weakSelf, std::shared_ptr<AcceptState> state) {
    {
        std::lock_guard<std::mutex> lock(state->mutex);
        state->thread = std::this_thread::get_id();
    }
    PZLog("accepting thread -1 ++++++++++++++++++");
    while (state->listening.load()) {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        const int descriptor =
            ::accept4(state->descriptor, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
        if (descriptor == -1) {
            const int error = errno;
            if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM) {
                std::unique_lock<std::mutex> lock(state->mutex);
                state->changed.wait_for(lock, kAcceptBackoff, [&] { return !state->listening.load(); });
            }
            continue; // failed accepts are not reported
        }
        auto self = weakSelf.lock();
        if (!self) {
            ::close(descriptor);
            continue;
        }
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(&peer);
        self->postAccepted(
            descriptor, std::vector<std::uint8_t>(bytes, bytes + std::min<socklen_t>(length, sizeof peer)));
    }
    PZLog("accepting thread -1 -------------------");
    std::lock_guard<std::mutex> lock(state->mutex);
    ::close(state->descriptor);
    state->finished = true;
    state->changed.notify_all();
}
