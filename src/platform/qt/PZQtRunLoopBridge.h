#pragma once

#include "transport/PZRunLoop.h"

#include <memory>

class QSocketNotifier;
class QTimer;

// Runs a PZRunLoop inside Qt's event loop on the same thread: Qt watches the loop's wake descriptor and
// keeps a single-shot timer for the loop's next timer deadline, and the loop handles what is due each
// time either fires. Make it on the loop's thread once a Qt application object exists.
class PZQtRunLoopBridge {
public:
    // Bridges loop (the main thread's run loop by default); throws PZException off the loop's thread.
    explicit PZQtRunLoopBridge(std::shared_ptr<PZRunLoop> loop = PZRunLoop::main());
    ~PZQtRunLoopBridge();
    PZQtRunLoopBridge(const PZQtRunLoopBridge&) = delete;
    PZQtRunLoopBridge& operator=(const PZQtRunLoopBridge&) = delete;

    // Handles what the loop has due now, then re-arms the deadline timer.
    void process();

private:
    void rearm();

    std::shared_ptr<PZRunLoop> loop_;
    std::unique_ptr<QSocketNotifier> notifier_;
    std::unique_ptr<QTimer> timer_;
};
