#!/usr/bin/env python3
"""Records a live stream of another program, over the end of a medium, too, and plays it at many speeds and from a play
list; every line must hold.

Prints a table of what was expected and what was seen on the program bus or in the clip, by an independent
reader where there is one. Ends with 0 only if every line holds.
"""

import json
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "system"))
import rig  # noqa: E402
from test_media import LoopMedium, fill_to, wait_said  # noqa: E402

URL = "udp://127.0.0.1:5004?pkt_size=1316"
# DEMO_RATE=60: the same at 60 frames a second in HQ.
RATE = int(os.environ.get("DEMO_RATE", "25"))
SIZE, INPUT_FORMAT = "1920x1080", f"1080p{RATE}"
ENCODE_TYPE, CODEC_TAG, LEAST_SECONDS_LEFT = ("ProRes 422 HQ", "apch", 20) if RATE > 30 else ("ProRes 422", "apcn", 60)
RECORD_SECONDS = 10

failures = 0


def line(name, ok, seen):
    global failures
    failures += not ok
    print(f"{'ok  ' if ok else 'FAIL'}  {name:<44} {seen}", flush=True)


def guarded(name, step):
    """Runs one step that answers (ok, what was seen)."""
    try:
        ok, seen = step()
    except (rig.Failed, subprocess.SubprocessError, OSError, ValueError, KeyError, IndexError) as error:
        ok, seen = False, str(error)
    line(name, ok, seen)
    return ok


