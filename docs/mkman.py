#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Makes the manual page plinthd-interfaces(7) from the interface reference.

    mkman.py OUTPUT VERSION DATE

DATE is the release's date (YYYY-MM-DD), which the page carries as its own:
the same sources make the same page on any day.

The page is the overview (README.md) followed by the three interface pages,
translated from the small part of Markdown they use: headings, paragraphs,
bullet lists, tables (as lists of entries), code blocks, `code`, **bold**,
*italics* and links. HTML comments are dropped. Only the standard library is
needed.
"""

import os
import re
import sys

import reference

SOURCES = ('README.md',) + reference.PAGES


def escape(text):
    """Text safe inside a roff line, in ASCII: any other character is named by
    its code point, so the page renders the same with or without a UTF-8
    aware front end."""
    text = text.replace('\\', '\\e')
    text = text.replace('-', '\\-')
    return ''.join(c if ord(c) < 128 else '\\[u%04X]' % ord(c) for c in text)


def inline(text):
    """Markdown inline markup to roff font changes."""
    out = []
    pos = 0
    pattern = re.compile(r'`([^`]*)`|\*\*([^*]+)\*\*|\*([^*]+)\*|\[([^\]]+)\]\(([^)]+)\)')
    for match in pattern.finditer(text):
        out.append(escape(text[pos:match.start()]))
        code, bold, italic, link, _ = match.groups()
        if code is not None:
            out.append('\\fB' + escape(code) + '\\fR')
        elif bold is not None:
            out.append('\\fB' + inline(bold) + '\\fR')
        elif italic is not None:
            out.append('\\fI' + inline(italic) + '\\fR')
        else:
            out.append(inline(link))
        pos = match.end()
    out.append(escape(text[pos:]))
    return ''.join(out)


def line_safe(text):
    """A line of text may not start with a control character."""
    return '\\&' + text if text[:1] in ('.', "'") else text


def strip_comments(text):
    return re.sub(r'<!--.*?-->\n?', '', text, flags=re.S)


def table(rows):
    """Markdown table rows (header, rule, body) as one entry per row: the first
    cell is the entry's tag, each other cell a line "column: text"; empty cells
    are left out. The reference's tables have up to six columns and names of
    thirty characters, more than a boxed table can show in 80 columns; a list
    reads at any width."""
    cells = [reference.split_row(r) for r in rows]
    header, body = cells[0], cells[2:]
    out = []
    for row in body:
        out += ['.TP', line_safe(inline(row[0]))]
        lines = ['\\fI%s:\\fR %s' % (escape(name), inline(text))
                 for name, text in zip(header[1:], row[1:]) if text]
        for index, line in enumerate(lines):
            if index:
                out.append('.br')
            out.append(line_safe(line))
    return out


def convert(markdown, top):
    """The roff of one page: headings of TOP hashes become sections (.SH), one
    more a subsection (.SS), deeper ones a bold line; "#" is left out."""
    lines = strip_comments(markdown).split('\n')
    out = []
    paragraph = []
    i = 0

    def flush():
        if paragraph:
            out.append('.PP')
            out.append(line_safe(inline(' '.join(paragraph))))
            paragraph.clear()

    while i < len(lines):
        line = lines[i]
        stripped = line.strip()
        heading = re.match(r'^(#+)\s+(.*)$', line)
        if heading:
            flush()
            hashes = len(heading.group(1))
            title = heading.group(2)
            if hashes == 1:
                pass  # the page's own title: page() makes its section
            elif hashes == top:
                out.append('.SH "%s"' % inline(title).upper().replace('"', ''))
            elif hashes == top + 1:
                out.append('.SS "%s"' % inline(title).replace('"', ''))
            else:
                out.append('.PP')
                out.append('\\fB' + inline(title.replace('`', '')) + '\\fR')
            i += 1
        elif stripped.startswith('|'):
            flush()
            rows = []
            while i < len(lines) and lines[i].strip().startswith('|'):
                rows.append(lines[i])
                i += 1
            out.extend(table(rows))
        elif stripped.startswith('```'):
            flush()
            i += 1
            block = []
            while i < len(lines) and not lines[i].strip().startswith('```'):
                block.append(lines[i])
                i += 1
            i += 1
            out.extend(['.PP', '.RS 4', '.nf'] + [line_safe(escape(b)) for b in block] + ['.fi', '.RE'])
        elif line.startswith('    ') and not paragraph and stripped:
            flush()
            block = []
            while i < len(lines) and (lines[i].startswith('    ') or not lines[i].strip()):
                block.append(lines[i][4:])
                i += 1
            while block and not block[-1].strip():
                block.pop()
            out.extend(['.PP', '.RS 4', '.nf'] + [line_safe(escape(b)) for b in block] + ['.fi', '.RE'])
        elif re.match(r'^\s*- ', line):
            flush()
            indent = len(line) - len(line.lstrip())
            item = [line.strip()[2:]]
            i += 1
            while i < len(lines) and lines[i].strip() and not re.match(r'^\s*- ', lines[i]) \
                    and not lines[i].strip().startswith('|') and lines[i].startswith(' ' * (indent + 1)):
                item.append(lines[i].strip())
                i += 1
            out.append('.IP \\(bu 2')
            out.append(line_safe(inline(' '.join(item))))
        elif not stripped:
            flush()
            i += 1
        else:
            paragraph.append(stripped)
            i += 1
    flush()
    return out


def page(directory, version, date):
    out = ['.\\" SPDX-License-Identifier: BSD-3-Clause',
           '.\\" Made by docs/mkman.py from docs/*.md; edit those instead.',
           '.TH PLINTHD\\-INTERFACES 7 "%s" "plinthd %s" "plinthd"' % (date, version),
           # Names of members and keys read better unbroken: no hyphenation,
           # no stretched blanks.
           '.nh',
           '.ad l',
           '.SH NAME',
           'plinthd\\-interfaces \\- the D\\-Bus interfaces of plinthd: Features, SIM, Storages']
    for index, name in enumerate(SOURCES):
        with open(os.path.join(directory, name), encoding='utf-8') as f:
            text = f.read()
        if index == 0:
            out.append('.SH DESCRIPTION')
            out.extend(convert(text, 2))
        else:
            title = re.search(r'^# (.*)$', text, re.M).group(1)
            out.append('.SH "%s"' % inline(title).replace('"', ''))
            out.extend(convert(text, 1))
    out += ['.SH "SEE ALSO"',
            '\\fBplinthd\\fR(8), \\fBplinthctl\\fR(1), \\fBbusctl\\fR(1), \\fBgdbus\\fR(1)',
            '.PP',
            'The same text, with examples that run: \\fI/usr/share/doc/plinthd\\fR.']
    return '\n'.join(out) + '\n'


def main():
    if len(sys.argv) != 4:
        sys.stderr.write('usage: mkman.py OUTPUT VERSION DATE\n')
        return 2
    output, version, date = sys.argv[1:]
    text = page(reference.docs_dir(), version, date)
    with open(output, 'w', encoding='utf-8') as f:
        f.write(text)
    return 0


if __name__ == '__main__':
    sys.exit(main())
