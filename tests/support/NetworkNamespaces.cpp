#include "support/NetworkNamespaces.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

// Every namespace of the tests starts with this, followed by the owner's PID.
const std::string NAMESPACE_PREFIX = "tvt";

std::string Checked(const std::string& command)
{
    const auto result = NetworkNamespaces::RunCommand(command);
    if (result.exitStatus != 0) {
        throw std::runtime_error("command failed (" + std::to_string(result.exitStatus) + "): " + command +
                                 "\n" + result.output);
    }
    return result.output;
}

// A test process that crashed cannot run its destructors; its namespaces are
// removed by the next test process instead, once their owner is gone.
void RemoveStaleNamespaces()
{
    std::istringstream list(NetworkNamespaces::RunCommand("ip netns list").output);
    std::string line;
    while (std::getline(list, line)) {
        const std::string name = line.substr(0, line.find(' '));
        const std::string rest = name.substr(std::min(name.size(), NAMESPACE_PREFIX.size()));
        const size_t digits = rest.find_first_not_of("0123456789");
        if (name.rfind(NAMESPACE_PREFIX, 0) != 0 || digits == 0 || digits == std::string::npos) {
            continue;
        }
        const pid_t owner = static_cast<pid_t>(std::stol(rest.substr(0, digits)));
        if (kill(owner, 0) != 0 && errno == ESRCH) {
            NetworkNamespaces::RunCommand("ip netns del " + name);
        }
    }
}

bool ProbeNamespaces()
{
    if (geteuid() != 0) {
        return false;
    }
    RemoveStaleNamespaces();
    const std::string probe = NAMESPACE_PREFIX + std::to_string(getpid()) + "probe";
    return NetworkNamespaces::RunCommand("ip netns add " + probe).exitStatus == 0 &&
           NetworkNamespaces::RunCommand("ip netns del " + probe).exitStatus == 0;
}

void EnterNamespace(const std::string& name)
{
    const std::string path = "/run/netns/" + name;
    const int handle = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (handle < 0) {
        throw std::runtime_error("cannot open " + path);
    }
    const int result = setns(handle, CLONE_NEWNET);
    close(handle);
    if (result != 0) {
        throw std::runtime_error("cannot enter network namespace " + name);
    }
}

} // namespace

namespace NetworkNamespaces {

CommandResult RunCommand(const std::string& command)
{
    CommandResult result;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return result;
    }
    char chunk[4096];
    size_t count = 0;
    while ((count = fread(chunk, 1, sizeof(chunk), pipe)) > 0) {
        result.output.append(chunk, count);
    }
    const int status = pclose(pipe);
    result.exitStatus = (status != -1 && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string ExecIn(const std::string& name, const std::string& command)
{
    return "ip netns exec " + name + " " + command;
}

void RunOnThreadIn(const std::string& name, const std::function<void()>& body)
{
    // The namespace is a property of the thread; a thread of its own keeps
    // the caller's thread in the namespace it started in.
    std::exception_ptr failure;
    std::thread worker([&] {
        try {
            EnterNamespace(name);
            body();
        } catch (...) {
            failure = std::current_exception();
        }
    });
    worker.join();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace NetworkNamespaces

bool NamespacePair::Available()
{
    static const bool available = ProbeNamespaces();
    return available;
}

NamespacePair::NamespacePair(ClientSide clientSide)
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
    // The subnet lives only inside the two namespaces; varying it by PID and
    // counter merely keeps traces of parallel tests apart.
    subnetSecondOctet = static_cast<uint8_t>(20 + getpid() % 200);
    subnetThirdOctet = static_cast<uint8_t>(index % 256);
    try {
        Create(clientSide);
    } catch (...) {
        Remove();
        throw;
    }
}

NamespacePair::~NamespacePair()
{
    Remove();
}

IPv4Address NamespacePair::AddressInSubnet(uint8_t host) const
{
    return IPv4Address(10, subnetSecondOctet, subnetThirdOctet, host);
}

std::string NamespacePair::RunInServer(const std::string& command) const
{
    return Checked(NetworkNamespaces::ExecIn(serverNamespace, command));
}

std::string NamespacePair::RunInClient(const std::string& command) const
{
    return Checked(NetworkNamespaces::ExecIn(clientNamespace, command));
}

void NamespacePair::Create(ClientSide clientSide)
{
    const std::string prefix = "/" + std::to_string(PREFIX_LENGTH);
    Checked("ip netns add " + serverNamespace);
    Checked("ip netns add " + clientNamespace);
    // Both ends are born inside their namespaces and never appear on the host.
    Checked("ip link add " + serverInterface + " netns " + serverNamespace + " type veth peer name " +
            clientInterface + " netns " + clientNamespace);
    Checked("ip -n " + serverNamespace + " link set lo up");
    Checked("ip -n " + clientNamespace + " link set lo up");
    Checked("ip -n " + serverNamespace + " address add " + ServerAddress().ToString() + prefix + " dev " +
            serverInterface);
    if (clientSide == ClientSide::WithAddress) {
        Checked("ip -n " + clientNamespace + " address add " + ClientAddress().ToString() + prefix + " dev " +
                clientInterface);
    }
    Checked("ip -n " + serverNamespace + " link set " + serverInterface + " up");
    Checked("ip -n " + clientNamespace + " link set " + clientInterface + " up");
}

void NamespacePair::Remove() noexcept
{
    // Deleting a namespace destroys the veth end inside it, and so the pair.
    for (const std::string* name : {&serverNamespace, &clientNamespace}) {
        if (!name->empty()) {
            NetworkNamespaces::RunCommand("ip netns del " + *name);
        }
    }
}
