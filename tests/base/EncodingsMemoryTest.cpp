#include "support/allocation/AllocationFailure.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <boost/archive/iterators/dataflow_exception.hpp>

#include <sstream>

using namespace foundation::certificates;
using namespace foundation::test;

namespace {

/// Returns the text of the exception that the work throws.
template <class Exception, class Work>
std::string refusalOf(Work const& work)
{
    try {
        work();
    } catch (Exception const& refusal) {
        return refusal.what();
    }
    return "none";
}

/// Returns what the input contains; no operation changes it.
std::string contentOf(Encoded const& input)
{
    return input.base64 + input.hex;
}

struct Refused : Unchanging
{
    Encoded input = makeEncoded();
};

std::vector<OperationOn<Refused>> refusals()
{
    return {
        {"base64Decode of another character",
         [](auto& r) {
             return refusalOf<boost::archive::iterators::dataflow_exception>(
                 [&] { base64Decode(r.input.base64 + "\n"); });
         }},
        {"hexDecode of another character",
         [](auto& r) { return refusalOf<InvalidArgument>([&] { hexDecode(r.input.hex + "0x"); }); }},
        {"hexDecode of half a byte",
         [](auto& r) { return refusalOf<InvalidArgument>([&] { hexDecode(r.input.hex + "0"); }); }},
        {"prettyPrintBytes with flags set",
         [](auto& r) {
             std::ostringstream out;
             out << std::showbase;
             prettyPrintBytes(r.input.bytes, "a label that is too long for a string's own room", out);
             auto const flags = out.flags();
             bool const areFlagsKept = (flags & std::ios::hex) == 0 && (flags & std::ios::showbase) != 0;
             return std::string(areFlagsKept ? "kept" : "changed");
         }},
    };
}

/// Returns what the values say; the setters replace two of them.
std::string contentOfValues(Values const& values)
{
    return rendered(values.rsaKey) + rendered(values.eccKey) + rendered(values.rsaPrivateKey) +
           rendered(values.eccPrivateKey) + rendered(values.revocation) + rendered(values.validation) +
           rendered(values.verification);
}

} // namespace

FOUNDATION_TEST_ALLOCATION_FAILURE(Encodings, tableOn<Encoded>(makeEncoded, encodingOperations(), contentOf));
FOUNDATION_TEST_ALLOCATION_FAILURE(
    Refusals, operationsOn<Refused>(
                  "", [] { return Refused(); }, refusals()));

FOUNDATION_TEST_ALLOCATION_FAILURE(Values, tableOn<Values>(makeValues, valueOperations(), contentOfValues));
