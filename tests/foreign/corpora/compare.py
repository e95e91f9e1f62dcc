#!/usr/bin/python3
"""compare.py PROGRAM NAME=PATH...: compares the library with python3-cryptography and with bare OpenSSL.

Reads all certificates and CRLs below each PATH, which is a folder or an archive. PROGRAM is corpora_answers. Prints
counts for each NAME, and each difference that has no reason here. Fails on such a difference, and if one of the reasons
explains no difference."""
import collections
import concurrent.futures
import json
import os
import subprocess
import sys

from collection import collect
from reference import Missing, Reference

# Why OpenSSL reads a certificate that the other parser refuses: a part of the refusal, and the reason.
STRICTER = {
    "Validity::": "the parser wants readable times, and OpenSSL reads them on first need",
    "EncodedDefault": "an extension encodes that it is not critical, which DER omits",
    "Extension::extn_id": "the OID of an extension has a number above 32 bits",
    "InvalidSetOrdering": "the attributes of a name are not in the order of DER",
    "version": "the version is unknown",
}
STATUSES = ("Valid", "Untrusted", "SelfSigned", "CRLError", "Revoked", "Expired", "BadSignature", "Failed")


class Comparison:
    """The comparison of one source."""
    def __init__(self):
        self.counts = collections.Counter()
        self.statuses = collections.Counter()
        self.reasons = set()
        self.differences = []

    def compare(self, name, expected, actual, folder):
        self.counts["answers"] += 1
        if expected != actual:
            self.differences.append(f"{name}: {actual!r}, but the parser says {expected!r}, in {folder}")

    def add_certificate(self, der, library, toolkit, folder):
        is_refused = "failure" in toolkit
        try:
            reference = Reference(der)
        except Exception as refusal: # the parser has no one class for all that it refuses
            return self.add_refused(str(refusal), is_refused, folder)
        if is_refused and not reference.has_readable_names():
            return self.add_refused("names", is_refused, folder)
        self.counts["certificates"] += 1
        if is_refused:
            return self.compare("load", "a certificate", toolkit["failure"], folder)
        try:
            self.compare("refusal", reference.refusal(), library.get("failure"), folder)
        except Missing:
            self.counts["keys that the parser does not know"] += 1
        for interface, given in (("library", library), ("toolkit", toolkit)):
            if "failure" not in given:
                for name, expected in reference.answers(interface).items():
                    self.compare(f"{interface} {name}", expected, given[name], folder)

    def add_refused(self, refusal, is_refused_by_both, folder):
        self.counts["refused by both" if is_refused_by_both else "refused by the parser alone"] += 1
        if not is_refused_by_both:
            reason = next((part for part in STRICTER if part in refusal), None)
            if not reason:
                self.differences.append(f"load: a certificate, but the parser says {refusal!r}, in {folder}")
            self.reasons.add(reason)

    def add_verdicts(self, verdicts, folder):
        self.counts["verdicts"] += verdicts["compared"]
        for status, count in (verdicts["counts"] or {}).items():
            self.statuses["exception" if status == "-1" else STATUSES[int(status)]] += count
        self.differences += [f"{difference}, in {folder}" for difference in verdicts["differences"]]


def compare(program, paths):
    """Returns the comparison of all certificates below the paths."""
    folders = collections.defaultdict(list)
    for folder, kind, der in collect(paths):
        folders[folder].append((kind, der))
    lines = []
    for members in folders.values():
        lines += [("crl " if kind == "X509 CRL" else "certificate ") + der.hex() for kind, der in members]
        lines.append("end")
    answers = iter(subprocess.run([program], input="\n".join(lines), stdout=subprocess.PIPE, check=True,
                                  text=True).stdout.splitlines())
    comparison = Comparison()
    for folder, members in folders.items():
        for kind, der in members:
            if kind != "X509 CRL":
                comparison.add_certificate(der, **json.loads(next(answers)), folder=folder)
        comparison.add_verdicts(json.loads(next(answers)), folder)
    return comparison


def text_of(counts):
    return ", ".join(f"{count} {what}" for what, count in sorted(counts.items()))


def main():
    program, *sources = sys.argv[1:]
    paths = collections.defaultdict(list)
    for source in sources:
        name, _, path = source.partition("=")
        paths[name].append(path)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        comparisons = list(pool.map(lambda some: compare(program, some), paths.values()))
    for name, comparison in zip(paths, comparisons):
        print(f"{name}: {text_of(comparison.counts)}\n    Verdicts: {text_of(comparison.statuses)}")
        for difference in comparison.differences:
            print(f"    DIFFERENCE {difference}")
    total = sum((comparison.counts for comparison in comparisons), collections.Counter())
    print(f"all: {text_of(total)}")
    unused = set(STRICTER).difference(*(comparison.reasons for comparison in comparisons))
    for reason in sorted(unused):
        print(f"The reason {reason!r} explains no difference.")
    return bool(unused) or any(comparison.differences for comparison in comparisons)


if __name__ == "__main__":
    sys.exit(main())
