#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace foundation::test {

/// Records which objects' locks the constructing thread takes, and in which order it nests them. This class
/// replaces pthread_mutex_lock, which every std::mutex calls. ThreadSanitizer replaces it, too, so the two
/// cannot be combined.
class LockRecorder
{
public:
    using Nesting = std::pair<std::string, std::string>;

    LockRecorder();
    ~LockRecorder();
    LockRecorder(LockRecorder const&) = delete;
    LockRecorder& operator=(LockRecorder const&) = delete;

    /// Names an object. Only locks within named objects are recorded. The others are counted.
    template <typename Object>
    void watch(Object const& object, std::string name)
    {
        watched.push_back({reinterpret_cast<char const*>(&object), sizeof object, std::move(name)});
    }

    /// Returns the names of the objects whose locks were taken.
    std::set<std::string> const& locked() const { return taken; }
    /// Returns how often locks of named objects were taken.
    std::size_t numLocks() const { return locks; }
    /// Returns the name of the held lock and of the taken lock, for each lock that was taken while another
    /// was held.
    std::set<Nesting> const& nestings() const { return nested; }
    /// Returns how often a lock was taken that is in no named object.
    std::size_t othersLocked() const { return others; }
    void forget();

    void onLock(void const* mutex);
    void onUnlock(void const* mutex);

private:
    struct Watched
    {
        char const* begin;
        std::size_t size;
        std::string name;
    };

    std::string const* nameOf(void const* mutex) const;

    std::vector<Watched> watched;
    std::vector<void const*> held;
    std::set<std::string> taken;
    std::set<Nesting> nested;
    std::size_t locks = 0;
    std::size_t others = 0;
};

} // namespace foundation::test
