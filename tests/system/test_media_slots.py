"""Slots whose media come and go at any time, hostile files on them, and the service killed and started again."""

import json
import os
import shutil
import signal
import socket
import stat
import subprocess
import time

import rig
from failingmedium import FailingMedium
from rig import Recorder, check, main, wait_until
from test_media import LoopMedium, Medium, fill_to, said, wait_said

FORMAT = "1280x720p25"
NO_MEDIUM, LOADING, READY = 0, 1, 2


class SlotRecorder(Recorder):
    """A recorder with slots instead of a medium that somebody names; its own medium is the first slot."""

    def __init__(self, bin_dir, count=2, **options):
        super().__init__(bin_dir, source_format=FORMAT, **options)
        self.slots = [self.medium] + [os.path.join(self.dir, f"slot {i + 2}") for i in range(count - 1)]

    def start_media(self):
        config = os.path.join(self.dir, "slots.conf")
        with open(config, "w", encoding="utf-8") as file:
            file.write("# in the order of use\n" + "\n".join(self.slots) + "\n")
        self.spawn("rvmedia", "--config", config)


def wakes_of_service(recorder, seconds):
    """How often the threads that watch and list are woken in a while. The store's client has a clock of its own."""
    process = recorder.processes["rvmedia"].pid

    def switches():
        total = 0
        for task in os.listdir(f"/proc/{process}/task"):
            with open(f"/proc/{process}/task/{task}/comm", encoding="ascii") as file:
                if task != str(process) and file.read().strip() != "medium":
                    continue
            with open(f"/proc/{process}/task/{task}/status", encoding="ascii") as file:
                total += sum(int(line.split()[1]) for line in file if line.startswith("voluntary_ctxt"))
        return total
    before = switches()
    time.sleep(seconds)
    return switches() - before


def media_become_active_and_next_as_they_come(bin_dir):
    with SlotRecorder(bin_dir, count=3) as recorder:
        recorder.start()
        recorder.wait_for("ActivePath", recorder.slots[0])
        recorder.wait_for("MediaState", READY)
        check(recorder.get("RolloverPath") == "", "there is no other medium yet")
        with Medium(recorder, "slot 3") as third:
            recorder.wait_for("RolloverPath", third.path)
            recorder.wait_log("Media is loading...")
            with Medium(recorder, "slot 2") as second:
                wait_said(recorder, f"0 clips on {second.path}")
                check(recorder.get("RolloverPath") == third.path, "a medium with room stays the next one")
                third.unmount()
                recorder.wait_for("RolloverPath", second.path)
                recorder.do("record")
                time.sleep(1)
                second.unmount()
                recorder.wait_for("RolloverPath", "")
                second.mount()
                recorder.wait_for("RolloverPath", second.path)
                check(recorder.status()["stateNumber"] == 2, "the recording goes on")
                recorder.do("stop")
                recorder.wait_for("StorageInUse", 2)
                subprocess.run(["umount", "-l", recorder.medium], check=True)
                recorder.wait_for("ActivePath", second.path)
                recorder.wait_for("RolloverPath", "")
                second.unmount()
                recorder.wait_for("ActivePath", "")
                recorder.wait_for("MediaState", NO_MEDIUM)


def a_recording_goes_on_on_the_next_medium_when_its_own_is_pulled(bin_dir):
    with SlotRecorder(bin_dir) as recorder, Medium(recorder, "slot 2") as second:
        recorder.start()
        recorder.wait_for("RolloverPath", second.path)
        recorder.do("record")
        recorder.wait_for("StorageInUse", 1)
        time.sleep(1)
        subprocess.run(["umount", "-l", recorder.medium], check=True)
        recorder.wait_for("ActivePath", second.path)
        time.sleep(1)
        check(recorder.status()["stateNumber"] == 2, "the recording goes on")
        recorder.do("stop")
        recorder.wait_for("StorageInUse", 2)
        check(any(name.endswith(".mov") for name in os.listdir(second.path)), "nothing on the next medium")
        check(recorder.get("ActivePath") == second.path, "and stays there")


def a_medium_with_other_clips_shows_them_when_it_comes(bin_dir):
    with SlotRecorder(bin_dir) as recorder:
        recorder.start()
        clip = recorder.record(1)
        spare = os.path.join(recorder.dir, "spare.mov")
        shutil.copy(clip, spare)
        wait_said(recorder, f"1 clips on {recorder.medium}")
        for round_trip in range(3):
            subprocess.run(["umount", "-l", recorder.medium], check=True)
            recorder.wait_for("ActivePath", "")
            subprocess.run(["mount", "-t", "tmpfs", "tmpfs", recorder.medium], check=True)
            for i in range(round_trip + 2):
                shutil.copy(spare, os.path.join(recorder.medium, f"clip {i}.mov"))
            recorder.wait_for("ActivePath", recorder.medium)
            recorder.wait_log(f"Updated all clips list.  {round_trip + 2} entries")


