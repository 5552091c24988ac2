#pragma once

#include <QString>

#include <vector>

/// What became of a story.
struct StoryOutcome {
    QString broken; ///< the rule, empty when all held
    int act = -1;   ///< in which it broke; the number of acts when in the end
    QString kind;   ///< of that act
    quint64 written = 0;
    quint64 shown = 0;
    QString last; ///< state of the engine at the end
};

/// Tells the story of \a seed to an engine of its own: those acts, with a rest after every fifty, and then
/// the end, in which every mode must be reached. Stops where a rule is broken. Every sixteenth story
/// is that of an engine without a device.
StoryOutcome tellStory(quint32 seed, const std::vector<int> &acts);

/// Acts 0 to \a count - 1.
std::vector<int> firstActs(int count);
