"""The texts of posts.txt as the applications' editors write them.

A post begins with "# title". Lines are headings (##), lists (-), table rows (|), quotes (>), fenced code, a link alone (an
embed), a line of HTML, or a paragraph."""
import html
import pathlib
import re

FILE = pathlib.Path(__file__).with_name("posts.txt")


# Their source holds elements with script: as plain text they are what they explain.
SCRIPTS = ["A first web page", "The script element, explained"]


class Post:
    def __init__(self, title, lines):
        self.title, self.blocks = title, list(self._blocks(lines))
        self.text = "\n".join(lines)
        self.is_script = title in SCRIPTS

    def excerpt(self, most):
        """As a person writes one: of the sentences, not of the code; of a post about scripts its title."""
        lines = [] if self.is_script else [line for kind, lines in self.blocks if not kind.startswith("code") for line in lines]
        return "\n".join(lines)[:most] or self.title

    @staticmethod
    def _blocks(lines):
        """(kind, lines): neighbouring lines of a list, table or fenced code are one block."""
        kinds = {"- ": "list", "| ": "table", "> ": "quote", "##": "heading", "ht": "embed"}
        block = None
        for line in lines:
            if block and block[0].startswith("code"):
                if line == "```":
                    yield block
                    block = None
                else:
                    block[1].append(line)
                continue
            if line.startswith("```"):
                kind = "code " + line[3:]
            elif re.match(r"<(iframe|figure|p |table|video|audio|font|a )", line):
                kind = "html"
            else:
                kind = kinds.get(line[:2], "paragraph") if line[:2] != "ht" or re.match(r"https?://\S+$", line) else "paragraph"
            if block and (block[0] != kind or kind not in ("list", "table")):
                yield block
                block = None
            block = block or (kind, [])
            if not kind.startswith("code"):
                block[1].append(line)
        if block:
            yield block

    def wordpress(self):
        """As the block editor saves it."""
        return "\n\n".join(WORDPRESS[kind.split()[0]](lines) for kind, lines in self.blocks)

    def rich_text(self):
        """As editors without blocks save it."""
        return re.sub(r"<!-- .*? -->\n?", "", self.wordpress())

    def wiki(self):
        text = [f"====== {self.title} ======"]
        for kind, lines in self.blocks:
            if kind.startswith("code"):
                text.append(f"<{kind}>\n" + "\n".join(lines) + "\n</code>")
            elif kind == "list":
                text.append("\n".join("  * " + line[2:] for line in lines))
            elif kind == "heading":
                text.append(f"==== {lines[0][3:]} ====")
            else:
                text.append("\n".join(lines))
        return "\n\n".join(text)


def block(name, text):
    return f"<!-- wp:{name} -->\n{text}\n<!-- /wp:{name} -->"


def quoted(text):
    return html.escape(text, quote=False)


def table(lines):
    rows = ["".join(f"<td>{quoted(cell.strip())}</td>" for cell in line.strip("| ").split("|")) for line in lines]
    body = "".join(f"<tr>{row}</tr>" for row in rows)
    return block("table", f'<figure class="wp-block-table"><table><tbody>{body}</tbody></table></figure>')


def embed(lines):
    url = lines[0]
    return block(f'embed {{"url":"{url}","type":"video","responsive":true}}',
                 f'<figure class="wp-block-embed is-type-video"><div class="wp-block-embed__wrapper">\n{quoted(url)}\n</div></figure>')


WORDPRESS = {
    "paragraph": lambda lines: block("paragraph", f"<p>{quoted(lines[0])}</p>"),
    "heading": lambda lines: block("heading", f"<h2>{quoted(lines[0][3:])}</h2>"),
    "list": lambda lines: block("list", "<ul>" + "".join(f"<!-- wp:list-item -->\n<li>{quoted(line[2:])}</li>\n<!-- /wp:list-item -->"
                                                         for line in lines) + "</ul>"),
    "quote": lambda lines: block("quote", f'<blockquote class="wp-block-quote"><p>{quoted(lines[0][2:])}</p></blockquote>'),
    "code": lambda lines: block("code", '<pre class="wp-block-code"><code>' + quoted("\n".join(lines)).replace("[", "&#91;") +
                                "</code></pre>"),
    "html": lambda lines: block("html", lines[0]),
    "table": table,
    "embed": embed,
}


def posts():
    """All of them."""
    title, lines, result, code = None, [], [], False
    for line in FILE.read_text(encoding="utf-8").splitlines():
        code ^= line.startswith("```")
        if line.startswith("# ") and not code:
            if title:
                result.append(Post(title, lines))
            title, lines = line[2:], []
        elif line or code:
            lines.append(line)
    return result + [Post(title, lines)]
