"""A medium that stops answering when it is told to, and goes on when it is let go.

A file system in user space, spoken over /dev/fuse without a library: an empty root folder, perhaps one file in it,
and as much free space as is said. While it hangs no request is answered, so that whoever asks sleeps in the kernel,
as with a dying disk or a server that is gone.
"""

import errno
import stat
import struct
import subprocess

from fuseserver import FuseServer

ROOT, FILE = 1, 2
BLOCKS = 100000


class HangingMedium(FuseServer):
    """Mounted at the folder \\a path for as long as this is open."""

    def __init__(self, path, free_percent=50, file_name="", content=b""):
        self.free_percent = free_percent
        self.file_name = file_name.encode()
        self.content = content
        self.asked = 0  # how often its free space was asked for
        super().__init__(path, "hanging")

    def die(self):
        """Nobody answers any more: whoever asks is told at once that the medium is not connected."""
        subprocess.run(["umount", "-f", self.path], stderr=subprocess.DEVNULL, check=False)

    def request(self, name):
        if name == "statfs":
            self.asked += 1

    def answer(self, name, node, body):
        if name == "init":
            minor, ahead = struct.unpack_from("=4xII", body)
            return 0, struct.pack("=IIIIHHIIHH8I", 7, min(minor, 31), ahead, 0, 16, 12, 65536, 1, 0, 0, *[0] * 8)
        if name == "lookup":
            if not self.file_name or body.rstrip(b"\0") != self.file_name:
                return errno.ENOENT, b""
            return 0, struct.pack("=QQQQII", FILE, 0, 0, 0, 0, 0) + self._attributes(FILE)
        if name == "getattr":
            return 0, struct.pack("=QII", 0, 0, 0) + self._attributes(node)
        if name == "statfs":
            free = BLOCKS * self.free_percent // 100
            return 0, struct.pack("=QQQQQIIII6I", BLOCKS, free, free, 100, 100, 4096, 255, 4096, 0, *[0] * 6)
        if name in ("open", "opendir"):
            return 0, struct.pack("=QII", 0, 0, 0)
        if name == "read":
            offset, size = struct.unpack_from("=8xQI", body)
            return 0, self.content[offset:offset + size]
        if name in ("readdir", "readdirplus", "release", "releasedir", "flush", "access", "destroy"):
            return 0, b""
        return errno.ENOSYS, b""

    def _attributes(self, node):
        mode = stat.S_IFDIR | 0o755 if node == ROOT else stat.S_IFREG | 0o644
        size = 0 if node == ROOT else len(self.content)
        return struct.pack("=6Q10I", node, size, 0, 0, 0, 0, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)
