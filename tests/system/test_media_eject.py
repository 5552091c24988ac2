"""Media given up and unmounted on request, what is told of the slots, and what operators see of clips and play lists."""

import json
import os
import re
import subprocess
import time

import rig
from failingmedium import FailingMedium
from hangingmedium import HangingMedium
from rig import Recorder, check, main, wait_until
from test_media import FORMAT, LoopMedium, Medium, consecutive, fill_to, wait_said, whole
from test_media_slots import READY, SlotRecorder


def is_mounted(path):
    with open("/proc/self/mountinfo", encoding="utf-8") as table:
        return any(line.split()[4].replace("\\040", " ") == path for line in table)


def media(recorder):
    """The slots as rvctl tells of them, by mount point."""
    shown = json.loads(recorder.ctl("--json", "media").stdout)
    check(shown["current"], "the media service answers")
    return {slot["path"]: slot for slot in shown["media"]}


def eject(recorder, *slot):
    return recorder.ctl("--timeout", 10, "eject", *slot)


def ejected(recorder, *slot):
    result = eject(recorder, *slot)
    check(result.returncode == 0, f"eject {slot}: {result.returncode} {result.stderr}")


def refused(recorder, why, *slot):
    result = eject(recorder, *slot)
    check(result.returncode == 1 and why in result.stderr, f"eject {slot}: {result.returncode} {result.stderr!r}")


def an_idle_medium_is_unmounted_and_taken_again_when_it_comes_back(bin_dir):
    with SlotRecorder(bin_dir) as recorder, LoopMedium(recorder, "slot 2", "64m") as second:
        recorder.start()
        recorder.wait_for("ActivePath", recorder.medium)
        recorder.wait_for("RolloverPath", second.path)
        with open(os.path.join(second.path, "written last"), "wb") as file:
            file.write(b"x" * 1000000)
        ejected(recorder, "slot 2")
        check(not is_mounted(second.path), "it is unmounted")
        check(media(recorder)[second.path]["state"] == "empty", "the slot is empty")
        check(recorder.get("RolloverPath") == "", "it is no medium to roll over to")
        check("at 1280x720p25" not in recorder.ctl("media").stdout, "the format has no name")
        subprocess.run(["e2fsck", "-fn", second.path + ".img"], check=True, capture_output=True)
        refused(recorder, "no medium is in", "slot 2")
        second.mount()
        recorder.wait_for("RolloverPath", second.path)
        check(media(recorder)[second.path]["state"] == "ready", "it is back")
        check(os.path.getsize(os.path.join(second.path, "written last")) == 1000000, "what was written last is there")


def the_active_medium_gives_way_to_the_next(bin_dir):
    with SlotRecorder(bin_dir) as recorder, Medium(recorder, "slot 2") as second:
        recorder.start()
        recorder.record(1)
        recorder.do("standby-off")
        recorder.wait_for("StorageInUse", 2)
        recorder.wait_for("RolloverPath", second.path)
        ejected(recorder)
        check(not is_mounted(recorder.medium), "it is unmounted")
        recorder.wait_for("ActivePath", second.path)
        recorder.wait_for("RolloverPath", "")
        recorder.wait_log("Updated all clips list.  0 entries")
        refused(recorder, "there is no such slot", "/nowhere")
        ejected(recorder, 2)
        recorder.wait_for("ActivePath", "")
        refused(recorder, "there is no active medium")
        second.mount()
        recorder.wait_for("ActivePath", second.path)
        recorder.wait_for("MediaState", READY)


def a_medium_that_a_client_named_goes_too(bin_dir):
    with Recorder(bin_dir, source_format=FORMAT) as recorder, Medium(recorder, "second") as second:
        recorder.start()
        recorder.set("RolloverPath", second.path)
        wait_said(recorder, f"0 clips on {second.path}")
        ejected(recorder)
        check(not is_mounted(recorder.medium), "it is unmounted")
        recorder.wait_for("ActivePath", "")
        ejected(recorder, second.path)
        recorder.wait_for("RolloverPath", "")


