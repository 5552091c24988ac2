"""Media that fill up, roll over, come and go, and the lists of what is on them."""

import os
import shutil
import subprocess
import threading
import time

import rig
from rig import Recorder, check, clip_numbers, main, probe, stream_of, wait_until


# Little work for the machine; a format that has no number of its own.
FORMAT = "1280x720p25"


class Medium:
    """A mounted medium of its own beside the recorder's."""

    def __init__(self, recorder, name, size="512m"):
        self.path = os.path.join(recorder.dir, name)
        os.mkdir(self.path)
        self.size = size
        self.mount()

    def mount(self):
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={self.size}", "tmpfs", self.path], check=True)

    def unmount(self):
        subprocess.run(["umount", "-l", self.path], check=True)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        subprocess.run(["umount", "-l", self.path], stderr=subprocess.DEVNULL, check=False)
        return False


class LoopMedium(Medium):
    """A real file system in an image file, which takes no more room in its folder than what is written."""

    def __init__(self, recorder, name, size="512m", image_folder=None):
        self.image = os.path.join(image_folder or recorder.dir, name + ".img")
        super().__init__(recorder, name, size)

    def mount(self):
        if not os.path.exists(self.image):
            subprocess.run(["truncate", "-s", self.size, self.image], check=True)
            subprocess.run(["mkfs.ext4", "-q", "-m", "0", "-E", "lazy_itable_init=1", self.image], check=True)
        subprocess.run(["mount", "-o", "loop", self.image, self.path], check=True)


def free_percent(path):
    """The free share of a file system, the superuser's part included."""
    use = os.statvfs(path)
    return use.f_bfree * 100.0 / use.f_blocks


