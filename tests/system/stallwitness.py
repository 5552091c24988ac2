"""A witness that tells whether the machine stood still: a process of its own, which sleeps and sees how much longer it
slept than it wanted. It knows nothing of what is tested."""

import subprocess
import sys

SLEEPER = """
import sys, threading, time
over = threading.Event()
threading.Thread(target=lambda: (sys.stdin.read(), over.set()), daemon=True).start()
longest = 0.0
while not over.is_set():
    began = time.monotonic()
    time.sleep(0.01)
    longest = max(longest, time.monotonic() - began - 0.01)
print(longest)
"""


class StallWitness:
    """Watches for as long as it is open, or until it is asked."""

    def __enter__(self):
        self._process = subprocess.Popen([sys.executable, "-c", SLEEPER], stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE, text=True)
        return self

    def __exit__(self, *unused):
        self._process.kill()
        self._process.wait()
        return False

    def longest(self):
        """The most that it has overslept, in seconds. It watches no longer."""
        return float(self._process.communicate(timeout=10)[0])
