"""A medium that keeps files in a folder and fails, stalls or hangs when it is told to.

A file system in user space, spoken over /dev/fuse without a library. What it has taken can be looked at in its
folder, whatever has become of the mount.
"""

import ctypes
import errno
import os
import stat
import struct
import time

from fuseserver import MAX_WRITE, OPERATIONS, FuseServer

# Asked by whoever looks; a medium that is gone still answers these until it is asked to do something.
LOOKS = ("lookup", "getattr", "statfs", "opendir", "readdir", "releasedir", "access", "release", "flush", "open",
         "read", "readdirplus")


class Rule:
    """Operations that go wrong: from the skip-th on, count of them (-1: all)."""

    def __init__(self, operations, code, skip, count, seconds):
        self.operations = operations
        self.code = code
        self.skip = skip
        self.count = count
        self.seconds = seconds
        self.struck = []  # when, in seconds since the epoch

    def strikes(self, name):
        if name not in self.operations or self.count == 0:
            return False
        if self.skip > 0:
            self.skip -= 1
            return False
        self.count -= 1
        self.struck.append(time.time())
        return True


class FailingMedium(FuseServer):
    """Mounted at the folder \\a path for as long as this is open; its files are in \\a folder."""

    def __init__(self, path, folder, has_fallocate=True):
        self.folder = folder
        self.has_fallocate = has_fallocate
        self.rules = []
        self._paths = {1: ""}
        self._nodes = {"": 1}
        os.makedirs(folder, exist_ok=True)
        super().__init__(path, "failing", "allow_other")

    def __exit__(self, *unused):
        self.rules = []
        return super().__exit__(*unused)

    # What goes wrong

    def fail(self, *operations, code=errno.EIO, skip=0, count=1):
        self.rules.append(Rule(operations, code, skip, count, 0))
        return self.rules[-1]

    def fail_all(self, code=errno.EIO):
        """Nothing but looks from now on, as with a stick that was pulled."""
        return self.fail(*(set(OPERATIONS.values()) - set(LOOKS)), code=code, count=-1)

    def stall(self, seconds, *operations):
        self.rules.append(Rule(operations, 0, 0, 1, seconds))
        return self.rules[-1]

    def disconnect(self):
        """The server is gone: every call fails with ENOTCONN."""
        os.close(self._device)
        return time.time()

    # The server

    def answer(self, name, node, body):
        for rule in self.rules:
            if rule.strikes(name):
                time.sleep(rule.seconds)
                if rule.code:
                    return rule.code, b""
        method = getattr(self, "_" + name, None)
        if not method:
            return errno.ENOSYS, b""
        try:
            return 0, method(node, body)
        except OSError as error:
            return error.errno, b""

    def _where(self, node, name=b""):
        path = self._paths[node]
        if name:
            path = os.path.join(path, name.rstrip(b"\0").decode(errors="surrogateescape"))
        return path

    def _real(self, path):
        return os.path.join(self.folder, path)

    def _attributes(self, status):
        times = [status.st_atime_ns, status.st_mtime_ns, status.st_ctime_ns]
        return struct.pack("=6Q10I", status.st_ino, status.st_size, status.st_blocks,
                           *(t // 10**9 for t in times), *(t % 10**9 for t in times), status.st_mode,
                           status.st_nlink, status.st_uid, status.st_gid, 0, 4096, 0)

    def _entry(self, path):
        status = os.lstat(self._real(path))
        if path not in self._nodes:
            self._nodes[path] = len(self._paths) + 1
            self._paths[self._nodes[path]] = path
        return struct.pack("=QQQQII", self._nodes[path], 0, 0, 0, 0, 0) + self._attributes(status)

    def _init(self, _node, body):
        minor, ahead, _flags = struct.unpack_from("=4xIII", body)
        flags = 1 << 5 | 1 << 22  # big writes, as many pages as said
        return struct.pack("=IIIIHHIIHH8I", 7, min(minor, 31), ahead, flags, 16, 12, MAX_WRITE, 1,
                           MAX_WRITE // 4096, 0, *[0] * 8)

    def _destroy(self, _node, _body):
        return b""

    def _lookup(self, node, body):
        return self._entry(self._where(node, body))

    def _getattr(self, node, _body):
        return struct.pack("=QII", 0, 0, 0) + self._attributes(os.lstat(self._real(self._where(node))))

    def _setattr(self, node, body):
        valid, _, size, _, _, mtime, _, _, nanoseconds, _, mode = struct.unpack_from("=I4xQQQQQQIIII", body)
        path = self._real(self._where(node))
        if valid & 1:
            os.chmod(path, stat.S_IMODE(mode))
        if valid & 8:
            os.truncate(path, size)
        if valid & 32 and not valid & 256:
            os.utime(path, ns=(os.stat(path).st_atime_ns, mtime * 10**9 + nanoseconds))
        return self._getattr(node, body)

    def _mkdir(self, node, body):
        path = self._where(node, body[8:])
        os.mkdir(self._real(path))
        return self._entry(path)

    def _unlink(self, node, body):
        path = self._where(node, body)
        os.unlink(self._real(path))
        self._forget_path(path)
        return b""

    def _rmdir(self, node, body):
        os.rmdir(self._real(self._where(node, body)))
        return b""

    def _forget_path(self, path):
        self._nodes.pop(path, None)

    def _move(self, node, new_folder, names):
        old, new = names.split(b"\0")[:2]
        before, after = self._where(node, old), self._where(new_folder, new)
        os.rename(self._real(before), self._real(after))
        number = self._nodes.pop(before, None)
        if number:
            self._nodes[after] = number
            self._paths[number] = after
        return b""

    def _rename(self, node, body):
        return self._move(node, struct.unpack_from("=Q", body)[0], body[8:])

    def _rename2(self, node, body):
        return self._move(node, struct.unpack_from("=Q", body)[0], body[16:])

    def _open(self, node, body):
        flags = struct.unpack_from("=I", body)[0] & (os.O_ACCMODE | os.O_TRUNC | os.O_APPEND)
        return struct.pack("=QII", os.open(self._real(self._where(node)), flags), 0, 0)

    def _create(self, node, body):
        flags, mode = struct.unpack_from("=II", body)
        path = self._where(node, body[16:])
        file = os.open(self._real(path), flags & (os.O_ACCMODE | os.O_EXCL | os.O_TRUNC) | os.O_CREAT,
                       stat.S_IMODE(mode))
        self._forget_path(path)
        return self._entry(path) + struct.pack("=QII", file, 0, 0)

    def _read(self, _node, body):
        file, offset, size = struct.unpack_from("=QQI", body)
        return os.pread(file, size, offset)

    def _write(self, _node, body):
        file, offset, size = struct.unpack_from("=QQI", body)
        return struct.pack("=II", os.pwrite(file, body[40:40 + size], offset), 0)

    def _statfs(self, _node, _body):
        use = os.statvfs(self.folder)
        return struct.pack("=QQQQQIIII6I", use.f_blocks, use.f_bfree, use.f_bavail, use.f_files, use.f_ffree,
                           use.f_bsize, use.f_namemax, use.f_frsize, 0, *[0] * 6)

    def _release(self, _node, body):
        os.close(struct.unpack_from("=Q", body)[0])
        return b""

    def _fsync(self, _node, body):
        os.fdatasync(struct.unpack_from("=Q", body)[0])
        return b""

    def _fallocate(self, _node, body):
        if not self.has_fallocate:
            raise OSError(errno.EOPNOTSUPP, "")
        file, offset, length, mode = struct.unpack_from("=QQQI", body)
        libc = ctypes.CDLL(None, use_errno=True)
        libc.fallocate64.argtypes = [ctypes.c_int, ctypes.c_int, ctypes.c_int64, ctypes.c_int64]
        if libc.fallocate64(file, mode, offset, length) != 0:
            raise OSError(ctypes.get_errno(), "")
        return b""

    def _flush(self, _node, _body):
        return b""

    _access = _fsyncdir = _releasedir = _flush

    def _opendir(self, _node, _body):
        return struct.pack("=QII", 0, 0, 0)

    def _readdir(self, node, body):
        offset, size = struct.unpack_from("=8xQI", body)
        names = sorted(os.listdir(self._real(self._where(node))))
        out = b""
        for index, name in enumerate(names[offset:], offset + 1):
            raw = os.fsencode(name)
            kind = stat.S_IFMT(os.lstat(os.path.join(self._real(self._where(node)), name)).st_mode) >> 12
            entry = struct.pack("=QQII", index, index, len(raw), kind) + raw
            entry += b"\0" * (-len(entry) % 8)
            if len(out) + len(entry) > size:
                break
            out += entry
        return out
