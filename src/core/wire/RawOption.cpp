#include "wire/RawOption.h"

#include "foundation/AppException.h"
#include "foundation/Precondition.h"
#include "foundation/Tools.h"

namespace {

// 255 is End on the wire, so neither a code nor a data byte may take it, and
// the length byte must leave room for nothing larger either.
constexpr int32_t MAX_CODE = 254;
constexpr int32_t MAX_DATA_BYTE = 254;
constexpr size_t MAX_DATA_LENGTH = 254;

} // namespace

RawOption::RawOption(const std::string& codeString, const std::string& dataString)
{
    SetCodeString(codeString);
    SetDataString(dataString);
}

void RawOption::SetCodeString(const std::string& codeString)
{
    int32_t value = 0;
    try {
        value = Tools::StringToInt(codeString);
    } catch (const AppException& exception) {
        if (exception.GetCode() == AppException::StringNotValidInteger) {
            throw AppException(AppException::CodeStringNotValid);
        }
        throw;
    }
    if (value > MAX_CODE) {
        throw AppException(AppException::CodeStringNotValid);
    }
    code = static_cast<uint8_t>(value);
}

std::string RawOption::GetCodeString() const
{
    return Tools::IntToString(code);
}

void RawOption::SetDataString(const std::string& dataString)
{
    if (dataString.empty()) {
        throw AppException(AppException::RawOptionDataEmpty);
    }
    const std::vector<std::string> items = Tools::SplitBySpace(dataString);
    // The count is judged before any item is read, so too many items of
    // garbage are reported as too long, not as bad data.
    if (items.size() > MAX_DATA_LENGTH) {
        throw AppException(AppException::RawOptionDataTooLong);
    }
    ByteString newData;
    newData.reserve(items.size());
    for (const std::string& item : items) {
        int32_t value = 0;
        try {
            value = Tools::StringToInt(item);
        } catch (const AppException& exception) {
            if (exception.GetCode() == AppException::StringNotValidInteger) {
                throw AppException(AppException::DataStringNotValid);
            }
            throw;
        }
        if (value > MAX_DATA_BYTE) {
            throw AppException(AppException::DataStringNotValid);
        }
        newData.push_back(static_cast<uint8_t>(value));
    }
    data = std::move(newData);
}

std::string RawOption::GetDataString() const
{
    std::string text;
    for (size_t i = 0; i < data.size(); ++i) {
        if (i > 0) {
            text += ' ';
        }
        text += Tools::IntToString(data[i]);
    }
    return text;
}

ByteString RawOption::ToBytes() const
{
    PRECONDITION(!data.empty());
    ByteString bytes;
    bytes.reserve(2 + data.size());
    bytes.push_back(code);
    bytes.push_back(static_cast<uint8_t>(data.size()));
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}
