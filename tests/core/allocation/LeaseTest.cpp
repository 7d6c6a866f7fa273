#include "AllocationTestWorld.h"

#include "allocation/Lease.h"
#include "foundation/Serializable.h"
#include "foundation/Tools.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

constexpr int64_t NOW = 1'700'000'000; // 0x6553F100

ByteString Concatenate(std::initializer_list<ByteString> parts)
{
    ByteString result;
    for (const ByteString& part : parts) {
        result.insert(result.end(), part.begin(), part.end());
    }
    return result;
}

// A lease group built item by item, so that a test can damage one item.
ByteString LeaseGroup(const ByteString& start, const ByteString& duration, const ByteString& hardware,
                      const ByteString& address)
{
    return Serializable::SerializeGroup({start, duration, hardware, address});
}

const ByteString EXAMPLE_START = {0x00, 0xF1, 0x53, 0x65, 0, 0, 0, 0};
const ByteString EXAMPLE_DURATION = {16, 14, 0, 0, 0, 0, 0, 0};
const ByteString EXAMPLE_HARDWARE = {1, 0, 0, 0, 0, 17, 34, 51, 68, 85};
const ByteString EXAMPLE_ADDRESS = {192, 168, 1, 240};

} // namespace

TEST(LeaseTest, RemainingTimeCountsDownAndExpiresOnlyBelowZero)
{
    const Lease hour(Client(1), Address("192.168.1.240"), 3600, NOW);
    EXPECT_EQ(hour.GetStartTime(), NOW);
    EXPECT_EQ(hour.GetRemainingTime(NOW), 3600);
    EXPECT_FALSE(hour.IsExpired(NOW));
    EXPECT_EQ(hour.GetRemainingTime(NOW + 3600), 0);
    EXPECT_FALSE(hour.IsExpired(NOW + 3600));
    EXPECT_EQ(hour.GetRemainingTime(NOW + 3601), -1);
    EXPECT_TRUE(hour.IsExpired(NOW + 3601));
    // A clock turned back gives more time left, not an error.
    EXPECT_EQ(hour.GetRemainingTime(NOW - 100), 3700);

    const Lease instant(Client(1), Address("192.168.1.240"), 0, NOW);
    EXPECT_FALSE(instant.IsExpired(NOW));
    EXPECT_TRUE(instant.IsExpired(NOW + 1));

    // startTime + duration passes 2^31; the wrapping difference stays right.
    const int64_t late = INT32_MAX - 10;
    const Lease longLease(Client(1), Address("192.168.1.240"), 2'000'000'000, late);
    EXPECT_EQ(longLease.GetRemainingTime(late), 2'000'000'000);
    EXPECT_EQ(longLease.GetRemainingTime(late + 1000), 1'999'999'000);
    EXPECT_FALSE(longLease.IsExpired(late + 1'999'999'999));
}

TEST(LeaseTest, ExpireLeavesMinusOneSecondAndKeepsTheDuration)
{
    for (const int32_t duration : {0, 1, 3600, INT32_MAX - 1}) {
        Lease lease(Client(7), Address("192.168.1.241"), duration, NOW);
        lease.Expire(NOW + 5);
        EXPECT_EQ(lease.GetRemainingTime(NOW + 5), -1) << duration;
        EXPECT_TRUE(lease.IsExpired(NOW + 5)) << duration;
        EXPECT_EQ(lease.GetDuration(), duration);
        EXPECT_EQ(lease.GetIPAddress(), Address("192.168.1.241"));
        EXPECT_EQ(lease.GetHardwareAddress(), Client(7));
    }
}

TEST(LeaseTest, SerializedLeaseIsTheFourItemGroupOfTheWorkedExample)
{
    const Lease lease(HardwareAddress(std::string("00:11:22:33:44:55")), Address("192.168.1.240"), 3600, NOW);
    const ByteString expected = Concatenate({
        {8, 0, 0, 0}, EXAMPLE_START,
        {8, 0, 0, 0}, EXAMPLE_DURATION,
        {10, 0, 0, 0}, EXAMPLE_HARDWARE,
        {4, 0, 0, 0}, EXAMPLE_ADDRESS,
    });
    EXPECT_EQ(lease.Serialize(), expected);
    EXPECT_EQ(expected.size(), 46u);

    const Lease copy(expected);
    EXPECT_TRUE(SameRow(copy, lease));

    // A negative start time is sign-extended, and only the low 32 bits of a
    // stored integer are kept.
    const Lease early(Client(1), Address("10.0.0.1"), 60, -5);
    const ByteString earlyBytes = early.Serialize();
    EXPECT_EQ(ByteString(earlyBytes.begin() + 4, earlyBytes.begin() + 12), 
              (ByteString{0xFB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(Lease(earlyBytes).GetStartTime(), -5);
    const Lease wide(LeaseGroup(Tools::Int64ToBytes(0x1234'0000'0010LL), Tools::Int64ToBytes(0x7'0000'0020LL),
                                EXAMPLE_HARDWARE, EXAMPLE_ADDRESS));
    EXPECT_EQ(wide.GetStartTime(), 0x10);
    EXPECT_EQ(wide.GetDuration(), 0x20);
}

TEST(LeaseTest, LongestHardwareAddressGivesSixtyByteRecord)
{
    uint8_t bytes[16];
    for (uint8_t i = 0; i < 16; ++i) {
        bytes[i] = static_cast<uint8_t>(0xF0 + i);
    }
    const Lease lease(HardwareAddress(bytes, 16, HardwareAddress::ATM_3), Address("192.168.1.250"), 60, NOW);
    const ByteString record = Serializable::SerializeGroup({lease.Serialize()});
    EXPECT_EQ(record.size(), 60u);
    EXPECT_EQ(ByteString(record.begin(), record.begin() + 4), (ByteString{56, 0, 0, 0}));
    EXPECT_EQ(ByteString(record.begin() + 28, record.begin() + 36), (ByteString{20, 0, 0, 0, 21, 0, 0, 0}));
    EXPECT_TRUE(SameRow(Lease(lease.Serialize()), lease));
}

TEST(LeaseTest, DamagedBytesAreRefusedAndLeaveTheLeaseAsItWas)
{
    const ByteString sevenBytes(7, 1);
    const ByteString nineBytes(9, 1);
    ByteString seventeenByteHardware = {1, 0, 0, 0};
    seventeenByteHardware.resize(4 + 17, 0xAA);
    const ByteString good = LeaseGroup(EXAMPLE_START, EXAMPLE_DURATION, EXAMPLE_HARDWARE, EXAMPLE_ADDRESS);

    const struct {
        const char* name;
        ByteString data;
    } cases[] = {
        {"three items", Serializable::SerializeGroup({EXAMPLE_START, EXAMPLE_DURATION, EXAMPLE_HARDWARE})},
        {"five items",
         Serializable::SerializeGroup({EXAMPLE_START, EXAMPLE_DURATION, EXAMPLE_HARDWARE, EXAMPLE_ADDRESS, {1}})},
        {"empty item dropped", Serializable::SerializeGroup({EXAMPLE_START, EXAMPLE_DURATION, {}, EXAMPLE_ADDRESS})},
        {"7-byte start", LeaseGroup(sevenBytes, EXAMPLE_DURATION, EXAMPLE_HARDWARE, EXAMPLE_ADDRESS)},
        {"9-byte duration", LeaseGroup(EXAMPLE_START, nineBytes, EXAMPLE_HARDWARE, EXAMPLE_ADDRESS)},
        {"17-byte hardware address", LeaseGroup(EXAMPLE_START, EXAMPLE_DURATION, seventeenByteHardware, EXAMPLE_ADDRESS)},
        {"hardware item of 3 bytes", LeaseGroup(EXAMPLE_START, EXAMPLE_DURATION, {1, 0, 0}, EXAMPLE_ADDRESS)},
        {"3-byte address", LeaseGroup(EXAMPLE_START, EXAMPLE_DURATION, EXAMPLE_HARDWARE, {10, 0, 0})},
        {"5-byte address", LeaseGroup(EXAMPLE_START, EXAMPLE_DURATION, EXAMPLE_HARDWARE, {10, 0, 0, 1, 2})},
        {"truncated", ByteString(good.begin(), good.end() - 1)},
        {"empty", {}},
        {"size past the end", [&] { ByteString bad = good; bad[0] = 9; return bad; }()},
    };
    for (const auto& testCase : cases) {
        Lease lease(Client(3), Address("192.168.1.242"), 120, NOW);
        const Lease before = lease;
        EXPECT_EQ(CodeRaisedBy([&] { lease.Unserialize(testCase.data); }), AppException::FileReadingError)
            << testCase.name;
        EXPECT_TRUE(SameRow(lease, before)) << testCase.name;
        EXPECT_EQ(CodeRaisedBy([&] { Lease fresh(testCase.data); }), AppException::FileReadingError) << testCase.name;
    }
}
