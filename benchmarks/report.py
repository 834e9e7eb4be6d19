#!/usr/bin/env python3
"""Makes ratios, the table of goals, a page and a picture of what the benchmarks measured.

    report.py RESULTS COUNTS DAEMON MARKDOWN SVG

RESULTS is what kestrun-benchmarks wrote; COUNTS the folder with callgrind's dumps, DAEMON what was
measured of the daemon as JSON, each of them "-" when there is none. A ratio of times is the median of
the ratios within each round. The exit status is 0 whether the goals are reached or not.
"""
import glob
import json
import math
import os
import re
import statistics
import sys

FORMATS = ["log line", "redirection", "owner command", "section", "number", "setup command",
           "plain message"]
PRINTERS = ["libsafec", "stb_sprintf", "fmt", "fmt printf"]
SMALL_FILLS = [1, 2, 4, 8, 12, 16, 24, 32]
SMALL_COPIES = SMALL_FILLS + [48, 64]
MIDDLE = [8, 12, 16, 24, 32, 48, 64]
LENGTHS = [1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024]


def sized(work, sizes):
    return [f"{work}/{size} {place}" for size in sizes for place in ("aligned", "unaligned")]


# The goals, and nowhere else: the work, what it is measured against, the ratio to stay under, the
# cases (several make a geometric mean), our candidate, and the rivals, of which the best counts.
GOALS = [
    ("log line through snprintf_s", "the platform's snprintf", 0.33,
     ["format/log line"], "snprintf_s", ["snprintf"]),
    ("log line through snprintf_s", "best peer", 0.36,
     ["format/log line"], "snprintf_s", PRINTERS),
    ("the seven daemon formats", "best run-time peer", 0.55,
     [f"format/{name}" for name in FORMATS], "snprintf_s", ["snprintf"] + PRINTERS),
    ("text without conversions", "best run-time peer", 0.8,
     ["format/literal text"], "snprintf_s", ["snprintf"] + PRINTERS),
    ('"%x"', "best run-time peer", 1.4,
     ["format/hexadecimal"], "snprintf_s", ["snprintf"] + PRINTERS),
    ('"%lld"', "best run-time peer", 1.4,
     ["format/long number"], "snprintf_s", ["snprintf"] + PRINTERS),
    ('"%-20s|%10d"', "best run-time peer", 0.6,
     ["format/fields"], "snprintf_s", ["snprintf"] + PRINTERS),
    ('"%f"', "the platform's snprintf", 1.05,
     ["format/float"], "snprintf_s", ["snprintf"]),
    ("memset_sOptAsm, 1 to 32 bytes", "the bare libc call", 0.80,
     sized("memset", SMALL_FILLS), "memset_sOptAsm", ["libc"]),
    ("memset_sOptTc, 1 to 32 bytes", "the bare libc call", 0.80,
     sized("memset", SMALL_FILLS), "memset_sOptTc", ["libc"]),
    ("memcpy_sOptAsm, 1 to 64 bytes", "the bare libc call", 1.0,
     sized("memcpy", SMALL_COPIES), "memcpy_sOptAsm", ["libc"]),
    ("memcpy_sOptTc, 1 to 64 bytes", "the bare libc call", 1.0,
     sized("memcpy", SMALL_COPIES), "memcpy_sOptTc", ["libc"]),
    ("memset_s, 8 to 64 bytes", "the bare libc call", 1.4,
     sized("memset", MIDDLE), "memset_s", ["libc"]),
    ("memset_s, 1 KiB", "the bare libc call", 1.05,
     sized("memset", [1024]), "memset_s", ["libc"]),
    ("memcpy_s, 8 to 64 bytes", "the bare libc call", 1.4,
     sized("memcpy", MIDDLE), "memcpy_s", ["libc"]),
    ("memcpy_s, 1 KiB", "the bare libc call", 1.05,
     sized("memcpy", [1024]), "memcpy_s", ["libc"]),
    ("strcpy_s, 1 to 1024 bytes", "best checked peer", 0.40,
     sized("strcpy", LENGTHS), "strcpy_s", ["libsafec", "libbsd strlcpy"]),
    ("strncpy_s, 1 to 1024 bytes", "best checked peer", 0.85,
     sized("strncpy", LENGTHS), "strncpy_s", ["libsafec", "libbsd strlcpy"]),
    ("strncat_s, 1 to 1024 bytes", "best checked peer", 1.05,
     sized("strncat", LENGTHS), "strncat_s", ["libsafec", "libbsd strlcat"]),
    ("one log line", "the bare fseek, ftell and fprintf", 1.10,
     ["log/line"], "Log", ["bare fseek, ftell, fprintf"]),
    ("lookup in 3 keys", "inih", 0.7, ["ini/3 keys"], "ReadString", ["inih"]),
    ("lookup in 30 keys", "inih", 0.5, ["ini/30 keys"], "ReadString", ["inih"]),
    ("lookup in 300 keys", "inih", 0.4, ["ini/300 keys"], "ReadString", ["inih"]),
    ("lookup in 3000 keys", "inih", 0.4, ["ini/3000 keys"], "ReadString", ["inih"]),
    ("lookup among 30 keys that begin alike", "inih", 0.5, ["ini/30 keys alike"], "ReadString", ["inih"]),
    ("lookup among 300 keys that begin alike", "inih", 0.5, ["ini/300 keys alike"], "ReadString", ["inih"]),
    ("lookup among 3000 keys that begin alike", "inih", 0.5, ["ini/3000 keys alike"], "ReadString", ["inih"]),
    ("scans", "the platform's sscanf", 0.45,
     [f"scan/{name}" for name in ("number", "three numbers", "time stamp", "hexadecimal",
                                  "long number", "word", "two words", "key and value", "float")],
     "tamrik_input_s", ["sscanf"]),
]

