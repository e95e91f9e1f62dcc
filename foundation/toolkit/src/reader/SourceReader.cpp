#include "reader/SourceReader.hpp"

#include "CertificateAccess.hpp"
#include "reader/BERElements.hpp"

#include "libcrypto/PEMBlocks.hpp"

#include <foundation/certificates/ByteArray.hpp>

#include <string_view>
#include <utility>

namespace foundation::toolkit {

namespace {

using namespace foundation::certificates;

constexpr char const tooLarge[] = "The block is larger than 16 MiB.";

bool holdsPEM(std::string_view bytes)
{
    return bytes.find("-----BEGIN ") != std::string_view::npos;
}

bool isEncrypted(std::string_view text)
{
    return text.find("\nProc-Type: 4,ENCRYPTED") != std::string_view::npos;
}

/// Returns the decoded block; nothing if it is damaged.
std::optional<ByteArray> decoded(std::string_view text)
{
    std::optional<ByteArray> content;
    runUnlessOutOfMemory([&] {
        auto const blocks = splitPEMBlocks(text);
        content = blocks.empty() ? std::nullopt : decode(blocks.front());
        return content.has_value();
    });
    return content;
}

std::unique_ptr<Members> membersOfBlock(PEMText const& block, std::string const& passphrase)
{
    if (block.isTooLarge) {
        return failureAlone(tooLarge);
    }
    if (!block.hasEndLine) {
        return failureAlone("The block has no END line.");
    }
    if (isEncrypted(block.text)) {
        return failureAlone("The block is encrypted.");
    }
    auto const content = decoded(block.text);
    if (!content) {
        return failureAlone("The block is damaged.");
    }
    return membersOf(std::string(content->begin(), content->end()), passphrase);
}

} // namespace

std::optional<ReadCertificate> SourceReader::next(std::string const& passphrase)
{
    if (hasEnded) {
        return std::nullopt;
    }
    try {
        return nextResult(passphrase);
    } catch (ReadFailure const& failure) {
        ReadCertificate result{name, 0, std::nullopt, failure.what()};
        hasEnded = true;
        return result;
    }
}

std::optional<ReadCertificate> SourceReader::nextResult(std::string const& passphrase)
{
    // Made before a member is taken, which would be lost if memory ran out afterwards.
    ReadCertificate result{name, 0, std::nullopt, {}};
    while (true) {
        if (members == nullptr) {
            members = nextMembers(passphrase);
        }
        if (members == nullptr) {
            break;
        }
        if (auto member = members->next()) {
            fill(result, std::move(*member));
            return result;
        }
        members.reset();
    }
    if (hasResult) {
        hasEnded = true;
        return std::nullopt;
    }
    result.failure = isEmpty ? "The source is empty." : "The source holds no certificate.";
    hasEnded = true;
    return result;
}

/// Returns the members of the next structure or block; null at the end of the source.
std::unique_ptr<Members> SourceReader::nextMembers(std::string const& passphrase)
{
    isEmpty = isEmpty && input.peek(1).empty();
    constexpr std::size_t twoHeaders = 2 * longestHeader;
    isText = isText || structureOf(input.peek(twoHeaders)) == Structure::Other;
    if (!isText) {
        if (auto found = membersOfNextStructure(passphrase)) {
            return found;
        }
        isText = true;
    }
    return membersOfNextBlock(passphrase);
}

/// Returns null for bytes that turn out to be text.
std::unique_ptr<Members> SourceReader::membersOfNextStructure(std::string const& passphrase)
{
    auto const header = readHeader(input.peek(longestHeader));
    bool const isTooLarge = header->contentSize && *header->contentSize > largestBlock - header->size;
    areFailuresCounted = false;
    if (isTooLarge) {
        return skipLargeStructure(header->size, *header->contentSize);
    }
    std::size_t const mostBytes =
        header->contentSize ? header->size + *header->contentSize : largestBlock + 1;
    std::string_view const bytes = input.peek(mostBytes);
    auto const element = firstElement(bytes);
    if (!element) {
        isText = true;
        if (holdsPEM(bytes)) {
            return nullptr;
        }
        return failureAlone(
            bytes.size() > largestBlock ? tooLarge : "The structure is damaged or incomplete.");
    }
    std::string whole(element->whole);
    bool const isCertificate = structureOf(whole) == Structure::Certificate;
    if (isCertificate && holdsPEM(whole) && !memberOf(whole).certificate) {
        return nullptr; // a text that begins with certain digits
    }
    std::size_t const size = whole.size();
    bool const isAlone = input.peek(size + 1).size() == size;
    areFailuresCounted = isCertificate && !isAlone;
    auto found = membersOf(std::move(whole), passphrase);
    input.skip(size);
    return found;
}

std::unique_ptr<Members> SourceReader::skipLargeStructure(std::size_t sizeOfHeader, std::size_t sizeOfContent)
{
    auto failure = failureAlone(tooLarge);
    input.skip(sizeOfHeader);
    input.skip(sizeOfContent);
    return failure;
}

std::unique_ptr<Members> SourceReader::membersOfNextBlock(std::string const& passphrase)
{
    if (!block) {
        block = scanner.next(input);
    }
    if (!block) {
        return nullptr;
    }
    areFailuresCounted = true;
    auto found = membersOfBlock(*block, passphrase);
    block.reset();
    return found;
}

void SourceReader::fill(ReadCertificate& result, Member member)
{
    hasResult = true;
    if (!member.isWhole || areFailuresCounted || numCounted != 0) {
        result.index = ++numCounted;
    }
    result.certificate = std::move(member.certificate);
    result.failure = std::move(member.failure);
}

} // namespace foundation::toolkit
