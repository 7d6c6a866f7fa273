#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

// A program started in the background by a test, known by its PID only, and
// ended by that PID: never by name. The destructor ends it if it still runs.
class ChildProcess {
public:
    // Runs `arguments[0]` from PATH with those arguments; standard output and
    // standard error go to `outputPath`. Raises std::runtime_error.
    ChildProcess(const std::vector<std::string>& arguments, const std::string& outputPath);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return pid; }
    void Signal(int signalNumber) const;
    // Waits up to `timeout` for the end; true when it has ended. The exit
    // status is then kept.
    bool WaitForExit(std::chrono::milliseconds timeout);
    // SIGTERM, a grace period, then SIGKILL; always reaps the process.
    void Terminate(std::chrono::milliseconds grace = std::chrono::seconds(3));
    bool HasExited() const { return exited; }
    // The raw wait status; valid once exited.
    int Status() const { return status; }

private:
    pid_t pid = -1;
    bool exited = false;
    int status = 0;
};
