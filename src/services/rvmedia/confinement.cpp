#include "confinement.h"

#include <array>
#include <cstddef>

#include <grp.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isInstrumented = true; // needs memory and system calls without bound
#else
constexpr bool isInstrumented = false;
#endif

struct Limit {
    decltype(RLIMIT_AS) what;
    rlim_t most;
};

constexpr Limit limits[] = {
    {RLIMIT_AS, rlim_t(512) << 20}, // bytes
    {RLIMIT_CPU, 30},               // seconds
    {RLIMIT_FSIZE, 0},
    {RLIMIT_CORE, 0},
    {RLIMIT_NOFILE, 16},
    {RLIMIT_NPROC, 0},
};

constexpr unsigned int nobody = 65534;

bool dropRights()
{
    if (::geteuid() != 0)
        return true;
    return ::setgroups(0, nullptr) == 0 && ::setresgid(nobody, nobody, nobody) == 0 &&
        ::setresuid(nobody, nobody, nobody) == 0;
}

#if defined(__x86_64__)
constexpr unsigned int machine = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr unsigned int machine = AUDIT_ARCH_AARCH64;
#endif

#if defined(__x86_64__) || defined(__aarch64__)
/// What reading a descriptor, memory, answering and ending take.
constexpr int allowed[] = {
    SYS_read,   SYS_pread64,      SYS_recvmsg,      SYS_sendto,       SYS_sendmsg, SYS_close,
    SYS_fstat,  SYS_newfstatat,   SYS_lseek,        SYS_mmap,         SYS_munmap,  SYS_mremap,
    SYS_brk,    SYS_mprotect,     SYS_madvise,      SYS_futex,        SYS_exit,    SYS_exit_group,
    SYS_write,  SYS_rt_sigreturn, SYS_rt_sigaction, SYS_rt_sigprocmask,
    SYS_getpid, SYS_gettid,       SYS_tgkill,       SYS_clock_gettime,
};

bool filterCalls()
{
    constexpr std::size_t count = std::size(allowed);
    std::array<sock_filter, count + 6> program{};
    std::size_t at = 0;
    program[at++] = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch));
    program[at++] = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, machine, 1, 0);
    program[at++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
    program[at++] = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
    for (std::size_t i = 0; i < count; ++i)
        program[at++] = BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(allowed[i]),
                                 static_cast<unsigned char>(count - i), 0);
    program[at++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
    program[at++] = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    sock_fprog filter{static_cast<unsigned short>(at), program.data()};
    return ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}
#else
bool filterCalls()
{
    return true;
}
#endif

} // namespace

bool confineProcess()
{
    if (::prctl(PR_SET_DUMPABLE, 0) != 0 || ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        !dropRights())
        return false;
    if (isInstrumented)
        return true;
    for (const Limit &limit : limits) {
        const rlimit both{limit.most, limit.most};
        if (::setrlimit(limit.what, &both) != 0)
            return false;
    }
    return filterCalls();
}
