#pragma once

/// Interval (time-lapse) recording: some frames of every second, minute or hour are kept.
struct RecordInterval {
    float count = 0.0F; ///< frames since the last one kept, with what was left over then
    float every = 0.0F; ///< one frame in so many is kept

    /// What start() found wrong with the settings.
    struct Findings {
        bool totalIsZero = false;
        bool isLessThanOne = false;
    };

    /// Begins a recording that keeps \a frames frames in every period (\a period 0 a second, 1 a
    /// minute, 2 an hour) at \a rate frames a second. With 0 frames one frame a period is kept. An
    /// unknown period deliberately starts from the step of the recording before.
    Findings start(int frames, int period, int rate);
    /// Begins a recording that keeps every frame.
    void startOff();
    /// True when the next frame is to be kept.
    bool takesNext();
};
