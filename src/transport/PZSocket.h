#pragma once

#include "transport/PZBackgroundObject.h"
#include "transport/PZByteQueue.h"
#include "transport/PZError.h"
#include "transport/PZSocketDelegate.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

// One TCP connection (IPv4) with a reader thread and a writer thread. Received bytes, errors and the end
// of the connection go to the delegate through the invocation queue, on the thread whose run loop
// carries this object's source. Create it with std::make_shared; both threads keep it alive while they run.
class PZSocket : public PZBackgroundObject {
public:
    // A socket address as bytes: a 16-byte sockaddr_in (family AF_INET, port and address in network order).
    using Address = std::vector<std::uint8_t>;

    // Text of the error returned by a connect on an object that is no longer valid.
    static const std::string kConnectionOnInvalidSocketErrorMessage;
    // Text of the error returned when the host name cannot be resolved.
    static const std::string kImpossibleToResolveHostNameSocketErrorMessage;

    // A socket without a descriptor, ready to connect.
    PZSocket();
    // Adopts a connected descriptor (an accepted one); address is the peer's, or none to ask the descriptor.
    // The threads start with start(), after the delegate is set and the object is scheduled.
    PZSocket(int descriptor, std::optional<Address> address);
    ~PZSocket() override;

    // Makes a fresh descriptor; an error (domain "PZSocketDomain", code errno) when none can be made.
    std::optional<PZError> createSocket();
    // Resolves host and connects to its addresses in turn on a new thread; an error only when none starts.
    std::optional<PZError> connectToHostPort(const std::string& host, std::uint16_t port);
    // Connects to one address on a new thread; an error only when the object is no longer valid.
    std::optional<PZError> connectToAddress(const Address& address);
    // Connects to a resolved service's addresses in turn on a new thread (an empty list posts an error).
    std::optional<PZError> connectToNetService(const std::vector<Address>& addresses);
    // Starts the reader and writer threads on an adopted descriptor; throws PZException if invalid.
    void start();

    // Whether there is a descriptor and at least one direction is open.
    bool connected() const;
    // The peer's dotted-quad address, or "Unknown".
    std::string getRemoteStringAddress() const;
    // Queues bytes for the writer thread; ignored after disconnect() (any thread).
    void sendData(std::span<const std::uint8_t> data);
    // Lets the writer write what is queued, then shuts the write direction down (any thread).
    void disconnect();
    // Ends both directions at once; the descriptor is closed once no thread uses it (any thread).
    void close();
    // As close(), dropping the bytes not yet written; the writer thread ends promptly (any thread).
    void hardClose();

    // The descriptor, or -1.
    int tcpSocket() const { return tcpSocket_.load(); }
    // The peer's socket address, if known.
    std::optional<Address> serverAddress() const;
    // The delegate (never owned).
    std::weak_ptr<PZSocketDelegate> delegate() const;
    // Sets the delegate (never owned); messages already queued keep the one they were made for.
    void setDelegate(std::weak_ptr<PZSocketDelegate> delegate);

private:
    void setOptions(int descriptor);
    void tryToConnect(const std::vector<Address>& addresses);
    void startThreadsLocked();
    void readBytesFromSocket(int descriptor);
    void writeBytesToSocket(int descriptor);
    void streamClosed();
    void wakeWriter();
    void postError(PZError error);
    template <typename F> void postToDelegate(F&& fn);

    std::atomic<int> tcpSocket_{-1};
    Address serverAddress_; // empty when unknown; guarded by monitor_
    std::atomic<std::int16_t> streams_{0};
    std::atomic<bool> isGoingToClose_{false};
    std::mutex wMutex_; // with wCondition_, guards bytesToSend_
    std::condition_variable wCondition_;
    PZByteQueue bytesToSend_;
    mutable std::mutex delegateMutex_;
    std::weak_ptr<PZSocketDelegate> delegate_;

    // The object's monitor: streams_, isGoingToClose_ changes, the entry of the public operations, and
    // the descriptor's lifetime below.
    mutable std::mutex monitor_;
    int descriptorUsers_ = 0; // reader and writer threads still using the descriptor
    int deferredClose_ = -1;  // a descriptor closed by close() while a thread still used it
    bool threadsStarted_ = false;
    bool disconnectPosted_ = false;
    std::atomic<bool> writerEnded_{false};

    // Bytes read but not yet handed to the delegate: the reader waits while there are too many, so a
    // peer that sends faster than the owner's thread takes the data is slowed down by TCP itself.
    struct Undelivered;
    std::shared_ptr<Undelivered> undelivered_;
};
