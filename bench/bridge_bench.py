#!/usr/bin/env python3
"""The hardware bridge against flashrom on the simulated devices.

A 4 MiB chip, written from erased with a random image (-auto; flashrom -w,
which verifies too) and read back whole, once through the serprog device
emulator (a pseudo-terminal, with a fixed latency per command as a USB
adapter has) and once through the preloaded spidev fake. Every run gets a
fresh device with fresh contents, and its result is compared with the image.

Reported per job: the median wall time of the runs, what crossed the link
per MiB (serprog commands and SPI operations; spidev ioctls), the ratio
ours/flashrom, and the bus limit: the image bytes the job must clock at
12 MHz (written and verified, or read). The emulated chip answers at once,
so on the fake the host's own cost is all that is measured and figures can
undercut that limit. Nothing is asserted about speed; a run whose result is
wrong is reported, and makes the script fail if it is one of ours.

flashrom is optional: without it only our figures are given.
"""
import argparse
import os
import random
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

MIB = 1 << 20
CHIP_SIZE = 4 * MIB
# A GigaDevice 32 Mbit part: one entry in our chip table and one in
# flashrom's, and the emulator sizes an unknown ID by its capacity byte.
CHIP_ID = "C84016"
SPEED_KHZ = 12000
LATENCY_US = 125
PROJECT = "[JTAG]\n  Speed0 = %d\n[FLASH]\n  AutoDetect = 1\n" % SPEED_KHZ
DEVICE_WAIT_S = 10
RUN_TIMEOUT_S = 240


def bus_seconds(nbytes):
    return nbytes * 8 / (SPEED_KHZ * 1000)


def find_flashrom():
    # Debian installs it under sbin, which a user's PATH often lacks.
    path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin:/usr/local/sbin"
    return shutil.which("flashrom", path=path)


def read_stats(path):
    stats = {}
    try:
        with open(path) as f:
            for line in f:
                k, _, v = line.partition(" ")
                if v.strip().isdigit():
                    stats[k] = int(v)
    except FileNotFoundError:
        pass
    return stats


def same_as(path, image):
    try:
        with open(path, "rb") as f:
            data = f.read()
    except FileNotFoundError:
        return "no file %s" % os.path.basename(path)
    if data == image:
        return None
    if len(data) != len(image):
        return "%s is %d bytes, not %d" % (os.path.basename(path), len(data), len(image))
    first = next(i for i in range(len(data)) if data[i] != image[i])
    return "%s differs from the image first at 0x%06X" % (os.path.basename(path), first)


def last_lines(text, n=4):
    # flashrom lists every chip it could not map on this programmer; that noise hides the reason.
    lines = [l for l in text.splitlines() if l.strip() and "requested mapping" not in l]
    return " | ".join(lines[-n:])


class Run:
    """One program run: its time, the device's counters and what went wrong."""

    def __init__(self, wall, stats, error, out):
        self.wall, self.stats, self.error, self.out = wall, stats, error, out


