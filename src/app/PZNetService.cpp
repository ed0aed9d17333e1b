#include "app/PZNetService.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/thread-watch.h>
#include <avahi-common/timeval.h>

#include "transport/PZLogger.h"

namespace {

// How long to wait before making a new client after the old one failed for good.
constexpr unsigned kRetryMilliseconds = 1000;

} // namespace

void PZNetService::PollDeleter::operator()(AvahiThreadedPoll* poll) const {
    avahi_threaded_poll_free(poll);
}

void PZNetService::ClientDeleter::operator()(AvahiClient* client) const {
    avahi_client_free(client);
}

void PZNetService::GroupDeleter::operator()(AvahiEntryGroup* group) const {
    avahi_entry_group_free(group);
}

PZNetService::PZNetService(std::string type, std::string name, int port)
    : type_(std::move(type)), port_(port), name_(std::move(name)) {}

PZNetService::~PZNetService() {
    stop();
}

bool PZNetService::publish() {
    if (poll_) {
        return true;
    }
    poll_.reset(avahi_threaded_poll_new());
    if (!poll_) {
        PZLog("DNS-SD: Avahi's event thread could not be made; the service is not advertised");
        return false;
    }
    // Nothing else runs on the poll yet: the client is made before its thread starts.
    connectClient();
    if (avahi_threaded_poll_start(poll_.get()) < 0) {
        PZLog("DNS-SD: Avahi's event thread could not be started; the service is not advertised");
        client_.reset();
        poll_.reset();
        return false;
    }
    return true;
}

void PZNetService::stop() {
    if (!poll_) {
        return;
    }
    avahi_threaded_poll_stop(poll_.get());
    group_.reset();
    client_.reset();
    retry_ = nullptr; // freed with the poll
    poll_.reset();
    setPublishedName({});
}

std::string PZNetService::publishedName() const {
    std::lock_guard lock(publishedMutex_);
    return publishedName_;
}

void PZNetService::setPublishedName(std::string name) {
    std::lock_guard lock(publishedMutex_);
    publishedName_ = std::move(name);
}

void PZNetService::connectClient() {
    int error = 0;
    // AVAHI_CLIENT_NO_FAIL: without a daemon the client waits in the connecting state for one to appear.
    client_.reset(avahi_client_new(
        avahi_threaded_poll_get(poll_.get()), AVAHI_CLIENT_NO_FAIL,
        [](AvahiClient* client, AvahiClientState state, void* userdata) {
            clientCallback(client, static_cast<int>(state), userdata);
        },
        this, &error));
    if (!client_) {
        if (!waitingLogged_) {
            PZLog(std::string("DNS-SD: cannot reach the Avahi daemon (") + avahi_strerror(error) +
                  "); serving without advertisement until it can be reached");
            waitingLogged_ = true;
        }
        scheduleRetry(kRetryMilliseconds);
    }
}

void PZNetService::scheduleRetry(unsigned milliseconds) {
    const AvahiPoll* api = avahi_threaded_poll_get(poll_.get());
    timeval when{};
    avahi_elapse_time(&when, milliseconds, 0);
    if (retry_ != nullptr) {
        api->timeout_update(retry_, &when);
    } else {
        retry_ = api->timeout_new(api, &when, &PZNetService::retryCallback, this);
    }
}

void PZNetService::retryCallback(AvahiTimeout* timeout, void* userdata) {
    auto* self = static_cast<PZNetService*>(userdata);
    const AvahiPoll* api = avahi_threaded_poll_get(self->poll_.get());
    api->timeout_update(timeout, nullptr); // disarmed until needed again
    self->group_.reset();
    self->client_.reset();
    self->connectClient();
}

void PZNetService::clientCallback(AvahiClient* client, int state, void* userdata) {
    static_cast<PZNetService*>(userdata)->clientStateChanged(client, state);
}