class Sender:
    """Another program sends: ffmpeg codes the camera's pictures as MPEG-2 into a transport stream."""

    def __init__(self, bin_dir):
        self.camera = subprocess.Popen(
            [os.path.join(bin_dir, "rvcam"), "--pipe", "--size", SIZE, "--rate", str(RATE), "--first", "1000"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.ffmpeg = subprocess.Popen(
            ["ffmpeg", "-v", "error", "-f", "yuv4mpegpipe", "-i", "-", "-f", "lavfi", "-i",
             "sine=frequency=1000:sample_rate=48000", "-map", "0:v", "-map", "1:a", "-c:v", "mpeg2video",
             "-qscale:v", "3", "-maxrate", "40M", "-bufsize", "8M", "-g", "12", "-c:a", "mp2", "-ac", "2",
             "-f", "mpegts", URL],
            stdin=self.camera.stdout, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.camera.stdout.close()

    def stop(self):
        for process in (self.ffmpeg, self.camera):
            process.kill()
            process.wait()


def consecutive(numbers):
    return None not in numbers and all(b == a + 1 for a, b in zip(numbers, numbers[1:]))


def steps_of(frames):
    """The differences between one frame on the output and the next."""
    numbers = rig.shown(frames)
    if None in numbers:
        return None
    return [b - a for a, b in zip(numbers, numbers[1:])]


def clip_lines(clip):
    info = rig.probe(clip)
    video, audio = rig.stream_of(info, "video"), rig.stream_of(info, "audio")
    data = rig.stream_of(info, "data")
    frames = int(video["nb_read_packets"])
    line("clip: codec", video["codec_name"] == "prores" and video["codec_tag_string"] == CODEC_TAG,
         f"{video['codec_name']} {video['codec_tag_string']}")
    line("clip: raster and rate", (video["width"], video["height"], video["r_frame_rate"]) == (1920, 1080, f"{RATE}/1"),
         f"{video['width']}x{video['height']} {video['r_frame_rate']}")
    line("clip: about ten seconds", 9.8 * RATE <= frames <= 11 * RATE, f"{frames} frames")
    line("clip: sound", audio["codec_name"].startswith("pcm_s24") and int(audio["channels"]) == 2
         and int(audio["sample_rate"]) == 48000, f"{audio['codec_name']} {audio['channels']} ch {audio['sample_rate']} Hz")
    line("clip: sound as long as picture", abs(float(audio["duration"]) - frames / RATE) < 0.001,
         f"{audio['duration']} s")
    timecode = data.get("tags", {}).get("timecode")
    line("clip: start timecode", timecode == "10:00:00:00", timecode)
    reel = data.get("tags", {}).get("reel_name")
    line("clip: reel name", reel == "007", reel)
    numbers = rig.clip_numbers(clip)
    line("clip: pictures run without gap or repeat", len(numbers) == frames and consecutive(numbers),
         f"{numbers[0]} to {numbers[-1]}")
    return numbers


def play_normal(recorder, first):
    def step():
        watch = recorder.watch_output()
        recorder.do("play")
        time.sleep(5)
        recorder.do("stop")
        frames = rig.playback_only(watch.finish())
        # The first frame may have stood there before as the still it was.
        start = next(i for i, f in enumerate(frames) if f["number"] == first and f["content"] == "playback")
        run = frames[start:start + 100]
        numbers = rig.shown(run)
        # Seen from outside: when each frame came, against a clock that ticks with the frames.
        offsets = sorted(f["seenMs"] - i * 1000 / RATE for i, f in enumerate(run))
        spread = offsets[-1] - offsets[0]
        return (len(run) == 100 and consecutive(numbers) and spread < 1000 / RATE,
                f"{numbers[0]} to {numbers[-1]}, seen within {spread:.1f} ms of the clock")
    guarded("play 1x: every frame once, in order, in step", step)


def play_speed(recorder, name, command, by, skip=10, count=40):
    def step():
        command()
        frames = rig.playback_only(recorder.frames(skip + count))[skip:]
        steps = steps_of(frames)
        ok = steps is not None and len(steps) == count - 1 and set(steps) == {by}
        return ok, f"steps {sorted(set(steps)) if steps else 'unreadable'} over {count} frames"
    guarded(f"play {name}: steps of {by:+d}", step)


def still_and_steps(recorder):
    def still():
        time.sleep(0.3)
        steps = steps_of(recorder.frames(10))
        return steps == [0] * 9, f"steps {steps}"
    guarded("still: the picture stands", still)

    def step_by(command, by):
        def step():
            before = recorder.frames(1)[0]["number"]
            recorder.do("step", command)
            time.sleep(0.4)
            after = recorder.frames(1)[0]["number"]
            return after - before == by, f"{before} to {after}"
        return step
    guarded("step +1", step_by("+1", 1))
    guarded("step -1", step_by("-1", -1))


def cue(recorder, entry, first):
    def step():
        watch = recorder.watch_output()
        began = time.monotonic()
        recorder.do("goto", entry)
        rig.wait_until("the frame is seen", lambda: watch.frames[-1]["number"] == first, 3, 0.001)
        took = (time.monotonic() - began) * 1000
        watch.finish()
        time.sleep(0.2)
        now = recorder.frames(3)
        return set(rig.shown(now)) == {first}, f"frame {first} after {took:.0f} ms, command line included"
    guarded(f"cue to clip {entry}: its first frame", step)


def play_list(recorder, entries, wanted):
    def step():
        for entry in entries:
            recorder.do("playlist", "append", entry)
        rig.wait_until("the play list is told",
                       lambda: f"Updated play list.  {len(entries) - 1} entries" in recorder.log_text())
        states = [entry["state"] for entry in json.loads(recorder.ctl("--json", "playlist").stdout)["playList"]]
        recorder.set("PlayMedia", "2")
        recorder.do("goto", 0)
        rig.wait_until("it stands on the first frame", lambda: rig.shown(recorder.frames(1)) == wanted[:1])
        watch = recorder.watch_output()
        recorder.do("play")
        time.sleep(len(wanted) / RATE + 1.5)
        shown = rig.changes(rig.shown(rig.playback_only(watch.finish())))
        recorder.do("stop")
        ok = shown[:len(wanted)] == wanted and states.count("missing") == 1
        if shown[:len(wanted)] != wanted:
            at = next((i for i, (a, b) in enumerate(zip(shown, wanted)) if a != b), min(len(shown), len(wanted)))
            return False, f"{shown[max(0, at - 2):at + 3]} in place of {wanted[max(0, at - 2):at + 3]}"
        return ok, f"{shown[0]} to {shown[-1]}, {states.count('missing')} of {len(states)} entries missing and left out"
    guarded("play list: its clips in its order, no gap", step)
    recorder.do("standby-off")
    recorder.set("PlayMedia", "0")


def roll_over(recorder):
    with LoopMedium(recorder, "full medium", "2g") as full, LoopMedium(recorder, "next medium", "2g") as after:
        def step():
            for name, path in (("ActivePath", full.path), ("RolloverPath", after.path), ("RolloverEnable", 1)):
                recorder.set(name, path)
            wait_said(recorder, f"0 clips on {full.path}")
            wait_said(recorder, f"0 clips on {after.path}")
            fill_to(full.path, 10.7)
            closed = recorder.log_text().count("STREAM: Close is Done")
            recorder.do("record")
            recorder.wait_log(f"Rollover from {full.path} to {after.path} has completed.", 20)
            time.sleep(1.5)
            recorder.do("stop")
            rig.wait_until("both clips are closed",
                           lambda: recorder.log_text().count("STREAM: Close is Done") >= closed + 2)
            parts = [rig.clip_numbers(os.path.join(folder, name)) for folder in (full.path, after.path)
                     for name in os.listdir(folder) if name.endswith(".mov")]
            return (len(parts) == 2 and consecutive(parts[0] + parts[1]),
                    " and ".join(f"{part[0]} to {part[-1]}" for part in parts))
        guarded("rollover: two media, every frame once", step)

        def eject():
            recorder.do("standby-off")
            recorder.wait_for("StorageInUse", 2)
            recorder.do("eject", full.path)
            slots = {slot["path"]: slot for slot in json.loads(recorder.ctl("--json", "media").stdout)["media"]}
            left = slots[after.path]["secondsLeft"]
            return (not os.path.ismount(full.path) and slots[after.path]["role"] == "active" and left > LEAST_SECONDS_LEFT,
                    f"unmounted; the other one has {left} s of {slots[after.path]['format']} left")
        guarded("eject: the full medium can be taken out", eject)


def main():
    bin_dir = os.path.abspath(sys.argv[1])
    began = time.monotonic()
    sender = Sender(bin_dir)
    with rig.Recorder(bin_dir, source=URL, console=True) as recorder:
        try:
            run(recorder)
        finally:
            sender.stop()
            if failures and not os.environ.get("RV_KEEP"):
                print("\nThe end of the daemon's log:\n" + recorder.log_text()[-3000:])
    print(f"{'All lines hold' if not failures else f'{failures} lines fail'}, {time.monotonic() - began:.0f} s")
    sys.exit(1 if failures else 0)


def run(recorder):
    recorder.start()
    recorder.set("ReelName", "7")
    recorder.set("TimecodeValue", "10")
    guarded("the live input is recognised", lambda: (
        rig.wait_until("the input is seen", lambda: recorder.status()["inputFormat"] == INPUT_FORMAT, 20), INPUT_FORMAT))
    recorder.set("EncodeType", ENCODE_TYPE)
    time.sleep(3)  # the device takes the input's format, and the stream comes to its pace
    guarded("E-E: the input on the output, no gap", lambda: (
        consecutive(rig.shown(frames := recorder.frames(50))), f"{frames[0]['number']} to {frames[-1]['number']}"))

    first_clip = recorder.record(RECORD_SECONDS)
    numbers = clip_lines(first_clip)
    second_clip = recorder.record(2)
    second = rig.clip_numbers(second_clip)
    line("a second clip, whole", consecutive(second), f"{second[0]} to {second[-1]}")

    name = os.path.basename(first_clip)
    rig.wait_until("both clips are listed", lambda: f"Updated all clips list.  2 entries" in recorder.log_text())
    recorder.do("standby-off")
    recorder.ctl("goto", name)
    time.sleep(0.7)
    recorder.do("standby-off")
    play_normal(recorder, numbers[0])
    still_and_steps(recorder)
    play_speed(recorder, "-1x", lambda: recorder.key("-" * 10), -1)
    recorder.do("play")
    recorder.set("PlayMedia", "1")
    time.sleep(1)
    cue(recorder, 0, numbers[0])
    cue(recorder, 1, second[0])
    cue(recorder, 0, numbers[0])
    play_speed(recorder, "2x", lambda: recorder.do("ff"), 2)
    recorder.do("rew")
    play_speed(recorder, "-4x", lambda: recorder.do("rew"), -4, skip=6, count=12)

    def loop():
        recorder.set("LoopPlayback", "1")
        cue_end = numbers[0] + len(numbers) + len(second)
        recorder.ctl("goto", 1)
        time.sleep(0.5)
        watch = recorder.watch_output()
        recorder.do("play")
        time.sleep(len(second) / RATE + 2)
        shown = rig.changes(rig.shown(rig.playback_only(watch.finish())))
        at = shown.index(second[-1])
        around = shown[at - 2:at + 4]
        return (around == [*second[-3:], *numbers[:3]], f"{around}")
    guarded("loop: the last frame is followed by the first", loop)
    recorder.do("stop")
    recorder.do("standby-off")
    recorder.set("LoopPlayback", "0")

    # Its order is not that of the recordings.
    third_clip = recorder.record(1)
    recorder.do("standby-off")
    play_list(recorder, [os.path.basename(third_clip), "no such clip.mov", os.path.basename(second_clip)],
              rig.clip_numbers(third_clip) + second)
    roll_over(recorder)


if __name__ == "__main__":
    main()
