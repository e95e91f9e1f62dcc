"""Turns the pages of the repository into pages for doxygen: site_pages.py FOLDER writes them into FOLDER.

Each page and each heading gets an identifier, so that a link to tls.md#with-bare-openssl leads to the right place of
the site. A link to a file that is not on the site becomes plain text. A line {{program PAGE NUMBER}} becomes the block
of C++ code with this number on that page.
"""

import html
import pathlib
import re
import sys

# The page of each file, by its path. Links to README.md lead to the start page, which is docs/site/start.md.
PAGES = {
    "README.md": "index",
    "docs/site/start.md": "index",
    "docs/README.md": "guides",
    "packaging/README.md": "packaging",
    "ARCHITECTURE.md": "architecture",
    "CHANGELOG.md": "changelog",
    "CONTRIBUTING.md": "contributing",
    "SECURITY.md": "reporting",  # docs/security.md is "security"
}
for path in sorted(pathlib.Path("docs").glob("*.md")):
    PAGES.setdefault(path.as_posix(), path.stem)

LINK = re.compile(r"(!?)\[((?:[^\[\]`]|`[^`]*`)+)\]\(([^)\s]+)\)")
CODE_SPAN = re.compile(r"(`[^`]+`)")


def anchor(heading):
    """Returns the anchor of a heading: lower case, without punctuation, with hyphens for blanks."""
    return re.sub(r"[^a-z0-9_ -]", "", heading.lower()).replace(" ", "-")


def normalized(folder, target):
    """Returns the path from the project's folder of a target that is written relative to the page's folder."""
    root = pathlib.Path.cwd()
    return (root / folder / target).resolve().relative_to(root).as_posix()


def title(path):
    return re.match(r"# (.*)", pathlib.Path(path).read_text())[1]


def program(path, number):
    blocks = re.findall(r"^```cpp\n.*?^```$", pathlib.Path(path).read_text(), re.M | re.S)
    return blocks[number - 1]


class Page:
    def __init__(self, path):
        self.path = path
        self.name = PAGES[path]
        self.folder = pathlib.Path(path).parent
        self.anchors = set()
        self.rows = 0

    def link(self, match):
        mark, text, target = match.groups()
        if mark:
            return f'<img src="{pathlib.Path(target).name}" alt="{html.escape(text)}"/>'
        if re.match(r"https?:", target):
            return match.group(0)
        file, _, heading = target.partition("#")
        path = normalized(self.folder, file) if file else self.path
        page = PAGES.get(path)
        if not page:
            return text
        if text.endswith(".md"):
            text = title(path)
        # A page is a part of the page that lists it.
        if self.name == "guides" and not heading:
            return f'@subpage {page} "{text}"'
        target = f"{page}.html" + (f"#{page}-{heading}" if heading else "")
        return f'<a href="{target}">{text}</a>'

    def prose(self, text):
        text = LINK.sub(self.link, text)
        # Doxygen would take these for its commands.
        parts = CODE_SPAN.split(text)
        for index in range(0, len(parts), 2):
            parts[index] = re.sub(r"\\(?=[a-z])|@(?!subpage)", r"\\\g<0>", parts[index])
        return "".join(parts)

    def heading(self, match):
        level, text = match.groups()
        if len(level) == 1 and self.name == "index":
            return f"# {text} {{#mainpage}}"
        name = self.name if len(level) == 1 else f"{self.name}-{anchor(text)}"
        while name in self.anchors:
            name += "-"
        self.anchors.add(name)
        return f"{level} {text} {{#{name}}}"

    def with_row_anchors(self, text):
        """Gives an anchor to each row of a table with a column "How to check", so that the search leads there."""
        lines, in_table = [], False
        for line in text.split("\n"):
            if not line.startswith("|"):
                in_table = False
            elif "| How to check |" in line:
                in_table = True
            elif in_table and not line.startswith("|-"):
                self.rows += 1
                line = rf"| \anchor {self.name}-row-{self.rows} {line[2:]}"
            lines.append(line)
        return "\n".join(lines)

    def convert(self):
        text = pathlib.Path(self.path).read_text()
        text = re.sub(r"^\{\{program (\S+) (\d+)\}\}$", lambda m: program(m[1], int(m[2])), text, flags=re.M)
        parts = re.split(r"(^```.*?^```$)", text, flags=re.M | re.S)
        for index in range(0, len(parts), 2):
            text = re.sub(r"^(#+) (.*)$", self.heading, self.prose(parts[index]), flags=re.M)
            parts[index] = self.with_row_anchors(text)
        return "".join(parts)


folder = pathlib.Path(sys.argv[1])
folder.mkdir(parents=True, exist_ok=True)
for path, name in PAGES.items():
    if path != "README.md":
        (folder / f"{name}.md").write_text(Page(path).convert())
