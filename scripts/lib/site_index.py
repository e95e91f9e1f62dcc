"""Completes the site: site_index.py INPUT SITE, with what scripts/docs has put into INPUT.

Names in the code spans of the pages become links to the reference. The search index has an entry [title, address, text]
for each public name, each heading of a page, and each row of a table that has an anchor.
"""

import html
import json
import pathlib
import re
import sys
import xml.etree.ElementTree as tree

HEADING = re.compile(r"^#+ (.*) \{#(.*)\}$", re.M)
ROW = re.compile(r"^\| \\anchor (\S+) ([^|]+)\|(.*)$", re.M)


def plain(text):
    """Returns the text of a piece of Markdown."""
    text = re.sub(r"<[^>\n]+>|@subpage \S+|\\anchor \S+|^\|[-:|]+\|$|^```\w*$", " ", text, flags=re.M)
    return " ".join(html.unescape(re.sub(r"[`*|]|\\(?=[^a-z])", " ", text)).split())


def of_page(page):
    text = page.read_text()
    title = HEADING.search(text)[1]
    for row in ROW.finditer(text):
        # A number is a code of OpenSSL's.
        name = re.sub(r"^(\d+)$", r"Error code \1", plain(row[2]))
        yield [name, f"{page.stem}.html#{row[1]}", plain(row[3])]
    parts = HEADING.split(ROW.sub("", text))
    for heading, anchor, content in zip(parts[1::3], parts[2::3], parts[3::3]):
        first = heading == title
        name = plain(heading) if first else f"{plain(heading)} – {title}"
        yield [name, f"{page.stem}.html" + ("" if first else f"#{anchor}"), plain(content)]


def of_names(tags):
    for compound in tree.parse(tags).getroot():
        kind, scope = compound.get("kind"), compound.findtext("name")
        members = compound.findall("member")
        if kind in ("class", "struct", "namespace"):
            yield [scope, compound.findtext("filename"), kind]
        elif kind == "group":  # a macro has no other scope
            scope, members = "", [member for member in members if member.get("kind") == "define"]
        else:
            continue
        for member in members:
            name = f"{scope}::{member.findtext('name')}".lstrip(":")
            declaration = f"{member.findtext('type') or ''} {name}{member.findtext('arglist') or ''}"
            yield [name, f"{member.findtext('anchorfile')}#{member.findtext('anchor')}", declaration.strip()]


def addresses(names):
    """Returns the address of each name, also without its scopes if only one name ends so."""
    found = {}
    for name, address, _ in names:
        parts = name.split("::")
        for start in range(len(parts)):
            found.setdefault("::".join(parts[start:]), {}).setdefault(name, address)
    return {name: next(iter(of.values())) for name, of in found.items() if len(of) == 1}


def link_names(page, targets):
    def linked(match):
        code, name = match.groups()
        target = targets.get(name) if code else None
        return f'<a class="el" href="{target}">{match[0]}</a>' if target else match[0]

    text = page.read_text()
    page.write_text(re.sub(r"<a [^>]*>.*?</a>|(<code>([\w:]+)(?:\(\))?</code>)", linked, text, flags=re.S))


source, site = map(pathlib.Path, sys.argv[1:])
names = list(of_names(source / "names.xml"))
targets = addresses(names)
entries = []
for page in sorted(source.glob("*.md")):
    link_names(site / f"{page.stem}.html", targets)
    entries += of_page(page)
(site / "search-index.js").write_text("const searchIndex = " + json.dumps(entries + names, ensure_ascii=False) + ";\n")
