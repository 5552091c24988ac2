#pragma once

#include "liborb/orbtimecode.h"
#include "transport/vtrstate.h"

#include <QObject>
#include <QString>

#include <termios.h>

/// The console of an engineer: single keys on the terminal become transport commands, and one
/// status line is rewritten in place. The terminal is raw for the life of the object.
class KeyboardTransport : public QObject
{
    Q_OBJECT
public:
    explicit KeyboardTransport(QObject *parent = nullptr);
    ~KeyboardTransport() override;

signals:
    void refreshed(); ///< ten times a second, after the line was redrawn
    void quit();
    void play(double speed);
    void still();
    void stop();
    void fastfwd();
    void rewind();
    void step(int);
    void record();
    void toggleMeta();
    void cameraRecord();
    void standbyOff();

public slots:
    // Stored; seen on the next redraw
    void setVtrState(const VtrState &state);
    void setStatus(const QString &val);
    void setCurrentTimecode(const OrbTimecode &);

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    bool kbhit();
    int getch();
    void redraw();
    void handleKey(int key);

    VtrState _state;
    OrbTimecode _timecode;
    termios _savedTerminal = {};
    bool _isTerminal = false; ///< the settings could be taken
    bool _isAtEnd = false;    ///< standard input has ended: no key will come any more
    QString _lastLine;
    int _redrawCount = 0;
    QString _status;
};
