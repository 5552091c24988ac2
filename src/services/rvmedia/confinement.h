#pragma once

/// Gives up, for good, what reading files handed over by somebody else does not need: more than half a GiB of
/// memory, 30 s of processor time, writing files, new descriptors, the superuser's rights, and, where the
/// processor's numbers of system calls are known, every system call but a handful. No path can be opened and no
/// socket made afterwards. False when a part that every system has is refused.
bool confineProcess();
