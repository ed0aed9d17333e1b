#include "sysinfo/linux/PulseAudioOutput.h"

#include "transport/PZLogger.h"

#include <pulse/pulseaudio.h>

#include <cmath>
#include <vector>

namespace {

struct MainloopDeleter {
    void operator()(pa_threaded_mainloop* loop) const {
        pa_threaded_mainloop_stop(loop);
        pa_threaded_mainloop_free(loop);
    }
};
struct ContextDeleter {
    void operator()(pa_context* context) const {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};
struct OperationDeleter {
    void operator()(pa_operation* operation) const { pa_operation_unref(operation); }
};
using OperationPointer = std::unique_ptr<pa_operation, OperationDeleter>;

// Connecting to an absent server fails at once; a server that accepts but never answers is given this long.
constexpr auto connectTimeout = std::chrono::seconds(2);

} // namespace

struct PulseAudioOutput::SinkState {
    std::uint32_t index = 0;
    pa_cvolume volume{};
    bool muted = false;
};

// The mainloop thread and the context on it. Every call from outside holds the mainloop's lock.
struct PulseAudioOutput::Connection {
    std::unique_ptr<pa_threaded_mainloop, MainloopDeleter> loop;
    std::unique_ptr<pa_context, ContextDeleter> context;

    // Stops the thread before the context goes (the members would go the other way round).
    ~Connection() {
        if (loop) {
            pa_threaded_mainloop_stop(loop.get());
        }
        if (context) {
            pa_context_set_state_callback(context.get(), nullptr, nullptr);
        }
        context.reset();
        loop.reset();
    }

    bool usable() {
        const pa_context_state_t state = pa_context_get_state(context.get());
        return state == PA_CONTEXT_READY;
    }

    // Waits (the lock held, released while waiting) until the operation is done; false when it
    // was cancelled, for example because the server went away.
    bool wait(pa_operation* operation) {
        if (operation == nullptr) {
            return false;
        }
        OperationPointer owned(operation);
        while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING) {
            pa_threaded_mainloop_wait(loop.get());
        }
        return pa_operation_get_state(operation) == PA_OPERATION_DONE;
    }
};

namespace {

class LoopLock {
public:
    explicit LoopLock(pa_threaded_mainloop* loop) : loop_(loop) { pa_threaded_mainloop_lock(loop_); }
    ~LoopLock() { pa_threaded_mainloop_unlock(loop_); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pa_threaded_mainloop* loop_;
};

// What a request's callbacks fill in; they signal the waiting caller through the mainloop.
struct Request {
    pa_threaded_mainloop* loop = nullptr;
    bool ok = false;
    std::string defaultSink;
    std::optional<std::uint32_t> index;
    pa_cvolume volume{};
    bool muted = false;
};

void signalState(pa_context*, void* userData) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(userData), 0);
}

void serverInfoReceived(pa_context*, const pa_server_info* info, void* userData) {
    auto* request = static_cast<Request*>(userData);
    if (info != nullptr && info->default_sink_name != nullptr) {
        request->defaultSink = info->default_sink_name;
        request->ok = true;
    }
    pa_threaded_mainloop_signal(request->loop, 0);
}

void sinkInfoReceived(pa_context*, const pa_sink_info* info, int eol, void* userData) {
    auto* request = static_cast<Request*>(userData);
    if (eol == 0 && info != nullptr) {
        request->index = info->index;
        request->volume = info->volume;
        request->muted = info->mute != 0;
        request->ok = true;
    }
    pa_threaded_mainloop_signal(request->loop, 0);
}

void successReceived(pa_context*, int success, void* userData) {
    auto* request = static_cast<Request*>(userData);
    request->ok = success != 0;
    pa_threaded_mainloop_signal(request->loop, 0);
}

} // namespace

PulseAudioOutput::PulseAudioOutput(std::string server) : server_(std::move(server)) {}

PulseAudioOutput::~PulseAudioOutput() {
    std::lock_guard<std::mutex> lock(mutex_);
    connection_.reset();
}

