// rvgrok reads clip files for the media service, in a process of its own that can do nothing else. Standard
// input is a socket: each message brings an open file, each answer says what it is. Whatever a file does to
// this process, the service only loses an answer.

#include "confinement.h"
#include "libvanta/cliprecord.h"
#include "libvanta/mediacache.h"

#include <array>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int asker = 0;

/// The next file; -1 when nobody asks any more.
int nextFile()
{
    char byte = 0;
    iovec bytes{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    if (::recvmsg(asker, &message, MSG_CMSG_CLOEXEC) != 1)
        return -1;
    const cmsghdr *header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_type != SCM_RIGHTS || header->cmsg_len != CMSG_LEN(sizeof(int)))
        return -1;
    int file = -1;
    std::memcpy(&file, CMSG_DATA(header), sizeof file);
    return file;
}

std::string answerFor(int file)
{
    Clip clip;
    if (!lumo::media::MediaCache::GrokDescriptor(clip, file, false))
        clip.setState(ClipState::Bad);
    clip.setName("clip"); // the asker knows better
    return lumo::media::recordOf(clip);
}

} // namespace

int main()
{
    // What is set up at the first use is set up now, while it may.
    (void)answerFor(-1);
    if (!confineProcess())
        return 1;
    for (int file = nextFile(); file >= 0; file = nextFile()) {
        const std::string answer = answerFor(file);
        if (::send(asker, answer.data(), answer.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(answer.size()))
            break;
    }
    ::_exit(0);
}
