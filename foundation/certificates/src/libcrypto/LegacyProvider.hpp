#pragma once

namespace foundation::certificates {

/// Loads OpenSSL's provider of old ciphers, which many PKCS#12 bundles use. Returns whether it is loaded, and
/// leaves the reason in OpenSSL's error queue if it is not.
///
/// Never unloads it, because other threads may use it. The default provider stays available.
bool loadLegacyProvider();

} // namespace foundation::certificates
