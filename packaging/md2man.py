#!/usr/bin/env python3
"""Turns one of our Markdown usage pages into a man page (man(7) macros).

The pages use a small Markdown subset: headings, paragraphs, bullet and numbered lists (with
indented continuation lines and fenced code inside), fenced code, pipe tables, inline code,
emphasis and links. Tables become tagged paragraphs (first cell as the tag, the other cells as
"header: value" lines), which reads better on a terminal than a table wider than it.
Anything else is kept as paragraph text, so a page never fails to convert; the package test
lints the result.

usage: md2man.py --name N --section S --description TEXT --version V --date D
                 [--only-section TITLE] [--see-also REF ...] [--link FILE=PAGE(S) ...] IN OUT
"""

import argparse
import re
import sys

FENCE = re.compile(r"^(\s*)(```|~~~)")
HEADING = re.compile(r"^(#{1,6})\s+(.*?)\s*#*\s*$")
BULLET = re.compile(r"^([-*+])\s+(.*)$")
NUMBERED = re.compile(r"^(\d+)[.)]\s+(.*)$")
TABLE_RULE = re.compile(r"^\|?\s*:?-{3,}:?\s*(\|\s*:?-{3,}:?\s*)*\|?\s*$")
INLINE = re.compile(
    r"(?P<code>`+)(?P<codetext>.+?)(?P=code)"
    r"|\[(?P<ltext>[^\]]+)\]\((?P<ltarget>[^)\s]+)\)"
    r"|\*\*(?P<bold>.+?)\*\*"
    r"|(?<![\w*])\*(?P<ital>[^*\s](?:[^*]*[^*\s])?)\*(?![\w*])"
    r"|(?<!\w)_(?P<uital>[^_\s](?:[^_]*[^_\s])?)_(?!\w)"
    r"|\\(?P<escaped>[\\`*_{}\[\]()#+\-.!|<>])"
)


def escape(text, literal=False):
    """Plain text to roff: backslashes, non-ASCII as \\[uXXXX]; literal text gets \\- dashes."""
    out = []
    for ch in text:
        if ch == "\\":
            out.append("\\e")
        elif ch == "-" and literal:
            out.append("\\-")
        elif ord(ch) > 126:
            out.append("\\[u%04X]" % ord(ch))
        else:
            out.append(ch)
    return "".join(out)


def protect_line(line):
    """A roff text line must not start with a control character."""
    return "\\&" + line if line[:1] in (".", "'") else line


