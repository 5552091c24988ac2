"""Clips of the whole recorder: in formats of every kind, checked by three foreign readers, and read while they grow."""

import json
import os
import subprocess
import sys
import tempfile
import time

import rig
from clipcheck import (INTERLACED, PROGRESSIVE, SEGMENTED, check_clip, check_numbers, check_sound, data_type, name_of,
                       rate_of)
from rig import Failed, Recorder, check, main, wait_until

CAMERA_BUS = "rvd_input_0"
RATE = 25
REEL = "042"
STILL = 15              # of TransportState
IN_USE, RELEASED = 1, 2 # of StorageInUse
HQ = 1                  # of EncodeType
LARGE = 120 << 20       # some five seconds of HQ

# width, height, scan, rate key, InputFormat of the store, data type, channels, drop frame
RECORDED = (
    (720, 486, INTERLACED, 29, 13, 202, 2, True),
    (720, 576, INTERLACED, 25, 14, 204, 8, False),
    (1280, 720, PROGRESSIVE, 59, 11, 205, 2, True),
    (1920, 1080, INTERLACED, 25, 4, 230, 8, False),
    (1920, 1080, SEGMENTED, 25, 7, 203, 2, False),
    (1920, 1080, PROGRESSIVE, 23, 22, 206, 8, False),
    (2048, 1080, PROGRESSIVE, 24, 37, 231, 2, False),
    (3840, 2160, PROGRESSIVE, 24, 53, 205, 2, False),
)


class Camera:
    """rvcam on the recorder's input bus; every sample of its sound is its own number."""

    def __init__(self, recorder, width, height, scan, key, channels):
        num, den = rate_of(key)
        self.process = subprocess.Popen(
            [os.path.join(recorder.bin, "rvcam"), "--bus", "/" + CAMERA_BUS, "--size", f"{width}x{height}",
             "--rate", f"{num}/{den}", "--scan", ("p", "i", "psf")[scan], "--channels", str(channels),
             "--sound", "count"])

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.process.kill()
        self.process.wait()


def record_one(recorder, row):
    """Records a moment of a camera; the clip, and the labels that the output had by picture number. Nothing when the
    machine was too busy: a frame was dropped, which ends a recording."""
    def has_dropped():
        return recorder.log_text().count("dropped frame") > dropped
    dropped = recorder.log_text().count("dropped frame")
    watch = recorder.watch_output()
    try:
        recorder.do("record")
        time.sleep(0.5)
        if not has_dropped():
            recorder.do("stop")
        wait_until("the clip is closed", lambda: has_dropped() or recorder.get("StorageInUse") == RELEASED)
    except Failed:
        check(has_dropped(), "no recording: " + recorder.log_text()[-800:])
    finally:
        seen = watch.finish()
    if has_dropped():
        recorder.do("standby-off")
        wait_until("the medium is free", lambda: recorder.get("StorageInUse") != IN_USE)
        for path in recorder.clips():
            os.unlink(path)
        return None, {}
    clip = wait_until("a clip is there", recorder.clips)[0]
    return clip, {frame["number"]: frame["timecode"] for frame in seen if frame["content"] == "live"}


def check_recorded(recorder, row, folder):
    width, height, scan, key, store_format, kind, channels, is_drop = row
    for name, value in (("TimecodeDropFrame", is_drop), ("TimecodeValue", 9), ("AudioChannels", channels == 8),
                        ("EncodeType", data_type(kind)[0])):
        recorder.set(name, int(value))
    with Camera(recorder, width, height, scan, key, channels):
        recorder.wait_for("InputFormat", store_format, 20)
        for _ in range(4):
            time.sleep(0.6)
            clip, labels = record_one(recorder, row)
            numbers = check_numbers(clip) if clip else [None]
            label = labels.get(numbers[0])
            if label:
                break
            if clip:  # whoever watches the output missed it, but saw the frames around it
                check(min(labels) < numbers[0] < max(labels), f"{numbers[0]} was not on the output: {sorted(labels)}")
                os.unlink(clip)
    recorder.do("standby-off")
    check(label, "a frame was dropped, or not seen on the output, each time")
    check((";" in label) == is_drop, f"{label} is {'no ' if is_drop else ''}drop-frame label")
    want = {"format": (width, height, scan, key), "type": kind, "channels": channels, "frames": len(numbers),
            "timecode": label, "reel": REEL}
    text = check_clip(clip, want, folder)
    check_sound(clip, channels)
    os.unlink(clip)
    return text


