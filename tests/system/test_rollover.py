"""Recordings that go on on the next medium: real file systems, every frame, sample and timecode label compared."""

import os
import subprocess
import time

from clipcheck import sound_numbers
from hangingmedium import HangingMedium
from rig import Failed, Recorder, check, clip_numbers, main, probe, stream_of, wait_until
from stallwitness import StallWitness
from test_media import consecutive, fill_to, reasons, wait_said

FORMAT = ("320x180", 30000, 1001)
CHANNELS = 2
SAMPLE_RATE = 48000
FIRST_LABEL = "10:00:50;00"
FPS = 30
ROLLOVER_LEVEL = 10.4    # rounds to 10 %
VITC = 1
IN_RECORD, STANDBY_OFF = 2, 1
MACHINE_STALLS = 0.1     # seconds: three frames
MAKERS = {"ext4": ["mkfs.ext4", "-q", "-m", "0", "-E", "lazy_itable_init=0", "-e", "remount-ro"], "xfs": ["mkfs.xfs", "-q"]}
SIZES = {"tmpfs": "128m", "ext4": "64m", "xfs": "320m"}


def first_in_line():
    """What real cameras have and a process on a busy machine has not: they are never late."""
    try:
        os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
    except OSError:
        pass


class Volume:
    """A small medium of its own kind, mounted at a slot of the recorder."""

    def __init__(self, path, kind="tmpfs", size=None):
        self.path = path
        self.kind = kind
        self.size = size or SIZES[kind]
        self.image = None
        os.makedirs(path, exist_ok=True)
        if kind != "tmpfs":
            self.make_image()
        self.mount()

    def make_image(self):
        self.image = self.path + ".img"
        subprocess.run(["truncate", "-s", self.size, self.image], check=True)
        subprocess.run([*MAKERS[self.kind], self.image], check=True)

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


class VolumeRecorder(Recorder):
    """A recorder with a slot for each kind of medium and the input of a camera."""

    def __init__(self, bin_dir, kinds, size=None):
        super().__init__(bin_dir, source="bus:/rvd_input_0", medium="none")
        names = [self.medium] + [os.path.join(self.dir, f"slot{i + 2}") for i in range(len(kinds) - 1)]
        self.volumes = [Volume(name, kind, size) for name, kind in zip(names, kinds)]

    def start_media(self):
        self.spawn("rvmedia", *[word for volume in self.volumes for word in ("--slot", volume.path)])

    def spawn(self, name, *arguments, **options):
        return super().spawn(name, *map(str, arguments), **options)

    def stop(self):
        super().stop()
        for volume in self.volumes:
            subprocess.run(["umount", "-l", volume.path], stderr=subprocess.DEVNULL, check=False)


class RolloverRecorder(VolumeRecorder):
    """Its camera numbers pictures and samples."""

    disturbances = 0  # recordings that ended for want of a frame, in all

    def start(self):
        raster, num, den = FORMAT
        self.spawn("rvcam", "--size", raster, "--rate", f"{num}/{den}", "--timecode", FIRST_LABEL,
                   "--sound", "count", "--channels", CHANNELS, "--pattern", "ramp", preexec_fn=first_in_line)
        super().start()
        self.wait_for("InputFormat", 1)
        self.set("TcgSource", VITC)
        self.set("RolloverEnable", 1)
        for volume in self.volumes:
            wait_said(self, f"clips on {volume.path}")
        time.sleep(1)
        return self

    def stop(self):
        RolloverRecorder.disturbances += self.log_text().count("Recording stopped due to")
        super().stop()

    def records(self):
        return self.status()["stateNumber"] == IN_RECORD

    def next_volume(self):
        """The volume that the store names as the next one."""
        def named():
            path, active = self.get("RolloverPath"), self.get("ActivePath")
            return [volume for volume in self.volumes if volume.path == path != active]
        return wait_until("there is a next medium", named)[0]

    def active_volume(self):
        path = self.get("ActivePath")
        return next(volume for volume in self.volumes if volume.path == path)

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


def undisturbed(test):
    """A machine that stands still drops a frame or keeps the camera from its time, and the recorder says so. Where a
    witness beside the recorder has seen it stand still, too, the test is done once more; without one it has failed."""
    def tried(bin_dir):
        before = RolloverRecorder.disturbances
        with StallWitness() as witness:
            try:
                return test(bin_dir)
            except Failed as error:
                if RolloverRecorder.disturbances == before:
                    raise
                longest = witness.longest()
                if longest < MACHINE_STALLS:
                    raise Failed(f"{error} (the machine stood still for {longest * 1000:.0f} ms at most)") from error
        print(f"       {test.__name__} again: a frame was dropped, and the machine stood still for "
              f"{longest * 1000:.0f} ms", flush=True)
        return test(bin_dir)
    tried.__name__ = test.__name__
    return tried


# What an independent reader finds in a clip

