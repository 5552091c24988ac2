"""A medium that stops answering when it is told to, and goes on when it is let go.

A file system in user space, spoken over /dev/fuse without a library: an empty root folder, perhaps one file in it,
and as much free space as is said. While it hangs no request is answered, so that whoever asks sleeps in the kernel,
as with a dying disk or a server that is gone.
"""

import ctypes
import errno
import os
import stat
import struct
import subprocess
import threading

LOOKUP, FORGET, GETATTR, OPEN, READ, STATFS, RELEASE, FLUSH = 1, 2, 3, 14, 15, 17, 18, 25
INIT, OPENDIR, READDIR, RELEASEDIR, ACCESS, INTERRUPT, DESTROY, BATCH_FORGET = 26, 27, 28, 29, 34, 36, 38, 42
READDIRPLUS = 44

ROOT, FILE = 1, 2
BLOCKS = 100000


class HangingMedium:
    """Mounted at the folder \\a path for as long as this is open."""

    def __init__(self, path, free_percent=50, file_name="", content=b""):
        self.path = path
        self.free_percent = free_percent
        self.file_name = file_name.encode()
        self.content = content
        self.asked = 0  # how often its free space was asked for
        self._answering = threading.Event()
        self._answering.set()
        os.makedirs(path, exist_ok=True)
        self._device = os.open("/dev/fuse", os.O_RDWR | os.O_CLOEXEC)
        libc = ctypes.CDLL(None, use_errno=True)
        options = f"fd={self._device},rootmode=40000,user_id=0,group_id=0"
        if libc.mount(b"hanging", path.encode(), b"fuse", 0, options.encode()) != 0:
            error = ctypes.get_errno()
            os.close(self._device)
            raise OSError(error, os.strerror(error), path)
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.let_go()
        subprocess.run(["umount", "-l", self.path], stderr=subprocess.DEVNULL, check=False)
        return False

    def hang(self):
        self._answering.clear()

    def let_go(self):
        self._answering.set()

    def die(self):
        """Nobody answers any more: whoever asks is told at once that the medium is not connected."""
        subprocess.run(["umount", "-f", self.path], stderr=subprocess.DEVNULL, check=False)

    def _serve(self):
        while True:
            try:
                request = os.read(self._device, 1 << 20)
            except OSError as error:
                if error.errno in (errno.EINTR, errno.EAGAIN, errno.ENOENT):
                    continue
                return  # unmounted
            opcode, unique, node = struct.unpack_from("=4xIQQ", request)
            if opcode in (FORGET, BATCH_FORGET, INTERRUPT):
                continue
            if opcode == STATFS:
                self.asked += 1
            if opcode != INIT:
                self._answering.wait()
            code, data = self._answer(opcode, node, request[40:])
            try:
                os.write(self._device, struct.pack("=IiQ", 16 + len(data), -code, unique) + data)
            except OSError:
                continue  # whoever asked is gone

    def _answer(self, opcode, node, body):
        if opcode == INIT:
            minor, ahead = struct.unpack_from("=4xII", body)
            return 0, struct.pack("=IIIIHHIIHH8I", 7, min(minor, 31), ahead, 0, 16, 12, 65536, 1, 0, 0, *[0] * 8)
        if opcode == LOOKUP:
            if not self.file_name or body.rstrip(b"\0") != self.file_name:
                return errno.ENOENT, b""
            return 0, struct.pack("=QQQQII", FILE, 0, 0, 0, 0, 0) + self._attributes(FILE)
        if opcode == GETATTR:
            return 0, struct.pack("=QII", 0, 0, 0) + self._attributes(node)
        if opcode == STATFS:
            free = BLOCKS * self.free_percent // 100
            return 0, struct.pack("=QQQQQIIII6I", BLOCKS, free, free, 100, 100, 4096, 255, 4096, 0, *[0] * 6)
        if opcode in (OPEN, OPENDIR):
            return 0, struct.pack("=QII", 0, 0, 0)
        if opcode == READ:
            offset, size = struct.unpack_from("=8xQI", body)
            return 0, self.content[offset:offset + size]
        if opcode in (READDIR, READDIRPLUS, RELEASE, RELEASEDIR, FLUSH, ACCESS, DESTROY):
            return 0, b""
        return errno.ENOSYS, b""

    def _attributes(self, node):
        mode = stat.S_IFDIR | 0o755 if node == ROOT else stat.S_IFREG | 0o644
        size = 0 if node == ROOT else len(self.content)
        return struct.pack("=6Q10I", node, size, 0, 0, 0, 0, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)
