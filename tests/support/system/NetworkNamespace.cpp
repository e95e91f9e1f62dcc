#include "support/system/NetworkNamespace.hpp"

#include <iostream>

#ifdef __linux__

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

namespace foundation::test {

namespace {

/// Maps the caller's ids to root in its new user namespace, which has no users otherwise.
void mapToRoot(uid_t user, gid_t group)
{
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
}

bool enterNetworkNamespace()
{
    auto const user = geteuid();
    auto const group = getegid();
    if (unshare(CLONE_NEWNET) == 0) {
        return true;
    }
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return false;
    }
    mapToRoot(user, group);
    return true;
}

bool bringUpLoopback()
{
    auto const descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return false;
    }
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    auto const known = ioctl(descriptor, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
    auto const isUp = known && ioctl(descriptor, SIOCSIFFLAGS, &request) == 0;
    close(descriptor);
    return isUp;
}

} // namespace

void isolateNetwork()
{
    if (!enterNetworkNamespace()) {
        std::cerr << "Cannot create a network namespace (" << std::strerror(errno)
                  << "). The program uses the plain network.\n";
    } else if (!bringUpLoopback()) {
        std::cerr << "Cannot start the loopback interface of the network namespace: " << std::strerror(errno)
                  << ".\n";
    }
}

} // namespace foundation::test

#else

namespace foundation::test {

void isolateNetwork()
{
    std::cerr << "This system has no network namespaces. The program uses the plain network.\n";
}

} // namespace foundation::test

#endif
