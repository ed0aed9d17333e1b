#include "platform/qt/PZQtRunLoopBridge.h"

#include "transport/PZException.h"

#include <QSocketNotifier>
#include <QTimer>

#include <chrono>

PZQtRunLoopBridge::PZQtRunLoopBridge(std::shared_ptr<PZRunLoop> loop) : loop_(std::move(loop)) {
    if (!loop_ || !loop_->isCurrent()) {
        throw PZException("PZQtRunLoopBridge", "A run loop is bridged on its own thread only");
    }
    notifier_ = std::make_unique<QSocketNotifier>(loop_->wakeDescriptor(), QSocketNotifier::Read);
    QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] { process(); });
    timer_ = std::make_unique<QTimer>();
    timer_->setSingleShot(true);
    timer_->setTimerType(Qt::PreciseTimer);
    QObject::connect(timer_.get(), &QTimer::timeout, [this] { process(); });
    // Work queued before the bridge existed is picked up at the first turn of Qt's loop.
    QTimer::singleShot(0, timer_.get(), [this] { process(); });
}

PZQtRunLoopBridge::~PZQtRunLoopBridge() = default;

void PZQtRunLoopBridge::process() {
    try {
        loop_->processDue();
    } catch (...) {
        rearm();
        throw;
    }
    rearm();
}

void PZQtRunLoopBridge::rearm() {
    const auto deadline = loop_->nextTimerDeadline();
    if (!deadline) {
        timer_->stop();
        return;
    }
    // Rounded up: a timer woken early would find nothing due and spin until the deadline.
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*deadline - PZRunLoop::Clock::now());
    timer_->start(std::max<std::chrono::milliseconds::rep>(wait.count(), 0));
}
