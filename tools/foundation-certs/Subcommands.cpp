#include "Subcommands.hpp"

#include "Doctor.hpp"
#include "Expiry.hpp"
#include "Inspect.hpp"
#include "Issuance.hpp"
#include "Roots.hpp"
#include "Unpack.hpp"
#include "Validate.hpp"
#include "Verify.hpp"

#include <foundation/certificates/version.hpp>

#include <string>

namespace foundation::tools {

std::unique_ptr<CLI::App> makeParser(Action& action)
{
    auto parser = std::make_unique<CLI::App>("Shows, checks and makes certificates", "foundation-certs");
    parser->set_version_flag("--version", std::string("foundation-certs ") + certificates::versionString);
    parser->require_subcommand(1);
    parser->footer("Exit status: 0 if all is good, 1 for a finding (not valid, expiring, refused),\n"
                   "2 for wrong use or an input that cannot be read.");
    for (auto const add :
         {addInspect, addExpiry, addValidate, addDoctor, addVerify, addUnpack, addRequest, addMake,
          addRoots}) {
        add(*parser, action);
    }
    return parser;
}

} // namespace foundation::tools
