"""What python3-cryptography says about a certificate, in the words of the library's answers.

Its parser is its own, in Rust. An answer that it cannot give is missing."""
import calendar
import hashlib
import ipaddress
import warnings

from cryptography import x509
from cryptography.hazmat.primitives import serialization
from cryptography.hazmat.primitives.asymmetric import dsa, ec, ed448, ed25519, rsa, x448, x25519
from cryptography.x509.oid import AuthorityInformationAccessOID, ExtendedKeyUsageOID, NameOID

warnings.simplefilter("ignore") # it warns of what certificates for tests are full of

# OpenSSL's short names.
ATTRIBUTES = {
    "2.5.4.3": "CN", "2.5.4.4": "SN", "2.5.4.5": "serialNumber", "2.5.4.6": "C", "2.5.4.7": "L", "2.5.4.8": "ST",
    "2.5.4.9": "street", "2.5.4.10": "O", "2.5.4.11": "OU", "2.5.4.12": "title", "2.5.4.13": "description",
    "2.5.4.15": "businessCategory", "2.5.4.17": "postalCode", "2.5.4.20": "telephoneNumber", "2.5.4.41": "name",
    "2.5.4.42": "GN", "2.5.4.43": "initials", "2.5.4.44": "generationQualifier", "2.5.4.45": "x500UniqueIdentifier",
    "2.5.4.46": "dnQualifier", "2.5.4.65": "pseudonym", "2.5.4.97": "organizationIdentifier",
    "1.2.840.113549.1.9.1": "emailAddress", "1.2.840.113549.1.9.2": "unstructuredName",
    "0.9.2342.19200300.100.1.1": "UID", "0.9.2342.19200300.100.1.25": "DC",
    "1.3.6.1.4.1.311.60.2.1.1": "jurisdictionL", "1.3.6.1.4.1.311.60.2.1.2": "jurisdictionST",
    "1.3.6.1.4.1.311.60.2.1.3": "jurisdictionC", "2.5.29.17": "subjectAltName",
}
SIGNATURES = {
    "1.2.840.113549.1.1.2": "RSA-MD2", "1.2.840.113549.1.1.4": "RSA-MD5", "1.2.840.113549.1.1.5": "RSA-SHA1",
    "1.2.840.113549.1.1.10": "RSASSA-PSS", "1.2.840.113549.1.1.11": "RSA-SHA256",
    "1.2.840.113549.1.1.12": "RSA-SHA384", "1.2.840.113549.1.1.13": "RSA-SHA512",
    "1.2.840.113549.1.1.14": "RSA-SHA224", "1.2.840.10045.4.1": "ecdsa-with-SHA1",
    "1.2.840.10045.4.3.1": "ecdsa-with-SHA224", "1.2.840.10045.4.3.2": "ecdsa-with-SHA256",
    "1.2.840.10045.4.3.3": "ecdsa-with-SHA384", "1.2.840.10045.4.3.4": "ecdsa-with-SHA512",
    "1.2.840.10040.4.3": "DSA-SHA1", "2.16.840.1.101.3.4.3.1": "dsa_with_SHA224",
    "2.16.840.1.101.3.4.3.2": "dsa_with_SHA256", "1.3.101.112": "ED25519", "1.3.101.113": "ED448",
    "2.16.840.1.101.3.4.3.13": "id-rsassa-pkcs1-v1_5-with-sha3-224",
    "2.16.840.1.101.3.4.3.14": "id-rsassa-pkcs1-v1_5-with-sha3-256",
    "2.16.840.1.101.3.4.3.15": "id-rsassa-pkcs1-v1_5-with-sha3-384",
    "2.16.840.1.101.3.4.3.16": "id-rsassa-pkcs1-v1_5-with-sha3-512",
    "1.3.14.3.2.29": "RSA-SHA1-2", "1.2.840.113549.2.5": "MD5", "1.2.156.10197.1.501": "SM2-SM3",
    "1.2.643.2.2.3": "id-GostR3411-94-with-GostR3410-2001",
    "1.2.643.2.2.4": "id-GostR3411-94-with-GostR3410-94",
    "1.2.643.7.1.1.3.2": "id-tc26-signwithdigest-gost3410-2012-256",
    "1.2.643.7.1.1.3.3": "id-tc26-signwithdigest-gost3410-2012-512",
}
KEY_USAGES = ("digital_signature", "content_commitment", "key_encipherment", "data_encipherment", "key_agreement",
              "key_cert_sign", "crl_sign", "encipher_only", "decipher_only")
