#!/usr/bin/env python3
"""Checks an unpacked release: what its bill of materials, its documents and its NuGet package say of files.

Usage: check.py ARCHIVE NUGET
"""
import hashlib
import json
import re
import sys
from pathlib import Path
from xml.etree import ElementTree

MSBUILD = "{http://schemas.microsoft.com/developer/msbuild/2003}"
faults = []


def expect(good: bool, fault: str) -> None:
    if not good:
        faults.append(fault)


def check_sbom(archive: Path) -> None:
    """Every file stands in it with its digests, and each of its references leads to an element."""
    document = json.loads((archive / "sbom.spdx.json").read_text(encoding="utf-8"))
    listed = {row["fileName"][2:]: row for row in document["files"]}
    present = {path.relative_to(archive).as_posix() for path in archive.rglob("*") if path.is_file()}
    expect(set(listed) == present - {"sbom.spdx.json"}, f"sbom: other files: {set(listed) ^ present}")
    for name in set(listed) & present:
        for sum_ in listed[name]["checksums"]:
            found = hashlib.new(sum_["algorithm"].lower(), (archive / name).read_bytes()).hexdigest()
            expect(found == sum_["checksumValue"], f"sbom: wrong {sum_['algorithm']} of {name}")
    elements = {row["SPDXID"] for row in document["files"] + document["packages"]} | {document["SPDXID"]}
    used = {relation[end] for relation in document["relationships"]
            for end in ("spdxElementId", "relatedSpdxElement")}
    expect(used == elements, f"sbom: elements without a relation, or the reverse: {used ^ elements}")
    expect(len(elements) == len(listed) + len(document["packages"]) + 1, "sbom: an id stands twice")
    expect(all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", element) for element in elements), "sbom: a malformed id")


def check_documents(archive: Path) -> None:
    """Links within the archive have an end, anchors too."""
    for page in archive.rglob("*.html"):
        for address, anchor in re.findall(r'href="([^":#]*)#?([^":]*)"', page.read_text(encoding="utf-8")):
            target = page.parent / address if address else page
            expect(target.exists(), f"{page.name}: no {address}")
            if anchor and target.exists():
                expect(f'id="{anchor}"' in target.read_text(encoding="utf-8"), f"{page.name}: no {address}#{anchor}")


def evaluated(text: str, properties: dict[str, str]) -> str:
    return re.sub(r"\$\((\w+)\)", lambda match: properties.get(match[1], ""), text)


def condition_holds(node: ElementTree.Element, properties: dict[str, str]) -> bool:
    """Knows comparisons for equality, joined by Or."""
    condition = evaluated(node.get("Condition", "'' == ''"), properties)
    pairs = [re.fullmatch(r"\s*'([^']*)'\s*==\s*'([^']*)'\s*", part) for part in condition.split(" Or ")]
    expect(all(pairs), f"nuget: a condition that cannot be read: {condition}")
    return any(pair and pair[1].lower() == pair[2].lower() for pair in pairs)


def project_values(native: Path, platform: str) -> tuple[dict[str, str], list[str]]:
    """The properties, and the texts of all items, as the build tool takes them from the two files."""
    properties = {"Platform": platform, "MSBuildThisFileDirectory": f"{native}\\", "OutDir": "out\\"}
    texts = []
    for name in ("dllkupdate.props", "dllkupdate.targets"):
        project = ElementTree.parse(native / name).getroot()
        expect(project.tag == MSBUILD + "Project", f"nuget: {name} is no project")
        for node in project.findall(f"{MSBUILD}PropertyGroup/*"):
            if condition_holds(node, properties):
                properties[node.tag.removeprefix(MSBUILD)] = evaluated(node.text or "", properties)
        texts += [evaluated(node.text or "", properties)
                  for node in project.findall(f"{MSBUILD}ItemDefinitionGroup/*/*")]
        texts += [evaluated(node.get("SourceFiles", ""), properties) for node in project.iter(MSBUILD + "Copy")]
    return properties, texts


def check_nuget(nuget: Path) -> None:
    namespace = "{http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd}"
    metadata = ElementTree.parse(nuget / "dllkupdate.nuspec").getroot().find(namespace + "metadata")
    expect(metadata is not None and all(metadata.findtext(namespace + name)
           for name in ("id", "version", "authors", "description", "license")), "nuget: a value is missing")
    types = ElementTree.parse(nuget / "[Content_Types].xml").getroot()
    known = {node.get("Extension") for node in types} | {node.get("PartName") for node in types}
    for path in nuget.rglob("*"):
        if path.is_file() and path.name != "[Content_Types].xml":
            name = "/" + path.relative_to(nuget).as_posix()
            expect(name in known or path.name.rpartition(".")[2] in known, f"nuget: no type for {name}")
    for relation in ElementTree.parse(nuget / "_rels" / ".rels").getroot():
        expect((nuget / relation.get("Target", "").lstrip("/")).is_file(), "nuget: a relation leads nowhere")
    native = nuget / "build" / "native"
    for platform, architecture in (("x64", "x64"), ("Win32", "x86"), ("x86", "x86")):
        _, texts = project_values(native, platform)
        paths = {Path(part.replace("\\", "/")) for text in texts for part in text.split(";")
                 if part and not part.startswith("%(")}
        expect(len(paths) == 4, f"nuget: {platform}: other paths: {paths}")
        for path in paths:
            expect(path.exists(), f"nuget: {platform}: no {path}")
            expect(path.is_dir() or path.is_relative_to(native / architecture), f"nuget: {platform}: {path}")
    properties, _ = project_values(native, "ARM64")
    expect("KupdateArchitecture" not in properties, "nuget: files for a platform that the package does not serve")


def main() -> None:
    archive, nuget = map(Path, sys.argv[1:])
    check_sbom(archive)
    check_documents(archive)
    check_nuget(nuget)
    for fault in faults:
        print(fault)
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
