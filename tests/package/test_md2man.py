"""packaging/md2man.py: the Markdown constructs of our usage pages and the roff they must
become (text that would be read as a request, escapes, tables, lists, links)."""

import os
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..",
                                "packaging"))
import md2man  # noqa: E402

LINKS = {"state-document.md": "pimsnmp-state(5)", "pimsnmpd.md": "pimsnmpd(8)"}


def convert(md, **kw):
    args = dict(name="pimsnmpd", section="8", description="an agent", version="1.2",
                date="2026-01-02", see_also=[])
    args.update(kw)
    return md2man.Converter(LINKS).page(md, **args)


def body(roff):
    """The lines after the NAME section."""
    lines = roff.splitlines()
    return lines[lines.index(".SH NAME") + 2:]


class Inline(unittest.TestCase):
    def test_code_is_bold_with_real_minus_signs_and_escaped_backslashes(self):
        self.assertIn("\\fB\\-\\-state FILE\\fR", convert("Use `--state FILE`.\n"))
        self.assertIn("\\fBa\\eb\\fR", convert("`a\\b`\n"))

    def test_emphasis_and_code_do_not_mix(self):
        out = convert("**bold** and *it* but `*not*` and a*b*c\n")
        self.assertIn("\\fBbold\\fR and \\fIit\\fR but \\fB*not*\\fR and a*b*c", out)

    def test_links_to_pages_become_references_and_anchors_plain_text(self):
        out = convert("See [docs/state-document.md](state-document.md), "
                      "[the document](state-document.md#times), [pimsnmpd](pimsnmpd.md), "
                      "[Times](#times), "
                      "[RFC](https://example.org/rfc).\n")
        self.assertIn("See \\fBpimsnmp\\-state\\fR(5), the document (\\fBpimsnmp\\-state\\fR(5)), "
                      "\\fBpimsnmpd\\fR(8), Times, RFC <https://example.org/rfc>.", out)

    def test_non_ascii_becomes_named_code_points(self):
        out = convert("now − created → 1–64\n")
        self.assertIn("now \\[u2212] created \\[u2192] 1\\[u2013]64", out)
        out.encode("ascii")  # the page itself is plain ASCII

    def test_a_line_that_would_start_with_a_request_is_protected(self):
        for text in (".1 red is a context\n", "'quoted' first\n"):
            lines = body(convert(text))
            self.assertTrue(lines[-1].startswith("\\&"), lines)


