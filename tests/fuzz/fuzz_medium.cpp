// Texts and lists that lie on media or come from other processes: a play list and an edit of it, the list of known
// clips, a slot, a clip's record, text for the terminal.
// links: mediaservice control
// at most: 20

#include "driver.h"
#include "libvanta/cliprecord.h"
#include "libvanta/mediaslot.h"
#include "services/rvctl/plaintext.h"
#include "services/rvmedia/clipname.h"
#include "services/rvmedia/knownclipsfile.h"
#include "services/rvmedia/mounttable.h"
#include "services/rvmedia/playlistfile.h"
#include "services/rvmedia/slotfile.h"

#include <algorithm>

namespace
{

/// The first line is the edit, the rest the play list.
void edit(const std::string &input)
{
    const std::size_t end = input.find('\n');
    std::string text = end == std::string::npos ? std::string() : input.substr(end + 1);
    const std::string before = text;
    std::string problem;
    const bool isEdited = editPlayList(text, input.substr(0, end), problem);
    fuzzCheck(isEdited == problem.empty() && (isEdited || text == before));
}

void readAll(const std::string &text)
{
    KnownClips known;
    if (readKnownClips(text, known)) {
        KnownClips again;
        fuzzCheck(readKnownClips(knownClipsText(known.good()), again));
    }
    Clip clip;
    Clip told;
    if (lumo::media::clipOf(text, clip))
        fuzzCheck(lumo::media::clipOf(lumo::media::recordOf(clip), told) && told == clip);
    if (const auto slot = mediaSlotOf(text))
        fuzzCheck(mediaSlotOf(textOf(*slot)) == slot);
    std::string problem;
    (void)slotsIn(text, problem);
    (void)mountPointsIn(text);
}

void show(const std::string &text)
{
    const std::string shown = printable(text);
    fuzzCheck(std::ranges::none_of(shown, [](char c) { return (c >= 0 && c < 0x20) || c == 0x7f; }));
    fuzzCheck(printable(shown) == shown && columnsOf(shown) <= shown.size());
    fuzzCheck(!isClipName(text) || text.find('\n') == std::string::npos);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    edit(text);
    readAll(text);
    show(text);
    return 0;
}
