#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace foundation::test {

/// Tells which objects' locks the making thread takes, and which it takes while it holds which. A test
/// program that names this class gets a pthread_mutex_lock of its own, through which every std::mutex goes;
/// ThreadSanitizer has one already, and the two do not go together.
class LockRecorder
{
public:
    using Nesting = std::pair<std::string, std::string>;

    LockRecorder();
    ~LockRecorder();
    LockRecorder(LockRecorder const&) = delete;
    LockRecorder& operator=(LockRecorder const&) = delete;

    /// Locks of objects that have no name here are not recorded.
    template <typename Object>
    void watch(Object const& object, std::string name)
    {
        watched.push_back({reinterpret_cast<char const*>(&object), sizeof object, std::move(name)});
    }

    /// The names of the objects whose locks were taken.
    std::set<std::string> const& locked() const { return taken; }
    /// Of each lock that was taken while another was held: first the holder's name, then the taken one's.
    std::set<Nesting> const& nestings() const { return nested; }
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
};

} // namespace foundation::test