void PZNetService::clientStateChanged(AvahiClient* client, int state) {
    switch (static_cast<AvahiClientState>(state)) {
    case AVAHI_CLIENT_S_RUNNING:
        waitingLogged_ = false;
        registerService(client);
        break;
    case AVAHI_CLIENT_S_COLLISION:
    case AVAHI_CLIENT_S_REGISTERING:
        // The host's own name is being (re)established: withdraw until the server runs again.
        if (group_) {
            avahi_entry_group_reset(group_.get());
        }
        setPublishedName({});
        break;
    case AVAHI_CLIENT_CONNECTING:
        // No daemon (yet, or any more): the old group died with the connection.
        group_.reset();
        setPublishedName({});
        if (!waitingLogged_) {
            PZLog("DNS-SD: the Avahi daemon is not running; serving without advertisement until it starts");
            waitingLogged_ = true;
        }
        break;
    case AVAHI_CLIENT_FAILURE:
        setPublishedName({});
        if (avahi_client_errno(client) != AVAHI_ERR_DISCONNECTED) {
            PZLog(std::string("DNS-SD: Avahi client failure: ") + avahi_strerror(avahi_client_errno(client)));
        }
        // The client is replaced from the poll's timer, not from inside its own callback.
        scheduleRetry(kRetryMilliseconds);
        break;
    }
}

void PZNetService::registerService(AvahiClient* client) {
    if (!group_) {
        group_.reset(avahi_entry_group_new(
            client,
            [](AvahiEntryGroup* group, AvahiEntryGroupState state, void* userdata) {
                groupCallback(group, static_cast<int>(state), userdata);
            },
            this));
        if (!group_) {
            PZLog(std::string("DNS-SD: cannot make an entry group: ") +
                  avahi_strerror(avahi_client_errno(client)));
            return;
        }
    }
    if (!avahi_entry_group_is_empty(group_.get())) {
        return;
    }
    if (name_.empty()) {
        const char* host = avahi_client_get_host_name(client);
        name_ = host != nullptr ? host : "VelorixHelper";
    }
    while (true) {
        const int result = avahi_entry_group_add_service(
            group_.get(), AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags(0), name_.c_str(),
            type_.c_str(), nullptr, nullptr, static_cast<std::uint16_t>(port_), nullptr);
        if (result == AVAHI_ERR_COLLISION) {
            // Another service of this machine holds the name.
            char* alternative = avahi_alternative_service_name(name_.c_str());
            name_ = alternative;
            avahi_free(alternative);
            continue;
        }
        if (result < 0) {
            PZLog(std::string("DNS-SD: cannot add the service: ") + avahi_strerror(result));
            return;
        }
        break;
    }
    const int committed = avahi_entry_group_commit(group_.get());
    if (committed < 0) {
        PZLog(std::string("DNS-SD: cannot publish the service: ") + avahi_strerror(committed));
    }
}

void PZNetService::groupCallback(AvahiEntryGroup* group, int state, void* userdata) {
    static_cast<PZNetService*>(userdata)->groupStateChanged(group, state);
}

void PZNetService::groupStateChanged(AvahiEntryGroup* group, int state) {
    switch (static_cast<AvahiEntryGroupState>(state)) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
        setPublishedName(name_);
        PZLog("DNS-SD: published \"" + name_ + "\" as " + type_ + " on port " + std::to_string(port_));
        break;
    case AVAHI_ENTRY_GROUP_COLLISION: {
        // Another host on the network holds the name: take the alternative and publish again.
        char* alternative = avahi_alternative_service_name(name_.c_str());
        PZLog("DNS-SD: the name \"" + name_ + "\" is taken; publishing as \"" + alternative + "\"");
        name_ = alternative;
        avahi_free(alternative);
        setPublishedName({});
        avahi_entry_group_reset(group);
        registerService(avahi_entry_group_get_client(group));
        break;
    }
    case AVAHI_ENTRY_GROUP_FAILURE:
        setPublishedName({});
        PZLog(std::string("DNS-SD: publication failed: ") +
              avahi_strerror(avahi_client_errno(avahi_entry_group_get_client(group))));
        break;
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING:
        break;
    }
}
