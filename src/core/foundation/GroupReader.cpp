#include "foundation/GroupReader.h"

#include "foundation/AppException.h"
#include "foundation/LittleEndian.h"

bool GroupReader::Next(const uint8_t*& item, size_t& itemSize)
{
    while (position < size) {
        if (size - position < 4) {
            throw AppException(AppException::FileReadingError);
        }
        const uint32_t recordSize = LittleEndian::Get32(data + position);
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
