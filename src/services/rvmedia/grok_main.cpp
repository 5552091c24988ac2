// rvgrok reads clip files for the media service, in a process of its own that can do nothing else. Standard
// input is a socket: each message brings an open file, each answer says what it is, or how it would be completed.
// Whatever a file does to this process, the service only loses an answer.

#include "confinement.h"
#include "libvanta/cliprecord.h"
#include "libvanta/mediacache.h"
#include "passeddescriptor.h"
#include "recoveryanswer.h"

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

bool answerFacts(int file)
{
    const std::string answer = answerFor(file);
    return ::send(asker, answer.data(), answer.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(answer.size());
}

bool answerPlan(int descriptor)
{
    clip::RawFile file;
    const bool isOpen = !file.adoptToRead(descriptor);
    return sendPlan(asker, isOpen ? clip::planRecovery(file) : clip::RecoveryPlan());
}

} // namespace

int main()
{
    // What is set up at the first use is set up now, while it may.
    (void)answerFor(-1);
    if (!confineProcess())
        return 1;
    char wanted = 0;
    for (int file = takeDescriptor(asker, wanted); file >= 0; file = takeDescriptor(asker, wanted)) {
        const bool isPlan = wanted == static_cast<char>(Wanted::RecoveryPlan);
        if (!(isPlan ? answerPlan(file) : answerFacts(file)))
            break;
    }
    ::_exit(0);
}
