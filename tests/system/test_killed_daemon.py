"""Daemons that are killed while they record, and recordings of which one system call fails."""

import hashlib
import os
import random
import shutil
import subprocess
import time

from rig import Failed, Recorder, check, clip_numbers, main, probe, stream_of, wait_until
from test_media import FORMAT, Medium, consecutive, reasons, start, whole

FRAMES_A_SECOND = 25
MOST_LOST = 1.0             # seconds of a recording that a kill may cost
# Seconds behind the answer to Record, or to the Stop that follows it at once.
HEAD_BYTES = 16384          # the most that a clip without a frame takes
FIRST_MOMENTS = ((0.3, False), (0.5, False), (0.1, True), (0.0, True))
FIRST_CLIP = "R001C0001.mov"


def digest(path):
    with open(path, "rb") as file:
        return hashlib.sha256(file.read()).hexdigest()


def is_complete(path):
    """The placeholder behind the file type has become the header of all media data."""
    with open(path, "rb") as file:
        return file.read(28)[24:28] == b"mdat"


# Kills ---------------------------------------------------------------------------------------------------------


def begin_a_recording(recorder):
    """In a new life of the daemon; the clips that were there before."""
    before = set(recorder.clips())
    # What the store says is the last daemon's.
    begun = recorder.log_text().count("Begin Mode Standby Off")
    recorder.start_daemon()
    wait_until("the recorder is up", lambda: recorder.log_text().count("Begin Mode Standby Off") > begun, 20)
    wait_until("there is a picture", lambda: recorder.get("InputFormat") == 1)
    time.sleep(0.4)
    recorder.do("record")
    return before


def readable_frames(path):
    """What ffprobe reads of a clip as it lies there; Failed when it does not open."""
    return int(stream_of(probe(path), "video").get("nb_read_packets", 0))


def kill_a_recording(recorder, rng, digests):
    """One life of the daemon; answers the seconds lost and what it was killed in."""
    before = begin_a_recording(recorder)
    began = time.monotonic()
    time.sleep(rng.random() * 2)
    is_closing = rng.random() < 0.35
    elapsed = time.monotonic() - began  # what is recorded at least, when it is closing
    if is_closing:
        recorder.ctl("stop")
        time.sleep(rng.random() * 0.03)
    else:
        elapsed = time.monotonic() - began
    recorder.processes["rvd"].kill()
    recorder.processes["rvd"].wait()
    new = set(recorder.clips()) - before
    if not new:
        check(elapsed < MOST_LOST, f"nothing is left of {elapsed:.2f} s")
        return elapsed, "before the first frame"
    path = new.pop()
    # Before anybody has mended anything.
    least = int((elapsed - MOST_LOST) * FRAMES_A_SECOND)
    frames = 0
    try:
        frames = readable_frames(path)
    except Failed as error:  # without a committed frame there is nothing to read
        check(elapsed < MOST_LOST, f"unreadable after {elapsed:.2f} s: {error}")
    check(frames >= least, f"{frames} frames of {elapsed:.2f} s can be read")
    wait_until("it is completed or gone",
               lambda: not os.path.exists(path) or is_complete(path), 15)
    if not os.path.exists(path):
        check(frames == 0, f"a clip of {frames} frames is gone")
        return elapsed, "before the first fragment"
    numbers = whole(path)
    check(len(numbers) >= frames, f"{len(numbers)} frames, {frames} before recovery")
    digests[path] = digest(path)
    return elapsed - frames / FRAMES_A_SECOND, "while it closed" if is_closing else "while it recorded"


def killed(count, seed):
    def test(bin_dir):
        rng = random.Random(seed)
        with Recorder(bin_dir, source_format=FORMAT, size="2g") as recorder:
            recorder.start_store()
            recorder.start_media()
            digests, worst, kinds = {}, 0, {}
            for _ in range(count):
                lost, kind = kill_a_recording(recorder, rng, digests)
                worst = max(worst, lost)
                kinds[kind] = kinds.get(kind, 0) + 1
                for path in list(digests)[:-20]:  # the medium has room for so many
                    check(digest(path) == digests.pop(path), f"{path} has changed")
                    os.remove(path)
            for path, value in digests.items():
                check(digest(path) == value, f"{path} has changed")
            listed = recorder.ctl("clips").stdout
            for path in digests:
                check(os.path.basename(path) in listed, f"{path} is not listed")
            print(f"       {count} kills: {kinds}, at most {worst:.2f} s lost")
    test.__name__ = f"{count}_kills_leave_clips_that_end_less_than_a_second_early"
    return test


def kill_at_the_start(recorder, seconds, is_stopped):
    """Kills the daemon so soon after a recording began; the frames that can be read then."""
    before = begin_a_recording(recorder)
    if is_stopped:
        recorder.ctl("stop")
    time.sleep(seconds)
    recorder.processes["rvd"].kill()
    recorder.processes["rvd"].wait()
    new = [path for path in recorder.clips() if path not in before]
    if is_stopped and all(os.path.getsize(path) <= HEAD_BYTES for path in new):  # the first frame was not there yet
        wait_until("nothing is left", lambda: not set(recorder.clips()) - before, 15)
        return 0
    check(len(new) == 1, f"the clip is not there: {new}")
    path = new[0]
    frames = readable_frames(path)
    check(frames > 0, f"{path} opens, but has no frame")
    wait_until("it is completed", lambda: is_complete(path), 15)
    numbers = whole(path)
    check(len(numbers) >= frames, f"{len(numbers)} frames, {frames} before recovery")
    return frames


