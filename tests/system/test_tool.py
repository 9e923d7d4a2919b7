# SPDX-License-Identifier: Apache-2.0
"""lnkdctl at a command line."""

import subprocess

import pytest

COMPLETED = r"""
. <(lnkdctl completion bash)
COMP_WORDS=(lnkdctl "$@") COMP_CWORD=$#
compopt() { :; }  # only within a completion
_lnkdctl
printf '%s\n' "${COMPREPLY[@]}"
"""


def completed(*words):
    answer = subprocess.run(["bash", "-c", COMPLETED, "-", *words], check=True,
                            stdout=subprocess.PIPE, text=True)
    return answer.stdout.split()


@pytest.mark.parametrize("words, offered", [
    (["comp"], ["completion"]),
    (["--s"], ["--socket="]),
    (["completion", ""], ["--help", "bash", "zsh"]),
])
def test_bash_completes(words, offered):
    assert completed(*words) == offered


@pytest.mark.parametrize("words, said", [
    (["interfaces", "wlan0"], '"interfaces": a command of a session'),
    (["claen"], '"claen": not a command; did you mean clean?'),
    ([""], '"": not a command; allowed: '),
    (["--sokcet", "x"], '"--sokcet": not an option; did you mean --socket?'),
    (["--socket", "a" * 108], f'"{"a" * 40}...": not a socket path (1 to 107 bytes)'),
    (["completion"], "SHELL is missing"),
])
def test_a_wrong_command_line_is_told_apart(words, said):
    run = subprocess.run(["lnkdctl", *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                         text=True)
    assert (run.returncode, run.stdout) == (2, "")
    assert said in run.stderr


def test_the_completion_of_zsh_is_one():
    script = subprocess.check_output(["lnkdctl", "completion", "zsh"])
    subprocess.run(["zsh", "-n"], input=script, check=True)
