#pragma once

#include <QObject>

class QSocketNotifier;
class QWidget;

// Turns SIGTERM, SIGINT and SIGHUP into a close of the main window on the
// event loop, exactly as "Zakończ" closes it, and ends the event loop: the
// server stops and everything is saved when the window is destroyed. The
// handler itself only writes the signal number into a pipe.
// One object at a time; the previous handlers come back when it goes.
class SignalCloser : public QObject {
    Q_OBJECT

public:
    explicit SignalCloser(QWidget* window);
    ~SignalCloser() override;

    SignalCloser(const SignalCloser&) = delete;
    SignalCloser& operator=(const SignalCloser&) = delete;

private slots:
    void SignalArrived();

private:
    QWidget* window;
    int readEnd = -1;
    int writeEnd = -1;
    QSocketNotifier* notifier = nullptr;
};
