#pragma once

#include <string>

// Tells a service manager how far the program has come, by the datagrams of
// sd_notify(3) on the socket that NOTIFY_SOCKET names (systemd's
// Type=notify): so that "systemctl start" returns once the server listens,
// and reports a start that fails. Without the variable, as outside a service,
// it does nothing; a failed send is not reported either, since the manager
// then sees a start that does not finish.
class ServiceNotifier {
public:
    // "READY=1": the server is listening.
    static void Ready() { Notify("READY=1"); }
    // "STOPPING=1": the server is being stopped.
    static void Stopping() { Notify("STOPPING=1"); }

private:
    static void Notify(const std::string& state);
};
