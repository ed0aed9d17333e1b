#pragma once

#include <memory>
#include <mutex>
#include <string>

struct AvahiClient;
struct AvahiEntryGroup;
struct AvahiThreadedPoll;
struct AvahiTimeout;

// A DNS-SD advertisement of one TCP service through the Avahi daemon. Publication runs on a thread
// of its own (Avahi's threaded poll), so it never delays the caller. Without a running daemon it logs
// one line and publishes as soon as the daemon appears, also after the daemon restarts; a name taken
// by another host is replaced by Avahi's alternative name.
class PZNetService {
public:
    // The service type the application advertises.
    static constexpr const char* kServerType = "_VelorixServer._tcp";

    // A service of type named name (empty: the host's name) on port, not yet published.
    PZNetService(std::string type, std::string name, int port);
    // Stops the publication.
    ~PZNetService();
    PZNetService(const PZNetService&) = delete;
    PZNetService& operator=(const PZNetService&) = delete;

    // Starts publishing (returns at once); false when Avahi's thread could not be started.
    bool publish();
    // Withdraws the advertisement and ends Avahi's thread; publish may be called again after it.
    void stop();

    // The name the service is registered under once the daemon confirmed it, else empty (any thread).
    std::string publishedName() const;
    // The port advertised.
    int port() const { return port_; }

private:
    struct PollDeleter {
        void operator()(AvahiThreadedPoll* poll) const;
    };
    struct ClientDeleter {
        void operator()(AvahiClient* client) const;
    };
    struct GroupDeleter {
        void operator()(AvahiEntryGroup* group) const;
    };

    static void clientCallback(AvahiClient* client, int state, void* userdata);
    static void groupCallback(AvahiEntryGroup* group, int state, void* userdata);
    static void retryCallback(AvahiTimeout* timeout, void* userdata);

    // The following run on Avahi's thread (or with its lock held).
    void connectClient();
    void clientStateChanged(AvahiClient* client, int state);
    void groupStateChanged(AvahiEntryGroup* group, int state);
    void registerService(AvahiClient* client);
    void scheduleRetry(unsigned milliseconds);
    void setPublishedName(std::string name);

    const std::string type_;
    const int port_;
    std::string name_; // the name asked for (changed on collisions)
    bool waitingLogged_ = false;

    std::unique_ptr<AvahiThreadedPoll, PollDeleter> poll_;
    std::unique_ptr<AvahiClient, ClientDeleter> client_;
    std::unique_ptr<AvahiEntryGroup, GroupDeleter> group_;
    AvahiTimeout* retry_ = nullptr; // owned by the poll

    mutable std::mutex publishedMutex_;
    std::string publishedName_;
};
