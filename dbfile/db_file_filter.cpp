// Filter text: comparisons of a field with a literal or another field, joined
// by "and " or "or ", parsed left to right into filter terms.
#include <new>
#include <vector>

#include "dbfile/db_file.h"
#include "support/zstring.h"

namespace {

bool IsOperatorChar(char c) {
    return c == '<' || c == '>' || c == '=';
}

// The relation of an operator's text; false for anything but the six.
bool RelationOf(const ZString& text, dbRelOp& op) {
    static const struct {
        const char* text;
        dbRelOp op;
    } kOps[] = {{"=", dbRelEqual},      {">", dbRelGreater},       {"<", dbRelLess},
                {"<=", dbRelLessEqual}, {">=", dbRelGreaterEqual}, {"<>", dbRelNotEqual}};
    for (const auto& o : kOps)
        if (text == o.text) {
            op = o.op;
            return true;
        }
    return false;
}

unsigned long Stop(unsigned long term, dbSQLErrCode code) {
    return term * 65536ul + unsigned(code);
}

}  // namespace

unsigned long CDbFile::VerifySQLFilter(const char* text) {
    return ParseSQLFilter(text, false);
}

unsigned long CDbFile::SetSQLFilter(const char* text) {
    ResetTerms();
    return ParseSQLFilter(text, true);
}

unsigned long CDbFile::ParseSQLFilter(const char* text, bool add) {
    ZString rest(text);
    rest.Trim();
    for (unsigned long term = 0; !rest.IsEmpty(); ++term) {
        int at = -1;
        for (int i = 0; i < rest.Length() && at < 0; ++i)
            if (IsOperatorChar(rest.GetAt(i))) at = i;
        if (at < 0) return Stop(term, dbSQLBadOperator);
        ZString name = rest.Left(at);
        short fieldId = GetFieldIdOfName(name.Trim());
        if (fieldId < 0) return Stop(term, dbSQLBadField);
        int opLen = IsOperatorChar(rest.GetAt(at + 1)) ? 2 : 1;
        dbRelOp op;
        if (!RelationOf(rest.Mid(at, opLen), op)) return Stop(term, dbSQLBadOperator);

        // The value: up to a space, or through a double quote; a value that
        // begins with a quote runs to the next quote.
        int start = at + opLen;
        while (rest.GetAt(start) == ' ')
            ++start;
        int end = rest.Length();
        bool quoted = rest.GetAt(start) == '"';
        for (int i = start + 1; i < rest.Length(); ++i) {
            char c = rest.GetAt(i);
            if (c == '"') {
                end = i + 1;
                break;
            }
            if (c == ' ' && !quoted) {
                end = i;
                break;
            }
        }
        ZString value = rest.Mid(start, end - start);
        value.Trim();
        int otherId = -1;
        if (value.Length() >= 2 && value.GetAt(0) == '"' &&
            value.GetAt(value.Length() - 1) == '"') {
            value = value.Mid(1, value.Length() - 2);
        } else {
            for (int ok = m_FldList.First(); ok && otherId < 0; ok = m_FldList.Next())
                if (value.Compare(m_FldList.GetFldName()) == 0) otherId = m_FldList.GetFldId();
        }

        rest = rest.Mid(end);
        rest.TrimLeft();
        dbLogicOp logic = dbLogicEnd;
        if (!rest.IsEmpty()) {
            if (rest.Left(4).CompareNoCase("and ") == 0) {
                logic = dbLogicAnd;
                rest = rest.Mid(4);
            } else if (rest.Left(3).CompareNoCase("or ") == 0) {
                logic = dbLogicOr;
                rest = rest.Mid(3);
            } else {
                return Stop(term, dbSQLBadLogicOp);
            }
            rest.TrimLeft();
        }
        if (!add) continue;

        // Filter texts compare text fields without regard to case.
        int added = 0;
        if (otherId >= 0) {
            added = AddTerm(uint16_t(fieldId), op, uint16_t(otherId), logic, 0);
        } else {
            try {
                int length = GetFieldLength(uint16_t(fieldId));
                std::vector<char> literal(size_t(length) + 1);
                FormatStringToFileData(value, literal.data(), length,
                                       GetFieldType(uint16_t(fieldId)),
                                       GetFieldNumDP(uint16_t(fieldId)));
                added = AddTerm(uint16_t(fieldId), op, static_cast<const void*>(literal.data()),
                                logic, 0);
            } catch (const std::bad_alloc&) {
                added = 0;
            }
        }
        if (!added) return Stop(term, dbSQLAddTermFailed);
    }
    return 0;
}
