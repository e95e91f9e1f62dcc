"""Finds certificates and CRLs in folders, and in archives of source packages."""
import base64
import os
import re
import tarfile

# A block of PEM text. In sources it is often a string literal, with a quotation mark and an escaped end of line on
# each line.
BLOCK = re.compile(rb"-----BEGIN (X509 |TRUSTED )?(CERTIFICATE|X509 CRL)-----(.*?)-----END ", re.DOTALL)
LITERAL = re.compile(rb'\\[nr]|"\s*\+|[^A-Za-z0-9+/=]')
LARGEST_FILE = 1 << 20


def blocks_of(content):
    """Yields the kind and the bytes of each block that is valid base64."""
    for block in BLOCK.finditer(content):
        try:
            der = base64.b64decode(LITERAL.sub(b"", block[3]), validate=True)
        except ValueError:
            continue
        yield block[2].decode(), first_element(der) if block[1] == b"TRUSTED " else der


def first_element(der):
    """Returns the DER element at the start. OpenSSL's trust settings follow the certificate."""
    if len(der) < 4 or der[1] & 0x80 == 0:
        return der
    count = der[1] & 0x7F
    return der[:2 + count + int.from_bytes(der[2:2 + count], "big")]


def files_of(path):
    """Yields the name and the content of each file of a folder or an archive, in a fixed order."""
    if os.path.isdir(path):
        for folder, folders, names in os.walk(path):
            folders.sort()
            for name in sorted(names):
                file = os.path.join(folder, name)
                if os.path.isfile(file) and os.path.getsize(file) <= LARGEST_FILE:
                    with open(file, "rb") as opened:
                        yield os.path.relpath(file, path), opened.read()
        return
    with tarfile.open(path) as archive:
        for member in archive:
            if member.isfile() and member.size <= LARGEST_FILE:
                yield member.name.partition("/")[2], archive.extractfile(member).read()


def collect(paths):
    """Returns (folder, kind, DER) of all certificates and CRLs; each once in its folder."""
    found = {}
    for path in paths:
        for name, content in files_of(path):
            entries = list(blocks_of(content))
            if not entries and content[:2] == b"\x30\x82" and first_element(content) == content:
                entries = [("CERTIFICATE", content)] # or another structure, which both sides refuse
            for kind, der in entries:
                found.setdefault((os.path.dirname(name), kind, der))
    return list(found)
