#pragma once

#include "enginerig.h"

#include <array>

/// Tables that have a row for every mode.
namespace EngineModes {

inline constexpr std::array all = {VtrState::Startup, VtrState::Shutdown, VtrState::StandbyOff,
                                   VtrState::Standby, VtrState::Play,     VtrState::Record};

/// Brings a new rig into \a mode and lets it settle; the transcript starts empty.
inline void enter(EngineRig &rig, VtrState::Mode mode)
{
    switch (mode) {
    case VtrState::Startup: rig.run(50); break;
    case VtrState::Shutdown:
        rig.startUp();
        rig.vtr->shutdown();
        break;
    case VtrState::StandbyOff: rig.startUp(); break;
    case VtrState::Standby:
        rig.startUp();
        rig.vtr->stop();
        break;
    case VtrState::Play: rig.startPlay(); break;
    case VtrState::Record: rig.startRecord(); break;
    }
    rig.run(100);
    QCOMPARE(rig.mode(), mode);
    QVERIFY(!rig.vtr->hasPendingModeChange());
    QVERIFY(rig.vtr->canProcess());
    rig.transcript.clear();
    rig.alarms.clear();
}

inline QByteArray name(VtrState::Mode mode)
{
    return VtrState::modeName(mode).toLatin1();
}

} // namespace EngineModes