def a_medium_in_use_stays_and_its_recording_is_whole(bin_dir):
    with SlotRecorder(bin_dir) as recorder, Medium(recorder, "slot 2") as second:
        recorder.start()
        recorder.wait_for("InputFormat", 1)
        recorder.wait_for("RolloverPath", second.path)
        recorder.do("record")
        recorder.wait_for("StorageInUse", 1)
        for _ in range(3):
            refused(recorder, "is recorded on", recorder.medium)
            time.sleep(0.3)
        check(recorder.get("ActivePath") == recorder.medium, "the path stays")
        # The other one may go in the middle of it.
        ejected(recorder, second.path)
        recorder.wait_for("RolloverPath", "")
        recorder.do("stop")
        wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        check(len(whole(recorder.clips()[0])) > 20, "the recording is whole")
        recorder.do("standby-off")
        wait_said(recorder, f"1 clips on {recorder.medium}")
        check(" at 1280x720p25 ProRes 422" in recorder.ctl("media").stdout, "the last clip tells the format")
        recorder.do("play")
        recorder.wait_for("StorageInUse", 1)
        refused(recorder, "is played from", recorder.medium)
        recorder.do("stop")
        recorder.do("standby-off")
        recorder.wait_for("StorageInUse", 2)
        ejected(recorder, recorder.medium)


def the_full_medium_goes_as_soon_as_its_clip_is_closed(bin_dir):
    with SlotRecorder(bin_dir, count=3, medium="none") as recorder, LoopMedium(recorder, "slot 2", "512m") as first, \
            LoopMedium(recorder, "slot 3", "512m") as second:
        recorder.start()
        recorder.wait_for("InputFormat", 1)
        recorder.wait_for("ActivePath", first.path)
        recorder.wait_for("RolloverPath", second.path)
        recorder.do("rollover", "on")
        fill_to(first.path, 11.5)
        recorder.do("record")
        refusals = 0
        end = time.monotonic() + 30
        while eject(recorder, first.path).returncode != 0:
            refusals += 1
            check(time.monotonic() < end, "it never goes")
        check(refusals > 0, "it goes at once")
        recorder.wait_log(f"Rollover from {first.path} to {second.path} has completed.", 1)
        check(recorder.status()["stateNumber"] == 2, "the recording goes on")
        time.sleep(1)
        recorder.do("stop")
        wait_until("both clips are closed", lambda: recorder.log_text().count("STREAM: Close is Done") >= 2)
        first.mount()
        clips = [os.path.join(path, name) for path in (first.path, second.path) for name in os.listdir(path)
                 if name.endswith(".mov")]
        numbers = [number for clip in clips for number in whole(clip)]
        check(len(clips) == 2 and consecutive(numbers), f"{clips}: {len(numbers)} frames")


def a_medium_that_others_use_is_told_and_stays_given_up(bin_dir):
    with SlotRecorder(bin_dir) as recorder, Medium(recorder, "slot 2") as second:
        recorder.start()
        recorder.wait_for("RolloverPath", second.path)
        growing = os.path.join(second.path, "copied.mov")
        with open(growing, "wb") as file:
            file.write(b"x" * 10000)
            time.sleep(0.5)
            refused(recorder, "copied.mov grows", 2)
            check(recorder.get("RolloverPath") == second.path, "nothing has changed")
        os.remove(growing)
        with open(os.path.join(second.path, "notes.txt"), "wb"):
            refused(recorder, "Device or resource busy", 2)
            check(is_mounted(second.path) and media(recorder)[second.path]["state"] == "ejected", "it is given up")
            check(recorder.get("RolloverPath") == "", "it is not used any more")
        ejected(recorder, 2)
        check(not is_mounted(second.path), "the second time it goes")
        second.mount()
        recorder.wait_for("RolloverPath", second.path)


def a_hanging_medium_holds_up_nobody(bin_dir):
    with SlotRecorder(bin_dir) as recorder, HangingMedium(os.path.join(recorder.dir, "slot 2")) as hanging:
        recorder.start()
        recorder.wait_for("RolloverPath", hanging.path)
        hanging.hang()
        began = time.monotonic()
        shown = media(recorder)
        check(time.monotonic() - began < 2, "it is told in time")
        check(shown[recorder.medium]["state"] == "ready" and shown[hanging.path]["state"] == "ready", f"{shown}")
        result = recorder.ctl("--timeout", 1, "eject", 2)
        check(result.returncode == 3 and "does not answer" in result.stderr, f"{result.stderr}")
        recorder.do("record")
        recorder.do("stop")
        recorder.do("standby-off")
        ejected(recorder, 1)


