#pragma once

#include <csignal>
#include <optional>
#include <string>

class DHCPServer;

// The server without a window, for a box without a desktop and for the system
// service: the core alone, no QApplication, so no display is needed.
//
// Stricter at start than the window, because nobody is there to read a box:
// settings.cfg must exist, load and name a preferred listening address that
// some interface carries; the run never falls back to another address nor
// serves the built-in defaults. It ends with a status of sysexits.h, so that
// a service manager can tell a configuration error (78, not worth a retry)
// from an address that is not there yet (69). Bad lines are reported and the
// good ones used, as in the window.
//
// Every message is one line on standard error,
// "quorvy: warning N: <text>" or "quorvy: error N: <text>", with the text of
// the code and, where it helps, ": " and the file or address concerned.
//
// SIGTERM, SIGINT and SIGHUP stop the server as "Zakończ" does (leases and
// the last log lines written), but settings.cfg is only ever read: in this
// mode it belongs to the administrator.
class HeadlessRunner {
public:
    // `dataDirectory`: the folder of settings.cfg, of the default log and of
    // the lease files; relative to the working directory when not absolute;
    // an empty text is a usage error. Without it: the data folder and the
    // folder of TEMP, as the window uses them.
    explicit HeadlessRunner(std::optional<std::string> dataDirectory);

    // Serves until a closing signal and returns the exit status. Must run
    // before any other thread exists: it blocks the closing signals for the
    // whole process, and the server's threads inherit that.
    int Run();

private:
    int Serve(const sigset_t& closingSignals);
    int LoadSettings(DHCPServer& server) const;
    int CheckListeningAddress(DHCPServer& server) const;

    std::optional<std::string> dataDirectory;
    std::string settingsPath;
};
