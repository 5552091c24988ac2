"""A file system in user space, spoken over /dev/fuse without a library: the mount and its requests."""

import ctypes
import errno
import os
import struct
import subprocess
import threading
import time

WITHOUT_ANSWER = ("forget", "interrupt", "batch_forget")
OPERATIONS = {
    1: "lookup", 2: "forget", 3: "getattr", 4: "setattr", 9: "mkdir", 10: "unlink", 11: "rmdir", 12: "rename",
    14: "open", 15: "read", 16: "write", 17: "statfs", 18: "release", 20: "fsync", 25: "flush", 26: "init",
    27: "opendir", 28: "readdir", 29: "releasedir", 30: "fsyncdir", 34: "access", 35: "create", 36: "interrupt",
    38: "destroy", 42: "batch_forget", 43: "fallocate", 44: "readdirplus", 45: "rename2",
}
MAX_WRITE = 1 << 20


class FuseServer:
    """Mounted at the folder \\a path for as long as this is open. Whoever derives from it answers answer(name, node,
    body) with an errno value and the bytes of the reply, and may have request(name) told of each one before."""

    def __init__(self, path, kind, *options):
        self.path = path
        self._answering = threading.Event()
        self._answering.set()
        os.makedirs(path, exist_ok=True)
        self._device = os.open("/dev/fuse", os.O_RDWR | os.O_CLOEXEC)
        libc = ctypes.CDLL(None, use_errno=True)
        words = ",".join((f"fd={self._device}", "rootmode=40000", "user_id=0", "group_id=0") + options)
        if libc.mount(kind.encode(), path.encode(), b"fuse", 0, words.encode()) != 0:
            error = ctypes.get_errno()
            os.close(self._device)
            raise OSError(error, os.strerror(error), path)
        threading.Thread(target=self._serve, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.let_go()
        subprocess.run(["umount", "-l", self.path], stderr=subprocess.DEVNULL, check=False)
        return False

    def hang(self):
        """No request is answered: whoever asks sleeps in the kernel, as with a dying disk or a server that is gone.
        Since when, in seconds since the epoch."""
        self._answering.clear()
        return time.time()

    def let_go(self):
        self._answering.set()

    def request(self, name):
        pass

    def _serve(self):
        while True:
            try:
                request = os.read(self._device, MAX_WRITE + 65536)
            except OSError as error:
                if error.errno in (errno.EINTR, errno.EAGAIN, errno.ENOENT):
                    continue
                return  # unmounted, or disconnected
            opcode, unique, node = struct.unpack_from("=4xIQQ", request)
            name = OPERATIONS.get(opcode, "")
            if name in WITHOUT_ANSWER:
                continue
            self.request(name)
            if name != "init":
                self._answering.wait()
            code, data = self.answer(name, node, request[40:])
            try:
                os.write(self._device, struct.pack("=IiQ", 16 + len(data), -code, unique) + data)
            except OSError:
                continue  # whoever asked is gone
