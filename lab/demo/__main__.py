# SPDX-License-Identifier: Apache-2.0
"""The demo: a download over several links, then a game that leaves its slow Wi-Fi.

Runs in a world: sudo scripts/demo.
"""

import argparse
import subprocess
import sys
from pathlib import Path

import world
from lab.demo import aggregation, selection
from lab.demo.aggregation import paint, say


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--out", type=Path, required=True, help="folder for the reports")
    out = parser.parse_args().out
    if not world.inside():
        print("demo: runs in a world: sudo scripts/demo", file=sys.stderr)
        return 2
    out.mkdir(parents=True, exist_ok=True)
    try:
        download = aggregation.play(out)
        aggregation.write_report(download, out)
        game = selection.compare(out)
    except (OSError, subprocess.SubprocessError) as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    print()
    aggregation.print_screen(download)
    say("Selection: a game while its Wi-Fi grows slow")
    selection.print_screen(game)
    verdicts = [*download.verdicts(), (game.good, game.words)]
    for good, words in verdicts:
        print(paint("ok  ", "32") if good else paint("FAIL", "1;31"), words)
    print(f"Pictures: {out.resolve()}/report.html, selection.html")
    return 0 if all(good for good, _ in verdicts) else 1


if __name__ == "__main__":
    sys.exit(main())
