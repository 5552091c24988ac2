#pragma once

#include "libvanta/clip.h"
#include "libvanta/mediacolumns.h"
#include "libvanta/sharedlist.h"

#include <list>
#include <string>

namespace lumo::media {

/// The clip list and the play list that all processes of the recorder share: the clips of all media, medium by
/// medium, each medium's in the order of recording. The media service writes them, everybody reads. Object names
/// are the prefix, "SharedClipCache" or "SharedPlaylistCache", and "_shm" or "_mutex"; names and sizes are fixed
/// for ever.
class MediaCache
{
public:
    static constexpr std::size_t clipCacheSize = 10039315;      ///< bytes
    static constexpr std::size_t playlistCacheSize = 54595607;  ///< bytes

    explicit MediaCache(const std::string &prefix);

    /// False when nobody has written the list yet or it is torn.
    bool clips(std::list<Clip> &clips) const { return _clips.load(clips); }
    bool playlist(std::list<Clip> &clips) const { return _playlist.load(clips); }
    bool setClips(const std::list<Clip> &clips) { return _clips.store(clips); }
    bool setPlaylist(const std::list<Clip> &clips) { return _playlist.store(clips); }

    /// Fills \a clip from the head of the clip file at \a path; false when it is no clip. With
    /// \a completeOnly a clip still being recorded counts as none. Reads the file's index and nothing else.
    static bool GrokClip(Clip &clip, std::string path, bool completeOnly);
    /// The same for the file open at \a descriptor, which is closed: fills in all but name and directory.
    static bool GrokDescriptor(Clip &clip, int descriptor, bool completeOnly);

private:
    SharedList _clips;
    SharedList _playlist;
};

} // namespace lumo::media
