#include "ServiceNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

void ServiceNotifier::Notify(const std::string& state)
{
    // An absolute path, or "@" for a name in the abstract namespace.
    const char* name = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    const size_t length = name != nullptr ? std::strlen(name) : 0;
    if (length == 0 || (name[0] != '/' && name[0] != '@') || length >= sizeof(address.sun_path)) {
        return;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, length);
    if (name[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const int handle = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (handle < 0) {
        return;
    }
    const auto addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    [[maybe_unused]] const ssize_t sent = sendto(handle, state.data(), state.size(), MSG_NOSIGNAL,
                                                 reinterpret_cast<const sockaddr*>(&address), addressLength);
    close(handle);
}
