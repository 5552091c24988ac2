// The life of a clip being written. open() makes the head durable: file type, a placeholder, a
// movie without samples. Each half second becomes one fragment (the first one three, so that there
// is something to read from the first frame on). Its pictures are written as they come, behind room
// for its head, which is written last and disguised as a free box, which every reader skips; until
// then zeros stand there, where every reader stops. When the fragment is durable its type is turned
// into "moof", four bytes within one sector, so a reader meets whole fragments or none. close()
// appends the movie of the whole clip and, when that is durable, turns the placeholder into the
// header of a data box that reaches up to it: the first movie and the fragment heads become bytes
// nobody looks at. At every instant one of the two views of the file is whole.

#include "libclip/clipwriter.h"

#include "libclip/commits.h"
#include "libclip/movfragment.h"
#include "libclip/movhead.h"
#include "libclip/movsample.h"
#include "libclip/rawfile.h"

#include <cerrno>
#include <limits>

namespace clip {

namespace {

constexpr std::size_t maxPictureBytes = std::size_t(1) << 30;
constexpr std::uint64_t maxSamples = std::numeric_limits<std::uint32_t>::max();

} // namespace

struct ClipWriter::Private
{
    Syncing syncing = Syncing::ByWrite;
    RawFile file;
    std::string path;
    ClipInfo info;
    MovieTables tables;
    MovFragment fragment;
    std::uint32_t sequence = 1;
    std::uint64_t end = 0;          ///< where the next fragment goes
    std::uint64_t reservedEnd = 0;  ///< up to here there is room
    Error writeError;

    Commits commits;

