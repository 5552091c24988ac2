#!/usr/bin/env python3
"""Measures the recorder beside what a user would pick instead: processor time, memory, latency.

    scripts/isolated.sh python3 bench/bench.py build/release/bin [topic ...]

Prints one table a topic, all figures of one run, the goal beside each. Nothing is asserted: a goal that is missed
is shown, and the exit status is 0 unless something could not be measured at all.
"""

import os
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import threading
import time
from datetime import datetime

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "system"))
import rig  # noqa: E402
import bench_clips  # noqa: E402
import test_media  # noqa: E402
import test_media_slots  # noqa: E402
import test_rollover  # noqa: E402

RATE = 25
EE_SECONDS = 8
RECORD_SECONDS = 20
PLAY_SECONDS = 6
RAW_PICTURES = 200          # decoded for ffmpeg; it codes them over and over
PACED_FRAMES = 250
RELEASED = 2                # of StorageInUse
IN_RECORD = 2               # of TransportState

ENCODER = ["-c:v", "prores_aw", "-profile:v", "2", "-threads:v", "1", "-c:a", "pcm_s24le"]
FIGURES = re.compile(r"(\d+) \w+: median ([\d.]+) (\w+), 99 % ([\d.]+) \w+, worst ([\d.]+)")


# Tables

def title(text):
    print(f"\n{text}", flush=True)


def row(name, figure, goal="", is_met=None):
    verdict = "" if is_met is None else "met" if is_met else "MISSED"
    print(f"  {name:<60}{figure:>12}   {goal:<20}{verdict}".rstrip(), flush=True)


def latency_rows(name, output, limit, unit, scale=1.0):
    """The rows of a program that prints its median, 99th percentile and worst."""
    found = FIGURES.search(output)
    rig.check(found, f"no figures in {output!r}")
    count = found.group(1)
    median, high, worst = (float(found.group(i)) * scale for i in (2, 4, 5))
    goal = (f"under {limit:g} {unit}", high < limit) if limit else ()
    row(f"{name}, median of {count}", f"{median:.2f} {unit}")
    row(f"{name}, 99th percentile", f"{high:.2f} {unit}", *goal)
    row(f"{name}, worst", f"{worst:.2f} {unit}")


# Processes

def by_thread(before, after, per, unit):
    """The busiest kinds of threads in one line."""
    spent = rig.spent_by_kind(before, after)
    busiest = sorted(spent.items(), key=lambda item: -item[1])[:5]
    text = ", ".join(f"{name} {seconds * per:.2f}" for name, seconds in busiest if seconds > 0)
    print(f"    by thread, {unit}: {text}", flush=True)


class MemoryWatch:
    """The highest private memory of a process, looked at twenty times a second."""

    def __init__(self, pid):
        self.pid = pid
        self.peak = 0.0
        self.ends = threading.Event()
        self.thread = threading.Thread(target=self._run, daemon=True)
        self.thread.start()

    def _run(self):
        while not self.ends.wait(0.05):
            try:
                self.peak = max(self.peak, rig.status_megabytes(self.pid, "RssAnon"))
            except OSError:
                return

    def finish(self):
        self.ends.set()
        self.thread.join()
        return self.peak


