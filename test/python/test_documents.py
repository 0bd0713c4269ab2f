"""What the documents quote: commands with what they print, code, numbers, and links to files."""

import os
import pathlib
import re
import subprocess

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KELVO_BUILD_DIR", SOURCE / "build/release"))
DOCUMENTS = sorted([SOURCE / "README.md", *(SOURCE / "docs").glob("*.md")])
PROGRAMS = ("kelvo ", "head ", "01-", "02-", "03-")


def quoted_runs(text):
    """Yields each line "    $ command" with the indented lines that follow it."""
    command, output = None, []
    for line in [*text.splitlines(), "end"]:
        if command and line.startswith("    ") and not line.startswith("    $ "):
            output.append(line[4:])
        elif command and not line:
            output.append("")
        else:
            if command:
                yield command, "\n".join(output).rstrip("\n") + "\n"
            command, output = (line[6:], []) if line.startswith("    $ ") else (None, [])


def without_times(text):
    return re.sub(r"[\d.]+ s, \d+ tracks/s", "T s, N tracks/s", text)


def pattern(quoted):
    """A line "..." stands for any lines."""
    lines = [re.escape(line) for line in without_times(quoted).splitlines()]
    return "".join("(?:.*\n)*?" if line == re.escape("...") else line + "\n" for line in lines)


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_commands_print_what_is_quoted(document, tmp_path):
    for name in ("detectors", "examples"):
        (tmp_path / name).symlink_to(SOURCE / name)
    environment = {**os.environ, "PATH": f"{BUILD / 'bin'}:{os.environ['PATH']}"}
    for command, quoted in quoted_runs(document.read_text(encoding="utf-8")):
        if command.startswith("cat "):  # a file to be made, as it is shown
            (tmp_path / command[4:]).write_text(quoted)
        if not command.startswith(PROGRAMS):
            continue
        printed = subprocess.run(
            command, shell=True, cwd=tmp_path, env=environment, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, encoding="utf-8").stdout
        if quoted.strip():
            assert re.fullmatch(pattern(quoted), without_times(printed)), command + "\n" + printed


def test_the_five_lines_are_those_that_the_package_is_tested_with():
    program = (SOURCE / "test/package/outside.cxx").read_text()
    tested = [line.strip() for line in program.split("//! [five lines]\n")[1].splitlines()]
    readme = (SOURCE / "README.md").read_text().split("```cpp\n")[1].split("```")[0]
    assert [re.sub(r" *// .*", "", line) for line in readme.splitlines()] == tested[:5]


def test_the_readme_tells_what_the_third_example_finds(run):
    printed = run(BUILD / "bin/03-seven-classes", SOURCE / "detectors/fine.toml",
                  SOURCE / "examples/data/stopping-muon.txt")
    words = " ".join((SOURCE / "README.md").read_text().split())
    told = re.search(
        r"finds ([\d.]+) GeV/c from the range, and a chi-square of ([\d.]+) for (\d+) degrees of "
        r"freedom in one view and of ([\d.]+) for (\d+) in the other", words).groups()
    momentum = re.search(r"muon +[\d.]+ +([\d.]+)", printed).group(1)
    views = re.findall(r"^ +[xy] .* ([\d.]+) +(\d+)$", printed, re.MULTILINE)
    assert told == (momentum, *views[0], *views[1])


def test_the_first_commands_of_the_readme_run_as_they_stand(tmp_path):
    """In a folder that looks like the checkout after scripts/demo, with nothing else on the path."""
    for name in ("detectors", "examples", ".venv"):
        (tmp_path / name).symlink_to(SOURCE / name)
    (tmp_path / "build").mkdir()
    (tmp_path / "build/release").symlink_to(BUILD)
    block = (SOURCE / "README.md").read_text().split("```sh\n")[1].split("```")[0]
    script = "set -e\n" + block + "command -v kelvo\n"
    environment = {"PATH": "/usr/bin:/bin", "HOME": str(tmp_path)}
    done = subprocess.run(
        ["bash", "-c", script], cwd=tmp_path, env=environment, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout.endswith(f"{tmp_path}/build/release/bin/kelvo\n")
    for name in ("fits.root", "fits.csv", "fits.html", "track.svg"):
        assert (tmp_path / name).stat().st_size > 10_000


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_links_lead_to_files(document):
    text = document.read_text(encoding="utf-8")
    links = re.findall(r"\]\(([^)#\s]+)(?:#[^)]*)?\)", text) + re.findall(r'src="([^"]+)"', text)
    missing = [link for link in links
               if "://" not in link and not (document.parent / link).exists()]
    assert missing == []