# Hand-written lower bounds: the candidate that does the least that ours can do, in the same cases.
BOUNDS = {"memset_s": "a call without checks", "memcpy_s": "a call without checks",
          "snprintf_s": "checks, vsprintf, copy", "tamrik_input_s": "a scan by hand"}

# What is measured of the daemon: the key in DAEMON, the work, the unit, the value to stay under.
DAEMON_GOALS = [
    ("arrival_to_mount_request_ms", "arrival to mount request", "ms", 5),
    ("resident_kib", "resident memory", "KiB", 4096),
    ("wakeups_60s", "wake-ups in 60 s idle", "", 0),
]
# Measured and shown, without a goal.
DAEMON_SHOWN = [("start_to_watching_ms", "start to watching", "ms")]


def geometric_mean(values):
    return math.exp(sum(math.log(value) for value in values) / len(values))


def read_counts(folder):
    """Instructions per candidate, {"case/candidate": number}, of callgrind's dumps."""
    counts = {}
    for path in glob.glob(os.path.join(folder, "callgrind.out.*")):
        with open(path, encoding="utf-8", errors="replace") as dump:
            text = dump.read()
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
        total = re.search(r"^(?:summary|totals): (\d+)", text, re.M)
        if name and total:
            counts[name.group(1)] = int(total.group(1))
    return counts


def best_rival(medians, rivals):
    """The rival with the smallest figure, or None when none of them was measured."""
    there = [rival for rival in rivals if rival in medians]
    return min(there, key=lambda rival: medians[rival]) if there else None


def time_ratio(case, ours, rivals):
    """(ratio, rival) of one case, or None."""
    times = case["times"]
    rival = best_rival({name: statistics.median(rounds) for name, rounds in times.items()}, rivals)
    if ours not in times or rival is None:
        return None
    return statistics.median(a / b for a, b in zip(times[ours], times[rival])), rival


def count_ratio(name, counts, ours, rivals):
    figures = {rival: counts[f"{name}/{rival}"] for rival in rivals if f"{name}/{rival}" in counts}
    rival = best_rival(figures, rivals)
    if f"{name}/{ours}" not in counts or rival is None:
        return None
    return counts[f"{name}/{ours}"] / figures[rival]


