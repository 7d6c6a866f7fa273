#include "wire/DHCPMessage.h"

#include "foundation/Tools.h"

#include "support/RaisedCode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

namespace {

const ByteString CLIENT_MAC = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

// A BOOTREQUEST: Ethernet, hlen 6, xid DE AD BE EF, the cookie, then `options` (no End added).
ByteString Request(const ByteString& options = {})
{
    ByteString bytes = {1, 1, 6, 0, 0xDE, 0xAD, 0xBE, 0xEF};
    bytes.resize(28);
    bytes.insert(bytes.end(), CLIENT_MAC.begin(), CLIENT_MAC.end());
    bytes.resize(236);
    bytes.insert(bytes.end(), {99, 130, 83, 99});
    bytes.insert(bytes.end(), options.begin(), options.end());
    return bytes;
}

ByteString With(size_t offset, uint8_t value)
{
    ByteString bytes = Request({255});
    bytes[offset] = value;
    return bytes;
}

DHCPMessage Parse(const ByteString& bytes)
{
    return DHCPMessage(RawMessage(bytes.data(), bytes.size()));
}

// Written the way the server writes a reply: into its area, after the client's list.
ByteString Build(const DHCPMessage& message, const ByteString& list = {})
{
    uint8_t area[DHCPMessage::MAXIMUM_LENGTH];
    const size_t length = message.Build(area, std::span<const uint8_t>(list));
    return ByteString(area, area + length);
}

ByteString Range(const ByteString& bytes, size_t from, size_t to = SIZE_MAX)
{
    return ByteString(bytes.begin() + static_cast<long>(from),
                      bytes.begin() + static_cast<long>(std::min(to, bytes.size())));
}

ByteString OptionsOf(const ByteString& datagram)
{
    return Range(datagram, DHCPMessage::FIXED_PART_LENGTH);
}

DHCPMessage MinimalReply()
{
    DHCPMessage message;
    message.SetOperation(DHCPMessage::BOOTREPLY);
    message.SetHardwareAddress(HardwareAddress("00:11:22:33:44:55"));
    message.Options().SetMessageType(DHCPACK);
    message.Options().SetServerIdentifier(IPv4Address(10, 0, 0, 1));
    return message;
}

// "7 7 7 ...": raw option data of `count` bytes.
std::string DataOfLength(size_t count)
{
    std::string text = "7";
    for (size_t i = 1; i < count; ++i) {
        text += " 7";
    }
    return text;
}

} // namespace