def child_seconds(command):
    """Runs a program to its end; its processor time."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    rig.check(result.returncode == 0, f"{command[0]}: {result.stderr.strip()}")
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


# The recorder

def start_recorder(bin_dir, source_format):
    """A recorder on the moving pattern in E-E, past its beginnings."""
    recorder = rig.Recorder(bin_dir, source="pattern", source_format=source_format).start()
    rig.wait_until("the input is on the output",
                   lambda: recorder.frames(1)[0]["content"] == "live", 20)
    time.sleep(2)
    return recorder


def measure_ee(recorder):
    """Processor time of E-E, of one core."""
    pid = recorder.processes["rvd"].pid
    threads, cpu, wall = rig.thread_seconds(pid), rig.cpu_seconds(pid), time.monotonic()
    time.sleep(EE_SECONDS)
    cpu, wall = rig.cpu_seconds(pid) - cpu, time.monotonic() - wall
    return cpu / wall, (threads, rig.thread_seconds(pid), 100 / wall)


def record(recorder):
    """Records a clip: its path, its frames, the processor time of the whole recording, the threads' shares.

    A machine that is busy with other things drops a frame, which ends a recording: then it is tried again."""
    pid = recorder.processes["rvd"].pid
    for _ in range(3):
        before = set(recorder.clips())
        threads, cpu = rig.thread_seconds(pid), rig.cpu_seconds(pid)
        recorder.do("record")
        time.sleep(RECORD_SECONDS)
        if recorder.get("TransportState") == IN_RECORD:
            recorder.do("stop")
        clip = rig.wait_until("a clip is there", lambda: set(recorder.clips()) - before).pop()
        rig.wait_until("the clip is closed", lambda: recorder.get("StorageInUse") == RELEASED)
        cpu = rig.cpu_seconds(pid) - cpu
        frames = int(rig.stream_of(rig.probe(clip), "video")["nb_read_packets"])
        if frames > (RECORD_SECONDS - 1) * RATE:
            return clip, frames, cpu, (threads, rig.thread_seconds(pid), 1000 / frames)
        print(f"    a recording ended after {frames} frames: too little of the machine is free", flush=True)
    raise rig.Failed("no recording came to its end")


def ffmpeg_per_frame(clip, folder, frames, is_paced):
    """Processor time of ffmpeg for each of so many of the clip's own pictures, raw in memory, with their sound."""
    pictures, sound = os.path.join(folder, "pictures.yuv"), os.path.join(folder, "sound.pcm")
    out = os.path.join(folder, "out.mov")
    if not os.path.exists(pictures):
        child_seconds(["ffmpeg", "-v", "error", "-i", clip,
                       "-map", "0:v", "-frames:v", str(RAW_PICTURES), "-pix_fmt", "yuv422p10le",
                       "-f", "rawvideo", pictures, "-map", "0:a", "-f", "s24le", sound])
    spent = child_seconds(["ffmpeg", "-v", "error", "-nostdin", "-y", *(["-re"] if is_paced else []),
                           "-stream_loop", "-1", "-f", "rawvideo", "-pix_fmt", "yuv422p10le",
                           "-s", "1920x1080", "-r", str(RATE), "-i", pictures,
                           "-f", "s24le", "-ar", "48000", "-ac", "2", "-i", sound,
                           "-frames:v", str(frames), "-shortest", *ENCODER, out])
    coded = int(rig.stream_of(rig.probe(out), "video")["nb_read_packets"])
    os.unlink(out)
    return spent / coded


def run_program(bin_dir, name, *arguments, environment=None, timeout=150):
    path = os.path.join(os.path.dirname(os.path.abspath(bin_dir)), "bench", name)
    rig.check(os.path.exists(path), f"{name} is not built")
    result = subprocess.run([path, *arguments], env=environment, capture_output=True, text=True,
                            timeout=timeout, check=False)
    rig.check(result.returncode == 0, f"{name}: {result.stdout}{result.stderr}".strip())
    if result.stderr:
        print("    " + result.stderr.strip().replace("\n", "\n    "), flush=True)
    return result.stdout


# The topics

def topic_recording(bin_dir):
    with start_recorder(bin_dir, f"1920x1080p{RATE}") as recorder:
        pid = recorder.processes["rvd"].pid
        memory = MemoryWatch(pid)
        ee = measure_ee(recorder)[0]
        clip, frames, spent, threads = record(recorder)
        show_recording(clip, frames, spent / frames * 1000, ee / RATE * 1000, threads)
        recorder.do("play")
        cpu, wall = rig.cpu_seconds(pid), time.monotonic()
        time.sleep(PLAY_SECONDS)
        play = (rig.cpu_seconds(pid) - cpu) / (time.monotonic() - wall)
        show_memory(pid, memory.finish())
        shuttle = run_program(bin_dir, "command_latency", "shuttle", environment=recorder.environment)
        recorder.do("stop")
        recorder.do("stop")
        short = run_program(bin_dir, "command_latency", "record", environment=recorder.environment)
        title("Transport command to published state, from one client to another")
        latency_rows("record in E-E (waits for no frame)", short, 10, "ms")
        latency_rows("fast forward, rewind in Play (with frame wait)", shuttle, None, "ms")
    title("Processor time of playback, of one core")
    row(f"playing 1080p{RATE}", f"{play * 100:.1f} %")