def judge(goals, cases, counts):
    """A row a goal: work, against, limit, the ratios of times, instructions and the lower bound."""
    rows = []
    for work, against, limit, names, ours, rivals in goals:
        ratios, instructions, bounds, worst, met = [], [], [], (0, ""), set()
        for name in names:
            found = time_ratio(cases[name], ours, rivals) if name in cases else None
            if found is None:
                continue
            ratios.append(found[0])
            met.add(found[1])
            worst = max(worst, (found[0], name.split("/", 1)[1]))
            bound = time_ratio(cases[name], BOUNDS.get(ours), rivals)
            if bound is not None:
                bounds.append(bound[0])
            counted = count_ratio(name, counts, ours, rivals)
            if counted is not None:
                instructions.append(counted)
        if len(rivals) > 1 and met:
            against = f"{against} ({', '.join(sorted(met))})"
        rows.append({
            "work": work, "against": against, "limit": limit,
            "ratio": geometric_mean(ratios) if len(ratios) == len(names) else None,
            "worst": worst if len(names) > 1 else None,
            "bound": geometric_mean(bounds) if len(bounds) == len(names) else None,
            "instructions": geometric_mean(instructions) if len(instructions) == len(names) else None,
        })
    return rows


def verdict(row):
    if row["ratio"] is None:
        return "not measured"
    if row["ratio"] <= row["limit"]:
        return "reached"
    if row["instructions"] is not None and row["instructions"] <= row["limit"]:
        return "reached by instructions"
    beyond = row["bound"] is not None and row["bound"] > row["limit"]
    return "missed, by the lower bound too" if beyond else "missed"


def number(value, form="{:.2f}"):
    return "" if value is None else form.format(value)


def goal_lines(rows):
    yield ["work", "against", "at most", "measured", "lower bound", "instructions", "worst of them", ""]
    for row in rows:
        worst = row["worst"]
        yield [row["work"], row["against"], number(row["limit"]), number(row["ratio"]),
               number(row["bound"]), number(row["instructions"]),
               f"{worst[0]:.2f} ({worst[1]})" if worst and worst[1] else "", verdict(row)]


def daemon_lines(daemon):
    yield ["the daemon", "at most", "measured", ""]
    for key, work, unit, limit in DAEMON_GOALS:
        value = daemon.get(key)
        state = "not measured" if value is None else "reached" if value <= limit else "missed"
        yield [work, f"{limit} {unit}".strip(), "" if value is None else f"{value:.4g} {unit}".strip(),
               state]
    for key, work, unit in DAEMON_SHOWN:
        value = daemon.get(key)
        yield [work, "", "" if value is None else f"{value:.4g} {unit}", ""]


def as_text(lines):
    lines = list(lines)
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in lines)


def as_markdown(lines):
    lines = [[cell.replace("|", "\\|") for cell in line] for line in lines]
    lines.insert(1, ["---"] * len(lines[0]))
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def case_lines(cases, group):
    """All candidates of a group of cases: the median time in nanoseconds of each."""
    members = [(name, case) for name, case in cases.items() if name.startswith(group + "/")]
    candidates = []
    for _, case in members:
        candidates += [name for name in case["times"] if name not in candidates]
    yield ["ns"] + candidates
    for name, case in members:
        times = case["times"]
        yield [name.split("/", 1)[1]] + [
            f"{statistics.median(times[candidate]):.3g}" if candidate in times else ""
            for candidate in candidates]


