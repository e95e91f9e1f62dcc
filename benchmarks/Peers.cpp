#include "Peers.hpp"

#include "Comparison.hpp"

#include <openssl/crypto.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace foundation::benchmarks {

namespace {

Peer readPeer(std::filesystem::path const& path)
{
    Peer peer;
    std::ifstream file(path);
    std::getline(file, peer.name);
    std::size_t roots = 0;
    double seconds = 0;
    while (file >> roots >> seconds) {
        peer.seconds[roots] = seconds;
    }
    return peer;
}

std::string valueOf(Side const& side)
{
    return side.seconds.empty() ? "?" : std::to_string(side.median() * 1e6);
}

} // namespace

std::optional<double> Peer::secondsFor(std::size_t roots) const
{
    auto const place = seconds.find(roots);
    return place == seconds.end() ? std::nullopt : std::optional<double>(place->second);
}

std::vector<Peer> readPeers(std::string const& folder)
{
    std::set<std::filesystem::path> paths;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".txt") {
            paths.insert(entry.path());
        }
    }
    std::vector<Peer> peers;
    for (auto const& path : paths) {
        peers.push_back(readPeer(path));
    }
    return peers;
}

std::string plotData(std::vector<Peer> const& peers)
{
    std::ostringstream out;
    bool const hasPathValidator = !plotPoints().empty() && plotPoints().front().pathValidator != nullptr;
    out << "roots \"TrustStore\" \"TrustStore, handed out\"";
    if (hasPathValidator) {
        out << " \"PathValidator\"";
    }
    out << " \"OpenSSL " << OpenSSL_version(OPENSSL_VERSION_STRING) << '"';
    for (Peer const& peer : peers) {
        if (!peer.seconds.empty()) {
            out << " \"" << peer.name << "\"";
        }
    }
    out << '\n';
    for (PlotPoint const& point : plotPoints()) {
        out << point.roots << ' ' << valueOf(point.privateStore->library) << ' '
            << valueOf(point.handedOutStore->library);
        if (hasPathValidator) {
            out << ' ' << valueOf(point.pathValidator->library);
        }
        out << ' ' << valueOf(point.privateStore->bare);
        for (Peer const& peer : peers) {
            if (auto const seconds = peer.secondsFor(point.roots)) {
                out << ' ' << *seconds * 1e6;
            } else if (!peer.seconds.empty()) {
                out << " ?";
            }
        }
        out << '\n';
    }
    return out.str();
}

} // namespace foundation::benchmarks
