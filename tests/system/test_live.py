"""Long live recordings of pictures as hard to code as a camera's, in ProRes 422 HQ: from medium to medium, without a
dropped frame, in steady memory. RV_LIVE_MINUTES says how long each is."""

import json
import os
import subprocess
import time

import rig
from rig import Recorder, check, main, stream_of, wait_until
from test_rollover import Volume, first_in_line

MINUTES = float(os.environ.get("RV_LIVE_MINUTES", "10"))
HQ = 1                  # of EncodeType
IN_RECORD = 2
PACE = 2                # seconds from look to look
REMOVED_AT_ONCE = 8 << 20
TICKS = os.sysconf("SC_CLK_TCK")
# Raster, frames a second, size of each of the two media, and the cores that its coding may take.
RECORDINGS = {
    "live_1080p60": ("1920x1080", 60, "4g", 1 / 3),
    "live_2160p30": ("3840x2160", 30, "6g", None),
    "live_2160p60": ("3840x2160", 60, "6g", None),
}


def resident_mb(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        for line in status:
            if line.startswith("RssAnon"):
                return int(line.split()[1]) / 1024
    return 0


def thread_seconds(pid):
    """Processor time of the living threads, by kind, and of all that have ever been."""
    with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
        fields = stat.read().rpartition(")")[2].split()
    spent = {"all": (int(fields[11]) + int(fields[12])) / TICKS}
    for number in os.listdir(f"/proc/{pid}/task"):
        try:
            with open(f"/proc/{pid}/task/{number}/stat", encoding="ascii") as stat:
                head, _, rest = stat.read().rpartition(")")
        except OSError:
            continue
        name, fields = head.partition("(")[2], rest.split()
        spent[name] = spent.get(name, 0) + (int(fields[11]) + int(fields[12])) / TICKS
    return spent


class LiveRecorder(Recorder):
    """A recorder with two media in memory and a camera."""

    def __init__(self, bin_dir, raster, rate, size):
        super().__init__(bin_dir, source="bus:/rvd_input_0", medium="none")
        self.raster, self.rate = raster, rate
        self.volumes = [Volume(path, "tmpfs", size) for path in (self.medium, os.path.join(self.dir, "slot2"))]

    def start_media(self):
        self.spawn("rvmedia", *[word for volume in self.volumes for word in ("--slot", volume.path)])

    def start(self):
        self.spawn("rvcam", "--size", self.raster, "--rate", str(self.rate), "--pattern", "natural",
                   preexec_fn=first_in_line)
        super().start()
        wait_until("the camera is seen", lambda: self.get("InputFormat") != 0, 60)
        self.set("EncodeType", HQ)
        self.set("RolloverEnable", 1)
        self.wait_for("RolloverPath", self.volumes[1].path)
        time.sleep(2)
        return self

    def stop(self):
        super().stop()
        for volume in self.volumes:
            subprocess.run(["umount", "-l", volume.path], stderr=subprocess.DEVNULL, check=False)

    def written(self):
        """The paths of the clips on both media in the order of recording."""
        paths = [os.path.join(volume.path, name) for volume in self.volumes for name in volume.clips()]
        return sorted(paths, key=lambda path: int((os.path.basename(path)[:-4].split("_") + ["1"])[1]))


def removed(path):
    """Bit by bit: who gives back gigabytes of memory at once holds up others."""
    size = os.path.getsize(path)
    while size > 0:
        size = max(0, size - REMOVED_AT_ONCE)
        os.truncate(path, size)
        time.sleep(0.005)
    os.remove(path)


def at_idle(*command):
    """The output of a program that takes only time that nobody else wants."""
    return subprocess.run(["chrt", "--idle", "0", *command], capture_output=True, check=True).stdout


def numbers_in(clip, width, where, count):
    """The numbers in the pictures from a place in the clip on, at most so many."""
    lines = at_idle("ffmpeg", "-v", "error", "-threads", "1", *where, "-i", clip, "-map", "0:v:0", "-frames:v", str(count),
                    "-vf", f"crop={width}:2:0:{rig.BAR_LINES // 2},format=gray", "-fps_mode", "passthrough",
                    "-f", "rawvideo", "-")
    return [rig.read_bar(lines[at:at + width]) for at in range(0, len(lines), width * 2)]


def numbers_of(clip):
    """Number of the first picture of a clip, and of the last; how many there are."""
    info = json.loads(at_idle("ffprobe", "-v", "error", "-show_streams", "-of", "json", clip))
    video = stream_of(info, "video")
    width, frames = int(video["width"]), int(video["nb_frames"])
    return numbers_in(clip, width, [], 1)[0], numbers_in(clip, width, ["-sseof", "-0.1"], 20)[-1], frames


class Reel:
    """What has been recorded: each clip is looked at once it is closed, and makes room."""

    def __init__(self, recorder):
        self.recorder = recorder
        self.frames = self.clips = 0
        self.last = None

    def take(self, isOver=False):
        paths = self.recorder.written()
        for path in paths if isOver else paths[:-1]:
            if isOver or self.closed() > self.clips:
                self.join(path)

    def closed(self):
        return self.recorder.log_text().count("STREAM: Close is Done")

    def join(self, path):
        first, last, frames = numbers_of(path)
        check(None not in (first, last) and last - first + 1 == frames, f"{path}: {frames} frames, {first} to {last}")
        check(self.last is None or first == self.last + 1, f"{path} begins with {first} after {self.last}")
        self.frames, self.clips, self.last = self.frames + frames, self.clips + 1, last
        removed(path)


def record(recorder, reel):
    """Records for the time; the memory that the daemon took, and the time of each kind of thread."""
    daemon = recorder.processes["rvd"].pid
    recorder.do("record")
    begun, before, memory = time.monotonic(), thread_seconds(daemon), []
    while time.monotonic() - begun < MINUTES * 60:
        time.sleep(PACE)
        state = recorder.status()
        check(state["stateNumber"] == IN_RECORD, f"after {time.monotonic() - begun:.0f} s: {json.dumps(state)}\n"
              + recorder.log_text()[-1500:])
        reel.take()
        memory.append(resident_mb(daemon))
    wall = time.monotonic() - begun
    spent = {name: (seconds - before.get(name, 0)) / wall for name, seconds in thread_seconds(daemon).items()}
    recorder.do("stop")
    return memory, spent


def recorded(name):
    raster, rate, size, cores = RECORDINGS[name]

    def test(bin_dir):
        with LiveRecorder(bin_dir, raster, rate, size) as recorder:
            recorder.start()
            reel = Reel(recorder)
            memory, spent = record(recorder, reel)
            written = len(recorder.written())
            wait_until("the clips are closed", lambda: reel.closed() == reel.clips + written, 30)
            reel.take(isOver=True)
            busiest = sorted(spent.items(), key=lambda item: -item[1])[:6]
            print(f"       {reel.frames} frames in {reel.clips} clips; of a core: "
                  + ", ".join(f"{kind} {share:.2f}" for kind, share in busiest), flush=True)
            early, late = max(memory[:max(1, len(memory) // 5)]), max(memory[-max(1, len(memory) // 5):])
            print(f"       coding: median {recorder.get('CodingTime')} ms; private memory {early:.0f} MB early, {late:.0f} MB late")
            check("dropped frame" not in recorder.log_text(), "a dropped frame was logged")
            check(reel.frames >= (MINUTES * 60 - 1) * rate, f"{reel.frames} frames")
            check(late < early * 1.1 + 10, f"memory grows from {early:.0f} to {late:.0f} MB")
            if cores:
                coding = sum(share for kind, share in spent.items() if "coder" in kind)
                check(0 < coding <= cores, f"coding takes {coding:.2f} of a core")
    test.__name__ = name
    return test


def long():
    """For "make soak"."""
    return [recorded(name) for name in RECORDINGS]


if __name__ == "__main__":
    main(long())
