#include "EngineHarness.h"

#include <functional>
#include <map>

// The protocol decisions, one row per rule: each row starts from the same
// tables and sends one datagram.

namespace {

IPv4Address At(uint8_t last)
{
    return IPv4Address(10, 0, 0, last);
}

// R has a reservation of .104 in the pool, O one of .50 outside it. E's
// lease on .102 has run out; A, B, R and O hold .100, .101, .104 and .50.
// C has an open OFFER of .102 under xid 3, E's old address being the lowest
// free one.
const std::string WORLD = "E.102- A.100 B.101 R.104 O.50";

void BuildWorld(EngineHarness& harness)
{
    harness.Addresses().AddReservation(AddressReservation(TestHardware('R'), At(104)));
    harness.Addresses().AddReservation(AddressReservation(TestHardware('O'), At(50)));
    harness.Start();
    harness.Addresses().AddLease(TestHardware('E'), At(102), 1);
    uint32_t xid = 100;
    for (const char client : {'A', 'B', 'R', 'O'}) {
        harness.Obtain(client, xid++);
    }
    harness.clock.Advance(10);
    EXPECT_EQ(harness.SendForOne(Discover(3, 'C')).Yiaddr(), At(102));
    harness.NewLogItems();
    EXPECT_EQ(harness.Leases(), WORLD);
}

ByteString Changed(ByteString datagram, size_t at, uint8_t value)
{
    datagram.at(at) = value;
    return datagram;
}

struct Rule {
    const char* name;
    ByteString datagram;
    std::string reply;         // the Summary of the reply, "" for none
    std::string log;           // EventsText of what was logged
    std::string leases = "";   // the lease table afterwards, "" for WORLD unchanged
    bool offerToCStays = true; // C's REQUEST for .102 under xid 3 is still answered
    int64_t secondsLater = 0;  // when the datagram arrives
    int32_t sendFailure = 0;   // the code every send raises, 0 for none
};

std::vector<Rule> Rules()
{
    using enum AppException::Code;
    return {
        // DISCOVER: an OFFER, always broadcast, of the lowest address that is
        // not leased, reserved or under offer, unless the client has its own.
        {"a new client", Discover(10, 'D'), "OFFER .103 to broadcast:68", "DISCOVER OFFER"},
        {"a client with a lease", Discover(11, 'A'), "OFFER .100 to broadcast:68", "DISCOVER OFFER"},
        {"a reserved client: its reservation, and its row goes", Discover(12, 'R'), "OFFER .104 to broadcast:68",
         "DISCOVER OFFER", "E.102- A.100 B.101 O.50"},
        {"a free address asked for", Discover(13, 'D').RequestedAddress(At(107)), "OFFER .107 to broadcast:68",
         "DISCOVER OFFER"},
        {"identity from option 61 alone", ClientDatagram(1, 14, {}).ClientIdentifier({0, 'h', 'o', 's', 't'}),
         "OFFER .103 to broadcast:68", "DISCOVER OFFER"},
        {"op 2 is not looked at", Discover(15, 'D').Operation(2), "OFFER .103 to broadcast:68", "DISCOVER OFFER"},
        {"the client under offer, new xid", Discover(16, 'C'), "", "DISCOVER(ignored)"},
        {"another client with the open xid", Discover(3, 'D'), "", "DISCOVER(ignored)"},
        {"the repeat 2 s later", Discover(16, 'C'), "", "DISCOVER(ignored)", "", true, 2},
        {"the repeat after the purge", Discover(16, 'C'), "OFFER .102 to broadcast:68", "DISCOVER OFFER", "", false, 4},
        {"a failed OFFER is not logged", Discover(10, 'D'), "", "DISCOVER", "", true, 0, SendError},

        // SELECTING: only our server, the offered address and no ciaddr get an
        // ACK; anything else is logged, unanswered, and leaves the offer open.
        {"C takes the offer", Selecting(3, 'C', At(102)), "ACK .102 to broadcast:68", "REQUEST ACK",
         "A.100 B.101 R.104 O.50 C.102", false},
        {"another server chosen", Selecting(3, 'C', At(102), At(2)), "", "REQUEST"},
        {"no server identifier", InitReboot(3, 'C', At(102)), "", "REQUEST"},
        {"ciaddr set", Selecting(3, 'C', At(102)).ClientAddress(At(102)), "", "REQUEST"},
        {"no requested address", Request(3, 'C').ServerIdentifier(SERVER), "", "REQUEST"},
        {"another address than offered: not even a NAK", Selecting(3, 'C', At(105)), "", "REQUEST"},
        {"after the purge", Selecting(3, 'C', At(102)), "", "REQUEST", "", false, 4},
        {"our server named without an open exchange", Selecting(20, 'A', At(100)), "", "REQUEST"},
        {"a failed ACK keeps the lease and ends the exchange", Selecting(3, 'C', At(102)), "", "REQUEST",
         "A.100 B.101 R.104 O.50 C.102", false, 0, NotAllBytesSent},

        // INIT-REBOOT: the client's own address is granted anew; silence about
        // any other; a NAK, broadcast, when the own address is refused.
        {"its own address", InitReboot(21, 'A', At(100)), "ACK .100 to broadcast:68", "REQUEST ACK",
         "E.102- B.101 R.104 O.50 A.100"},
        {"another address", InitReboot(22, 'A', At(103)), "", "REQUEST"},
        {"a client without a lease", InitReboot(23, 'D', At(103)), "", "REQUEST"},
        {"ciaddr besides option 50", InitReboot(24, 'A', At(100)).ClientAddress(At(100)), "", "REQUEST"},
        {"neither ciaddr nor options", Request(25, 'A'), "", "REQUEST"},
        {"its old address under offer", InitReboot(26, 'E', At(102)), "NAK to broadcast:68", "REQUEST NAK"},
        {"its reservation", InitReboot(27, 'R', At(104)), "ACK .104 to broadcast:68", "REQUEST ACK",
         "E.102- A.100 B.101 O.50 R.104"},
        {"its reservation outside the pool", InitReboot(28, 'O', At(50)), "NAK to broadcast:68", "REQUEST NAK"},

        // RENEWING/REBINDING: answered to ciaddr. An address outside the pool,
        // under offer or not reserved for a reserved client is refused before
        // the client's own lease is touched; one held by another client costs
        // it its lease.
        {"its own address", Renewal(30, 'A', At(100)), "ACK .100 to .100:68, ciaddr .100", "REQUEST ACK",
         "E.102- B.101 R.104 O.50 A.100"},
        {"a free address: the lease moves", Renewal(31, 'A', At(105)), "ACK .105 to .105:68, ciaddr .105",
         "REQUEST ACK", "E.102- B.101 R.104 O.50 A.105"},
        {"outside the pool", Renewal(32, 'A', At(111)), "NAK to .111:68", "REQUEST NAK"},
        {"under offer", Renewal(33, 'A', At(102)), "NAK to .102:68", "REQUEST NAK"},
        {"held by another client", Renewal(34, 'A', At(101)), "NAK to .101:68", "REQUEST NAK",
         "E.102- B.101 R.104 O.50"},
        {"a reserved client, another address", Renewal(35, 'R', At(105)), "NAK to .105:68", "REQUEST NAK"},
        {"a failed NAK is not logged", Renewal(32, 'A', At(111)), "", "REQUEST", "", true, 0, SendError},
        {"our server named, no open exchange: neither ACK nor NAK", Renewal(36, 'A', At(100)).ServerIdentifier(SERVER),
         "", "REQUEST"},

        // INFORM: configuration only, to ciaddr or broadcast. RELEASE: ciaddr's
        // lease runs out whoever sends it, and its row stays.
        {"INFORM with ciaddr", ClientDatagram(8, 40, TestMac('D')).ClientAddress(At(20)), "ACK to .20:68, ciaddr .20",
         "INFORM ACK"},
        {"INFORM without", ClientDatagram(8, 41, TestMac('D')), "ACK to broadcast:68", "INFORM ACK"},
        {"a failed ACK of an INFORM", ClientDatagram(8, 41, TestMac('D')), "", "INFORM", "", true, 0, SendError},
        {"RELEASE of A's address by B", ClientDatagram(7, 50, TestMac('B')).ClientAddress(At(100)), "", "RELEASE",
         "E.102- A.100- B.101 R.104 O.50"},
        {"RELEASE of an unknown address", ClientDatagram(7, 51, TestMac('A')).ClientAddress(At(108)), "", "RELEASE"},

        // Dropped without a trace: what the parser refuses, the types nobody
        // handles (DECLINE marks nothing bad), and a client without identity.
        {"empty", {}, "", ""},
        {"wrong magic cookie", Changed(Discover(60, 'D'), 236, 98), "", ""},
        {"header cut short", ByteString(100, 1), "", ""},
        {"no option 53", Discover(60, 'D').WithoutMessageType(), "", ""},
        {"option 53 of length 2", Discover(60, 'D').WithoutMessageType().Option(53, {1, 1}), "", ""},
        {"OFFER", ClientDatagram(2, 3, TestMac('C')).RequestedAddress(At(102)), "", ""},
        {"DECLINE", ClientDatagram(4, 3, TestMac('C')).RequestedAddress(At(102)), "", ""},
        {"ACK", ClientDatagram(5, 61, TestMac('A')).ClientAddress(At(100)), "", ""},
        {"NAK", ClientDatagram(6, 62, TestMac('A')).ClientAddress(At(100)), "", ""},
        {"DISCOVER without identity", ClientDatagram(1, 63, {}), "", ""},
        {"REQUEST without identity", ClientDatagram(3, 3, {}).RequestedAddress(At(102)), "", ""},
        {"RELEASE without identity", ClientDatagram(7, 64, {}).ClientAddress(At(100)), "", ""},
        {"INFORM without identity", ClientDatagram(8, 65, {}).ClientAddress(At(20)), "", ""},
    };
}

} // namespace

