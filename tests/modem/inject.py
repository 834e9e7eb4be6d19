#!/usr/bin/env python3
"""inject.py [options] - makes call after call of the C library fail while the bench plays scenarios.

For every kind of call in faults.c and every N that a scenario reaches, the Nth call fails in a run of its
own. Then the same is done with a kind that fails for good from a call on, and with few descriptors and little
memory. Claims, for each run: the daemon neither crashes nor hangs (without a session to wait for its run loop
returns, and it ends with status 0; where memory ran out it may halt, as the framework does that is given
null, and it is started again at once), its log is made of whole lines with rising numbers, none of which a
halt has lost, SysConfig.dat is the old or the new one byte for byte, and after a single failure the daemon
comes to rest again. Nothing is mounted in the end and /Volumes has no folder of a disk: after a failure that
lasts, once the daemon was started again without it. When it rests at the end, with everything unplugged, it
has the descriptors that it began with, and, after a single failure, no child and no more blocks of memory
than without it, place by place in the code (a failure that lasts may keep it from learning that a disk is
gone). A change of SysConfig.dat that failed leaves a stream and a command, as it has to.

  --bench, --daemon, --faults FILE   the programs and the library
  --sample K                         K runs at most, spread evenly over all
  --only KIND                        this kind alone
  --sanitized                        the daemon has AddressSanitizer: its allocations never fail and are
                                     not counted, and its memory is not limited
exit status: 0 all claims held, 1 one did not, 77 the bench cannot play here
"""
import argparse
import collections
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
FOLDER = os.path.join(HERE, "../../modem/scenarios")

# struct Seen of faults.c.
ORIGINS = 1000
DESCRIPTORS = 64
NAME_SIZE = 64
SEEN = struct.Struct(f"{len(KINDS)}I6I{2 * DESCRIPTORS * NAME_SIZE}s{3 * ORIGINS}q")

# What a change of SysConfig.dat that failed leaves behind: the command, the stream and its buffer.
CHANGE_FAILED = re.compile(rb"RunSDProgram --- f(putc|seek) error\.$", re.MULTILINE)
BLOCKS_LEFT = 3
DESCRIPTORS_LEFT = 1

NUMBER = re.compile(rb"line (\d+)===-?\d+-")
PREFIX = re.compile(rb"line (\d+)===-?\d+-\d+-\d+ \d+:\d+:\d+   [A-Za-z]+:[A-Za-z]+ --- ")
# What follows a line feed inside of a message: the banner, and what was read with its line end.
REST = re.compile(rb"|=+Kestrun started=+| is key and pPos=.*|, and ReadKeyValue exit|\].*")


Seen = collections.namedtuple("Seen",
                              "calls failures is_waiting children has_overflowed starts halts first last blocks")


def read_seen(path):
    """What the daemon's calls were and what it held at the end."""
    with open(path, "rb") as file:
        values = SEEN.unpack(file.read())
    numbers, rest = values[:len(KINDS) + 6], values[len(KINDS) + 6:]
    names = [rest[0][i:i + NAME_SIZE].rstrip(b"\0").decode(errors="replace")
             for i in range(0, len(rest[0]), NAME_SIZE)]
    first, last = (collections.Counter(name for name in half if name)
                   for half in (names[:DESCRIPTORS], names[DESCRIPTORS:]))
    blocks = collections.Counter()
    for place, size, held in zip(rest[1::3], rest[2::3], rest[3::3]):
        if held:
            blocks[place >> 48, hex(place & (1 << 48) - 1), size] += held
    return Seen(numbers[:len(KINDS)], *numbers[len(KINDS):], first, last, blocks)


def leak_problem(seen, whole, log, is_lasting, arrivals):
    """What the daemon holds at rest and should not, or None. `whole` is what a run without failures saw;
    `arrivals` is how often the modem came, and so how often SysConfig.dat may have been changed."""
    if seen.has_overflowed:
        return "there was more to see than faults.c has room for"
    if seen.children and not is_lasting:
        return "a child is left"
    descriptors = seen.last - whole.first
    may_leave = CHANGE_FAILED.search(log) is not None
    allowed = DESCRIPTORS_LEFT if may_leave else 0
    # While no line can be written the log does not tell of it: the folder does, to which each stream is diverted.
    if is_lasting and set(descriptors) == {"/"}:
        allowed = DESCRIPTORS_LEFT * arrivals
    if descriptors.total() > allowed:
        return f"descriptors are left: {dict(descriptors)}"
    if is_lasting:
        return None
    blocks = seen.blocks - whole.blocks
    if blocks.total() > (BLOCKS_LEFT if may_leave else 0):
        return f"blocks of memory are left, by module, place and size: {dict(blocks)}"
    return None


def plugged_at_end(lines):
    """What of a scenario stays plugged in."""
    there = []
    for line in lines:
        if match := re.match(r"plug (modem|port (\".*\"))", line):
            there.append("port " + match[2] if match[2] else "modem")
        elif match := re.match(r"plug disk .* as (\S+)", line):
            there.append(match[1])
        elif line.startswith("unplug "):
            there.remove(line[len("unplug "):].strip())
    return there


