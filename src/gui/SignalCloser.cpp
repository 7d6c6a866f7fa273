#include "SignalCloser.h"

#include "foundation/Precondition.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QWidget>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A signal handler can reach nothing but static data; this is the one place
// of the program that needs it.
volatile sig_atomic_t signalPipeWriteEnd = -1;

void OnClosingSignal(int signalNumber)
{
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    // A full pipe already holds a wake-up; the byte may then be dropped.
    [[maybe_unused]] const ssize_t written = write(signalPipeWriteEnd, &byte, 1);
    errno = savedErrno;
}

} // namespace

SignalCloser::SignalCloser()
{
    PRECONDITION(signalPipeWriteEnd == -1);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        // Without the pipe the signals keep their default action.
        return;
    }
    readEnd = ends[0];
    writeEnd = ends[1];
    signalPipeWriteEnd = writeEnd;

    notifier = new QSocketNotifier(readEnd, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &SignalCloser::SignalArrived);

    struct sigaction action {};
    action.sa_handler = OnClosingSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (size_t i = 0; i < CLOSING_SIGNALS.size(); ++i) {
        sigaction(CLOSING_SIGNALS[i], &action, &previousActions[i]);
    }
}

SignalCloser::~SignalCloser()
{
    if (readEnd < 0) {
        return;
    }
    for (size_t i = 0; i < CLOSING_SIGNALS.size(); ++i) {
        sigaction(CLOSING_SIGNALS[i], &previousActions[i], nullptr);
    }
    signalPipeWriteEnd = -1;
    delete notifier;
    close(readEnd);
    close(writeEnd);
}

void SignalCloser::SignalArrived()
{
    std::array<unsigned char, 16> bytes{};
    while (read(readEnd, bytes.data(), bytes.size()) > 0) {
    }
    closing = true;
    if (window != nullptr) {
        window->close();
    }
    // Every loop ends, also that of a box or a modal dialog still on screen,
    // and also before the main loop has started: the signal asks the
    // program to end, not merely to close its window.
    QCoreApplication::exit(0);
}
