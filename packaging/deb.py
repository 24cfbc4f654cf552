#!/usr/bin/env -S python3 -B
"""deb.py DIR [--next]: builds the Debian packages of this clone as it stands, in DIR; with --next, the
package of the build that would come after them, too, in DIR/next, for a test of upgrades.

The sources are copied to DIR/source, and only what has changed since the last time is compiled anew.
debian/changelog is made there: its version is the project's, its words are CHANGELOG.md's newest, and
its time is the last commit's, so that equal sources make equal packages wherever they are built.
Before a release is tagged, its packages are of a version below it, which rises with each commit.
"""

import filecmp
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent
MAINTAINER = "VmAgent developers <vmagent@example.org>"
# Left out is what lintian says at random of our programs: the compiler cuts texts in pieces, of which
# some look misspelt; and a program may just call no function that can be fortified.
LINTIAN = ["lintian", "--display-info", "--pedantic", "--fail-on", "error,warning,info,pedantic",
           "--suppress-tags", "spelling-error-in-binary,hardening-no-fortify-functions",
           "--allow-root"]


def git(*words):
    return subprocess.run(["git", "-C", ROOT, *words], check=True, text=True,
                          capture_output=True, env=os.environ | {"TZ": "UTC"}).stdout.strip()


def committed(form):
    """Something of the last commit; its dates are in UTC."""
    return git("log", "-1", "--abbrev=10", f"--format={form}", "--date=format-local:%Y%m%d.%H%M%S")


def version_of(cmake, commit, is_released, is_changed):
    """A package's version. `cmake`: the text where the project's stands."""
    project = re.search(r"^project\([^)]*\bVERSION ([0-9.]+)", cmake, re.M)[1]
    if is_released and not is_changed:
        return project
    return f"{project}~git{commit}" + (".changed" if is_changed else "")


def version():
    cmake = (ROOT / "CMakeLists.txt").read_text()
    project = version_of(cmake, "", is_released=True, is_changed=False)
    return version_of(cmake, committed("%cd.%h"),
                      is_released=bool(git("tag", "--points-at", "HEAD", "--list", f"v{project}")),
                      is_changed=bool(git("status", "--porcelain")))


def newest(changelog):
    """The entries of the newest section of CHANGELOG.md."""
    section = re.split(r"^## .*\n", changelog, flags=re.M)[1]
    return [" ".join(entry.split()) for entry in re.split(r"^- ", section, flags=re.M)[1:]]


def debian_changelog(version, entries, date):
    lines = [textwrap.fill(entry.replace("`", "'"), 78, initial_indent="  * ",
                           subsequent_indent="    ", break_long_words=False,
                           break_on_hyphens=False)
             for entry in entries]
    return (f"vmagent ({version}) unstable; urgency=medium\n\n" + "\n".join(lines) +
            f"\n\n -- {MAINTAINER}  {date}\n")


def copy_sources(target):
    """Makes `target` a copy of what is tracked or could be, and of what others wrote for the page. A
    file that is equal stays as it is, with its time, and so do the objects of the build before; all
    else goes."""
    listed = git("ls-files", "-z", "--cached", "--others", "--exclude-standard").split("\0")
    listed += [str(path.relative_to(ROOT)) for path in (ROOT / "cockpit/vendor").glob("**/*")]
    wanted = {name for name in listed if (ROOT / name).is_file()}
    shutil.rmtree(target / "debian", ignore_errors=True)
    for path in target.glob("**/*"):
        name = str(path.relative_to(target))
        if path.is_file() and name not in wanted and not name.startswith("obj-"):
            path.unlink()
    for name in wanted:
        file = target / name
        if file.exists() and filecmp.cmp(ROOT / name, file, shallow=False):
            continue
        file.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(ROOT / name, file)


def run(words, folder, log, options=""):
    environment = os.environ | {"LC_ALL": "C.UTF-8", "DEB_BUILD_OPTIONS": options}
    for name in ("CFLAGS", "CPPFLAGS", "CXXFLAGS", "LDFLAGS", "MAKEFLAGS"):
        environment.pop(name, None)
    with open(log, "w") as file:
        status = subprocess.run(words, cwd=folder, env=environment, stdout=file,
                                stderr=subprocess.STDOUT).returncode
    if status != 0:
        sys.stderr.write(pathlib.Path(log).read_text()[-8000:])
        sys.exit(f"make deb: {words[0]} failed; all it said is in {log}")


def build(folder, source, version, flags, options=""):
    """Builds `source`, whose objects stay, as that version; its packages come into `folder`."""
    folder.mkdir(parents=True, exist_ok=True)
    for old in [*folder.glob("*vmagent*_*"), *source.parent.glob("*vmagent*_*")]:
        old.unlink(missing_ok=True)
    copy_sources(source)
    (source / "debian/changelog").write_text(debian_changelog(
        version, newest((ROOT / "CHANGELOG.md").read_text()),
        git("log", "-1", "--format=%cd", "--date=format-local:%a, %d %b %Y %H:%M:%S +0000")))
    jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or os.cpu_count()
    run(["dpkg-buildpackage", "--unsigned-source", "--unsigned-changes", "--no-pre-clean",
         f"--jobs={jobs}", *flags], source, folder / "build.log", options)
    for made in source.parent.glob("*vmagent*_*"):
        made.rename(folder / made.name)


def main(arguments):
    if not arguments or arguments[1:] not in ([], ["--next"]):
        sys.exit("usage: deb.py DIR [--next]")
    folder = pathlib.Path(arguments[0]).resolve()
    source = folder / "source"
    if arguments[1:]:
        build(folder / "next", source, version() + "+next", ["--build=binary"], "noautodbgsym")
    build(folder, source, version(), ["--build=full"])
    run([*LINTIAN, *map(str, folder.glob("*.changes"))], folder, folder / "lintian.log")
    for package in sorted(folder.glob("*.deb")):
        print(hashlib.sha256(package.read_bytes()).hexdigest(), os.path.relpath(package))


if __name__ == "__main__":
    main(sys.argv[1:])
