/* recman: the embedded record manager behind dbfile.
 *
 * One C entry point, BTRCALLID, takes every request: an operation code (plus a
 * bias where one applies), a 128-byte position block naming an open file, a
 * data buffer with its length in and out, a key buffer, a key number and the
 * caller's 16-byte client id. The answer is a status: 0 for success.
 */
#ifndef DBFILE_RECMAN_H
#define DBFILE_RECMAN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

int16_t BTRCALLID(uint16_t op, void* posBlock, void* dataBuf, uint32_t* dataLen, void* keyBuf,
                  uint8_t keyLen, int8_t keyNum, const uint8_t* clientId);

/* Every constant lives in one enumeration so that operation codes and biases
 * can be added together. */
enum {
    /* Operation codes. */
    RM_OPEN = 0,
    RM_CLOSE = 1,
    RM_INSERT = 2,
    RM_UPDATE = 3,
    RM_DELETE = 4,
    RM_GET_EQUAL = 5,
    RM_GET_NEXT = 6,
    RM_GET_PREVIOUS = 7,
    RM_GET_GREATER = 8,
    RM_GET_GREATER_OR_EQUAL = 9,
    RM_GET_LESS = 10,
    RM_GET_LESS_OR_EQUAL = 11,
    RM_GET_FIRST = 12,
    RM_GET_LAST = 13,
    RM_CREATE = 14,
    RM_STAT = 15,
    RM_BEGIN_TRANSACTION = 19,
    RM_END_TRANSACTION = 20,
    RM_ABORT_TRANSACTION = 21,
    RM_GET_POSITION = 22,
    RM_GET_DIRECT = 23,
    RM_STEP_NEXT = 24,
    RM_STOP = 25,
    RM_VERSION = 26,
    RM_UNLOCK = 27,
    RM_RESET = 28,
    RM_SET_OWNER = 29,
    RM_CLEAR_OWNER = 30,
    RM_CREATE_INDEX = 31,
    RM_DROP_INDEX = 32,
    RM_STEP_FIRST = 33,
    RM_STEP_LAST = 34,
    RM_STEP_PREVIOUS = 35,
    RM_GET_NEXT_EXTENDED = 36,
    RM_GET_PREVIOUS_EXTENDED = 37,
    RM_STEP_NEXT_EXTENDED = 38,
    RM_STEP_PREVIOUS_EXTENDED = 39,

    /* Biases added to an operation code. */
    RM_KEY_ONLY = 50,          /* Get Equal .. Get Last: key and currency only */
    RM_LOCK_SINGLE_WAIT = 100, /* reads: lock the record, waiting */
    RM_LOCK_SINGLE_NOWAIT = 200,
    RM_LOCK_MULTI_WAIT = 300,
    RM_LOCK_MULTI_NOWAIT = 400,
    RM_CONCURRENT = 1000, /* Begin Transaction: concurrent transaction */

    /* Key numbers with a meaning of their own. */
    RM_OPEN_NORMAL = 0,
    RM_OPEN_ACCELERATED = -1,
    RM_OPEN_READ_ONLY = -2,
    RM_OPEN_VERIFY = -3,
    RM_OPEN_EXCLUSIVE = -4,
    RM_CREATE_REPLACE = 0,
    RM_CREATE_NO_REPLACE = -1,
    RM_CREATE_REMOVE = -128,
    RM_UNLOCK_ONE_MULTI = -1,
    RM_UNLOCK_ALL_MULTI = -2,
    RM_INDEX_NUMBER_GIVEN = 0x80, /* Create/Drop Index key number flag */

