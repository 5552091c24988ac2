"""Clips beside those of other programs: what is left of them when their writer is killed, what writing and opening
them costs, and how long the event loop is away while one is recorded."""

import os
import resource
import shutil
import subprocess
import tempfile
import time

import rig

KILLS = 8
KILLED_AFTER = (2.0, 5.0)   # seconds, from the first to the last of them
RATE = 25
COPIED_FRAMES = 600
LOOP_SECONDS = 25
LONG_HOURS = 10


def make_source(path, size, seconds, profile):
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc2=s={size}:r={RATE}:d={seconds}",
                    "-f", "lavfi", "-i", f"aevalsrc=sin(t*440)|sin(t*880):s=48000:d={seconds}", "-vf", "noise=alls=12",
                    "-c:v", "prores_aw", "-profile:v", str(profile), "-c:a", "pcm_s24le",
                    "-timecode", "10:00:00:00", path], check=True)


def readable_seconds(path):
    """What ffprobe finds of a clip's pictures; nothing when it refuses the file."""
    found = subprocess.run(["ffprobe", "-v", "quiet", "-select_streams", "v", "-count_packets", "-show_entries",
                            "stream=nb_read_packets", "-of", "csv=p=0", path],
                           capture_output=True, text=True, check=False).stdout.strip()
    return int(found) / RATE if found.isdigit() else 0.0


def writers(copy, source):
    """Name and command of each program that writes the source's frames in real time to the file that follows it."""
    ffmpeg = ["ffmpeg", "-v", "quiet", "-nostdin", "-re", "-i", source, "-c", "copy"]
    parts = f"filesrc location={source} ! qtdemux name=d  {{}} name=m ! filesink location={{}} " \
            "d.video_0 ! queue ! identity sync=true ! m.video_0  d.audio_0 ! queue ! identity sync=true ! m.audio_0"

    def gst(muxer):
        return lambda path: ["gst-launch-1.0", "-q", *parts.format(muxer, path).split()]
    return (("recorder", lambda path: [copy, "paced", source, path]),
            ("ffmpeg", lambda path: [*ffmpeg, path]),
            ("ffmpeg, frag_keyframe+empty_moov", lambda path: [*ffmpeg, "-movflags", "frag_keyframe+empty_moov", path]),
            ("GStreamer qtmux", gst("qtmux")),
            ("GStreamer qtmux, fragments of 0.5 s", gst("qtmux fragment-duration=500")),
            ("GStreamer qtmux, index kept in front", gst("qtmux reserved-max-duration=60000000000 "
                                                         "reserved-moov-update-period=1000000000")))