def formats_of_every_kind_are_recorded_right(bin_dir):
    shared = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with Recorder(bin_dir, source="bus:/" + CAMERA_BUS, size="6g") as recorder, \
            tempfile.TemporaryDirectory(dir=shared) as folder:
        recorder.start()
        recorder.set("ReelName", int(REEL))
        for row in RECORDED:
            try:
                text = check_recorded(recorder, row, folder)
            except Failed as error:
                raise Failed(f"{name_of(*row[:4])}, type {row[5]}: {error}") from error
            print("       " + text, flush=True)


def pictures_in(path):
    """Pictures that ffprobe finds now; 0 while there is nothing to open."""
    found = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-count_packets", "-show_entries",
                            "stream=nb_read_packets", "-of", "csv=p=0", path],
                           capture_output=True, text=True, check=False)
    text = found.stdout.strip()
    return int(text) if found.returncode == 0 and text.isdigit() else 0


def a_growing_clip_opens_in_other_programs(bin_dir):
    with Recorder(bin_dir, source_format="1280x720p25") as recorder:
        recorder.start()
        recorder.wait_for("InputFormat", 1)
        time.sleep(1)
        recorder.do("record")
        clip = wait_until("a clip is there", recorder.clips)[0]
        counts = []
        for _ in range(5):
            time.sleep(0.5)
            counts.append(pictures_in(clip))
        check(counts == sorted(counts) and counts[-1] > counts[2] > 0, f"frames seen as it grows: {counts}")
        early = check_numbers(clip)
        recorder.do("stop")
        wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        whole = check_numbers(clip)
        check(len(early) >= counts[-1] and whole[:len(early)] == early, f"{early[:3]} of {len(early)}, then {whole[:3]}")
        print(f"       ffprobe while it grows: {counts}; {len(whole)} frames at the end", flush=True)


def megabytes_in_memory(path):
    told = subprocess.run(["fincore", "--bytes", "--noheadings", "--output", "RES", path], capture_output=True,
                          text=True, check=True)
    return int(told.stdout) >> 20


def memory_taken_by_a_recording(bin_dir, source_format, number):
    """Megabytes of a clip in HQ while it is recorded, how many of them are in memory, and how many when it is closed."""
    with Recorder(bin_dir, source_format=source_format, medium="loop", size="512m") as recorder:
        recorder.start()
        recorder.wait_for("InputFormat", number)
        recorder.set("EncodeType", HQ)
        time.sleep(1)
        recorder.do("record")
        clip = wait_until("a clip is there", recorder.clips)[0]
        wait_until("it is large", lambda: os.path.getsize(clip) > LARGE, 20)
        size, cached = os.path.getsize(clip), megabytes_in_memory(clip)
        recorder.do("stop")
        wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        left = megabytes_in_memory(clip)
        numbers = check_numbers(clip)
        print(f"       {cached} of {size >> 20} MB in memory, {left} MB when closed; {len(numbers)} frames", flush=True)
        return size >> 20, cached, left


def what_is_recorded_does_not_fill_the_memory(bin_dir):
    """A recording is larger than the memory: what is safe on the medium gives its own back to others."""
    size, cached, left = memory_taken_by_a_recording(bin_dir, "1920x1080p25", 20)
    check(cached < size / 2, f"{cached} of {size} MB are kept in memory")
    check(left < size / 10, f"{left} MB of a closed clip are kept in memory")


