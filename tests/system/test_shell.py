"""The process shell of the real daemon: signals, switches, the log, the lock, the console on a terminal."""

import os
import pty
import re
import resource
import shutil
import signal
import subprocess
import tempfile
import termios
import threading
import time

from rig import Recorder, check, main, wait_until

STATUS_LINE = b"[--:--:--:--] 0.000 "
USAGE = ("Usage: rvd [flags]\nFlags:\n"
         "-d                  Don't daemonize\n"
         "-D                  Debug (will not daemonize)\n"
         "-h                  Print this help screen\n"
         "-c <path to clip>   Set initial clip file\n"
         "-l                  Enable looped playback\n"
         "-s                  Log system stats every second\n"
         "-b                  Benchmark the stream (disk) I/O\n"
         "-p                  Log extra config parameters\n")
IGNORED = {
    "HUP": "Hangup", "USR1": "User defined signal 1", "USR2": "User defined signal 2",
    "TSTP": "Stopped", "TTIN": "Stopped (tty input)", "TTOU": "Stopped (tty output)",
    "PIPE": "Broken pipe", "ALRM": "Alarm clock", "IO": "I/O possible",
    "PROF": "Profiling timer expired", "URG": "Urgent I/O condition",
    "VTALRM": "Virtual timer expired", "XCPU": "CPU time limit exceeded",
    "XFSZ": "File size limit exceeded",
}
FATAL = {
    "ILL": "Illegal instruction", "ABRT": "Aborted", "BUS": "Bus error",
    "FPE": "Floating point exception", "SEGV": "Segmentation fault", "SYS": "Bad system call",
}
EXITING = {"INT": "Interrupt", "QUIT": "Quit", "TERM": "Terminated"}


class Collected:
    """What comes out of a descriptor, read as it comes."""

    def __init__(self, fd):
        self.data = b""
        self._fd = fd
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        while True:
            try:
                data = os.read(self._fd, 65536)
            except OSError:
                return
            if not data:
                return
            self.data += data

    def whole(self):
        self._thread.join(10)
        return self.data


class Daemon:
    """rvd alone, in debug mode unless told otherwise; nobody else is needed for its shell."""

    def __init__(self, bin_dir, *flags, stdin=subprocess.DEVNULL, terminal=False, cmdline=None,
                 reset_seconds=0, **options):
        self.dir = tempfile.TemporaryDirectory(prefix="rvshell-")
        self.resets = os.path.join(self.dir.name, "resets")
        self.log = os.path.join(self.dir.name, "rvd.log")
        reset = os.path.join(self.dir.name, "reset")
        with open(reset, "w", encoding="utf-8") as script:
            script.write(f"#!/bin/sh\necho once >> {self.resets}\nsleep {reset_seconds}\n")
        os.chmod(reset, 0o700)
        self.cmdline = cmdline is not None
        if self.cmdline:
            path = os.path.join(self.dir.name, "cmdline")
            with open(path, "w", encoding="utf-8") as text:
                text.write(cmdline.replace("LOG", self.log) + "\n")
            subprocess.run(["mount", "--bind", path, "/proc/cmdline"], check=True)
        environment = dict(os.environ, PATH=self.dir.name + ":" + os.environ["PATH"])
        environment.pop("ORB_LOG", None)
        self.master = None
        if terminal:
            self.master, slave = pty.openpty()
            self.slave = slave
            self.before = termios.tcgetattr(slave)
            options.update(stdin=slave, stdout=slave)
        else:
            options.setdefault("stdin", stdin)
            options.setdefault("stdout", subprocess.PIPE)
        options.setdefault("stderr", subprocess.PIPE)
        self.process = subprocess.Popen([os.path.join(bin_dir, "rvd"), *(flags or ("-D",))],
                                        env=environment, **options)
        self.out = self._collect(self.master if terminal else self.process.stdout)
        self.err = self._collect(self.process.stderr)

    @staticmethod
    def _collect(source):
        if source is None:
            return None
        return Collected(source if isinstance(source, int) else source.fileno())

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        if self.cmdline:
            subprocess.run(["umount", "/proc/cmdline"], check=True)
        for fd in (self.master, getattr(self, "slave", None)):
            if fd is not None:
                os.close(fd)
        for stream in (self.process.stdout, self.process.stderr):
            if stream is not None:
                stream.close()
        self.dir.cleanup()
        return False

    def runs(self):
        """The event loop turns when the first status line is out."""
        wait_until("the status line", lambda: STATUS_LINE in self.out.data, 20)
        return self

    def send(self, name):
        self.process.send_signal(getattr(signal, "SIG" + name))

    def ends(self, status):
        self.process.wait(20)
        check(self.process.returncode == status, f"ends with {self.process.returncode}: {self.errors()}")

    def errors(self):
        return self.err.data.decode(errors="replace") if self.err else read(self.log)

    def logs(self, level, text):
        """A record of main.cpp on the display, the standard error of debug mode."""
        pattern = re.compile(rf"Z {level} main\.cpp:\d+: {re.escape(text)} [0-9(]")
        wait_until(f"level {level}: {text}", lambda: pattern.search(self.errors()))


