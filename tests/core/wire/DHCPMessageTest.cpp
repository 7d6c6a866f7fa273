#include "wire/DHCPMessage.h"

#include "foundation/AppException.h"

#include <gtest/gtest.h>

#include <climits>
#include <initializer_list>
#include <string>

namespace {

constexpr uint8_t CLIENT_MAC[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr size_t OPTIONS_OFFSET = 240;

// A well-formed BOOTREQUEST header: Ethernet, hlen 6, xid DE AD BE EF, the
// cookie, and the given option bytes behind it (no End added).
ByteString Request(std::initializer_list<uint8_t> options = {})
{
    ByteString bytes(OPTIONS_OFFSET, 0);
    bytes[0] = 1;
    bytes[1] = 1;
    bytes[2] = 6;
    bytes[4] = 0xDE;
    bytes[5] = 0xAD;
    bytes[6] = 0xBE;
    bytes[7] = 0xEF;
    std::copy(std::begin(CLIENT_MAC), std::end(CLIENT_MAC), bytes.begin() + 28);
    bytes[236] = 99;
    bytes[237] = 130;
    bytes[238] = 83;
    bytes[239] = 99;
    bytes.insert(bytes.end(), options);
    return bytes;
}

DHCPMessage Parse(const ByteString& bytes)
{
    return DHCPMessage(RawMessage(bytes.data(), bytes.size()));
}

int ParseErrorCode(const ByteString& bytes)
{
    try {
        Parse(bytes);
    } catch (const AppException& exception) {
        return exception.GetCode();
    }
    return -1;
}

ByteString ToBytes(const RawMessage& raw)
{
    return ByteString(raw.GetData(), raw.GetData() + raw.GetLength());
}

ByteString Build(const DHCPMessage& message)
{
    return ToBytes(*message.ToRawMessage());
}

ByteString Build(const DHCPMessage& message, ByteString& parameterRequestList)
{
    return ToBytes(*message.ToRawMessage(parameterRequestList));
}

ByteString OptionsOf(const ByteString& datagram)
{
    return ByteString(datagram.begin() + OPTIONS_OFFSET, datagram.end());
}

// The OFFER of the worked example: mask /24, router, two DNS servers,
// broadcast address, one hour, server identifier 192.168.0.1.
DHCPMessage WorkedOffer()
{
    DHCPMessage message;
    message.SetOperation(DHCPMessage::BOOTREPLY);
    message.SetTransactionID(0x01020304);
    message.SetYourIPAddress(IPv4Address(192, 168, 0, 10));
    message.SetHardwareAddress(HardwareAddress("00:11:22:33:44:55"));
    MessageOptions& options = message.Options();
    options.SetSubnetMask(24);
    options.SetRouter(IPv4Address(192, 168, 0, 1));
    options.SetDNSAddress1(IPv4Address(192, 168, 0, 2));
    options.SetDNSAddress2(IPv4Address(192, 168, 0, 3));
    options.SetBroadcastAddress(IPv4Address(192, 168, 0, 255));
    options.SetIPAddressLeaseTime(3600);
    options.SetMessageType(DHCPOFFER);
    options.SetServerIdentifier(IPv4Address(192, 168, 0, 1));
    return message;
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

std::string DataOfLength(size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += (i > 0 ? " 7" : "7");
    }
    return text;
}

} // namespace

TEST(DHCPMessageTest, ParsesEveryHeaderFieldAndTheStoredOptions)
{
    ByteString bytes = Request({53, 1, 3,   50, 4, 10, 0, 0, 7,   54, 4, 10, 0, 0, 1,   55, 3, 1, 3, 6,
                                57, 2, 5, 220,   12, 3, 'p', 'c', '1',   28, 4, 10, 0, 0, 255,
                                61, 7, 1, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55,   255});
    bytes[0] = 2; // a reply parses too: what to do with it is decided elsewhere
    bytes[3] = 4;
    bytes[8] = 0x01;
    bytes[9] = 0x02;
    for (int i = 0; i < 16; ++i) {
        bytes[12 + i] = static_cast<uint8_t>(i + 1);
    }
    const std::string serverName = "boot-server";
    const std::string fileName = "pxelinux.0";
    std::copy(serverName.begin(), serverName.end(), bytes.begin() + 44);
    std::copy(fileName.begin(), fileName.end(), bytes.begin() + 108);

    const DHCPMessage message = Parse(bytes);
    EXPECT_EQ(message.GetOperation(), DHCPMessage::BOOTREPLY);
    EXPECT_EQ(message.GetHops(), 4);
    EXPECT_EQ(message.GetTransactionID(), 0xDEADBEEFu);
    EXPECT_EQ(message.GetSeconds(), 0x0102);
    EXPECT_FALSE(message.GetBroadcastFlag());
    EXPECT_EQ(message.GetClientIPAddress(), IPv4Address(1, 2, 3, 4));
    EXPECT_EQ(message.GetYourIPAddress(), IPv4Address(5, 6, 7, 8));
    EXPECT_EQ(message.GetServerIPAddress(), IPv4Address(9, 10, 11, 12));
    EXPECT_EQ(message.GetGatewayIPAddress(), IPv4Address(13, 14, 15, 16));
    EXPECT_EQ(message.GetHardwareAddress(), HardwareAddress("00:11:22:33:44:55"));
    EXPECT_EQ(message.GetServerName(), serverName);
    EXPECT_EQ(message.GetBootFileName(), fileName);

    const MessageOptions& options = message.Options();
    EXPECT_EQ(options.GetMessageType(), DHCPREQUEST);
    EXPECT_EQ(options.GetRequestedIPAddress(), IPv4Address(10, 0, 0, 7));
    EXPECT_EQ(options.GetServerIdentifier(), IPv4Address(10, 0, 0, 1));
    EXPECT_EQ(options.GetParameterRequestList(), (ByteString{1, 3, 6}));
    EXPECT_EQ(options.GetMaximumDHCPMessageSize(), 1500);
    EXPECT_EQ(options.GetHostName(), "pc1");
    EXPECT_EQ(options.GetBroadcastAddress(), IPv4Address(10, 0, 0, 255));
    const ClientIdentifier identifier = message.GetClientIdentifier();
    ASSERT_EQ(identifier.GetLength(), 7);
    EXPECT_EQ(identifier[0], 1);
    EXPECT_EQ(identifier[6], 0x55);
    // An identifier with a type byte differs from the bare hardware address.
    EXPECT_NE(identifier, ClientIdentifier(message.GetHardwareAddress()));
}

TEST(DHCPMessageTest, RejectsShortDatagramsAndBadHeaderBytes)
{
    const ByteString header = Request();
    for (const size_t length : {0, 1, 4, 236, 239}) {
        const ByteString bytes(header.begin(), header.begin() + static_cast<long>(length));
        EXPECT_EQ(ParseErrorCode(bytes), AppException::MessageParsingError) << length;
    }
    // Exactly the fixed part: no options, no End, nothing stored.
    const DHCPMessage bare = Parse(Request());
    for (int code = 0; code < 256; ++code) {
        EXPECT_FALSE(bare.Options().IsOptionPresent(static_cast<uint8_t>(code))) << code;
    }

    const auto withByte = [](size_t offset, uint8_t value) {
        ByteString bytes = Request({255});
        bytes[offset] = value;
        return bytes;
    };
    EXPECT_EQ(ParseErrorCode(withByte(0, 0)), AppException::MessageParsingError);
    EXPECT_EQ(ParseErrorCode(withByte(0, 3)), AppException::MessageParsingError);
    EXPECT_EQ(ParseErrorCode(withByte(1, 0)), AppException::MessageParsingError);
    EXPECT_EQ(ParseErrorCode(withByte(1, 22)), AppException::MessageParsingError);
    EXPECT_EQ(ParseErrorCode(withByte(1, 255)), AppException::MessageParsingError);
    EXPECT_EQ(ParseErrorCode(withByte(2, 17)), AppException::MessageParsingError);
    EXPECT_EQ(ParseErrorCode(withByte(2, 255)), AppException::MessageParsingError);
    EXPECT_EQ(Parse(withByte(1, 21)).GetHardwareAddress().GetType(), 21u);
    EXPECT_EQ(Parse(withByte(2, 16)).GetHardwareAddress().GetLength(), 16);

    // hlen 0 gives an empty address, and so an empty identifier without option 61.
    const DHCPMessage noAddress = Parse(withByte(2, 0));
    EXPECT_EQ(noAddress.GetHardwareAddress().GetLength(), 0);
    EXPECT_TRUE(noAddress.GetClientIdentifier().IsEmpty());

    for (size_t offset = 236; offset < 240; ++offset) {
        ByteString bytes = Request({255});
        bytes[offset] ^= 1;
        EXPECT_EQ(ParseErrorCode(bytes), AppException::MagicCookieNotRead) << offset;
    }
    // The header is judged before the cookie.
    ByteString badOpAndCookie = withByte(0, 0);
    badOpAndCookie[236] = 0;
    EXPECT_EQ(ParseErrorCode(badOpAndCookie), AppException::MessageParsingError);
}

TEST(DHCPMessageTest, NamesWithoutZeroByteEndWithTheirField)
{
    ByteString bytes = Request({255});
    std::fill(bytes.begin() + 44, bytes.begin() + 108, 'S');
    std::fill(bytes.begin() + 108, bytes.begin() + 236, 'F');
    const DHCPMessage message = Parse(bytes);
    EXPECT_EQ(message.GetServerName(), std::string(64, 'S'));
    EXPECT_EQ(message.GetBootFileName(), std::string(128, 'F'));

    // Text after the first zero byte of a field is not part of the name.
    bytes[44 + 3] = 0;
    bytes[108 + 5] = 0;
    const DHCPMessage cut = Parse(bytes);
    EXPECT_EQ(cut.GetServerName(), "SSS");
    EXPECT_EQ(cut.GetBootFileName(), "FFFFF");
}

TEST(DHCPMessageTest, OptionLoopPadsEndAndRepeats)
{
    const DHCPMessage endFirst = Parse(Request({255, 53, 1, 1}));
    EXPECT_FALSE(endFirst.Options().IsOptionPresent(53));
    EXPECT_THROW(endFirst.Options().GetMessageType(), AppException);

    EXPECT_EQ(Parse(Request({0, 0, 53, 1, 1, 0, 255})).Options().GetMessageType(), DHCPDISCOVER);
    // Bytes behind End are never looked at, not even a broken option.
    EXPECT_EQ(Parse(Request({53, 1, 1, 255, 53, 2, 1})).Options().GetMessageType(), DHCPDISCOVER);
    // Without End the field ends with the datagram.
    EXPECT_EQ(Parse(Request({53, 1, 3})).Options().GetMessageType(), DHCPREQUEST);
    EXPECT_EQ(Parse(Request({53, 1, 3, 0, 0})).Options().GetMessageType(), DHCPREQUEST);

    // Unknown codes of length 0 and 255 are passed over.
    ByteString longUnknown = Request({200, 0, 201, 255});
    longUnknown.insert(longUnknown.end(), 255, 53);
    longUnknown.insert(longUnknown.end(), {53, 1, 8, 255});
    EXPECT_EQ(Parse(longUnknown).Options().GetMessageType(), DHCPINFORM);

    const DHCPMessage twice = Parse(Request({50, 4, 10, 0, 0, 1, 50, 4, 10, 0, 0, 2, 255}));
    EXPECT_EQ(twice.Options().GetRequestedIPAddress(), IPv4Address(10, 0, 0, 2));

    // A client's mask, router, DNS and lease time are skipped, not stored.
    const DHCPMessage skipped =
        Parse(Request({1, 4, 255, 255, 255, 0, 3, 4, 10, 0, 0, 1, 6, 4, 8, 8, 8, 8, 51, 4, 0, 0, 1, 0, 255}));
    for (const int code : {1, 3, 6, 51}) {
        EXPECT_FALSE(skipped.Options().IsOptionPresent(static_cast<uint8_t>(code))) << code;
    }
}

TEST(DHCPMessageTest, RefusesOptionLengthsOutsideTheRulesAndPastTheEnd)
{
    const std::initializer_list<uint8_t> badLengths[] = {
        {53, 2, 1, 1},      {53, 0},           {54, 3, 1, 2, 3}, {54, 5, 1, 2, 3, 4, 5},
        {61, 1, 1},         {61, 0},           {12, 0},          {55, 0},
        {50, 3, 1, 2, 3},   {28, 8, 1, 2, 3, 4, 5, 6, 7, 8},     {57, 1, 2},
        {57, 3, 2, 64, 0},
    };
    for (const auto& options : badLengths) {
        ByteString bytes = Request(options);
        bytes.push_back(255);
        EXPECT_EQ(ParseErrorCode(bytes), AppException::OptionLengthNotValid) << int(*options.begin());
    }

    // Running past the end of the datagram: a code byte last, a length byte
    // last, a value cut short.
    const std::initializer_list<uint8_t> cutShort[] = {
        {53},          {53, 1, 1, 54},       {53, 1},            {200, 10, 1, 2},
        {61, 7, 1, 2}, {55, 255, 1, 3, 6},   {12, 5, 'a', 'b'},  {0, 0, 201},
    };
    for (const auto& options : cutShort) {
        EXPECT_EQ(ParseErrorCode(Request(options)), AppException::OptionLengthNotValid) << int(*options.begin());
    }
    // A value that ends exactly with the datagram is complete.
    EXPECT_EQ(Parse(Request({61, 2, 1, 2})).GetClientIdentifier().GetLength(), 2);
}

TEST(DHCPMessageTest, ValuesOutsideTheSettersRangeAreNotStored)
{
    for (const uint8_t type : {0, 9, 255}) {
        const DHCPMessage message = Parse(Request({53, 1, type, 255}));
        EXPECT_FALSE(message.Options().IsOptionPresent(53)) << int(type);
    }
    for (const uint8_t type : {1, 8}) {
        EXPECT_EQ(Parse(Request({53, 1, type, 255})).Options().GetMessageType(), type);
    }
    // An unusable repetition is dropped alone; the usable value before it stays.
    EXPECT_EQ(Parse(Request({53, 1, 3, 53, 1, 9, 255})).Options().GetMessageType(), DHCPREQUEST);

    EXPECT_FALSE(Parse(Request({57, 2, 2, 63, 255})).Options().IsOptionPresent(57)); // 575
    EXPECT_FALSE(Parse(Request({57, 2, 0, 0, 255})).Options().IsOptionPresent(57));
    EXPECT_EQ(Parse(Request({57, 2, 2, 64, 255})).Options().GetMaximumDHCPMessageSize(), 576);
    EXPECT_EQ(Parse(Request({57, 2, 255, 255, 255})).Options().GetMaximumDHCPMessageSize(), 65535);
}

TEST(DHCPMessageTest, FlagsTransactionIDAndChaddrRoundTrip)
{
    const auto flagsRead = [](uint8_t high, uint8_t low) {
        ByteString bytes = Request({255});
        bytes[10] = high;
        bytes[11] = low;
        return Parse(bytes).GetBroadcastFlag();
    };
    EXPECT_TRUE(flagsRead(0x80, 0x00));
    EXPECT_TRUE(flagsRead(0xFF, 0xFF));
    EXPECT_FALSE(flagsRead(0x7F, 0xFF));
    EXPECT_FALSE(flagsRead(0x00, 0x00));

    // hlen 6 with junk behind the address in chaddr, all flag bits set.
    ByteString bytes = Request({53, 1, 1, 255});
    bytes[10] = 0xFF;
    bytes[11] = 0xFF;
    std::fill(bytes.begin() + 34, bytes.begin() + 44, 0xAB);
    const DHCPMessage request = Parse(bytes);
    EXPECT_EQ(request.GetHardwareAddress().GetLength(), 6);
    EXPECT_EQ(request.GetHardwareAddress(), HardwareAddress("00:11:22:33:44:55"));

    DHCPMessage reply = MinimalReply();
    reply.SetTransactionID(request.GetTransactionID());
    reply.SetHardwareAddress(request.GetHardwareAddress());
    reply.SetBroadcastFlag(request.GetBroadcastFlag());
    const ByteString sent = Build(reply);
    EXPECT_EQ(ByteString(sent.begin() + 4, sent.begin() + 8), (ByteString{0xDE, 0xAD, 0xBE, 0xEF}));
    EXPECT_EQ(sent[10], 0x80);
    EXPECT_EQ(sent[11], 0x00);
    EXPECT_EQ(ByteString(sent.begin() + 28, sent.begin() + 34), ByteString(std::begin(CLIENT_MAC), std::end(CLIENT_MAC)));
    EXPECT_EQ(ByteString(sent.begin() + 34, sent.begin() + 44), ByteString(10, 0));

    reply.SetBroadcastFlag(false);
    const ByteString unicast = Build(reply);
    EXPECT_EQ(unicast[10], 0x00);
    EXPECT_EQ(unicast[11], 0x00);

    // Without option 61 the identifier is the address bytes, with no type byte.
    const ClientIdentifier identifier = request.GetClientIdentifier();
    ASSERT_EQ(identifier.GetLength(), 6);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(identifier[i], CLIENT_MAC[i]);
    }
}

