#pragma once

namespace foundation::certificates {

/// A passphrase callback (`pem_password_cb`) that refuses to give one. Without a callback, OpenSSL asks on
/// the terminal for the passphrase of an encrypted block, and loading must never do that.
inline int refusePassphrase(char* /*buffer*/, int /*size*/, int /*forWriting*/, void* /*userData*/)
{
    return -1;
}

} // namespace foundation::certificates