def topic_ee(bin_dir):
    title("Processor time of E-E (input to output, nobody records), of one core")
    for rate, limit in ((25, None), (50, 15)):
        with start_recorder(bin_dir, f"1920x1080p{rate}") as recorder:
            ee, threads = measure_ee(recorder)
        goal = (f"at most {limit} %", ee * 100 <= limit) if limit else ()
        row(f"1080p{rate}", f"{ee * 100:.1f} %", *goal)
        by_thread(*threads, "%")


LIVE = (("1920x1080p50", "own"), ("1920x1080p50", "ffmpeg"), ("1920x1080p60000/1001", "own"), ("3840x2160p25", "own"))
LIVE_SECONDS = 8
HQ = 1                      # of EncodeType


def live_recording(bin_dir, source_format, encoder):
    """A recording of the moving pattern; it ends early when a frame is dropped. Frames, seconds, processor
    milliseconds a frame, and what the status says of the coding."""
    with rig.Recorder(bin_dir, source="pattern", source_format=source_format, size="6g") as recorder:
        device = os.path.join(recorder.dir, "device.ini")
        with open(device, "w", encoding="ascii") as config:
            config.write(f"[coder]\nprores={encoder}\n")
        recorder.environment["RVD_DEVICE_CONFIG"] = device
        recorder.start()
        recorder.set("EncodeType", HQ)
        rig.wait_until("the input is on the output",
                       lambda: recorder.frames(1)[0]["content"] == "live", 20)
        time.sleep(1.5)
        pid = recorder.processes["rvd"].pid
        cpu = rig.cpu_seconds(pid)
        recorder.ctl("--wait", "record")
        begun, worst = time.monotonic(), 0
        while time.monotonic() - begun < LIVE_SECONDS and recorder.get("TransportState") == IN_RECORD:
            time.sleep(0.5)
            worst = max(worst, int(recorder.get("WorstCodingTime")))
        wall = time.monotonic() - begun
        is_whole = recorder.get("TransportState") == IN_RECORD
        median = int(recorder.get("CodingTime"))
        if is_whole:
            recorder.ctl("--wait", "stop")
        rig.wait_until("the clip is closed", lambda: recorder.get("StorageInUse") == RELEASED, 30)
        spent = rig.cpu_seconds(pid) - cpu
        frames = sum(int(rig.stream_of(rig.probe(clip), "video")["nb_read_packets"]) for clip in recorder.clips())
        return frames, wall, spent / max(frames, 1) * 1000, median, worst, is_whole


def topic_live(bin_dir):
    title(f"Recording {LIVE_SECONDS} s of the moving pattern in ProRes 422 HQ")
    for source_format, encoder in LIVE:
        frames, wall, cost, median, worst, is_whole = live_recording(bin_dir, source_format, encoder)
        print(f"    {source_format}, {encoder}: {frames} frames in {wall:.1f} s, {cost:.1f} ms of processor a frame, "
              f"coded within {median} ms, at worst {worst} ms", flush=True)
        row(f"{source_format}, {encoder} encoder: not a frame dropped", "yes" if is_whole else "no",
            *(("yes", is_whole) if encoder == "own" and "3840" not in source_format else ()))


def show_recording(clip, frames, rvd, ee, threads):
    title(f"Processor time of a recorded frame, {frames} frames of 1920x1080p{RATE}, ProRes 422, two channels")
    folder = tempfile.mkdtemp(prefix="bench-", dir="/dev/shm")
    try:
        fast = ffmpeg_per_frame(clip, folder, frames, False) * 1000
        paced = ffmpeg_per_frame(clip, folder, PACED_FRAMES, True) * 1000
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    row("rvd, all its threads", f"{rvd:.2f} ms")
    by_thread(*threads, "ms")
    row("rvd, of which E-E (input, output)", f"{ee:.2f} ms")
    row("ffmpeg's fastest encoder, same pictures and profile", f"{fast:.2f} ms")
    row(f"ffmpeg, the same at {RATE} frames a second", f"{paced:.2f} ms")
    row("rvd : ffmpeg", f"{rvd / fast:.2f}", "at most 1.10", rvd / fast <= 1.10)
    row("rvd without its E-E : ffmpeg", f"{(rvd - ee) / fast:.2f}")
    row(f"rvd : ffmpeg at {RATE} frames a second", f"{rvd / paced:.2f}")