TEST(DHCPMessageTest, BuildsTheWorkedOfferByteForByte)
{
    DHCPMessage offer = WorkedOffer();
    offer.SetBroadcastFlag(true);
    const ByteString bytes = Build(offer);
    ASSERT_EQ(bytes.size(), 284u);

    ByteString header(240, 0);
    header[0] = 2;
    header[1] = 1;
    header[2] = 6;
    header[4] = 1;
    header[5] = 2;
    header[6] = 3;
    header[7] = 4;
    header[10] = 0x80;
    header[16] = 192;
    header[17] = 168;
    header[18] = 0;
    header[19] = 10;
    std::copy(std::begin(CLIENT_MAC), std::end(CLIENT_MAC), header.begin() + 28);
    header[236] = 99;
    header[237] = 130;
    header[238] = 83;
    header[239] = 99;
    EXPECT_EQ(ByteString(bytes.begin(), bytes.begin() + 240), header);

    const ByteString expectedOptions = {
        1, 4, 255, 255, 255, 0,            //
        3, 4, 192, 168, 0, 1,              //
        6, 8, 192, 168, 0, 2, 192, 168, 0, 3, //
        28, 4, 192, 168, 0, 255,           //
        51, 4, 0, 0, 14, 16,               //
        53, 1, 2,                          //
        54, 4, 192, 168, 0, 1,             //
        255,
    };
    EXPECT_EQ(OptionsOf(bytes), expectedOptions);

    // An ACK differs in the value of option 53 alone.
    DHCPMessage ack = WorkedOffer();
    ack.Options().SetMessageType(DHCPACK);
    ByteString expectedAck = expectedOptions;
    expectedAck[36] = 5;
    EXPECT_EQ(OptionsOf(Build(ack)), expectedAck);
}

