#pragma once

/// @file
/// Declarations for the fragments in docs. The fragments are compiled and never linked, so there are no
/// definitions.

#include <foundation/certificates.hpp>
#if __has_include(<foundation/toolkit.hpp>)
#include <foundation/toolkit.hpp>
#endif

#include <cstdint>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace foundation::certificates;
#if __has_include(<foundation/toolkit.hpp>)
using namespace foundation::toolkit;
#endif

/// Loaded objects.
extern X509Certificate const certificate;
extern X509CertificateChain const chain;
extern TrustStore const trustStore;
extern PKCS7Certificate const signedData;
extern PKCS12Certificate const bundle;

/// A TLS context, and a connection of it.
extern ssl_ctx_st* const context;
extern ssl_st* const connection;

/// Input of any kind.
extern ByteArray const bytes;
extern std::string const text;
extern std::string const passphrase;
