#pragma once

#include "reader/BufferedInput.hpp"
#include "reader/Members.hpp"
#include "reader/PEMScanner.hpp"

#include <foundation/toolkit/CertificateReader.hpp>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace foundation::toolkit {

/// Reads the certificates of one source.
///
/// A source is a sequence of structures in DER, then text. Everything from the first byte on that begins no
/// known structure is text, so that PEM blocks are also found behind damaged or foreign bytes.
class SourceReader
{
public:
    SourceReader(std::string nameOfSource, std::unique_ptr<ByteSource> bytes)
        : name(std::move(nameOfSource)),
          input(std::move(bytes))
    {}

    /// Returns the next result; nothing at the end.
    std::optional<ReadCertificate> next(std::string const& passphrase);

private:
    std::optional<ReadCertificate> nextResult(std::string const& passphrase);
    std::unique_ptr<Members> nextMembers(std::string const& passphrase);
    std::unique_ptr<Members> membersOfNextStructure(std::string const& passphrase);
    std::unique_ptr<Members> membersOfNextBlock(std::string const& passphrase);
    std::unique_ptr<Members> skipLargeStructure(std::size_t sizeOfHeader, std::size_t sizeOfContent);
    void fill(ReadCertificate& result, Member member);

    std::string name;
    BufferedInput input;
    PEMScanner scanner;
    /// A block that was found, until its members are.
    std::optional<PEMText> block;
    std::unique_ptr<Members> members;
    std::size_t numCounted = 0;
    /// A failure of the whole structure gets an index, because the source has other certificates.
    bool areFailuresCounted = false;
    bool isText = false;
    bool isEmpty = true;
    bool hasResult = false;
    bool hasEnded = false;
};

} // namespace foundation::toolkit
