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


def test_the_completion_of_zsh_is_one():
    script = subprocess.check_output(["lnkdctl", "completion", "zsh"])
    subprocess.run(["zsh", "-n"], input=script, check=True)