KEY_USAGE_NAMES = ("digitalSignature", "nonRepudiation", "keyEncipherment", "dataEncipherment", "keyAgreement",
                   "keyCertSign", "cRLSign", "encipherOnly", "decipherOnly")
CURVES = {"secp192r1": "prime192v1", "secp256r1": "prime256v1"}
TEXT_TAGS = {12, 18, 19, 20, 22, 23, 24, 26, 28, 30} # the string types that OpenSSL prints as text
PSS_KEY = "06092a864886f70d01010a" # the algorithm of a key that signs only with PSS
# The clock of std::chrono has 64 bits and counts nanoseconds. The library's answers are clamped to it.
LATEST, EARLIEST = 9223372036, -9223372037
NETSCAPE_TYPE = x509.ObjectIdentifier("2.16.840.1.113730.1.1")


class Missing(Exception):
    """The parser gives no answer."""


def hexadecimal(number):
    """Returns the digits of the bytes of a positive number, as OpenSSL writes them."""
    return number.to_bytes(max(1, (number.bit_length() + 7) // 8), "big").hex()


def escaped(text):
    """Returns the value of an attribute as RFC 2253 text, with everything but printable ASCII as bytes."""
    result = ""
    for position, byte in enumerate(raw := text.encode()):
        character = chr(byte)
        is_first, is_last = position == 0, position == len(raw) - 1
        if byte < 0x20 or byte > 0x7E:
            result += f"\\{byte:02X}"
        elif character in ',+"\\<>;' or (character == " " and (is_first or is_last)) or \
                (character == "#" and is_first):
            result += "\\" + character
        else:
            result += character
    return result


def attribute_text(attribute):
    name = ATTRIBUTES.get(attribute.oid.dotted_string)
    if not name or attribute._type.value not in TEXT_TAGS:
        raise Missing # OpenSSL prints the bytes of the encoding
    return f"{name}={escaped(attribute.value)}"


def check_order(name):
    """The parser keeps no order inside a part of several attributes, and loses one that is there twice."""
    if any(len(part) > 1 for part in name.rdns):
        raise Missing


def name_text(name):
    """Returns the name as OpenSSL writes it for RFC 2253."""
    check_order(name)
    return ",".join(attribute_text(attribute) for part in reversed(name.rdns) for attribute in part)


def name_attributes(name):
    check_order(name)
    return {ATTRIBUTES.get(attribute.oid.dotted_string, "UNDEF"): attribute.value for attribute in name
            if attribute._type.value in TEXT_TAGS}


def common_name(name, whose):
    check_order(name)
    names = name.get_attributes_for_oid(NameOID.COMMON_NAME)
    return names[-1].value if names else {"failure": f"{whose} name has no CN."}


def seconds(time):
    return calendar.timegm(time.timetuple())


def clamped(seconds_since_1970):
    return max(EARLIEST, min(LATEST, seconds_since_1970))


def parts_of(der):
    """Returns the content of each element of a sequence, with its own first bytes."""
    parts, position = [], 0
    while position < len(der):
        length, start = der[position + 1], position + 2
        if length & 0x80:
            count = length & 0x7F
            length, start = int.from_bytes(der[start:start + count], "big"), start + count
        parts.append((der[position], der[start:start + length]))
        position = start + length
    return parts


def encoded_key(certificate_der):
    """Returns the algorithm and the bits of the public key, as they are encoded."""
    body = parts_of(parts_of(parts_of(certificate_der)[0][1])[0][1])
    explicit_version = 1 if body[0][0] == 0xA0 else 0
    algorithm, bits = parts_of(body[5 + explicit_version][1])
    return algorithm[1], bits[1][1:]


def key_kind(key):
    if isinstance(key, ec.EllipticCurvePublicKey):
        return CURVES.get(key.curve.name, key.curve.name)
    kinds = {rsa.RSAPublicKey: "RSA", dsa.DSAPublicKey: "DSA", ed25519.Ed25519PublicKey: "ED25519",
             ed448.Ed448PublicKey: "ED448", x25519.X25519PublicKey: "X25519", x448.X448PublicKey: "X448"}
    return next(name for kind, name in kinds.items() if isinstance(key, kind))


def key_answer(key, point):
    if isinstance(key, rsa.RSAPublicKey):
        numbers = key.public_numbers()
        return {"bits": key.key_size, "modulus": hexadecimal(numbers.n), "exponent": hexadecimal(numbers.e)}
    if isinstance(key, ed25519.Ed25519PublicKey):
        raw = key.public_bytes(serialization.Encoding.Raw, serialization.PublicFormat.Raw)
        return {"curve": "Ed25519", "point": raw.hex()}
    return {"curve": "Prime256v1", "point": point.hex()} # compressed or not, as the certificate has it


def refusal_of(key, is_for_pss):
    """Returns the library's reason to refuse a key that it does not support; None for the others."""
    if is_for_pss:
        return "Key is not currently supported. OpenSSL type id: 912"
    if isinstance(key, rsa.RSAPublicKey):
        return "RSA key size does not meet minimum cryptographic requirements" if key.key_size < 1024 else None
    if isinstance(key, ed25519.Ed25519PublicKey):
        return None
    if isinstance(key, ec.EllipticCurvePublicKey):
        curve = key_kind(key)
        prefix = "ECC-based key is not using supported ECC Curve. Curve: "
        return None if curve == "prime256v1" else prefix + curve
    if isinstance(key, ed448.Ed448PublicKey):
        return "Key uses Ed448, which is not currently supported"
    numbers = {"DSA": 116, "X25519": 1034, "X448": 1035} # OpenSSL's type ids
    return f"Key is not currently supported. OpenSSL type id: {numbers[key_kind(key)]}"


def alternative_name(name):
    if isinstance(name, x509.DNSName):
        return [0, name.value]
    if isinstance(name, x509.IPAddress):
        if isinstance(name.value, (ipaddress.IPv4Network, ipaddress.IPv6Network)):
            raise Missing
        return [1, str(name.value)]
    if isinstance(name, x509.RFC822Name):
        return [2, name.value]
    if isinstance(name, x509.UniformResourceIdentifier):
        return [3, name.value]
    return [4, ""]


def uris(names):
    return [name.value for name in names or () if isinstance(name, x509.UniformResourceIdentifier)]


class Extensions:
    """The extensions of a certificate; Missing if the parser refuses one of them."""
    def __init__(self, certificate):
        try:
            self.all = certificate.extensions
        except Exception as refusal:
            raise Missing from refusal

    def get(self, kind):
        try:
            return self.all.get_extension_for_class(kind).value
        except x509.ExtensionNotFound:
            return None

    def key_usages(self):
        usage = self.get(x509.KeyUsage)
        # The public properties of the last two raise an exception without keyAgreement.
        return usage and [name for field, name in zip(KEY_USAGES, KEY_USAGE_NAMES) if getattr(usage, "_" + field)]

    def extended_key_usages(self):
        return [usage.dotted_string for usage in self.get(x509.ExtendedKeyUsage) or ()]

    def is_ca(self, is_first_version_root):
        usages = self.key_usages()
        if usages is not None and "keyCertSign" not in usages:
            return False
        constraints = self.get(x509.BasicConstraints)
        if constraints is not None:
            return constraints.ca
        if any(extension.oid == NETSCAPE_TYPE for extension in self.all):
            raise Missing
        return is_first_version_root or usages is not None


class Reference:
    """The expected answers for one certificate."""
    def __init__(self, der):
        self.der = der
        self.certificate = x509.load_der_x509_certificate(der)

        algorithm, self.key_bits = encoded_key(der)
        self.is_for_pss = algorithm.hex().startswith(PSS_KEY)

    def answers(self, interface):
        """Returns the answers for "library" or "toolkit"; those that the parser refuses to give are missing."""
        found = {}
        for name, ask in {**self.common(), **getattr(self, interface)()}.items():
            try:
                found[name] = ask()
            except Exception: # it has no one class for all that it refuses
                continue
        return found

    def common(self):
        certificate = self.certificate
        return {
            "subject": lambda: name_text(certificate.subject),
            "issuer": lambda: name_text(certificate.issuer),
            "sha256": lambda: hashlib.sha256(self.der).hexdigest(),
            "signatureAlgorithm": lambda: SIGNATURES.get(
                certificate.signature_algorithm_oid.dotted_string, "UNDEF"),
            "extendedKeyUsages": lambda: Extensions(certificate).extended_key_usages(),
            "isCA": lambda: Extensions(certificate).is_ca(self.is_first_version_root()),
            "der": self.der.hex,
        }

    def library(self):
        certificate = self.certificate
        return {
            "subjectAttributes": lambda: name_attributes(certificate.subject),
            "issuerAttributes": lambda: name_attributes(certificate.issuer),
            "subjectCommonName": lambda: common_name(certificate.subject, "Subject"),
            "issuerCommonName": lambda: common_name(certificate.issuer, "Issuer"),
            "serialNumber": lambda: str(certificate.serial_number),
            "notBefore": lambda: seconds(certificate.not_valid_before),
            "notAfter": lambda: seconds(certificate.not_valid_after),
            "key": lambda: key_answer(certificate.public_key(), self.key_bits),
            "policies": lambda: [policy.policy_identifier.dotted_string for policy in
                                 Extensions(certificate).get(x509.CertificatePolicies) or ()],
            "isSelfSigned": lambda: name_text(certificate.subject) == name_text(certificate.issuer),
            "isValidForDigitalSigning": self.is_valid_for_signing,
        }

    def toolkit(self):
        certificate = self.certificate
        return {
            "serialNumber": lambda: ("-" if certificate.serial_number < 0 else "") +
                                    hexadecimal(abs(certificate.serial_number)),
            "notBefore": lambda: clamped(seconds(certificate.not_valid_before)),
            "notAfter": lambda: clamped(seconds(certificate.not_valid_after)),
            "keyKind": lambda: "RSA-PSS" if self.is_for_pss else key_kind(certificate.public_key()),
            "keyBits": self.key_size,
            "subjectKeyIdentifier": lambda: getattr(
                Extensions(certificate).get(x509.SubjectKeyIdentifier), "digest", b"").hex(),
            "authorityKeyIdentifier": lambda: (getattr(
                Extensions(certificate).get(x509.AuthorityKeyIdentifier), "key_identifier", b"") or b"").hex(),
            "keyUsages": lambda: Extensions(certificate).key_usages() or [],
            "alternativeNames": lambda: [alternative_name(name) for name in
                                         Extensions(certificate).get(x509.SubjectAlternativeName) or ()],
            "issuerURLs": lambda: [
                url for access in Extensions(certificate).get(x509.AuthorityInformationAccess) or ()
                if access.access_method == AuthorityInformationAccessOID.CA_ISSUERS
                for url in uris([access.access_location])],
            "crlURLs": lambda: [url for point in Extensions(certificate).get(x509.CRLDistributionPoints) or ()
                                for url in uris(point.full_name)],
        }

    def key_size(self):
        key = self.certificate.public_key()
        # Releases of OpenSSL differ for Ed25519. The others count the bits of the order of a binary curve.
        if key_kind(key) == "ED25519" or key_kind(key).startswith("sect"):
            raise Missing
        sizes = {"ED448": 456, "X25519": 253, "X448": 448}
        return sizes.get(key_kind(key)) or key.key_size

    def is_first_version_root(self):
        """Whether the certificate has version 1, its own issuer's name, and a key that OpenSSL supports."""
        certificate = self.certificate
        return certificate.version == x509.Version.v1 and certificate.issuer == certificate.subject and \
            certificate.public_key() is not None

    def is_valid_for_signing(self):
        extensions = Extensions(self.certificate)
        usages = extensions.extended_key_usages()
        return "digitalSignature" in (extensions.key_usages() or ()) and \
            (not extensions.get(x509.ExtendedKeyUsage) or
             ExtendedKeyUsageOID.CODE_SIGNING.dotted_string in usages)

    def has_readable_names(self):
        """Whether the parser reads both names. It reads them on first need, and OpenSSL while it loads."""
        try:
            return self.certificate.subject is not None and self.certificate.issuer is not None
        except ValueError:
            return False

    def refusal(self):
        """Returns the library's reason to refuse the key, None if it supports the key; else Missing."""
        try:
            return refusal_of(self.certificate.public_key(), self.is_for_pss)
        except Exception as refusal:
            raise Missing from refusal
