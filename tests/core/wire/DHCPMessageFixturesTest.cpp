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
    EXPECT_TRUE(Tools::ReadWholeFile(std::string(TARNVEL_TEST_DATA_DIR) + "/datagrams/" + name, contents)) << name;
    return DHCPMessage(RawMessage(reinterpret_cast<const uint8_t*>(contents.data()), contents.size()));
}

ClientIdentifier Identifier(const ByteString& bytes)
{
    return ClientIdentifier(static_cast<uint8_t>(bytes.size()), bytes.data());
}

} // namespace

TEST(DHCPMessageFixturesTest, RealDiscoversAndRequestsParse)
{
    const struct {
        const char* file;
        int type;
        const char* mac;
        uint32_t xid;
        ByteString list;
        ByteString identifier; // option 61, or the MAC's bytes without it
    } rows[] = {
        {"udhcpc-discover.bin", DHCPDISCOVER, "02:74:76:75:64:01", 0x1817cc52, {1, 3, 6, 12, 15, 28, 42},
         {0x00, 't', 'a', 'r', 'n', 'v', 'e', 'l', '-', 'u', 'd', 'h', 'c', 'p', 'c'}},
        {"udhcpc-request.bin", DHCPREQUEST, "02:74:76:75:64:01", 0x1817cc52, {1, 3, 6, 12, 15, 28, 42},
         {0x00, 't', 'a', 'r', 'n', 'v', 'e', 'l', '-', 'u', 'd', 'h', 'c', 'p', 'c'}},
        {"dhclient-discover.bin", DHCPDISCOVER, "02:74:76:64:68:02", 0xf53dcf68,
         {1, 28, 2, 3, 15, 6, 119, 12, 44, 47, 26, 121, 42}, {0x02, 0x74, 0x76, 0x64, 0x68, 0x02}},
        {"dhclient-request.bin", DHCPREQUEST, "02:74:76:64:68:02", 0xf53dcf68,
         {1, 28, 2, 3, 15, 6, 119, 12, 44, 47, 26, 121, 42}, {0x02, 0x74, 0x76, 0x64, 0x68, 0x02}},
    };
    for (const auto& row : rows) {
        const DHCPMessage message = Load(row.file);
        const MessageOptions& options = message.Options();
        EXPECT_EQ(message.GetOperation(), DHCPMessage::BOOTREQUEST) << row.file;
        EXPECT_EQ(message.GetHardwareAddress(), HardwareAddress(row.mac)) << row.file;
        EXPECT_EQ(message.GetTransactionID(), row.xid) << row.file;
        EXPECT_FALSE(message.GetBroadcastFlag()) << row.file;
        EXPECT_TRUE(message.GetClientIPAddress().IsZero()) << row.file;
        EXPECT_EQ(message.GetServerName(), "") << row.file;
        EXPECT_EQ(options.GetHostName(), "tarnveltest") << row.file;
        EXPECT_EQ(options.GetMessageType(), row.type) << row.file;
        EXPECT_EQ(options.GetParameterRequestList(), row.list) << row.file;
        EXPECT_EQ(message.GetClientIdentifier(), Identifier(row.identifier)) << row.file;
        EXPECT_EQ(options.IsOptionPresent(61), row.identifier.size() != 6) << row.file;
        EXPECT_EQ(options.IsOptionPresent(57), row.file[0] == 'u') << row.file; // udhcpc sends 576
        if (row.type == DHCPREQUEST) {
            EXPECT_EQ(options.GetRequestedIPAddress(), IPv4Address(10, 77, 1, 2)) << row.file;
            EXPECT_EQ(options.GetServerIdentifier(), IPv4Address(10, 77, 1, 1)) << row.file;
        } else {
            EXPECT_FALSE(options.IsOptionPresent(50) || options.IsOptionPresent(54)) << row.file;
        }
    }
    EXPECT_EQ(Load("udhcpc-discover.bin").Options().GetMaximumDHCPMessageSize(), 576);
}

TEST(DHCPMessageFixturesTest, OffersFollowEachClientsRequestList)
{
    const auto offerCodes = [](const char* file) {
        const DHCPMessage discover = Load(file);
        DHCPMessage offer;
        offer.SetOperation(DHCPMessage::BOOTREPLY);
        offer.SetTransactionID(discover.GetTransactionID());
        offer.SetHardwareAddress(discover.GetHardwareAddress());
        MessageOptions& options = offer.Options();
        options.SetSubnetMask(24);
        options.SetRouter(IPv4Address(10, 77, 1, 1));
        options.SetDNSAddress1(IPv4Address(10, 77, 1, 1));
        options.SetBroadcastAddress(IPv4Address(10, 77, 1, 255));
        options.SetIPAddressLeaseTime(3600);
        options.SetMessageType(DHCPOFFER);
        options.SetServerIdentifier(IPv4Address(10, 77, 1, 1));
        ByteString list = discover.Options().GetParameterRequestList();
        const auto raw = offer.ToRawMessage(list);
        ByteString codes;
        for (size_t position = DHCPMessage::FIXED_PART_LENGTH; position < raw->GetLength();) {
            codes.push_back(raw->GetData()[position]);
            position = codes.back() == MessageOptions::End ? SIZE_MAX : position + 2 + raw->GetData()[position + 1];
        }
        return codes;
    };
    EXPECT_EQ(offerCodes("udhcpc-discover.bin"), (ByteString{1, 3, 6, 28, 51, 53, 54, 255}));
    EXPECT_EQ(offerCodes("dhclient-discover.bin"), (ByteString{1, 28, 3, 6, 51, 53, 54, 255}));
}
