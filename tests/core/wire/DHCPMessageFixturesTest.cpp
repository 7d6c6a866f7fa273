// Datagrams recorded from real clients (busybox udhcpc and ISC dhclient);
// tests/data/datagrams/README.md describes each byte that is checked here.

#include "wire/DHCPMessage.h"

#include "foundation/Tools.h"

#include <gtest/gtest.h>

#include <string>

namespace {

DHCPMessage Load(const std::string& name)
{
    std::string contents;
    const std::string path = std::string(TARNVEL_TEST_DATA_DIR) + "/datagrams/" + name;
    if (!Tools::ReadWholeFile(path, contents)) {
        ADD_FAILURE() << "cannot read " << path;
    }
    const RawMessage raw(reinterpret_cast<const uint8_t*>(contents.data()), contents.size());
    return DHCPMessage(raw);
}

ClientIdentifier IdentifierFromBytes(const ByteString& bytes)
{
    return ClientIdentifier(static_cast<uint8_t>(bytes.size()), bytes.data());
}

void ExpectCommonHeader(const DHCPMessage& message, const std::string& mac, uint32_t xid)
{
    EXPECT_EQ(message.GetOperation(), DHCPMessage::BOOTREQUEST);
    EXPECT_EQ(message.GetHardwareAddress(), HardwareAddress(mac));
    EXPECT_EQ(message.GetHardwareAddress().GetType(), HardwareAddress::Ethernet10Mb);
    EXPECT_EQ(message.GetHops(), 0);
    EXPECT_EQ(message.GetTransactionID(), xid);
    EXPECT_EQ(message.GetSeconds(), 0);
    EXPECT_FALSE(message.GetBroadcastFlag());
    EXPECT_EQ(message.GetClientIPAddress(), IPv4Address());
    EXPECT_EQ(message.GetYourIPAddress(), IPv4Address());
    EXPECT_EQ(message.GetServerIPAddress(), IPv4Address());
    EXPECT_EQ(message.GetGatewayIPAddress(), IPv4Address());
    EXPECT_EQ(message.GetServerName(), "");
    EXPECT_EQ(message.GetBootFileName(), "");
    EXPECT_EQ(message.Options().GetHostName(), "tarnveltest");
}

const ByteString UDHCPC_IDENTIFIER = {0x00, 't', 'a', 'r', 'n', 'v', 'e', 'l', '-', 'u', 'd', 'h', 'c', 'p', 'c'};
const ByteString UDHCPC_LIST = {1, 3, 6, 12, 15, 28, 42};
const ByteString DHCLIENT_LIST = {1, 28, 2, 3, 15, 6, 119, 12, 44, 47, 26, 121, 42};

} // namespace

TEST(DHCPMessageFixturesTest, BusyboxUdhcpcDiscoverAndRequest)
{
    const DHCPMessage discover = Load("udhcpc-discover.bin");
    ExpectCommonHeader(discover, "02:74:76:75:64:01", 0x1817cc52);
    const MessageOptions& discoverOptions = discover.Options();
    EXPECT_EQ(discoverOptions.GetMessageType(), DHCPDISCOVER);
    EXPECT_EQ(discoverOptions.GetMaximumDHCPMessageSize(), 576);
    EXPECT_EQ(discoverOptions.GetParameterRequestList(), UDHCPC_LIST);
    EXPECT_EQ(discover.GetClientIdentifier(), IdentifierFromBytes(UDHCPC_IDENTIFIER));
    EXPECT_FALSE(discoverOptions.IsOptionPresent(50));
    EXPECT_FALSE(discoverOptions.IsOptionPresent(54));
    EXPECT_FALSE(discoverOptions.IsOptionPresent(60)); // vendor class: an unknown code

    const DHCPMessage request = Load("udhcpc-request.bin");
    ExpectCommonHeader(request, "02:74:76:75:64:01", 0x1817cc52);
    const MessageOptions& requestOptions = request.Options();
    EXPECT_EQ(requestOptions.GetMessageType(), DHCPREQUEST);
    EXPECT_EQ(requestOptions.GetRequestedIPAddress(), IPv4Address(10, 77, 1, 2));
    EXPECT_EQ(requestOptions.GetServerIdentifier(), IPv4Address(10, 77, 1, 1));
    EXPECT_EQ(requestOptions.GetMaximumDHCPMessageSize(), 576);
    EXPECT_EQ(requestOptions.GetParameterRequestList(), UDHCPC_LIST);
    EXPECT_EQ(request.GetClientIdentifier(), IdentifierFromBytes(UDHCPC_IDENTIFIER));
    EXPECT_EQ(request.GetClientIdentifier(), discover.GetClientIdentifier());
}

