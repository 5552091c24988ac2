// clip_listing FOLDER RVGROK: lists folders of 1,000 and 10,000 clips as the media service does: when every file is new,
// and when every clip is known. Then the share of a list in the shared memory, and what is known from its file.

#include "cliplister.h"
#include "figures.h"
#include "knownclipsfile.h"
#include "libclip/clipwriter.h"
#include "libvanta/mediacache.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
constexpr int rounds = 7;
constexpr int framesPerClip = 25;

double msSince(std::chrono::steady_clock::time_point began)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count();
}

bool makeClip(const std::string &path)
{
    clip::ClipInfo info;
    info.video = {clip::Codec::ProRes422, 1920, 1080, 25, 1, clip::Scan::Progressive, true};
    info.audio = clip::AudioFormat{2, 48000};
    info.timecode = clip::StartTimecode{90000, 25, false};
    const std::vector<std::byte> picture(1000);
    const std::vector<std::byte> sound(1920 * 6);
    clip::ClipWriter writer;
    bool isWritten = !writer.open(path, info);
    for (int i = 0; isWritten && i < framesPerClip; ++i)
        isWritten = !writer.write(picture, sound);
    return isWritten && !writer.close();
}

bool makeFolder(const std::string &folder, int clips)
{
    fs::create_directories(folder);
    const std::string first = folder + "/R001C00001.mov";
    if (!makeClip(first))
        return false;
    for (int i = 2; i <= clips; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "/R001C%05d.mov", i);
        fs::copy_file(first, folder + name);
    }
    return true;
}

bool measure(const std::string &folder, const std::string &reader, int clips)
{
    std::vector<double> fresh;
    std::vector<double> known;
    std::vector<double> shared;
    std::vector<double> kept;
    const std::string title = std::to_string(clips) + " clips";
    for (int round = 0; round < rounds; ++round) {
        KnownClips memory;
        ClipLister lister(memory, reader);
        for (std::vector<double> *times : {&fresh, &known}) {
            int error = 0;
            const auto began = std::chrono::steady_clock::now();
            const std::list<Clip> list = lister.list(folder, error);
            times->push_back(msSince(began));
            if (error != 0 || int(list.size()) != clips || !list.front().isComplete())
                return false;
            if (times == &known) {
                lumo::media::MediaCache cache("clip_listing_");
                std::list<Clip> read;
                const auto shares = std::chrono::steady_clock::now();
                if (!cache.setClips(list) || !cache.clips(read) || read.size() != list.size())
                    return false;
                shared.push_back(msSince(shares));
                const std::string text = knownClipsText(memory.good());
                KnownClips again;
                const auto reads = std::chrono::steady_clock::now();
                if (!readKnownClips(text, again))
                    return false;
                kept.push_back(msSince(reads));
            }
        }
    }
    return printFigures((title + ", all new").c_str(), "listings", fresh, "ms", 1) &&
        printFigures((title + ", all known").c_str(), "listings", known, "ms", 1) &&
        printFigures((title + ", shared and read").c_str(), "times", shared, "ms", 1) &&
        printFigures((title + " known from the file").c_str(), "times", kept, "ms", 1);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: clip_listing FOLDER RVGROK\n");
        return 2;
    }
    bool isMeasured = true;
    for (const int clips : {1000, 10000}) {
        const std::string folder = std::string(argv[1]) + "/clip_listing";
        fs::remove_all(folder);
        isMeasured = makeFolder(folder, clips) && measure(folder, argv[2], clips) && isMeasured;
        fs::remove_all(folder);
    }
    lumo::media::SharedList::remove("clip_listing_SharedClipCache");
    lumo::media::SharedList::remove("clip_listing_SharedPlaylistCache");
    return isMeasured ? 0 : 1;
}
