#!/usr/bin/env python3
"""-auto of a 16 MiB image onto a simulated 16 MiB chip, three ways:
erased chip, the same image again (nothing to do), one changed 4 KiB block.

For each case: host wall time and peak memory of the program, and the time
the simulator models for a real probe (TARLOSIM_TIMING=model) next to the
bus-and-chip limit of the same work: the chip's erase and page-program times
for what must change, plus the wire time at the set speed of the bytes the
flow must move (one read-back of the affected sectors, the programmed pages,
one verify read). The figures are printed and written to a file; nothing is
asserted.
"""
import argparse
import json
import os
import random
import subprocess
import sys
import tempfile
import time

IMAGE_SIZE = 16 << 20
PAGE = 256
SPEED_KHZ = 12000
CHANGED_AT = 0x7A3000      # the 4 KiB block changed in the third case

PROJECT = ("[JTAG]\r\n  Speed0 = %d\r\n"
           "[FLASH]\r\n  AutoDetect = 0x00000001\r\n" % SPEED_KHZ)


def make_image(seed):
    rnd = random.Random(seed)
    data = bytearray(rnd.randbytes(IMAGE_SIZE))
    # A realistic image has holes: leave every 16th 64 KiB sector blank, so
    # blank pages and blank sectors are part of the work.
    for s in range(0, IMAGE_SIZE, 16 * 0x10000):
        data[s:s + 0x10000] = b"\xff" * 0x10000
    return data


def run(bin_path, work, args, env_extra):
    env = dict(os.environ)
    for k in ("TARLOSIM_FAULT", "TARLOSIM_SIZE", "TARLOSIM_SN", "TARLOSIM_TRACE"):
        env.pop(k, None)
    env.update(env_extra)
    env["HOME"] = work
    start = time.monotonic()
    proc = subprocess.Popen([bin_path] + args, cwd=work, env=env,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    out = proc.stdout.read()
    _, status, usage = os.wait4(proc.pid, 0)
    proc.returncode = os.waitstatus_to_exitcode(status)
    wall = time.monotonic() - start
    return proc.returncode, out.decode(errors="replace"), wall, usage.ru_maxrss * 1024


def page_count(data, start, end):
    return sum(1 for a in range(start, end, PAGE) if data[a:a + PAGE] != b"\xff" * PAGE)


def limit_ns(erases, pages, readback_bytes, verify_bytes, sector_busy_ns, page_busy_ns):
    # Wire: the read-back, the programmed pages with their 4-byte headers, the verify read.
    wire_bytes = readback_bytes + pages * (PAGE + 4) + verify_bytes
    wire_ns = wire_bytes * 8 * 1e6 / SPEED_KHZ
    return erases * sector_busy_ns + pages * page_busy_ns + wire_ns


def opcodes_in_trace(path, opcodes):
    found = {}
    with open(path, "rb") as f:
        for line in f:
            if line.startswith(b"#") or len(line) < 2:
                continue
            op = line[:2].decode()
            if op in opcodes:
                found[op] = found.get(op, 0) + 1
    return found


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--bin", required=True)
    ap.add_argument("--out", required=True)
    a = ap.parse_args()

    rows = []
    with tempfile.TemporaryDirectory(prefix="pellam-bench-") as work:
        prj = os.path.join(work, "bench.pellam")
        with open(prj, "w", newline="") as f:
            f.write(PROJECT)
        image = make_image(1)
        img_path = os.path.join(work, "image.bin")
        with open(img_path, "wb") as f:
            f.write(image)
        flash = os.path.join(work, "flash.bin")
        stats_path = os.path.join(work, "stats.json")
        trace = os.path.join(work, "trace.txt")
        base_env = {"TARLOSIM_CHIP": "C22018", "TARLOSIM_FLASH": flash,
                    "TARLOSIM_TIMING": "model", "TARLOSIM_STATS": stats_path}
        args = ["-openprj", prj, "-open", img_path, "0x0", "-auto"]

        changed = bytearray(image)
        for i in range(CHANGED_AT, CHANGED_AT + 0x1000):
            changed[i] ^= 0xA5
        changed_path = os.path.join(work, "changed.bin")
        with open(changed_path, "wb") as f:
            f.write(changed)

        sector = 0x10000
        page_busy = sector_busy = None

        cases = [
            ("erased chip", args, {}),
            ("same image again", args, {"TARLOSIM_TRACE": trace}),
            ("one 4 KiB block changed", ["-openprj", prj, "-open", changed_path, "0x0", "-auto"], {}),
        ]
        for name, cargs, extra in cases:
            if os.path.exists(trace):
                os.remove(trace)
            env = dict(base_env)
            env.update(extra)
            rc, out, wall, peak = run(a.bin, work, cargs, env)
            with open(stats_path) as f:
                stats = json.load(f)
            note = ""
            if name == "erased chip":
                pages = page_count(image, 0, IMAGE_SIZE)
                erases = 0
                verify = pages * PAGE
                # The chip's typical page-program time, from the simulator's own model.
                page_busy = stats["busy_ns"] / max(1, stats["page_programs"])
            elif name == "same image again":
                pages = erases = verify = 0
                found = opcodes_in_trace(trace, {"02", "12", "D8", "DC", "20", "21", "C7", "60"})
                note = "erase/program frames in trace: %s" % (found or "none")
            else:
                s0 = CHANGED_AT & ~(sector - 1)
                pages = page_count(changed, s0, s0 + sector)
                erases = 1
                verify = pages * PAGE
                if stats["sector_erases"]:
                    sector_busy = (stats["busy_ns"] - stats["page_programs"] * page_busy) / stats["sector_erases"]
            # The image touches every sector, so the read-back covers the whole chip.
            lim = limit_ns(erases, pages, IMAGE_SIZE, verify,
                           sector_busy or 0, page_busy or 0)
            rows.append({
                "case": name, "exit": rc, "wall_s": wall, "peak_mib": peak / 2**20,
                "model_s": stats["model_ns"] / 1e9, "limit_s": lim / 1e9,
                "ratio": stats["model_ns"] / lim if lim else float("nan"),
                "erases": stats["sector_erases"] + stats["chip_erases"],
                "programs": stats["page_programs"], "note": note,
            })
            if rc != 0:
                sys.stdout.write(out[-4000:])

    budget = (4 * IMAGE_SIZE + (16 << 20)) / 2**20
    lines = ["-auto, 16 MiB image, simulated C22018 at %d kHz (TARLOSIM_TIMING=model)" % SPEED_KHZ,
             "%-26s %4s %9s %9s %11s %11s %7s %7s %9s  %s" % (
                 "case", "exit", "wall [s]", "peak MiB", "model [s]", "limit [s]", "ratio",
                 "erases", "programs", "notes")]
    for r in rows:
        lines.append("%-26s %4d %9.2f %9.1f %11.3f %11.3f %7.3f %7d %9d  %s" % (
            r["case"], r["exit"], r["wall_s"], r["peak_mib"], r["model_s"], r["limit_s"], r["ratio"],
            r["erases"], r["programs"], r["note"]))
    lines.append("peak memory budget: %.0f MiB (4 x image + 16 MiB); target ratio <= 1.10" % budget)
    text = "\n".join(lines) + "\n"
    sys.stdout.write(text)
    os.makedirs(os.path.dirname(a.out), exist_ok=True)
    with open(a.out, "w") as f:
        f.write(text)


if __name__ == "__main__":
    main()