TEST(DHCPMessageTest, RequestedOptionsComeFirstInTheClientsOrder)
{
    ByteString list = {6, 3, 1, 15, 51};
    const ByteString bytes = Build(WorkedOffer(), list);
    EXPECT_EQ(bytes.size(), 284u);
    EXPECT_EQ(OptionsOf(bytes), (ByteString{6, 8, 192, 168, 0, 2, 192, 168, 0, 3, //
                                            3, 4, 192, 168, 0, 1,                 //
                                            1, 4, 255, 255, 255, 0,               //
                                            51, 4, 0, 0, 14, 16,                  //
                                            28, 4, 192, 168, 0, 255,              //
                                            53, 1, 2,                             //
                                            54, 4, 192, 168, 0, 1,                //
                                            255}));
    // The list comes back without the code the message does not hold.
    EXPECT_EQ(list, (ByteString{6, 3, 1, 51}));

    // Only codes without a flag, and 0 and 255: the plain ascending order.
    ByteString flagless = {2, 15, 0, 255, 120};
    EXPECT_EQ(Build(WorkedOffer(), flagless), Build(WorkedOffer()));
    EXPECT_TRUE(flagless.empty());

    // A code twice in the list is written twice.
    ByteString twice = {53, 54, 53};
    EXPECT_EQ(OptionsOf(Build(MinimalReply(), twice)),
              (ByteString{53, 1, 5, 54, 4, 10, 0, 0, 1, 53, 1, 5, 255}));
    EXPECT_EQ(twice, (ByteString{53, 54, 53}));
}