    Error create(const std::string &newPath);
    Error check(std::span<const std::byte> picture, std::span<const std::byte> sound) const;
    Error writePicture(std::span<const std::byte> picture, std::size_t soundBytes);
    Error makeRoom(std::uint64_t pictureBytes, std::uint64_t soundBytes);
    Error writeFragment();
    Error giveUpFragment(const Error &error);
    Error currentError();
    Error complete();
    Error closeAfter(const Error &error);
    void reset();
};

ClipWriter::ClipWriter() : _d(std::make_unique<Private>())
{
}

ClipWriter::~ClipWriter()
{
    (void)close();
}

void ClipWriter::setSyncing(Syncing syncing)
{
    _d->syncing = syncing;
}

bool ClipWriter::isOpen() const
{
    return _d->file.isOpen();
}

std::int64_t ClipWriter::frames() const
{
    return std::int64_t(_d->tables.pictureSizes.size() + _d->fragment.pictureSizes().size());
}

bool ClipWriter::hasUncommitted() const
{
    return _d->commits.hasPending();
}

std::int64_t ClipWriter::committedFrames() const
{
    return _d->commits.frames();
}

Error ClipWriter::open(const std::string &path, const ClipInfo &info)
{
    if (isOpen()) {
        return systemError(EBUSY, "open clip");
    }
    if (!isWritable(info)) {
        return systemError(EINVAL, "open clip");
    }
    _d->reset();
    _d->info = info;
    if (const Error error = _d->create(path)) {
        return error;
    }
    _d->fragment.start(_d->info, 0);
    return { };
}

Error ClipWriter::Private::create(const std::string &newPath)
{
    if (const Error error = file.create(newPath)) {
        return error;
    }
    path = newPath;
    const auto head = movieHead(info);
    end = head.size();
    Error error = file.reserve(0, head.size() + mostMovieBytes(1, 1));
    if (!isFull(error)) {
        error = file.writeAt(0, head);
    }
    if (!error) {
        error = file.sync();
    }
    if (!error) {
        error = syncDirectoryOf(path);
    }
    if (error) {
        // The name was free before: leave no file behind that no reader opens.
        file.close();
        removeFile(path);
    }
    return error;
}

Error ClipWriter::write(std::span<const std::byte> picture, std::span<const std::byte> sound)
{
    if (const Error error = _d->check(picture, sound)) {
        return error;
    }
    if (const Error error = _d->currentError()) {
        return error;
    }
    if (_d->tables.dnxCompression == 0 && _d->info.video.codec == Codec::DnxHqx) {
        _d->tables.dnxCompression = dnxCompressionOf(picture);
    }
    if (const Error error = _d->writePicture(picture, sound.size())) {
        return error;
    }
    _d->fragment.add(picture.size(), sound);
    if (!_d->fragment.isFull()) {
        return { };
    }
    if (const Error error = _d->writeFragment()) {
        return error;
    }
    return _d->syncing == Syncing::ByWrite ? _d->commits.commit(_d->file) : Error { };
}

Error ClipWriter::Private::check(std::span<const std::byte> picture,
                                 std::span<const std::byte> sound) const
{
    if (!file.isOpen()) {
        return systemError(EBADF, "write clip");
    }
    const bool isWholeSamples =
        info.audio ? sound.size() % soundBlock(info.audio->channels) == 0 : sound.empty();
    if (picture.empty() || !isWholeSamples) {
        return systemError(EINVAL, "write clip");
    }
    // The tables count samples in 32 bits: some 24 hours of sound.
    const std::uint64_t samples = tables.soundSamples + fragment.soundSamples()
        + (info.audio ? sound.size() / soundBlock(info.audio->channels) : 0);
    if (picture.size() > maxPictureBytes || sound.size() > maxPictureBytes
        || samples > maxSamples) {
        return systemError(EFBIG, "write clip");
    }
    return { };
}

/// Writes the next picture at its place in the fragment. Where there is no room for it, the fragment
/// ends before it: what is written has the room that it needs.
Error ClipWriter::Private::writePicture(std::span<const std::byte> picture, std::size_t soundBytes)
{
    if (const Error full = makeRoom(picture.size(), soundBytes)) {
        const Error error = writeFragment();
        writeError = error ? error : full;
        return writeError;
    }
    const Error error = file.writeAt(end + fragment.nextPicture(), picture);
    return error ? giveUpFragment(error) : error;
}

/// A frame is written only where the fragment that it is in, and the movie of the whole clip behind
/// it, have room: a medium that is full is no reason not to complete a clip. Room for the frames
/// that make the fragment full is looked for at once, were they like this one.
Error ClipWriter::Private::makeRoom(std::uint64_t pictureBytes, std::uint64_t soundBytes)
{
    const std::uint64_t frames = tables.pictureSizes.size() + fragment.pictureSizes().size();
    const std::uint64_t fragments = tables.pictureChunks.size() + 1;
    const std::uint64_t least = end + fragment.sizeWith(pictureBytes, soundBytes)
        + mostMovieBytes(frames + 1, fragments);
    if (least <= reservedEnd) {
        return { };
    }
    const std::uint64_t from = end + fragment.nextPicture();
    const std::uint64_t others = fragment.framesLeft() - 1;
    reservedEnd = least + others * (pictureBytes + pictureBytes / 8 + soundBytes + 4);
    Error error = file.reserve(from, reservedEnd - from);
    if (isFull(error)) {
        reservedEnd = least;
        error = file.reserve(from, reservedEnd - from);
    }
    // Any other failure is no failure yet: the write itself will tell.
    return isFull(error) ? error : Error { };
}

/// Makes a fragment of the frames that were written at the end of the file, not yet visible to readers.
Error ClipWriter::Private::writeFragment()
{
    if (fragment.isEmpty()) {
        return { };
    }
    MovFragment::Places places;
    const MovFragment::Position position {
        end, sequence, tables.pictureSizes.size(), tables.soundSamples
    };
    const auto back = fragment.sealBack();
    Error error = file.writeAt(end + fragment.nextPicture(), back);
    if (!error) {
        error = file.writeAt(end, fragment.sealFront(position, places));
    }
    if (error) {
        return giveUpFragment(error);
    }
    const auto sizes = fragment.pictureSizes();
    tables.pictureSizes.insert(tables.pictureSizes.end(), sizes.begin(), sizes.end());
    tables.pictureChunks.push_back(places.pictures);
    if (places.sound.samples != 0) {
        tables.soundChunks.push_back(places.sound);
        tables.soundSamples += places.sound.samples;
    }
    if (places.timecodeOffset != 0) {
        tables.timecodeOffset = places.timecodeOffset;
    }
    commits.add({ end, places.end, std::int64_t(tables.pictureSizes.size()) });
    end = places.end;
    ++sequence;
    fragment.start(info, tables.pictureSizes.size());
    return { };
}

/// What the failed write left is no fragment; without it the movie of the clip finds room.
Error ClipWriter::Private::giveUpFragment(const Error &error)
{
    writeError = error;
    fragment.start(info, tables.pictureSizes.size());
    const std::uint64_t movie =
        mostMovieBytes(tables.pictureSizes.size(), tables.pictureChunks.size());
    (void)file.truncate(end);
    (void)file.reserve(end, movie);
    reservedEnd = end + movie;
    return error;
}

Error ClipWriter::Private::currentError()
{
    const Error syncError = commits.error();
    return syncError ? syncError : writeError;
}

Error ClipWriter::flush()
{
    if (!isOpen()) {
        return systemError(EBADF, "flush clip");
    }
    if (const Error error = _d->currentError()) {
        return error;
    }
    if (const Error error = _d->writeFragment()) {
        return error;
    }
    // The first makes the fragments durable, the second their commits.
    if (const Error error = _d->commits.commit(_d->file)) {
        return error;
    }
    return _d->commits.commit(_d->file);
}

Error ClipWriter::sync()
{
    return isOpen() ? _d->commits.commit(_d->file) : systemError(EBADF, "sync clip");
}

Error ClipWriter::stillThere() const
{
    return isOpen() ? _d->file.stillThere() : systemError(EBADF, "look for the clip");
}

Error ClipWriter::close()
{
    if (!isOpen()) {
        return { };
    }
    Error error = _d->currentError();
    if (!error) {
        error = _d->writeFragment();
    }
    const Error outcome = _d->closeAfter(error);
    _d->file.close();
    return outcome;
}

/// The steps that are left after \a error, each tried once; the answer is the first error.
Error ClipWriter::Private::closeAfter(const Error &error)
{
    const Error commitError = commits.commit(file);
    if (commitError) {
        return error ? error : commitError;
    }
    if (error && !isForWantOfSpace(error)) {
        return error;
    }
    const Error completeError = complete();
    return error ? error : completeError;
}

/// Turns the fragmented clip into an ordinary one.
Error ClipWriter::Private::complete()
{
    const auto movie = completeMovie(info, tables);
    if (const Error error = file.writeAt(end, movie)) {
        (void)file.truncate(end);
        if (isForWantOfSpace(error) && !file.sync()) {
            commits.allAreCommitted(file, std::int64_t(tables.pictureSizes.size()), end);
        }
        return error;
    }
    if (const Error error = file.sync()) {
        return error;
    }
    BoxWriter header;
    header.u32(1).code("mdat").u64(end - placeholderOffset);
    if (const Error error = file.writeAt(placeholderOffset, header.bytes())) {
        return error;
    }
    // What was reserved behind the movie is given back.
    (void)file.truncate(end + movie.size());
    if (const Error error = file.sync()) {
        return error;
    }
    commits.allAreCommitted(file, std::int64_t(tables.pictureSizes.size()), end);
    return syncDirectoryOf(path);
}

void ClipWriter::Private::reset()
{
    tables = { };
    sequence = 1;
    end = 0;
    reservedEnd = 0;
    writeError = { };
    commits.reset();
}

} // namespace clip
