#pragma once

#include <mutex>

namespace kova::app {

/// A small record that both threads read and replace whole, without the frame mutex. It is locked
/// only while it is copied.
template <typename T>
class SharedValue {
public:
    SharedValue() = default;
    explicit SharedValue(const T& value) : value_(value) {}

    T load() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }
    void store(const T& value) {
        const std::lock_guard lock(mutex_);
        value_ = value;
    }

private:
    mutable std::mutex mutex_;
    T value_{};
};

}  // namespace kova::app
