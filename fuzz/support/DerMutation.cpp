/// The mutations for fuzz targets that read DER. A changed byte often makes a length wrong, and the parser
/// stops there. Half of the mutations therefore change one element and encode all elements again with correct
/// lengths.

#include "support/DerElements.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximumSize);

namespace foundation::fuzz {

namespace {

using Random = std::minstd_rand;

/// The depth of nested elements that are parsed.
constexpr unsigned deepest = 24;

/// An element with children or with content, or bytes that are not an element.
struct Node
{
    bool isElement = true;
    unsigned char tag = 0;
    /// The bytes between the header and the first child: the number of unused bits of a bit string.
    Bytes prefix;
    Bytes content;
    std::vector<Node> children;
};

std::vector<Node> parse(Bytes const& data, unsigned depth);

bool isWhole(std::vector<Node> const& nodes)
{
    return !nodes.empty() &&
           std::all_of(nodes.begin(), nodes.end(), [](Node const& node) { return node.isElement; });
}

/// Parses the children. An octet string or a bit string may also hold DER, for example in extensions and
/// keys.
void lookInside(Node& node, unsigned depth)
{
    constexpr unsigned char constructed = 0x20;
    constexpr unsigned char bitString = 0x03;
    constexpr unsigned char octetString = 0x04;
    bool const hasPrefix = node.tag == bitString && !node.content.empty() && node.content.front() == 0;
    if (depth == 0 || ((node.tag & constructed) == 0 && node.tag != octetString && !hasPrefix)) {
        return;
    }
    std::ptrdiff_t const prefixSize = hasPrefix ? 1 : 0;
    auto children = parse(Bytes(node.content.begin() + prefixSize, node.content.end()), depth - 1);
    if (isWhole(children)) {
        node.prefix.assign(node.content.begin(), node.content.begin() + prefixSize);
        node.children = std::move(children);
        node.content.clear();
    }
}

std::vector<Node> parse(Bytes const& data, unsigned depth)
{
    std::vector<Node> nodes;
    for (auto const& element : elementsIn(data)) {
        Node node;
        auto const extent = firstElementIn(element.data(), element.size());
        node.isElement = extent.has_value();
        if (extent) {
            node.tag = element.front();
            node.content.assign(
                element.begin() + static_cast<std::ptrdiff_t>(extent->headerSize), element.end());
            lookInside(node, depth);
        } else {
            node.content = element;
        }
        nodes.push_back(std::move(node));
    }
    return nodes;
}

void append(Bytes& target, Bytes const& more)
{
    target.insert(target.end(), more.begin(), more.end());
}

Bytes encode(std::vector<Node> const& nodes);

Bytes encode(Node const& node)
{
    Bytes content = node.prefix;
    append(content, node.children.empty() ? node.content : encode(node.children));
    if (!node.isElement) {
        return content;
    }
    Bytes encoded{node.tag};
    Bytes length;
    for (std::size_t rest = content.size(); rest != 0; rest >>= 8U) {
        length.insert(length.begin(), static_cast<unsigned char>(rest & 0xFFU));
    }
    if (content.size() >= 0x80) {
        encoded.push_back(static_cast<unsigned char>(0x80U | length.size()));
    } else if (length.empty()) {
        length.push_back(0);
    }
    append(encoded, length);
    append(encoded, content);
    return encoded;
}

Bytes encode(std::vector<Node> const& nodes)
{
    Bytes encoded;
    for (auto const& node : nodes) {
        append(encoded, encode(node));
    }
    return encoded;
}

/// The position of a node among its siblings.
struct Place
{
    std::vector<Node>* siblings;
    std::size_t index;

    Node& node() const { return (*siblings)[index]; }
    std::vector<Node>::iterator position() const
    {
        return siblings->begin() + static_cast<std::ptrdiff_t>(index);
    }
};

void collectPlaces(std::vector<Node>& nodes, std::vector<Place>& places)
{
    for (std::size_t index = 0; index < nodes.size(); ++index) {
        places.push_back({&nodes, index});
        collectPlaces(nodes[index].children, places);
    }
}

void mutateContent(Node& node, std::size_t room)
{
    std::size_t const size = node.content.size();
    node.content.resize(size + std::min<std::size_t>(room, 64) + 1);
    node.content.resize(LLVMFuzzerMutate(node.content.data(), size, node.content.size()));
}

unsigned char anotherTag(Random& random)
{
    static constexpr unsigned char tags[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x0A, 0x0C, 0x13, 0x14, 0x16,
                                             0x17, 0x18, 0x1C, 0x1E, 0x24, 0x30, 0x31, 0x80, 0x81, 0x82, 0x83,
                                             0x84, 0x85, 0x86, 0x87, 0x88, 0xA0, 0xA1, 0xA2, 0xA3};
    return tags[random() % (sizeof tags)];
}

void mutateTree(std::vector<Node>& nodes, std::size_t room, Random& random)
{
    std::vector<Place> places;
    collectPlaces(nodes, places);
    auto const place = places[random() % places.size()];
    Node const other = places[random() % places.size()].node();
    Node& node = place.node();
    switch (random() % 8) {
    case 0:
        node.tag = anotherTag(random);
        return;
    case 1:
        place.siblings->erase(place.position());
        return;
    case 2:
        place.siblings->insert(place.position(), Node(node));
        return;
    case 3:
        node = other;
        return;
    case 4:
        place.siblings->insert(place.position(), other);
        return;
    case 5:
        std::shuffle(place.siblings->begin(), place.siblings->end(), random);
        return;
    default:
        if (node.children.empty()) {
            mutateContent(node, room);
        } else {
            node.children.push_back(other);
        }
        return;
    }
}

} // namespace

std::size_t mutateDer(std::uint8_t* data, std::size_t size, std::size_t maximumSize, unsigned seed)
{
    Random random(seed);
    auto nodes = parse(Bytes(data, data + size), deepest);
    bool const hasElements =
        std::any_of(nodes.begin(), nodes.end(), [](Node const& node) { return !node.children.empty(); });
    if (!hasElements || random() % 2 == 0) {
        return LLVMFuzzerMutate(data, size, maximumSize);
    }
    mutateTree(nodes, maximumSize - size, random);
    auto const encoded = encode(nodes);
    if (encoded.size() > maximumSize) {
        return LLVMFuzzerMutate(data, size, maximumSize);
    }
    std::copy(encoded.begin(), encoded.end(), data);
    return encoded.size();
}

} // namespace foundation::fuzz

extern "C" std::size_t
LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximumSize, unsigned seed)
{
    return foundation::fuzz::mutateDer(data, size, maximumSize, seed);
}
