#pragma once

#include "support/openssl/Handles.hpp"

#include <string>
#include <vector>

namespace foundation::test {

/// Stands between the library and Windows' certificate stores, in programs that are linked with its source:
/// it notes what Windows is asked, counts what stays open, and fails where a test wants it to. By their
/// usages it finds certificates itself, in the way that Windows documents, because Wine finds none. All else
/// is Windows' own work.
class SystemStores
{
public:
    SystemStores();
    ~SystemStores();
    SystemStores(SystemStores const&) = delete;
    SystemStores& operator=(SystemStores const&) = delete;

    /// From now on the user's store does not open, and that is Windows' last error.
    void failToOpenTheUsersStore(unsigned long error);
    /// The same of the machine's store.
    void failToOpenTheMachinesStore(unsigned long error);
    /// The search hands out that content in the place of the certificate's own.
    void replace(Bytes const& certificate, Bytes const& content);

    /// What Windows was asked, a search only once.
    std::vector<std::string> const& calls() const;
    /// What the search has found since something is to be replaced.
    std::vector<Bytes> const& found() const;
    int numOpenStores() const;
    int numOpenContexts() const;
};

/// A certificate in the current user's root store, as long as this object lives.
class PlantedRoot
{
public:
    explicit PlantedRoot(Bytes der);
    ~PlantedRoot();
    PlantedRoot(PlantedRoot const&) = delete;
    PlantedRoot& operator=(PlantedRoot const&) = delete;

private:
    Bytes planted;
};

/// Windows' text for an error on one line, as FormatMessageA gives it.
std::string windowsErrorText(unsigned long error);

} // namespace foundation::test
