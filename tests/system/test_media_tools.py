"""What reads media or is typed by operators, as real processes without the daemon: in the build with sanitizers nothing of
what they are given may trip one."""

import atexit
import json
import os
import shutil
import subprocess
import tempfile
import time

from rig import check, main, wait_until
from test_media import Medium, wait_said
from test_media_slots import SlotRecorder, make_what_is_no_file

STOCK = tempfile.mkdtemp(prefix="rvtest-")
COMPLAINTS = ("Sanitizer", "runtime error:", "Assertion", "terminate called")


class Services(SlotRecorder):
    """A store, a media service, and stock clips to take for recordings."""

    def start(self):
        self.start_store()
        wait_until("the store answers", lambda: self.ctl("list").returncode == 0)
        self.start_media()
        self.run("rvstock", "--missing", STOCK)
        self.clip = os.path.join(STOCK, "prores_422", "loss_of_video_525i_422.mov")
        return self

    def run(self, name, *arguments, codes=(0,)):
        result = subprocess.run([os.path.join(self.bin, name), *map(str, arguments)], env=self.environment,
                                capture_output=True, timeout=120, check=False)
        text = (result.stdout + result.stderr).decode(errors="replace")
        check(result.returncode in codes, f"{name} {arguments}: {result.returncode} {text[-2000:]}")
        check(not any(complaint in text for complaint in COMPLAINTS), f"{name} {arguments}: {text[-4000:]}")
        return result.stdout.decode(errors="replace")

    def end(self):
        """Ends the services as an operator does, and looks at what they have said."""
        for name in ("rvmedia", "rvstore"):
            process = self.processes[name]
            process.terminate()
            check(process.wait(20) == 0, f"{name} ends with {process.returncode}")
            with open(os.path.join(self.dir, name + ".out"), encoding="utf-8", errors="replace") as out:
                text = out.read()
            at = min([text.find(c) for c in COMPLAINTS if c in text], default=-1)
            check(at < 0, f"{name} says {text[max(at - 200, 0):at + 3000]}")


def spoil(services, count, first=0):
    """Mutated and cut clips, the same ones every time."""
    with open(services.clip, "rb") as file:
        content = file.read()
    index = content.rfind(b"moov")
    state = 1 + first
    for i in range(first, first + count):
        # Little but the head and the index, which is what readers believe or not.
        spoilt = bytearray(content[:512] + content[index - 4:])
        for _ in range(1 + i % 9):
            state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
            spoilt[(state >> 8) % len(spoilt)] = state & 0xFF
        cut = len(spoilt) - (i % 5) * len(spoilt) // 7
        with open(os.path.join(services.medium, f"spoilt {i}.mov"), "wb") as file:
            file.write(spoilt[:cut])


def clips_of(services):
    return json.loads(services.run("rvctl", "--json", "clips"))["clips"]


def hostile_media_trip_nobody(bin_dir):
    with Services(bin_dir) as services:
        services.start()
        shutil.copy(services.clip, os.path.join(services.medium, "good.mov"))
        spoil(services, 600)
        make_what_is_no_file(services, services.clip)
        wait_until("all are listed", lambda: len(clips_of(services)) == 601, 60, 0.2)
        states = {clip["name"]: clip["state"] for clip in clips_of(services)}
        check(states["good.mov"] == "ready" and set(states.values()) <= {"ready", "bad"}, f"{set(states.values())}")
        for name in list(states)[::2]:
            if name.startswith("spoilt"):
                os.remove(os.path.join(services.medium, name))
        spoil(services, 100, 1000)
        wait_until("the others are listed", lambda: any(c["name"] == "spoilt 1099.mov" for c in clips_of(services)), 60, 0.2)
        services.end()


def everything_that_operators_type_is_answered(bin_dir):
    with Services(bin_dir) as services, Medium(services, "slot 2", "64m") as second:
        services.start()
        shutil.copy(services.clip, os.path.join(services.medium, "a b.mov"))
        wait_said(services, f"1 clips on {services.medium}")
        wait_said(services, f"0 clips on {second.path}")
        for words in (["clips"], ["clips", "all"], ["media"], ["playlist"], ["playlist", "append", "a b.mov"],
                      ["playlist", "insert", "0", "gone.mov"], ["playlist", "move", "0", "1"], ["playlist", "remove", "1"],
                      ["playlist", "clear"], ["eject", "2"], ["rollover", "on"], ["list"], ["describe", "MediaSlot1"],
                      ["completion", "bash"], ["export"]):
            services.run("rvctl", *words)
            services.run("rvctl", "--json", *words, codes=(0, 1))
        odd = ("", "/", "\x1b[2J", "\xff", "%s%n", "99999999999999999999", "x" * 2000, "a\nb.mov")
        for word in odd:
            for words in (["eject", word], ["playlist", "append", word], ["playlist", "remove", word], ["clips", word],
                          ["get", word], ["set", "PlayListEdit", word], ["set", "MediaRequest", "t eject " + word]):
                services.run("rvctl", "--timeout", "0.1", "--", *words, codes=(0, 1, 2, 3))
        check(os.path.ismount(services.medium), "nothing of that ejects")
        wait_until("the service answers", lambda: services.ctl("playlist", "clear").returncode == 0, 30)
        services.run("rvctl", "eject")
        check(not os.path.ismount(services.medium), "this does")
        services.end()


def a_service_started_again_knows_the_clips(bin_dir):
    with Services(bin_dir) as services:
        services.start()
        for i in range(50):
            shutil.copy(services.clip, os.path.join(services.medium, f"clip {i}.mov"))
        wait_until("all are listed", lambda: [c["state"] for c in clips_of(services)] == ["ready"] * 50, 60, 0.2)
        time.sleep(0.5)
        services.end()
        # As after a restart of the machine, and with nothing that could read a clip.
        for name in os.listdir("/dev/shm"):
            if name.startswith("NewCacheShared"):
                os.remove(os.path.join("/dev/shm", name))
        blind = os.path.join(services.dir, "blind")
        os.mkdir(blind)
        shutil.copy(os.path.join(services.bin, "rvmedia"), blind)
        services.start_store()
        programs, services.bin = services.bin, blind
        services.start_media()
        services.bin = programs
        wait_until("all are known", lambda: services.ctl("clips").returncode == 0
                   and [c["state"] for c in clips_of(services)] == ["ready"] * 50, 60, 0.2)
        services.end()


if __name__ == "__main__":
    atexit.register(shutil.rmtree, STOCK)
    main([hostile_media_trip_nobody, everything_that_operators_type_is_answered, a_service_started_again_knows_the_clips])