def media_threads(recorder):
    tasks = f"/proc/{recorder.processes['rvmedia'].pid}/task"
    names = []
    for task in os.listdir(tasks):
        try:
            with open(f"{tasks}/{task}/comm", encoding="ascii") as file:
                names.append(file.read().strip())
        except OSError:
            pass  # it has just ended
    return names.count("medium")


def what_hung_in_a_medium_that_is_gone_goes_once_it_can(bin_dir):
    with SlotRecorder(bin_dir) as recorder, HangingMedium(os.path.join(recorder.dir, "slot 2")) as hanging:
        recorder.start()
        recorder.wait_for("RolloverPath", hanging.path)
        check(media_threads(recorder) == 2, "a thread a slot")
        hanging.hang()
        check(media(recorder)[hanging.path]["state"] == "ready", "it is being measured, and hangs")
        subprocess.run(["umount", "-l", hanging.path], check=True)
        recorder.wait_for("RolloverPath", "")
        check(media_threads(recorder) == 3, "the slot has a fresh thread")
        hanging.let_go()
        wait_until("the old one has ended", lambda: media_threads(recorder) == 2)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", hanging.path], check=True)
        recorder.wait_for("RolloverPath", hanging.path)


def a_medium_that_failed_is_left_out_until_it_is_mounted_anew(bin_dir):
    with SlotRecorder(bin_dir) as recorder:
        first, second = recorder.slots
        with FailingMedium(second, second + ".files") as failing:
            recorder.start()
            recorder.wait_for("RolloverPath", second)
            recorder.set("RolloverPath", first)
            recorder.set("ActivePath", second)
            recorder.wait_log("Active Media Path: " + second)
            recorder.do("record")
            time.sleep(1)
            failing.fail("fsync")
            recorder.wait_for("ActivePath", first)
            recorder.wait_for("RolloverPath", "")
            check(recorder.status()["stateNumber"] == 2, "the recording goes on")
            recorder.do("stop")
            recorder.do("standby-off")
            recorder.wait_for("StorageInUse", 2)
            # The service measures again, and a client may want it.
            media(recorder)
            check(recorder.get("RolloverPath") == "" and recorder.get("ActivePath") == first, "it is left out")
            recorder.set("RolloverPath", second)
            recorder.wait_for("RolloverPath", "")
            recorder.set("ActivePath", second)
            recorder.wait_for("RolloverPath", first)
            check(recorder.get("ActivePath") == second, "its clips can be played")
            recorder.set("ActivePath", first)
            recorder.wait_for("RolloverPath", "")
        wait_until("it is gone", lambda: media(recorder)[second]["state"] == "empty")
        with FailingMedium(second, second + ".files"):
            recorder.wait_for("RolloverPath", second)


def the_slots_are_shown_with_room_and_time(bin_dir):
    with SlotRecorder(bin_dir, count=3, size="4g") as recorder, Medium(recorder, "slot 2", "1g") as second:
        recorder.environment["RVD_INPUT_FORMAT"] = "1920x1080p25"
        recorder.start()
        recorder.wait_for("RolloverPath", second.path)
        recorder.wait_for("InputFormat", 20)
        recorder.set("EncodeType", "ProRes 422 HQ")
        recorder.wait_for("MediaFormat", 27)
        slots = media(recorder)
        first = slots[recorder.medium]
        check((first["role"], first["state"], first["readOnly"]) == ("active", "ready", False), f"{first}")
        check(slots[second.path]["role"] == "next" and slots[recorder.slots[2]]["state"] == "empty", f"{slots}")
        use = os.statvfs(recorder.medium)
        check(first["totalBytes"] == use.f_blocks * use.f_frsize, f"{first}")
        check(abs(first["freeBytes"] - use.f_bfree * use.f_frsize) < 1 << 20, f"{first}")
        # 1080p25 as ProRes 422 HQ is 184 Mbit/s and 2.3 Mbit/s of sound; a tenth stays free.
        check(abs(first["secondsLeft"] - 0.9 * (4 << 30) / 23.3e6) < 8, f"{first}")
        lines = recorder.ctl("media").stdout.splitlines()
        check(re.search(r" active +4\.3 of 4\.3 GB +100 % +2 min at 1080p25 ProRes 422 HQ$", lines[1]), f"{lines}")
        before = first["freeBytes"]
        recorder.do("record")
        time.sleep(2)
        now = media(recorder)[recorder.medium]["freeBytes"]
        check(now < before - 5000000, f"{before} to {now}")
        recorder.do("stop")
        completed = subprocess.run(
            ["bash", "-c", "source <(rvctl completion bash); COMP_WORDS=(rvctl eject ''); COMP_CWORD=2; _rvctl;"
             " eval printf '%s\\\\n' ${COMPREPLY[@]}"], capture_output=True, text=True, check=True,
            env={**recorder.environment, "PATH": recorder.bin + ":" + os.environ["PATH"]}).stdout.splitlines()
        check(completed == recorder.slots, f"the shell completes {completed}")
        subprocess.run(["mount", "-o", "remount,ro", second.path], check=True)
        check(media(recorder)[second.path]["readOnly"], "it may not be written")
        check("read-only" in recorder.ctl("media").stdout, "people are told")