class Converter:
    def __init__(self, links):
        self.links = links  # Markdown file name -> "page(section)"
        self.out = []

    # --- inline ------------------------------------------------------------------------------
    def inline(self, text):
        pieces, pos = [], 0
        for m in INLINE.finditer(text):
            pieces.append(escape(text[pos:m.start()]))
            pos = m.end()
            if m.group("codetext") is not None:
                pieces.append("\\fB" + escape(m.group("codetext").strip(), literal=True) + "\\fR")
            elif m.group("ltext") is not None:
                pieces.append(self.link(m.group("ltext"), m.group("ltarget")))
            elif m.group("bold") is not None:
                pieces.append("\\fB" + self.inline(m.group("bold")) + "\\fR")
            elif m.group("ital") is not None or m.group("uital") is not None:
                pieces.append("\\fI" + self.inline(m.group("ital") or m.group("uital")) + "\\fR")
            else:
                pieces.append(escape(m.group("escaped")))
        pieces.append(escape(text[pos:]))
        return "".join(pieces)

    def link(self, text, target):
        path = target.split("#", 1)[0]
        page = self.links.get(path.rsplit("/", 1)[-1]) if path else None
        if page:
            name, sect = page[:-1].split("(")
            ref = "\\fB%s\\fR(%s)" % (escape(name, literal=True), sect)
            bare = text.strip("`")
            same = (path.rsplit("/", 1)[-1], page, name)
            return ref if bare.rsplit("/", 1)[-1] in same else self.inline(text) + " (" + ref + ")"
        if re.match(r"^[a-z]+://", target):
            return self.inline(text) + " <" + escape(target) + ">"
        return self.inline(text)

    # --- blocks ------------------------------------------------------------------------------
    def emit(self, *lines):
        # A paragraph right after a heading needs no paragraph macro (lint warns about one).
        if lines and lines[0] == ".PP" and self.out and self.out[-1].startswith((".SH", ".SS")):
            lines = lines[1:]
        self.out.extend(lines)

    def text_lines(self, text):
        return [protect_line(self.inline(text))]

    def paragraph(self, lines, macro=".PP"):
        self.emit(macro, *self.text_lines(" ".join(l.strip() for l in lines)))

    def code(self, lines, indent):
        self.emit(".PP" if indent == 0 else '.IP "" %d' % indent, ".RS 4", ".nf")
        self.emit(*(protect_line(escape(l, literal=True)) for l in lines))
        self.emit(".fi", ".RE")

    def table(self, rows):
        cells = [split_row(r) for r in rows]
        header, body = cells[0], [c for c in cells[1:] if not TABLE_RULE.match("|".join(c))]
        for row in body:
            self.emit(".TP", *self.text_lines(row[0] if row else ""))
            rest = [(h, v) for h, v in zip(header[1:], row[1:]) if v]
            for i, (h, v) in enumerate(rest):
                if i:
                    self.emit(".br")
                label = "" if len(header) == 2 else "\\fI" + self.inline(h) + ":\\fR "
                self.emit(protect_line(label + self.inline(v)))

    def blocks(self, lines, indent=0):
        """Converts a run of lines; indent > 0 for the body of a list item."""
        i, para = 0, []

        def flush():
            if para:
                self.paragraph(para, ".PP" if indent == 0 else '.IP "" %d' % indent)
                para.clear()

        while i < len(lines):
            line = lines[i]
            stripped = line.strip()
            fence = FENCE.match(line)
            if not stripped:
                flush()
                i += 1
            elif fence:
                flush()
                end = i + 1
                while end < len(lines) and not lines[end].strip().startswith(fence.group(2)):
                    end += 1
                cut = len(fence.group(1))
                self.code([l[cut:] if not l[:cut].strip() else l.lstrip() for l in lines[i + 1:end]],
                          indent)
                i = end + 1
            elif HEADING.match(line) and indent == 0:
                flush()
                level, title = HEADING.match(line).groups()
                if len(level) <= 2 and "`" not in title:
                    title = title.upper()  # man's convention; a code name keeps its case
                self.emit((".SH " if len(level) <= 2 else ".SS ") + quote(self.inline(title)))
                i += 1
            elif stripped.startswith("|"):
                flush()
                end = i
                while end < len(lines) and lines[end].strip().startswith("|"):
                    end += 1
                self.table([l.strip() for l in lines[i:end]])
                i = end
            elif BULLET.match(line) or NUMBERED.match(line):
                flush()
                i = self.list_item(lines, i, indent)
            elif stripped.startswith(">"):
                flush()
                end = i
                while end < len(lines) and lines[end].strip().startswith(">"):
                    end += 1
                self.emit(".RS 4")
                self.blocks([l.strip()[1:].lstrip() for l in lines[i:end]])
                self.emit(".RE")
                i = end
            else:
                para.append(line)
                i += 1
        flush()

    def list_item(self, lines, i, indent):
        m = BULLET.match(lines[i])
        tag = "\\(bu" if m else NUMBERED.match(lines[i]).group(1) + "."
        first = m.group(2) if m else NUMBERED.match(lines[i]).group(2)
        body, end = [first], i + 1
        # The item goes on over indented lines, and over blank lines followed by indented ones.
        while end < len(lines):
            l = lines[end]
            if l.strip() and (l.startswith(" ") or l.startswith("\t")):
                body.append(l)
            elif l.strip() and body[-1].strip() and not is_block_start(l):
                body.append(l)  # a lazy continuation line
            elif not l.strip() and end + 1 < len(lines) and lines[end + 1].startswith(("  ", "\t")):
                body.append("")
            else:
                break
            end += 1
        width = 3 if tag.endswith(".") else 2
        self.emit(".IP %s %d" % (tag, indent + width))
        first_para = []
        k = 0
        while k < len(body) and body[k].strip() and not FENCE.match(body[k]):
            first_para.append(body[k])
            k += 1
        self.emit(*self.text_lines(" ".join(l.strip() for l in first_para)))
        self.blocks([dedent(l) for l in body[k:]], indent + width)
        return end

    def page(self, md, name, section, description, version, date, see_also):
        self.emit('.TH %s %s "%s" "PimSnmp %s" "PimSnmp Manual"' % (
            name.upper().replace("-", "\\-"), section, date, version))
        self.emit(".SH NAME", "%s \\- %s" % (name.replace("-", "\\-"), escape(description)))
        lines = drop_section(md, "Name").splitlines()  # the NAME line above replaces it
        # The top heading names the page; what precedes the first section describes it.
        if lines and HEADING.match(lines[0]) and HEADING.match(lines[0]).group(1) == "#":
            lines = lines[1:]
        lines = strip_blank(lines)
        # A page (or the one section it is made of) that opens with a code block opens with
        # its synopsis.
        if lines and FENCE.match(lines[0]):
            end = next((k for k in range(1, len(lines)) if FENCE.match(lines[k])), len(lines))
            self.emit(".SH SYNOPSIS")
            self.blocks(lines[:end + 1])
            lines = strip_blank(lines[end + 1:])
        if lines and not lines[0].startswith("## "):
            self.emit(".SH DESCRIPTION")
        self.blocks(lines)
        if see_also:
            self.emit(".SH SEE ALSO", ",\n".join(
                "\\fB%s\\fR(%s)" % (r[:-1].split("(")[0].replace("-", "\\-"), r[:-1].split("(")[1])
                for r in see_also))
        return "\n".join(self.out) + "\n"


