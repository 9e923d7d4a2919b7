#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A phone in a virtual machine: Debian's stock kernel, which has what a container's rarely has,
simulated Wi-Fi radios. `scripts/setup vm` fetches what it needs.

The machine sees this one's files, read-only, below /host, may write to build/vm/results as
/results, and runs commands one by one. phone.sh makes the phone of it.

    lab/vm/machine.py COMMAND    boots, runs one, prints what it says and ends with its status
"""

import os
import shutil
import subprocess
import sys
import threading
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[2]
WORK = REPOSITORY / "build" / "vm"
SYSTEM = WORK / "system"  # kernel, modules and a shell
RESULTS = WORK / "results"
CONSOLE = WORK / "console.log"
# In order, what it takes to see the files; all other modules are found there.
MODULES = ("virtio_ring virtio virtio_pci_legacy_dev virtio_pci_modern_dev virtio_pci "
           "netfs fscache 9pnet 9pnet_virtio 9p").split()
MARK = "=== ended"  # and the exit status: the end of a command's output
BOOT_S = 90
COMMAND_S = 300  # one that is run from a terminal

# A root directory that is a mount, as everywhere but here, can be exchanged for a world's.
INIT = f"""#!/busybox sh
if [ ! -e /disk ]; then
    for module in {" ".join(MODULES)}; do insmod $module.ko; done
    mkdir /disk
    /busybox mount -t tmpfs none /disk
    cp /busybox /init /disk
    mkdir /disk/disk
    exec /busybox switch_root /disk /init
fi
mkdir -p /proc /sys /dev /host /results /lib
for fs in proc:proc sysfs:sys devtmpfs:dev; do /busybox mount -t ${{fs%:*}} none /${{fs#*:}}; done
/busybox mount -t 9p -o ro,trans=virtio,msize=512000,cache=loose root /host
/busybox mount -t 9p -o trans=virtio results /results
ln -s /host/usr/lib/* /lib
ln -sfn /host{SYSTEM}/lib/modules /lib/modules
for entry in bin sbin lib64 etc usr; do ln -s /host/$entry /; done
export PATH=/usr/sbin:/usr/bin MARK='{MARK}'
exec /bin/sh -ex /host{REPOSITORY}/lab/vm/phone.sh > /dev/console 2>&1
"""


def make_initramfs() -> Path:
    """The least that shows this machine's files: a shell, and the modules for that."""
    root = WORK / "root"
    root.mkdir(exist_ok=True)
    (root / "init").write_text(INIT)
    (root / "init").chmod(0o755)
    busybox = SYSTEM / "bin/busybox"
    for file in (busybox, *(next(SYSTEM.rglob(f"{name}.ko")) for name in MODULES)):
        shutil.copy(file, root)
    archive = subprocess.run([busybox, "cpio", "-o", "-H", "newc"], cwd=root, check=True,
                             input="\n".join(os.listdir(root)).encode(), capture_output=True)
    initramfs = WORK / "initramfs"
    initramfs.write_bytes(archive.stdout)
    return initramfs


class Machine:
    """Boots when it is made. Ends with the program that made it, however that ends."""

    def __init__(self) -> None:
        if not SYSTEM.exists():
            raise FileNotFoundError(f"no {SYSTEM}: run scripts/setup vm")
        RESULTS.mkdir(exist_ok=True)
        # One simple processor: emulated, a second one and more features make it slower.
        argv = [
            *"setpriv --pdeathsig KILL qemu-system-x86_64 -M pc,accel=tcg -cpu Nehalem -m 1024 -nodefaults".split(),
            *"-no-reboot -display none -serial stdio -serial".split(), f"file:{CONSOLE}",
            "-virtfs", "local,path=/,mount_tag=root,security_model=none,readonly=on,"
            "multidevs=remap",
            "-virtfs", f"local,path={RESULTS},mount_tag=results,security_model=none",
            "-kernel", str(next(SYSTEM.glob("boot/vmlinuz-*"))), "-initrd", str(make_initramfs()),
            "-append", "console=ttyS1 quiet panic=-1 mitigations=off"]
        self._qemu = subprocess.Popen(argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                      text=True, errors="replace")
        self._answer("boot", BOOT_S)

    def run(self, command: str, deadline: float) -> tuple[int, str]:
        """Its exit status and output; a machine that takes longer is ended."""
        assert self._qemu.stdin
        self._qemu.stdin.write(f"({command}) < /dev/null 2>&1; printf '\\n%s %d\\n' '{MARK}' $?\n")
        self._qemu.stdin.flush()
        return self._answer(command, deadline)

    def _answer(self, command: str, deadline: float) -> tuple[int, str]:
        assert self._qemu.stdout
        timer = threading.Timer(deadline, self._qemu.kill)
        timer.start()
        output = ""
        for line in self._qemu.stdout:
            if line.startswith(MARK):
                timer.cancel()
                return int(line.split()[-1]), output.removesuffix("\n")
            output += line
        timer.cancel()
        raise TimeoutError(f"{command}: the machine ended\n{output}\nits console: {CONSOLE}\n"
                           + CONSOLE.read_text(errors="replace")[-3000:])

    def end(self) -> None:
        self._qemu.kill()
        self._qemu.wait()


def main() -> int:
    if len(sys.argv) != 2:
        print("usage: lab/vm/machine.py COMMAND", file=sys.stderr)
        return 2
    try:
        machine = Machine()
    except FileNotFoundError as error:
        print(f"lab/vm/machine.py: {error}", file=sys.stderr)
        return 2
    try:
        status, output = machine.run(sys.argv[1], COMMAND_S)
    finally:
        machine.end()
    print(output, end="")
    return status


if __name__ == "__main__":
    sys.exit(main())