def no_core():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def fatal_signals_trace_and_abort(bin_dir):
    for name, text in FATAL.items():
        with Daemon(bin_dir, preexec_fn=no_core) as daemon:
            daemon.runs().send(name)
            daemon.ends(-signal.SIGABRT)
            out = daemon.out.whole().decode(errors="replace")
            daemon.logs(1, "Aborting. " + text)
            tail = out[out.index("Aborting. "):].splitlines()
            check(tail[0].startswith(f"Aborting. {text} "), tail[0])
            check(tail[1] == "BACKTRACE", tail[1])
            frames = tail[2:]
            check(1 <= len(frames) <= 24, f"{len(frames)} frames")
            for number, line in enumerate(frames, 1):
                check(line.startswith("%2d: " % number), line)
            check(any("signalAction(int, siginfo_t*, void*)+0x" in line for line in frames), out)
            check(any(": main+0x" in line for line in frames), out)
            check(not os.path.exists(daemon.resets), "the console is left alone")


def the_first_exit_signal_ends_the_loop(bin_dir):
    for name, text in EXITING.items():
        with Daemon(bin_dir) as daemon:
            daemon.runs().send(name)
            daemon.ends(0)
            daemon.logs(3, "Exit requested. " + text)
            with open(daemon.resets, encoding="utf-8") as resets:
                check(resets.read() == "once\n", "the console is reset once")
            check(b"Exit requested" not in daemon.out.whole(), "the first one is not printed")


def the_second_exit_signal_ends_the_process_with_one(bin_dir):
    for first, second in (("TERM", "TERM"), ("INT", "TERM")):
        with Daemon(bin_dir, reset_seconds=1) as daemon:
            daemon.runs().send(first)
            wait_until("the console is being reset", lambda: os.path.exists(daemon.resets))
            daemon.send(second)
            daemon.ends(1)
            daemon.logs(3, "Exit requested. " + EXITING[first])
            daemon.logs(3, "Forcing exit. " + EXITING[second])
            check(f"Forcing exit. {EXITING[second]} ".encode() in daemon.out.whole(), "it is printed")


def other_signals_are_logged_and_ignored(bin_dir):
    with Daemon(bin_dir) as daemon:
        daemon.runs()
        for name, text in IGNORED.items():
            daemon.send(name)
            daemon.logs(2, "Ignoring Signal. " + text)
        daemon.send("TERM")
        daemon.ends(0)


def every_description_has_its_sixteen_fields(bin_dir):
    with Daemon(bin_dir) as daemon:
        daemon.runs().send("USR1")
        daemon.logs(2, "Ignoring Signal. User defined signal 1")
        line = daemon.errors().split("User defined signal 1 ", 1)[1].split("\n", 1)[0]
        hexes = "[0-9A-F]+"
        pointer = r"(0x[0-9a-f]+|\(nil\))"
        check(re.fullmatch(rf"{pointer} S{hexes} E{hexes} C{hexes} P{hexes} U{hexes} S{hexes} U{hexes} "
                           rf"S{hexes} V{hexes} I{hexes} P{pointer} O{hexes} T{hexes} A{pointer} "
                           rf"B{hexes} F{hexes}", line), line)
        daemon.send("TERM")
        daemon.ends(0)


def without_debug_there_are_deliberately_no_handlers(bin_dir):
    for name in ("TERM", "INT", "USR1"):
        with Daemon(bin_dir, "-d", cmdline="quiet rvd_log=LOG") as daemon:
            wait_until("it starts", lambda: "Parse Command Line" in read(daemon.log))
            daemon.send(name)
            daemon.ends(-getattr(signal, "SIG" + name))
            check("xit requested" not in read(daemon.log), read(daemon.log))


