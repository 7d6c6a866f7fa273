#include "foundation/Tools.h"

#include "foundation/AppException.h"
#include "foundation/LittleEndian.h"
#include "foundation/Precondition.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <limits>
#include <thread>

namespace Tools {

void Trim(std::string& text)
{
    const auto first = text.find_first_not_of(' ');
    if (first == std::string::npos) {
        text.clear();
        return;
    }
    const auto last = text.find_last_not_of(' ');
    text = text.substr(first, last - first + 1);
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> items(1);
    bool previousWasSeparator = false;
    for (const char character : text) {
        if (character == separator) {
            if (!previousWasSeparator) {
                items.emplace_back();
            }
            previousWasSeparator = true;
        } else {
            items.back().push_back(character);
            previousWasSeparator = false;
        }
    }
    return items;
}

std::vector<std::string> SplitBySpace(const std::string& text)
{
    return Split(text, ' ');
}

int CountChar(const std::string& text, char character)
{
    return static_cast<int>(std::count(text.begin(), text.end(), character));
}

void ToLower(std::string& text)
{
    for (char& character : text) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
}

bool StartsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

int32_t StringToInt(const std::string& text)
{
    if (text.empty()) {
        throw AppException(AppException::StringNotValidInteger);
    }
    int64_t value = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') {
            throw AppException(AppException::StringNotValidInteger);
        }
        value = value * 10 + (character - '0');
        if (value > std::numeric_limits<int32_t>::max()) {
            throw AppException(AppException::StringNotValidInteger);
        }
    }
    return static_cast<int32_t>(value);
}

std::string IntToString(int64_t value)
{
    return std::to_string(value);
}

bool IsPowerOfTwo(uint32_t value)
{
    return value != 0 && (value & (value - 1)) == 0;
}

ByteString Int64ToBytes(int64_t value)
{
    ByteString bytes(8);
    LittleEndian::Put(bytes.data(), static_cast<uint64_t>(value), 8);
    return bytes;
}

int64_t BytesToInt64(const ByteString& serializedData)
{
    PRECONDITION(serializedData.size() == 8);
    return static_cast<int64_t>(LittleEndian::Get64(serializedData.data()));
}

bool ParameterExists(int argumentCount, const char* const* arguments, const std::string& parameter)
{
    std::string wanted = parameter;
    Trim(wanted);
    ToLower(wanted);
    for (int i = 0; i < argumentCount; ++i) {
        std::string argument = arguments[i] ? arguments[i] : "";
        Trim(argument);
        ToLower(argument);
        if (argument == wanted) {
            return true;
        }
    }
    return false;
}

void SleepMilliseconds(unsigned milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

} // namespace Tools
