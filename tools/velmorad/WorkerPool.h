// A few threads for the requests whose routes block (a ping, a change of the host's
// settings, a file saved): the event loop hands such a request over and goes on serving
// the others; the worker's answer comes back to the loop to be sent.
//
//   velmorad::WorkerPool pool(8);
//   pool.submit([] { slowThing(); });
//   pool.stop();  // runs what was queued, then joins the threads
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace velmorad {

class WorkerPool {
public:
    explicit WorkerPool(int threads);
    ~WorkerPool();

    // Queues a task; false when the pool is stopping (the task is not run).
    bool submit(std::function<void()> task);
    // Lets the queued tasks run, then joins every thread. A second call does nothing.
    void stop();

private:
    void work();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> queue_;
    std::vector<std::thread> threads_;
    bool stopping_ = false;
};

}  // namespace velmorad
