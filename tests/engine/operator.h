#pragma once

#include "invariants.h"
#include "stressrig.h"

#include <QObject>

/// Random numbers that cost little to begin anew, so that every act has its own: what it draws does
/// not depend on the acts before it, and one can be left out.
class Dice
{
public:
    explicit Dice(quint64 seed) : _state(seed) {}
    int pick(int count) { return int(next() % quint64(count)); } ///< 0 … \a count - 1
    bool chance(int in) { return pick(in) == 0; }
    quint64 next();

private:
    quint64 _state;
};

/// The random hand: whoever commands the engine, its controller, its input, its device and its
/// medium. One seed is one story.
class Operator
{
public:
    Operator(StressRig &rig, Invariants &rules, quint32 seed);

    /// Does act \a number of the story and lets some time pass.
    void act(int number);
    /// What was done last, such as "fault setup slow".
    QString lastAct() const;

private:
    struct Act;

    void command();
    void setting();
    void input();
    void deviceFault();
    void mediumFault();
    void deviceNews();
    void stray();
    void material();
    void reopen();
    void camera();
    void timecode();
    void fromInside();
    void rareThing();

    void say(const char *what) { _what = what; }
    void wait();
    void listen();
    void heard(int signal);
    int delay();

    StressRig &_rig;
    Invariants &_rules;
    quint64 _seed;
    Dice _dice;
    const char *_kind = "";
    const char *_what = "";
    int _recordings = 0;
    int _armedFor = -1; ///< the signal that a command is given in
    int _armedTimes = 0;
    int _depth = 0;
    OrbTimecode _inputTimecode;
    bool _isTimecodeRunning = false;
};