PulseAudioOutput::Connection* PulseAudioOutput::connection() {
    if (connection_) {
        bool ready = false;
        {
            LoopLock lock(connection_->loop.get());
            ready = connection_->usable();
        }
        if (ready) {
            return connection_.get();
        }
        // The server went away (or restarted): a context cannot reconnect, a new one is made.
        connection_.reset();
        attempted_ = false;
    }
    const auto now = std::chrono::steady_clock::now();
    if (attempted_ && now - lastAttempt_ < retryInterval_) {
        return nullptr;
    }
    attempted_ = true;
    lastAttempt_ = now;

    auto made = std::make_unique<Connection>();
    made->loop.reset(pa_threaded_mainloop_new());
    if (!made->loop) {
        return nullptr;
    }
    pa_threaded_mainloop_set_name(made->loop.get(), "pulse-volume");
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "VelorixHelper");
    made->context.reset(pa_context_new_with_proplist(pa_threaded_mainloop_get_api(made->loop.get()),
                                                     "VelorixHelper", properties));
    pa_proplist_free(properties);
    if (!made->context) {
        return nullptr;
    }
    pa_context_set_state_callback(made->context.get(), signalState, made->loop.get());
    bool ready = false;
    if (pa_threaded_mainloop_start(made->loop.get()) == 0) {
        LoopLock lock(made->loop.get());
        // Never start a sound server of our own: use the one that runs, or none.
        if (pa_context_connect(made->context.get(), server_.empty() ? nullptr : server_.c_str(),
                               PA_CONTEXT_NOAUTOSPAWN, nullptr) == 0) {
            const auto deadline = std::chrono::steady_clock::now() + connectTimeout;
            for (;;) {
                const pa_context_state_t state = pa_context_get_state(made->context.get());
                if (state == PA_CONTEXT_READY) {
                    ready = true;
                    break;
                }
                if (!PA_CONTEXT_IS_GOOD(state) || std::chrono::steady_clock::now() >= deadline) {
                    break;
                }
                pa_threaded_mainloop_wait(made->loop.get());
            }
        }
    }
    if (!ready) {
        if (!absenceLogged_) {
            PZLog("Volume: no audio server answers" + (server_.empty() ? std::string() : " at " + server_) +
                  "; will try again on a later use");
            absenceLogged_ = true;
        }
        return nullptr;
    }
    if (absenceLogged_) {
        PZLog("Volume: connected to the audio server");
        absenceLogged_ = false;
    }
    connection_ = std::move(made);
    return connection_.get();
}

std::uint32_t PulseAudioOutput::defaultOutputDevice() {
    std::lock_guard<std::mutex> lock(mutex_);
    Connection* current = connection();
    if (current == nullptr) {
        return 0;
    }
    LoopLock loopLock(current->loop.get());
    Request server;
    server.loop = current->loop.get();
    if (!current->wait(pa_context_get_server_info(current->context.get(), serverInfoReceived, &server)) ||
        !server.ok || server.defaultSink.empty()) {
        return 0;
    }
    Request sinkRequest;
    sinkRequest.loop = current->loop.get();
    if (!current->wait(pa_context_get_sink_info_by_name(current->context.get(), server.defaultSink.c_str(),
                                                        sinkInfoReceived, &sinkRequest)) ||
        !sinkRequest.index) {
        return 0;
    }
    return *sinkRequest.index + 1;
}

std::optional<PulseAudioOutput::SinkState> PulseAudioOutput::sink(std::uint32_t device) {
    if (device == 0) {
        return std::nullopt;
    }
    Connection* current = connection();
    if (current == nullptr) {
        return std::nullopt;
    }
    LoopLock loopLock(current->loop.get());
    Request request;
    request.loop = current->loop.get();
    if (!current->wait(pa_context_get_sink_info_by_index(current->context.get(), device - 1, sinkInfoReceived,
                                                         &request)) ||
        !request.index) {
        return std::nullopt;
    }
    return SinkState{*request.index, request.volume, request.muted};
}

std::optional<float> PulseAudioOutput::volume(std::uint32_t device) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto state = sink(device);
    if (!state || !pa_cvolume_valid(&state->volume)) {
        return std::nullopt;
    }
    return static_cast<float>(static_cast<double>(pa_cvolume_avg(&state->volume)) / PA_VOLUME_NORM);
}

std::optional<bool> PulseAudioOutput::muted(std::uint32_t device) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto state = sink(device);
    return state ? std::optional<bool>(state->muted) : std::nullopt;
}

bool PulseAudioOutput::canSetVolume(std::uint32_t device) {
    // Every sink has a volume (in software where the hardware has none).
    std::lock_guard<std::mutex> lock(mutex_);
    return sink(device).has_value();
}

bool PulseAudioOutput::canSetMute(std::uint32_t device) {
    std::lock_guard<std::mutex> lock(mutex_);
    return sink(device).has_value();
}

bool PulseAudioOutput::setVolume(std::uint32_t device, float volume) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto state = sink(device);
    if (!state || !(volume >= 0.0f && volume <= 1.0f)) {
        return false;
    }
    pa_cvolume levels = state->volume;
    const auto level = static_cast<pa_volume_t>(std::lround(static_cast<double>(volume) * PA_VOLUME_NORM));
    pa_cvolume_set(&levels, levels.channels == 0 ? 1 : levels.channels, level);
    Connection* current = connection_.get();
    LoopLock loopLock(current->loop.get());
    Request request;
    request.loop = current->loop.get();
    return current->wait(pa_context_set_sink_volume_by_index(current->context.get(), state->index, &levels,
                                                             successReceived, &request)) &&
           request.ok;
}

bool PulseAudioOutput::setMute(std::uint32_t device, bool muted) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto state = sink(device);
    if (!state) {
        return false;
    }
    Connection* current = connection_.get();
    LoopLock loopLock(current->loop.get());
    Request request;
    request.loop = current->loop.get();
    return current->wait(pa_context_set_sink_mute_by_index(current->context.get(), state->index,
                                                           muted ? 1 : 0, successReceived, &request)) &&
           request.ok;
}
