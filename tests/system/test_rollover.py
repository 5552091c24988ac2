"""Recordings that go on on the next medium: real file systems, every frame, sample and timecode label compared."""

import os
import subprocess
import sys
import time
from array import array

import rig
from rig import Recorder, check, clip_numbers, main, probe, stream_of, wait_until
from test_media import consecutive, fill_to, free_percent, reasons, said, wait_said

FORMAT = ("320x180", 30000, 1001)
CHANNELS = 2
SAMPLE_RATE = 48000
FIRST_LABEL = "10:00:50;00"
FPS = 30
ROLLOVER_LEVEL = 10.4    # rounds to 10 %
VITC = 1
IN_RECORD, STANDBY_OFF = 2, 1
MAKERS = {"ext4": ["mkfs.ext4", "-q", "-m", "0", "-E", "lazy_itable_init=0"], "xfs": ["mkfs.xfs", "-q"]}
SIZES = {"tmpfs": "64m", "ext4": "64m", "xfs": "320m"}


class Volume:
    """A small medium of its own kind, mounted at a slot of the recorder."""

    def __init__(self, path, kind="tmpfs", size=None):
        self.path = path
        self.kind = kind
        self.size = size or SIZES[kind]
        self.image = None
        os.makedirs(path, exist_ok=True)
        if kind != "tmpfs":
            self.image = path + ".img"
            subprocess.run(["truncate", "-s", self.size, self.image], check=True)
            subprocess.run([*MAKERS[kind], self.image], check=True)
        self.mount()

    def mount(self, options="rw"):
        source = ["-t", "tmpfs", "-o", f"size={self.size},{options}", "tmpfs"]
        if self.image:
            source = ["-o", f"loop,{options}", self.image]
        subprocess.run(["mount", *source, self.path], check=True)

    def remount(self, options):
        subprocess.run(["mount", "-o", f"remount,{options}", self.path], check=True)

    def pull(self):
        subprocess.run(["umount", "-l", self.path], check=True)

    def empty(self):
        """Makes free what other files than clips take."""
        ballast = os.path.join(self.path, ".ballast")
        if os.path.exists(ballast):
            os.remove(ballast)

    def clips(self):
        return sorted(name for name in os.listdir(self.path) if name.endswith(".mov"))


class RolloverRecorder(Recorder):
    """A recorder with a slot for each kind of medium and a camera that numbers pictures and samples."""

    def __init__(self, bin_dir, kinds):
        super().__init__(bin_dir, source="bus:/rvd_input_0", medium="none")
        names = [self.medium] + [os.path.join(self.dir, f"slot{i + 2}") for i in range(len(kinds) - 1)]
        self.volumes = [Volume(name, kind) for name, kind in zip(names, kinds)]

    def start_media(self):
        self.spawn("rvmedia", *[word for volume in self.volumes for word in ("--slot", volume.path)])

    def start(self):
        raster, num, den = FORMAT
        self.spawn("rvcam", "--size", raster, "--rate", f"{num}/{den}", "--timecode", FIRST_LABEL,
                   "--sound", "count", "--channels", CHANNELS, "--pattern", "ramp")
        super().start()
        self.wait_for("InputFormat", 1)
        self.set("TcgSource", VITC)
        self.set("RolloverEnable", 1)
        for volume in self.volumes:
            wait_said(self, f"clips on {volume.path}")
        time.sleep(1)
        return self

    def spawn(self, name, *arguments, **options):
        return super().spawn(name, *map(str, arguments), **options)

    def stop(self):
        super().stop()
        for volume in self.volumes:
            subprocess.run(["umount", "-l", volume.path], stderr=subprocess.DEVNULL, check=False)

    def records(self):
        return self.status()["stateNumber"] == IN_RECORD

    def next_volume(self):
        """The volume that the store names as the next one."""
        def named():
            path, active = self.get("RolloverPath"), self.get("ActivePath")
            return [volume for volume in self.volumes if volume.path == path != active]
        return wait_until("there is a next medium", named)[0]

    def finish(self, closes):
        """Ends the recording, after so many closed clips in all."""
        if self.records():
            self.do("stop")
        wait_until("all clips are closed", lambda: self.log_text().count("STREAM: Close is Done") >= closes, 20)

    def part(self, number, volume):
        """The path of a part of the only recording, from 1."""
        name = "R001C0001.mov" if number == 1 else f"R001C0001_{number}.mov"
        path = os.path.join(volume.path, name)
        check(os.path.exists(path), f"{name} on {volume.path}: {volume.clips()}; {reasons(self)}")
        return path


