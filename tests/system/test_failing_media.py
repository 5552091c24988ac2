"""Recordings whose medium fails, stalls, hangs or is taken away: no frame is lost while there is another one."""

import errno
import os
import subprocess
import time

from failingmedium import FailingMedium
from rig import Recorder, check, main, wait_until
from test_hanging import Changes
from test_media import FORMAT, LoopMedium, Medium, fill_to, reasons, start, whole

FAILED, SLOW = "eParamAlarm1901", "eParamAlarm1906"
UNCOMPRESSED = 9        # of EncodeType
UNTIL_NEXT_CALL = 300   # milliseconds: a medium that nobody asks does not hang


class Stick(LoopMedium):
    """A medium that can be taken away."""

    @property
    def folder(self):
        return self.path

    def take_away(self):
        self.unmount()
        return time.time()

    def bring_back(self):
        def is_mounted():
            try:
                self.mount()
            except subprocess.CalledProcessError:
                return False
            return True
        wait_until("the image can be mounted again", is_mounted)


def clips_in(folder):
    return [os.path.join(folder, name) for name in sorted(os.listdir(folder)) if name.endswith(".mov")]


def choose(recorder, active, rollover):
    """Sets the media of the next recording, when nothing else is going on any more."""
    def is_so():
        if (recorder.get("ActivePath"), recorder.get("RolloverPath")) == (active, rollover):
            return True
        recorder.set("RolloverPath", rollover)
        recorder.set("ActivePath", active)
        return False
    wait_until("the media are chosen", is_so, step=0.2)
    time.sleep(0.3)


def alarm_after(changes, name, moment, seconds):
    """The first alarm raised since \\a moment (seconds since the epoch) with the milliseconds that it took."""
    def raised():
        return [(at - moment * 1000, bytes.fromhex(value).decode(errors="replace")) for value, at in changes.of(name) if at > moment * 1000 - 20 and value]
    return wait_until(f"{name} is raised", raised, seconds)[0]


def without_a_hole(before, after):
    """The frames of two clips as one recording; what both have counts once."""
    first, second = whole(before), whole(after)
    check(first[0] <= second[0] <= first[-1] + 1, f"{first[0]}..{first[-1]} and {second[0]}..{second[-1]}")
    return second[-1] - first[0] + 1, first[-1] + 1 - second[0]


class Stage:
    """One recorder for many faults: the medium under test is the active one, the recorder's own the spare."""

    def __init__(self, recorder):
        self.recorder = recorder
        self.changes = Changes(recorder)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        return self.changes.__exit__()

    def record(self, medium, fault, seconds_before=1.2, seconds_after=1.2):
        """Records onto \\a medium, which \\a fault happens to; the answer is what fault() said."""
        choose(self.recorder, medium.path, self.recorder.medium)
        self.known = set(self.recorder.clips())
        self.closes = self.recorder.log_text().count("STREAM: Close is Done")
        self.recorder.do("record")
        time.sleep(seconds_before)
        answer = fault()
        time.sleep(seconds_after)
        return answer

    def stop(self):
        check(self.recorder.status()["stateNumber"] == 2, "it records on: " + reasons(self.recorder))
        self.recorder.do("stop")
        wait_until("the clip is closed", lambda: self.recorder.log_text().count(
            "STREAM: Close is Done") > self.closes)
        check("dropped frame" not in self.recorder.log_text(), "a frame was dropped")

    def goes_on(self, name, medium, fault, limit=500):
        """The recording goes on on the spare without a hole; \\a fault answers a rule or when it struck."""
        rule = self.record(medium, fault, seconds_after=1.2 if limit < 1000 else limit / 1000 + 0.5)
        struck = rule.struck[0] if hasattr(rule, "struck") else rule
        delay, text = alarm_after(self.changes, FAILED, struck, limit / 1000 + 2)
        new = set(self.recorder.clips()) - self.known
        check(len(new) == 1, f"{name}: {new}")
        self.stop()
        if hasattr(medium, "bring_back"):
            medium.bring_back()
        clip = clips_in(medium.folder)[-1]
        frames, both = without_a_hole(clip, new.pop())
        print(f"       {name}: alarm after {delay:.0f} ms, {frames} frames, {both} of them in both clips")
        check(delay <= limit, f"the alarm came after {delay:.0f} ms")
        if delay > 500:
            warned, _ = alarm_after(self.changes, SLOW, struck, 1)
            print(f"       {name}: warning after {warned:.0f} ms")
            check(warned <= 500 + UNTIL_NEXT_CALL, f"the warning came after {warned:.0f} ms")
        expected = f"Medium {medium.path} failed, recording continued on {self.recorder.medium}"
        check(expected in text, f"{text}")
        check(frames > 25 * 2, f"{frames} frames")


def going_over(stage, faults):
    for number, (name, fault, limit) in enumerate(faults):
        path = os.path.join(stage.recorder.dir, f"slot{number}")
        with FailingMedium(path, path + ".files") as medium:
            stage.goes_on(name, medium, lambda m=medium, f=fault: f(m), limit)


