#include "support/NetworkNamespaces.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

// Every namespace of the tests is named "tvt<owner's PID>...".
const std::string NAMESPACE_PREFIX = "tvt";

std::string Checked(const std::string& command)
{
    const auto result = NetworkNamespaces::RunCommand(command);
    if (result.exitStatus != 0) {
        throw std::runtime_error("command failed: " + command + "\n" + result.output);
    }
    return result.output;
}

// A test process that crashed cannot run its destructors; its namespaces are
// removed by the next test process instead, once their owner is gone.
bool ProbeNamespaces()
{
    if (geteuid() != 0) {
        return false;
    }
    std::istringstream list(NetworkNamespaces::RunCommand("ip netns list").output);
    const std::regex ours("(" + NAMESPACE_PREFIX + "([0-9]+)[a-z][^ ]*).*");
    std::smatch match;
    for (std::string line; std::getline(list, line);) {
        if (std::regex_match(line, match, ours) && kill(std::stoi(match[2]), 0) != 0 && errno == ESRCH) {
            NetworkNamespaces::RunCommand("ip netns del " + match[1].str());
        }
    }
    const std::string probe = NAMESPACE_PREFIX + std::to_string(getpid()) + "probe";
    return NetworkNamespaces::RunCommand("ip netns add " + probe + " && ip netns del " + probe).exitStatus == 0;
}

} // namespace

NetworkNamespaces::CommandResult NetworkNamespaces::RunCommand(const std::string& command)
{
    CommandResult result;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return result;
    }
    char chunk[4096];
    for (size_t count; (count = fread(chunk, 1, sizeof(chunk), pipe)) > 0;) {
        result.output.append(chunk, count);
    }
    const int status = pclose(pipe);
    result.exitStatus = (status != -1 && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
    return result;
}

void NetworkNamespaces::RunOnThreadIn(const std::string& name, const std::function<void()>& body)
{
    // The namespace is a property of the thread: the caller's stays where it was.
    std::exception_ptr failure;
    std::thread([&] {
        try {
            const int handle = open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
            const int entered = handle < 0 ? -1 : setns(handle, CLONE_NEWNET);
            close(handle);
            if (entered != 0) {
                throw std::runtime_error("cannot enter network namespace " + name);
            }
            body();
        } catch (...) {
            failure = std::current_exception();
        }
    }).join();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

bool NamespacePair::Available()
{
    static const bool available = ProbeNamespaces();
    return available;
}

NamespacePair::NamespacePair()
{
    static std::atomic<unsigned> nextIndex{0};
    const unsigned index = nextIndex++;
    // Interface names have at most 15 characters: "tv" + 7 (largest PID) + 1 + 5.
    const std::string owner = std::to_string(getpid());
    const std::string suffix = std::to_string(index);
    serverNamespace = NAMESPACE_PREFIX + owner + "s" + suffix;
    clientNamespace = NAMESPACE_PREFIX + owner + "c" + suffix;
    serverInterface = "tv" + owner + "s" + suffix;
    clientInterface = "tv" + owner + "c" + suffix;
    // The subnet lives only inside the two namespaces; varying it merely
    // keeps traces of parallel tests apart.
    subnet[0] = static_cast<uint8_t>(20 + getpid() % 200);
    subnet[1] = static_cast<uint8_t>(index % 256);
    const std::string inServer = "ip -n " + serverNamespace + " ";
    const std::string inClient = "ip -n " + clientNamespace + " ";
    try {
        // Both veth ends are born inside their namespaces and never appear on the host.
        Checked("ip netns add " + serverNamespace + " && ip netns add " + clientNamespace + " && ip link add " +
                serverInterface + " netns " + serverNamespace + " type veth peer name " + clientInterface +
                " netns " + clientNamespace + " && " + inServer + "link set lo up && " + inClient +
                "link set lo up && " + inServer + "address add " + ServerAddress().ToString() + "/24 dev " +
                serverInterface + " && " + inClient + "address add " + ClientAddress().ToString() + "/24 dev " +
                clientInterface + " && " + inServer + "link set " + serverInterface + " up && " + inClient +
                "link set " + clientInterface + " up");
    } catch (...) {
        Remove();
        throw;
    }
}

NamespacePair::~NamespacePair()
{
    Remove();
}

std::string NamespacePair::RunInServer(const std::string& command) const
{
    return Checked(NetworkNamespaces::ExecIn(serverNamespace, command));
}

std::string NamespacePair::RunInClient(const std::string& command) const
{
    return Checked(NetworkNamespaces::ExecIn(clientNamespace, command));
}

void NamespacePair::Remove() noexcept
{
    // Deleting a namespace destroys the veth end inside it, and so the pair.
    NetworkNamespaces::RunCommand("ip netns del " + serverNamespace + "; ip netns del " + clientNamespace);
}
