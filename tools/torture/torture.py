#!/usr/bin/env python3
"""Runs the program under signals, full disks, failing calls and limits, and judges what it leaves.

    torture.py SOURCE BUILD [--long] [--seed N]

After each run: an earlier output is as it was or the new one is whole, nothing half-written has a
final name, nothing is left that the next run does not clear, the standard error stream has the
program's own words only, the exit status is a documented one, and the same command succeeds once
the cause is gone. The plan is made by the seed; moments of signals depend on the machine besides.
"""

import argparse
import errno
import gzip
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

MB = 1_000_000
EARLIER = b"what an earlier run has written\n"
SIGNALS = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL]
RUN = rb"<dt>run</dt><dd>[^<]*</dd>"
LONGEST = 60  # seconds after which a run counts as hanging


class Job:
    """A command with the files that it writes; "reference" has them as they come undisturbed."""

    def __init__(self, name, arguments, outputs):
        self.name, self.arguments, self.outputs = name, arguments, outputs
        self.reference, self.seconds = {}, 0.0


def jobs(source):
    beam = "--tracks 40 --particle mu --kinetic-energy 0.5 --seed 1"
    fit = "fit hits.csv -d fine.toml --threads 2"
    return [
        Job("fit", f"{fit} -o o.root --csv o.csv --report o.html", ["o.root", "o.csv", "o.html"]),
        Job("fit to a tree", f"{fit} -o o.root --format ttree", ["o.root"]),
        Job("simulate", f"simulate -d fine.toml -o o.csv.gz {beam}", ["o.csv.gz", "o.truth.csv.gz"]),
        Job("simulate a ROOT file", f"simulate -d fine.toml -o o.root {beam}", ["o.root"]),
        Job("report", "report fits.root -o o.html", ["o.html"]),
        Job("display", "display fits.root --track 2 -o o.svg", ["o.svg"]),
        Job("display as PNG", "display fits.root --track 2 -o o.png", ["o.png"]),
        Job("detector", "detector fine.toml -o o.pdf", ["o.pdf"]),
        Job("dedx", "dedx Iron -o o.svg", ["o.svg"]),
    ]