TEST(DHCPMessageTest, ShortRepliesAndTheDNSOption)
{
    const ByteString minimal = Build(MinimalReply());
    EXPECT_EQ(minimal.size(), 250u);
    EXPECT_EQ(OptionsOf(minimal), (ByteString{53, 1, 5, 54, 4, 10, 0, 0, 1, 255}));

    const uint8_t identifierBytes[] = {1, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    DHCPMessage nak = MinimalReply();
    nak.Options().SetMessageType(DHCPNAK);
    nak.Options().SetClientIdentifier(ClientIdentifier(sizeof identifierBytes, identifierBytes));
    EXPECT_EQ(OptionsOf(Build(nak)),
              (ByteString{53, 1, 6, 54, 4, 10, 0, 0, 1, 61, 7, 1, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 255}));

    DHCPMessage oneServer = MinimalReply();
    oneServer.Options().SetDNSAddress1(IPv4Address(8, 8, 8, 8));
    EXPECT_EQ(OptionsOf(Build(oneServer)), (ByteString{6, 4, 8, 8, 8, 8, 53, 1, 5, 54, 4, 10, 0, 0, 1, 255}));

    DHCPMessage secondOnly = MinimalReply();
    secondOnly.Options().SetDNSAddresses(IPv4Address(), IPv4Address(9, 9, 9, 9));
    EXPECT_EQ(OptionsOf(Build(secondOnly)), (ByteString{6, 4, 9, 9, 9, 9, 53, 1, 5, 54, 4, 10, 0, 0, 1, 255}));

    // Options that are parsed but never written leave no trace, not even a code.
    DHCPMessage parsedOnly = MinimalReply();
    parsedOnly.Options().SetHostName("pc1");
    parsedOnly.Options().SetRequestedIPAddress(IPv4Address(10, 0, 0, 7));
    parsedOnly.Options().SetParameterRequestList({1, 3});
    parsedOnly.Options().SetMaximumDHCPMessageSize(1500);
    EXPECT_EQ(Build(parsedOnly), minimal);

    // Lease time in network order, up to INT_MAX - 1.
    DHCPMessage longLease = MinimalReply();
    longLease.Options().SetIPAddressLeaseTime(INT_MAX - 1);
    EXPECT_EQ(OptionsOf(Build(longLease)), (ByteString{51, 4, 0x7F, 0xFF, 0xFF, 0xFE, 53, 1, 5, 54, 4, 10, 0, 0, 1, 255}));
}

TEST(DHCPMessageTest, AdditionalOptionsAreWrittenFromTheirFirstEntryUnlessStandard)
{
    DHCPMessage reply = MinimalReply();
    reply.Options().SetRouter(IPv4Address(10, 0, 0, 254));
    reply.Options().SetRawOptions({RawOption("150", "1 2"), RawOption("66", "3"), RawOption("150", "9 9 9"),
                                   RawOption("3", "1 1 1 1"), RawOption("12", "65 66")});
    ByteString list = {150, 66};
    EXPECT_EQ(OptionsOf(Build(reply, list)), (ByteString{150, 2, 1, 2,      //
                                                         66, 1, 3,          //
                                                         3, 4, 10, 0, 0, 254, //
                                                         53, 1, 5,          //
                                                         54, 4, 10, 0, 0, 1, //
                                                         255}));
    // Removing an additional option's flag keeps it off the wire.
    reply.Options().RemoveOption(150);
    EXPECT_EQ(OptionsOf(Build(reply)), (ByteString{3, 4, 10, 0, 0, 254, 53, 1, 5, 54, 4, 10, 0, 0, 1, 66, 1, 3, 255}));
}

TEST(DHCPMessageTest, OptionsThatDoNotFitAreLeftOutAndEndIsAlwaysWritten)
{
    // 53 and 54 take 9 bytes; three options of 102 bytes fill the area up to
    // 555, the next two do not fit, a small one behind them still does.
    DHCPMessage reply = MinimalReply();
    reply.Options().SetRawOptions({RawOption("100", DataOfLength(100)), RawOption("101", DataOfLength(100)),
                                   RawOption("102", DataOfLength(100)), RawOption("103", DataOfLength(100)),
                                   RawOption("104", DataOfLength(100)), RawOption("200", "1 2")});
    const ByteString bytes = Build(reply);
    ASSERT_EQ(bytes.size(), 560u);
    EXPECT_EQ(bytes[249], 100);
    EXPECT_EQ(bytes[351], 101);
    EXPECT_EQ(bytes[453], 102);
    EXPECT_EQ(ByteString(bytes.begin() + 555, bytes.end()), (ByteString{200, 2, 1, 2, 255}));

    // Filling the area exactly: 249 + 256 + 70 = 575, End in the last byte.
    DHCPMessage exact = MinimalReply();
    exact.Options().SetRawOptions({RawOption("100", DataOfLength(254)), RawOption("101", DataOfLength(68))});
    const ByteString full = Build(exact);
    ASSERT_EQ(full.size(), DHCPMessage::MAXIMUM_LENGTH);
    EXPECT_EQ(full[505], 101);
    EXPECT_EQ(full.back(), 255);

    // One byte more and the second long option is left out.
    DHCPMessage tooLong = MinimalReply();
    tooLong.Options().SetRawOptions({RawOption("100", DataOfLength(254)), RawOption("101", DataOfLength(69))});
    const ByteString cut = Build(tooLong);
    ASSERT_EQ(cut.size(), 506u);
    EXPECT_EQ(cut.back(), 255);

    // A long request list that repeats a code: 111 copies of option 53 fit
    // (240 + 333 = 573), option 54 no longer does, End still does.
    ByteString list(255, 53);
    const ByteString repeated = Build(MinimalReply(), list);
    ASSERT_EQ(repeated.size(), 574u);
    for (size_t position = 240; position < 573; position += 3) {
        ASSERT_EQ(ByteString(repeated.begin() + static_cast<long>(position), repeated.begin() + static_cast<long>(position) + 3),
                  (ByteString{53, 1, 5}))
            << position;
    }
    EXPECT_EQ(repeated.back(), 255);
    EXPECT_EQ(list.size(), 255u);
}

TEST(DHCPMessageDeathTest, WriterPreconditions)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    DHCPMessage endless = MinimalReply();
    endless.Options().SetIPAddressLeaseTime(INT_MAX);
    EXPECT_DEATH(endless.ToRawMessage(), "precondition");
    DHCPMessage negative = MinimalReply();
    negative.Options().SetIPAddressLeaseTime(-1);
    EXPECT_DEATH(negative.ToRawMessage(), "precondition");
    DHCPMessage noServer = MinimalReply();
    noServer.Options().SetServerIdentifier(IPv4Address());
    EXPECT_DEATH(noServer.ToRawMessage(), "precondition");
    DHCPMessage noBroadcast = MinimalReply();
    noBroadcast.Options().SetBroadcastAddress(IPv4Address());
    EXPECT_DEATH(noBroadcast.ToRawMessage(), "precondition");
    EXPECT_DEATH(DHCPMessage().SetServerName(std::string(64, 'x')), "precondition");
    EXPECT_DEATH(DHCPMessage().SetBootFileName(std::string(128, 'x')), "precondition");
}

