#pragma once

#include <openssl/err.h>

namespace foundation::certificates {

/// A mark in OpenSSL's error queue. Its end removes the mark and keeps the entries.
class ErrorMark
{
public:
    ErrorMark() { ERR_set_mark(); }
    ~ErrorMark()
    {
        if (isSet) {
            ERR_clear_last_mark();
        }
    }
    ErrorMark(ErrorMark const&) = delete;
    ErrorMark& operator=(ErrorMark const&) = delete;

    /// Removes the entries behind the mark, and the mark.
    void removeErrors()
    {
        ERR_pop_to_mark();
        isSet = false;
    }

private:
    bool isSet = true;
};

} // namespace foundation::certificates