def samples_before(frame):
    _, num, den = FORMAT
    return frame * SAMPLE_RATE * den // num


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
        self.counts = sound_numbers(clip, CHANNELS)
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

def rollovers_in_a_row(bin_dir, count):
    """One recording that goes round three media, which are made free again behind it."""
    with RolloverRecorder(bin_dir, ["ext4", "xfs", "tmpfs"]) as recorder:
        recorder.start()
        recorder.do("record")
        order = [recorder.volumes[0]]
        for _ in range(count):
            before = order[-1]
            recorder.next_volume()
            time.sleep(0.1)
            fill_to(before.path, ROLLOVER_LEVEL)
            # Which of the others it is, is the media service's business.
            wait_until("the next medium is active", lambda: recorder.active_volume() is not before)
            order.append(recorder.active_volume())
            before.empty()
            check(recorder.records(), f"the recording has ended: {reasons(recorder)}")
        time.sleep(0.5)
        recorder.finish(count + 1)
        check(len({volume.kind for volume in order}) == 3, "all kinds of media take part")
        frames = check_joined([recorder.part(i + 1, volume) for i, volume in enumerate(order)])
        check("dropped frame" not in recorder.log_text(), "frames were dropped")
        print(f"       {frames} frames in {count + 1} clips")


def ten_rollovers_in_a_row_have_no_seam(bin_dir):
    rollovers_in_a_row(bin_dir, 10)


def a_hundred_rollovers_have_no_seam(bin_dir):
    rollovers_in_a_row(bin_dir, 100)


# Media that are no good when their turn comes

def roll_over(recorder, before, after):
    """Fills the active volume and waits until the recording goes on on the next one."""
    fill_to(before.path, ROLLOVER_LEVEL)
    recorder.wait_for("ActivePath", after.path)
    check(recorder.records(), f"the recording has ended: {reasons(recorder)}")


def stops_by_itself(recorder):
    wait_until("the recording stops", lambda: not recorder.records(), 20)
    check(recorder.processes["rvd"].poll() is None, "the daemon is gone")


def frozen(volume):
    """Whoever writes to the volume waits until it is thawed."""
    class Frozen:
        def __enter__(self):
            subprocess.run(["fsfreeze", "-f", volume.path], check=True)

        def __exit__(self, *unused):
            subprocess.run(["fsfreeze", "-u", volume.path], check=True)
    return Frozen()


def only_media_that_can_be_written_are_next(bin_dir):
    with RolloverRecorder(bin_dir, ["tmpfs", "tmpfs", "tmpfs"]) as recorder:
        recorder.start()
        first, second = recorder.volumes[0], recorder.next_volume()
        third = (set(recorder.volumes) - {first, second}).pop()
        recorder.do("record")
        second.remount("ro")
        recorder.wait_for("RolloverPath", third.path)
        third.pull()
        recorder.wait_for("RolloverPath", "")
        fill_to(first.path, 9.9)  # would roll over, were there a medium
        time.sleep(1)
        check(recorder.records(), f"it goes on to the stop level: {reasons(recorder)}")
        third.mount()
        recorder.wait_for("ActivePath", third.path)
        recorder.wait_for("RolloverPath", first.path)
        second.remount("rw")
        first.remount("ro")
        recorder.wait_for("RolloverPath", second.path)
        recorder.finish(2)
        check_joined([recorder.part(1, first), recorder.part(2, third)])


def without_a_next_medium_it_stops_with_the_clip_whole(bin_dir):
    with RolloverRecorder(bin_dir, ["ext4", "tmpfs"]) as recorder:
        recorder.start()
        first, second = recorder.volumes
        second.remount("ro")
        recorder.wait_for("RolloverPath", "")
        recorder.do("record")
        time.sleep(1)
        fill_to(first.path, 8.4)
        stops_by_itself(recorder)
        recorder.finish(1)
        check(check_joined([recorder.part(1, first)]) > 20, "a clip of a second")
        check(not second.clips(), "nothing on the read-only medium")


def a_medium_pulled_while_the_old_clip_closes_gives_way_to_another(bin_dir):
    with RolloverRecorder(bin_dir, ["ext4", "tmpfs", "tmpfs"]) as recorder:
        recorder.start()
        first, second = recorder.volumes[0], recorder.next_volume()
        third = (set(recorder.volumes) - {first, second}).pop()
        recorder.do("record")
        time.sleep(1)
        fill_to(first.path, ROLLOVER_LEVEL)
        with frozen(first):
            recorder.wait_log("STREAM: Reopen Record Stream")
            second.pull()
            recorder.wait_for("RolloverPath", third.path)
            time.sleep(2.3)
            check("STREAM: Close is Done" not in recorder.log_text(), "the close waits for its medium")
        recorder.wait_for("ActivePath", third.path)
        time.sleep(1)
        recorder.finish(2)
        check(not os.listdir(second.path), "nothing is left where the medium was")
        check_joined([recorder.part(1, first), recorder.part(2, third)])


