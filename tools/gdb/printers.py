"""Shows the values of foundation::certificates and foundation::toolkit in gdb.

gdb loads this file with the shared library. Programs that link the static library load it with `source`.

The printers read memory only. They call no function of the program, so they take no lock, allocate nothing and work
for a core file. They need the debug information of the program, but none of the libraries. Instead they know:
- A handle's first pointer points to its implementation, and that one's first pointer to what it holds.
- OpenSSL keeps the bytes of a parsed certificate's TBSCertificate in x509_st, as pointer, length and a flag for changes.
- An x509_store_st holds a stack of x509_object_st, which are a kind and a pointer. With OpenSSL 4 it holds a hash table
  instead until it is asked for its entries, as a TrustStore does and a PathValidator does not. The printers do not read
  that table.
Each of these is checked before it is used. What does not fit is shown as "cannot be read".
"""

import itertools

import gdb
import gdb.printing
import gdb.types

LARGEST_CERTIFICATE = 1 << 24
MOST_ENTRIES = 1 << 20


class Unreadable(Exception):
    """What is in memory is not what the printers know."""


# Memory


def void_pointer():
    return gdb.lookup_type("void").pointer()


def pointer_at(address):
    return int(gdb.Value(address).cast(void_pointer().pointer()).dereference())


def integer_at(address, name):
    return int(gdb.Value(address).cast(gdb.lookup_type(name).pointer()).dereference())


def size_of(name):
    return gdb.lookup_type(name).sizeof


def bytes_at(address, size):
    return gdb.selected_inferior().read_memory(address, size).tobytes()


def pointers_in(value):
    """Yields the pointers of a smart pointer or container, in order of their places."""
    kind = value.type.strip_typedefs()
    if kind.code == gdb.TYPE_CODE_PTR:
        yield value
    elif kind.code == gdb.TYPE_CODE_STRUCT:
        for field in kind.fields():
            if hasattr(field, "bitpos"):  # static members have none
                yield from pointers_in(value[field])


def first_pointer(value):
    return int(next(pointers_in(value)))