def draw(rows):
    """A bar a goal: the ratio measured, with a mark where the goal stands. Shorter is faster."""
    rows = [row for row in rows if row["ratio"] is not None]
    left, scale, high = 470, 300, 22
    width, height = left + int(scale * 1.6) + 60, 70 + high * len(rows)

    def text(x, y, content, anchor="start", weight="normal"):
        content = content.replace("&", "&amp;").replace("<", "&lt;")
        return (f'<text x="{x}" y="{y}" text-anchor="{anchor}" font-weight="{weight}">'
                f"{content}</text>")

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
           'font-family="sans-serif" font-size="12">',
           f'<rect width="{width}" height="{height}" fill="white"/>',
           text(10, 20, "Time taken, as a part of what the rival takes (shorter is faster)",
                weight="bold"),
           text(10, 37, "bar: measured; red mark: the goal; line at 1: as fast as the rival")]
    for i, row in enumerate(rows):
        y = 50 + i * high
        bar = min(row["ratio"], 1.6) * scale
        colour = "#c0504d" if verdict(row).startswith("missed") else "#4f81bd"
        mark = left + row["limit"] * scale
        against = row["against"].split(" (")[0]
        out += [text(left - 8, y + 13, f'{row["work"]} / {against}', "end"),
                f'<rect x="{left}" y="{y + 2}" width="{bar:.1f}" height="14" fill="{colour}"/>',
                f'<rect x="{mark:.1f}" y="{y}" width="2" height="18" fill="#d00000"/>',
                text(left + max(bar, row["limit"] * scale) + 6, y + 13, number(row["ratio"]))]
    out += [f'<line x1="{left + scale}" y1="45" x2="{left + scale}" y2="{height - 15}" '
            'stroke="black" stroke-dasharray="2 3"/>', "</svg>"]
    return "\n".join(out) + "\n"


def page(results, rows, daemon, cases, svg_name):
    groups = [("memset", "Fills"), ("memcpy", "Copies"), ("strcpy", "strcpy_s"),
              ("strncpy", "strncpy_s"), ("strncat", "strncat_s"), ("format", "Formatted output"),
              ("scan", "Formatted input"), ("log", "A log line"), ("ini", "Looking up a value")]
    parts = ["# Performance", "",
             "Written by `script/benchmarks`; the figures are those of the machine that it ran on.", "",
             f"Rivals of one case ran in turn, in {results['rounds']} rounds; a ratio is the median "
             "of the ratios within the rounds, on CPU time, of several cases the geometric mean. "
             "Instructions are counted by callgrind, whose figures repeat. Where a rival is the best "
             "of several, it is named. A lower bound is the least that such a function can do, written by "
             "hand and measured in the same rounds: for fills and copies the call of the C library and a "
             "result, without any check; for \"%f\" the checks of the arguments, the platform's vsprintf "
             "into a buffer of its own, and the copy; for a scan what any engine has to do for its format, "
             "which is not read.", "", f"![the goals]({svg_name})", "", "## Goals", "",
             as_markdown(goal_lines(rows)), "", as_markdown(daemon_lines(daemon)), ""]
    for peer, why in results["left_out"].items():
        parts.append(f"Left out: {peer}, {why}.")
    for name, gave in results["wrong"].items():
        parts.append(f"No ratio for {name}: it gave `{gave!r}`.")
    for group, title in groups:
        if any(name.startswith(group + "/") for name in cases):
            parts += ["", f"## {title}", "", as_markdown(case_lines(cases, group))]
    return "\n".join(parts) + "\n"


def main():
    results_path, counts_path, daemon_path, markdown_path, svg_path = sys.argv[1:]
    with open(results_path, encoding="utf-8") as file:
        results = json.load(file)
    daemon = {}
    if daemon_path != "-":
        with open(daemon_path, encoding="utf-8") as file:
            daemon = json.load(file)
    counts = {} if counts_path == "-" else read_counts(counts_path)
    cases = {case["case"]: case for case in results["cases"]}
    rows = judge(GOALS, cases, counts)

    print(as_text(goal_lines(rows)))
    print()
    print(as_text(daemon_lines(daemon)))
    for name, gave in results["wrong"].items():
        print(f"no ratio for {name}: wrong output {gave!r}")
    for peer, why in results["left_out"].items():
        print(f"left out: {peer}, {why}")
    with open(svg_path, "w", encoding="utf-8") as file:
        file.write(draw(rows))
    with open(markdown_path, "w", encoding="utf-8") as file:
        file.write(page(results, rows, daemon, cases, os.path.basename(svg_path)))


main()