TEST(DHCPMessageFixturesTest, IscDhclientDiscoverAndRequestWithoutClientIdentifier)
{
    const DHCPMessage discover = Load("dhclient-discover.bin");
    ExpectCommonHeader(discover, "02:74:76:64:68:02", 0xf53dcf68);
    EXPECT_EQ(discover.Options().GetMessageType(), DHCPDISCOVER);
    EXPECT_EQ(discover.Options().GetParameterRequestList(), DHCLIENT_LIST);
    EXPECT_FALSE(discover.Options().IsOptionPresent(61));
    EXPECT_FALSE(discover.Options().IsOptionPresent(57));
    // Without option 61 the client is known by its six address bytes.
    EXPECT_EQ(discover.GetClientIdentifier(), IdentifierFromBytes({0x02, 0x74, 0x76, 0x64, 0x68, 0x02}));

    const DHCPMessage request = Load("dhclient-request.bin");
    ExpectCommonHeader(request, "02:74:76:64:68:02", 0xf53dcf68);
    EXPECT_EQ(request.Options().GetMessageType(), DHCPREQUEST);
    EXPECT_EQ(request.Options().GetServerIdentifier(), IPv4Address(10, 77, 1, 1));
    EXPECT_EQ(request.Options().GetRequestedIPAddress(), IPv4Address(10, 77, 1, 2));
    EXPECT_EQ(request.Options().GetParameterRequestList(), DHCLIENT_LIST);
    EXPECT_EQ(request.GetClientIdentifier(), discover.GetClientIdentifier());
}

TEST(DHCPMessageFixturesTest, OffersFollowEachClientsRequestList)
{
    const auto offerTo = [](const DHCPMessage& discover) {
        DHCPMessage offer;
        offer.SetOperation(DHCPMessage::BOOTREPLY);
        offer.SetTransactionID(discover.GetTransactionID());
        offer.SetHardwareAddress(discover.GetHardwareAddress());
        offer.SetYourIPAddress(IPv4Address(10, 77, 1, 2));
        MessageOptions& options = offer.Options();
        options.SetSubnetMask(24);
        options.SetRouter(IPv4Address(10, 77, 1, 1));
        options.SetDNSAddress1(IPv4Address(10, 77, 1, 1));
        options.SetBroadcastAddress(IPv4Address(10, 77, 1, 255));
        options.SetIPAddressLeaseTime(3600);
        options.SetMessageType(DHCPOFFER);
        options.SetServerIdentifier(IPv4Address(10, 77, 1, 1));
        ByteString list = discover.Options().GetParameterRequestList();
        const std::unique_ptr<RawMessage> raw = offer.ToRawMessage(list);
        return ByteString(raw->GetData(), raw->GetData() + raw->GetLength());
    };
    const auto codesOf = [](const ByteString& datagram) {
        ByteString codes;
        for (size_t position = DHCPMessage::FIXED_PART_LENGTH; position < datagram.size();) {
            codes.push_back(datagram[position]);
            if (datagram[position] == MessageOptions::End) {
                break;
            }
            position += 2 + datagram[position + 1];
        }
        return codes;
    };

    const ByteString udhcpc = offerTo(Load("udhcpc-discover.bin"));
    EXPECT_EQ(codesOf(udhcpc), (ByteString{1, 3, 6, 28, 51, 53, 54, 255}));
    EXPECT_EQ(ByteString(udhcpc.begin() + 4, udhcpc.begin() + 8), (ByteString{0x18, 0x17, 0xcc, 0x52}));

    const ByteString dhclient = offerTo(Load("dhclient-discover.bin"));
    EXPECT_EQ(codesOf(dhclient), (ByteString{1, 28, 3, 6, 51, 53, 54, 255}));
    EXPECT_EQ(ByteString(dhclient.begin() + 28, dhclient.begin() + 34), (ByteString{0x02, 0x74, 0x76, 0x64, 0x68, 0x02}));
    EXPECT_EQ(dhclient.size(), 240u + 6 + 6 + 6 + 6 + 6 + 3 + 6 + 1);
}
