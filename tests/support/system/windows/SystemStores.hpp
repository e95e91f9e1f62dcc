#pragma once

#include "support/openssl/Handles.hpp"

#include <string>
#include <vector>

namespace foundation::test {

/// Intercepts the library's calls of Windows' certificate stores in programs that are linked with its source
/// file. It records the calls, counts open stores and contexts, and fails on demand. It implements the search
/// by usage as Windows documents it, because Wine does not implement that search. Windows performs all other
/// operations.
class SystemStores
{
public:
    SystemStores();
    ~SystemStores();
    SystemStores(SystemStores const&) = delete;
    SystemStores& operator=(SystemStores const&) = delete;

    /// From now on, opening the user's store fails with this error.
    void failToOpenTheUsersStore(unsigned long error);
    /// From now on, opening the machine's store fails with this error.
    void failToOpenTheMachinesStore(unsigned long error);
    /// From now on, the search returns this content instead of the certificate's own.
    void replace(Bytes const& certificate, Bytes const& content);

    /// Returns the recorded calls. A search is recorded once, not once per result.
    std::vector<std::string> const& calls() const;
    /// Returns the certificates that the search has found since the first call of `replace`.
    std::vector<Bytes> const& found() const;
    int numOpenStores() const;
    int numOpenContexts() const;
};

/// Adds a certificate to the current user's root store for a scope.
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

/// Returns the text of FormatMessageA for the error, without line ends.
std::string windowsErrorText(unsigned long error);

} // namespace foundation::test