    /* Statuses. */
    RM_OK = 0,
    RM_INVALID_OPERATION = 1,
    RM_IO_ERROR = 2,
    RM_FILE_NOT_OPEN = 3,
    RM_KEY_NOT_FOUND = 4,
    RM_DUPLICATE_KEY = 5,
    RM_INVALID_KEY_NUMBER = 6,
    RM_DIFFERENT_KEY_NUMBER = 7,
    RM_INVALID_POSITIONING = 8,
    RM_END_OF_FILE = 9,
    RM_MODIFIABLE_KEY_CHANGED = 10,
    RM_INVALID_FILE_NAME = 11,
    RM_FILE_NOT_FOUND = 12,
    RM_DISK_FULL = 18,
    RM_KEY_BUFFER_TOO_SHORT = 21,
    RM_DATA_BUFFER_TOO_SHORT = 22,
    RM_POSITION_BLOCK_MISSING = 23,
    RM_PAGE_SIZE_ERROR = 24,
    RM_CREATE_IO_ERROR = 25,
    RM_NUMBER_OF_KEYS = 26,
    RM_INVALID_KEY_POSITION = 27,
    RM_INVALID_RECORD_LENGTH = 28,
    RM_INVALID_KEY_LENGTH = 29,
    RM_NOT_A_RECMAN_FILE = 30,
    RM_TRANSACTION_ACTIVE = 37,
    RM_NO_TRANSACTION = 39,
    RM_INVALID_RECORD_ADDRESS = 43,
    RM_INCONSISTENT_KEY_FLAGS = 45,
    RM_ACCESS_DENIED = 46,
    RM_INVALID_ACS = 48,
    RM_INVALID_KEY_TYPE = 49,
    RM_OWNER_ALREADY_SET = 50,
    RM_INVALID_OWNER = 51,
    RM_AUTOINC_DUPLICATES = 55,
    RM_FILE_EXISTS = 59,
    RM_REJECT_COUNT_REACHED = 60,
    RM_INVALID_DESCRIPTOR = 62,
    RM_INVALID_FIELD_OFFSET = 65,
    RM_CONFLICT = 80,
    RM_RECORD_LOCKED = 84,
    RM_INCOMPATIBLE_MODE = 88,
    RM_SERVER_ERROR = 91, /* the server storage refused a statement */
    RM_INCOMPATIBLE_LOCK = 93,
    RM_SESSION_INVALID = 95, /* the connection to the server storage was lost */

    /* File flags of a create spec. */
    RM_FILE_VAR_LENGTH = 0x0001,
    RM_FILE_BLANK_TRUNCATION = 0x0002,
    RM_FILE_PREALLOCATE = 0x0004,
    RM_FILE_COMPRESSED = 0x0008,
    RM_FILE_KEY_ONLY = 0x0010,
    RM_FILE_INDEX_BALANCING = 0x0020,
    RM_FILE_KEY_NUMBERS = 0x0400, /* key numbers come from byte 14 of the segments */
    RM_FILE_VATS = 0x0800,

    /* Key segment flags. */
    RM_KEY_DUPLICATES = 0x0001,
    RM_KEY_MODIFIABLE = 0x0002,
    RM_KEY_BINARY = 0x0004,
    RM_KEY_NULL = 0x0008,
    RM_KEY_SEGMENTED = 0x0010,
    RM_KEY_ALT_COLLATION = 0x0020,
    RM_KEY_DESCENDING = 0x0040,
    RM_KEY_EXTENDED_TYPE = 0x0100,
    RM_KEY_MANUAL = 0x0200,
    RM_KEY_CASE_INSENSITIVE = 0x0400,

    /* Key segment types (with RM_KEY_EXTENDED_TYPE). */
    RM_TYPE_STRING = 0,
    RM_TYPE_INTEGER = 1,
    RM_TYPE_FLOAT = 2,
    RM_TYPE_DATE = 3,
    RM_TYPE_TIME = 4,
    RM_TYPE_DECIMAL = 5,
    RM_TYPE_MONEY = 6,
    RM_TYPE_LOGICAL = 7,
    RM_TYPE_LSTRING = 10,
    RM_TYPE_ZSTRING = 11,
    RM_TYPE_UNSIGNED_BINARY = 14,
    RM_TYPE_AUTOINCREMENT = 15,

    RM_POSITION_BLOCK_SIZE = 128,
    RM_CLIENT_ID_SIZE = 16,
    RM_MAX_KEY_LENGTH = 255,
    RM_MAX_RECORD_LENGTH = 64512,
    RM_MAX_KEYS = 119,
};

#ifdef __cplusplus
}
#endif

#endif /* DBFILE_RECMAN_H */