def kill_all_at(programs, folder, seconds):
    """Starts every program, kills each so many seconds after its clip began; the seconds that each has lost."""
    running = []
    for number, (_, command) in enumerate(programs):
        path = os.path.join(folder, f"{number}.mov")
        process = subprocess.Popen(command(path), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        running.append([process, path, None])
    end = time.monotonic() + 30
    while running and any(row[0].poll() is None for row in running):
        now = time.monotonic()
        for row in running:
            if row[2] is None and os.path.exists(row[1]) and os.path.getsize(row[1]) > 0:
                row[2] = now
            if row[0].poll() is None and (now > end or row[2] and now >= row[2] + seconds):
                row[0].kill()
                row[0].wait()
        time.sleep(0.002)
    lost = []
    for _, path, began in running:
        rig.check(began, f"{path} was never begun")
        found = readable_seconds(path)
        lost.append((max(0.0, seconds - found), found == 0))
        os.unlink(path)
    return lost


def measure_kills(bench, copy, folder):
    source = os.path.join(folder, "source.mov")
    make_source(source, "1280x720", 12, 2)
    programs = writers(copy, source)
    outcomes = []
    for kill in range(KILLS):
        seconds = KILLED_AFTER[0] + (KILLED_AFTER[1] - KILLED_AFTER[0]) * kill / (KILLS - 1)
        outcomes.append(kill_all_at(programs, folder, seconds))
    bench.title(f"Writers of clips killed at the same {KILLS} moments, the same frames in real time: seconds lost")
    for number, (name, _) in enumerate(programs):
        lost = [outcome[number][0] for outcome in outcomes]
        unreadable = sum(outcome[number][1] for outcome in outcomes)
        goal = ("at most 1 s", max(lost) <= 1.0 and unreadable == 0) if number == 0 else ()
        bench.row(f"{name}, worst of {KILLS}", f"{max(lost):.2f} s", *goal)
        bench.row(f"{name}, on average", f"{sum(lost) / KILLS:.2f} s")
        bench.row(f"{name}, clips that do not open", f"{unreadable}")


def child_cpu(command):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def measure_writing(bench, copy, folder):
    source, ours, theirs = (os.path.join(folder, name) for name in ("big.mov", "ours.mov", "theirs.mov"))
    make_source(source, "1920x1080", COPIED_FRAMES / RATE, 2)
    megabytes = os.path.getsize(source) / 1e6
    spent = []
    for _ in range(5):
        for path in (ours, theirs):
            if os.path.exists(path):
                os.unlink(path)
        spent.append((child_cpu([copy, "fast", source, ours]),
                      child_cpu(["ffmpeg", "-v", "error", "-nostdin", "-i", source, "-c", "copy", theirs])))
    one, other = (sorted(column)[2] / megabytes * 1000 for column in zip(*spent))
    bench.title(f"Processor time of reading and writing a clip again, {megabytes:.0f} MB in memory, median of 5")
    bench.row("recorder's reader and writer, a megabyte", f"{one:.3f} ms")
    bench.row("ffmpeg -c copy, a megabyte", f"{other:.3f} ms")
    bench.row("recorder : ffmpeg", f"{one / other:.2f}", "at most 1.00", one / other <= 1.0)
    for path in (source, ours, theirs):
        os.unlink(path)


def measure_opening(bench, bin_dir, copy, folder):
    bench.title("Opening a clip and reading its middle frame, in memory")
    for name, frames in (("a minute", 60 * RATE), (f"{LONG_HOURS} hours", LONG_HOURS * 3600 * RATE)):
        path = os.path.join(folder, "long.mov")
        subprocess.run([copy, "long", path, str(frames)], check=True)
        output = bench.run_program(bin_dir, "clip_copy", "open", path)
        bench.latency_rows(f"a clip of {name}", output, 40, "ms")
        os.unlink(path)


def turns_between(path, begin, end):
    """Turns of the event loop in a stretch of time, in ms and in order of length: wall time, processor time, and wall
    time of those that waited for something, others than the next event."""
    rows = []
    with open(path, encoding="ascii") as file:
        for line in file:
            began, wall, cpu, waits = map(int, line.split())
            if begin <= began / 1e9 <= end:
                rows.append((wall / 1000, cpu / 1000, wall / 1000 if waits else 0.0))
    return [sorted(column) for column in zip(*rows)]


def measure_loop(bench, bin_dir, folder):
    probe = os.path.join(os.path.dirname(os.path.abspath(bin_dir)), "bench", "loop_probe.so")
    rig.check(os.path.exists(probe), "loop_probe.so is not built")
    log = os.path.join(folder, "turns")
    with rig.Recorder(bin_dir, source_format=f"1920x1080p{RATE}") as recorder:
        plain = recorder.environment
        recorder.start_store()
        recorder.start_media()
        recorder.environment = dict(plain, LD_PRELOAD=probe, RV_LOOP_TURNS=log)
        recorder.start_daemon()
        recorder.environment = plain
        rig.wait_until("the recorder answers", lambda: recorder.ctl("status").returncode == 0)
        time.sleep(2)
        recorder.do("record")
        begin = time.monotonic()
        time.sleep(LOOP_SECONDS)
        end = time.monotonic()
        is_recording = recorder.get("TransportState") == bench.IN_RECORD
        recorder.do("stop")
        recorder.stop()
        rig.check(is_recording, "the recording ended early: too little of the machine is free")
    wall, cpu, waited = turns_between(log, begin, end)
    bench.title(f"Turns of the event loop in {LOOP_SECONDS} s of recording 1080p{RATE}: no call on it is longer")

    def at(values, part):
        return values[min(len(values) - 1, int(len(values) * part))]
    bench.row(f"median of {len(wall)}", f"{at(wall, 0.5):.2f} ms")
    bench.row("99.9th percentile", f"{at(wall, 0.999):.2f} ms", "under 5 ms", at(wall, 0.999) < 5)
    bench.row("worst", f"{wall[-1]:.2f} ms")
    bench.row("99.9th percentile of their processor time", f"{at(cpu, 0.999):.2f} ms")
    bench.row(f"worst of the {sum(value > 0 for value in waited)} that waited for a lock or a file", f"{waited[-1]:.2f} ms")


def measure(bench, bin_dir):
    copy = os.path.join(os.path.dirname(os.path.abspath(bin_dir)), "bench", "clip_copy")
    rig.check(os.path.exists(copy), "clip_copy is not built")
    folder = tempfile.mkdtemp(prefix="bench-", dir="/dev/shm")
    try:
        if shutil.which("gst-launch-1.0"):
            measure_kills(bench, copy, folder)
        measure_writing(bench, copy, folder)
        measure_opening(bench, bin_dir, copy, folder)
        measure_loop(bench, bin_dir, folder)
    finally:
        shutil.rmtree(folder, ignore_errors=True)