def show_memory(pid, peak):
    title(f"Memory of rvd, recording and then playing 1080p{RATE}")
    highest = rig.status_megabytes(pid, "VmHWM")
    row("peak, all (VmHWM)", f"{highest:.0f} MB", "under 400 MB", highest < 400)
    row("peak, private (RssAnon)", f"{peak:.0f} MB")


def topic_cue(bin_dir):
    folder = os.environ.get("BENCH_DISK", tempfile.gettempdir())
    output = run_program(bin_dir, "cue_latency", folder)
    title("Cue to picture on the output, clip of 50,000 frames, not in memory, 25 frames a second")
    latency_rows("cue to a random frame", output, 3, "frames")


def topic_store(bin_dir):
    output = run_program(bin_dir, "store_latency")
    title("Parameter store: set in one client to event in another, loopback")
    latency_rows("set to event", output, None, "ms", 0.001)
    broker = shutil.which("mosquitto", path=os.environ.get("PATH", "") + ":/usr/sbin")
    if not broker:
        print("    no MQTT broker is installed: nothing to compare with", flush=True)
        return
    title("Parameter store beside an MQTT broker, by turns in one run (store, broker, ratio)")
    output = run_program(bin_dir, "store_mqtt", os.path.join(bin_dir, "rvstore"), broker)
    for line in output.strip().split("\n"):
        name, ours, theirs, unit, better = line.split("; ")
        ours, theirs = float(ours), float(theirs)
        ratio = ours / theirs
        is_met = ratio <= 1.0 if better == "less" else ratio >= 1.0
        row(name, f"{ours:.{0 if ours > 10 else 2}f} {unit}")
        row("    broker", f"{theirs:.0f} {unit}")
        row("    store : broker", f"{ratio:.2f}", f"at {'most' if better == 'less' else 'least'} 1.00", is_met)


def topic_codecs(bin_dir):
    output = run_program(bin_dir, "coder_speed")
    title("Coders and decoders, one thread, 1920x1080")
    print("  " + output.strip().replace("\n", "\n  "), flush=True)


def topic_engine(bin_dir):
    output = run_program(bin_dir, "engine_pass")
    title("One pass of the transport engine, scripted device and medium, as measured and without the clock")
    clock = 0.0
    for line in output.splitlines():
        found = FIGURES.search(line)
        if not found:
            continue
        name, median = line.rsplit(", ", 3)[0], float(found.group(2))
        if name == "clock alone":
            clock = median
        is_pass = name.startswith(("Standby Off", "Record", "Play"))
        goal = ("under 5 us", median - clock < 5) if is_pass else ()
        row(f"{name}, median of {found.group(1)}", f"{max(median - clock, 0):.2f} us", *goal)
    stories = re.search(r"(\d+) of \d+ acts: (\d+) s in ([\d.]+) s of a core: (\d+) times", output)
    rig.check(stories, f"no figures in {output!r}")
    title("Random stories of commands and faults told to the engine, simulated time over processor time")
    row(f"{stories.group(1)} stories, {stories.group(2)} s", f"{stories.group(4)} times", "at least 5000",
        int(stories.group(4)) >= 5000)


def close_to_list(recorder, count):
    """Milliseconds from the close of a new clip on the medium to the notice of it in the store."""
    clip = recorder.record(1)
    notice = "Media has been updated..."
    took = []
    for i in range(count):
        time.sleep(0.7)  # as clips come: not one at the heels of the other
        copy = os.path.join(recorder.medium, f"copy {i}.mov")
        before = recorder.log_text().count(notice)
        with open(clip, "rb") as source, open(copy, "wb") as target:
            target.write(source.read())
        closed = time.monotonic()
        rig.wait_until("the list is told", lambda: recorder.log_text().count(notice) > before, 5, 0.001)
        took.append((time.monotonic() - closed) * 1000)
    return sorted(took)


