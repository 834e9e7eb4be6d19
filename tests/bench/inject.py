#!/usr/bin/env python3
"""inject.py [options] - makes call after call of the C library fail while the bench plays scenarios.

For every kind of call in faults.c and every N that a scenario reaches, the Nth call fails in a run of
its own. Then the same is done with a kind that fails for good from a call on, and with few descriptors
and little memory. Claims, for each run: the daemon neither crashes nor hangs (without a
session to wait for its run loop returns, and it ends with status 0), its log is made of whole
lines with rising numbers, SysConfig.dat is the old or the new one byte for byte, and after a single
failure the daemon comes to rest again.

  --bench, --daemon, --faults FILE   the programs and the library
  --sample K                         K runs at most, spread evenly over all
  --only KIND                        this kind alone
  --sanitized                        the daemon has AddressSanitizer: its allocations never fail, and its
                                     memory is not limited
exit status: 0 all claims held, 1 one did not, 77 the bench cannot play here
"""
import argparse
import concurrent.futures
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile

KINDS = ["allocate", "open", "read", "write", "seek", "fork", "opendir", "inotify", "mount", "folder",
         "poll", "clock"]
SCENARIOS = ["setup-once", "present-at-boot", "two-disks-one-label", "changes-in-one-drive"]
NOT_PLAYABLE = 77
ENDED = "the daemon ended with exit status 0;"
LIMITS = [f"nofile:{n}" for n in range(3, 24)] + [f"as:{n}" for n in (1, 4, 8, 16)]

HERE = os.path.dirname(os.path.abspath(__file__))
FOLDER = os.path.join(HERE, "../../bench/scenarios")

PREFIX = re.compile(rb"line (\d+)===-?\d+-\d+-\d+ \d+:\d+:\d+   [A-Za-z]+:[A-Za-z]+ --- ")
# What follows a line feed inside of a message: the banner, and what was read with its line end.
REST = re.compile(rb"|=+Kestrun started=+| is key and pPos=.*|, and ReadKeyValue exit|\].*")


def statements(name):
    """The scenario's statements; each expectation becomes a wait until the daemon has come to rest."""
    lines = []
    with open(os.path.join(FOLDER, name + ".scenario"), encoding="utf-8") as file:
        for line in file.read().splitlines():
            if re.match(r"\s*(expect|golden)\b", line):
                line = "wait until idle"
            if line.startswith("title") or (lines and line == lines[-1] == "wait until idle"):
                continue
            lines.append(line)
    return lines


def old_config(lines):
    """The SysConfig.dat that the scenario makes, or None."""
    if "sysconfig" not in lines:
        return None
    start = lines.index("sysconfig") + 1
    end = start
    while end < len(lines) and lines[end].startswith("  |"):
        end += 1
    return "".join(line[4:] + "\n" for line in lines[start:end]).encode()


def new_config(old):
    return old and old.replace(b"SD_THIRD_SETUP=yes", b"SD_THIRD_SETUP=No\0")


def log_problem(log):
    """What is wrong with a log, or None."""
    number = 0
    # Behind the last line feed stands what a kill cut off.
    for at, line in enumerate(log.split(b"\n")[:-1]):
        match = PREFIX.match(line)
        if match is None and not REST.fullmatch(line):
            return f"line {at + 1} of the log is {line!r}"
        if match:
            new = int(match[1])
            if new <= number and new != 1:
                return f"line {at + 1} of the log has number {new} behind {number}"
            number = new
    return None


class Player:
    def __init__(self, arguments, folder):
        self.arguments = arguments
        self.folder = folder
        self.runs = 0
        self.ended = 0

    def play(self, name, order, is_lasting):
        """Plays one scenario with one order. Returns the problem or None, and the counts."""
        self.runs += 1
        base = os.path.join(self.folder, f"{self.runs}")
        lines = statements(name)
        text = "\n".join(lines) + "\n"
        if is_lasting:  # the waits of the rules may then last for ever
            text = text.replace("wait until idle", "wait 30 s")
        with open(base + ".scenario", "w", encoding="utf-8") as file:
            file.write(text)
        with open(base + ".counts", "wb") as file:
            file.write(bytes(4 * (len(KINDS) + 1)))
        environment = dict(os.environ, KESTRUN_FAULT=order, KESTRUN_FAULT_COUNTS=base + ".counts",
                           KESTRUN_FAULT_LIBRARY=os.path.abspath(self.arguments.faults),
                           KESTRUN_FAULT_PROGRAM=os.path.abspath(self.arguments.daemon))
        run = subprocess.run([self.arguments.bench, "run", base + ".scenario", "--speed", "500", "--keep",
                              "--daemon", os.path.join(HERE, "faulty_daemon.sh")],
                             env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300)
        if run.returncode == NOT_PLAYABLE:
            print(run.stdout.decode(errors="replace"))
            sys.exit(NOT_PLAYABLE)
        with open(base + ".counts", "rb") as file:
            counts = struct.unpack(f"{len(KINDS) + 1}I", file.read())
        kept = re.search(rb"kept in (\S+)", run.stdout)[1].decode()
        problem = None
        if run.returncode != 0:
            problem = next((line.strip() for line in run.stdout.decode(errors="replace").splitlines()
                            if "FALSE" in line), "the bench failed")
        if problem and ENDED in problem:
            self.ended += 1
            problem = None
        problem = problem or self.look_at(kept, lines)
        shutil.rmtree(kept)
        return problem, counts

    @staticmethod
    def look_at(kept, lines):
        def read(name):
            path = os.path.join(kept, name)
            if not os.path.exists(path):
                return b""
            with open(path, "rb") as file:
                return file.read()
        old = old_config(lines)
        if old is not None and read("SysConfig.dat") not in (old, new_config(old)):
            return f"SysConfig.dat is {read('SysConfig.dat')!r}"
        return log_problem(read("Kestrun.log"))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--bench", required=True)
    parser.add_argument("--daemon", required=True)
    parser.add_argument("--faults", required=True)
    parser.add_argument("--sample", type=int, default=0)
    parser.add_argument("--only", default="")
    parser.add_argument("--sanitized", action="store_true")
    arguments = parser.parse_args()
    failed = 0
    fired = 0
    with tempfile.TemporaryDirectory() as folder:
        player = Player(arguments, folder)
        todo = []
        for name in SCENARIOS:
            problem, counts = player.play(name, "", False)
            if problem:
                print(f"{name} without any fault: {problem}")
                return 1
            for kind, count in zip(KINDS, counts):
                if arguments.only in ("", kind):
                    todo += [(name, f"{kind}:{n}", False) for n in range(1, count + 1)]
                    todo += [(name, f"{kind}:{n}+", True) for n in range(1, count + 1, 1 + count // 6)]
            if arguments.only == "":
                todo += [(name, limit, True) for limit in LIMITS
                         if not (arguments.sanitized and limit.startswith("as"))]
        reached = len(todo)
        if 0 < arguments.sample < len(todo):
            todo = [todo[i * len(todo) // arguments.sample] for i in range(arguments.sample)]
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            results = pool.map(lambda run: player.play(*run), todo)
            for (name, order, _), (problem, counts) in zip(todo, results):
                fired += counts[-1] > 0
                if problem:
                    failed += 1
                    print(f"{name} {order}: {problem}", flush=True)
    print(f"{len(todo)} of {reached} runs, in {fired} of them a call failed, {player.ended} times the "
          f"daemon ended for want of anything to wait for; {failed} claims did not hold")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
