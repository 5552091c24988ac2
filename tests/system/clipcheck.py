"""What three readers that are not ours make of a clip: FFmpeg and GStreamer decode it whole, and every property that the
recorder states about a clip is compared with what they and MediaInfo see."""

import hashlib
import json
import os
import re
import subprocess
import sys
import tempfile
from array import array

from rig import Failed, check, clip_numbers, probe, stream_of

PROGRESSIVE, INTERLACED, SEGMENTED = range(3)
SCANS = ("p", "i", "psf")

# encode type, data type, tag, codec of ffprobe, least PSNR of luma and of chroma in dB (None: every sample is the same)
DATA_TYPES = (
    (0, 202, "apcn", "prores", (48, 46)),
    (1, 203, "apch", "prores", (53, 50)),
    (2, 204, "apcs", "prores", (42, 40)),
    (3, 205, "apco", "prores", (33, 32)),
    (7, 206, "ap4h", "prores", (53, 50)),
    (8, 230, "AVdh", "dnxhd", (52, 50)),
    (9, 231, "v210", "v210", None),
)

SOUND_MASK = 0xFFFFFF

RATES = {23: (24000, 1001), 29: (30000, 1001), 59: (60000, 1001)}


def rate_of(key):
    return RATES.get(key, (key, 1))


def data_type(number):
    return next(row for row in DATA_TYPES if row[1] == number)


def name_of(width, height, scan, key):
    rate = {23: "23.976", 29: "29.97", 59: "59.94"}.get(key, str(key))
    return f"{width}x{height}{SCANS[scan]}{rate}"


def run(command):
    result = subprocess.run(command, capture_output=True, text=True, check=False, timeout=120)
    check(result.returncode == 0, f"{' '.join(command)}: {result.stdout[-500:]}{result.stderr[-1000:]}")
    return result.stdout + result.stderr


def md5_of(path):
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "md5").hexdigest()


def expect(what, found, wanted):
    check(found == wanted, f"{what}: {found}, not {wanted}")


def check_streams(path, want):
    """The properties as ffprobe reports them. Answers the number of frames."""
    info = probe(path)
    video, audio = stream_of(info, "video"), stream_of(info, "audio")
    width, height, scan, key = want["format"]
    num, den = rate_of(key)
    _, _, tag, codec, _ = data_type(want["type"])
    if tag == "AVdh" and (width, height, scan) == (1920, 1080, INTERLACED):
        tag = "AVdn"  # interlaced there is DNxHD only
    expect("codec", (video["codec_name"], video["codec_tag_string"]), (codec, tag))
    expect("size", (video["width"], video["height"]), (width, height))
    rate = f"{num}/{den}"
    expect("rate", (video["r_frame_rate"], video["avg_frame_rate"]), (rate, rate))
    # Stored line by line: the first letter is the line on top, the second the field that comes first.
    order = "progressive" if scan != INTERLACED else "bt" if height == 486 else "tb"
    expect("field order", video["field_order"], order)
    aspect = {486: ("10:11", "400:297"), 576: ("12:11", "15:11")}.get(height)
    if aspect:
        expect("aspect", (video["sample_aspect_ratio"], video["display_aspect_ratio"]), aspect)
    else:
        expect("pixel aspect", video["sample_aspect_ratio"], "1:1")
    colour = {486: ("smpte170m", "bt709", "smpte170m"), 576: ("bt470bg", "bt709", "smpte170m")}
    expect("colour", (video["color_primaries"], video["color_transfer"], video["color_space"]),
           colour.get(height, ("bt709", "bt709", "bt709")))
    frames = int(video["nb_read_packets"])
    expect("frames of the index", int(video["nb_frames"]), frames)
    expect("frames", frames, want.get("frames", frames))
    expect("sound", (audio["codec_name"], audio["sample_rate"], audio["channels"]),
           ("pcm_s24le", "48000", want["channels"]))
    # A recording begins anywhere in the cadence of its input, so it may have the next whole number.
    check(abs(int(audio["nb_frames"]) - frames * 48000 * den / num) < 1, f"{audio['nb_frames']} samples, {frames} frames")
    for timed in (video, stream_of(info, "data")):
        if "timecode" in want:
            expect("timecode", timed["tags"]["timecode"], want["timecode"])
    if "reel" in want:
        expect("reel", stream_of(info, "data")["tags"]["reel_name"], want["reel"])
    return frames


MEDIAINFO_FORMATS = {"prores": "ProRes", "dnxhd": "VC-3", "v210": "YUV"}


