#include "Engine.h"

namespace sim {

std::atomic<int> g_asyncDelayMs{0};

Engine::Engine(std::function<void()> tick) : tick_(std::move(tick)), thread_([this] { loop(); }) {}

Engine::~Engine() {
    {
        std::lock_guard<std::mutex> guard(lock_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();  // the last server reference went from a callback on this very thread
    } else {
        thread_.join();
    }
    std::deque<Task> dropped;
    std::lock_guard<std::mutex> guard(lock_);
    dropped.swap(tasks_);
}

DWORD Engine::post(std::function<void()> run, std::function<void()> cancelled) {
    const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(g_asyncDelayMs.load());
    DWORD id;
    {
        std::lock_guard<std::mutex> guard(lock_);
        id = takeId();
        tasks_.push_back(Task{id, due, std::move(run), std::move(cancelled)});
    }
    wake_.notify_all();
    return id;
}

DWORD Engine::takeId() {
    const DWORD id = nextId_++;
    if (nextId_ == 0) nextId_ = 1;
    return id;
}

DWORD Engine::reserveId() {
    std::lock_guard<std::mutex> guard(lock_);
    return takeId();
}

bool Engine::cancel(DWORD id) {
    {
        std::lock_guard<std::mutex> guard(lock_);
        bool found = false;
        for (Task& task : tasks_) {
            if (task.id == id && !task.isCancelled) {
                task.isCancelled = true;
                task.due = std::chrono::steady_clock::now();
                found = true;
            }
        }
        if (!found) return false;
    }
    wake_.notify_all();
    return true;
}

void Engine::loop() {
    auto nextTick = std::chrono::steady_clock::now() + kTick;
    std::unique_lock<std::mutex> guard(lock_);
    while (!stopping_) {
        const auto nowTime = std::chrono::steady_clock::now();
        auto ready = tasks_.end();
        for (auto it = tasks_.begin(); it != tasks_.end(); ++it) {
            if (it->due <= nowTime) { ready = it; break; }
        }
        if (ready != tasks_.end()) {
            Task task = std::move(*ready);
            tasks_.erase(ready);
            guard.unlock();
            if (task.isCancelled) {
                if (task.cancelled) task.cancelled();
            } else if (task.run) {
                task.run();
            }
            task = Task{};  // drop what the request holds outside the lock
            guard.lock();
            continue;
        }
        if (nowTime >= nextTick) {
            guard.unlock();
            tick_();
            guard.lock();
            nextTick = std::chrono::steady_clock::now() + kTick;
            continue;
        }
        auto wakeAt = nextTick;
        for (const Task& task : tasks_) wakeAt = std::min(wakeAt, task.due);
        wake_.wait_until(guard, wakeAt);
    }
}

}  // namespace sim
