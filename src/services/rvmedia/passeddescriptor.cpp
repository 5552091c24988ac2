#include "passeddescriptor.h"

#include <array>
#include <cstring>

#include <sys/socket.h>

namespace
{

/// A message with room for one descriptor.
struct Message {
    Message()
    {
        header.msg_iov = &bytes;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
    }
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;

    char byte = 0;
    iovec bytes{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr header{};
};

} // namespace

bool passDescriptor(int socket, int descriptor, char wanted)
{
    Message message;
    message.byte = wanted;
    cmsghdr *header = CMSG_FIRSTHDR(&message.header);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    return ::sendmsg(socket, &message.header, MSG_NOSIGNAL) == 1;
}

int takeDescriptor(int socket, char &wanted)
{
    Message message;
    if (::recvmsg(socket, &message.header, MSG_CMSG_CLOEXEC) != 1)
        return -1;
    const cmsghdr *header = CMSG_FIRSTHDR(&message.header);
    if (!header || header->cmsg_type != SCM_RIGHTS || header->cmsg_len != CMSG_LEN(sizeof(int)))
        return -1;
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
    wanted = message.byte;
    return descriptor;
}
