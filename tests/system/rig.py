"""A whole recorder for system tests: real processes, a real medium, an independent look at the output.

Needs root (mounts) and runs best under scripts/isolated.sh, where names and ports meet nobody else's.
"""

import json
import os
import pty
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

SKIP = 77
TICKS = os.sysconf("SC_CLK_TCK")
LINES_OF_FAILURE = 80


class Failed(Exception):
    """A step of a test did not come out as it should."""


def check(condition, text):
    if not condition:
        raise Failed(text)


def wait_until(what, condition, seconds=10.0, step=0.02):
    """Polls a condition of another process; raises Failed when it does not come true in time."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise Failed(f"not in {seconds} s: {what}")
        time.sleep(step)


class Recorder:
    """rvstore, rvmedia and rvd on a medium of their own; everything is stopped and removed at the end."""

    def __init__(self, bin_dir, source="pattern", source_format="1920x1080p25", medium="tmpfs",
                 size="4g", environment=None, console=False):
        self.bin = os.path.abspath(bin_dir)
        self.dir = tempfile.mkdtemp(prefix="rvtest-")
        self.medium = os.path.join(self.dir, "medium")
        self.db = os.path.join(self.dir, "store.db")
        self.log = os.path.join(self.dir, "rvd.log")
        self.console = console
        self.environment = dict(os.environ, RVD_INPUT=source, RVD_INPUT_FORMAT=source_format,
                                ORB_LOG=self.log, STATE_DIRECTORY=self.dir, **(environment or {}))
        self.processes = {}
        self.console_fd = None
        os.mkdir(self.medium)
        if medium == "tmpfs":
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", self.medium],
                           check=True)
        elif medium == "loop":
            image = os.path.join(self.dir, "medium.img")
            subprocess.run(["truncate", "-s", size, image], check=True)
            subprocess.run(["mkfs.ext4", "-q", "-m", "0", image], check=True)
            subprocess.run(["mount", "-o", "loop", image, self.medium], check=True)

    def __enter__(self):
        return self

    def __exit__(self, kind=None, *unused):
        if kind:
            self.print_end_of_log()
        self.stop()
        return False

    # Processes

    def spawn(self, name, *arguments, **options):
        out = open(os.path.join(self.dir, name + ".out"), "ab")
        process = subprocess.Popen([os.path.join(self.bin, name), *arguments], env=self.environment,
                                   stdin=subprocess.DEVNULL, stdout=out, stderr=out, **options)
        self.processes[name] = process
        return process

    def start(self):
        self.start_store()
        self.start_media()
        self.start_daemon()
        wait_until("the recorder answers", lambda: self.ctl("status").returncode == 0)
        return self

    def start_store(self):
        self.spawn("rvstore", "--db", self.db)

    def start_media(self):
        self.spawn("rvmedia", "--active", self.medium)

    def start_daemon(self, *arguments):
        if not self.console:
            return self.spawn("rvd", "-d", *arguments)
        self.console_fd, terminal = pty.openpty()
        process = subprocess.Popen([os.path.join(self.bin, "rvd"), "-D", *arguments],
                                   env=self.environment, stdin=terminal, stdout=terminal,
                                   stderr=terminal)
        os.close(terminal)
        self.processes["rvd"] = process
        threading.Thread(target=self._drain_console, daemon=True).start()
        return process

    def _drain_console(self):
        with open(os.path.join(self.dir, "rvd.out"), "ab") as out:
            while True:
                try:
                    data = os.read(self.console_fd, 65536)
                except OSError:
                    return
                if not data:
                    return
                out.write(data)
                out.flush()

    def key(self, keys):
        """Presses keys of the console, one after each refresh of its state."""
        for key in keys:
            os.write(self.console_fd, key.encode())
            time.sleep(0.25)

    def stop(self):
        daemon = self.processes.get("rvd")
        if daemon and daemon.poll() is None and "rvstore" in self.processes:
            self.ctl("shutdown")
            try:
                daemon.wait(10)
            except subprocess.TimeoutExpired:
                pass
        for process in reversed(list(self.processes.values())):
            if process.poll() is None:
                process.terminate()
                try:
                    process.wait(5)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
        subprocess.run(["umount", "-l", self.medium], stderr=subprocess.DEVNULL)
        if not os.environ.get("RV_KEEP"):
            shutil.rmtree(self.dir, ignore_errors=True)

    # Control

    def ctl(self, *arguments, timeout=30):
        return subprocess.run([os.path.join(self.bin, "rvctl"), *map(str, arguments)],
                              env=self.environment, capture_output=True, text=True, timeout=timeout)

    def do(self, *arguments, seconds=10):
        """A command that must succeed and reach its state."""
        result = self.ctl("--wait", "--timeout", seconds, *arguments, timeout=seconds + 20)
        check(result.returncode == 0,
              f"rvctl {' '.join(map(str, arguments))}: {result.returncode} {result.stdout}{result.stderr}")

    def set(self, name, value):
        result = self.ctl("set", name, value)
        check(result.returncode == 0, f"rvctl set {name} {value}: {result.stdout}{result.stderr}")

    def get(self, name):
        result = self.ctl("--json", "get", name)
        check(result.returncode == 0, f"rvctl get {name}: {result.stdout}{result.stderr}")
        return json.loads(result.stdout)["value"]

    def status(self):
        return json.loads(self.ctl("--json", "status").stdout)

    def wait_for(self, name, value, seconds=10):
        return wait_until(f"{name} is {value}", lambda: self.get(name) == value, seconds)

    def log_text(self):
        try:
            with open(self.log, encoding="utf-8", errors="replace") as log:
                return log.read()
        except FileNotFoundError:
            return ""

    def print_end_of_log(self):
        """What led to a failure, for machines that nobody can look at afterwards."""
        for line in self.log_text().splitlines()[-LINES_OF_FAILURE:]:
            print("  log:", line, flush=True)

    def wait_log(self, text, seconds=10):
        wait_until(f"the log says {text!r}", lambda: text in self.log_text(), seconds)

    # What the output shows

    def frames(self, count, seconds=30):
        """The next frames on the program bus, as rvmonitor's JSON objects."""
        result = subprocess.run(
            [os.path.join(self.bin, "rvmonitor"), "--json", "--frames", str(count)],
            env=self.environment, capture_output=True, text=True, timeout=seconds)
        frames = [json.loads(line) for line in result.stdout.splitlines()]
        check(len(frames) == count, f"{len(frames)} of {count} frames came: {result.stderr}")
        return frames

    def watch_output(self):
        return OutputWatch(self)

    # Clips

    def clips(self):
        return sorted(os.path.join(self.medium, name) for name in os.listdir(self.medium)
                      if name.endswith(".mov"))

    def record(self, seconds):
        """Records a clip of about so many seconds and returns its path once the media service lists it."""
        before = set(self.clips())
        self.do("record")
        time.sleep(seconds)
        closed = self.log_text().count("STREAM: Close is Done")
        self.do("stop")
        new = wait_until("a clip is there", lambda: set(self.clips()) - before)
        wait_until("the clip is closed",
                   lambda: self.log_text().count("STREAM: Close is Done") > closed)
        return new.pop()


