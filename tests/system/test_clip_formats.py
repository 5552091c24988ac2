"""Clips of every format of the recorder, written as it writes them, decoded whole by FFmpeg and GStreamer, and looked at
by MediaInfo.

Every raster, scan and rate up to 1080 lines once and half of those above, the data types in turn, and every data type in
three formats; with "all" behind the folder every data type in every format."""

import json
import os
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

from clipcheck import DATA_TYPES, check_clip, name_of
from rig import Failed

EACH_TYPE_IN = ((720, 486, 1, 29), (1920, 1080, 1, 25), (1920, 1080, 2, 23))
START = "10:20:30{}12"


def rows(maker, is_all):
    """Format, data type, channels, drop-frame flag."""
    listed = subprocess.run([maker, "formats"], capture_output=True, text=True, check=True).stdout
    formats = [tuple(json.loads(line)) for line in listed.splitlines()]
    types = [row[1] for row in DATA_TYPES]
    pairs = [(one, types[i % len(types)]) for i, one in enumerate(formats)]
    pairs += [(one, number) for one in EACH_TYPE_IN for number in types]
    if not is_all:
        # The large ones take the time: every second of them.
        pairs = [pair for i, pair in enumerate(pairs) if pair[0][1] <= 1080 or i % 2 == 0]
    else:
        pairs = [(one, number) for one in formats for number in types]
    for i, (one, number) in enumerate(dict.fromkeys(pairs)):
        yield one, number, (2, 8)[i // 2 % 2], one[3] in (29, 59) and i % 3 != 0


def frames_of(height, is_all):
    return 4 if is_all or height <= 1080 else 2


def make_and_check(maker, row, is_all):
    one, number, channels, is_drop = row
    folder = tempfile.mkdtemp(prefix="rvformats-", dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None)
    frames = frames_of(one[1], is_all)
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
    is_all = sys.argv[2:] == ["all"]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(lambda row: make_and_check(maker, row, is_all), rows(maker, is_all)))
    for is_good, text in results:
        print(f"{'PASS' if is_good else 'FAIL'}   {text}")
    failed = sum(not is_good for is_good, _ in results)
    print(f"{len(results) - failed} of {len(results)} clips are right in FFmpeg, GStreamer and MediaInfo")
    sys.exit(1 if failed or not results else 0)


if __name__ == "__main__":
    main()
