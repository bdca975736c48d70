// The server's own thread: runs asynchronous requests and the periodic subscription tick, so that
// callbacks reach clients on the server's thread and never on the caller's.
#pragma once

#include "Common.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace sim {

class Engine {
public:
    explicit Engine(std::function<void()> tick);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Queues a request; returns its cancel id (never 0). `cancelled` runs instead of `run` after cancel().
    DWORD post(std::function<void()> run, std::function<void()> cancelled);
    // True when the request was still pending; its `cancelled` then runs on the engine thread.
    bool cancel(DWORD id);
    // A cancel id for a request that completes without being queued.
    DWORD reserveId();
    // Whether the caller runs on the engine's thread.
    bool onThread() const { return std::this_thread::get_id() == thread_.get_id(); }

    static constexpr std::chrono::milliseconds kTick{10};

private:
    struct Task {
        DWORD id;
        std::chrono::steady_clock::time_point due;
        std::function<void()> run;
        std::function<void()> cancelled;
        bool isCancelled = false;
    };
    void loop();
    DWORD takeId();  // under lock_

    std::function<void()> tick_;
    std::mutex lock_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    DWORD nextId_ = 1;
    bool stopping_ = false;
    std::thread thread_;
};

// Delay before queued asynchronous requests run (tests use it to cancel them in time).
extern std::atomic<int> g_asyncDelayMs;

}  // namespace sim