class OutputWatch:
    """Collects every frame of the program bus in the background until finish()."""

    def __init__(self, recorder):
        self.process = subprocess.Popen(
            [os.path.join(recorder.bin, "rvmonitor"), "--json", "--frames", "0"],
            env=recorder.environment, stdout=subprocess.PIPE, text=True)
        # An instrument does not queue behind what it measures, nor behind what feeds that.
        os.sched_setscheduler(self.process.pid, os.SCHED_RR, os.sched_param(1))
        self.frames = []
        self.thread = threading.Thread(target=self._collect, daemon=True)
        self.thread.start()
        wait_until("the output is seen", lambda: self.frames, 10)

    def _collect(self):
        for line in self.process.stdout:
            try:
                frame = json.loads(line)
            except ValueError:
                return
            self.frames.append(frame)

    def finish(self):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(5)
        self.thread.join(5)
        return self.frames


def probe(path):
    """What ffprobe says of a clip, packets counted."""
    result = subprocess.run(
        ["ffprobe", "-v", "error", "-count_packets", "-show_streams", "-show_format", "-of", "json", path],
        capture_output=True, text=True, check=False)
    check(result.returncode == 0, f"ffprobe {path}: {result.stderr}")
    return json.loads(result.stdout)


def stream_of(info, kind):
    for stream in info["streams"]:
        if stream["codec_type"] == kind:
            return stream
    raise Failed(f"no {kind} stream")