def mount_to_list(bin_dir, count, rounds):
    """Milliseconds from the mount of a medium whose clips are known, none of them in memory, to the daemon's list."""
    told = f"Updated all clips list.  {count} entries"
    took = []
    with test_media_slots.SlotRecorder(bin_dir, medium="none") as recorder, \
            test_media.LoopMedium(recorder, "slot 2", "2g") as medium:
        recorder.start()
        recorder.wait_for("ActivePath", medium.path)
        recorder.do("record")
        time.sleep(1)
        recorder.do("stop")
        recorder.do("standby-off")
        recorder.wait_for("StorageInUse", 2)
        clip = next(os.path.join(medium.path, name) for name in os.listdir(medium.path) if name.endswith(".mov"))
        for i in range(count - 2):
            os.link(clip, os.path.join(medium.path, f"clip {i}.mov"))
        shutil.copy(clip, os.path.join(medium.path, "last.mov"))
        recorder.wait_log(told, 60)
        for _ in range(rounds):
            before = recorder.log_text().count(told)
            recorder.do("eject")
            with open("/proc/sys/vm/drop_caches", "w", encoding="ascii") as drop:
                drop.write("3")
            medium.mount()
            mounted = time.monotonic()
            rig.wait_until("the list is told", lambda: recorder.log_text().count(told) > before, 30, 0.005)
            took.append((time.monotonic() - mounted) * 1000)
    return sorted(took)


