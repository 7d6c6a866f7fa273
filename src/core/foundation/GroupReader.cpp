#include "foundation/GroupReader.h"

#include "foundation/AppException.h"

bool GroupReader::Next(const uint8_t*& item, size_t& itemSize)
{
    while (position < size) {
        if (size - position < 4) {
            throw AppException(AppException::FileReadingError);
        }
        uint32_t recordSize = 0;
        for (int i = 3; i >= 0; --i) {
            recordSize = (recordSize << 8) | data[position + static_cast<size_t>(i)];
        }
        position += 4;
        if (recordSize > size - position) {
            throw AppException(AppException::FileReadingError);
        }
        const size_t start = position;
        position += recordSize;
        if (recordSize > 0) {
            item = data + start;
            itemSize = recordSize;
            return true;
        }
    }
    return false;
}
