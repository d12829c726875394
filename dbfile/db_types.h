// Enumerations of the record-file object.
#pragma once

// Open modes: one access value, optionally with the create flag.
enum dbOpenType : int {
    dbOpenNormal = 1,
    dbOpenExclusive = 2,
    dbOpenReadOnly = 4,
    dbOpenCreate = 8
};

// Relational operators of key searches and filters.
enum dbRelOp : int {
    dbRelEqual = 0,
    dbRelGreater = 1,
    dbRelLess = 2,
    dbRelNotEqual = 3,
    dbRelGreaterEqual = 4,
    dbRelLessEqual = 5
};

// Connectives of filter terms.
enum dbLogicOp : int { dbLogicEnd = 0, dbLogicAnd = 1, dbLogicOr = 2 };

// Results of filter texts (low 16 bits; the high 16 bits index the term).
enum dbSQLErrCode : int {
    dbSQLNoError = 0,
    dbSQLBadField = 1,
    dbSQLBadOperator = 2,
    dbSQLBadLogicOp = 3,
    dbSQLAddTermFailed = 4
};

// Styles of query and report literals.
enum SQLType : int { sqlQuoted = 0, sqlFormula = 1 };

// Results of auto-increment numbering; the message of value v is string 160 + v.
enum AI_Err : int {
    AI_OK = 0,
    AI_OpenFailed = 1,
    AI_AddFailed = 2,
    AI_GotoFailed = 3,
    AI_LockFailed = 4,
    AI_WriteFailed = 5,
    AI_NoIndex = 6,
    AI_CheckOpenFailed = 7,
    AI_Negative = 8
};
