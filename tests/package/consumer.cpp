// Uses a class of each installed library, and fails if one does not answer as it should.
#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/X509Certificate.hpp>
#include <foundation/log/basic_diagnostic_logger.hpp>

#include <iostream>
#include <string>

int main()
{
    try {
        foundation::certificates::X509Certificate const certificate{std::string()};
    } catch (foundation::certificates::CertificateException const&) {
        auto const chain = foundation::log::detail::current_exception_chain_as_string();
        std::cout << chain << '\n';
        return chain == "foundation::certificates::InvalidArgument: The input certificate has no content."
                   ? 0
                   : 1;
    }
    return 1;
}