def elements(first, last):
    """Returns the values between the two pointers of a std::vector."""
    count = int(last) - int(first)
    size = first.dereference().type.sizeof
    if count % size != 0 or not 0 <= count // size <= MOST_ENTRIES:
        raise Unreadable
    return [(first + index).dereference() for index in range(count // size)]


# DER

SEQUENCE, INTEGER, OID, UTC_TIME, VERSION = 0x30, 0x02, 0x06, 0x17, 0xA0

ATTRIBUTES = {
    "2.5.4.3": "CN", "2.5.4.4": "SN", "2.5.4.5": "serialNumber", "2.5.4.6": "C", "2.5.4.7": "L", "2.5.4.8": "ST",
    "2.5.4.9": "street", "2.5.4.10": "O", "2.5.4.11": "OU", "2.5.4.12": "title", "2.5.4.42": "GN",
    "2.5.4.97": "organizationIdentifier", "0.9.2342.19200300.100.1.1": "UID", "0.9.2342.19200300.100.1.25": "DC",
    "1.2.840.113549.1.9.1": "emailAddress",
}
KEYS = {
    "1.2.840.113549.1.1.1": "RSA", "1.2.840.113549.1.1.10": "RSA-PSS", "1.2.840.10040.4.1": "DSA",
    "1.3.101.112": "ED25519", "1.3.101.113": "ED448",
}
EC_KEY = "1.2.840.10045.2.1"
CURVES = {"1.2.840.10045.3.1.7": "prime256v1", "1.3.132.0.34": "secp384r1", "1.3.132.0.35": "secp521r1"}
STRINGS = {0x1E: "utf-16-be", 0x1C: "utf-32-be", 0x0C: "utf-8"}


def element(data, at=0):
    """Returns the tag, the content and the end of the element."""
    if at + 2 > len(data):
        raise Unreadable
    start, length = at + 2, data[at + 1]
    if length >= 0x80:
        start += length - 0x80
        length = int.from_bytes(data[at + 2 : start], "big")
    if start + length > len(data):
        raise Unreadable
    return data[at], data[start : start + length], start + length


def members(data):
    """Returns the tags and contents of all elements."""
    found, at = [], 0
    while at < len(data):
        tag, content, at = element(data, at)
        found.append((tag, content))
    return found


def dotted(oid):
    numbers, number = [], 0
    for byte in oid:
        number = number << 7 | byte & 0x7F
        if byte < 0x80:
            numbers.append(number)
            number = 0
    if not numbers:
        raise Unreadable
    first = min(numbers[0] // 40, 2)
    return ".".join(map(str, [first, numbers[0] - 40 * first] + numbers[1:]))


def text_of(tag, content):
    """Returns an attribute's value as the libraries print it: RFC 2253, in ASCII."""
    text = content.decode(STRINGS.get(tag, "latin-1"), "replace")
    escaped = "".join(
        "\\" + character if character in ',+"\\<>;'
        else character if " " <= character <= "~"
        else "".join("\\%02X" % byte for byte in character.encode("utf-8", "replace"))
        for character in text
    )
    return "\\" + escaped if text.startswith(("#", " ")) else escaped


def name_of(name):
    parts = []
    for _, relative_name in reversed(members(name)):
        attributes = []
        for _, attribute in members(relative_name):
            (_, oid), (tag, content) = members(attribute)[:2]
            kind = dotted(oid)
            attributes.append(ATTRIBUTES.get(kind, kind) + "=" + text_of(tag, content))
        parts.append("+".join(attributes))
    return ",".join(parts)


def time_of(tag, content):
    text = content.decode("latin-1")
    if tag == UTC_TIME:
        text = ("20" if text < "50" else "19") + text
    if len(text) != 15 or not text[:14].isdigit() or text[14] != "Z":
        return "an unreadable time"
    return "%s-%s-%s %s:%s:%s" % (text[:4], text[4:6], text[6:8], text[8:10], text[10:12], text[12:14])


def number_of(content):
    return (content[1:] if content[:1] == b"\0" and len(content) > 1 else content).hex()


def key_of(public_key):
    (_, algorithm), (_, bits) = members(public_key)[:2]
    parts = members(algorithm)
    kind = dotted(parts[0][1])
    if kind == EC_KEY and len(parts) > 1 and parts[1][0] == OID:
        curve = dotted(parts[1][1])
        return CURVES.get(curve, "curve " + curve)
    if KEYS.get(kind) == "RSA":
        modulus = members(element(bits[1:])[1])[0][1]
        return "RSA with %d bits" % int.from_bytes(modulus, "big").bit_length()
    return KEYS.get(kind, kind)


# OpenSSL's objects


def encoding_of(x509):
    """Returns the content of the TBSCertificate from which OpenSSL parsed the certificate."""
    word = void_pointer().sizeof
    for place in range(x509, x509 + 24 * word, word):
        start, length = pointer_at(place), integer_at(place + word, "long")
        if start == 0 or not 4 < length <= LARGEST_CERTIFICATE:
            continue
        try:
            tag, content, end = element(bytes_at(start, length))
        except (gdb.MemoryError, Unreadable):
            continue
        if tag == SEQUENCE and end == length:
            if integer_at(place + word + size_of("long"), "int") != 0:
                break  # changed since it was parsed
            return content
    raise Unreadable


def description(x509):
    """Returns one line about the certificate at the address."""
    try:
        fields = members(encoding_of(x509))
        if fields[0][0] == VERSION:
            del fields[0]
        serial, _, issuer, validity, subject, key = (content for _, content in fields[:6])
        times = members(validity)
        return 'subject "%s", issuer "%s", serial %s, valid from %s to %s UTC, key %s' % (
            name_of(subject), name_of(issuer), number_of(serial), time_of(*times[0]), time_of(*times[1]), key_of(key))
    except (gdb.error, Unreadable, ValueError, IndexError):
        return "cannot be read"


def store_entries(store):
    """Returns the addresses of the store's certificates, and the number of its CRLs."""
    word = void_pointer().sizeof
    stack = pointer_at(store + word)
    # OpenSSL 3 has the stack, a list of methods, parameters, and a function that nobody sets. OpenSSL 4 has the hash
    # table in front of them.
    if pointer_at(store + 4 * word) != 0:
        if stack != 0:
            raise Unreadable
        stack = pointer_at(store + 2 * word)
    count, room = integer_at(stack, "int"), integer_at(stack + 2 * word + size_of("int"), "int")
    if not 0 <= count <= min(room, MOST_ENTRIES):
        raise Unreadable
    certificates, crls, entries = [], 0, pointer_at(stack + word)
    for index in range(count):
        entry = pointer_at(entries + index * word)
        kind = integer_at(entry, "int")
        if kind == 1:
            certificates.append(pointer_at(entry + word))
        elif kind == 2:
            crls += 1
        else:
            raise Unreadable
    return certificates, crls


# Printers


def enumerator(value):
    return str(value).rsplit("::", 1)[-1]


class Printer:
    def __init__(self, value):
        self.value = value
        self.name = gdb.types.get_basic_type(value.type).tag.rsplit("::", 1)[-1]


class CertificatePrinter(Printer):
    """An X509Certificate or Certificate."""

    def to_string(self):
        x509 = self.x509()
        return self.name + " " + (description(x509) if x509 else "without content")

    def x509(self):
        if self.name == "Certificate":
            return first_pointer(self.value["x509"])
        implementation = first_pointer(self.value["impl"])
        return implementation and pointer_at(implementation)


class ListPrinter(Printer):
    """Has `read`, which returns a text for the head and the members."""

    def to_string(self):
        return self.name + " " + self.contents()[0]

    def children(self):
        return (("[%d]" % index, member) for index, member in enumerate(self.contents()[1]))

    def display_hint(self):
        return "array"

    def contents(self):
        try:
            return self.read()
        except (gdb.error, Unreadable, StopIteration):
            return "cannot be read", []


def counted(count, what):
    return "%d %s%s" % (count, what, "" if count == 1 else "s")


class ChainPrinter(ListPrinter):
    def read(self):
        implementation = first_pointer(self.value["impl"])
        if implementation == 0:
            return "of 0 certificates", []
        word = void_pointer().sizeof
        certificate = gdb.lookup_type("foundation::certificates::X509Certificate").pointer()
        first, last = (gdb.Value(pointer_at(implementation + offset)).cast(certificate) for offset in (0, word))
        found = elements(first, last)
        return "of " + counted(len(found), "certificate"), found


class StorePrinter(ListPrinter):
    """A TrustStore or PathValidator."""

    def read(self):
        store = self.store()
        certificates, crls = store_entries(store) if store else ([], 0)
        head = "with " + counted(len(certificates), "certificate")
        if crls:
            head += " and " + counted(crls, "CRL")
        return head, [description(certificate) for certificate in certificates]

    def store(self):
        if self.name == "PathValidator":
            return first_pointer(self.value["store"])
        implementation = first_pointer(self.value["impl"])
        return implementation and pointer_at(pointer_at(implementation))


class ResultPrinter(Printer):
    def to_string(self):
        return self.name + " " + enumerator(self.value["status"])


class ValidationPrinter(ResultPrinter):
    def children(self):
        yield "errorText", self.value["errorText"]
        if enumerator(self.value["revocationResults"]["status"]) == "Revoked":
            yield "revocationResults", self.value["revocationResults"]
        root = next(pointers_in(self.value["rootCertificate"]))
        if root != 0:
            yield "rootCertificate", root.dereference()


class RevocationPrinter(ResultPrinter):
    def children(self):
        if enumerator(self.value["status"]) == "Revoked":
            yield "revocationDate", self.value["revocationDate"]
            yield "revokedSerialNumber", self.value["revokedSerialNumber"]


class SignaturePrinter(Printer):
    def to_string(self):
        is_valid = "valid" if self.value["signatureStatus"] else "not valid"
        return "%s signature %s, chain %s" % (self.name, is_valid, enumerator(self.value["status"]))

    def children(self):
        yield "errorText", self.value["errorText"]


class PathPrinter(ResultPrinter):
    def to_string(self):
        code = int(self.value["errorCode"])
        failure = ", error %d at depth %d" % (code, int(self.value["errorDepth"])) if code else ""
        return super().to_string() + failure

    def children(self):
        yield "text", self.value["text"]
        first, last = itertools.islice(pointers_in(self.value["chain"]), 2)
        try:
            for depth, certificate in enumerate(elements(first, last)):
                yield "chain[%d]" % depth, certificate
        except Unreadable:
            yield "chain", "cannot be read"


PRINTERS = {
    "certificates::X509Certificate": CertificatePrinter,
    "certificates::X509CertificateChain": ChainPrinter,
    "certificates::TrustStore": StorePrinter,
    "certificates::CertificateValidationResults": ValidationPrinter,
    "certificates::CertificateRevocationResults": RevocationPrinter,
    "certificates::PKCS7CertificateValidationResults": SignaturePrinter,
    "toolkit::Certificate": CertificatePrinter,
    "toolkit::PathResult": PathPrinter,
    "toolkit::PathValidator": StorePrinter,
}


def register():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("foundation-certificates")
    for name, printer in PRINTERS.items():
        printers.add_printer(name, "^foundation::%s$" % name, printer)
    gdb.printing.register_pretty_printer(gdb.current_objfile(), printers, replace=True)


register()
