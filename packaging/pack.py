#!/usr/bin/env python3
"""Packs a release from its compiled files, which lie in the stage already as the archive has them.

Usage: pack.py SOURCE STAGE SYMBOLS TARGET VERSION SECONDS
  SOURCE   the tree of sources: documents, headers, samples
  STAGE    gets the other files of the archive
  SYMBOLS  the debug information, one folder for each architecture
  TARGET   the folder that gets the archives
  SECONDS  the time of all files, since 1970
"""
import shutil
import sys
from pathlib import Path

from archive import write_sums, write_zip
from documents import add_documents
from nuget import write_package
from sbom import write_sbom
from third_party import write_notices


def fill(template: Path, target: Path, **values: str) -> None:
    text = template.read_text(encoding="utf-8")
    for name, value in values.items():
        text = text.replace(f"@{name}@", value)
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text(text, encoding="utf-8")


def add_texts(source: Path, stage: Path, version: str) -> None:
    templates = source / "packaging"
    (stage / "include").mkdir()
    for header in sorted((source / "include").glob("*.h*")):
        shutil.copy(header, stage / "include")
    # The samples' own build files are parts of the tree's build.
    shutil.copytree(source / "samples", stage / "samples", ignore=shutil.ignore_patterns("CMakeLists.txt"))
    shutil.copy(source / "LICENSE", stage)
    for template in sorted((templates / "cmake").iterdir()):
        fill(template, stage / "lib" / "cmake" / "dllkupdate" / template.name, VERSION=version)
    for architecture in ("x64", "x86"):
        fill(templates / "pkgconfig" / "dllkupdate.pc",
             stage / architecture / "lib" / "pkgconfig" / "dllkupdate.pc",
             VERSION=version, ARCHITECTURE=architecture)
    write_notices(stage / "THIRD-PARTY.txt")
    add_documents(source, stage)


def main() -> None:
    source, stage, symbols, target = map(Path, sys.argv[1:5])
    version, seconds = sys.argv[5], int(sys.argv[6])
    name = f"dllkupdate-{version}"
    add_texts(source, stage, version)
    write_sbom(stage / "sbom.spdx.json", stage, version, seconds)
    archives = [target / f"{name}.zip", target / f"{name}-symbols.zip", target / f"dllkupdate.{version}.nupkg"]
    write_zip(archives[0], stage, name, seconds)
    write_zip(archives[1], symbols, f"{name}-symbols", seconds)
    write_package(archives[2], stage, source / "packaging" / "nuget", stage.parent / "nuget", version, seconds)
    write_sums(target / "SHA256SUMS", archives)


if __name__ == "__main__":
    main()
