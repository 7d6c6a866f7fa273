#pragma once

#include <cstdint>
#include <string>

// The one failure type of the system. The code, not a class hierarchy, says
// what went wrong; handlers branch on GetCode(). Thrown by value, caught by
// reference, copied freely.
class AppException {
public:
    // Positions 7 and 8 are unassigned; the codes after them keep their numbers.
    enum Code : int32_t {
        CannotCreateListeningSocket = 0,
        CannotInitializeWinSock = 1,
        CannotBindSocket = 2,
        ReceiveError = 3,
        MagicCookieNotRead = 4,
        OptionNotPresent = 5,
        OptionLengthNotValid = 6,
        IPv4AddressValueOverflow = 9,
        NoAvailableAddresses = 10,
        CannotDetermineLocalAddresses = 11,
        InvalidListeningAddresses = 12,
        NoAddressToListenOn = 13,
        NotAllBytesSent = 14,
        SendError = 15,
        ServerSettingsNotValid = 16,
        IPAddressStringNotValid = 17,
        NotASubnetMask = 18,
        MessageParsingError = 19,
        HardwareAddressStringNotValid = 20,
        HardwareAddressAlreadyReserved = 21,
        IPAddressAlreadyReserved = 22,
        ReservationOutsidePoolSubnet = 23,
        StringNotValidInteger = 24,
        CodeStringNotValid = 25,
        DataStringNotValid = 26,
        RawOptionDataEmpty = 27,
        RawOptionDataTooLong = 28,
        SettingsLineParsingError = 29,
        SettingsFileFatalError = 30,
        SettingsFilePartlyLoaded = 31,
        FileNotExists = 32,
        CannotCreateLogItemsMutex = 33,
        WaitForLogItemsMutexFailed = 34,
        ReleaseLogItemsMutexFailed = 35,
        CannotDetermineInterfaceName = 36,
        NotAdministrator = 37,
        CannotGetKnownDirectory = 38,
        CannotOpenFile = 39,
        FileReadingError = 40,
        FileWritingError = 41,
        UnsupportedEOLStyle = 42,
        LeaseFileInUse = 43,
    };

    explicit AppException(int32_t code) : code(code) {}

    int32_t GetCode() const { return code; }
    std::string GetMessage() const { return GetMessageForCode(code); }

    // The English text of any integer; unassigned and unknown codes give
    // "Unknown error".
    static std::string GetMessageForCode(int32_t code);

private:
    int32_t code;
};
