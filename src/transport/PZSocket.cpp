#include "transport/PZSocket.h"

#include "transport/PZException.h"
#include "transport/PZLogger.h"
#include "transport/PZThread.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t kReadBufferSize = 2048;
constexpr std::size_t kWriteChunkSize = 1024;
constexpr std::size_t kWriteBatchSize = 16 * 1024;
// sendData hands large payloads to the queue in slices, so the writer starts sending before the end.
constexpr std::size_t kSendSlice = 16 * 1024;
// The reader stops reading while this much of what it read still waits for the delegate.
constexpr std::size_t kMostUndelivered = 4 * 1024 * 1024;
// A writer that found nothing to send for this long gives the queue's spare memory back.
constexpr std::chrono::seconds kIdleRelease{1};

std::string systemErrorText(int error) {
    char buffer[256];
    return strerror_r(error, buffer, sizeof buffer);
}

std::string connectErrorMessage(int error) {
    switch (error) {
    case EBADF:
        return "The socket socket is not a valid file descriptor";
    case ENOTSOCK:
        return "The socket socket is not a socket";
    case EAFNOSUPPORT:
        return "The namespace of the addr is not supported by this socket";
    case EADDRINUSE:
        return "The socket address of the given addr is already in use";
    case EADDRNOTAVAIL:
        return "The specified address is not available on the remote machine";
    case ENETUNREACH:
        return "The network of the given addr isn't reachable from this host";
    case EISCONN:
        return "The socket socket is already connected";
    case ETIMEDOUT:
        return "The attempt to establish the connection timed out";
    case ECONNREFUSED:
        return "The server has actively refused to establish the connection";
    default:
        return "Unkonw socket error";
    }
}

sockaddr_in toSockaddr(const PZSocket::Address& address) {
    sockaddr_in result{};
    std::memcpy(&result, address.data(), std::min(address.size(), sizeof result));
    return result;
}

std::string addressText(const sockaddr_in& address) {
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(address.sin_port));
}

} // namespace

struct PZSocket::Undelivered {
    std::mutex mutex;
    std::condition_variable drained;
    std::size_t bytes = 0;
    bool closed = false;
};

const std::string PZSocket::kConnectionOnInvalidSocketErrorMessage =
    "The connection cannot be made: this socket has already been closed.";
const std::string PZSocket::kImpossibleToResolveHostNameSocketErrorMessage =
    "The connection cannot be made: the host name could not be resolved.";

PZSocket::PZSocket() : undelivered_(std::make_shared<Undelivered>()) {}

PZSocket::PZSocket(int descriptor, std::optional<Address> address)
    : undelivered_(std::make_shared<Undelivered>()) {
    std::lock_guard<std::mutex> lock(monitor_);
    streams_ = 2;
    isGoingToClose_ = false;
    tcpSocket_ = descriptor;
    setOptions(descriptor);
    if (address) {
        serverAddress_ = std::move(*address);
    } else {
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length) == 0) {
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(&peer);
            serverAddress_.assign(bytes, bytes + std::min<std::size_t>(length, sizeof peer));
        }
    }
}

PZSocket::~PZSocket() {
    // No thread runs any more (each kept the object alive), so the descriptor can go at once.
    const int descriptor = tcpSocket_.exchange(-1);
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    if (deferredClose_ >= 0) {
        ::close(deferredClose_);
    }
}

void PZSocket::setOptions(int descriptor) {
    const int one = 1;
    // Linux has no SO_NOSIGPIPE: every write uses MSG_NOSIGNAL instead.
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    ::setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof one);
    // Messages are small and answer requests: held back until the previous segment is acknowledged
    // (Nagle), an answer would wait for the peer's delayed acknowledgement or its next message.
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    // An adopted descriptor may come from anywhere: launched programs must not inherit it.
    const int flags = ::fcntl(descriptor, F_GETFD);
    if (flags >= 0 && !(flags & FD_CLOEXEC)) {
        ::fcntl(descriptor, F_SETFD, flags | FD_CLOEXEC);
    }
}