class Blocks(unittest.TestCase):
    def test_top_heading_names_the_page_and_text_before_sections_describes_it(self):
        lines = convert("# pimsnmpd(8)\n\nIntro.\n\n## Options\n\nText.\n### Sub\n## `pimConfig`\n").splitlines()
        self.assertEqual(lines[0], '.TH PIMSNMPD 8 "2026-01-02" "PimSnmp 1.2" "PimSnmp Manual"')
        self.assertEqual(lines[1:3], [".SH NAME", "pimsnmpd \\- an agent"])
        self.assertEqual(lines[3:], [".SH DESCRIPTION", "Intro.", '.SH "OPTIONS"', "Text.",
                                     '.SS "Sub"', '.SH "\\fBpimConfig\\fR"'])

    def test_a_name_section_of_the_source_gives_way_to_the_generated_one(self):
        lines = convert("# p(8)\n\n\n## Name\n\np \u2014 a page\n\n## Synopsis\n\nText.\n").splitlines()
        self.assertEqual(lines[3:], ['.SH "SYNOPSIS"', "Text."])

    def test_a_leading_code_block_is_the_synopsis(self):
        lines = convert("\n```\nctl COMMAND\n```\n\nWhat it does.\n").splitlines()
        self.assertEqual(lines[3:], [".SH SYNOPSIS", ".RS 4", ".nf", "ctl COMMAND", ".fi", ".RE",
                                     ".SH DESCRIPTION", "What it does."])

    def test_code_block_keeps_indentation_and_escapes(self):
        md = "```\npimsnmpd [--state FILE]\n         [--config F] \\\n.dot\n```\n"
        self.assertEqual(body(convert(md))[1:], [".RS 4", ".nf", "pimsnmpd [\\-\\-state FILE]",
                                                 "         [\\-\\-config F] \\e", "\\&.dot",
                                                 ".fi", ".RE"])

    def test_table_rows_become_tagged_paragraphs(self):
        md = ("| option | meaning |\n|---|---|\n| `--log stderr\\|syslog` | where | \n"
              "| `--x` | two `a|b` |\n")
        lines = body(convert(md))
        self.assertEqual(lines[1:], [".TP", "\\fB\\-\\-log stderr|syslog\\fR", "where",
                                     ".TP", "\\fB\\-\\-x\\fR", "two \\fBa|b\\fR"])

    def test_wide_table_labels_cells_with_headers_and_skips_empty_ones(self):
        md = "| member | type | default | meaning |\n|---|---|---|---|\n| `a` | int | | an a |\n"
        lines = body(convert(md))
        self.assertEqual(lines[1:], [".TP", "\\fBa\\fR", "\\fItype:\\fR int", ".br",
                                     "\\fImeaning:\\fR an a"])

    def test_list_item_with_continuation_and_nested_code(self):
        md = ("- First item\n  goes on.\n\n  ```\n  code here\n  ```\n\n  or more text.\n"
              "- Second\n\nAfter the list.\n")
        lines = body(convert(md))
        self.assertEqual(lines[1:], [
            ".IP \\(bu 2", "First item goes on.",
            '.IP "" 2', ".RS 4", ".nf", "code here", ".fi", ".RE",
            '.IP "" 2', "or more text.",
            ".IP \\(bu 2", "Second",
            ".PP", "After the list."])

    def test_numbered_list(self):
        lines = body(convert("1. One.\n2. Two,\n   still two.\n"))
        self.assertEqual(lines[1:], [".IP 1. 3", "One.", ".IP 2. 3", "Two, still two."])

    def test_see_also(self):
        out = convert("Text.\n", see_also=["pimsnmpctl(8)", "pimsnmp-state(5)"])
        self.assertTrue(out.endswith(".SH SEE ALSO\n\\fBpimsnmpctl\\fR(8),\n"
                                     "\\fBpimsnmp\\-state\\fR(5)\n"))


class OnlySection(unittest.TestCase):
    MD = ("# p\n\nIntro.\n\n## pimsnmpctl\n\nCtl text.\n\n### Sub\n\nMore.\n```\n## not a heading\n"
          "```\n\n## Next\n\nNo.\n")

    def test_takes_one_section_with_its_subsections(self):
        self.assertEqual(md2man.only_section(self.MD, "pimsnmpctl").split(),
                         ["Ctl", "text.", "###", "Sub", "More.", "```", "##", "not", "a",
                          "heading", "```"])

    def test_missing_section_is_an_error(self):
        with self.assertRaises(SystemExit):
            md2man.only_section(self.MD, "absent")


class CommandLine(unittest.TestCase):
    def test_writes_a_page_groff_renders_without_warnings(self):
        with tempfile.TemporaryDirectory() as d:
            src, out = os.path.join(d, "p.md"), os.path.join(d, "p.8")
            with open(src, "w") as f:
                f.write("# p(8)\n\nText with `--opt` and a table:\n\n| a | b |\n|---|---|\n"
                        "| x | y |\n\n- item\n\n```\n.code\n```\n")
            subprocess.run([sys.executable, md2man.__file__, "--name", "p", "--section", "8",
                            "--description", "a page", "--see-also", "q(8)", "--", src, out],
                           check=True)
            r = subprocess.run(["groff", "-ww", "-z", "-man", out], capture_output=True,
                               text=True)
            self.assertEqual((r.returncode, r.stderr), (0, ""))


if __name__ == "__main__":
    unittest.main()
