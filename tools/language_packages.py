"""What the tools build-wheel and build-npm-package share: packages of the SQLite extension for one programming language."""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]


class Print_version(argparse.Action):
    def __call__(self, parser, *_):
        parser.exit(subprocess.run([ROOT / "tools" / "print-version"], check=False).returncode)


def run(*command):
    """Runs a command and returns what it printed; prints that, and ends this process, if it fails."""
    finished = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if finished.returncode != 0:
        tool = pathlib.Path(sys.argv[0]).name
        sys.exit(f"{finished.stdout}{tool}: {command[0]} failed; the output above contains the reason")
    return finished.stdout


def project_version():
    return run(ROOT / "tools" / "print-version").split()[1]


def commit_time():
    """SOURCE_DATE_EPOCH, or the time of the commit, or of the latest change where there is no history or no git."""
    if os.environ.get("SOURCE_DATE_EPOCH"):
        return int(os.environ["SOURCE_DATE_EPOCH"])
    if shutil.which("git"):
        log = subprocess.run(["git", "-C", ROOT, "log", "-1", "--format=%ct"], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True, check=False)  # fmt: skip
        if log.returncode == 0:
            return int(log.stdout)
    return int((ROOT / "CHANGELOG.md").stat().st_mtime)


def stripped_modules(build):
    """The contents of the extension and its component as they are installed, by name."""
    with tempfile.TemporaryDirectory() as folder:
        run("cmake", "-DCMAKE_INSTALL_COMPONENT=sqlite", f"-DCMAKE_INSTALL_PREFIX={folder}", "-DCMAKE_INSTALL_DO_STRIP=1",
            "-P", str(build / "hosts/sqlite/cmake_install.cmake"))  # fmt: skip
        return {path.name: path.read_bytes() for path in sorted(pathlib.Path(folder).rglob("*.so")) if not path.is_symlink()}


def parse_arguments(description, package):
    """Reads the command line and builds what it asks for: the folder for the package, and the contents of the modules."""
    parser = argparse.ArgumentParser(description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path, nargs="?", default=ROOT / "build" / "packages",
                        help=f"where the {package} goes (build/packages)")  # fmt: skip
    parser.add_argument("--build", type=pathlib.Path, help="take the extension from this build folder, where it is built")
    parser.add_argument("--version", action=Print_version, nargs=0, help="print the project's version and stop")
    arguments = parser.parse_args()

    if arguments.build is None:
        arguments.build = ROOT / "build" / "release"
        subprocess.run([ROOT / "tools" / "install-packages", "run"], check=True)
        subprocess.run([ROOT / "tools" / "build-release", "-DHALVEX_BUILD_SQLITE_HOST=ON", "component_halvex_encryption",
                        "halvex_sqlite"], check=True)  # fmt: skip
    arguments.folder.mkdir(parents=True, exist_ok=True)
    return arguments.folder, stripped_modules(arguments.build)
