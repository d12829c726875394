#include "dictionary/records.h"

#include <cstring>

BtrFieldType CvtDbTypeToBtrType(dbFieldType type, dbFileType fileType) {
    switch (type) {
        case dbInteger:
            return BtrInteger;
        case dbUnsigned:
            return BtrUnsignedBinary;
        case dbFloat:
            return BtrFloat;
        case dbDecimal:
            return BtrDecimal;
        case dbDate:
            return BtrDate;
        case dbTime:
            return BtrTime;
        case dbMoney:
            return BtrMoney;
        case dbBoolean:
            return BtrLogical;
        case dbZString:
        case dbPhone:
            return BtrZString;
        case dbAutoInc:
            return fileType == dbFileSystem ? BtrAutoInc : BtrInteger;
        default:  // strings, fixed text, unsigned text and anything else
            return BtrString;
    }
}

dbFieldType CvtBtrTypeToDbType(BtrFieldType type, unsigned short) {
    switch (type) {
        case BtrInteger:
            return dbInteger;
        case BtrFloat:
            return dbFloat;
        case BtrDate:
            return dbDate;
        case BtrTime:
            return dbTime;
        case BtrDecimal:
            return dbDecimal;
        case BtrMoney:
            return dbMoney;
        case BtrLogical:
            return dbBoolean;
        case BtrZString:
            return dbZString;
        case BtrUnsignedBinary:
            return dbUnsigned;
        case BtrAutoInc:
            return dbAutoInc;
        default:
            return dbString;
    }
}

void CvtDbKeyToBtrKey(DbCreateKeySpec* spec, dbFileType fileType) {
    int t = int8_t(spec->Type);
    spec->Type = uint8_t(CvtDbTypeToBtrType(dbFieldType(t), fileType));
    if (t == dbUnsigned || t == dbAutoInc) spec->Flags |= kKeyBinary;
    // A text key of type 0 stays an old-style string key.
    if (t != 0) spec->Flags |= kKeyExtendedType;
}

void CopyFixedText(char* member, size_t size, const char* text) {
    std::memset(member, 0, size);
    if (text) std::strncpy(member, text, size - 1);
}