def topic_media(bin_dir):
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        output = run_program(bin_dir, "clip_listing", folder, os.path.join(bin_dir, "rvgrok"))
    title("Listing a medium, in memory; new clips are read by the confined process")
    for line in output.splitlines():
        found = FIGURES.search(line)
        name, median = line.rsplit(", ", 3)[0], float(found.group(2))
        goal = ()
        if name in ("10000 clips, all known", "10000 clips known from the file"):
            goal = ("under 1000 ms", median < 1000)
        elif name.endswith("all new"):
            each = median / int(name.split()[0])
            goal = ("under 5 ms a clip", each < 5)
        row(f"{name}, median of {found.group(1)}", f"{median:.1f} ms", *goal)
    with rig.Recorder(bin_dir) as recorder:
        recorder.start()
        recorder.wait_for("InputFormat", 20)
        took = close_to_list(recorder, 15)
    title("Close of a clip to the daemon's new list")
    row(f"median of {len(took)}", f"{took[len(took) // 2]:.1f} ms", "under 200 ms", took[len(took) // 2] < 200)
    row("worst", f"{took[-1]:.1f} ms")
    took = mount_to_list(bin_dir, 10000, 5)
    title("Mount of a medium with 10,000 clips, seen before, to the daemon's list; ext4, nothing of it in memory")
    row(f"median of {len(took)}", f"{took[len(took) // 2]:.0f} ms", "under 1000 ms", took[len(took) // 2] < 1000)
    row("worst", f"{took[-1]:.0f} ms")


ROLLOVERS = 6
HOUR = 90000                # frames


def log_ms(line):
    return datetime.fromisoformat(line.split(" ", 1)[0].replace("Z", "+00:00")).timestamp() * 1000


def rolled_over(recorder, volumes):
    """Milliseconds that each of some rollovers of one recording takes to close, and is without a stream."""
    recorder.do("record")
    for turn in range(ROLLOVERS):
        before, after = volumes[turn % 2], volumes[(turn + 1) % 2]
        recorder.wait_for("RolloverPath", after.path)
        time.sleep(2)
        test_media.fill_to(before.path, 10.4)
        recorder.wait_for("ActivePath", after.path)
        before.empty()
    recorder.do("stop")
    rig.wait_until("all clips are closed",
                   lambda: recorder.log_text().count("STREAM: Close is Done") > ROLLOVERS, 20)
    closes, gaps, began = [], [], None
    for line in recorder.log_text().splitlines():
        if "STREAM: Reopen Record Stream" in line:
            began = log_ms(line)
        elif began and "STREAM: Close is Done" in line:
            closes.append(log_ms(line) - began)
        elif began and "STREAM: Open is Done" in line:
            gaps.append(log_ms(line) - began)
            began = None
    return closes, gaps


def lost_frames(volumes):
    """Pictures that are missing from, or double in, all the clips on the media."""
    paths = [os.path.join(volume.path, name) for volume in volumes for name in volume.clips()]
    numbers = sorted(number for path in paths for number in rig.clip_numbers(path))
    return numbers[-1] - numbers[0] + 1 - len(set(numbers)), len(numbers) - len(set(numbers)), len(numbers)


def topic_rollover(bin_dir):
    title("Rollover: close of the old clip, and time until the next one is open (the frames wait meanwhile)")
    with tempfile.TemporaryDirectory(dir=os.environ.get("BENCH_DISK")) as folder:
        output = run_program(bin_dir, "rollover_gap", folder, folder, str(HOUR), "5")
    for line, name in zip(output.splitlines(), ("clip of one hour, close", "clip of one hour, without a stream")):
        found = FIGURES.search(line)
        worst = float(found.group(5))
        row(f"{name}, median of {found.group(1)}", f"{found.group(2)} ms")
        row(f"{name}, worst", f"{worst:.1f} ms", "under 100 ms", worst < 100)
    with rig.Recorder(bin_dir, source_format="1920x1080p25", medium="none") as recorder:
        volumes = [test_rollover.Volume(path, "ext4", "3g")
                   for path in (recorder.medium, os.path.join(recorder.dir, "second"))]
        recorder.start_media = lambda: recorder.spawn("rvmedia", "--slot", volumes[0].path, "--slot", volumes[1].path)
        try:
            recorder.start()
            recorder.wait_for("InputFormat", 20)
            recorder.set("RolloverEnable", 1)
            time.sleep(2)
            closes, gaps = rolled_over(recorder, volumes)
            lost, doubled, frames = lost_frames(volumes)
        finally:
            volumes[1].pull()
    rig.check(len(gaps) == ROLLOVERS, f"{len(gaps)} rollovers")
    row(f"recorder, 1080p25 on ext4, close, worst of {len(closes)}", f"{max(closes):.0f} ms")
    row(f"recorder, 1080p25 on ext4, without a stream, median of {len(gaps)}", f"{sorted(gaps)[len(gaps) // 2]:.0f} ms")
    row(f"recorder, 1080p25 on ext4, without a stream, worst of {len(gaps)}", f"{max(gaps):.0f} ms", "under 100 ms",
        max(gaps) < 100)
    row(f"frames lost or doubled, of {frames}", f"{lost + doubled}", "0", lost + doubled == 0)


PRORES_GOALS = {("prores_aw", "avx512"): 15, ("prores_ks", "avx512"): 80,
                ("prores_aw", "avx2"): 8, ("prores_ks", "avx2"): 45}  # times as fast on a core, natural clip


def topic_prores(bin_dir):
    for raster in (("1920", "1080", "6"), ("3840", "2160", "3")):
        title(f"The ProRes encoder beside FFmpeg's, {raster[0]}x{raster[1]}")
        output = run_program(bin_dir, "prores_speed", *raster, timeout=600)
        print(output, end="", flush=True)
        for path, other, times in re.findall(r"natural +(avx\w+) at (\w+)'s size: ([\d.]+)x", output):
            goal = PRORES_GOALS[other, path]
            row(f"{other} : own, {path}, one core", f"{times} times", f"at least {goal}", float(times) >= goal)
        title(f"The ProRes decoder beside FFmpeg's, {raster[0]}x{raster[1]}, one core")
        print(run_program(bin_dir, "prores_decoding", *raster, timeout=600), end="", flush=True)


def topic_clips(bin_dir):
    bench_clips.measure(sys.modules[__name__], bin_dir)


TOPICS = {"engine": topic_engine, "recording": topic_recording, "live": topic_live, "ee": topic_ee, "cue": topic_cue,
          "store": topic_store, "codecs": topic_codecs, "media": topic_media, "rollover": topic_rollover,
          "clips": topic_clips, "prores": topic_prores}


def machine():
    """The kind of machine, in a line."""
    model = "unknown processor"
    with open("/proc/cpuinfo", encoding="utf-8", errors="replace") as info:
        for line in info:
            if line.startswith("model name"):
                model = line.partition(":")[2].strip()
                break
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    return f"{model}, {os.cpu_count()} cores, {memory:.0f} GB; load at the start {os.getloadavg()[0]:.1f}"


def main():
    if len(sys.argv) < 2 or any(name not in TOPICS for name in sys.argv[2:]):
        sys.exit(f"usage: bench.py <folder of the programs> [{' '.join(TOPICS)}]")
    if os.geteuid() != 0:
        sys.exit("bench.py: needs root for a medium of its own")
    began = time.monotonic()
    print(machine())
    missing = 0
    for name in sys.argv[2:] or TOPICS:
        try:
            TOPICS[name](sys.argv[1])
        except (rig.Failed, subprocess.SubprocessError, OSError, ValueError, KeyError) as error:
            missing += 1
            print(f"\n{name} could not be measured: {error}", flush=True)
    print(f"\n{time.monotonic() - began:.0f} s in all")
    sys.exit(1 if missing else 0)


if __name__ == "__main__":
    main()
