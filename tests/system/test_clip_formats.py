"""Clips of every format of the recorder, written as it writes them and decoded whole by FFmpeg and GStreamer.

Every raster, scan and rate once, the data types in turn, and every data type in four formats; with "all" behind the
folder every data type in every format."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

from clipcheck import DATA_TYPES, check_clip, name_of
from rig import Failed

EACH_TYPE_IN = ((720, 486, 1, 29), (1920, 1080, 1, 25), (1920, 1080, 2, 23), (2048, 1080, 0, 59))
START = "10:20:30{}12"


def rows(maker, is_all):
    """Format, data type, channels, drop-frame flag."""
    listed = subprocess.run([maker, "formats"], capture_output=True, text=True, check=True).stdout
    formats = [tuple(json.loads(line)) for line in listed.splitlines()]
    types = [row[1] for row in DATA_TYPES]
    pairs = [(one, types[i % len(types)]) for i, one in enumerate(formats)]
    pairs += [(one, number) for one in EACH_TYPE_IN for number in types]
    if is_all:
        pairs = [(one, number) for one in formats for number in types]
    for i, (one, number) in enumerate(dict.fromkeys(pairs)):
        yield one, number, (2, 8)[i // 2 % 2], one[3] in (29, 59) and i % 3 != 0


def frames_of(height):
    return 2 if height > 1080 else 4


def make_and_check(maker, row):
    one, number, channels, is_drop = row
    folder = tempfile.mkdtemp(prefix="rvformats-", dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None)
    frames = frames_of(one[1])
    try:
        subprocess.run([maker, "clip", folder, *map(str, one), str(number), str(channels), str(int(is_drop)), str(frames)],
                       check=True, timeout=60)
        want = {"format": one, "type": number, "channels": channels, "frames": frames,
                "timecode": START.format(";" if is_drop else ":"), "reel": "Rolle ü 7"}
        return True, check_clip(os.path.join(folder, "clip.mov"), want, folder,
                                os.path.join(folder, "pictures.yuv"), os.path.join(folder, "sound.pcm"))
    except (Failed, subprocess.SubprocessError, OSError, KeyError) as error:
        return False, f"{name_of(*one):<20} type {number}: {error}"
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def main():
    maker = os.path.join(os.path.dirname(os.path.abspath(sys.argv[1])), "tests", "clip_maker")
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(lambda row: make_and_check(maker, row), rows(maker, sys.argv[2:] == ["all"])))
    for is_good, text in results:
        print(f"{'PASS' if is_good else 'FAIL'}   {text}")
    failed = sum(not is_good for is_good, _ in results)
    print(f"{len(results) - failed} of {len(results)} clips are right in FFmpeg and GStreamer")
    sys.exit(1 if failed or not results else 0)


if __name__ == "__main__":
    main()
