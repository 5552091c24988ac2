#include "transport/droppedframes.h"

namespace {

using Then = DroppedFrameRule::Then;

// clang-format off
//                                          level  text                                        then
constexpr DroppedFrameRule playStops     = {2, "Playback stopped due to dropped frame",    Then::Still};
constexpr DroppedFrameRule playContinues = {1, "Playback continued after dropped frame",   Then::GoOn};
constexpr DroppedFrameRule recordStops   = {2, "Recording stopped due to dropped frame",   Then::StandbyOff};
// clang-format on

} // namespace

const DroppedFrameRule *droppedFrameRule(const VtrState &state)
{
    if (state.isInModeRecord())
        return &recordStops; // whatever the setting, deliberately: a recording has no holes
    if (!state.isInModePlay() || !state.speedFlags().isNormalForward())
        return nullptr;
    return state.stopOnFrameDrop() ? &playStops : &playContinues;
}
