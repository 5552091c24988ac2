"""Long live recordings of pictures as hard to code as a camera's, in ProRes 422 HQ: from medium to medium, without a
dropped frame, in steady memory. RV_LIVE_MINUTES says how long each is."""

import json
import os
import subprocess
import time

import rig
from rig import check, main, stream_of, wait_until
from test_rollover import MAKERS, Volume, VolumeRecorder, first_in_line

MINUTES = float(os.environ.get("RV_LIVE_MINUTES", "10"))
HQ = 1                  # of EncodeType
IN_RECORD = 2
PACE = 2                # seconds from look to look
# Raster, frames a second, size of each of the two media, and the cores that its coding may take.
RECORDINGS = {
    "live_1080p60": ("1920x1080", 60, "4G", 1 / 3),
    "live_2160p30": ("3840x2160", 30, "6G", None),
    "live_2160p60": ("3840x2160", 60, "6G", None),
}


class MemoryVolume(Volume):
    """A file system on a block device whose memory is all there from the beginning, like the blocks of a disk: virtual
    machines may take milliseconds to find memory that has not been in use."""

    def __init__(self, path, size):
        self.ground = path + ".memory"
        os.makedirs(self.ground)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", self.ground], check=True)
        super().__init__(path, "ext4", size)

    def make_image(self):
        self.image = os.path.join(self.ground, "image")
        subprocess.run(["dd", "if=/dev/zero", f"of={self.image}", "bs=1M", f"count={self.size}", "iflag=count_bytes"],
                       check=True, stderr=subprocess.DEVNULL)
        subprocess.run([*MAKERS[self.kind], "-E", "nodiscard", self.image], check=True)

    def mount(self, options="rw"):
        device = subprocess.run(["losetup", "--find", "--show", "--direct-io=on", self.image], check=True,
                                capture_output=True, text=True).stdout.strip()
        subprocess.run(["mount", "-o", options, device, self.path], check=True)
        subprocess.run(["losetup", "--detach", device], check=True)  # as soon as it is unmounted

    def remove(self):
        subprocess.run(["umount", "-l", self.ground], check=False)


class LiveRecorder(VolumeRecorder):
    """A recorder with two media in memory and a camera."""

    def __init__(self, bin_dir, raster, rate, size):
        super().__init__(bin_dir, [])
        names = [self.medium, os.path.join(self.dir, "slot2")]
        self.volumes = [MemoryVolume(name, size) for name in names]
        self.raster, self.rate = raster, rate

    def start(self):
        self.spawn("rvcam", "--size", self.raster, "--rate", self.rate, "--pattern", "natural", preexec_fn=first_in_line)
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
            volume.remove()

    def written(self):
        """The paths of the clips on both media in the order of recording."""
        paths = [os.path.join(volume.path, name) for volume in self.volumes for name in volume.clips()]
        return sorted(paths, key=lambda path: int((os.path.basename(path)[:-4].split("_") + ["1"])[1]))


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
        os.remove(path)


def record(recorder, reel):
    """Records for the time; the memory that the daemon took, and the time of each kind of thread."""
    daemon = recorder.processes["rvd"].pid
    recorder.do("record")
    begun, cpu, threads, memory = time.monotonic(), rig.cpu_seconds(daemon), rig.thread_seconds(daemon), []
    while time.monotonic() - begun < MINUTES * 60:
        time.sleep(PACE)
        state = recorder.status()
        check(state["stateNumber"] == IN_RECORD, f"after {time.monotonic() - begun:.0f} s: {json.dumps(state)}\n"
              + recorder.log_text()[-1500:])
        reel.take()
        memory.append(rig.status_megabytes(daemon, "RssAnon"))
    wall = time.monotonic() - begun
    spent = {"all": rig.cpu_seconds(daemon) - cpu, **rig.spent_by_kind(threads, rig.thread_seconds(daemon))}
    recorder.do("stop")
    return memory, {kind: seconds / wall for kind, seconds in spent.items()}


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
