"""The foreign code in the archive's files: its notices, and what the bill of materials says of it."""
import subprocess
from dataclasses import dataclass
from pathlib import Path

DEBIAN = Path("/usr/share/doc")
LICENSES = Path("/usr/share/common-licenses")


@dataclass(frozen=True)
class Component:
    id: str
    name: str
    package: str  # the Debian package that it is from; its copyright file has the notices
    license: str
    copyright: str
    remark: str
    users: str  # a regular expression over the archive's files: which ones contain it
    linked: str = "STATIC_LINK"
    texts: tuple[Path, ...] = ()

    @property
    def version(self) -> str:
        return subprocess.run(["dpkg-query", "-W", "-f", "${Version}", self.package],
                              check=True, capture_output=True, text=True).stdout

    @property
    def notice(self) -> Path:
        return DEBIAN / self.package / "copyright"


COMPONENTS = (
    Component("gcc-runtime", "GCC runtime libraries (libgcc, libstdc++)", "gcc-mingw-w64-x86-64-posix",
              "GPL-3.0-or-later WITH GCC-exception-3.1", "Free Software Foundation, Inc.",
              "Parts of libgcc and libstdc++. The runtime library exception allows programs under any licence.",
              r"\.(dll|exe)$", texts=(LICENSES / "GPL-3",)),
    Component("mingw-w64", "MinGW-w64 runtime", "mingw-w64-x86-64-dev",
              "ZPL-2.1", "the mingw-w64 project and others",
              "Parts of the start-up code and the C runtime. Single files have other permissive licences, and some "
              "are in the public domain; the notices name them.",
              r"\.(dll|exe)$"),
    Component("cli11", "CLI11", "libcli11-dev",
              "BSD-3-Clause", "2017-2020 University of Cincinnati",
              "Only in the tool kupdate.",
              r"/kupdate(\.exe)?$"),
    Component("openssl", "OpenSSL libcrypto", "libssl-dev",
              "Apache-2.0", "The OpenSSL Project Authors",
              "Not in the archive: the tool for Linux uses the library of the system.",
              r"/kupdate$", linked="DYNAMIC_LINK"),
    Component("libstdcxx", "libstdc++ for Linux", "libstdc++6",
              "GPL-3.0-or-later WITH GCC-exception-3.1", "Free Software Foundation, Inc.",
              "Not in the archive: the tool for Linux uses the library of the system.",
              r"/kupdate$", linked="DYNAMIC_LINK"),
)


def write_notices(target: Path) -> None:
    """Collects the notices as the building system has them, word for word."""
    contained = [component for component in COMPONENTS if component.linked == "STATIC_LINK"]
    parts = ["The files of this archive are under the licence in the file LICENSE. The compiled ones contain code from\n"
             "the components below. For each of them follow the notices that come with its Debian package.\n\n"]
    for component in contained:
        parts.append(f"- {component.name}, {component.package} {component.version}, {component.license}\n"
                     f"  {component.remark}\n")
    for component in contained:
        for path in (component.notice, *component.texts):
            title = component.name if path == component.notice else f"{component.name}: {path.name}"
            parts.append(f"\n{'=' * 100}\n{title}\n{'=' * 100}\n\n" + path.read_text(encoding="utf-8"))
    target.write_text("".join(parts), encoding="utf-8")
