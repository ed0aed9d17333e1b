// The process-wide mouse and executor. They live here rather than beside their classes because they
// need the probed Linux back ends, and the logic library builds without any of them.
#include "input/PZMouse.h"
#include "input/VXCommandExecute.h"
#include "input/linux/InputBackendProbe.h"

#include <mutex>

std::shared_ptr<PZMouse> PZMouse::sharedMouse() {
    static std::mutex mutex;
    static std::shared_ptr<PZMouse> mouse;
    std::lock_guard<std::mutex> lock(mutex);
    if (!mouse) {
        mouse = std::make_shared<PZMouse>(InputBackendProbe::shared().eventPoster);
    }
    return mouse;
}

std::shared_ptr<VXCommandExecute> VXCommandExecute::sharedCommandExecute() {
    static std::mutex mutex;
    static std::shared_ptr<VXCommandExecute> executor;
    std::lock_guard<std::mutex> lock(mutex);
    if (!executor) {
        VXCommandExecute::Backends backends = InputBackendProbe::shared();
        backends.mouse = PZMouse::sharedMouse();
        executor = create(std::move(backends));
    }
    return executor;
}
