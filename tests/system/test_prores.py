"""What the recorder's ProRes is coded by, and that nothing is lost on the way."""

import os
import subprocess
import time

from rig import Recorder, check, clip_numbers, main, probe, stream_of, wait_until
from test_hanging import Changes


def encoder_ids(clip):
    """The encoder that each frame of a clip names in its header."""
    packets = subprocess.run(["ffmpeg", "-v", "error", "-i", clip, "-map", "0:v:0", "-c", "copy", "-f", "image2pipe",
                              "-"], capture_output=True, check=True).stdout
    ids, at = [], 0
    while at + 16 <= len(packets):
        check(packets[at + 4:at + 8] == b"icpf", f"a frame box at {at}")
        ids.append(packets[at + 12:at + 16])
        at += int.from_bytes(packets[at:at + 4], "big")
    return ids


def records_whole(recorder, seconds, fewest):
    clip = recorder.record(seconds)
    numbers = clip_numbers(clip)
    check(None not in numbers and all(b == a + 1 for a, b in zip(numbers, numbers[1:])), f"frames {numbers}")
    check(len(numbers) >= fewest, f"{len(numbers)} frames")
    recorder.do("standby-off")
    return clip


def the_own_encoder_records_every_frame(bin_dir):
    with Recorder(bin_dir, source_format="1920x1080p50") as recorder:
        recorder.start()
        recorder.set("EncodeType", 1)
        time.sleep(1.5)
        clip = records_whole(recorder, 3, 120)
        video = stream_of(probe(clip), "video")
        check(video["codec_tag_string"] == "apch", video["codec_tag_string"])
        check(set(encoder_ids(clip)) == {b"rvd1"}, str(set(encoder_ids(clip))))


def the_status_says_how_a_recording_keeps_up(bin_dir):
    with Recorder(bin_dir, source_format="1280x720p25") as recorder:
        recorder.start()
        time.sleep(2)
        check(int(recorder.get("CodingTime")) == 0, "nothing is coded before a recording")
        with Changes(recorder) as changes:
            time.sleep(0.5)
            began = time.monotonic()
            recorder.do("record")
            wait_until("coding takes time", lambda: int(recorder.get("CodingTime")) > 0, 5)
            time.sleep(2)
            status = recorder.status()
            check(int(status["worstCodingTimeMs"]) >= int(status["codingTimeMs"]) > 0, str(status))
            # A second of frames waits at most, and few of some seventy are late: it keeps up.
            check(int(status["captureQueue"]) <= 25 and int(status["lateFrames"]) <= 10, str(status))
            recorder.do("stop")
            recorder.do("standby-off")
            seconds = time.monotonic() - began
            last = recorder.status()
            time.sleep(1.5)
            # At the start, once a second and at the end, and nothing afterwards.
            sets = changes.of("eParamCodingTime")
            check(0 < len(sets) <= seconds + 2, f"{len(sets)} changes of the coding time in {seconds:.1f} s")
            now = recorder.status()
            names = ("captureQueue", "codingTimeMs", "worstCodingTimeMs", "lateFrames")
            check(all(now[name] == last[name] for name in names) and int(now["codingTimeMs"]) > 0, f"{last} {now}")


def urgency(pid, name):
    """The nice values of a process's threads of that name; None for one with real-time priority."""
    found = set()
    for thread in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{thread}/stat", encoding="ascii") as stat:
            head, _, rest = stat.read().rpartition(")")
        fields = rest.split()
        if head.partition("(")[2] == name:
            found.add(None if int(fields[15]) < 0 else int(fields[16]))
    return found


def what_has_the_deeper_queue_goes_later(bin_dir):
    with Recorder(bin_dir, source_format="1280x720p25") as recorder:
        recorder.start()
        time.sleep(1)
        recorder.do("record")
        pid = recorder.processes["rvd"].pid
        wait_until("a clip is written", lambda: urgency(pid, "clip sync"))
        seen = {name: urgency(pid, name) for name in ("frameclock", "rvd", "coder", "decoder", "clip I/O", "clip sync", "pictures")}
        recorder.do("stop")
        wanted = {"frameclock": {None}, "rvd": {-20}, "coder": {-15}, "decoder": {-15}, "clip I/O": {-10},
                  "clip sync": {-10}, "pictures": {-10}}
        check(seen == wanted, str(seen))
    with Recorder(bin_dir, source="udp://127.0.0.1:5004") as recorder:
        recorder.start()
        wait_until("a network's pictures are decoded like others",
                   lambda: urgency(recorder.processes["rvd"].pid, "input") == {-15})


def the_codec_library_records_when_the_device_says_so(bin_dir):
    with Recorder(bin_dir, source_format="1280x720p25") as recorder:
        file = os.path.join(recorder.dir, "device.ini")
        with open(file, "w", encoding="utf-8") as config:
            config.write("[coder]\nprores=ffmpeg\n")
        recorder.environment["RVD_DEVICE_CONFIG"] = file
        recorder.start()
        time.sleep(1.5)
        ids = set(encoder_ids(records_whole(recorder, 1.5, 25)))
        check(len(ids) == 1 and b"rvd1" not in ids, str(ids))


if __name__ == "__main__":
    main([the_own_encoder_records_every_frame, the_status_says_how_a_recording_keeps_up,
          what_has_the_deeper_queue_goes_later, the_codec_library_records_when_the_device_says_so])