def check_mediainfo(path, want, frames):
    """The same properties as MediaInfo prints them."""
    width, height, scan, key = want["format"]
    num, den = rate_of(key)
    tracks = {track["@type"]: track for track in json.loads(run(["mediainfo", "--Output=JSON", path]))["media"]["track"]}
    video, audio, timecode = tracks["Video"], tracks["Audio"], tracks["Other"]

    def look(track, *keys):
        return tuple(track.get(key) for key in keys)
    expect("MediaInfo: picture", look(video, "Format", "Width", "Height", "FrameCount"),
           (MEDIAINFO_FORMATS[data_type(want["type"])[3]], str(width), str(height), str(frames)))
    rate = {"FrameRate": f"{num / den:.3f}"}
    if den != 1:
        rate |= {"FrameRate_Num": str(num), "FrameRate_Den": str(den)}
    expect("MediaInfo: rate", look(video, *rate), tuple(rate.values()))
    scans = ("Interlaced", "BFF" if height == 486 else "TFF") if scan == INTERLACED else ("Progressive", None)
    expect("MediaInfo: scan", look(video, "ScanType", "ScanOrder"), scans)
    expect("MediaInfo: pixel aspect", video["PixelAspectRatio"], {486: "0.909", 576: "1.091"}.get(height, "1.000"))
    colours = {486: ("BT.601 NTSC", "BT.709", "BT.601"), 576: ("BT.601 PAL", "BT.709", "BT.601")}
    expect("MediaInfo: colour", look(video, "colour_primaries", "transfer_characteristics", "matrix_coefficients"),
           colours.get(height, ("BT.709", "BT.709", "BT.709")))
    expect("MediaInfo: sound", look(audio, "Format", "Channels", "SamplingRate", "BitDepth"),
           ("PCM", str(want["channels"]), "48000", "24"))
    # It counts whole milliseconds.
    samples = int(audio["SamplingCount"])
    check(abs(samples - frames * 48000 * den / num) <= 48, f"MediaInfo: {samples} samples of {frames} frames")
    if "timecode" in want:
        expect("MediaInfo: timecode", timecode["TimeCode_FirstFrame"], want["timecode"])
    if "reel" in want:
        expect("MediaInfo: reel", timecode["Title"], want["reel"])


def decode_with_ffmpeg(path, want, folder, pictures):
    """Checksums of the decoded pictures and sound, and the PSNR of luma and chroma against what went in."""
    width, height = want["format"][:2]
    sums = [os.path.join(folder, name) for name in ("video.md5", "audio.md5")]
    command = ["ffmpeg", "-hide_banner", "-nostats", "-nostdin", "-xerror", "-err_detect", "explode", "-i", path]
    each = ["-fps_mode", "passthrough"]
    outputs = ["-map", "0:v", "-c:v", "rawvideo", *each, "-f", "md5", sums[0], "-map", "0:a", "-c:a", "pcm_s24le", "-f", "md5", sums[1]]
    if pictures:
        command += ["-f", "rawvideo", "-pix_fmt", "yuv422p10le", "-s", f"{width}x{height}",
                    "-i", pictures]
        outputs += ["-lavfi", "[0:v]format=yuv422p10le,settb=1/25,setpts=N[a];[1:v]settb=1/25,setpts=N[b];[a][b]psnr", *each, "-f", "null", "-"]
    text = run(command + outputs)
    found = re.search(r"PSNR y:(\S+) u:(\S+) v:(\S+)", text)
    check(found or not pictures, f"ffmpeg states no PSNR: {text[-500:]}")
    psnr = (float(found[1]), min(float(found[2]), float(found[3]))) if found else None
    frames = re.search(r"frame=\s*(\d+)", text[text.rfind("frame="):])
    check(frames, f"ffmpeg states no frames: {text[-500:]}")
    lines = []
    for name in sums:
        with open(name, encoding="ascii") as file:
            lines.append(file.read().strip().partition("=")[2])
    return int(frames[1]), lines[0], lines[1], psnr


def decode_with_gstreamer(path, want, folder):
    """Size and checksums of the decoded pictures and sound, and the caps it found."""
    video, audio = os.path.join(folder, "video.gst"), os.path.join(folder, "audio.gst")
    tag = data_type(want["type"])[2]
    # Its demuxer of these years knows DNxHD by name, not yet DNxHR; its decoder decodes both.
    named = ["capssetter", "join=false", "caps=video/x-dnxhd", "!"] if tag == "AVdh" else []
    same = ["!", "videoconvert", "dither=none", "!", "video/x-raw,format=I422_10LE"] if tag == "v210" else []
    command = ["gst-launch-1.0", "-v", "filesrc", f"location={path}", "!", "qtdemux", "name=d",
                "d.video_0", "!", "queue", "!", *named, "decodebin", *same, "!", "filesink", f"location={video}",
                "d.audio_0", "!", "queue", "!", "filesink", f"location={audio}"]
    for _ in range(3):      # its two outputs may break into each other's lines
        text = run(command)
        check("ERROR" not in text and "WARNING" not in text, f"gst-launch-1.0: {text[-500:]}")
        caps = [line for line in text.splitlines() if "FileSink:filesink0" in line and "video/x-raw" in line]
        if caps:
            break
    check(caps, "GStreamer states no caps")
    return video, audio, caps[-1]