TEST(MessageProcessorTest, EveryRuleAsOneDatagramAgainstTheSameTables)
{
    for (const Rule& rule : Rules()) {
        SCOPED_TRACE(rule.name);
        EngineHarness harness;
        BuildWorld(harness);
        harness.clock.Advance(rule.secondsLater);
        if (rule.sendFailure != 0) {
            harness.network.SetSendFailure(rule.sendFailure);
        }
        std::string replies;
        for (const auto& reply : harness.Send(rule.datagram)) {
            replies += (replies.empty() ? "" : " + ") + reply.Summary();
        }
        harness.network.SetSendFailure(std::nullopt);
        EXPECT_EQ(replies, rule.reply);
        EXPECT_EQ(harness.NewEvents(), rule.log);
        EXPECT_EQ(harness.Leases(), rule.leases.empty() ? WORLD : rule.leases);
        EXPECT_EQ(harness.Send(Selecting(3, 'C', At(102))).size() == 1, rule.offerToCStays);
    }
}

TEST(MessageProcessorTest, RepliesByteForByteAndTheLogItemsOfAnExchange)
{
    EngineHarness harness;
    harness.Start();
    const IPv4Address relay(10, 9, 9, 9);
    // op 2, the request's xid and chaddr, and without a parameter request
    // list the options in ascending order.
    const auto reply = [](uint32_t xid) {
        return ClientDatagram(0, xid, TestMac('A')).WithoutMessageType().Operation(2);
    };
    const auto configured = [](ClientDatagram head, uint8_t type, bool leaseTime) -> ByteString {
        head.Option(1, {255, 255, 255, 0}).Option(3, {10, 0, 0, 254}).Option(6, {10, 0, 0, 53, 10, 0, 0, 54});
        head.Option(28, {10, 0, 0, 255});
        if (leaseTime) {
            head.Option(51, {0, 0, 0x0e, 0x10});
        }
        return head.Option(53, {type}).Option(54, AddressBytes(SERVER));
    };
    // The request's flags and giaddr too.
    const auto offered = [&](bool broadcast) {
        return reply(0x8badf00d).BroadcastFlag(broadcast).GatewayAddress(relay).YourAddress(POOL_START);
    };
    // ciaddr is never copied into an OFFER.
    const auto discover = Discover(0x8badf00d, 'A').BroadcastFlag(true).GatewayAddress(relay).ClientAddress(At(7));
    EXPECT_EQ(harness.SendForOne(discover).sent.data, configured(offered(true), 2, true));
    EXPECT_EQ(harness.SendForOne(Selecting(0x8badf00d, 'A', POOL_START).GatewayAddress(relay)).sent.data,
              configured(offered(false), 5, true));
    const Lease lease = harness.Addresses().GetLeases().at(0);
    EXPECT_EQ(lease.GetDuration(), LEASE_DURATION);
    EXPECT_EQ(lease.GetStartTime(), static_cast<int32_t>(harness.clock.Now()));
    // A NAK carries its type, the server and the client's identifier only,
    // whatever option 55 asks for; an INFORM's ACK no address and no lease time.
    const ByteString identifier = {1, 2, 0, 0, 0, 0, 'A'};
    const auto renewal = Renewal(9, 'A', POOL_END + 1).ClientIdentifier(identifier).ParameterRequestList({54, 6, 1});
    EXPECT_EQ(harness.SendForOne(renewal).sent.data,
              ByteString(reply(9).Option(53, {6}).Option(54, AddressBytes(SERVER)).Option(61, identifier)));
    EXPECT_EQ(harness.SendForOne(ClientDatagram(8, 5, TestMac('A')).ClientAddress(At(20))).sent.data,
              configured(reply(5).ClientAddress(At(20)), 5, false));
    harness.Send(ClientDatagram(7, 6, TestMac('B')).ClientAddress(POOL_START + 7));
    harness.SendForOne(Discover(7, 'C'));
    harness.Send(Discover(8, 'C'));

    // The client's hardware address, and ciaddr only when it is set.
    std::vector<std::string> details;
    for (const LogItem& item : harness.NewLogItems()) {
        details.push_back(item.GetDetails());
    }
    const std::string a = "client hardware address = 02:00:00:00:00:41";
    const std::string b = "client hardware address = 02:00:00:00:00:42";
    const std::string c = "client hardware address = 02:00:00:00:00:43";
    const std::vector<std::string> expected = {
        a, a + ", offered IP address = 10.0.0.100", a, a, a + ", client IP address = 10.0.0.111",
        a + ", client IP address = 10.0.0.111", "", a + ", client IP address = 10.0.0.20",
        b + ", client IP address = 10.0.0.107", c, c + ", offered IP address = 10.0.0.101", c};
    EXPECT_EQ(details, expected);
    EXPECT_NE(harness.Log().GetLogItems(0).back().GetLogLine().find("DHCP Discover received, message ignored, " + c),
              std::string::npos);
}

