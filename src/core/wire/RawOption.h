#pragma once

#include "foundation/ByteString.h"

#include <cstdint>
#include <string>

// One additional option that the user configures by hand: a code (0..254) and
// 1..254 data bytes (each 0..254), entered and stored as decimal text.
//
// Text forms: CodeString "4", DataString "192 168 1 100".
// Wire form: code, number of data bytes, data bytes.
class RawOption {
public:
    // Sets the code, then the data, so a bad code is reported first.
    // Raises CodeStringNotValid, RawOptionDataEmpty, RawOptionDataTooLong,
    // DataStringNotValid.
    RawOption(const std::string& codeString, const std::string& dataString);

    uint8_t GetCode() const { return code; }
    const ByteString& GetData() const { return data; }

    // Raises CodeStringNotValid; the code keeps its value then.
    void SetCodeString(const std::string& codeString);
    std::string GetCodeString() const;
    // Raises RawOptionDataEmpty, RawOptionDataTooLong, DataStringNotValid; the
    // data keep their value then.
    void SetDataString(const std::string& dataString);
    std::string GetDataString() const;

    // Precondition: data not empty.
    ByteString ToBytes() const;

    bool operator==(const RawOption& other) const = default;

private:
    uint8_t code = 0;
    ByteString data;
};