std::optional<PZError> PZSocket::createSocket() {
    int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (descriptor < 0) {
        descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    }
    if (descriptor < 0) {
        const int error = errno;
        PZLog("PZSocket: impossible to create the socket");
        return PZError("PZSocketDomain", error, systemErrorText(error));
    }
    setOptions(descriptor);
    std::lock_guard<std::mutex> lock(monitor_);
    const int previous = tcpSocket_.exchange(descriptor);
    if (previous >= 0) {
        if (descriptorUsers_ == 0) {
            ::close(previous); // a descriptor left by failed connects
        } else if (deferredClose_ < 0) {
            ::shutdown(previous, SHUT_RDWR); // the threads still reading and writing it end and close it
            deferredClose_ = previous;
        }
    }
    streams_ = 0;
    isGoingToClose_ = false;
    serverAddress_.clear();
    return std::nullopt;
}

std::optional<PZError> PZSocket::connectToHostPort(const std::string& host, std::uint16_t port) {
    std::vector<Address> addresses;
    {
        std::lock_guard<std::mutex> lock(monitor_);
        if (!isValid()) {
            return PZError("PZSocket", 1, kConnectionOnInvalidSocketErrorMessage);
        }
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
            return PZError("PZSocket", 1, kImpossibleToResolveHostNameSocketErrorMessage);
        }
        std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> list(found, &::freeaddrinfo);
        for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
            if (entry->ai_family != AF_INET || entry->ai_addrlen < sizeof(sockaddr_in)) {
                continue;
            }
            sockaddr_in address = *reinterpret_cast<const sockaddr_in*>(entry->ai_addr);
            address.sin_port = htons(port);
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(&address);
            addresses.emplace_back(bytes, bytes + sizeof address);
        }
    }
    return connectToNetService(addresses);
}

std::optional<PZError> PZSocket::connectToAddress(const Address& address) {
    return connectToNetService(std::vector<Address>{address});
}

std::optional<PZError> PZSocket::connectToNetService(const std::vector<Address>& addresses) {
    std::lock_guard<std::mutex> lock(monitor_);
    if (!isValid()) {
        return PZError("PZSocket", 1, kConnectionOnInvalidSocketErrorMessage);
    }
    auto self = std::static_pointer_cast<PZSocket>(shared_from_this());
    PZThread::detach("PZSocket connect", [self, addresses] { self->tryToConnect(addresses); });
    return std::nullopt;
}

void PZSocket::tryToConnect(const std::vector<Address>& addresses) {
    std::optional<PZError> lastError;
    if (addresses.empty()) {
        lastError = PZError("No address to connect", -1);
    }
    for (const Address& address : addresses) {
        const sockaddr_in target = toSockaddr(address);
        if (tcpSocket_.load() < 0) {
            if (auto error = createSocket()) {
                postError(std::move(*error));
                return;
            }
        }
        const int descriptor = tcpSocket_.load();
        int result;
        do {
            result = ::connect(descriptor, reinterpret_cast<const sockaddr*>(&target), sizeof target);
        } while (result != 0 && errno == EINTR);
        if (result == 0) {
            {
                std::lock_guard<std::mutex> lock(monitor_);
                streams_ = 2;
                serverAddress_ = address;
            }
            postToDelegate(
                [](PZSocketDelegate& delegate, PZSocket& socket) { delegate.socketConnected(socket); });
            std::lock_guard<std::mutex> lock(monitor_);
            startThreadsLocked();
            return;
        }
        const int error = errno;
        // The message travels as the domain, as the receivers expect.
        lastError = PZError(connectErrorMessage(error), error,
                            systemErrorText(error) + " (" + addressText(target) + ")");
        if (error == EISCONN) {
            break;
        }
    }
    postError(std::move(*lastError));
}

void PZSocket::start() {
    std::lock_guard<std::mutex> lock(monitor_);
    if (!isValid()) {
        throw PZException("NSInternalInconsistencyException", "PZSocket start");
    }
    startThreadsLocked();
}

void PZSocket::startThreadsLocked() {
    if (threadsStarted_) {
        return;
    }
    threadsStarted_ = true;
    descriptorUsers_ = 2;
    auto self = std::static_pointer_cast<PZSocket>(shared_from_this());
    const int descriptor = tcpSocket_.load();
    PZThread::detach("PZSocket read", [self, descriptor] { self->readBytesFromSocket(descriptor); });
    PZThread::detach("PZSocket write", [self, descriptor] { self->writeBytesToSocket(descriptor); });
}

bool PZSocket::connected() const {
    return tcpSocket_.load() >= 0 && streams_.load() > 0;
}

