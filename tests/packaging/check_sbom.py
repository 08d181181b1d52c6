"""Compares the SPDX document of an extracted package with the modules in it.

Usage: check_sbom.py PACKAGE VERSION FOLDER
"""

import hashlib
import json
import pathlib
import re
import subprocess
import sys

package, version, folder = sys.argv[1], sys.argv[2], pathlib.Path(sys.argv[3])
sbom = json.loads((folder / "usr/share/doc" / package / "sbom.spdx.json").read_text())


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def library_packages(module):
    """The Debian packages of the libraries that readelf lists, found in the compiler's own folders."""
    packages = set()
    for name in re.findall(r"\(NEEDED\).*\[(.*)\]", output_of("readelf", "-dW", module)):
        path = pathlib.Path(output_of("g++", f"-print-file-name={name}").strip()).resolve()
        owners = [subprocess.run(["dpkg-query", "-S", p], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                 check=False).stdout for p in (str(path), str(path).removeprefix("/usr"))]  # fmt: skip
        packages.add(next(owner for owner in owners if owner).split(":")[0])
    return packages


# What SPDX 2.3 requires of a document, a package, a file and a relationship.
assert sbom["spdxVersion"] == "SPDX-2.3" and sbom["dataLicense"] == "CC0-1.0", sbom
assert sbom["SPDXID"] == "SPDXRef-DOCUMENT" and sbom["name"] == f"{package}-{version}", sbom
assert re.fullmatch(r"https://[^#\s]+", sbom["documentNamespace"]), sbom["documentNamespace"]
assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", sbom["creationInfo"]["created"]), sbom["creationInfo"]
assert all(re.match("(Tool|Person|Organization): ", creator) for creator in sbom["creationInfo"]["creators"])
elements = [sbom, *sbom["packages"], *sbom["files"]]
identifiers = [element["SPDXID"] for element in elements]
assert len(set(identifiers)) == len(identifiers), identifiers
assert all(re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", identifier) for identifier in identifiers), identifiers
for each in sbom["packages"]:
    assert {"name", "versionInfo", "downloadLocation", "licenseConcluded", "licenseDeclared", "copyrightText"} <= each.keys(), each
for relationship in sbom["relationships"]:
    assert relationship["spdxElementId"] in identifiers and relationship["relatedSpdxElement"] in identifiers, relationship
used = {licence for each in sbom["packages"] + sbom["files"] for licence in re.findall(r"LicenseRef-\S+", each["licenseConcluded"])}
assert used == {extracted["licenseId"] for extracted in sbom["hasExtractedLicensingInfos"]} == {"LicenseRef-PROPRIETARY"}

# Each module is in it as it is in the package, and so is each library that it is linked with.
names = {each["SPDXID"]: each["name"] for each in sbom["packages"]}
assert names[next(r["relatedSpdxElement"] for r in sbom["relationships"] if r["relationshipType"] == "DESCRIBES")] == package
modules = {f"./{path.relative_to(folder)}": path for path in folder.rglob("*.so") if not path.is_symlink()}
assert {file["fileName"] for file in sbom["files"]} == modules.keys(), modules
listed = {package}
for file in sbom["files"]:
    module = modules[file["fileName"]]
    sums = {checksum["algorithm"]: checksum["checksumValue"] for checksum in file["checksums"]}
    assert sums == {name.upper(): hashlib.new(name, module.read_bytes()).hexdigest() for name in ("sha1", "sha256")}, sums

    def related(kind):
        return {names[r["relatedSpdxElement"]] for r in sbom["relationships"]
                if r["spdxElementId"] == file["SPDXID"] and r["relationshipType"] == kind}  # fmt: skip

    linked = library_packages(module)
    assert related("DYNAMIC_LINK") == linked, (module, related("DYNAMIC_LINK"), linked)
    assert related("STATIC_LINK") == (set() if module.name.startswith("component_") else {"nlohmann-json3-dev"}), module
    listed |= related("DYNAMIC_LINK") | related("STATIC_LINK")
assert listed == set(names.values()), (listed, names)
for name, listed_version in ((each["name"], each["versionInfo"]) for each in sbom["packages"]):
    expected = version if name == package else output_of("dpkg-query", "-W", "-f", "${Version}\n", name).split("\n")[0]
    assert listed_version == expected, (name, listed_version, expected)
