"""The recorder as its users meet it: records, plays, and outlives the faults they meet."""

import os
import subprocess
import time

import rig
from rig import Recorder, check, clip_numbers, main, probe, shown, stream_of, wait_until


def consecutive(numbers):
    return None not in numbers and all(b == a + 1 for a, b in zip(numbers, numbers[1:]))


def records_and_plays_a_clip(bin_dir):
    with Recorder(bin_dir, source_format="1280x720p50") as recorder:
        recorder.start()
        recorder.wait_for("InputFormat", 12)
        time.sleep(1)
        clip = recorder.record(3)
        video = stream_of(probe(clip), "video")
        check((video["codec_name"], video["width"], video["r_frame_rate"]) == ("prores", 1280, "50/1"), str(video))
        numbers = clip_numbers(clip)
        check(consecutive(numbers) and len(numbers) > 100, f"{len(numbers)} frames, {numbers[:5]}")
        recorder.do("standby-off")
        recorder.do("play")
        time.sleep(0.5)
        frames = recorder.frames(50)
        check(consecutive(shown(frames)), f"seen {shown(frames)}")
        late = [frame["seenMs"] - frame["timeMs"] for frame in frames]
        check(min(late) >= 0 and max(late) < 1000, f"seen {late} ms after they were due")
        # Held on the last frame at the end, and never black.
        time.sleep(4)
        frames = recorder.frames(5)
        check(set(shown(frames)) == {numbers[-1]}, f"at the end {shown(frames)}")
        recorder.do("standby-off")
        wait_until("E-E after Standby Off", lambda: recorder.frames(1)[0]["content"] == "live", 3)


def every_data_type_records(bin_dir):
    codecs = {"0": "apcn", "1": "apch", "2": "apcs", "3": "apco", "7": "ap4h", "8": "AVd", "9": "v210"}
    with Recorder(bin_dir, source_format="1280x720p25", size="6g") as recorder:
        recorder.start()
        time.sleep(1.5)
        for value, tag in codecs.items():
            recorder.set("EncodeType", value)
            time.sleep(1)
            clip = recorder.record(1)
            video = stream_of(probe(clip), "video")
            check(video["codec_tag_string"].startswith(tag), f"encode type {value}: {video['codec_tag_string']}")
            numbers = clip_numbers(clip)
            check(consecutive(numbers) and len(numbers) >= 15, f"encode type {value}: {numbers}")
            recorder.do("standby-off")


def an_interlaced_input_is_recorded_as_such(bin_dir):
    with Recorder(bin_dir, source_format="1920x1080i25") as recorder:
        recorder.start()
        recorder.wait_for("InputFormat", 4)
        time.sleep(1)
        clip = recorder.record(1.5)
        video = stream_of(probe(clip), "video")
        check(video.get("field_order") in ("tt", "tb"), f"field order {video.get('field_order')}")
        check(consecutive(clip_numbers(clip)), "frames")


def drop_frame_timecode_is_kept(bin_dir):
    with Recorder(bin_dir, source_format="1280x720p60000/1001") as recorder:
        recorder.start()
        recorder.set("TimecodeDropFrame", 1)
        recorder.set("TimecodeValue", 9)
        time.sleep(1.5)
        clip = recorder.record(1)
        timecode = stream_of(probe(clip), "data")["tags"]["timecode"]
        check(timecode == "09:00:00;00", timecode)
        second = recorder.record(1)
        first_frames = int(stream_of(probe(clip), "video")["nb_read_packets"])
        follows = stream_of(probe(second), "data")["tags"]["timecode"]
        check(follows == f"09:00:{first_frames // 60:02};{first_frames % 60:02}", f"{first_frames}: {follows}")