class Bench:
    def __init__(self, a, work, image):
        self.a, self.work, self.image = a, work, image
        self.image_path = os.path.join(work, "image.bin")
        with open(self.image_path, "wb") as f:
            f.write(image)
        self.project = os.path.join(work, "p.pellam")
        with open(self.project, "w") as f:
            f.write(PROJECT)
        self.seq = 0

    def fresh_dir(self, contents):
        # A directory per run: the device's contents file starts erased (it is
        # created on first use), or holds the image for a read.
        self.seq += 1
        d = os.path.join(self.work, "run%03d" % self.seq)
        os.mkdir(d)
        if contents is not None:
            with open(os.path.join(d, "flash.bin"), "wb") as f:
                f.write(contents)
        return d

    def clean_env(self):
        env = dict(os.environ)
        for k in list(env):
            if k.startswith("TARLOSIM_") or k in ("LD_PRELOAD", "PELLAM_BRIDGE"):
                del env[k]
        return env

    def execute(self, cmd, env, cwd):
        start = time.monotonic()
        try:
            p = subprocess.run(cmd, env=env, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               timeout=RUN_TIMEOUT_S)
            rc, out = p.returncode, p.stdout.decode(errors="replace")
        except subprocess.TimeoutExpired as e:
            rc, out = "timeout", (e.stdout or b"").decode(errors="replace")
        return rc, out, time.monotonic() - start

    # ---- serprog ----

    def serprog(self, program_cmd, contents):
        """Runs program_cmd(tty, run dir) against a fresh emulator."""
        d = self.fresh_dir(contents)
        tty, flash, stats = (os.path.join(d, n) for n in ("tty", "flash.bin", "stats"))
        dev = subprocess.Popen([self.a.serprog, "--pty", tty, "--chip", CHIP_ID, "--flash", flash, "--stats", stats,
                                "--latency-us", str(LATENCY_US)], stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE)
        deadline = time.monotonic() + DEVICE_WAIT_S
        while not os.path.islink(tty) and dev.poll() is None and time.monotonic() < deadline:
            time.sleep(0.01)
        if not os.path.islink(tty):
            dev.kill()
            err = dev.communicate()[1].decode(errors="replace").strip()
            return Run(0, {}, "the emulator did not start: " + err, ""), d
        cmd, env = program_cmd(tty, d)
        rc, out, wall = self.execute(cmd, env, d)
        # The emulator saves the contents and its counters when it is told to go.
        dev.send_signal(signal.SIGTERM)
        try:
            dev.wait(timeout=DEVICE_WAIT_S)
        except subprocess.TimeoutExpired:
            dev.kill()
            dev.wait()
        error = None if rc == 0 else "exit status %s: %s" % (rc, last_lines(out))
        return Run(wall, read_stats(stats), error, out), d

    # ---- spidev ----

    def spidev(self, program_cmd, contents):
        d = self.fresh_dir(contents)
        devpath, flash, stats = (os.path.join(d, n) for n in ("spidev0.0", "flash.bin", "stats"))
        env = self.clean_env()
        env.update({"LD_PRELOAD": self.a.spidev_fake, "TARLOSIM_SPIDEV": "dev=" + devpath,
                    "TARLOSIM_CHIP": CHIP_ID, "TARLOSIM_FLASH": flash, "TARLOSIM_SPIDEV_STATS": stats})
        cmd, env = program_cmd(devpath, d, env)
        rc, out, wall = self.execute(cmd, env, d)
        error = None if rc == 0 else "exit status %s: %s" % (rc, last_lines(out))
        return Run(wall, read_stats(stats), error, out), d

    # ---- the two programs ----

    def ours(self, bridge_cfg, args, base_env, d):
        env = dict(base_env)
        env.update({"HOME": d, "PELLAM_BRIDGE": bridge_cfg})
        return [self.a.bridge_bin, "-openprj", self.project] + args, env

    def job_args(self, job, d, ours):
        dump = os.path.join(d, "dump.bin")
        if ours:
            return ["-open", self.image_path, "0", "-auto"] if job == "write" else ["-readchip", "-saveas", dump]
        return ["-w", self.image_path] if job == "write" else ["-r", dump]

    def check(self, run, job, d):
        if run.error:
            return run
        target = os.path.join(d, "flash.bin" if job == "write" else "dump.bin")
        run.error = same_as(target, self.image)
        return run

    def one(self, bus, prog, job, flashrom_extra=()):
        contents = None if job == "write" else self.image
        if bus == "serprog":
            def cmd(tty, d):
                if prog == "ours":
                    return self.ours("serprog:" + tty, self.job_args(job, d, True), self.clean_env(), d)
                return ([self.a.flashrom, "-p", "serprog:dev=%s:115200" % tty] + list(flashrom_extra) +
                        self.job_args(job, d, False), self.clean_env())
            run, d = self.serprog(cmd, contents)
        else:
            def cmd(devpath, d, env):
                if prog == "ours":
                    return self.ours("spidev:" + devpath, self.job_args(job, d, True), env, d)
                return ([self.a.flashrom, "-p", "linux_spi:dev=%s,spispeed=%d" % (devpath, SPEED_KHZ)] +
                        list(flashrom_extra) + self.job_args(job, d, False), env)
            run, d = self.spidev(cmd, contents)
        return self.check(run, job, d)

    def probe_flashrom(self, bus):
        """flashrom's probe alone: the chip it names, the -c it needs, or why it cannot run."""
        if bus == "serprog":
            run, _ = self.serprog(lambda tty, d: ([self.a.flashrom, "-p", "serprog:dev=%s:115200" % tty],
                                                  self.clean_env()), self.image)
        else:
            run, _ = self.spidev(lambda p, d, env: ([self.a.flashrom, "-p", "linux_spi:dev=%s,spispeed=%d"
                                                     % (p, SPEED_KHZ)], env), self.image)
        found = re.findall(r'Found .* flash chip "([^"]+)"', run.out)
        many = re.search(r"Multiple flash chip definitions match the detected chip\(s\): (.*)", run.out)
        if many:
            names = re.findall(r'"([^"]+)"', many.group(1))
            return names[0], ["-c", names[0]], None, run.out
        if run.error or len(found) != 1:
            return None, [], run.error or "no chip found: " + last_lines(run.out), run.out
        return found[0], [], None, run.out


def median(values):
    return statistics.median(values) if values else None