TEST(MessageProcessorTest, ReplyOptionsFollowTheRequestListAndTheSettings)
{
    struct Row {
        const char* name;
        std::function<void(Settings&)> configure;
        ByteString requestList;
        Codes expected;
        std::map<uint8_t, ByteString> values;
    };
    const std::vector<Row> rows = {
        {"option 55 order first, the rest ascending", [](Settings&) {}, {6, 3, 1, 15, 51},
         {6, 3, 1, 51, 28, 53, 54, 255}, {}},
        {"additional options",
         [](Settings& settings) {
             settings.GetAdditionalOptions().push_back(RawOption("15", "116 97 114 110"));
             settings.GetAdditionalOptions().push_back(RawOption("58", "0 0 7 8"));
         },
         {}, {1, 3, 6, 15, 28, 51, 53, 54, 58, 255}, {{15, {116, 97, 114, 110}}, {58, {0, 0, 7, 8}}}},
        {"gateway and DNS left empty",
         [](Settings& settings) {
             settings.SetDefaultGateway(IPv4Address());
             settings.SetDNSAddress1(IPv4Address());
             settings.SetDNSAddress2(IPv4Address());
         },
         {}, {1, 28, 51, 53, 54, 255}, {}},
        {"second DNS server alone", [](Settings& settings) { settings.SetDNSAddress1(IPv4Address()); }, {},
         {1, 3, 6, 28, 51, 53, 54, 255}, {{6, {10, 0, 0, 54}}}},
    };
    for (const Row& row : rows) {
        EngineHarness harness;
        row.configure(harness.GetSettings());
        harness.Start();
        for (ClientDatagram datagram : {Discover(7, 'A'), Selecting(7, 'A', POOL_START), Renewal(8, 'A', POOL_START)}) {
            if (!row.requestList.empty()) {
                datagram.ParameterRequestList(row.requestList);
            }
            const auto reply = harness.SendForOne(datagram);
            EXPECT_EQ(reply.OptionCodes(), row.expected) << row.name << ": " << reply.Summary();
            for (const auto& [code, value] : row.values) {
                EXPECT_EQ(reply.Option(code), value) << row.name << ", option " << int(code);
            }
        }
    }
}