class LeastFree(threading.Thread):
    """The smallest free share of a medium, looked at all the time: a clip that is closed gives back what it had reserved."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.path, self.least, self.isOver = path, 100.0, threading.Event()

    def __enter__(self):
        self.start()
        return self

    def run(self):
        while not self.isOver.wait(0.002):
            self.least = min(self.least, free_percent(self.path))

    def __exit__(self, *unused):
        self.isOver.set()
        self.join()
        return False


def fill_to(path, percent):
    """Fills a medium until so many percent of it are free."""
    use = os.statvfs(path)
    ballast = os.path.join(path, ".ballast")
    surplus = int(use.f_bfree - use.f_blocks * percent / 100.0) * use.f_frsize
    with open(ballast, "ab") as file:
        size = file.tell() + surplus
        check(size >= 0, f"{path} is fuller than {percent} % free")
        os.posix_fallocate(file.fileno(), 0, max(size, 1))


def consecutive(numbers):
    return None not in numbers and all(b == a + 1 for a, b in zip(numbers, numbers[1:]))


def whole(clip):
    """The frame numbers of a clip that ffprobe and FFmpeg read to its end."""
    video = stream_of(probe(clip), "video")
    numbers = clip_numbers(clip)
    check(consecutive(numbers), f"{clip}: {numbers}")
    check(len(numbers) == int(video["nb_read_packets"]), f"{clip}: {len(numbers)} frames")
    return numbers


def said(recorder, text):
    """How often the media service has said so."""
    with open(os.path.join(recorder.dir, "rvmedia.out"), encoding="utf-8", errors="replace") as out:
        return out.read().count(text)


def wait_said(recorder, text, times=1):
    wait_until(f"{text!r} {times} times", lambda: said(recorder, text) >= times)


def reasons(recorder):
    """What the log says but for changes of parameters, the end of it."""
    return "\n".join([line for line in recorder.log_text().splitlines() if "Param Changed" not in line][-30:])


def start(recorder):
    recorder.start()
    recorder.wait_for("InputFormat", 1)
    time.sleep(1)


def stops_at_ten_percent_without_rollover(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT, size="384m") as recorder:
        start(recorder)
        fill_to(recorder.medium, 11.9)
        with LeastFree(recorder.medium) as free:
            recorder.do("record")
            wait_until("it stops by itself", lambda: recorder.status()["stateNumber"] == 1, 60)
        left = free.least
        check("Stopping record." in recorder.log_text(), f"{left:.2f} % are free: {reasons(recorder)}")
        check(8.5 < left < 10.5, f"{left:.2f} % are free")
        wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        numbers = whole(recorder.clips()[0])
        check(len(numbers) > 10, f"{len(numbers)} frames")


def record_is_refused_at(percent, is_refused):
    def test(bin_dir):
        with Recorder(bin_dir, source_format=FORMAT, size="384m") as recorder:
            start(recorder)
            fill_to(recorder.medium, percent)
            result = recorder.ctl("--wait", "--timeout", "3", "record")
            check((result.returncode != 0) == is_refused, f"record at {percent} %: {result.stdout}{result.stderr}")
            refused = "Record Inhibited: " in recorder.log_text()
            check(refused == is_refused, "the log says otherwise")
            if is_refused:
                check(not recorder.clips(), "no clip is made")
    test.__name__ = f"record_at_{percent}_percent_is_{'refused' if is_refused else 'accepted'}"
    return test


def rolls_over_with_every_frame_once(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT, size="384m") as recorder, Medium(recorder, "second", "1g") as second:
        start(recorder)
        recorder.set("RolloverPath", second.path)
        recorder.set("RolloverEnable", 1)
        fill_to(recorder.medium, 11.9)
        recorder.do("record")
        recorder.wait_log("Rollover from {} to {} has completed.".format(recorder.medium, second.path), 60)
        check(free_percent(recorder.medium) > 8, "the first medium keeps its reserve")
        time.sleep(2)
        check(recorder.status()["stateNumber"] == 2, "the recording goes on")
        # The media have changed places in the store, too.
        recorder.wait_for("ActivePath", second.path)
        recorder.wait_for("RolloverPath", recorder.medium)
        recorder.do("stop")
        wait_until("both clips are closed", lambda: recorder.log_text().count("STREAM: Close is Done") >= 2)
        first = recorder.clips()
        check(len(first) == 1, f"on the first medium: {first}")
        next_name = os.path.basename(first[0]).replace(".mov", "_2.mov")
        continued = os.path.join(second.path, next_name)
        check(os.path.exists(continued), f"on the second medium: {os.listdir(second.path)}")
        numbers = whole(first[0]) + whole(continued)
        check(consecutive(numbers), f"at the joint: {len(numbers)} frames")
        wait_until("the storage is released", lambda: recorder.get("StorageInUse") == 2)


def rolls_over_and_back_in_one_recording(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT, size="384m") as recorder, Medium(recorder, "second", "384m") as second:
        start(recorder)
        recorder.set("RolloverPath", second.path)
        recorder.set("RolloverEnable", 1)
        fill_to(recorder.medium, 11.5)
        recorder.do("record")
        recorder.wait_log(f"Rollover from {recorder.medium} to {second.path} has completed.", 60)
        recorder.wait_for("RolloverPath", recorder.medium)
        # The first medium is exchanged for an empty one, then the second one fills up.
        os.remove(os.path.join(recorder.medium, ".ballast"))
        fill_to(second.path, 11)
        recorder.wait_log(f"Rollover from {second.path} to {recorder.medium} has completed.", 60)
        recorder.wait_for("ActivePath", recorder.medium)
        time.sleep(1)
        recorder.do("stop")
        wait_until("all clips are closed", lambda: recorder.log_text().count("STREAM: Close is Done") >= 3)
        stem = os.path.basename(min(recorder.clips(), key=len))[:-len(".mov")]
        parts = [os.path.join(recorder.medium, f"{stem}.mov"), os.path.join(second.path, f"{stem}_2.mov"),
                 os.path.join(recorder.medium, f"{stem}_3.mov")]
        numbers = [number for part in parts for number in whole(part)]
        check(consecutive(numbers), f"at the joints: {len(numbers)} frames")


def without_room_elsewhere_it_stops_at_eight_percent(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT, size="384m") as recorder, Medium(recorder, "second", "384m") as second:
        start(recorder)
        fill_to(second.path, 14)
        recorder.set("RolloverPath", second.path)
        recorder.set("RolloverEnable", 1)
        fill_to(recorder.medium, 11)
        with LeastFree(recorder.medium) as free:
            recorder.do("record")
            wait_until("it stops by itself", lambda: recorder.status()["stateNumber"] == 1, 90)
        left = free.least
        check(6.5 < left < 8.5, f"{left:.2f} % are free")
        wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        whole(recorder.clips()[0])
        check(not [n for n in os.listdir(second.path) if n.endswith(".mov")], "nothing on the full medium")


def lists_clips_that_come_and_go(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT) as recorder:
        start(recorder)
        wait_said(recorder, "0 clips on")
        clip = recorder.record(1)
        wait_said(recorder, "1 clips on")
        copy = os.path.join(recorder.medium, "copy.mov")
        shutil.copy(clip, copy + ".part")
        os.rename(copy + ".part", copy)
        wait_said(recorder, "2 clips on")
        for name, content in (("text.mov", b"no clip\n"), ("empty.mov", b"")):
            with open(os.path.join(recorder.medium, name), "wb") as file:
                file.write(content)
        wait_said(recorder, f"2 clips on {recorder.medium}, 2 bad")
        updates = recorder.log_text().count("Media has been updated")
        before = said(recorder, "clips on")
        for name in ("notes.txt", ".hidden.mov"):
            with open(os.path.join(recorder.medium, name), "wb") as file:
                file.write(b"x" * 100)
        os.mkdir(os.path.join(recorder.medium, "folder.mov"))
        os.symlink(clip, os.path.join(recorder.medium, "link.mov"))
        os.mkfifo(os.path.join(recorder.medium, "pipe.mov"))
        recorder.do("goto", "copy.mov")
        time.sleep(1)
        check(said(recorder, "clips on") == before, "files that are no clips change nothing")
        check(recorder.log_text().count("Media has been updated") == updates, "bad clips are no news for who plays")
        os.remove(copy)
        wait_said(recorder, "1 clips on", 2)


def follows_a_medium_that_is_mounted_and_unmounted(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT) as recorder, Medium(recorder, "slot") as slot:
        start(recorder)
        clip = recorder.record(1)
        recorder.do("standby-off")
        recorder.set("ActivePath", slot.path)
        wait_said(recorder, f"0 clips on {slot.path}")
        shutil.copy(clip, os.path.join(slot.path, "on the medium.mov"))
        wait_said(recorder, f"1 clips on {slot.path}")
        slot.unmount()
        wait_said(recorder, f"0 clips on {slot.path}", 2)
        slot.mount()
        shutil.copy(clip, os.path.join(slot.path, "another.mov"))
        wait_said(recorder, f"1 clips on {slot.path}", 2)


def turns(numbers, parts):
    """From which clip the frames come, repeats folded into one."""
    return rig.changes([number in parts[0] for number in numbers])


def plays_the_play_list_of_the_medium(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT) as recorder:
        start(recorder)
        first, second = recorder.record(1), recorder.record(1)
        names = [os.path.basename(second), "no such clip.mov", "./" + os.path.basename(first), os.path.basename(second)]
        with open(os.path.join(recorder.medium, "playlist.m3u"), "w", encoding="utf-8") as file:
            file.write("#EXTM3U\r\n\r\n" + "\r\n".join(names))
        wait_said(recorder, "3 clips in the play list")
        recorder.wait_log("Updated play list.  3 entries")
        recorder.do("standby-off")
        recorder.set("PlayMedia", 2)
        # By itself it would begin where the last recording does.
        recorder.do("goto", 0)
        parts = [clip_numbers(second), clip_numbers(first), clip_numbers(second)]
        wait_until("it stands on the first frame", lambda: rig.shown(recorder.frames(1)) == parts[0][:1])
        watch = recorder.watch_output()

        def seen():
            return rig.changes(rig.shown(rig.playback_only(list(watch.frames))))

        recorder.do("play")
        try:
            wait_until("all three parts are shown", lambda: len(turns(seen(), parts)) == 3, 30)
        finally:
            watch.finish()
        # A busy machine may pass over frames; none comes out of turn.
        ahead = iter(parts[0] + parts[1] + parts[2])
        check(all(number in ahead for number in seen()), f"{seen()} of {parts}")
        check(seen()[0] == parts[0][0], f"begins with {seen()[:3]}")


if __name__ == "__main__":
    main([stops_at_ten_percent_without_rollover, record_is_refused_at(11, False), record_is_refused_at(10, True),
          record_is_refused_at(9, True), record_is_refused_at(8, True), rolls_over_with_every_frame_once,
          rolls_over_and_back_in_one_recording, without_room_elsewhere_it_stops_at_eight_percent,
          lists_clips_that_come_and_go, follows_a_medium_that_is_mounted_and_unmounted,
          plays_the_play_list_of_the_medium])
