#!/usr/bin/env python3
"""The live progress line, seen from a real terminal.

Runs pellam-spi against the simulator in `real` timing on a small chip, once
with standard error on a pseudo-terminal and once with it on a file, and
checks that the terminal sees a progress line per long phase that reaches
100 % and is taken away again, that standard output is the same bytes either
way (the measured durations aside), and that nothing at all reaches standard
error when it is no terminal or at verbosity 0.

usage: progress_pty_test.py <pellam-spi>
"""
import os
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import time

TIMEOUT = 60  # seconds for one run; the runs below need about two

failures = []


def check(ok, what):
    if not ok:
        failures.append(what)
        print("FAIL: " + what)


def run(program, args, cwd, env, tty):
    """Runs the program; returns (exit status, stdout bytes, stderr bytes)."""
    out_path = os.path.join(cwd, "stdout.bin")
    with open(out_path, "wb") as out:
        master, slave = pty.openpty() if tty else (None, subprocess.PIPE)
        proc = subprocess.Popen([program] + args, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                                stdout=out, stderr=slave, close_fds=True)
        if tty:
            os.close(slave)
            err = bytearray()
            deadline = time.monotonic() + TIMEOUT
            while time.monotonic() < deadline:
                ready, _, _ = select.select([master], [], [], 0.5)
                if ready:
                    try:
                        chunk = os.read(master, 65536)
                    except OSError:  # the terminal is gone: the program has ended
                        break
                    if not chunk:
                        break
                    err += chunk
                elif proc.poll() is not None:
                    break
            os.close(master)
        else:
            try:
                _, err = proc.communicate(timeout=TIMEOUT)
            except subprocess.TimeoutExpired:
                err = b""
        try:
            status = proc.wait(timeout=max(1, TIMEOUT // 4))
        except subprocess.TimeoutExpired:
            proc.send_signal(signal.SIGKILL)
            status = proc.wait()
            check(False, "run timed out: %s" % " ".join(args))
    with open(out_path, "rb") as f:
        return status, f.read(), bytes(err)


def timeless(out):
    """Standard output with the measured durations masked."""
    return re.sub(rb"Completed after \d+\.\d{3} seconds\.", b"Completed after N seconds.", out)


def main():
    program = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory(prefix="pellam-progress-") as tmp:
        env = {k: v for k, v in os.environ.items() if not k.startswith("TARLOSIM_")}
        # A 256 KiB standard chip of four 64 KiB sectors; program and erase
        # take their real time.
        env.update(HOME=tmp, TARLOSIM_CHIP="EF4012", TARLOSIM_TIMING="real",
                   TARLOSIM_FLASH=os.path.join(tmp, "flash.bin"))
        with open(os.path.join(tmp, "b.bin"), "wb") as f:
            f.write(bytes((i * 7 + 26 + (i >> 8)) & 0xFF for i in range(0x20000)))

        def auto_run(extra, tty):
            # Sectors holding other data, so the auto run erases and programs.
            with open(os.path.join(tmp, "flash.bin"), "wb") as f:
                f.write(b"\x00" * 0x40000)
            return run(program, extra + ["-open", "b.bin", "0", "-auto"], tmp, env, tty)

        status_tty, out_tty, err_tty = auto_run([], tty=True)
        status_file, out_file, err_file = auto_run([], tty=False)

        check(status_tty == 0 and status_file == 0, "auto runs succeed (%d, %d)" % (status_tty, status_file))
        check(b"Target erased, programmed and verified successfully." in out_tty, "auto run output")
        check(timeless(out_tty) == timeless(out_file), "standard output is the same with and without a terminal")
        check(err_file == b"", "nothing on standard error without a terminal: %r" % err_file[:200])
        check(b"\n" not in err_tty, "the progress line never ends a line: %r" % err_tty[:200])

        text = err_tty.decode("ascii", "replace")
        for phase in ("Erasing", "Programming"):
            shown = re.findall(r"\r\x1b\[K" + phase + r": [^\r]*", text)
            check(len(shown) >= 2, "%s progress is shown while it runs: %r" % (phase, shown))
            check(any(" 100 %" in s for s in shown), "%s progress reaches 100 %%: %r" % (phase, shown[-1:]))
            # The amount done and its share only grow, through values between 0 and 100 %.
            values = [(float(m.group(1)), int(m.group(2))) for m in
                      (re.search(r": ([\d.]+) of .*?, (\d+) %", s) for s in shown) if m]
            check(len(values) == len(shown) and values == sorted(values), "%s progress only grows: %r" % (phase, shown))
            check(any(0 < p < 100 for _, p in values), "%s progress shows values on the way: %r" % (phase, shown))
            check(any(" left" in s for s in shown), "%s progress tells the time left" % phase)
        check(re.search(r"Erasing: \d+ of 2 sectors", text) is not None, "erase counts the two changed sectors")
        check(re.search(r"Programming: [\d.]+ of 128\.0 KiB", text) is not None, "program counts the bytes")
        check(err_tty.endswith(b"\r\x1b[K"), "the last progress line is taken away: %r" % err_tty[-40:])

        # The same on a terminal at verbosity 0: not a byte.
        status, out, err = auto_run(["-verbose0"], tty=True)
        check(status == 0 and b"Auto programming" not in out, "a quiet run shows no operation log")
        check(err == b"", "no progress at verbosity 0: %r" % err[:200])

    if failures:
        print("%d check(s) failed" % len(failures))
        return 1
    print("progress on a terminal: all checks passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
