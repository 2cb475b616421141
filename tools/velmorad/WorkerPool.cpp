#include "WorkerPool.h"

#include <utility>

namespace velmorad {

WorkerPool::WorkerPool(int threads) {
    for (int i = 0; i < threads; ++i)
        threads_.emplace_back([this] { work(); });
}

WorkerPool::~WorkerPool() {
    stop();
}

bool WorkerPool::submit(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) return false;
        queue_.push_back(std::move(task));
    }
    wake_.notify_one();
    return true;
}

void WorkerPool::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : threads_)
        if (t.joinable()) t.join();
    threads_.clear();
}

void WorkerPool::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return !queue_.empty() || stopping_; });
        if (queue_.empty()) return;
        std::function<void()> task = std::move(queue_.front());
        queue_.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace velmorad