# What an independent reader finds in a clip

def samples_before(frame):
    _, num, den = FORMAT
    return frame * SAMPLE_RATE * den // num


def counts(clip):
    """The numbers of the clip's samples; every second channel has the complement."""
    result = subprocess.run(["ffmpeg", "-v", "error", "-i", clip, "-map", "0:a:0", "-f", "s32le", "-"],
                            capture_output=True, check=True)
    values = array("i", result.stdout)
    if sys.byteorder == "big":
        values.byteswap()
    numbers = [value >> 8 & 0xFFFFFF for value in values[::CHANNELS]]
    others = [~(value >> 8) & 0xFFFFFF for value in values[1::CHANNELS]]
    check(numbers == others, f"{clip}: the channels differ")
    return numbers


def label_number(label):
    """The place of a timecode label, drop-frame with a semicolon, in the row of all labels."""
    hours, minutes, rest = label.replace(";", ":").split(":", 2)
    seconds, frames = rest.split(":")
    minutes = int(hours) * 60 + int(minutes)
    number = (minutes * 60 + int(seconds)) * FPS + int(frames)
    return number - 2 * (minutes - minutes // 10) if ";" in label else number


class Part:
    """One clip as FFmpeg sees it."""

    def __init__(self, clip):
        info = probe(clip)
        self.name = os.path.basename(clip)
        self.numbers = clip_numbers(clip)
        self.counts = counts(clip)
        self.label = stream_of(info, "data")["tags"]["timecode"]
        packets = int(stream_of(info, "video")["nb_read_packets"])
        check(len(self.numbers) == packets > 0, f"{self.name}: {len(self.numbers)} of {packets} frames")


def check_joined(clips):
    """The clips in a row are one recording without a seam; answers its number of frames."""
    parts = [Part(clip) for clip in clips]
    names = [part.name for part in parts]
    numbers = [number for part in parts for number in part.numbers]
    check(consecutive(numbers), f"pictures of {names}: {[(p.numbers[0], p.numbers[-1]) for p in parts]}")
    sound = [count for part in parts for count in part.counts]
    check(sound == list(range(sound[0], sound[0] + len(sound))),
          f"sound of {names}: {[(p.counts[0], p.counts[-1]) for p in parts]}")
    _, num, den = FORMAT
    for first in range(len(parts)):
        frames = sum(len(part.numbers) for part in parts[first:])
        samples = sum(len(part.counts) for part in parts[first:])
        check(abs(samples - frames * SAMPLE_RATE * den / num) < 1, f"{samples} samples of {frames} frames from {first}")
    apart = [part.counts[0] - samples_before(part.numbers[0]) for part in parts]
    check(max(apart) - min(apart) <= 1 and abs(apart[0]) <= 2, f"sound to picture: {apart}")
    for part in parts:
        check(";" in part.label, f"{part.name} begins at {part.label}")
        due = label_number(FIRST_LABEL) + part.numbers[0]
        check(label_number(part.label) == due, f"{part.name} begins at {part.label}, not at {due}")
    return len(numbers)


# Rollovers that go well

def ten_rollovers_in_a_row_have_no_seam(bin_dir):
    with RolloverRecorder(bin_dir, ["ext4", "xfs", "tmpfs"]) as recorder:
        recorder.start()
        recorder.do("record")
        order = [recorder.volumes[0]]
        for _ in range(10):
            order.append(recorder.next_volume())
            time.sleep(0.3)
            fill_to(order[-2].path, ROLLOVER_LEVEL)
            recorder.wait_for("ActivePath", order[-1].path)
            order[-2].empty()
            check(recorder.records(), f"the recording has ended: {reasons(recorder)}")
        time.sleep(0.5)
        recorder.finish(11)
        check(len({volume.kind for volume in order}) == 3, "all kinds of media take part")
        frames = check_joined([recorder.part(i + 1, volume) for i, volume in enumerate(order)])
        check("dropped frame" not in recorder.log_text(), "frames were dropped")
        print(f"       {frames} frames in 11 clips")


if __name__ == "__main__":
    main([ten_rollovers_in_a_row_have_no_seam])