std::string PZSocket::getRemoteStringAddress() const {
    std::lock_guard<std::mutex> lock(monitor_);
    if (serverAddress_.empty()) {
        return "Unknown";
    }
    const sockaddr_in address = toSockaddr(serverAddress_);
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text; // the same text inet_ntoa gives, without its shared buffer
}

void PZSocket::sendData(std::span<const std::uint8_t> data) {
    std::lock_guard<std::mutex> lock(monitor_);
    if (data.data() == nullptr || isGoingToClose_.load() || writerEnded_.load()) {
        return;
    }
    while (!data.empty()) {
        const auto slice = data.first(std::min(data.size(), kSendSlice));
        data = data.subspan(slice.size());
        {
            std::lock_guard<std::mutex> wLock(wMutex_);
            bytesToSend_.enQueueBytes(slice.data(), slice.size());
        }
        wCondition_.notify_one();
    }
}

void PZSocket::disconnect() {
    {
        std::lock_guard<std::mutex> lock(monitor_);
        isGoingToClose_ = true;
    }
    wakeWriter();
}

// Taking the writer's lock between the change and the signal means a writer about to wait sees the
// change or gets the signal.
void PZSocket::wakeWriter() {
    { std::lock_guard<std::mutex> wLock(wMutex_); }
    wCondition_.notify_all();
}

void PZSocket::close() {
    disconnect();
    bool postDisconnected = false;
    {
        std::lock_guard<std::mutex> lock(monitor_);
        const int descriptor = tcpSocket_.exchange(-1);
        if (descriptor >= 0) {
            if (descriptorUsers_ > 0) {
                // close() alone does not wake a thread blocked in read() or send() on Linux; the
                // descriptor itself is closed by the last thread, so its number cannot be reused under it.
                ::shutdown(descriptor, SHUT_RDWR);
                deferredClose_ = descriptor;
            } else {
                ::close(descriptor);
            }
        }
        if (!disconnectPosted_ && isValid()) {
            disconnectPosted_ = true;
            postDisconnected = true;
        }
    }
    wakeWriter();
    {
        std::lock_guard<std::mutex> lock(undelivered_->mutex);
        undelivered_->closed = true; // a reader waiting for its deliveries goes on to see the end
        undelivered_->drained.notify_all();
    }
    if (postDisconnected) {
        postToDelegate(
            [](PZSocketDelegate& delegate, PZSocket& socket) { delegate.socketDisconnected(socket); });
        postInvocation(weakSelf<PZSocket>(), [](PZSocket& socket) { socket.invalidate(); });
    }
}

void PZSocket::hardClose() {
    {
        std::lock_guard<std::mutex> lock(monitor_);
        isGoingToClose_ = true;
    }
    {
        std::lock_guard<std::mutex> wLock(wMutex_);
        bytesToSend_.deQueueBy(bytesToSend_.length());
    }
    close();
}

std::optional<PZSocket::Address> PZSocket::serverAddress() const {
    std::lock_guard<std::mutex> lock(monitor_);
    if (serverAddress_.empty()) {
        return std::nullopt;
    }
    return serverAddress_;
}

std::weak_ptr<PZSocketDelegate> PZSocket::delegate() const {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    return delegate_;
}

void PZSocket::setDelegate(std::weak_ptr<PZSocketDelegate> delegate) {
    std::lock_guard<std::mutex> lock(delegateMutex_);
    delegate_ = std::move(delegate);
}

template <typename F> void PZSocket::postToDelegate(F&& fn) {
    postInvocation(delegate(), [self = weakSelf<PZSocket>(),
                                fn = std::forward<F>(fn)](PZSocketDelegate& delegate) mutable {
        if (auto socket = self.lock()) {
            fn(delegate, *socket);
        }
    });
}

void PZSocket::postError(PZError error) {
    postToDelegate([error = std::move(error)](PZSocketDelegate& delegate, PZSocket& socket) {
        delegate.socketError(socket, error);
    });
}

