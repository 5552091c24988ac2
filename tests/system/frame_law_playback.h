#pragma once

#include "frame_law_table.h"

#include <random>
#include <utility>

namespace law {

/// What is tried in one format. Speeds are in hundredths.
struct Plan {
    std::vector<int> middle;
    bool middleLoops; ///< both with looping and without
    std::vector<int> ends;
    std::vector<int> joins;
    std::vector<std::pair<int, int>> changes;
    std::vector<int> entries; ///< straight from Standby Off
    int longLength;
    int shortLength;
    int cues;
    int storms;
    int stillFrames;
    bool hasOddities; ///< very short clips, a play list of two formats
};

/// A cue or a step and where it must land.
struct Command {
    Run before;
    bool isStep = false;
    int value = 0;
    int target = 0;
};

/// The lines of one format.
class Playback
{
public:
    Playback(Table &table, const ClipFormat &format, const QString &folder);

    bool prepare(const Plan &plan);

    // Speeds (frame_law_playback.cpp)
    void playThrough(const Plan &plan);
    void playOverEnds(const Plan &plan);
    void playOverJoins(const Plan &plan);
    void playShortClips(const Plan &plan);
    void changeSpeeds(const Plan &plan);

    // Commands (frame_law_commands.cpp)
    void holdStill(const Plan &plan);
    void cueAround(const Plan &plan, std::uint32_t seed);
    void enterPlay(const Plan &plan);
    void openOther(const Plan &plan);
    void openSameAgain(const Plan &plan);
    void playMixed(const Plan &plan);
    void storm(const Plan &plan, std::uint32_t seed);

private:
    void line(const Material &material, Speed speed, bool looping, const QString &where, int start,
              int outputs, bool reachesEnd);
    QString comeToStill();
    Finding changeOnce(Speed before, Speed after);
    Finding holdOn(const Plan &plan, int frame);
    Finding openAnother();
    Finding openAgain();
    Finding cueBy(const Material &material, const Command &command);
    void cueOnce(const Material &material, std::mt19937 &random);
    Finding stormOnce(const Material &material, std::mt19937 &random);
    Finding enterAt(Speed speed, int start);
    Finding overMixedJoin(Speed speed);
    void add(const QString &speed, bool looping, const QString &where, const Finding &finding);
    bool load(const Material &material);
    QString makeShortClips();
    QString make(TestClip &clip, const ClipFormat &format, int number, int length);

    Table &_table;
    const ClipFormat _format;
    const QString _folder;
    Player _player;
    Material _single;
    Material _second;
    Material _list;
    Material _mixed;
    Material _crumbs;
    Material _pair;
    Material _one;
};

QString textOf(Speed speed);

} // namespace law
