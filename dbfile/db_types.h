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
