# SPDX-License-Identifier: Apache-2.0
"""lnkdctl at a command line."""

import json
import subprocess

import pytest
import world

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


@pytest.mark.parametrize("words", [["--version"], ["check", "--print"], ["completion", "bash"],
                                   ["doctor", "--no-probe"]], ids=lambda words: words[0])
def test_output_for_which_there_is_no_room_is_no_success(words):
    with open("/dev/full", "w", encoding="ascii") as full:
        run = subprocess.run(["lnkdctl", *words], stdout=full, stderr=subprocess.PIPE, text=True)
    assert (run.returncode, "not all of the output could be written" in run.stderr) == (1, True)


def test_the_completion_of_zsh_is_one():
    script = subprocess.check_output(["lnkdctl", "completion", "zsh"])
    subprocess.run(["zsh", "-n"], input=script, check=True)


@pytest.mark.parametrize("content, statuses", [
    ("n_hyst=2\n", (0, 0)), ("n_hyst=0\n", (0, 1)), ("n_hyst=0\nn_hist=1\n", (2, 2)),
    ("n_hyst=2\n" + "#\n" * (1 << 19), (2, 2)), (None, (2, 2)),
], ids=["right", "warning", "error", "huge", "missing"])
def test_check_judges_the_file_that_is_named(tmp_path, content, statuses):
    """Plainly and strictly; what the daemon of this machine reads does not count."""
    world.CONFIGURATION.write_text("t_hyst_s=7\nwrong\n")
    file = tmp_path / "lnkd.conf"
    if content is not None:
        file.write_text(content)
    runs = [subprocess.run(["lnkdctl", "check", *options, "--json", file], stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, text=True) for options in ([], ["--strict"])]
    assert tuple(run.returncode for run in runs) == statuses
    if runs[0].stdout:
        values = {row["key"]: (row["value"], row["line"]) for row in
                  json.loads(runs[0].stdout)["values"]}
        assert values["t_hyst_s"] == (0, None) and values["n_hyst"][1] == 1
    else:
        assert "lnkdctl check: " in runs[0].stderr and "defaults" in runs[0].stderr


def test_check_shortens_a_value_between_characters(tmp_path):
    file = tmp_path / "lnkd.conf"
    file.write_text("protocols=" + 25 * "ä")
    said = subprocess.check_output(["lnkdctl", "check", file]).decode()
    assert f" {21 * 'ä'}... " in said