def stalls(stage, seconds, operation):
    path = os.path.join(stage.recorder.dir, "slow")
    with FailingMedium(path, path + ".files") as medium:
        rule = stage.record(medium, lambda: medium.stall(seconds, operation), seconds_after=seconds + 1.2)
        delay, text = alarm_after(stage.changes, SLOW, rule.struck[0], 5)
        stage.stop()
        numbers = whole(clips_in(medium.folder)[-1])
        print(f"       a stall of {seconds} s: {len(numbers)} frames, warning after {delay:.0f} ms")
        check(set(stage.recorder.clips()) == stage.known, "no clip on the other medium")
        check(f"Medium {medium.path} is slow" in text, text)
        check(delay <= 500, f"the warning came after {delay:.0f} ms")
        check(not stage.recorder.get("Alarm1906"), "the warning is over")
        check(len(numbers) > 25 * (seconds + 2), f"{len(numbers)} frames")


def is_taken_away(stage):
    with Stick(stage.recorder, "stick") as stick:
        stage.goes_on("taken away", stick, stick.take_away, 500)


def no_frame_is_lost_whatever_fails(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT, size="1g") as recorder:
        start(recorder)
        with Stage(recorder) as stage:
            going_over(stage, [
                ("gone", lambda m: m.fail_all(errno.ENODEV), 500),
                ("one write fails", lambda m: m.fail("write"), 500),
                ("a later write fails", lambda m: m.fail("write", skip=3, count=2), 500),
                ("every sync fails", lambda m: m.fail("fsync", count=-1), 500),
                ("no space for once", lambda m: m.fail("write", code=errno.ENOSPC), 500),
                ("no space for good", lambda m: m.fail("write", "fallocate", code=errno.ENOSPC, count=-1), 500),
                ("read only", lambda m: m.fail_all(errno.EROFS), 500),
                ("server gone", lambda m: m.disconnect(), 1000)])
            stalls(stage, 3, "fsync")


def a_stick_that_lies_about_its_size_is_left(bin_dir):
    """The file system takes every write and cannot put it anywhere: syncs fail, and later ones do not."""
    with Recorder(bin_dir, source_format=FORMAT, size="1g") as recorder:
        start(recorder)
        with Medium(recorder, "small", "24m") as small, \
                Stick(recorder, "stick", "400m", small.path) as stick, Stage(recorder) as stage:
            stage.record(stick, time.time, seconds_after=0)
            wait_until("the recording goes on elsewhere", lambda: set(recorder.clips()) - stage.known, 30)
            time.sleep(2)
            new = (set(recorder.clips()) - stage.known).pop()
            stage.stop()
            check(recorder.get("Alarm1901"), "the alarm is raised")
            # What the stick has committed is there as long as it is not asked for what it lost.
            frames, both = without_a_hole(clips_in(stick.folder)[-1], new)
            print(f"       {frames} frames, {both} of them in both clips")


def without_another_medium_the_loss_is_told(stage):
    recorder = stage.recorder
    path = os.path.join(recorder.dir, "last")
    with FailingMedium(path, path + ".files") as medium:
        fill_to(recorder.medium, 7)  # too little for a recording
        rule = stage.record(medium, lambda: medium.fail("fsync", count=-1), seconds_after=0)
        recorder.wait_for("TransportState", 1)
        delay, text = alarm_after(stage.changes, FAILED, rule.struck[0], 3)
        print(f"       no other medium: alarm after {delay:.0f} ms")
        check(delay < 500 and "frames lost" in text and path in text, text)
        check("Clip has lost" in recorder.log_text(), reasons(recorder))
        medium.rules = []
        whole(clips_in(medium.folder)[-1])
        # The recorder is as good as new, and the next recording ends the alarm.
        os.remove(os.path.join(recorder.medium, ".ballast"))
        choose(recorder, recorder.medium, "")
        check(len(whole(recorder.record(1))) > 10, "the next recording")
        check(not recorder.get("Alarm1901"), "the alarm is over")


def no_frame_is_lost_when_a_medium_fails(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT, size="1g") as recorder:
        start(recorder)
        with Stage(recorder) as stage:
            going_over(stage, [("one sync fails", lambda m: m.fail("fsync"), 500),
                               ("hangs", lambda m: m.hang(), 4500)])
            is_taken_away(stage)
            without_another_medium_the_loss_is_told(stage)


def no_large_picture_is_lost_when_a_medium_fails(bin_dir):
    """What is written past the system's cache meets the failure itself."""
    with Recorder(bin_dir, source_format=FORMAT, size="1g") as recorder:
        start(recorder)
        recorder.set("EncodeType", UNCOMPRESSED)
        time.sleep(1)
        with Stage(recorder) as stage:
            going_over(stage, [("one large write fails", lambda m: m.fail("write", skip=8), 500),
                               ("no space for large writes", lambda m: m.fail("write", code=errno.ENOSPC, count=-1), 500)])
            stalls(stage, 1, "write")


def long():
    """For "make soak"."""
    return [no_frame_is_lost_whatever_fails, a_stick_that_lies_about_its_size_is_left]


if __name__ == "__main__":
    main([no_frame_is_lost_when_a_medium_fails, no_large_picture_is_lost_when_a_medium_fails])