def statements(name):
    """The scenario's statements; each expectation becomes a wait until the daemon has come to rest, and
    in the end everything is unplugged."""
    lines = []
    with open(os.path.join(FOLDER, name + ".scenario"), encoding="utf-8") as file:
        for line in file.read().splitlines():
            if re.match(r"\s*(expect|golden)\b", line):
                line = "wait until idle"
            if line.startswith("title") or (lines and line == lines[-1] == "wait until idle"):
                continue
            lines.append(line)
    lines += ["unplug " + what for what in plugged_at_end(lines)]
    # What could not be unmounted is tried again at the next change.
    return lines + ["wait until idle", 'plug disk "last" as last', "unplug last", "wait until idle"]


def labels_of(lines):
    """The labels of a scenario's disks."""
    names = re.findall(r'^plug disk [^"]*"([^"]*)"', "\n".join(lines), re.MULTILINE)
    return sorted({"Orvanta", *names})


def emptiness(lines):
    """The statements that expect nothing to be left under /Volumes."""
    folders = [f'expect no folder "/Volumes/{label}{number}"' for label in labels_of(lines) for number in ("", " 1")]
    return ["expect nothing mounted", *folders]


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
        # What a kill cut off in the middle has the next daemon's first line behind it.
        for new in map(int, NUMBER.findall(line) if match else []):
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
        self.rested = 0
        self.whole = {}  # by scenario: what a run without failures saw

    def play(self, name, order, is_lasting):
        """Plays one scenario with one order. Returns the problem or None, and the counts."""
        self.runs += 1
        base = os.path.join(self.folder, f"{self.runs}")
        lines = statements(name)
        text = "\n".join(lines) + "\n"
        if is_lasting:  # the waits of the rules may then last for ever
            text = text.replace("wait until idle", "wait 30 s") + "kill daemon\nstart daemon\nwait until idle\n"
        text += "\n".join(emptiness(lines)) + "\n"
        with open(base + ".scenario", "w", encoding="utf-8") as file:
            file.write(text)
        with open(base + ".counts", "wb") as file:
            file.write(bytes(SEEN.size))
        environment = dict(os.environ, KESTRUN_FAULT=order, KESTRUN_FAULT_COUNTS=base + ".counts",
                           KESTRUN_FAULT_LIBRARY=os.path.abspath(self.arguments.faults),
                           KESTRUN_FAULT_PROGRAM=os.path.abspath(self.arguments.daemon))
        run = subprocess.run([self.arguments.bench, "run", base + ".scenario", "--speed", "500", "--keep",
                              "--daemon", os.path.join(HERE, "faulty_daemon.sh")],
                             env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300)
        if run.returncode == NOT_PLAYABLE:
            print(run.stdout.decode(errors="replace"))
            sys.exit(NOT_PLAYABLE)
        seen = read_seen(base + ".counts")
        os.unlink(base + ".counts")
        kept = re.search(rb"kept in (\S+)", run.stdout)[1].decode()
        problem = None
        if run.returncode != 0:
            problem = next((line.strip() for line in run.stdout.decode(errors="replace").splitlines()
                            if "FALSE" in line), "the bench failed")
        if problem and ENDED in problem:
            self.ended += 1
            problem = None
        whole = self.whole.setdefault(name, seen)
        problem = problem or self.look_at(kept, lines, seen, whole, order, is_lasting)
        self.rested += seen.is_waiting
        shutil.rmtree(kept)
        return problem, seen

    @staticmethod
    def look_at(kept, lines, seen, whole, order, is_lasting):
        def read(name):
            path = os.path.join(kept, name)
            if not os.path.exists(path):
                return b""
            with open(path, "rb") as file:
                return file.read()
        old = old_config(lines)
        if old is not None and read("SysConfig.dat") not in (old, new_config(old)):
            return f"SysConfig.dat is {read('SysConfig.dat')!r}"
        log = read("Kestrun.log")
        if seen.halts and not order.startswith(("allocate", "as")):
            return "the daemon halted though memory did not run out"
        if seen.halts and order.startswith("allocate") and log.count(b"Kestrun started") < 2:
            return "a halt has lost what the log said"
        arrivals = sum(line.startswith("plug modem") for line in lines)
        leak = leak_problem(seen, whole, log, is_lasting, arrivals) if seen.is_waiting else None
        return log_problem(log) or leak


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
            problem, seen = player.play(name, "", False)
            if not problem and not seen.is_waiting:
                problem = "the daemon does not rest"
            if problem:
                print(f"{name} without any fault: {problem}")
                return 1
            for kind, count in zip(KINDS, seen.calls):
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
            for (name, order, _), (problem, seen) in zip(todo, results):
                fired += seen.failures > 0
                if problem:
                    failed += 1
                    print(f"{name} {order}: {problem}", flush=True)
    print(f"{len(todo)} of {reached} runs, in {fired} of them a call failed, {player.ended} times the "
          f"daemon ended for want of anything to wait for; at the end of "
          f"{player.rested - len(SCENARIOS)} it rested, and what it held was looked at; "
          f"{failed} claims did not hold")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
