"""What takes long: three million random acts against the engine; the store behind a bad network and killed by the
thousand; writers of clips killed and cut off; recorders killed, and their system calls and media failing; every speed,
end and join of playback in every format, frame by frame; every data type in every format; ten minutes of recording
1080p25 as ProRes 422, and of camera-like pictures at 1080p60, 2160p30 and 2160p60 as 422 HQ, without a dropped frame and
in steady memory."""

import os
import subprocess
import time

import rig
import test_failing_media
import test_killed_daemon
import test_live
import test_rollover
from rig import Recorder, check, clip_numbers, main

MINUTES = 10


def ten_minutes_without_a_dropped_frame(bin_dir):
    with Recorder(bin_dir, medium="loop", size="40g") as recorder:
        recorder.start()
        recorder.wait_for("InputFormat", 20)
        time.sleep(1)
        recorder.do("record")
        memory = []
        for _ in range(MINUTES * 6):
            time.sleep(10)
            check(recorder.status()["stateNumber"] == 2, "it records on:\n" + recorder.log_text()[-1500:])
            memory.append(rig.status_megabytes(recorder.processes["rvd"].pid, "RssAnon"))
        recorder.do("stop")
        rig.wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text(), 30)
        numbers = clip_numbers(recorder.clips()[0])
        gaps = sum(b != a + 1 for a, b in zip(numbers, numbers[1:]))
        early, late = max(memory[1:7]), max(memory[-6:])
        print(f"{len(numbers)} frames, {gaps} gaps, private memory {early:.0f} MB early, {late:.0f} MB late")
        check(gaps == 0 and None not in numbers, f"{gaps} gaps")
        check(len(numbers) >= MINUTES * 60 * 25, f"{len(numbers)} frames")
        check("dropped frame" not in recorder.log_text(), "a dropped frame was logged")
        check(late < early * 1.1 + 10, f"memory grows from {early:.0f} to {late:.0f} MB")


def passes(bin_dir, program, *arguments, **environment):
    path = os.path.join(bin_dir, "..", "tests", program)
    print("$", *(f"{name}={value}" for name, value in environment.items()), path, *arguments, flush=True)
    outcome = subprocess.run([path, *arguments], env={**os.environ, **environment}, timeout=3600, check=False)
    check(outcome.returncode == 0, f"{program} {' '.join(arguments)} failed, see above")


def every_frame_follows_the_speed_law(bin_dir):
    passes(bin_dir, "frame_law", "--full")


def the_engine_survives_any_story(bin_dir):
    passes(bin_dir, "tst_engine_random", RV_STRESS_SEEDS="12000", QTEST_FUNCTION_TIMEOUT="3600000")


def the_store_keeps_its_promises(bin_dir):
    store = os.path.join(bin_dir, "rvstore")
    for scenario, count in (("lossy", 1000000), ("kills", 10000), ("restarts", 300), ("flood", 30)):
        passes(bin_dir, "store_torture", scenario, store, str(count), "1")


def clips_survive_kills_and_power_cuts(bin_dir):
    for what, count in (("kills", 1000), ("cuts-ext4", 100), ("cuts-xfs", 100), ("cuts-ext4-large", 100)):
        passes(bin_dir, "clip_torture", what, str(count), "1")


def hostile_media_cost_nothing_but_entries(bin_dir):
    passes(bin_dir, "tst_media_listing", RV_HOSTILE_CLIPS="19000")
    corpus = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "fuzz", "corpus")
    for topic in ("clip", "clipreader", "medium", "prores"):
        passes(bin_dir, f"fuzz_{topic}", "--seconds", "120", "--seed", str(int(time.time())), os.path.join(corpus, topic))


def every_data_type_in_every_format_is_right_elsewhere(bin_dir):
    script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "test_clip_formats.py")
    outcome = subprocess.run(["python3", script, bin_dir, "all"], timeout=3600, check=False)
    check(outcome.returncode == 0, "a clip is wrong, see above")


if __name__ == "__main__":
    main([the_engine_survives_any_story, the_store_keeps_its_promises, clips_survive_kills_and_power_cuts,
          *test_failing_media.long(), *test_killed_daemon.long(),
          hostile_media_cost_nothing_but_entries, every_data_type_in_every_format_is_right_elsewhere,
          every_frame_follows_the_speed_law, *test_rollover.long(), ten_minutes_without_a_dropped_frame, *test_live.long()])
