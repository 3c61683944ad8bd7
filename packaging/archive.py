"""Zip archives whose bytes depend on their content alone."""
import hashlib
import time
import zipfile
from pathlib import Path


def files_below(folder: Path) -> list[Path]:
    """The files below a folder, sorted by their names in an archive."""
    return sorted((path for path in folder.rglob("*") if path.is_file()), key=Path.as_posix)


def digest(path: Path, algorithm: str = "sha256") -> str:
    return hashlib.new(algorithm, path.read_bytes()).hexdigest()


def write_zip(target: Path, folder: Path, top: str, seconds: int) -> None:
    """Packs all files below a folder under the name `top` ("" for none).

    Every file gets the same time. A file keeps its right to be executed and no other one, so the umask of the
    packing user makes no difference.
    """
    moment = time.gmtime(max(seconds, 315532800))  # a zip file knows no time before 1980
    with zipfile.ZipFile(target, "w") as archive:
        for path in files_below(folder):
            name = (Path(top) / path.relative_to(folder)).as_posix()
            entry = zipfile.ZipInfo(name, moment[:6])
            entry.create_system = 3  # Unix, whose rights stand in the upper half of the attributes
            entry.external_attr = (0o100755 if path.stat().st_mode & 0o100 else 0o100644) << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            archive.writestr(entry, path.read_bytes(), compresslevel=9)


def write_sums(target: Path, paths: list[Path]) -> None:
    """Writes the digests in the form that `sha256sum --check` reads."""
    target.write_text("".join(f"{digest(path)}  {path.name}\n" for path in sorted(paths)))
