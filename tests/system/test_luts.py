"""Look-up tables from a file to the picture, on a whole recorder."""

import os
import subprocess
import time

from rig import Failed, Recorder, check, main, wait_until
from test_media import FORMAT


def read_ppm(data):
    """Width, height and the bytes of a binary PPM with 8 bits a colour."""
    words = data.split(None, 4)
    check(words[0] == b"P6" and int(words[3]) == 255, "a PPM")
    width, height = int(words[1]), int(words[2])
    return width, height, data[-width * height * 3:]


def places(picture):
    """Colours in the middle of eight bars, halfway down."""
    width, height, data = picture
    return [tuple(data[(height // 2 * width + width * (2 * bar + 1) // 16) * 3:][:3]) for bar in range(8)]


def shown(recorder):
    """What the output shows."""
    recorder.frames(5)  # what was under way when a setting changed is over
    still = os.path.join(recorder.dir, "still.ppm")
    subprocess.run([os.path.join(recorder.bin, "rvmonitor"), "--still", still], env=recorder.environment,
                   check=True, timeout=20, capture_output=True)
    with open(still, "rb") as file:
        return places(read_ppm(file.read()))


def recorded(clip):
    """The colours in the first picture of a clip, decoded by FFmpeg."""
    result = subprocess.run(
        ["ffmpeg", "-v", "error", "-i", clip, "-map", "0:v:0", "-frames:v", "1", "-vf",
         "scale=in_color_matrix=bt709:in_range=tv:out_range=pc", "-f", "image2pipe", "-c:v", "ppm", "-pix_fmt", "rgb24",
         "-"], capture_output=True, check=True)
    return places(read_ppm(result.stdout))


def are_like(some, others, tolerance=6):
    return all(abs(a - b) <= tolerance for one, other in zip(some, others) for a, b in zip(one, other))


def comes(recorder, wanted, what, tolerance=6):
    """Waits until the output shows these colours."""
    seen = []

    def is_there():
        seen.append(shown(recorder))
        return are_like(seen[-1], wanted, tolerance)

    try:
        wait_until(what, is_there, 5)
    except Failed:
        raise Failed(f"{what}: {seen[-1]} instead of {wanted}") from None


def inverted(colours):
    """Code 1023 - c for each code c, in the 8 bits that black 64 and white 940 become."""
    return [tuple(min(255, max(0, round(260.5 - value))) for value in colour) for colour in colours]


def use(recorder, mode, path):
    count = recorder.log_text().count(f"LUT Enabled {mode}, LUT path '{path}'")
    setups = recorder.log_text().count("VIDEO DEVICE: Setup is Done")
    recorder.set("LutMode", mode)
    wait_until(f"table {mode} is there",
               lambda: recorder.log_text().count(f"LUT Enabled {mode}, LUT path '{path}'") > count)
    wait_until("it is set up", lambda: recorder.log_text().count("VIDEO DEVICE: Setup is Done") > setups)


def begin(recorder, name, text):
    recorder.start()
    recorder.wait_for("InputFormat", 1)
    path = os.path.join(recorder.dir, name)
    with open(path, "w", encoding="ascii") as file:
        file.write(text)
    recorder.set("LutFile", path)
    wait_until("the file is known", lambda: f"LUT Enabled 0, LUT path '{path}'" in recorder.log_text())
    time.sleep(1)
    return path


def the_forced_table_inverts_input_and_output(bin_dir):
    with Recorder(bin_dir, source="bars", source_format=FORMAT,
                  environment={"RVD_FORCE_LUT_INVERT": "1"}) as recorder:
        path = begin(recorder, "any file", "no table at all\n")
        plain = shown(recorder)
        check(len(set(plain)) == 8, f"bars: {plain}")

        use(recorder, 1, path)
        comes(recorder, inverted(plain), "input")
        clip = recorder.record(1)
        check(are_like(recorded(clip), inverted(plain), 10), f"recorded: {recorded(clip)} of {plain}")

        use(recorder, 2, path)
        comes(recorder, inverted(plain), "output")
        clip = recorder.record(1)
        check(are_like(recorded(clip), plain, 10), f"recorded: {recorded(clip)} of {plain}")
        # In playback, too, and gone again.
        recorder.do("play")
        comes(recorder, inverted(plain), "playback", 10)
        recorder.do("standby-off")
        use(recorder, 0, path)
        comes(recorder, plain, "none", 1)
        check("Parsing" not in recorder.log_text(), "the file is not read")


def a_file_becomes_the_picture(bin_dir):
    with Recorder(bin_dir, source="bars", source_format=FORMAT) as recorder:
        rows = "".join(f"{1 - i / 1023:.6f} {i / 1023:.6f} {i / 1023:.6f}\n" for i in range(1024))
        path = begin(recorder, "red.cube", "TITLE \"red\"\nLUT_1D_SIZE 1024\n" + rows)
        plain = shown(recorder)
        use(recorder, 2, path)
        wanted = [(red, g, b) for (red, _, _), (_, g, b) in zip(inverted(plain), plain)]
        # Colours that do not exist are cut where they leave the codes.
        comes(recorder, wanted, "red inverted", 12)
        check(recorder.log_text().count(f"Parsing {path} ") == 1, "it is read once")


def a_table_of_another_length_raises_the_alarm(bin_dir):
    with Recorder(bin_dir, source="bars", source_format=FORMAT) as recorder:
        path = begin(recorder, "short.cube", "LUT_1D_SIZE 1000\n" + "0.5 0.5 0.5\n" * 1000)
        plain = shown(recorder)
        recorder.set("LutMode", 1)
        recorder.wait_log(f"Parse of LUT '{path}' returned unexpected number of entries.  Expected 1024, Got 1000")
        recorder.wait_log("Parse of LUT returned unexpected number of entries. Expected 1024, found 1000")
        check(are_like(shown(recorder), plain, 1), "the picture stays")
        with open(path, "wb") as file:
            file.write(os.urandom(100000))
        recorder.set("LutMode", 2)
        recorder.wait_log(f"Parse of LUT '{path}' failed: ")
        recorder.wait_log("LUT parse error")
        check(are_like(shown(recorder), plain, 1), "the picture stays")


if __name__ == "__main__":
    main([the_forced_table_inverts_input_and_output, a_file_becomes_the_picture,
          a_table_of_another_length_raises_the_alarm])