def starts_without_a_store_and_finds_it_later(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start_media()
        recorder.start_daemon()
        recorder.wait_log("VIDEO DEVICE: Setup is Done")
        recorder.wait_log("The parameter store does not answer")
        check(recorder.ctl("status").returncode == 3, "rvctl without a store ends with 3")
        recorder.start_store()
        wait_until("the recorder answers", lambda: recorder.ctl("status").returncode == 0, 15)
        recorder.wait_log("The parameter store answers")
        wait_until("the active path arrives", lambda: recorder.get("ActivePath") == recorder.medium, 15)
        time.sleep(1.5)
        clip = recorder.record(1)
        check(consecutive(clip_numbers(clip)), "frames")


def outlives_the_store_in_a_recording(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        time.sleep(1.5)
        recorder.do("record")
        store = recorder.processes["rvstore"]
        store.kill()
        store.wait()
        recorder.wait_log("The parameter store does not answer")
        time.sleep(1.5)
        recorder.start_store()
        wait_until("the recorder answers", lambda: recorder.ctl("status").returncode == 0, 15)
        wait_until("its state is back", lambda: recorder.status()["stateNumber"] == 2, 15)
        time.sleep(1)
        recorder.do("stop")
        wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        numbers = clip_numbers(recorder.clips()[0])
        check(consecutive(numbers) and len(numbers) > 60, f"{len(numbers)} frames")


def an_input_that_never_comes_is_reported(bin_dir):
    with Recorder(bin_dir, source="none") as recorder:
        recorder.start()
        time.sleep(1)
        check(recorder.get("InputFormat") == 0, "no input format")
        result = recorder.ctl("--wait", "--timeout", "2", "record")
        check(result.returncode == 1, "record is refused")
        recorder.wait_log("Record Inhibited: ")
        check(recorder.processes["rvd"].poll() is None, "the daemon runs on")


def loss_of_video_stops_the_recording_and_keeps_the_clip(bin_dir):
    with Recorder(bin_dir, source="bus:/rvd_input_0") as recorder:
        camera = subprocess.Popen([os.path.join(recorder.bin, "rvcam"), "--size", "1280x720", "--rate", "50"])
        try:
            recorder.start()
            recorder.wait_for("InputFormat", 12)
            time.sleep(1)
            recorder.do("record")
            time.sleep(1.5)
        finally:
            camera.kill()
            camera.wait()
        recorder.wait_log("Empty frame, stop on LoV is set.  Stopping record")
        wait_until("Standby Off", lambda: recorder.status()["stateNumber"] == 1)
        wait_until("the alarm is up", lambda: any("1907" in a["name"] for a in recorder.status()["alarms"]))
        wait_until("the clip is closed", lambda: "STREAM: Close is Done" in recorder.log_text())
        numbers = clip_numbers(recorder.clips()[0])
        check(consecutive(numbers) and len(numbers) > 50, f"{len(numbers)} frames")


def clips_that_are_none_end_in_standby_off(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        time.sleep(1.5)
        for name, content in (("missing.mov", None), ("empty.mov", b""), ("text.mov", b"not a clip\n" * 100),
                              ("torn.mov", b"\0\0\0\x14ftypqt  \0\0\2\0qt  \0\0\0\x10wide")):
            path = os.path.join(recorder.medium, name)
            if content is not None:
                with open(path, "wb") as file:
                    file.write(content)
            recorder.set("CurrentClip", name)
            before = recorder.log_text().count("STREAM: Open Error ")
            recorder.ctl("play")
            wait_until(f"{name} fails to open",
                       lambda: recorder.log_text().count("STREAM: Open Error ") > before)
            wait_until("Standby Off", lambda: recorder.status()["stateNumber"] == 1)


def a_second_instance_ends_with_one(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        second = subprocess.run([os.path.join(recorder.bin, "rvd"), "-d"], env=recorder.environment,
                                capture_output=True, text=True, timeout=10)
        pid = recorder.processes["rvd"].pid
        check(second.returncode == 1, f"ends with {second.returncode}")
        check(second.stderr == "Failed to lock lockfile (/var/lock/rvd.lock).  "
              f"It looks like process {pid} currently owns it\n", second.stderr)


def a_lock_left_by_a_dead_process_does_not_matter(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        recorder.processes["rvd"].kill()
        recorder.processes["rvd"].wait()
        recorder.start_daemon()
        wait_until("it runs again", lambda: recorder.ctl("status").returncode == 0)


def unknown_options_print_the_usage_and_the_daemon_starts(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start_store()
        recorder.start_media()
        recorder.start_daemon("-z")
        wait_until("the recorder answers", lambda: recorder.ctl("status").returncode == 0)
        with open(os.path.join(recorder.dir, "rvd.out"), encoding="utf-8") as out:
            text = out.read()
        check("Usage: rvd [flags]\nFlags:\n-d                  Don't daemonize\n" in text, text)
        recorder.wait_log("Command line parse failure: ")


def rvctl_names_the_nearest_match(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        for arguments, code, word in ((("get", "EncodeTyp"), 2, "EncodeType"), (("set", "EncodeType", "ProRes 422 HQQ"), 2, "ProRes 422 HQ"),
                                      (("plai",), 2, "play"), (("get", "0x12345678"), 2, "0x12345678")):
            result = recorder.ctl(*arguments)
            check(result.returncode in (1, code), f"{arguments}: {result.returncode} {result.stderr}")
            check(word in result.stderr, f"{arguments}: {result.stderr}")


def shuts_down_in_order(bin_dir):
    with Recorder(bin_dir) as recorder:
        recorder.start()
        time.sleep(1.5)
        recorder.do("record")
        time.sleep(1)
        daemon = recorder.processes["rvd"]
        recorder.ctl("shutdown")
        check(daemon.wait(10) == 0, f"ends with {daemon.returncode}")
        check("VtrObject shutdown complete..." in recorder.log_text(), "the engine says so")
        check(consecutive(clip_numbers(recorder.clips()[0])), "the clip is whole")
        check(recorder.ctl("status").returncode == 3, "rvctl says it is not running")


if __name__ == "__main__":
    main([records_and_plays_a_clip, every_data_type_records, an_interlaced_input_is_recorded_as_such,
          drop_frame_timecode_is_kept, starts_without_a_store_and_finds_it_later,
          outlives_the_store_in_a_recording, an_input_that_never_comes_is_reported,
          loss_of_video_stops_the_recording_and_keeps_the_clip, clips_that_are_none_end_in_standby_off,
          a_second_instance_ends_with_one, a_lock_left_by_a_dead_process_does_not_matter,
          unknown_options_print_the_usage_and_the_daemon_starts, rvctl_names_the_nearest_match,
          shuts_down_in_order])