void PZSocket::readBytesFromSocket(int descriptor) {
    PZLog("PZSocket thread 1 ++++++++++++++++++++++++ read");
    std::uint8_t buffer[kReadBufferSize];
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(undelivered_->mutex);
            undelivered_->drained.wait(
                lock, [this] { return undelivered_->bytes < kMostUndelivered || undelivered_->closed; });
        }
        const ssize_t count = ::recv(descriptor, buffer, sizeof buffer, 0);
        if (count > 0) {
            std::vector<std::uint8_t> data(buffer, buffer + count);
            {
                std::lock_guard<std::mutex> lock(undelivered_->mutex);
                undelivered_->bytes += data.size();
            }
            // Given back when the delivery has run, or when it is dropped unperformed.
            std::shared_ptr<void> share(nullptr, [undelivered = undelivered_, size = data.size()](void*) {
                std::lock_guard<std::mutex> lock(undelivered->mutex);
                undelivered->bytes -= size;
                undelivered->drained.notify_all();
            });
            postToDelegate([data = std::move(data), share](PZSocketDelegate& delegate, PZSocket& socket) {
                delegate.socketDidReceiveData(socket, data);
            });
            continue;
        }
        if (count == 0) {
            break;
        }
        const int error = errno;
        if (error == EINTR) {
            continue;
        }
        PZLog("PZSocket: read error: " + systemErrorText(error));
        if (tcpSocket_.load() >= 0) { // a failure caused by our own close() is not the peer's
            postError(PZError("PZSocket", 1, systemErrorText(error)));
        }
        break;
    }
    if (::shutdown(descriptor, SHUT_RD) == 0) {
        PZLog("PZSocket: shutdown read");
    }
    streamClosed();
    postToDelegate(
        [](PZSocketDelegate& delegate, PZSocket& socket) { delegate.socketDidCloseReadStream(socket); });
    PZLog("PZSocket thread 1 ------------------------- read");
}

void PZSocket::writeBytesToSocket(int descriptor) {
    PZLog("PZSocket thread 2 ++++++++++++++++++++++++ write");
    // Bytes are taken from the queue a batch at a time (one lock for up to 16 KiB) and written in chunks
    // of at most 1024 bytes; what a short write leaves over is written first at the next turn.
    std::uint8_t batch[kWriteBatchSize];
    std::size_t batchLength = 0;
    std::size_t batchWritten = 0;
    for (;;) {
        if (batchWritten == batchLength) {
            std::unique_lock<std::mutex> lock(wMutex_);
            bool idle = false;
            while (bytesToSend_.length() == 0 && connected() && !isGoingToClose_.load()) {
                if (idle) {
                    bytesToSend_.releaseUnusedMemory();
                    wCondition_.wait(lock);
                } else {
                    idle = wCondition_.wait_for(lock, kIdleRelease) == std::cv_status::timeout;
                }
            }
            batchLength = static_cast<std::size_t>(bytesToSend_.deQueueByBytes(sizeof batch, batch));
            batchWritten = 0;
        }
        if (batchLength == 0) {
            break; // nothing left to write after disconnect: the orderly way out
        }
        const std::size_t chunk = std::min(batchLength - batchWritten, kWriteChunkSize);
        const ssize_t written = ::send(descriptor, batch + batchWritten, chunk, MSG_NOSIGNAL);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 1) {
            if (written < 0) {
                const int error = errno;
                PZLog("PZSocket: write error: " + systemErrorText(error));
                if (tcpSocket_.load() >= 0) { // a failure caused by our own close() is not the peer's
                    postError(PZError("PZSocket", 2, systemErrorText(error)));
                }
            }
            break;
        }
        batchWritten += static_cast<std::size_t>(written);
    }
    writerEnded_ = true;
    if (::shutdown(descriptor, SHUT_WR) == 0) {
        PZLog("PZSocket: shutdown write");
    }
    {
        // What is still queued can never be written.
        std::lock_guard<std::mutex> lock(wMutex_);
        bytesToSend_.deQueueBy(bytesToSend_.length());
        bytesToSend_.releaseUnusedMemory();
    }
    streamClosed();
    PZLog("PZSocket thread 2 ------------------------- write");
}

void PZSocket::streamClosed() {
    int toClose = -1;
    bool last = false;
    {
        std::lock_guard<std::mutex> lock(monitor_);
        last = --streams_ <= 0;
        if (--descriptorUsers_ == 0 && deferredClose_ >= 0) {
            toClose = std::exchange(deferredClose_, -1);
        }
    }
    if (toClose >= 0) {
        ::close(toClose);
    }
    if (last) {
        close();
    }
}