def check_caps(caps, want):
    width, height, scan, key = want["format"]
    num, den = rate_of(key)
    parts = [f"width=(int){width}", f"height=(int){height}", f"framerate=(fraction){num}/{den}"]
    if data_type(want["type"])[3] == "prores":
        # Of other codecs its demuxer reads no more than size and rate.
        parts.append("interlace-mode=(string)" + ("interleaved" if scan == INTERLACED else "progressive"))
        if scan == INTERLACED:
            parts.append(f"field-order=(string){'bottom' if height == 486 else 'top'}-field-first")
        aspect = {486: "10/11", 576: "12/11"}.get(height, "1/1")
        parts.append(f"pixel-aspect-ratio=(fraction){aspect}")
        parts.append("colorimetry=(string)" + {486: "2:4:5:4", 576: "2:4:5:3"}.get(height, "bt709"))
    for part in parts:
        check(part in caps.replace(";", ",") + ",", f"GStreamer: {part} is not in {caps}")


def check_clip(path, want, folder, pictures=None, sound=None):
    """Checks a clip against what it should be: format (width, height, scan, rate key), type, channels, and, where
    known, frames, timecode and reel; the pictures and the sound that went in, too. Answers a line for a table."""
    width, height = want["format"][:2]
    _, _, tag, codec, floors = data_type(want["type"])
    frames = check_streams(path, want)
    check_mediainfo(path, want, frames)
    with tempfile.TemporaryDirectory(dir=folder) as scratch:
        decoded, video_sum, audio_sum, psnr = decode_with_ffmpeg(path, want, scratch, pictures)
        gst_video, gst_audio, caps = decode_with_gstreamer(path, want, scratch)
        check_caps(caps, want)
        expect("frames FFmpeg decodes", decoded, frames)
        size = width * height * (6 if tag == "ap4h" else 4)
        expect("frames GStreamer decodes", os.path.getsize(gst_video) / size, frames)
        expect("sound that GStreamer reads, against FFmpeg's", md5_of(gst_audio), audio_sum)
        # Of 4:4:4 one of them takes ten bits, the other twelve.
        if tag != "ap4h":
            expect("pictures that GStreamer decodes, against FFmpeg's", md5_of(gst_video), video_sum)
    quality = ""
    if sound:
        expect("sound that was read, against what went in", audio_sum, md5_of(sound))
    if pictures and not floors:
        expect("pictures that were read, against what went in", video_sum, md5_of(pictures))
        quality = "same samples"
    elif pictures:
        check(psnr[0] >= floors[0] and psnr[1] >= floors[1], f"PSNR {psnr[0]:.1f}, {psnr[1]:.1f} dB, not {floors}")
        quality = f"{psnr[0]:.1f}/{psnr[1]:.1f} dB"
    return (f"{name_of(*want['format']):<20} {tag}  {want['channels']} ch  {want.get('timecode', ''):<12}"
            f"{frames:>4} frames  {quality}").rstrip()


def check_numbers(path):
    """Every picture carries its number, and they follow each other. Answers them."""
    numbers = clip_numbers(path)
    if None in numbers or any(b != a + 1 for a, b in zip(numbers, numbers[1:])):
        raise Failed(f"{path}: {numbers}")
    return numbers


def sound_numbers(path, channels):
    """The numbers that rvcam counts in a clip's samples; every second channel has their complement."""
    result = subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-map", "0:a:0", "-f", "s32le", "-"],
                            capture_output=True, check=True)
    values = array("i", result.stdout)
    if sys.byteorder == "big":
        values.byteswap()
    numbers = [value >> 8 & SOUND_MASK for value in values[::channels]]
    for channel in range(1, channels):
        flip = SOUND_MASK if channel % 2 else 0
        found = [(value >> 8 & SOUND_MASK) ^ flip for value in values[channel::channels]]
        check(found == numbers, f"{path}: channel {channel} is not that of the samples of the first")
    return numbers


def check_sound(path, channels):
    """Each sample is one more than that before it. Answers how many there are."""
    numbers = sound_numbers(path, channels)
    check(numbers, f"{path}: no sound")
    for at, number in enumerate(numbers):
        wanted = (numbers[0] + at) & SOUND_MASK
        check(number == wanted, f"{path}: sample {at} is {number:#x}, not {wanted:#x}")
    return len(numbers)
