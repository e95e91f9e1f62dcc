#include "support/Text.hpp"
#include "support/allocation/AllocationFailure.hpp"

#include <foundation/certificates/Exceptions.hpp>
#include <foundation/certificates/FreeFunctions.hpp>

#include <boost/archive/iterators/dataflow_exception.hpp>

#include <sstream>

namespace foundation::test {

namespace {

using namespace certificates;

/// The same content as bytes and as either kind of text.
struct Input : Unchanging
{
    ByteArray bytes;
    std::string base64;
    std::string hex;
};

Input input()
{
    auto const bytes = asBytes("longer than what a string holds without memory");
    return {{}, bytes, base64Encode(bytes), hexEncode(bytes)};
}

/// The text of the exception that the work ends with.
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

/// A stream that finds no memory loses what is written to it.
Shortcomings const lost{{}, beginning};

std::vector<OperationOn<Input>> encodings()
{
    return {
        {"base64Encode", [](auto& i) { return base64Encode(i.bytes); }},
        {"base64Decode", [](auto& i) { return base64Decode(i.base64); }},
        {"base64Decode of another character",
         [](auto& i) {
             return refusalOf<boost::archive::iterators::dataflow_exception>(
                 [&] { base64Decode(i.base64 + "\n"); });
         }},
        {"hexEncode", [](auto& i) { return hexEncode(i.bytes); }},
        {"hexDecode", [](auto& i) { return hexDecode(i.hex); }},
        {"hexDecode of another character",
         [](auto& i) { return refusalOf<InvalidArgument>([&] { hexDecode(i.hex + "0x"); }); }},
        {"hexDecode of half a byte",
         [](auto& i) { return refusalOf<InvalidArgument>([&] { hexDecode(i.hex + "0"); }); }},
        {"prettyPrintBytes",
         [](auto& i) {
             std::ostringstream out;
             out << std::showbase;
             prettyPrintBytes(i.bytes, "a label for the bytes", out);
             // The state of the stream's format is as before, also where what was written is lost.
             auto const format = out.flags();
             return out.str() +
                    ((format & std::ios::hex) == 0 && (format & std::ios::showbase) != 0 ? "" : "changed");
         },
         {},
         lost},
    };
}

std::vector<OperationOn<Unchanging>> places()
{
    return {
        {"getSystemCertificatesFile", [](auto&) { return getSystemCertificatesFile(); }},
        {"getSystemCertificatesFolder", [](auto&) { return getSystemCertificatesFolder(); }},
    };
}

FOUNDATION_TEST_WITHOUT_MEMORY(Encodings, operationsOn<Input>("", input, encodings()));
FOUNDATION_TEST_WITHOUT_MEMORY(
    Places, operationsOn<Unchanging>(
                "", [] { return Unchanging(); }, places()));

} // namespace

} // namespace foundation::test
