"""The input is lost while a recording goes on: the stock picture, running timecode and silence stand in for it."""

import hashlib
import os
import subprocess
import time

from rig import Recorder, check, clip_numbers, main, probe, stream_of, wait_until

MEDIA = "/usr/local/share/media"
STOCK = MEDIA + "/prores_422/loss_of_video_720p_422.mov"


def install_stock_clips(bin_dir):
    """In a file system of their own, which is gone with the test's mounts."""
    share = os.path.dirname(MEDIA)
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", share], check=True)
    subprocess.run([os.path.join(bin_dir, "rvstock"), MEDIA], check=True, stderr=subprocess.DEVNULL)


def pictures(path):
    """A digest of each picture of a clip, decoded by FFmpeg."""
    result = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-map", "0:v:0", "-fps_mode", "passthrough",
                             "-f", "framemd5", "-"], capture_output=True, text=True, check=False)
    check(result.returncode == 0, result.stderr)
    return [line.split(",")[-1].strip() for line in result.stdout.splitlines() if not line.startswith("#")]


def sound(path):
    result = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-map", "0:a:0", "-f", "s24le", "-c:a", "pcm_s24le", "-"],
                            capture_output=True, check=True)
    return result.stdout


def start_camera(recorder, first):
    return subprocess.Popen([os.path.join(recorder.bin, "rvcam"), "--size", "1280x720", "--rate", "25",
                             "--first", str(first)])


def end(camera):
    camera.kill()
    camera.wait()


def check_clip(clip, stock):
    seen = pictures(clip)
    numbers = clip_numbers(clip)
    lost = [i for i, digest in enumerate(seen) if digest == stock]
    check(len(lost) >= 25, f"{len(lost)} of {len(seen)} frames show the stock picture")
    check(all(numbers[i] is None for i in lost), "the stock picture has no frame number")
    before = [n for n in numbers[:lost[0]] if n is not None]
    check(len(before) > 10 and before[0] >= 1000, f"live before: {before[:3]} … {before[-3:]}")
    after = [n for n in numbers[lost[-1] + 1:] if n is not None and n >= 50000]
    check(len(after) > 10 and all(b > a for a, b in zip(after, after[1:])), f"live again: {after[:5]}")

    info = probe(clip)
    video, audio = stream_of(info, "video"), stream_of(info, "audio")
    check(int(video["nb_read_packets"]) == len(seen), "every frame is there")
    check(abs(float(audio["duration"]) - len(seen) / 25) < 0.001, f"sound lasts {audio['duration']} s")
    # One timecode a frame: the track's start and the frames' even pace are the whole of it.
    check(stream_of(info, "data")["tags"]["timecode"], "the clip has a timecode")
    check(video["r_frame_rate"] == "25/1" and abs(float(video["duration"]) - len(seen) / 25) < 0.001, "an even pace")
    samples = sound(clip)
    frame = len(samples) // len(seen)
    silence = bytes(frame)
    middle = lost[len(lost) // 4:len(lost) * 3 // 4]
    loud = [i for i in middle if samples[i * frame:(i + 1) * frame] != silence]
    check(not loud, f"{len(loud)} of {len(middle)} frames without input have sound")


def the_stock_picture_stands_in_for_a_lost_input_until_it_returns(bin_dir):
    install_stock_clips(bin_dir)
    stock = pictures(STOCK)
    check(len(stock) == 1, f"{len(stock)} frames in the stock clip")
    with Recorder(bin_dir, source="bus:/rvd_input_0") as recorder:
        camera = start_camera(recorder, 1000)
        try:
            recorder.start()
            recorder.wait_for("InputFormat", 1)
            recorder.set("StopOnFrameDrop", 0)
            recorder.set("StopOnLossOfVideo", 1)  # off
            recorder.wait_log(f"Loss of video clip: {STOCK}")
            time.sleep(1)
            recorder.do("record")
            time.sleep(1)
            end(camera)
            time.sleep(2)
            check(recorder.status()["stateNumber"] == 2, "the recording goes on without input")
            camera = start_camera(recorder, 50000)
            time.sleep(2)
        finally:
            end(camera)
        recorder.do("stop")
        clip = wait_until("a clip is there", recorder.clips)[0]
        wait_until("it is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        check_clip(clip, stock[0])


def installed_clips_are_made_once_and_only_when_missing(bin_dir):
    folder = "/dev/shm/stock"
    rvstock = os.path.join(bin_dir, "rvstock")
    subprocess.run([rvstock, folder], check=True, stderr=subprocess.DEVNULL)
    files = sorted(os.path.join(path, name) for path, _, names in os.walk(folder) for name in names)
    check(len(files) == 22, f"{len(files)} files")

    def digests():
        return {file: (hashlib.sha256(open(file, "rb").read()).hexdigest(), os.stat(file).st_ino) for file in files}
    before = digests()
    os.remove(files[3])
    subprocess.run([rvstock, "--missing", folder], check=True, stderr=subprocess.DEVNULL)
    after = digests()
    changed = [file for file in files if before[file][1] != after[file][1]]
    check(changed == [files[3]], f"made again: {changed}")
    check(subprocess.run([rvstock], capture_output=True, check=False).returncode == 2, "a folder must be named")


if __name__ == "__main__":
    main([the_stock_picture_stands_in_for_a_lost_input_until_it_returns,
          installed_clips_are_made_once_and_only_when_missing])
