#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

// A message to a target that is performed later, usually on another thread. It holds only a weak
// reference to its target: when the target is gone by then, performing it does nothing.
class PZInvocation {
public:
    // An invocation calling fn(target) later, or none when target is already gone.
    template <typename T, typename F>
    static std::optional<PZInvocation> invocationWithTarget(const std::weak_ptr<T>& target, F&& fn) {
        if (target.expired()) {
            return std::nullopt;
        }
        return PZInvocation([weak = target, fn = std::forward<F>(fn)]() mutable {
            if (auto strong = weak.lock()) {
                fn(*strong);
            }
        });
    }
    // As above, from a shared reference (only a weak one is kept).
    template <typename T, typename F>
    static std::optional<PZInvocation> invocationWithTarget(const std::shared_ptr<T>& target, F&& fn) {
        return invocationWithTarget(std::weak_ptr<T>(target), std::forward<F>(fn));
    }

    // Performs the message if its target still exists.
    void invoke() { body_(); }

private:
    explicit PZInvocation(std::function<void()> body) : body_(std::move(body)) {}

    std::function<void()> body_;
};