def read(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as text:
            return text.read()
    except FileNotFoundError:
        return ""


def the_kernel_command_line_names_the_log(bin_dir):
    with Daemon(bin_dir, "-d", cmdline="a=b rvd_logs=/no rvd_log=LOG rvd_log=/no") as daemon:
        wait_until("it logs", lambda: " 3 mainobject.cpp:" in read(daemon.log))
        check(" 4 " not in read(daemon.log), "no details outside debug mode")
        check("Space  Toggle" not in read(daemon.log), "no console outside debug mode")
        check(daemon.errors() == "", daemon.errors())
    with Daemon(bin_dir, "-D", cmdline="rvd_log=LOG") as daemon:
        daemon.runs()
        wait_until("it logs", lambda: " 3 keyboardtransport.cpp:" in read(daemon.log))
        check(" 3 keyboardtransport.cpp:" in daemon.errors(), "debug logs to the display too")
        daemon.send("TERM")
        daemon.ends(0)
        check(read(daemon.log) == daemon.err.whole().decode(), "both hold the same")
    with Daemon(bin_dir, "-D", cmdline="quiet") as daemon:
        daemon.runs()
        check(read(daemon.log) == "", "no key, no file")


def the_key_alone_logs_to_the_root(bin_dir):
    if os.path.exists("/rvd.log"):
        return
    for cmdline in ("rvd_log", "rvd_log= quiet"):
        try:
            with Daemon(bin_dir, "-d", cmdline=cmdline):
                wait_until("it logs", lambda: "Parse Command Line" in read("/rvd.log"))
        finally:
            if os.path.exists("/rvd.log"):
                os.unlink("/rvd.log")


def help_is_printed_and_the_daemon_still_starts(bin_dir):
    for flags, times, failure in ((("-D", "-h"), 1, ""), (("-D", "-z"), 1, "unknown option '-z'"),
                                  (("-D", "-zh"), 2, "unknown option '-z'"),
                                  (("-D", "-c"), 1, "option '-c' needs an argument")):
        with Daemon(bin_dir, *flags) as daemon:
            daemon.runs()
            check(daemon.out.data.startswith(USAGE.encode() * times), f"{flags}: {daemon.out.data!r}")
            check(" 3 mainobject.cpp:" in daemon.errors(), daemon.errors())
            check(f"Parse Command Line '{os.path.join(bin_dir, 'rvd')} {' '.join(flags)}'"
                  in daemon.errors(), daemon.errors())
            failures = re.findall(r" 1 mainobject\.cpp:\d+: Command line parse failure: (.*)",
                                  daemon.errors())
            check(failures == ([failure] if failure else []), f"{flags}: {failures}")
            daemon.send("TERM")
            daemon.ends(0)


def a_letter_inside_a_word_deliberately_does_not_keep_it_in_front(bin_dir):
    with Daemon(bin_dir, "-dl", cmdline="rvd_log=LOG") as daemon:
        daemon.ends(0)  # detached
        wait_until("it runs behind", lambda: "-dl'" in read(daemon.log))
        pid = int(read("/var/lock/rvd.lock"))
        check(pid != daemon.process.pid, "a process of its own")
        check("parse failure" not in read(daemon.log), read(daemon.log))
        second = subprocess.run([os.path.join(bin_dir, "rvd"), "-d"], capture_output=True, text=True,
                                timeout=20, check=False)
        check(second.returncode == 1, f"ends with {second.returncode}")
        check(second.stdout == "", second.stdout)
        check(second.stderr == "Failed to lock lockfile (/var/lock/rvd.lock).  "
              f"It looks like process {pid} currently owns it\n", second.stderr)
        os.kill(pid, signal.SIGTERM)
        wait_until("it ends", lambda: read("/var/lock/rvd.lock") == "", 20)


def statistics_come_every_second(bin_dir):
    with Daemon(bin_dir, "-D", "-s") as daemon:
        pattern = re.compile(r" 3 vtrobject\.cpp:\d+: STM: \d+, CACHE: \d+, RDEV: \d+, WDEV: \d+\n")
        wait_until("three lines", lambda: len(pattern.findall(daemon.errors())) >= 3)
        daemon.send("TERM")
        daemon.ends(0)


def closed_standard_descriptors_lead_nowhere(bin_dir):
    def close_all():
        for fd in (0, 1, 2):
            os.close(fd)

    with Daemon(bin_dir, "-D", cmdline="rvd_log=LOG", stdin=None, stdout=None, stderr=None,
                preexec_fn=close_all) as daemon:
        wait_until("it runs", lambda: "MODE:" in read(daemon.log) or "Setup" in read(daemon.log), 20)
        for fd in (0, 1, 2):
            target = os.readlink(f"/proc/{daemon.process.pid}/fd/{fd}")
            check(target == "/dev/null", f"{fd} is {target}")
        check(read("/var/lock/rvd.lock") == f"{daemon.process.pid}\n", "the lock file is its own")
        daemon.send("TERM")
        daemon.ends(0)


def ended_and_endless_input_leave_the_console_running(bin_dir):
    with open("/dev/zero", "rb") as zero:
        for stdin in (subprocess.DEVNULL, zero):
            with Daemon(bin_dir, stdin=stdin) as daemon:
                # A line is printed again every two seconds: the loop turns.
                wait_until("more lines", lambda: daemon.out.data.count(b"\r") >= 3, 20)
                daemon.send("TERM")
                daemon.ends(0)


def the_terminal_is_raw_and_given_back(bin_dir):
    with Daemon(bin_dir, terminal=True) as daemon:
        daemon.runs()
        raw = termios.tcgetattr(daemon.slave)
        before = daemon.before
        cleared = (termios.IGNBRK | termios.BRKINT | termios.PARMRK | termios.ISTRIP | termios.INLCR
                   | termios.IGNCR | termios.ICRNL | termios.IXON)
        local = termios.ECHO | termios.ECHONL | termios.ICANON | termios.ISIG | termios.IEXTEN
        check(raw[0] == before[0] & ~cleared, "input flags")
        check(raw[1] == before[1], "output flags")
        check(raw[2] == (before[2] & ~(termios.CSIZE | termios.PARENB)) | termios.CS8, "control flags")
        check(raw[3] == before[3] & ~local, "local flags")
        check(re.search(rb"\[--:--:--:--\] 0\.000 [^\r\n]* {20}\r", daemon.out.data), daemon.out.data)
        os.write(daemon.master, b"\x03\x1c\x1a0123456789")  # neither signals nor commands any more
        shown = daemon.out.data.count(b"\r")
        wait_until("it goes on", lambda: daemon.out.data.count(b"\r") > shown)
        check(daemon.process.poll() is None, "it runs")
        os.write(daemon.master, b"Q")
        daemon.ends(0)
        wait_until("an empty line", lambda: daemon.out.data.endswith(b"\r\n\r\n"))
        check(termios.tcgetattr(daemon.slave) == before, "the terminal is as it was")
        check("xit requested" not in daemon.errors(), "no signal was raised")
        check(not os.path.exists(daemon.resets), "the console is not reset")


def options_reach_the_recorder(bin_dir):
    benchmark = "/rvd_bench.txt"
    existed = os.path.exists(benchmark)
    with Recorder(bin_dir) as recorder:
        try:
            recorder.start_store()
            recorder.start_media()
            recorder.start_daemon("-bp")
            wait_until("it answers", lambda: recorder.ctl("status").returncode == 0)
            first, second = recorder.record(1), recorder.record(1)
            wait_until("the newest is current",
                       lambda: recorder.get("CurrentClip") == os.path.basename(second))
            recorder.wait_log(" 3 vtrobject.cpp:")
            recorder.wait_log(f"Benchmark file opened: {benchmark}")
            recorder.set("ClipCounter", 7)
            recorder.wait_log("Changed: [")
            recorder.ctl("shutdown")
            check(recorder.processes["rvd"].wait(20) == 0, "it ends")
            lines = read(benchmark).splitlines()
            check(len(lines) > 20, f"{len(lines)} lines")
            for line in lines:
                check(re.fullmatch(r"\d+ \d+\.\d{6}", line), line)
            numbers = [int(line.split()[0]) for line in lines]
            begin = numbers.index(0, 1)
            check(numbers[:begin] == list(range(begin)), "a line a frame")
            stamps = [float(line.split()[1]) for line in lines]
            check(stamps == sorted(stamps) and abs(stamps[-1] - time.time()) < 600, "times of day")
        finally:
            if not existed and os.path.exists(benchmark):
                os.unlink(benchmark)
        recorder.set("CurrentClip", "N/A")
        elsewhere = os.path.join(recorder.dir, "elsewhere", "Named.mov")
        os.mkdir(os.path.dirname(elsewhere))
        shutil.copy(first, elsewhere)
        recorder.start_daemon("-c", elsewhere, "-l")
        wait_until("it answers", lambda: recorder.ctl("status").returncode == 0)
        wait_until("the clip named is current",
                   lambda: recorder.get("CurrentClip") == "Named.mov")
        recorder.do("play")
        recorder.wait_log(elsewhere)
        time.sleep(2)  # twice as long as the clip
        check(recorder.status()["stateNumber"] == 3, f"it loops: {recorder.status()}")


if __name__ == "__main__":
    main([fatal_signals_trace_and_abort, the_first_exit_signal_ends_the_loop,
          the_second_exit_signal_ends_the_process_with_one, other_signals_are_logged_and_ignored,
          every_description_has_its_sixteen_fields, without_debug_there_are_deliberately_no_handlers,
          the_kernel_command_line_names_the_log, the_key_alone_logs_to_the_root,
          help_is_printed_and_the_daemon_still_starts,
          a_letter_inside_a_word_deliberately_does_not_keep_it_in_front, statistics_come_every_second,
          closed_standard_descriptors_lead_nowhere, ended_and_endless_input_leave_the_console_running,
          the_terminal_is_raw_and_given_back, options_reach_the_recorder])