BAR_LINES = 32
BAR_CELLS = 50


def _checksum(number):
    crc = 0xFFFF
    for shift in (24, 16, 8, 0):
        crc ^= ((number >> shift) & 0xFF) << 8
        for _ in range(8):
            crc = ((crc << 1) ^ 0x1021 if crc & 0x8000 else crc << 1) & 0xFFFF
    return crc


def read_bar(line):
    """The frame number in one line of 8-bit luma through the middle of the bar; None without one."""
    width = len(line)
    means = []
    for cell in range(BAR_CELLS):
        start, end = width * cell // BAR_CELLS, width * (cell + 1) // BAR_CELLS
        margin = (end - start) // 4
        part = line[start + margin:end - margin]
        means.append(sum(part) / len(part))
    if means[0] - means[-1] < 32:
        return None
    threshold = (means[0] + means[-1]) / 2
    bits = 0
    for mean in means[1:49]:
        bits = bits << 1 | (mean > threshold)
    number = bits >> 16
    return number if bits & 0xFFFF == _checksum(number) else None


def clip_numbers(path):
    """The numbers in the pictures of a clip, decoded by FFmpeg and read here, by other code than ours."""
    width = int(stream_of(probe(path), "video")["width"])
    result = subprocess.run(
        ["ffmpeg", "-v", "error", "-i", path, "-map", "0:v:0", "-vf",
         f"crop={width}:2:0:{BAR_LINES // 2},format=gray", "-fps_mode", "passthrough", "-f", "rawvideo", "-"],
        capture_output=True, check=False)
    check(result.returncode == 0, f"ffmpeg decodes {path}: {result.stderr.decode()}")
    data = result.stdout
    size = width * 2
    return [read_bar(data[at:at + width]) for at in range(0, len(data), size)]


def shown(frames):
    """The frame numbers on the output, one a frame; None where no bar is read."""
    return [frame["number"] for frame in frames]


def playback_only(frames):
    return [frame for frame in frames if frame["content"] in ("playback", "held")]


def changes(numbers):
    """The numbers with repeats folded into one."""
    return [n for i, n in enumerate(numbers) if i == 0 or n != numbers[i - 1]]


# What a process has used

def cpu_seconds(pid):
    """User and system time of all threads of a process, those that have ended included."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
        fields = stat.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def thread_seconds(pid):
    """Processor time of each living thread, by number: (name, seconds)."""
    found = {}
    for number in os.listdir(f"/proc/{pid}/task"):
        try:
            with open(f"/proc/{pid}/task/{number}/stat", encoding="ascii") as stat:
                head, _, rest = stat.read().rpartition(")")
        except OSError:
            continue
        fields = rest.split()
        found[number] = (head.partition("(")[2], (int(fields[11]) + int(fields[12])) / TICKS)
    return found


def spent_by_kind(before, after):
    """Processor time between two looks at thread_seconds(), by the threads' names."""
    spent = {}
    for number, (name, seconds) in after.items():
        earlier = before[number][1] if number in before else 0.0
        spent[name] = spent.get(name, 0.0) + seconds - earlier
    return spent


def status_megabytes(pid, key):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        for line in status:
            if line.startswith(key + ":"):
                return int(line.split()[1]) / 1024
    return 0.0


def main(tests):
    """Runs the tests, each with the program folder from the command line; prints a line each."""
    if os.geteuid() != 0:
        print("needs root for mounts of its own")
        sys.exit(SKIP)
    wanted = sys.argv[2:]
    failed = passed = 0
    for test in tests:
        if wanted and test.__name__ not in wanted:
            continue
        began = time.monotonic()
        try:
            test(sys.argv[1])
            passed += 1
            print(f"PASS   {test.__name__} ({time.monotonic() - began:.1f} s)", flush=True)
        except (Failed, subprocess.SubprocessError, OSError, ValueError, KeyError) as error:
            failed += 1
            print(f"FAIL   {test.__name__}: {error}", flush=True)
    print(f"{passed} passed, {failed} failed")
    sys.exit(1 if failed else 0)
