"""What a shell is told: the manual page, completion of commands, and what an installation brings."""

import os
import re
import shutil
import subprocess

import pytest

from conftest import BUILD

COMMAND = str(BUILD / "bin/kelvo")


def commands(run):
    listed = run(COMMAND, "help").split("Subcommands:\n")[1]
    return re.findall(r"^  (\w+) ", listed, re.MULTILINE)


def options(run, command):
    return set(re.findall(r"^ +(?:-\w,)?(--[\w-]+)", run(COMMAND, command, "--help"), re.MULTILINE))


def completed(*words):
    """Returns what bash offers for the last word of a line."""
    script = f"""
source <({COMMAND} completion bash)
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_kelvo
printf '%s\\n' "${{COMPREPLY[@]}}"
"""
    printed = subprocess.check_output(["bash", "-c", script, "bash", *words], text=True)
    return set(printed.split())


def test_help_says_what_the_option_says(run):
    assert run(COMMAND, "help") == run(COMMAND, "--help")
    for command in commands(run):
        assert run(COMMAND, "help", command) == run(COMMAND, command, "--help")
    assert run(COMMAND, "-V") == run(COMMAND, "--version")
    wrong = subprocess.run([COMMAND, "help", "fly"], capture_output=True, text=True)
    assert wrong.returncode == 2
    assert wrong.stderr.startswith('kelvo: command: "fly" is none of fit, ')


def test_bash_completes_all_commands_and_options(run):
    names = commands(run)
    assert {"fit", "help", "completion"} < set(names)
    assert completed("kelvo", "") == set(names)
    assert completed("kelvo", "dis") == {"display"}
    for name in names:
        assert completed("kelvo", name, "--") == options(run, name)
    assert completed("kelvo", "fit", "--be") == {"--beyond-last-hit", "--beam-momentum"}
    assert completed("kelvo", "fit", "hits") == set()  # which leaves bash to offer files


def test_zsh_is_told_the_same(run, tmp_path):
    script = run(COMMAND, "completion", "zsh")
    assert script.startswith("#compdef kelvo\n")
    for name in commands(run):
        offered = re.search(rf"^ +{name}\) compadd -- (.*) ;;$", script, re.MULTILINE)[1]
        assert set(offered.split()) == options(run, name)
    if shutil.which("zsh"):
        (tmp_path / "_kelvo").write_text(script)
        subprocess.run(["zsh", "-n", tmp_path / "_kelvo"], check=True)


@pytest.mark.skipif(not shutil.which("man"), reason="needs man")
def test_the_manual_page_has_every_line_of_the_help(run, tmp_path):
    page = tmp_path / "kelvo.1"
    page.write_text(run(COMMAND, "help", "--manual"))
    environment = {**os.environ, "MANWIDTH": "300", "LC_ALL": "C.UTF-8"}
    shown = subprocess.run(["man", "--warnings", "-l", page], env=environment, capture_output=True, text=True)
    assert shown.stderr == ""
    for command in commands(run):
        for line in run(COMMAND, command, "--help").splitlines():
            assert line.strip() in shown.stdout


def test_an_installation_has_manual_completion_licence_and_citation(installed, run):
    share = installed / "share"
    for file, words in {
        share / "man/man1/kelvo.1": ["help", "--manual"],
        share / "bash-completion/completions/kelvo": ["completion", "bash"],
        share / "zsh/site-functions/_kelvo": ["completion", "zsh"],
    }.items():
        assert file.read_text() == run(installed / "bin/kelvo", *words)
    assert "GNU LESSER GENERAL PUBLIC" in (share / "doc/kelvo/LICENSE").read_text()
    citation = (share / "doc/kelvo/CITATION.cff").read_text()
    for field in ("cff-version: 1.2.0", "title: ", "authors:", "license: LGPL-2.1-or-later"):
        assert f"\n{field}" in f"\n{citation}"