def strip_blank(lines):
    k = 0
    while k < len(lines) and not lines[k].strip():
        k += 1
    return lines[k:]


def quote(text):
    return '"' + text.replace('"', '\\(dq') + '"'


def dedent(line):
    return line[2:] if line.startswith("  ") else line.lstrip("\t")


def is_block_start(line):
    s = line.strip()
    return bool(BULLET.match(line) or NUMBERED.match(line) or HEADING.match(line) or
                s.startswith("|") or FENCE.match(line) or s.startswith(">"))


def split_row(row):
    row = row.strip()
    row = row[1:] if row.startswith("|") else row
    row = row[:-1] if row.endswith("|") and not row.endswith("\\|") else row
    cells, cur, in_code = [], [], False
    k = 0
    while k < len(row):
        ch = row[k]
        if ch == "\\" and k + 1 < len(row) and row[k + 1] == "|":
            cur.append("|")
            k += 2
            continue
        if ch == "`":
            in_code = not in_code
        if ch == "|" and not in_code:
            cells.append("".join(cur).strip())
            cur = []
        else:
            cur.append(ch)
        k += 1
    cells.append("".join(cur).strip())
    return cells


def sections(md):
    """(title or None, lines) of each '## ' section of md; None for the part before the first."""
    out, in_code = [(None, [])], False
    for line in md.splitlines():
        h = HEADING.match(line)
        if FENCE.match(line):
            in_code = not in_code
        if h and len(h.group(1)) == 2 and not in_code:
            out.append((h.group(2).strip("` "), [line]))
        else:
            out[-1][1].append(line)
    return out


def drop_section(md, title):
    return "\n".join(l for t, ls in sections(md) if (t or "").lower() != title.lower() for l in ls)


def only_section(md, title):
    """The part of md under '## title' (up to the next '## '), without that heading."""
    for t, ls in sections(md):
        if t == title:
            return "\n".join(ls[1:])
    sys.exit("md2man: no section '## %s'" % title)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--name", required=True)
    p.add_argument("--section", required=True)
    p.add_argument("--description", required=True)
    p.add_argument("--version", default="")
    p.add_argument("--date", default="")
    p.add_argument("--only-section")
    p.add_argument("--see-also", nargs="*", default=[])
    p.add_argument("--link", nargs="*", default=[], help="FILE.md=page(section)")
    p.add_argument("input")
    p.add_argument("output")
    a = p.parse_args()
    with open(a.input, encoding="utf-8") as f:
        md = f.read()
    if a.only_section:
        md = only_section(md, a.only_section)
    links = dict(l.split("=", 1) for l in a.link)
    text = Converter(links).page(md, a.name, a.section, a.description, a.version, a.date,
                                 a.see_also)
    with open(a.output, "w", encoding="ascii") as f:
        f.write(text)


if __name__ == "__main__":
    main()