def clips_stand_in_columns_and_edits_are_answered(bin_dir):
    with SlotRecorder(bin_dir) as recorder:
        recorder.start()
        first = os.path.basename(recorder.record(1))
        names = [first, "映像 with blanks.mov", "a\u202eb.mov"]
        for i, name in enumerate(names[1:]):
            path = os.path.join(recorder.medium, name)
            subprocess.run(["cp", os.path.join(recorder.medium, first), path + ".part"], check=True)
            os.utime(path + ".part", (time.time() + 10 * (i + 1),) * 2)
            os.rename(path + ".part", path)  # listed at once, with its time
        wait_said(recorder, f"3 clips on {recorder.medium}")
        head, *rows = recorder.ctl("clips").stdout.splitlines()
        columns = ["#", "Name", "Frames", "Timecode", "Format", "Size", "When"]
        check(head.split() == columns, head)
        check([row.split()[0] for row in rows] == ["0", "1", "2"], f"{rows}")
        check(first in rows[0] and names[1] in rows[1] and r"a\xe2\x80\xaeb.mov" in rows[2], f"{rows}")
        check(all(re.search(r"  \d+  \d\d:\d\d:\d\d:\d\d  1280x720p25 ProRes 422  +\d+\.\d MB  \d{4}-\d\d-\d\d ", row)
                  for row in rows), f"{rows}")
        # Two of the letters take two columns each.
        check(rows[0].index("1280x720") == rows[1].index("1280x720") + 2 == rows[2].index("1280x720"), f"{rows}")
        for edit in (("append", names[1]), ("insert", 0, first), ("append", "gone.mov"), ("move", 1, 0)):
            recorder.do("playlist", *edit)
        shown = json.loads(recorder.ctl("--json", "playlist").stdout)["playList"]
        check([entry["name"] for entry in shown] == [names[1], first, "gone.mov"], f"{shown}")
        check(recorder.ctl("playlist").stdout.splitlines()[3].endswith("missing"), "what is missing is told")
        for edit, why in ((("remove", 9), "no such entry"), (("append", "notes.txt"), "not the name of a clip"),
                          (("turn", 1), "not understood")):
            result = recorder.ctl("playlist", *edit)
            check(result.returncode == 1 and why in result.stderr, f"{edit}: {result.stderr}")
        recorder.do("playlist", "remove", 0)
        recorder.do("playlist", "clear")


if __name__ == "__main__":
    main([an_idle_medium_is_unmounted_and_taken_again_when_it_comes_back, the_active_medium_gives_way_to_the_next,
          a_medium_that_a_client_named_goes_too, a_medium_in_use_stays_and_its_recording_is_whole,
          the_full_medium_goes_as_soon_as_its_clip_is_closed, a_medium_that_others_use_is_told_and_stays_given_up,
          a_hanging_medium_holds_up_nobody, what_hung_in_a_medium_that_is_gone_goes_once_it_can,
          a_medium_that_failed_is_left_out_until_it_is_mounted_anew,
          the_slots_are_shown_with_room_and_time, clips_stand_in_columns_and_edits_are_answered])