def fmt(v, spec):
    return "-" if v is None else format(v, spec)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--bridge-bin", required=True, help="the program beside the bridge library")
    ap.add_argument("--serprog", required=True, help="the serprog device emulator")
    ap.add_argument("--spidev-fake", required=True, help="the preloaded spidev fake")
    ap.add_argument("--out", required=True)
    ap.add_argument("--repeats", type=int, default=3)
    a = ap.parse_args()
    a.flashrom = find_flashrom()
    # The machine is shared: everything here, the devices included, yields to other work alike.
    os.nice(10)

    notes, ours_failed, lines = [], False, []
    image = random.Random(4).randbytes(CHIP_SIZE)
    with tempfile.TemporaryDirectory(prefix="pellam-bridge-bench-") as work:
        b = Bench(a, work, image)
        flashrom_args = {}
        if not a.flashrom:
            notes.append("flashrom was not found: only our figures are given.")
        else:
            for bus in ("serprog", "spidev"):
                name, extra, why, out = b.probe_flashrom(bus)
                if why:
                    notes.append("flashrom cannot run on %s here: %s" % (bus, why))
                    continue
                flashrom_args[bus] = extra
                notes.append("flashrom on %s detects \"%s\"%s." % (bus, name, " (given as -c)" if extra else ""))
                if bus == "spidev" and "bufsiz" in out and "Cannot open" in out:
                    # Its sysfs read goes round the preloaded open(), so it takes its built-in default.
                    notes.append("flashrom on spidev could not read the fake's bufsiz and used its default.")

        results = {}  # (bus, job, prog) -> list of Run
        for _ in range(a.repeats):
            for bus in ("serprog", "spidev"):
                for job in ("write", "read"):
                    progs = ["ours"] + (["flashrom"] if bus in flashrom_args else [])
                    for prog in progs:
                        run = b.one(bus, prog, job, flashrom_args.get(bus, ()))
                        results.setdefault((bus, job, prog), []).append(run)
                        if run.error:
                            ours_failed |= prog == "ours"
                            notes.append("%s %s %s failed: %s" % (prog, bus, job, run.error))
                        print("  %-7s %-5s %-8s %7.2f s%s" % (bus, job, prog, run.wall,
                                                              "  FAILED" if run.error else ""), flush=True)

    counters = {"serprog": [("commands", "commands"), ("spiops", "O_SPIOPs")],
                "spidev": [("ioctls", "ioctls"), ("transfers", "transfers")]}
    job_bytes = {"write": 2 * CHIP_SIZE, "read": CHIP_SIZE}
    lines.append("Hardware bridge against flashrom: %d MiB chip %s, SPI clock %d kHz, median of %d runs"
                 % (CHIP_SIZE // MIB, CHIP_ID, SPEED_KHZ, a.repeats))
    lines.append("write: -auto / -w of a random image onto an erased chip (both read it first and verify);"
                 " read: the whole chip")
    for bus in ("serprog", "spidev"):
        title = ("serprog on a pseudo-terminal, %d us latency per command (no bus time modelled)" % LATENCY_US
                 if bus == "serprog" else "spidev through the preloaded fake (no bus time modelled)")
        keys = counters[bus]
        lines.append("")
        lines.append(title)
        lines.append("  %-6s %-15s %9s %9s %14s %14s" % ("job", "program", "time s", "runs s",
                                                         keys[0][1] + "/MiB", keys[1][1] + "/MiB"))
        for job in ("write", "read"):
            med = {}
            for prog in ("ours", "flashrom"):
                runs = [r for r in results.get((bus, job, prog), []) if not r.error]
                if not results.get((bus, job, prog)):
                    continue
                t = median([r.wall for r in runs])
                c = [median([r.stats.get(k, 0) / (CHIP_SIZE / MIB) for r in runs]) for k, _ in keys]
                med[prog] = (t, c)
                spread = "%.1f-%.1f" % (min(r.wall for r in runs), max(r.wall for r in runs)) if runs else "-"
                lines.append("  %-6s %-15s %9s %9s %14s %14s" % (job, prog, fmt(t, ".2f"), spread,
                                                                 fmt(c[0], ".0f"), fmt(c[1], ".0f")))
            if "ours" in med and "flashrom" in med and all(v is not None for v in (med["ours"][0], med["flashrom"][0])):
                (t0, c0), (t1, c1) = med["ours"], med["flashrom"]
                ratio = [x / y if x is not None and y else None for x, y in zip(c0, c1)]
                lines.append("  %-6s %-15s %9s %9s %14s %14s" % (job, "ours/flashrom", fmt(t0 / t1, ".2f"), "",
                                                                 fmt(ratio[0], ".2f"), fmt(ratio[1], ".2f")))
            lines.append("  %-6s %-15s %9.2f   (%d MiB at %d MHz: %s)" % (
                job, "bus limit", bus_seconds(job_bytes[job]), job_bytes[job] // MIB, SPEED_KHZ // 1000,
                "image written + verified" if job == "write" else "image read"))
    if notes:
        lines.append("")
        lines.extend("note: " + n for n in notes)

    text = "\n".join(lines) + "\n"
    print()
    print(text, end="")
    os.makedirs(os.path.dirname(os.path.abspath(a.out)), exist_ok=True)
    with open(a.out, "w") as f:
        f.write(text)
    return 1 if ours_failed else 0


if __name__ == "__main__":
    sys.exit(main())
