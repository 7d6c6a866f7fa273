#include "harness/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const std::string& outputPath)
{
    if (arguments.empty()) {
        throw std::runtime_error("no program to run");
    }
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    // Opened before the fork so that the child only has async-signal-safe work left.
    const int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (output < 0) {
        throw std::runtime_error("cannot open " + outputPath);
    }
    pid = fork();
    if (pid < 0) {
        close(output);
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        const int nothing = open("/dev/null", O_RDONLY);
        if (nothing >= 0) {
            dup2(nothing, STDIN_FILENO);
        }
        // The test may block signals in its threads; the program must not inherit that.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(output);
}

ChildProcess::~ChildProcess()
{
    if (!exited) {
        Terminate();
    }
}

void ChildProcess::Signal(int signalNumber) const
{
    if (!exited) {
        kill(pid, signalNumber);
    }
}

bool ChildProcess::WaitForExit(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!exited) {
        const pid_t result = waitpid(pid, &status, WNOHANG);
        if (result == pid || result < 0) {
            exited = true;
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return exited;
}

void ChildProcess::Terminate(std::chrono::milliseconds grace)
{
    if (exited) {
        return;
    }
    kill(pid, SIGTERM);
    if (!WaitForExit(grace)) {
        kill(pid, SIGKILL);
        WaitForExit(std::chrono::seconds(10));
    }
}
