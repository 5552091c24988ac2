"""What takes long: ten minutes of recording 1080p25 as ProRes 422 without a dropped frame and in steady memory,
and every speed, end and join of playback in every format, frame by frame."""

import os
import subprocess
import time

import rig
from rig import Recorder, check, clip_numbers, main

MINUTES = 10


def resident_mb(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as status:
        for line in status:
            if line.startswith("RssAnon"):
                return int(line.split()[1]) / 1024
    return 0


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
            memory.append(resident_mb(recorder.processes["rvd"].pid))
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


def every_frame_follows_the_speed_law(bin_dir):
    program = os.path.join(bin_dir, "..", "tests", "frame_law")
    print(f"$ {program} --full", flush=True)
    outcome = subprocess.run([program, "--full"], timeout=3600, check=False)
    check(outcome.returncode == 0, "a line of the table above does not hold")


if __name__ == "__main__":
    main([every_frame_follows_the_speed_law, ten_minutes_without_a_dropped_frame])