def the_first_moments_of_a_recording_can_be_read(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT) as recorder:
        recorder.start_store()
        recorder.start_media()
        found = [(f"{seconds} s{' after Stop' if is_stopped else ''}", kill_at_the_start(recorder, seconds, is_stopped))
                 for seconds, is_stopped in FIRST_MOMENTS]
        print("       frames read after " + ", ".join(f"{moment}: {frames}" for moment, frames in found))


# Cards ----------------------------------------------------------------------------------------------------------


class Exfat:
    """An exFAT medium behind its driver in user space, as sticks and cards have it."""

    def __init__(self, recorder, name, size="512m"):
        self.path = os.path.join(recorder.dir, name)
        image = self.path + ".img"
        os.mkdir(self.path)
        subprocess.run(["truncate", "-s", size, image], check=True)
        subprocess.run(["mkfs.exfat", image], check=True, stdout=subprocess.DEVNULL)
        self.device = subprocess.run(["losetup", "-f", "--show", image], check=True, capture_output=True,
                                     text=True).stdout.strip()
        self.driver = None
        self.mount()

    def mount(self):
        self.driver = subprocess.Popen(["mount.exfat-fuse", "-d", self.device, self.path],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until("it is mounted", lambda: os.path.ismount(self.path))

    def pull(self):
        self.driver.kill()
        self.driver.wait()

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        subprocess.run(["umount", "-l", self.path], stderr=subprocess.DEVNULL, check=False)
        self.driver.wait(10)
        subprocess.run(["losetup", "-d", self.device], check=False)
        return False


def record_and_kill(recorder, path, seconds=2.0):
    """A clip in \a path whose writer was killed."""
    recorder.set("ActivePath", path)
    recorder.wait_for("ActivePath", path)
    recorder.do("record")
    time.sleep(seconds)
    recorder.processes["rvd"].kill()
    recorder.processes["rvd"].wait()
    clips = [name for name in os.listdir(path) if name.endswith(".mov")]
    check(len(clips) == 1, f"{clips}")
    return os.path.join(path, clips[0])


def a_clip_left_on_exfat_is_completed(bin_dir):
    if not shutil.which("mount.exfat-fuse") or not shutil.which("mkfs.exfat"):
        print("       no exFAT here")
        return
    with Recorder(bin_dir, source_format=FORMAT) as recorder, Exfat(recorder, "card") as card:
        start(recorder)
        clip = record_and_kill(recorder, card.path)
        wait_until("it is completed", lambda: is_complete(clip), 15)
        numbers = whole(clip)
        check(len(numbers) > 20, f"{len(numbers)} frames")
        # The card is pulled in the middle of the next recording, which goes on elsewhere.
        recorder.start_daemon()
        wait_until("there is a picture", lambda: recorder.get("InputFormat") == 1)
        time.sleep(1)
        recorder.set("RolloverPath", recorder.medium)
        recorder.do("record")
        time.sleep(1.5)
        card.pull()
        wait_until("it goes on", recorder.clips)
        time.sleep(1)
        recorder.do("stop")
        wait_until("it is closed", lambda: is_complete(recorder.clips()[0]))
        second = whole(recorder.clips()[0])
        subprocess.run(["umount", "-l", card.path], check=True)
        card.mount()
        first = whole([os.path.join(card.path, name) for name in os.listdir(card.path)
                       if name.endswith(".mov") and name != os.path.basename(clip)][0])
        check(first[0] < second[0] <= first[-1] + 1, f"{first[0]}..{first[-1]} and {second[0]}..{second[-1]}")
        print(f"       {len(numbers)} frames of a killed recorder, {second[-1] - first[0] + 1} of a pulled card")


# One system call fails -----------------------------------------------------------------------------------------

CALLS = ("openat", "pwrite64", "fdatasync", "fsync", "fallocate", "ftruncate", "unlink", "flock", "fstatfs", "write", "fadvise64")


class Failing:
    """strace fails one call of each of the daemon's threads that has to do with one clip."""

    def __init__(self, recorder, path, call, when, code):
        self.out = os.path.join(recorder.dir, "strace.out")
        self.process = subprocess.Popen(
            ["strace", "-f", "-qq", "-o", self.out, "-p", str(recorder.processes["rvd"].pid), "-e", f"trace={call}",
             "-P", path, "-P", os.path.dirname(path), "-e", f"inject={call}:error={code}:when={when}"],
            stderr=subprocess.DEVNULL)
        wait_until("strace is there", lambda: self._is_attached(recorder.processes["rvd"].pid))

    def _is_attached(self, pid):
        check(self.process.poll() is None, "strace is there")
        with open(f"/proc/{pid}/status", encoding="ascii") as status:
            return f"TracerPid:\t{self.process.pid}\n" in status.read()

    def finish(self):
        """How many calls failed."""
        self.process.terminate()
        self.process.wait(5)
        with open(self.out, encoding="utf-8", errors="replace") as out:
            return out.read().count("(INJECTED)")


DROPPED = "dropped a frame"     # no verdict: the recording ended for another reason
TELLS = ("STREAM: Open Error", "Clip has lost", "Clip was not completed", "Going on in ", "STREAM: Cache Error",
         "Generate record stream desc failed")


def numbers_in(folder):
    """The frame numbers of the clips of a folder, which must all be readable."""
    return [clip_numbers(os.path.join(folder, name)) for name in sorted(os.listdir(folder))
            if name.endswith(".mov")]


def fail_one_call(recorder, spare, call, when, code):
    """Records a second; answers how often the call failed, and what came of it."""
    for folder in (recorder.medium, spare):
        for name in os.listdir(folder):
            os.remove(os.path.join(folder, name))
    recorder.set("ClipCounter", 1)

    def is_ready():
        if (recorder.get("ActivePath"), recorder.get("RolloverPath")) == (recorder.medium, spare):
            return ".mov" not in recorder.ctl("clips", "all").stdout
        recorder.set("RolloverPath", spare)
        recorder.set("ActivePath", recorder.medium)
        return False
    for _ in range(2):  # the media service may still be busy with the rollover before
        wait_until("the medium is empty", is_ready, step=0.1)
        time.sleep(0.2)
    seen = len(recorder.log_text())
    failing = Failing(recorder, os.path.join(recorder.medium, FIRST_CLIP), call, when, code)
    recorder.ctl("record")
    time.sleep(1.3)
    recorder.ctl("stop")
    recorder.wait_for("TransportState", 1)
    wait_until("the storage is released", lambda: recorder.get("StorageInUse") in (0, 2))
    struck = failing.finish()
    log = recorder.log_text()[seen:]
    what = f"{call} {code} the {when}. time"
    check(recorder.processes["rvd"].poll() is None, f"{what}: the daemon is gone")
    if "Recording stopped due to dropped frame" in log:
        return struck, DROPPED
    told = [text for text in TELLS if text in log]
    first, second = numbers_in(recorder.medium), numbers_in(spare)
    check(all(consecutive(clip) for clip in first + second), f"{what}: {first} {second}")
    if second:
        check(len(first) <= 1 and len(second) == 1 and told, f"{what}: {len(first)} and {len(second)} clips")
        if first:
            check(second[0][0] <= first[0][-1] + 1, f"{what}: a hole between {first} and {second}")
        return struck, "went on"
    if told:
        check("frames lost" in str(recorder.ctl("alarms").stdout) or "Error" in told[0] or "not completed" in told[0],
              f"{what}: {told}")
        return struck, "told"
    check(len(first) == 1 and len(first[0]) > 15, f"{what}: {first}\n{reasons(recorder)}")
    check(is_complete(os.path.join(recorder.medium, FIRST_CLIP)), f"{what}: the clip is not complete")
    return struck, "harmless"


def swept(positions):
    """Fails the calls of \a positions, (call, error, from, up to), until one is not reached."""
    def test(bin_dir):
        with Recorder(bin_dir, source_format=FORMAT, size="1g") as recorder, \
                Medium(recorder, "spare", "1g") as spare:
            start(recorder)
            kinds, unchecked = {}, []
            for call, code, first, last in positions:
                before = sum(map(len, kinds.values()))
                for when in range(first, last + 1):
                    struck, kind = fail_one_call(recorder, spare.path, call, when, code)
                    for _ in range(4):  # the daemon has little time while it is traced
                        if kind == DROPPED:
                            struck, kind = fail_one_call(recorder, spare.path, call, when, code)
                    if kind == DROPPED:
                        unchecked.append(f"{call} {code} {when}")
                        continue
                    if struck == 0:
                        break
                    kinds.setdefault(kind, []).append(f"{call} {code} {when}")
                was_struck = any(case.startswith(f"{call} {code} ") for case in unchecked)
                check(sum(map(len, kinds.values())) > before or not was_struck,
                      f"of {call} {code} nothing is checked: a frame was dropped each time")
            for kind, cases in [*kinds.items(), ("not checked, a frame was dropped", unchecked)]:
                print(f"       {kind}: {len(cases)} ({', '.join(cases[:6])}{' ...' if cases[6:] else ''})")
            check(sum(map(len, kinds.values())) >= len(positions), f"{kinds}")
    test.__name__ = f"a_call_that_fails_is_survived_and_told_{len(positions)}"
    return test


def long():
    """For "make soak"."""
    return [a_clip_left_on_exfat_is_completed, killed(1000, 2),
            swept([(call, code, 1, 12) for call in CALLS for code in ("EIO", "ENOSPC", "ENODEV")])]


if __name__ == "__main__":
    main([killed(3, 1), the_first_moments_of_a_recording_can_be_read, swept([("fdatasync", "EIO", 3, 3), ("pwrite64", "EIO", 3, 3)])])