def media_without_an_identifier_are_told_apart(bin_dir):
    with SlotRecorder(bin_dir, count=3) as recorder:
        recorder.start()
        with open(recorder.record(1), "rb") as file:
            clip = file.read()
        folders = [os.path.join(recorder.dir, name) for name in ("a clip", "no clip")]
        for folder, content in zip(folders, (clip, bytes(len(clip)))):
            os.mkdir(folder)
            name = os.path.join(folder, "same.mov")
            with open(name, "wb") as file:
                file.write(content)
            os.utime(name, (1700000000, 1700000000))
        first, second = recorder.slots[1:]
        with FailingMedium(first, folders[0]):
            wait_said(recorder, f"1 clips on {first}, 0 bad")
            with FailingMedium(second, folders[1]):
                wait_said(recorder, f"0 clips on {second}, 1 bad")


def a_medium_that_fails_is_known_however_its_path_is_written(bin_dir):
    with SlotRecorder(bin_dir) as recorder, LoopMedium(recorder, "second", "64m") as second:
        recorder.start()
        subprocess.run(["mount", "-o", "remount,errors=remount-ro", second.path], check=True)
        path = second.path + "/"
        recorder.set("RolloverPath", path)
        wait_said(recorder, f"0 clips on {path}")
        device = subprocess.run(["findmnt", "-no", "SOURCE", second.path], capture_output=True, text=True, check=True)
        recorder.do("record")
        recorder.wait_for("StorageInUse", 1)
        check(recorder.get("RolloverPath") == path, "a client's choice")
        with open(f"/sys/fs/ext4/{os.path.basename(device.stdout.strip())}/trigger_fs_error", "w",
                  encoding="ascii") as trigger:
            trigger.write("listing")
        recorder.wait_for("RolloverPath", "")


def an_idle_service_asks_for_nothing(bin_dir):
    with SlotRecorder(bin_dir) as recorder:
        recorder.start()
        recorder.wait_for("MediaState", READY)
        time.sleep(1)
        woken = wakes_of_service(recorder, 5)
        check(woken == 0, f"woken {woken} times in five seconds")


def make_what_is_no_file(recorder, clip):
    """Everything else that may have a clip's name, and names that are no text."""
    def at(name):
        return os.path.join(os.fsencode(recorder.medium), name)
    os.mkfifo(at(b"pipe.mov"))
    os.mkdir(at(b"folder.mov"))
    for name, target in ((b"zero.mov", "/dev/zero"), (b"nowhere.mov", "nowhere"), (b"itself.mov", "itself.mov"),
                         (b"outside.mov", recorder.db), (b"inside.mov", clip)):
        os.symlink(target, at(name))
    os.mknod(at(b"disk.mov"), stat.S_IFBLK | 0o666, os.makedev(7, 250))
    os.mknod(at(b"memory.mov"), stat.S_IFCHR | 0o666, os.makedev(1, 5))
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(at(b"socket.mov"))
    for name in (b"a\nb.mov", b"a\x1b[2Jb.mov", b"\xff\xfe.mov", b".mov", b"..mov"):
        shutil.copy(clip, at(name))


