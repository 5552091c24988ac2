#pragma once

/// The order in which a reader wants the frames of a stream: a position that moves on by the speed
/// with every frame taken, and the frame that it lies in. A plain value: a copy looks ahead without
/// moving the original. Positions are counted from where the speed was last set, so ten steps of
/// 0.1 are one frame, without rounding errors.
class OrbReadOrder
{
public:
    /// A stream of \a length frames, from its first frame.
    void reset(int length);
    /// The stream has become longer. A position behind its end is at the first of the new frames.
    void grow(int length);
    /// A frame before the start or behind the end puts the position one frame outside.
    void moveTo(int frame);
    /// Frames to move on with every frame taken; a speed that is not finite is 0.0.
    void setSpeed(double speed);
    double speed() const { return _speed; }
    int length() const { return _length; }

    int position() const; ///< truncated toward zero
    bool isBeforeStart() const;
    bool isBehindEnd() const;
    bool isInside() const { return !isBeforeStart() && !isBehindEnd(); }

    /// Moves on by the speed; 0.0 stands still.
    void advance();
    /// Moves on until the position lies in another frame; at 0.0 forward, as 1.0 does.
    void skipFrame();

private:
    double exactPosition() const;

    int _length = 0;
    double _speed = 1.0;
    double _base = 0.0;
    double _steps = 0.0; ///< taken since the base, a whole number
};
