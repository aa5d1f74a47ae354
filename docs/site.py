#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What Doxygen lacks for making one site of guide, manual pages and reference.

  site.py pages <folder>              writes the Markdown pages and manual pages as Doxygen wants them:
                                      with an identifier for each heading, and links by those
  site.py check <site> <library>...   every link of the site leads somewhere, and each function and
                                      class that the libraries export has an entry
"""

import html.parser
import os
import pathlib
import re
import subprocess
import sys
import urllib.parse
import xml.etree.ElementTree

SOURCE = pathlib.Path(__file__).resolve().parent.parent
CONTENTS = SOURCE / "docs/README.md"  # the pages that it links to are the site's chapters
MANUALS = sorted(manual for folder in ("tools", "scripts", "examples/appliance/service")
                 for manual in SOURCE.glob(folder + "/*.[1-8]"))
REFERENCE = SOURCE / "docs/reference.dox"
PAGES = [SOURCE / "README.md", SOURCE / "CHANGELOG.md", SOURCE / "CONTRIBUTING.md",
         SOURCE / "examples/appliance/README.md", *sorted(SOURCE.glob("docs/**/*.md")), *MANUALS, REFERENCE]


def page_id(path):
    if path == SOURCE / "README.md":
        return "mainpage"
    name = path.relative_to(SOURCE).as_posix()
    return "page_" + re.sub(r"\W+", "_", name.removesuffix(".md")).lower()


def slug(heading):  # as the forges that show Markdown make it
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def text_of(path):
    if path in MANUALS:
        text = subprocess.run(["mandoc", "-T", "markdown", path], check=True, capture_output=True,
                              text=True).stdout
        title, *lines = text.splitlines()  # "NAS-LOG(1) - General Commands Manual"
        lines = [re.sub("^#", "##", line) for line in lines[:-1]]
        return "\n".join([f"# {title.split(' - ')[0].lower()}", *lines])
    return re.sub(r"^<!--.*?-->\n", "", path.read_text())


def link(path, match):
    image, text, target = match.groups()
    file, _, anchor = target.partition("#")
    found = (path.parent / file).resolve() if file else path
    if found not in PAGES and not found.is_file():
        sys.exit(f"{path}: there is no {target}")
    if image:
        return f"![{text}]({found.name})"
    if found not in PAGES:
        return f'<a href="{found.name}">{text}</a>'
    if anchor:
        return f"[{text}](#{page_id(found)}_{anchor})"
    if path == CONTENTS or found == CONTENTS and path == SOURCE / "README.md":
        return f"@subpage {page_id(found)} \"{text}\""
    return f"[{text}](@ref {page_id(found)})"


def heading(path, match):
    marks, title = match.groups()
    label = page_id(path) + ("" if marks == "#" else "_" + slug(title))
    return f"{marks} {title.replace('`', '')} {{#{label}}}"


def converted(path):
    pieces = re.split(r"(^```.*?^```$|^    [^\n]*$)", text_of(path), flags=re.M | re.S)
    for i in range(0, len(pieces), 2):  # between them is code
        text = re.sub(r"^(#+) (.*)$", lambda m: heading(path, m), pieces[i], flags=re.M)
        pieces[i] = re.sub(r"(!?)\[([^\]]*)\]\(((?!\w+:)[^)\s]+)\)", lambda m: link(path, m), text)
    return "".join(pieces)


def write_pages(folder):
    folder.mkdir(parents=True, exist_ok=True)
    for path in PAGES:
        if path == REFERENCE:
            continue
        (folder / f"{page_id(path)}.md").write_text(converted(path))


class Links(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.names = [], set()
        self.feed(path.read_text())

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.names |= {attributes[key] for key in ("id", "name") if attributes.get(key)}
        self.links += [attributes[key] for key in ("href", "src") if attributes.get(key)]


def broken_links(site):
    pages = {path.name: Links(path) for path in site.glob("*.html")}
    for name, page in sorted(pages.items()):
        for target in sorted(set(page.links)):
            file, _, anchor = urllib.parse.unquote(target).partition("#")
            if re.match(r"\w+:", target) or anchor == "nested-classes":  # Doxygen's own slip
                continue
            if not (site / (file or name)).exists():
                yield f"{name}: {target} is missing"
            elif anchor and anchor not in pages[file or name].names:
                yield f"{name}: {target} has no such place"


# Of a class only its name is looked for: what is private has no entry, and is exported as well.
def missing_names(site, libraries):
    entries = {entry.text.split("::")[-1] for entry in
               xml.etree.ElementTree.parse(site / "names.xml").iterfind(".//name")}
    for library in libraries:
        symbols = subprocess.run(["nm", "-DC", "--defined-only", library], check=True,
                                 capture_output=True, text=True).stdout
        for name in sorted(set(re.findall(r"\b(?:util|ticpp|service)::(?!operator)(\w+)", symbols))):
            if name not in entries:
                yield f"{name} has no entry"


def check(site, libraries):
    faults = [*broken_links(site), *missing_names(site, libraries)]
    for fault in faults:
        print(fault)
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    command, folder, *rest = sys.argv[1:]
    if command == "pages":
        write_pages(pathlib.Path(folder))
    else:
        check(pathlib.Path(folder), rest)