def large_pictures_do_not_pass_through_the_memory(bin_dir):
    size, cached, left = memory_taken_by_a_recording(bin_dir, "3840x2160p25", 52)
    check(cached < size / 20, f"{cached} of {size} MB are kept in memory")
    check(left < size / 20, f"{left} MB of a closed clip are kept in memory")


def play_in_another_recorder(bin_dir, medium, name):
    """The other recorder, in namespaces of its own: plays the clip from a medium that it may only read, winds to its end,
    plays on from there, and tells where it was."""
    with Recorder(bin_dir, source="none", medium="none") as player:
        subprocess.run(["mount", "--bind", medium, player.medium], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", player.medium], check=True)
        player.start()
        wait_until("the clip is listed", lambda: any(row["name"] == name for row in clip_list(player)), 20)
        player.set("CurrentClip", name)
        watch = player.watch_output()
        at_open = pictures_in(os.path.join(medium, name))
        player.do("play")
        wait_until("it plays", lambda: frame_shown(watch))
        player.do("ff")
        player.wait_for("TransportState", STILL, 30)  # the end, as it is by now
        held = wait_until("the last frame stands", lambda: unmoved(watch))
        wait_until("the clip has grown", lambda: pictures_in(os.path.join(medium, name)) >= held + 2 * RATE)
        player.do("play")
        wait_until("it follows", lambda: frame_shown(watch) >= held + RATE, 20)
        print(json.dumps({"at_open": at_open, "held": held, "followed": frame_shown(watch)}), flush=True)
        sys.stdin.readline()
        player.wait_for("TransportState", STILL, 30)
        last = wait_until("the last frame stands", lambda: unmoved(watch))
        watch.finish()
        check(player.processes["rvd"].poll() is None, "the player lives")
        print(json.dumps({"last": last, "errors": player.log_text().count("Cache Error")}), flush=True)


def frame_shown(watch):
    """The number within the clip of what the output showed last; none before the clip is on it."""
    frames = rig.playback_only(watch.frames)
    return frames[-1]["frame"] or 0 if frames else 0


def unmoved(watch):
    """The frame that has been on the output for half a second; none while it moves."""
    before = frame_shown(watch)
    time.sleep(0.5)
    return before if frame_shown(watch) == before else 0


def clip_list(recorder):
    return json.loads(recorder.ctl("--json", "clips").stdout or "{}").get("clips", [])


def a_growing_clip_is_played_by_another_recorder_and_followed(bin_dir):
    isolated = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "isolated.sh")
    with Recorder(bin_dir, source_format="1280x720p25") as recorder:
        recorder.start()
        time.sleep(1)
        recorder.do("record")
        clip = wait_until("a clip is there", recorder.clips)[0]
        wait_until("it can be opened", lambda: pictures_in(clip) > 0)
        player = subprocess.Popen([isolated, sys.executable, os.path.abspath(__file__), bin_dir, "--play",
                                   recorder.medium, os.path.basename(clip)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        try:
            told = json.loads(player.stdout.readline() or "{}")
            check(told, "the player failed")
            recorder.do("stop")
            player.stdin.write("stopped\n")
            player.stdin.flush()
            told |= json.loads(player.stdout.readline() or "{}")
            check("last" in told, "the player failed")
            player.wait(20)  # it clears away behind itself
        finally:
            player.kill()
            player.wait()
        whole = len(check_numbers(clip))
        print("       {at_open} frames when it was opened, held at {held}, followed to {followed}, ".format(**told)
              + f"{whole} at the end", flush=True)
        check(told["at_open"] - RATE <= told["held"] < told["followed"] <= told["last"] < whole, str(told))
        check(told["errors"] == 0, f"{told['errors']} frames could not be read")


if __name__ == "__main__":
    if sys.argv[2:3] == ["--play"]:
        play_in_another_recorder(sys.argv[1], *sys.argv[3:])
    else:
        main([formats_of_every_kind_are_recorded_right, a_growing_clip_opens_in_other_programs,
              a_growing_clip_is_played_by_another_recorder_and_followed, what_is_recorded_does_not_fill_the_memory,
              large_pictures_do_not_pass_through_the_memory])
