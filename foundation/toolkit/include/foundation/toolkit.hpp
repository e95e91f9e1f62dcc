#pragma once

/// @file
/// Includes all public headers of the toolkit.

#include <foundation/toolkit/Certificate.hpp>
#include <foundation/toolkit/CertificateReader.hpp>
#include <foundation/toolkit/Explanation.hpp>
#include <foundation/toolkit/Issuance.hpp>
#include <foundation/toolkit/PathValidation.hpp>
#include <foundation/toolkit/PrivateKeys.hpp>
#include <foundation/toolkit/StandardErrorLog.hpp>
#include <foundation/toolkit/TLSPeer.hpp>
