// Feeds arbitrary bytes to the datagram parser. Whatever parses is answered
// the way the server answers: a reply built from the parsed values, with the
// request's parameter list and additional options taken from the bytes; that
// reply must fit the 576-byte area, end with End and parse again.

#include "foundation/AppException.h"
#include "foundation/Tools.h"
#include "wire/DHCPMessage.h"

#include <climits>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

namespace {

// Every option run of the datagram that a user could have entered by hand
// (1 to 254 values, none of them 255) becomes an additional option, so the
// builder meets many, long and repeated codes.
std::vector<RawOption> AdditionalOptionsFrom(const uint8_t* data, size_t size)
{
    std::vector<RawOption> result;
    for (size_t position = DHCPMessage::FIXED_PART_LENGTH; position + 2 <= size && data[position] != 255;) {
        if (data[position] == MessageOptions::Pad) {
            ++position;
            continue;
        }
        const size_t length = data[position + 1];
        if (size - position - 2 < length) {
            break;
        }
        std::string text;
        bool enterable = length >= 1 && length <= 254;
        for (size_t i = 0; i < length && enterable; ++i) {
            enterable = data[position + 2 + i] != 255;
            text += (i > 0 ? " " : "") + Tools::IntToString(data[position + 2 + i]);
        }
        if (enterable) {
            result.emplace_back(Tools::IntToString(data[position]), text);
        }
        position += 2 + length;
    }
    return result;
}

// `additional` must outlive the reply, which refers to it as the server's
// replies refer to the settings' list.
DHCPMessage ReplyTo(const DHCPMessage& request, const std::vector<RawOption>& additional)
{
    DHCPMessage reply = request; // every header field as received
    reply.SetOperation(DHCPMessage::BOOTREPLY);
    reply.SetServerName(request.GetServerName().substr(0, 63));
    reply.SetBootFileName(request.GetBootFileName().substr(0, 127));
    const MessageOptions& in = request.Options();
    MessageOptions& out = reply.Options();
    for (const uint8_t code : {12, 50, 55, 57}) {
        out.RemoveOption(code); // parsed, never written by the server
    }
    out.SetMessageType(in.IsOptionPresent(MessageOptions::MessageTypeCode) ? in.GetMessageType() : DHCPOFFER);
    if (!in.IsOptionPresent(MessageOptions::ServerIdentifier) || in.GetServerIdentifier().IsZero()) {
        out.SetServerIdentifier(IPv4Address(10, 0, 0, 1));
    }
    // Always set, as the server does, so that an additional option 28 never
    // meets an unset broadcast address.
    if (!in.IsOptionPresent(MessageOptions::BroadcastAddress) || in.GetBroadcastAddress().IsZero()) {
        out.SetBroadcastAddress(IPv4Address(10, 0, 0, 255));
    }
    const int32_t leaseTime = static_cast<int32_t>(request.GetTransactionID() & 0x7FFFFFFF);
    out.SetIPAddressLeaseTime(leaseTime == INT_MAX ? INT_MAX - 1 : leaseTime);
    out.SetSubnetMask(static_cast<uint8_t>(request.GetHops() % 32 + 1));
    if (!request.GetGatewayIPAddress().IsZero()) {
        out.SetRouter(request.GetGatewayIPAddress());
    }
    out.SetDNSAddresses(request.GetClientIPAddress(), request.GetYourIPAddress());
    out.ReferToRawOptions(additional);
    return reply;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Parse from a private copy of exactly `size` bytes, as the listener does,
    // so that any read past the datagram is caught.
    const RawMessage received(data, size);
    std::unique_ptr<DHCPMessage> request;
    try {
        request = std::make_unique<DHCPMessage>(received);
    } catch (const AppException&) {
        return 0;
    }
    (void)request->GetClientIdentifier();

    const std::vector<RawOption> additional = AdditionalOptionsFrom(data, size);
    const DHCPMessage reply = ReplyTo(*request, additional);
    ByteString list;
    if (request->Options().IsOptionPresent(MessageOptions::ParameterRequestList)) {
        list = request->Options().GetParameterRequestList();
    }
    uint8_t area[DHCPMessage::MAXIMUM_LENGTH];
    const size_t length = reply.Build(area, std::span<const uint8_t>(list));
    if (length <= DHCPMessage::FIXED_PART_LENGTH || area[length - 1] != MessageOptions::End) {
        std::abort();
    }
    // Everything the builder writes is well formed, so the reply parses back.
    // A long request list may crowd out option 53, so it is compared only
    // when it made it into the area.
    try {
        const DHCPMessage echoed(area, length);
        if (echoed.GetTransactionID() != request->GetTransactionID() ||
            !(echoed.GetHardwareAddress() == request->GetHardwareAddress()) ||
            (echoed.Options().IsOptionPresent(MessageOptions::MessageTypeCode) &&
             echoed.Options().GetMessageType() != reply.Options().GetMessageType())) {
            std::abort();
        }
    } catch (const AppException&) {
        std::abort();
    }
    return 0;
}
