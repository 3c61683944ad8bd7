"""The bill of materials of the archive, as SPDX 2.3 in JSON."""
import hashlib
import json
import re
import time
import uuid
from pathlib import Path

from archive import digest, files_below
from third_party import COMPONENTS

OWN_LICENSE = "MIT"
OWN_COPYRIGHT = "Copyright (c) 2026 the dllkupdate authors"


def _files(stage: Path) -> list[dict]:
    rows = []
    for path in files_below(stage):
        name = path.relative_to(stage).as_posix()
        # The notices are texts of others.
        own = name != "THIRD-PARTY.txt"
        rows.append({
            "SPDXID": "SPDXRef-File-" + re.sub(r"[^A-Za-z0-9.]", "-", name),
            "fileName": "./" + name,
            "checksums": [{"algorithm": "SHA1", "checksumValue": digest(path, "sha1")},
                          {"algorithm": "SHA256", "checksumValue": digest(path)}],
            "licenseConcluded": OWN_LICENSE if own else "NOASSERTION",
            "licenseInfoInFiles": ["NOASSERTION"],
            "copyrightText": OWN_COPYRIGHT if own else "NOASSERTION",
        })
    return rows


def _relation(element: str, kind: str, other: str) -> dict:
    return {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": other}


def write_sbom(target: Path, stage: Path, version: str, seconds: int) -> None:
    """Describes all files that are in the stage; the target is not one of them yet."""
    files = _files(stage)
    sums = sorted(row["checksums"][0]["checksumValue"] for row in files)
    verification = hashlib.sha1("".join(sums).encode()).hexdigest()
    own = "SPDXRef-Package-dllkupdate"
    packages = [{
        "SPDXID": own,
        "name": "dllkupdate",
        "versionInfo": version,
        "supplier": "Organization: the dllkupdate authors",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": True,
        "packageVerificationCode": {
            "packageVerificationCodeValue": verification,
            "packageVerificationCodeExcludedFiles": ["./" + target.relative_to(stage).as_posix()],
        },
        "licenseInfoFromFiles": ["NOASSERTION"],
        "licenseConcluded": OWN_LICENSE,
        "licenseDeclared": OWN_LICENSE,
        "copyrightText": OWN_COPYRIGHT,
    }]
    relations = [_relation("SPDXRef-DOCUMENT", "DESCRIBES", own)]
    relations += [_relation(own, "CONTAINS", row["SPDXID"]) for row in files]
    for component in COMPONENTS:
        element = "SPDXRef-Package-" + component.id
        packages.append({
            "SPDXID": element,
            "name": component.name,
            "versionInfo": component.version,
            "supplier": "NOASSERTION",
            "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False,
            "licenseConcluded": component.license,
            "licenseDeclared": component.license,
            "copyrightText": component.copyright,
            "comment": component.remark,
            "externalRefs": [{
                "referenceCategory": "PACKAGE-MANAGER",
                "referenceType": "purl",
                "referenceLocator": f"pkg:deb/debian/{component.package}@{component.version.replace('+', '%2B')}",
            }],
        })
        relations += [_relation(row["SPDXID"], component.linked, element) for row in files
                      if re.search(component.users, row["fileName"])]
    document = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"dllkupdate-{version}",
        # It must differ between documents and be the same for the same files.
        "documentNamespace": uuid.uuid5(uuid.NAMESPACE_OID, verification).urn,
        "creationInfo": {
            "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(seconds)),
            "creators": ["Organization: the dllkupdate authors"],
        },
        "packages": packages,
        "files": files,
        "relationships": relations,
    }
    target.write_text(json.dumps(document, indent=1) + "\n", encoding="utf-8")
