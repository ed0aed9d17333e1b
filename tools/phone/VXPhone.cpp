#include "phone/VXPhone.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "protocol/VXCommand.h"
#include "protocol/VXInfo.h"
#include "protocol/VXProcess.h"
#include "protocol/VXRequest.h"
#include "transport/PZException.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadChunk = 64 * 1024;

int remainingMilliseconds(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(std::min<long long>(left, 1 << 30));
}

// Connects fd to address within deadline; returns 0 or an errno value.
int connectWithin(int fd, const sockaddr* address, socklen_t length, Clock::time_point deadline) {
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    int error = 0;
    if (::connect(fd, address, length) != 0) {
        error = errno;
        if (error == EINPROGRESS) {
            pollfd waiter{fd, POLLOUT, 0};
            int ready = 0;
            do {
                ready = poll(&waiter, 1, remainingMilliseconds(deadline));
            } while (ready < 0 && errno == EINTR);
            if (ready <= 0) {
                error = ready == 0 ? ETIMEDOUT : errno;
            } else {
                socklen_t size = sizeof error;
                getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
            }
        }
    }
    fcntl(fd, F_SETFL, flags);
    return error;
}

} // namespace

VXPhone::VXPhone(int fd) : fd_(fd) {}

VXPhone::~VXPhone() {
    close();
}

std::unique_ptr<VXPhone> VXPhone::connect(const std::string& host, int port, Milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(port);
    const int lookup = getaddrinfo(host.c_str(), service.c_str(), &hints, &found);
    if (lookup != 0 || found == nullptr) {
        throw PZException("VXPhone connect", "cannot resolve " + host + ": " + gai_strerror(lookup));
    }
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(found, &freeaddrinfo);
    int error = 0;
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        const int fd = socket(entry->ai_family, entry->ai_socktype | SOCK_CLOEXEC, entry->ai_protocol);
        if (fd < 0) {
            error = errno;
            continue;
        }
        error = connectWithin(fd, entry->ai_addr, entry->ai_addrlen, deadline);
        if (error == 0) {
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            return std::unique_ptr<VXPhone>(new VXPhone(fd));
        }
        ::close(fd);
    }
    throw PZException("VXPhone connect",
                      "cannot connect to " + host + " port " + service + ": " + std::strerror(error));
}

bool VXPhone::send(const VXTranslationProtocol& message) {
    if (encoding_ == Encoding::JSON) {
        const auto data = message.getJSONData();
        return !data.empty() && sendRaw(data);
    }
    const auto data = message.getXMLData();
    return data && !data->empty() && sendRaw(*data);
}

bool VXPhone::sendRequest(const std::string& type, std::optional<std::string> text,
                          std::optional<PZDictionary> arguments) {
    return send(VXRequest(type, std::move(text), std::move(arguments)));
}

bool VXPhone::sendCommand(const std::string& type, std::optional<std::string> instruction, std::int64_t pid,
                          std::optional<std::string> processName) {
    return send(VXCommand(type, VXProcess(std::move(processName), pid), std::move(instruction)));
}

