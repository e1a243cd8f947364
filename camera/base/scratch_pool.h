#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "camera/base/parallel.h"

namespace kova::camera {

/// Working memory for the bodies of parallelFor(), as many pieces as there are threads. Memory of a
/// thread's own would be allocated whenever another thread happens to take part for the first time.
template <typename T>
class ScratchPool {
public:
    /// Gives its piece back at the end of its life.
    class Loan {
    public:
        Loan(ScratchPool& pool, std::unique_ptr<T> piece)
            : pool_(&pool), piece_(std::move(piece)) {}
        Loan(const Loan&) = delete;
        Loan& operator=(const Loan&) = delete;
        ~Loan() { pool_->giveBack(std::move(piece_)); }
        T& operator*() const { return *piece_; }

    private:
        ScratchPool* pool_;
        std::unique_ptr<T> piece_;
    };

    /// Makes sure that every thread finds a piece, and prepares each; none may be on loan.
    template <typename Prepare>
    void reserve(const Prepare& prepare) {
        const auto threads = static_cast<std::size_t>(threadCount());
        free_.reserve(threads);
        while (free_.size() < threads) free_.push_back(std::make_unique<T>());
        for (const auto& piece : free_) prepare(*piece);
    }

    Loan take() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (free_.empty())
            return {*this, std::make_unique<T>()};
        std::unique_ptr<T> piece = std::move(free_.back());
        free_.pop_back();
        return {*this, std::move(piece)};
    }

private:
    void giveBack(std::unique_ptr<T> piece) {
        const std::lock_guard<std::mutex> lock(mutex_);
        free_.push_back(std::move(piece));
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<T>> free_;
};

}  // namespace kova::camera
