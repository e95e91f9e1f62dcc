#include "support/system/LockRecorder.hpp"

#include <algorithm>
#include <atomic>
#include <functional>

#include <dlfcn.h>
#include <pthread.h>

namespace foundation::test {

namespace {

thread_local LockRecorder* recorderOfThisThread = nullptr;

/// Excludes the recorder's own work, such as allocations, from the record.
class Pause
{
public:
    Pause() : recorder(std::exchange(recorderOfThisThread, nullptr)) {}
    ~Pause() { recorderOfThisThread = recorder; }
    Pause(Pause const&) = delete;
    Pause& operator=(Pause const&) = delete;

    LockRecorder* const recorder;
};

using MutexFunction = int (*)(pthread_mutex_t*);

// Initialised at compile time. The guard of a local static may itself be a mutex, whose lock ends up here.
std::atomic<MutexFunction> systemsLock{nullptr};
std::atomic<MutexFunction> systemsUnlock{nullptr};

MutexFunction systemsFunction(std::atomic<MutexFunction>& known, char const* name)
{
    if (known == nullptr) {
        known = reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, name));
    }
    return known;
}

} // namespace

LockRecorder::LockRecorder()
{
    recorderOfThisThread = this;
}

LockRecorder::~LockRecorder()
{
    recorderOfThisThread = nullptr;
}

void LockRecorder::forget()
{
    taken.clear();
    nested.clear();
    locks = 0;
    others = 0;
}

std::string const* LockRecorder::nameOf(void const* mutex) const
{
    auto const* const address = static_cast<char const*>(mutex);
    auto const found = std::find_if(watched.begin(), watched.end(), [&](Watched const& object) {
        std::less_equal<> const isAtOrBefore;
        return isAtOrBefore(object.begin, address) && !isAtOrBefore(object.begin + object.size, address);
    });
    return found == watched.end() ? nullptr : &found->name;
}

void LockRecorder::onLock(void const* mutex)
{
    auto const* const name = nameOf(mutex);
    if (name == nullptr) {
        ++others;
        return;
    }
    ++locks;
    taken.insert(*name);
    for (auto const* const holder : held) {
        nested.insert({*nameOf(holder), *name});
    }
    held.push_back(mutex);
}

void LockRecorder::onUnlock(void const* mutex)
{
    held.erase(std::remove(held.begin(), held.end(), mutex), held.end());
}

} // namespace foundation::test

// C libraries differ in whether they declare these functions as noexcept.

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept(noexcept(pthread_mutex_lock(mutex)))
{
    using namespace foundation::test;
    Pause const pause;
    // Record before taking the lock, so that a nesting that ends in a deadlock is recorded, too.
    if (pause.recorder != nullptr) {
        pause.recorder->onLock(mutex);
    }
    return systemsFunction(systemsLock, "pthread_mutex_lock")(mutex);
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept(noexcept(pthread_mutex_unlock(mutex)))
{
    using namespace foundation::test;
    Pause const pause;
    if (pause.recorder != nullptr) {
        pause.recorder->onUnlock(mutex);
    }
    return systemsFunction(systemsUnlock, "pthread_mutex_unlock")(mutex);
}