class Torture:
    def __init__(self, source, build, folder, is_long, seed):
        self.kelvo, self.folder, self.is_long = build / "bin/kelvo", folder, is_long
        self.failing = next(build.glob("lib*/libkelvo_failing_calls.so"))
        self.random, self.runs, self.failures = random.Random(seed), 0, []
        data = gzip.open(source / "examples/data/fine_mu_hits_smeared.csv.gz", "rb").read()
        (folder / "hits.csv").write_bytes(data[: data.index(b"\n500,") + 1])
        shutil.copy(source / "detectors/fine.toml", folder)
        self.done(self.start("fit hits.csv -d fine.toml -o fits.root --limit 50"))
        self.kept = {path.name for path in folder.iterdir()}
        self.jobs = jobs(source)
        for job in self.jobs:
            begin = time.monotonic()
            ending = self.done(self.start(job.arguments))
            assert ending == (0, ""), f"{job.name}: {ending}"
            job.seconds = time.monotonic() - begin
            job.reference = {name: (folder / name).read_bytes() for name in job.outputs}
            self.clear()

    # ---- running

    def start(self, arguments, limits=(), env=None, **streams):
        def limit():
            os.setpgid(0, 0)
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            for what, value in limits:
                resource.setrlimit(what, (value, value))

        self.runs += 1
        pipes = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
        return subprocess.Popen(
            [self.kelvo, *arguments.split()], cwd=self.folder, preexec_fn=limit,
            env={**os.environ, **(env or {})}, **{**pipes, **streams})

    def done(self, process):
        """Returns exit status, 128 + N for signal N, and the standard error stream."""
        try:
            _, err = process.communicate(timeout=LONGEST)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            return "no end", ""
        status = process.returncode
        return (128 - status if status < 0 else status), (err or b"").decode(errors="replace")

    def clear(self):
        for path in self.folder.iterdir():
            if path.name not in self.kept:
                shutil.rmtree(path) if path.is_dir() else path.unlink()

    def put_earlier(self, job):
        self.clear()
        for name in job.outputs:
            (self.folder / name).write_bytes(EARLIER)

    # ---- judging

    def is_whole(self, job, name):
        """Files of ROOT and PDF hold the time, so that only their readers can tell."""
        found, expected = (self.folder / name).read_bytes(), job.reference[name]
        if name.endswith(".pdf"):
            return found.rstrip().endswith(b"%%EOF") and len(found) == len(expected)
        if name.endswith(".html"):  # tells when and where the fit ran
            return re.sub(RUN, b"", found) == re.sub(RUN, b"", expected)
        if not name.endswith(".root"):
            return found == expected
        if abs(len(found) - len(expected)) > 0.01 * len(expected):
            return False
        read = "fit o.root -d fine.toml -o .read.root" if "simulate" in job.arguments else "report o.root -o .read.html"
        status, _ = self.done(self.start(read))
        for left in self.folder.glob(".read.*"):
            left.unlink()
        return status == 0

    def judge(self, job, cause, process, statuses, may_leave=False):
        """Says what is wrong with a run that was disturbed, and with the next one, which is not."""
        status, err = self.done(process)
        wrong = []
        if status not in statuses:
            wrong.append(f"exit status {status}")
        own = all(line.startswith(("kelvo:", "  ", "'kelvo")) for line in err.splitlines())
        if not own or err.count("\n") > 3:
            wrong.append("more than the program's own words")
        if "fault" in err:
            wrong.append("a fault")
        if status == 2 and not err:
            wrong.append("no message")
        left = {path.name for path in self.folder.iterdir()} - self.kept - set(job.outputs)
        if left and not (may_leave and all(name.endswith(".partial") for name in left)):
            wrong.append("left: " + " ".join(left))
        for name in job.outputs:
            path = self.folder / name
            is_earlier = path.exists() and path.read_bytes() == EARLIER
            if not (is_earlier or (path.exists() and self.is_whole(job, name))):
                wrong.append(f"{name} is neither the earlier nor the new one")
            if status == 0 and is_earlier:
                wrong.append(f"{name} is not written")
        again, words = self.done(self.start(job.arguments))
        if again != 0 or words:
            wrong.append(f"the next run ends with {again}: {words}")
        for name in job.outputs:
            if not self.is_whole(job, name):
                wrong.append(f"the next run's {name} is not whole")
        left = {path.name for path in self.folder.iterdir()} - self.kept - set(job.outputs)
        if left:
            wrong.append("not cleared by the next run: " + " ".join(left))
        if wrong:
            self.failures.append(f"{job.name}, {cause}: {'; '.join(wrong)}\n{err}")

    # ---- causes

    def signals(self):
        times = 60 if self.is_long else 2
        for job in self.jobs if self.is_long else self.jobs[:1] + self.jobs[3:4]:
            for number in SIGNALS:
                for _ in range(times):
                    self.put_earlier(job)
                    moment = self.random.uniform(0, 1.1 * job.seconds)
                    process = self.start(job.arguments)
                    time.sleep(moment)
                    process.send_signal(number)
                    is_killed = number == signal.SIGKILL
                    self.judge(job, f"{number.name} after {moment:.3f} s", process,
                               {0, 128 + number}, may_leave=is_killed)

    def failing_calls(self):
        for job in self.jobs:
            plans = [("fsync", 0, errno.EIO), ("rename", 0, errno.EACCES), ("open", 0, errno.EROFS)]
            plans += [("write", n, errno.ENOSPC) for n in ([0, 1, 2, 5, 20] if self.is_long else [0])]
            if len(job.outputs) > 1:
                plans += [("rename", 1, errno.EACCES), ("fsync", 1, errno.EDQUOT)]
            for call, n, error in plans if self.is_long else plans[:1] + plans[3:]:
                self.put_earlier(job)
                env = {"LD_PRELOAD": str(self.failing), "KELVO_FAIL": f"{call} {n} {error}"}
                process = self.start(job.arguments, env=env)
                self.judge(job, f"{call} {n} fails: {os.strerror(error)}", process, {0, 2})

    def file_sizes(self):
        for job in self.jobs:
            largest = max(len(content) for content in job.reference.values())
            for size in [0, 100, largest // 2, largest - 1] if self.is_long else [largest // 2]:
                self.put_earlier(job)
                process = self.start(job.arguments, [(resource.RLIMIT_FSIZE, size)])
                self.judge(job, f"files of at most {size} bytes", process, {0, 2})

    def address_space(self):
        sizes = range(300, 1600, 50) if self.is_long else [300, 600, 750]
        for job in self.jobs if self.is_long else self.jobs[:1] + self.jobs[3:5]:
            for size in sizes:
                self.put_earlier(job)
                process = self.start(job.arguments, [(resource.RLIMIT_AS, size * MB)])
                self.judge(job, f"{size} MB of address space", process, {0, 2})

    def two_at_once(self):
        for job in self.jobs if self.is_long else self.jobs[:1]:
            self.put_earlier(job)
            other = self.start(job.arguments)
            process = self.start(job.arguments)
            status, err = self.done(other)
            if status != 0 or err:
                self.failures.append(f"{job.name}, beside another: exit status {status}\n{err}")
            self.judge(job, "two at once", process, {0})

    def changing_input(self):
        job, hits = self.jobs[0], self.folder / "hits.csv"
        content = hits.read_bytes()
        for change in ("shrinks", "grows") * (20 if self.is_long else 1):
            self.clear()
            process = self.start(job.arguments)
            time.sleep(self.random.uniform(0, job.seconds))
            with open(hits, "r+b") as file:
                if change == "shrinks":
                    file.truncate(self.random.randrange(len(content)))
                else:
                    file.seek(0, os.SEEK_END)
                    file.write(content.replace(b"\n", b"\n10")[-5000:])
            status, err = self.done(process)
            hits.write_bytes(content)
            # What was read cannot be known, so only the end of the run is judged.
            if status not in (0, 1, 2) or "fault" in err:
                self.failures.append(f"{job.name}, the input {change}: exit status {status}\n{err}")

    def streams(self):
        job = self.jobs[0]
        for closed in ("stdin", "stdout", "stderr"):
            self.put_earlier(job)
            shell = {"stdin": "<&-", "stdout": ">&-", "stderr": "2>&-"}[closed]
            self.runs += 1
            process = subprocess.Popen(
                ["sh", "-c", f"exec {self.kelvo} {job.arguments} {shell}"], cwd=self.folder,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            self.judge(job, f"{closed} closed", process, {2} if closed == "stdout" else {0})
        self.put_earlier(job)
        read, write = os.pipe()
        os.close(read)
        process = self.start(job.arguments, stdout=write)
        os.close(write)
        self.judge(job, "a broken pipe", process, {128 + signal.SIGPIPE})

    def folders(self):
        for job in self.jobs:
            missing = job.arguments.replace("-o o.", "-o none/o.")
            self.clear()
            status, err = self.done(self.start(missing))
            if status != 2 or err.count("\n") != 1 or (self.folder / "none").exists():
                self.failures.append(f"{job.name}, a missing folder: exit status {status}\n{err}")
        self.in_a_file_system("ro", "a read-only folder")
        self.in_a_file_system("size=40k", "a full disk")

    def in_a_file_system(self, options, cause):
        """Writes to a file system of its own, where the system lets users have one."""
        there = self.folder / "disk"
        mount = f"mount -t tmpfs -o {options} none disk && "
        may = subprocess.run(["unshare", "-rm", "sh", "-c", "mount -t tmpfs none /mnt"], capture_output=True)
        if may.returncode != 0:
            return print(f"left out, as nothing may be mounted here: {cause}")
        for job in self.jobs:
            self.clear()
            there.mkdir()
            command = job.arguments.replace("-o o.", "-o disk/o.").replace("--csv o.", "--csv disk/o.")
            command = command.replace("--report o.", "--report disk/o.")
            self.runs += 1
            result = subprocess.run(
                ["unshare", "-rm", "sh", "-c", f"{mount} {self.kelvo} {command}; echo $? >&2; ls disk >&2"],
                cwd=self.folder, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            words = result.stderr.splitlines()
            at = next((i for i, line in enumerate(words) if line.isdigit()), len(words))
            status, left = words[at : at + 1], words[at + 1 :]
            fits = status == ["0"] and len(left) == len(job.outputs)  # small enough for that disk
            is_told = status == ["2"] and 1 <= at <= 2 and all(w.startswith("kelvo:") for w in words[:at])
            complete = [name for name in left if "partial" not in name]
            # The fits are complete where only the page did not fit any more.
            if not fits and not (is_told and len(complete) == len(left) < len(job.outputs)):
                self.failures.append(f"{job.name}, {cause}:\n{result.stderr}")

    def run(self):
        for cause in (self.signals, self.failing_calls, self.file_sizes, self.address_space,
                      self.two_at_once, self.changing_input, self.streams, self.folders):
            begin, runs, failures = time.monotonic(), self.runs, len(self.failures)
            cause()
            name = cause.__name__.replace("_", " ")
            print(f"{name}: {self.runs - runs} runs in {time.monotonic() - begin:.0f} s, "
                  f"{len(self.failures) - failures} wrong", flush=True)
        for failure in self.failures:
            print(failure)
        return 1 if self.failures else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("source", type=pathlib.Path)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--long", action="store_true", help="60 moments a signal, every command")
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        torture = Torture(arguments.source.resolve(), arguments.build.resolve(), pathlib.Path(folder),
                          arguments.long, arguments.seed)
        return torture.run()


if __name__ == "__main__":
    sys.exit(main())
