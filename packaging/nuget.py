"""The NuGet package: the same files in the layout of that package manager, which is a zip too."""
import shutil
from pathlib import Path
from xml.sax.saxutils import quoteattr

from archive import files_below, write_zip

RELATIONS = """<?xml version="1.0" encoding="utf-8"?>
<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">
  <Relationship Id="R1" Type="http://schemas.microsoft.com/packaging/2010/07/manifest" Target="/dllkupdate.nuspec" />
</Relationships>
"""


def _content_types(folder: Path) -> str:
    """Each extension, and each file without one, needs a type; no reader looks at its value."""
    rows = ['<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml" />']
    files = files_below(folder)
    for extension in sorted({path.suffix[1:] for path in files if path.suffix}):
        rows.append(f'<Default Extension={quoteattr(extension)} ContentType="application/octet" />')
    for path in files:
        if not path.suffix:
            name = quoteattr("/" + path.relative_to(folder).as_posix())
            rows.append(f'<Override PartName={name} ContentType="application/octet" />')
    return ('<?xml version="1.0" encoding="utf-8"?>\n'
            '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">\n  ' +
            "\n  ".join(rows) + "\n</Types>\n")


def write_package(target: Path, stage: Path, templates: Path, work: Path, version: str, seconds: int) -> None:
    """Packs what a project for Microsoft's compiler needs. `work` is a folder that does not exist yet."""
    native = work / "build" / "native"
    shutil.copytree(stage / "include", native / "include")
    for architecture in ("x64", "x86"):
        shutil.copytree(stage / architecture, native / architecture,
                        ignore=shutil.ignore_patterns("pkgconfig", "*.a"))
    for name in ("LICENSE", "THIRD-PARTY.txt"):
        shutil.copy(stage / name, work)
    for name in ("dllkupdate.props", "dllkupdate.targets"):
        shutil.copy(templates / name, native)
    nuspec = (templates / "dllkupdate.nuspec").read_text(encoding="utf-8")
    (work / "dllkupdate.nuspec").write_text(nuspec.replace("@VERSION@", version), encoding="utf-8")
    types = _content_types(work)
    (work / "_rels").mkdir()
    (work / "_rels" / ".rels").write_text(RELATIONS, encoding="utf-8")
    (work / "[Content_Types].xml").write_text(types, encoding="utf-8")
    write_zip(target, work, "", seconds)