// The header fields and options that the engine reads.
TEST(DHCPMessageTest, ParsesWhatTheEngineReads)
{
    ByteString bytes = Request({53, 1, 3, 50, 4, 10, 0, 0, 7, 54, 4, 10, 0, 0, 1, 61, 7, 1, 0x00, 0x11, 0x22, 0x33,
                                0x44, 0x55, 255});
    bytes[10] = 0xFF; // every flag bit: only the top one is the broadcast flag
    bytes[11] = 0xFF;
    for (int i = 0; i < 16; ++i) {
        bytes[12 + i] = static_cast<uint8_t>(i + 1);
    }
    std::fill(bytes.begin() + 34, bytes.begin() + 44, 0xAB); // junk behind the address in chaddr
    const DHCPMessage message = Parse(bytes);
    EXPECT_EQ(message.GetTransactionID(), 0xDEADBEEFu);
    EXPECT_TRUE(message.GetBroadcastFlag());
    EXPECT_FALSE(Parse(With(10, 0x7F)).GetBroadcastFlag());
    EXPECT_EQ(message.GetClientIPAddress(), IPv4Address(1, 2, 3, 4));
    EXPECT_EQ(message.GetGatewayIPAddress(), IPv4Address(13, 14, 15, 16));
    EXPECT_EQ(message.GetHardwareAddress(), HardwareAddress("00:11:22:33:44:55"));
    const MessageOptions& options = message.Options();
    EXPECT_EQ(options.GetMessageType(), DHCPREQUEST);
    EXPECT_EQ(options.GetRequestedIPAddress(), IPv4Address(10, 0, 0, 7));
    EXPECT_EQ(options.GetServerIdentifier(), IPv4Address(10, 0, 0, 1));
    const uint8_t identifier[] = {1, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    EXPECT_EQ(message.GetClientIdentifier(), ClientIdentifier(7, identifier));
    // Without option 61 the identifier is the address bytes, with no type byte.
    EXPECT_EQ(Parse(Request()).GetClientIdentifier(), ClientIdentifier(6, CLIENT_MAC.data()));
}

TEST(DHCPMessageTest, RealClientsDatagramsParse)
{
    // Recorded from busybox udhcpc and ISC dhclient; tests/data/datagrams/README.md describes them.
    for (const std::string name : {"udhcpc-discover", "udhcpc-request", "dhclient-discover", "dhclient-request"}) {
        std::string contents;
        ASSERT_TRUE(Tools::ReadWholeFile(std::string(TARNVEL_TEST_DATA_DIR) + "/datagrams/" + name + ".bin", contents));
        const DHCPMessage message = Parse(ByteString(contents.begin(), contents.end()));
        const bool request = name.ends_with("request");
        EXPECT_EQ(message.Options().GetMessageType(), request ? DHCPREQUEST : DHCPDISCOVER) << name;
        EXPECT_EQ(message.Options().GetHostName(), "tarnveltest") << name;
        EXPECT_EQ(message.GetClientIdentifier().GetLength(), name[0] == 'u' ? 15 : 6) << name; // option 61 or the MAC
        EXPECT_EQ(message.Options().IsOptionPresent(50), request) << name;
    }
}

TEST(DHCPMessageTest, BadInputIsRefusedWithoutReadingPastTheData)
{
    const ByteString header = Request();
    ByteString badOpAndCookie = With(0, 0);
    badOpAndCookie[236] = 0; // the header is judged before the cookie
    const auto parsing = AppException::MessageParsingError;
    const auto length = AppException::OptionLengthNotValid;
    const struct {
        const char* name;
        ByteString bytes;
        int code;
    } rows[] = {
        {"empty", {}, parsing}, {"239 bytes", Range(header, 0, 239), parsing}, {"op 0", With(0, 0), parsing},
        {"op 3", With(0, 3), parsing}, {"htype 0", With(1, 0), parsing}, {"htype 22", With(1, 22), parsing},
        {"hlen 17", With(2, 17), parsing}, {"op and cookie", badOpAndCookie, parsing},
        {"cookie", With(239, 98), AppException::MagicCookieNotRead},
        {"53 of length 2", Request({53, 2, 1, 1, 255}), length}, {"53 of length 0", Request({53, 0, 255}), length},
        {"54 of length 3", Request({54, 3, 1, 2, 3, 255}), length}, {"12 of length 0", Request({12, 0, 255}), length},
        {"61 of length 1", Request({61, 1, 1, 255}), length}, {"55 of length 0", Request({55, 0, 255}), length},
        {"28 of length 8", Request({28, 8, 1, 2, 3, 4, 5, 6, 7, 8, 255}), length},
        {"57 of length 3", Request({57, 3, 2, 64, 0, 255}), length}, {"code byte last", Request({53}), length},
        {"length byte last", Request({53, 1, 1, 54}), length}, {"value cut short", Request({61, 7, 1, 2}), length},
        {"unknown code cut short", Request({200, 10, 1, 2}), length}, {"after pads", Request({0, 0, 201}), length},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(CodeRaisedBy([&] { Parse(row.bytes); }), row.code) << row.name;
    }
}

TEST(DHCPMessageTest, DefinedResultsForUnusualInput)
{
    EXPECT_EQ(Parse(With(1, 21)).GetHardwareAddress().GetType(), 21u);
    EXPECT_EQ(Parse(With(2, 16)).GetHardwareAddress().GetLength(), 16);
    // hlen 0 without option 61: an empty identifier, which the server drops.
    EXPECT_TRUE(Parse(With(2, 0)).GetClientIdentifier().IsEmpty());
    const auto present = [](const ByteString& options, int code) {
        return Parse(Request(options)).Options().IsOptionPresent(static_cast<uint8_t>(code));
    };
    for (int code = 0; code < 256; ++code) {
        EXPECT_FALSE(present({}, code)) << code; // exactly the fixed part: nothing stored
    }
    const auto typeOf = [](const ByteString& options) { return Parse(Request(options)).Options().GetMessageType(); };
    EXPECT_EQ(typeOf({53, 1, 3}), DHCPREQUEST); // without End the field ends with the datagram
    EXPECT_EQ(typeOf({0, 0, 53, 1, 1, 0, 255}), DHCPDISCOVER);
    EXPECT_EQ(typeOf({53, 1, 1, 255, 53, 2, 1}), DHCPDISCOVER); // nothing behind End is read
    EXPECT_EQ(typeOf({53, 1, 3, 53, 1, 9, 255}), DHCPREQUEST);  // an unusable repetition alone is dropped
    EXPECT_EQ(typeOf({53, 1, 8, 255}), DHCPINFORM);
    ByteString longUnknown = {200, 0, 201, 255};
    longUnknown.insert(longUnknown.end(), 255, 53);
    longUnknown.insert(longUnknown.end(), {53, 1, 1, 255});
    EXPECT_EQ(typeOf(longUnknown), DHCPDISCOVER);
    for (const uint8_t type : {0, 9, 255}) {
        EXPECT_FALSE(present({53, 1, type, 255}, 53)) << int{type};
    }
    EXPECT_EQ(Parse(Request({50, 4, 10, 0, 0, 1, 50, 4, 10, 0, 0, 2})).Options().GetRequestedIPAddress(),
              IPv4Address(10, 0, 0, 2));
    EXPECT_EQ(Parse(Request({61, 2, 1, 2})).GetClientIdentifier().GetLength(), 2); // value ends with the datagram
    // A client's mask, router, DNS and lease time are skipped, not stored.
    const ByteString clientValues = {1, 4, 255, 255, 255, 0, 3, 4, 10, 0, 0, 1, 6, 4, 8, 8, 8, 8, 51, 4, 0, 0, 1, 0};
    for (const int code : {1, 3, 6, 51}) {
        EXPECT_FALSE(present(clientValues, code)) << code;
    }
}

TEST(DHCPMessageTest, AdditionalOptionsAndWhatDoesNotFit)
{
    // Written from their first entry, unless the code is a standard one; a
    // code twice in the client's list is written twice.
    DHCPMessage reply = MinimalReply();
    reply.Options().SetRouter(IPv4Address(10, 0, 0, 254));
    const std::vector<RawOption> additional = {RawOption("150", "1 2"), RawOption("66", "3"), RawOption("150", "9 9 9"),
                                               RawOption("3", "1 1 1 1"), RawOption("12", "65 66")};
    reply.Options().ReferToRawOptions(additional);
    EXPECT_EQ(OptionsOf(Build(reply, {150, 66})),
              (ByteString{150, 2, 1, 2, 66, 1, 3, 3, 4, 10, 0, 0, 254, 53, 1, 5, 54, 4, 10, 0, 0, 1, 255}));
    EXPECT_EQ(OptionsOf(Build(MinimalReply(), {53, 54, 53})), (ByteString{53, 1, 5, 54, 4, 10, 0, 0, 1, 53, 1, 5, 255}));

    // 53 and 54 end at 249. Filling the area exactly (249 + 256 + 70 = 575)
    // leaves room for End alone; one byte more and the second option is left
    // out while the small one behind it still fits.
    for (const size_t second : {68, 69}) {
        DHCPMessage full = MinimalReply();
        const std::vector<RawOption> large = {RawOption("100", DataOfLength(254)), RawOption("101", DataOfLength(second)),
                                              RawOption("200", "1")};
        full.Options().ReferToRawOptions(large);
        const ByteString written = Build(full);
        if (second == 68) {
            EXPECT_EQ(written.size(), DHCPMessage::MAXIMUM_LENGTH);
            EXPECT_EQ(written[505], 101);
            EXPECT_EQ(written.back(), 255);
        } else {
            EXPECT_EQ(Range(written, 505), (ByteString{200, 1, 1, 255}));
        }
    }
    // 111 copies of option 53 fit (240 + 333 = 573), option 54 no longer does.
    const ByteString many = Build(MinimalReply(), ByteString(255, 53));
    ASSERT_EQ(many.size(), 574u);
    EXPECT_EQ(Range(many, 570), (ByteString{53, 1, 5, 255}));
}
