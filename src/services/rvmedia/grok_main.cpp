// rvgrok reads clip files for the media service, in a process of its own that can do nothing else. Standard
// input is a socket: each message brings an open file, each answer says what it is. Whatever a file does to
// this process, the service only loses an answer.

#include "confinement.h"
#include "libvanta/cliprecord.h"
#include "libvanta/mediacache.h"
#include "passeddescriptor.h"

#include <string>

#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr int asker = 0;

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
    for (int file = takeDescriptor(asker); file >= 0; file = takeDescriptor(asker)) {
        const std::string answer = answerFor(file);
        if (::send(asker, answer.data(), answer.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(answer.size()))
            break;
    }
    ::_exit(0);
}