def hostile_files_cost_entries_and_nothing_else(bin_dir):
    with SlotRecorder(bin_dir) as recorder:
        recorder.start()
        clip = recorder.record(1)
        wait_said(recorder, f"1 clips on {recorder.medium}")
        with open(clip, "rb") as file:
            content = file.read()
        index = content.rfind(b"moov")
        state = 1
        for i in range(1000):
            hostile = bytearray(content[:8]) + bytearray(content[index - 4:])
            for _ in range(1 + i % 9):
                state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
                hostile[8 + (state >> 8) % (len(hostile) - 8)] = state & 0xFF
            with open(os.path.join(recorder.medium, f"hostile {i}.mov"), "wb") as file:
                file.write(hostile[:len(hostile) - (i % 5) * len(hostile) // 7])
        make_what_is_no_file(recorder, clip)
        shutil.copy(clip, os.path.join(recorder.medium, "\u6620\u50cf after.all.mov"))
        recorder.wait_log("Updated all clips list.  2 entries", 30)
        check(recorder.processes["rvmedia"].poll() is None, "the service is gone")
        recorder.do("goto", "\u6620\u50cf after.all.mov")
        recorder.wait_for("CurrentClip", "\u6620\u50cf after.all.mov")
        for i in range(7999):
            os.link(clip, os.path.join(recorder.medium, f"many {i}.mov"))
        # Links are no news; a file that is closed is.
        shutil.copy(clip, os.path.join(recorder.medium, "many 7999.mov"))
        recorder.wait_log("Updated all clips list.  8002 entries", 20)
        check(recorder.processes["rvmedia"].poll() is None, "the service is gone")
        recorder.do("goto", "many 7999.mov")
        check(len(recorder.ctl("clips").stdout.splitlines()) == 9003, "all are shown, the bad ones too")
        recorder.record(1)
        recorder.wait_log("Updated all clips list.  8003 entries")


def a_service_killed_and_started_again_goes_on(bin_dir):
    with SlotRecorder(bin_dir) as recorder, Medium(recorder, "slot 2") as second:
        recorder.start()
        recorder.record(1)
        wait_said(recorder, f"1 clips on {recorder.medium}")
        for _ in range(3):
            recorder.processes["rvmedia"].send_signal(signal.SIGKILL)
            recorder.processes["rvmedia"].wait()
            updated = recorder.log_text().count("Updated all clips list")
            recorder.start_media()
            wait_until("the lists are told", lambda: recorder.log_text().count("Updated all clips list") > updated)
        recorder.record(1)
        recorder.wait_log("Updated all clips list.  2 entries")
        check(recorder.get("RolloverPath") == second.path, "the next medium")


def recordings_roll_over_round_three_slots(bin_dir):
    with SlotRecorder(bin_dir, count=3, size="384m") as recorder, \
            Medium(recorder, "slot 2", "384m") as second, Medium(recorder, "slot 3", "384m") as third:
        recorder.start()
        recorder.wait_for("InputFormat", 1)
        wait_said(recorder, f"0 clips on {third.path}")
        recorder.set("RolloverEnable", 1)
        recorder.wait_for("RolloverPath", second.path)
        order = [recorder.medium, second.path, third.path, recorder.medium, second.path]
        fill_to(order[0], 12)
        recorder.do("record")
        for before, after in zip(order, order[1:]):
            recorder.wait_for("ActivePath", after, 60)
            # The operator exchanges the full medium; the next one after this is where it will go on.
            for name in os.listdir(before):
                if name == ".ballast":
                    os.remove(os.path.join(before, name))
            check(recorder.status()["stateNumber"] == 2, "the recording goes on")
            recorder.wait_for("RolloverPath", order[(order.index(after) + 1) % 3])
            fill_to(after, 12)
        recorder.do("stop")
        wait_until("all clips are closed", lambda: recorder.log_text().count("STREAM: Close is Done") >= 5)
        stem = os.path.basename(min(recorder.clips(), key=len))[:-len(".mov")]
        names = [stem] + [f"{stem}_{part}" for part in range(2, 6)]
        numbers = []
        for path, name in zip(order, names):
            numbers += rig.clip_numbers(os.path.join(path, name + ".mov"))
        check(None not in numbers and all(b == a + 1 for a, b in zip(numbers, numbers[1:])),
              f"every frame once over five clips: {len(numbers)} frames")


def clients_edit_the_play_list_through_the_store(bin_dir):
    with SlotRecorder(bin_dir) as recorder:
        recorder.start()
        first, second = (os.path.basename(recorder.record(1)) for _ in range(2))
        name = os.path.join(recorder.medium, "playlist.m3u")

        def entries():
            with open(name, encoding="utf-8") as file:
                return [line for line in file.read().splitlines() if not line.startswith("#")]

        recorder.set("PlayListEdit", f"append {first}")
        recorder.wait_log("Updated play list.  1 entries")
        for edit in (f"append {second}", "append gone.mov", f"insert 0 {second}", "move 1 0"):
            recorder.set("PlayListEdit", edit)
        wanted = [first, second, second, "gone.mov"]
        wait_until(f"the play list is {wanted}", lambda: entries() == wanted)
        # The clip that is missing is no entry for who plays.
        recorder.wait_log("Updated play list.  3 entries")
        shown = json.loads(recorder.ctl("--json", "playlist").stdout)["playList"]
        check([(e["name"], e["state"]) for e in shown] ==
              [(first, "ready"), (second, "ready"), (second, "ready"), ("gone.mov", "missing")], f"shown: {shown}")
        listed = json.loads(recorder.ctl("--json", "clips").stdout)["clips"]
        check([(c["name"], c["frames"]) for c in listed] ==
              [(n, len(rig.clip_numbers(os.path.join(recorder.medium, n)))) for n in (first, second)], f"{listed}")
        check(first in recorder.ctl("clips", "all").stdout, "the clips for people")
        media = json.loads(recorder.ctl("--json", "media").stdout)["media"]
        check(media[0]["path"] == recorder.medium and media[0]["freePercent"] > 50, f"{media}")
        check(recorder.ctl("rollover", "on").returncode == 0 and recorder.get("RolloverEnable") == 1, "rollover on")
        check(recorder.ctl("playlist", "remove", 7).returncode == 1, "there is no such entry")
        wait_said(recorder, "Can't edit the play list of")
        recorder.set("PlayListEdit", "clear")
        wait_until("the play list is empty", lambda: not entries())


if __name__ == "__main__":
    main([media_become_active_and_next_as_they_come, a_recording_goes_on_on_the_next_medium_when_its_own_is_pulled,
          a_medium_with_other_clips_shows_them_when_it_comes, media_without_an_identifier_are_told_apart,
          a_medium_that_fails_is_known_however_its_path_is_written, an_idle_service_asks_for_nothing,
          hostile_files_cost_entries_and_nothing_else, a_service_killed_and_started_again_goes_on,
          recordings_roll_over_round_three_slots, clients_edit_the_play_list_through_the_store])
