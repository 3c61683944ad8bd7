"""The documents of the archive: Markdown becomes HTML, and links lead to files that the archive has."""
import html
import re
import subprocess
from pathlib import Path

# Documents for those who work on the library itself.
INTERNAL = {"architecture.md", "benchmarks.md", "proof.md", "standin.md", "testing.md"}

PAGE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>{title}</title>
<style>
body {{ max-width: 60em; margin: 2em auto; padding: 0 1em; font: 16px/1.5 sans-serif; }}
pre {{ padding: 0.7em; overflow-x: auto; background: #f4f4f4; }}
table {{ border-collapse: collapse; }}
th, td {{ padding: 0.3em 0.6em; border: 1px solid #ccc; text-align: left; vertical-align: top; }}
</style>
</head>
<body>
{body}</body>
</html>
"""


def _to_html(source: Path) -> str:
    return subprocess.run(
        ["pandoc", "--from=gfm", "--to=html5", "--no-highlight", "--wrap=preserve", str(source)],
        check=True, capture_output=True, text=True).stdout


def _follow_links(body: str, page: Path, root: Path) -> str:
    """Makes links to documents lead to their HTML. Of a link to a file outside of the archive the text stays."""
    def link(match: re.Match) -> str:
        address, anchor, text = html.unescape(match[1]), match[2] or "", match[3]
        if "://" in address or not address:
            return match[0]
        address = re.sub(r"\.md$", ".html", address)
        if not (page.parent / address).resolve().exists():
            return text
        return f'<a href="{html.escape(address)}{anchor}">{text}</a>'

    return re.sub(r'<a\s+href="([^"#]*)(#[^"]*)?"[^>]*>(.*?)</a>', link, body, flags=re.DOTALL)


def add_documents(source: Path, stage: Path) -> None:
    """Writes the documents of the source tree into the stage, which has all other files already."""
    documents = [source / "README.md", source / "CHANGELOG.md"]
    documents += [path for path in sorted((source / "docs").glob("*.md")) if path.name not in INTERNAL]
    pages = {path: stage / path.relative_to(source).with_suffix(".html") for path in documents}
    for page in pages.values():
        page.parent.mkdir(parents=True, exist_ok=True)
        page.touch()
    for path, page in pages.items():
        title = path.read_text(encoding="utf-8").split("\n", 1)[0].lstrip("# ")
        body = _follow_links(_to_html(path), page, stage)
        page.write_text(PAGE.format(title=html.escape(title), body=body), encoding="utf-8")
