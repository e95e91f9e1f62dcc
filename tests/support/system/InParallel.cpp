#include "support/system/InParallel.hpp"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

namespace foundation::test {

namespace {

/// Aborts the process if the scope does not end in time.
class Watchdog
{
public:
    explicit Watchdog(std::chrono::seconds limit)
        : watcher([this, limit] {
              std::unique_lock<std::mutex> lock(mutex);
              if (!finished.wait_for(lock, limit, [this] { return isFinished; })) {
                  std::fputs("The threads did not finish in time. They may be in a deadlock.\n", stderr);
                  std::abort();
              }
          })
    {}

    ~Watchdog()
    {
        {
            std::lock_guard<std::mutex> const lock(mutex);
            isFinished = true;
        }
        finished.notify_one();
        watcher.join();
    }

    Watchdog(Watchdog const&) = delete;
    Watchdog& operator=(Watchdog const&) = delete;

private:
    std::mutex mutex;
    std::condition_variable finished;
    bool isFinished = false;
    std::thread watcher;
};

} // namespace

void inParallel(int numThreads, std::function<void(int number)> const& work)
{
    Watchdog const watchdog(std::chrono::minutes(5));
    std::atomic<int> numReady{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < numThreads; ++number) {
        threads.emplace_back([&, number] {
            ++numReady;
            while (numReady < numThreads) {
                std::this_thread::yield();
            }
            work(number);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

} // namespace foundation::test
