#pragma once

#include <QObject>

#include <array>
#include <csignal>

class QSocketNotifier;
class QWidget;

// Turns SIGTERM, SIGINT and SIGHUP into a close of the main window on the
// event loop, exactly as "Zakończ" closes it, and ends the event loop: the
// server stops and everything is saved when the window is destroyed. The
// handler itself only writes the signal number into a pipe.
//
// Made before the window and destroyed after it, so that a signal during the
// start or during the last saves is never fatal. One object at a time; the
// previous handlers come back when it goes.
class SignalCloser : public QObject {
    Q_OBJECT

public:
    SignalCloser();
    ~SignalCloser() override;

    SignalCloser(const SignalCloser&) = delete;
    SignalCloser& operator=(const SignalCloser&) = delete;

    // The window to close; null while there is none.
    void SetWindow(QWidget* newWindow) { window = newWindow; }
    // True once a signal has come: a caller about to enter the event loop
    // should not, since the request to end came before the loop could see it.
    bool IsClosing() const { return closing; }

private slots:
    void SignalArrived();

private:
    static constexpr std::array<int, 3> CLOSING_SIGNALS = {SIGTERM, SIGINT, SIGHUP};

    QWidget* window = nullptr;
    bool closing = false;
    int readEnd = -1;
    int writeEnd = -1;
    QSocketNotifier* notifier = nullptr;
    std::array<struct sigaction, CLOSING_SIGNALS.size()> previousActions{};
};