def the_recorder_lives_on_when_the_only_next_medium_is_pulled_in_a_rollover(bin_dir):
    with RolloverRecorder(bin_dir, ["ext4", "tmpfs"]) as recorder:
        recorder.start()
        first, second = recorder.volumes
        recorder.wait_for("RolloverPath", second.path)
        recorder.do("record")
        time.sleep(1)
        fill_to(first.path, ROLLOVER_LEVEL)
        with frozen(first):
            recorder.wait_log("STREAM: Reopen Record Stream")
            second.pull()
            recorder.wait_for("RolloverPath", "")
        recorder.wait_log("Rollover path is empty!")
        stops_by_itself(recorder)
        check_joined([recorder.part(1, first)])
        recorder.wait_for("StorageInUse", 2)
        # There is room again, and everybody knows where.
        first.empty()
        check(recorder.get("ActivePath") == first.path, "the active medium")
        closed = recorder.log_text().count("STREAM: Close is Done")
        recorder.do("record")
        time.sleep(0.5)
        recorder.finish(closed + 1)
        check(len(first.clips()) == 2, f"{first.clips()}")


def a_medium_that_fails_unseen_ends_the_recording_and_gives_way(bin_dir):
    with RolloverRecorder(bin_dir, ["tmpfs", "ext4"]) as recorder:
        recorder.start()
        first, second = recorder.volumes
        recorder.wait_for("RolloverPath", second.path)
        recorder.do("record")
        time.sleep(1)
        device = os.path.basename(subprocess.run(["findmnt", "-no", "SOURCE", second.path], capture_output=True,
                                                 text=True, check=True).stdout.strip())
        fill_to(first.path, ROLLOVER_LEVEL)
        with open(f"/sys/fs/ext4/{device}/trigger_fs_error", "w", encoding="ascii") as trigger:
            trigger.write("rollover")
        stops_by_itself(recorder)
        recorder.wait_log("STREAM: Open Error 30")
        recorder.wait_for("StorageInUse", 2)
        check_joined([recorder.part(1, first)])
        first.empty()
        recorder.wait_for("ActivePath", first.path)
        recorder.do("record")
        recorder.wait_for("RolloverPath", "")


def a_next_medium_that_falls_silent_or_dies_gives_way(bin_dir):
    with RolloverRecorder(bin_dir, ["tmpfs", "tmpfs"]) as recorder:
        with HangingMedium(os.path.join(recorder.dir, "hanging")) as silent, \
                HangingMedium(os.path.join(recorder.dir, "dying")) as dying:
            recorder.start()
            first, second = recorder.volumes
            recorder.do("record")
            recorder.set("RolloverPath", silent.path)
            wait_said(recorder, f"clips on {silent.path}")
            check(recorder.get("RolloverPath") == silent.path, "a client's choice with room")
            silent.hang()
            recorder.wait_for("RolloverPath", second.path)
            recorder.set("RolloverPath", dying.path)
            wait_said(recorder, f"clips on {dying.path}")
            check(recorder.get("RolloverPath") == dying.path, "a client's choice with room")
            dying.die()
            recorder.wait_for("RolloverPath", second.path)
            roll_over(recorder, first, second)
            recorder.finish(2)
            check_joined([recorder.part(1, first), recorder.part(2, second)])


def a_service_that_was_away_during_a_rollover_catches_up(bin_dir):
    with RolloverRecorder(bin_dir, ["tmpfs", "tmpfs"]) as recorder:
        recorder.start()
        first, second = recorder.volumes
        recorder.wait_for("RolloverPath", second.path)
        recorder.do("record")
        time.sleep(0.5)
        recorder.processes["rvmedia"].kill()
        recorder.processes["rvmedia"].wait()
        fill_to(first.path, ROLLOVER_LEVEL)
        recorder.wait_log(f"Rollover from {first.path} to {second.path} has completed.")
        recorder.wait_for("StorageInUse", 3)
        first.empty()
        recorder.start_media()
        recorder.wait_for("ActivePath", second.path)
        recorder.wait_for("RolloverPath", first.path)
        roll_over(recorder, second, first)
        recorder.finish(3)
        check_joined([recorder.part(1, first), recorder.part(2, second), recorder.part(3, first)])


def long():
    """What the quick run leaves out."""
    return [undisturbed(test) for test in [a_next_medium_that_falls_silent_or_dies_gives_way,
                                           a_hundred_rollovers_have_no_seam]]


if __name__ == "__main__":
    main([undisturbed(test) for test in [
        ten_rollovers_in_a_row_have_no_seam, only_media_that_can_be_written_are_next,
        without_a_next_medium_it_stops_with_the_clip_whole,
        a_medium_pulled_while_the_old_clip_closes_gives_way_to_another,
        the_recorder_lives_on_when_the_only_next_medium_is_pulled_in_a_rollover,
        a_medium_that_fails_unseen_ends_the_recording_and_gives_way,
        a_service_that_was_away_during_a_rollover_catches_up]])