TEST(MessageProcessorTest, FailedOfferAndFullPoolLeaveWhatTheyShould)
{
    EngineHarness harness;
    harness.GetSettings().SetPoolEndAddress(POOL_START + 1);
    harness.Start();
    harness.network.SetSendFailure(AppException::SendError);
    EXPECT_TRUE(harness.Send(Discover(1, 'A')).empty());
    harness.network.SetSendFailure(std::nullopt);
    // The transaction stays at DISCOVER: its REQUEST gets nothing, not even a
    // log item, yet the address stays held.
    EXPECT_TRUE(harness.Send(Selecting(1, 'A', POOL_START)).empty());
    EXPECT_EQ(harness.NewEvents(), "DISCOVER");
    EXPECT_EQ(harness.SendForOne(Discover(2, 'B')).Yiaddr(), POOL_START + 1);
    // A full pool: the DISCOVER is logged and opens no transaction, so the
    // client's next one is not ignored.
    EXPECT_TRUE(harness.Send(Discover(3, 'C')).empty());
    EXPECT_TRUE(harness.Send(Discover(4, 'C')).empty());
    EXPECT_EQ(harness.NewEvents(), "DISCOVER OFFER DISCOVER DISCOVER");
    harness.clock.Advance(4);
    EXPECT_EQ(harness.SendForOne(Discover(6, 'A')).Yiaddr(), POOL_START);
}