TEST(DHCPMessageTest, ServerAndFileNamesAreWrittenIntoTheirFields)
{
    DHCPMessage reply = MinimalReply();
    reply.SetServerName(std::string(63, 's'));
    reply.SetBootFileName(std::string(127, 'f'));
    reply.SetHops(3);
    reply.SetSeconds(0x0A0B);
    reply.SetServerIPAddress(IPv4Address(10, 0, 0, 1));
    const ByteString bytes = Build(reply);
    EXPECT_EQ(bytes[3], 3);
    EXPECT_EQ(bytes[8], 0x0A);
    EXPECT_EQ(bytes[9], 0x0B);
    EXPECT_EQ(ByteString(bytes.begin() + 20, bytes.begin() + 24), (ByteString{10, 0, 0, 1}));
    EXPECT_EQ(std::string(bytes.begin() + 44, bytes.begin() + 107), std::string(63, 's'));
    EXPECT_EQ(bytes[107], 0);
    EXPECT_EQ(std::string(bytes.begin() + 108, bytes.begin() + 235), std::string(127, 'f'));
    EXPECT_EQ(bytes[235], 0);

    // What was written parses back into the same header.
    const DHCPMessage back = Parse(bytes);
    EXPECT_EQ(back.GetServerName(), reply.GetServerName());
    EXPECT_EQ(back.GetBootFileName(), reply.GetBootFileName());
    EXPECT_EQ(back.GetHops(), 3);
    EXPECT_EQ(back.GetSeconds(), 0x0A0B);
    EXPECT_EQ(back.GetHardwareAddress(), reply.GetHardwareAddress());
    EXPECT_EQ(back.Options().GetMessageType(), DHCPACK);
    EXPECT_EQ(back.Options().GetServerIdentifier(), IPv4Address(10, 0, 0, 1));
}