bool VXPhone::sendRaw(std::string_view bytes) {
    return sendRaw(
        std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

bool VXPhone::sendRaw(std::span<const std::uint8_t> bytes) {
    if (fd_ < 0 || state_ == State::Failed) {
        return false;
    }
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const auto n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            state_ = State::Failed;
            failure_ = std::string("write failed: ") + std::strerror(errno);
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

std::optional<std::vector<std::uint8_t>> VXPhone::readChunk(Milliseconds timeout) {
    if (fd_ < 0 || state_ != State::Open) {
        return std::nullopt;
    }
    const auto deadline = Clock::now() + timeout;
    while (true) {
        pollfd waiter{fd_, POLLIN, 0};
        const int ready = poll(&waiter, 1, remainingMilliseconds(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return std::nullopt;
        }
        std::vector<std::uint8_t> chunk(kReadChunk);
        const auto n = ::recv(fd_, chunk.data(), chunk.size(), 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            state_ = State::Failed;
            failure_ = std::string("read failed: ") + std::strerror(errno);
            return std::nullopt;
        }
        if (n == 0) {
            state_ = State::Closed;
            return std::nullopt;
        }
        chunk.resize(static_cast<std::size_t>(n));
        return chunk;
    }
}

bool VXPhone::readMore(Milliseconds timeout) {
    auto chunk = readChunk(timeout);
    if (!chunk) {
        return false;
    }
    for (auto& message : decoder_.decode(*chunk)) {
        pending_.push_back(std::move(message));
    }
    if (decoder_.failed() && state_ == State::Open) {
        state_ = State::Failed;
        failure_ = "undecodable bytes from the server: " + decoder_.error();
    }
    return true;
}

std::optional<VXPhoneMessage> VXPhone::receive(Milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (pending_.empty()) {
        if (!readMore(Milliseconds(remainingMilliseconds(deadline)))) {
            break;
        }
    }
    if (pending_.empty()) {
        return std::nullopt;
    }
    auto message = std::move(pending_.front());
    pending_.pop_front();
    return message;
}

std::optional<VXPhoneMessage>
VXPhone::receiveMatching(const std::function<bool(const VXPhoneMessage&)>& match, Milliseconds timeout,
                         std::vector<VXPhoneMessage>* skipped) {
    const auto deadline = Clock::now() + timeout;
    while (true) {
        auto message = receive(Milliseconds(remainingMilliseconds(deadline)));
        if (!message) {
            return std::nullopt;
        }
        if (match(*message)) {
            return message;
        }
        if (skipped != nullptr) {
            skipped->push_back(std::move(*message));
        }
    }
}

std::vector<VXPhoneMessage> VXPhone::receiveFor(Milliseconds duration) {
    const auto deadline = Clock::now() + duration;
    std::vector<VXPhoneMessage> messages;
    while (Clock::now() < deadline) {
        auto message = receive(Milliseconds(remainingMilliseconds(deadline)));
        if (!message) {
            if (state_ != State::Open) {
                break;
            }
            continue;
        }
        messages.push_back(std::move(*message));
    }
    return messages;
}

std::optional<std::vector<std::uint8_t>> VXPhone::receiveRaw(Milliseconds timeout) {
    return readChunk(timeout);
}

bool VXPhone::waitClosed(Milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (state_ == State::Open && Clock::now() < deadline) {
        readChunk(Milliseconds(remainingMilliseconds(deadline)));
    }
    return state_ != State::Open;
}

void VXPhone::shutdownWrite() {
    if (fd_ >= 0) {
        ::shutdown(fd_, SHUT_WR);
    }
}

void VXPhone::close() {
    if (fd_ >= 0) {
        ::shutdown(fd_, SHUT_RDWR);
        ::close(fd_);
        fd_ = -1;
        if (state_ == State::Open) {
            state_ = State::Closed;
        }
    }
}

bool VXPhone::answerHandshakeRequest(const VXPhoneMessage& message, const Identity& identity,
                                     bool& sawPassword) {
    if (message.type == "password") {
        if (sawPassword) {
            throw PZException("VXPhone handshake", "wrong password");
        }
        if (!identity.password) {
            throw PZException("VXPhone handshake", "password required");
        }
        sawPassword = true;
        return send(VXInfo("password", identity.password));
    }
    if (message.type != "info") {
        return true;
    }
    const auto subject = message.string("text").value_or("");
    if (subject == "protocol") {
        return send(VXInfo(subject, identity.encoding == Encoding::JSON ? "json" : "xml"));
    }
    if (subject == "app") {
        return send(VXInfo(subject, identity.app));
    }
    if (subject == "version") {
        return send(VXInfo(subject, identity.version));
    }
    if (subject == "os") {
        return send(VXInfo(subject, identity.os));
    }
    if (subject == "device") {
        // The server settles the encoding once it has both the phone's "os" request and its "device"
        // answer; the device answer goes last, and everything after it in the new encoding.
        if (identity.sendOSRequest && !sendRequest("info", "os")) {
            return false;
        }
        if (!send(VXInfo(subject, identity.device))) {
            return false;
        }
        encoding_ = identity.encoding;
        return sendRequest("info", "protocol");
    }
    return true;
}

std::vector<VXPhoneMessage> VXPhone::handshake(const Identity& identity, Milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    auto& received = handshakeMessages_;
    received.clear();
    bool sawPassword = false;
    bool sentDevice = false;
    while (true) {
        auto message = receive(Milliseconds(remainingMilliseconds(deadline)));
        if (!message) {
            throw PZException("VXPhone handshake", state_ == State::Open ? "timed out" : "connection lost");
        }
        received.push_back(*message);
        if (message->isError()) {
            const auto text = message->string("message").value_or("");
            throw PZException("VXPhone handshake", text == "CLIENT_IS_NOT_COMPATIBLE_ERROR"
                                                       ? "incompatible: " + text
                                                       : "error: " + text);
        }
        if (message->kind == "request") {
            sentDevice = sentDevice || (message->type == "info" && message->string("text") == "device");
            if (!answerHandshakeRequest(*message, identity, sawPassword)) {
                throw PZException("VXPhone handshake", "connection lost");
            }
        } else if (sentDevice && message->isInfo("protocol")) {
            return received;
        }
    }
}
