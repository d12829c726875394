#include "model_gen.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

namespace rmgen {

const Schema kSchemas[3] = {
    {"fixed, every type",
     64,
     0,
     {{{1, 4, EXT, RM_TYPE_INTEGER}},
      {{5, 6, EXT | DUP | MOD | CI, RM_TYPE_STRING}},
      {{11, 2, EXT | DUP | MOD | DESC, RM_TYPE_INTEGER}, {13, 4, EXT | DUP | MOD, RM_TYPE_FLOAT}},
      // Left out when both segments are null; the manual key when either is.
      {{17, 8, EXT | DUP | MOD | NUL, RM_TYPE_FLOAT, 0},
       {11, 2, EXT | DUP | MOD | NUL, RM_TYPE_INTEGER, 0}},
      {{25, 4, EXT | DUP | MOD, RM_TYPE_DATE}, {29, 4, EXT | DUP | MOD, RM_TYPE_TIME}},
      {{33, 4, EXT | MOD | MAN, RM_TYPE_DECIMAL, 0}, {11, 2, EXT | MOD | MAN, RM_TYPE_INTEGER, 0}},
      {{37, 6, EXT | DUP | MOD | CI, RM_TYPE_ZSTRING},
       {43, 5, EXT | DUP | MOD | CI | DESC, RM_TYPE_LSTRING}},
      {{48, 3, EXT | DUP | MOD | DESC, RM_TYPE_UNSIGNED_BINARY},
       {51, 1, EXT | DUP | MOD, RM_TYPE_LOGICAL}},
      {{52, 3, EXT | DUP | MOD, RM_TYPE_MONEY}},
      {{11, 1, EXT | DUP | MOD, RM_TYPE_INTEGER}, {17, 8, EXT | DUP | MOD, RM_TYPE_INTEGER}},
      {{11, 2, EXT | DUP | MOD | DESC, RM_TYPE_LOGICAL}}}},
    {"variable length, numbered and old-style keys",
     64,
     RM_FILE_VAR_LENGTH | RM_FILE_KEY_NUMBERS,
     {{{1, 4, EXT, RM_TYPE_INTEGER, 0, 3}},
      {{5, 6, DUP | MOD | CI, 0, 0, 0}},
      {{48, 3, DUP | MOD | BIN, 0, 0, 7}},
      {{17, 8, EXT | DUP | MOD, RM_TYPE_FLOAT, 0, 1}},
      {{37, 6, EXT | MOD | CI, RM_TYPE_ZSTRING, 0, 5}, {25, 4, EXT | MOD, RM_TYPE_DATE, 0, 5}},
      {{33, 4, EXT | DUP | MOD | DESC, RM_TYPE_DECIMAL, 0, 2},
       {11, 2, EXT | DUP | MOD, RM_TYPE_INTEGER, 0, 2}}},
     2048},
    {"autoincrement",
     64,
     0,
     {{{57, 4, EXT | MOD, RM_TYPE_AUTOINCREMENT}},
      {{5, 6, EXT | DUP | MOD, RM_TYPE_STRING}},
      {{1, 4, EXT | MOD, RM_TYPE_INTEGER}, {11, 2, EXT | MOD | DESC, RM_TYPE_INTEGER}},
      {{55, 2, EXT, RM_TYPE_AUTOINCREMENT}}}},
};

rmmodel::Key ModelKey(const rmtest::Key& segs, bool numbered, int index) {
    rmmodel::Key k;
    k.number = numbered ? segs[0].number : index;
    for (const rmtest::Seg& g : segs) {
        rmmodel::Seg ms;
        ms.off = uint16_t(g.pos - 1);
        ms.len = g.len;
        ms.kind = (g.flags & EXT) ? g.type : ((g.flags & BIN) ? RM_TYPE_UNSIGNED_BINARY : 0);
        ms.ci = (g.flags & CI) &&
                (ms.kind == 0 || ms.kind == RM_TYPE_LSTRING || ms.kind == RM_TYPE_ZSTRING);
        ms.desc = g.flags & DESC;
        ms.nullValue = g.nullValue;
        if (ms.kind == RM_TYPE_AUTOINCREMENT) k.autoSeg = int(k.segs.size());
        k.segs.push_back(ms);
        k.len = uint16_t(k.len + g.len);
        k.dup = g.flags & DUP;
        k.mod = g.flags & MOD;
        k.nullKey = k.nullKey || (g.flags & NUL);
        k.manual = k.manual || (g.flags & MAN);
    }
    return k;
}

rmmodel::Model ModelOf(const Schema& s) {
    rmmodel::Model m;
    m.recLen = s.recLen;
    m.var = s.fileFlags & RM_FILE_VAR_LENGTH;
    for (size_t i = 0; i < s.keys.size(); ++i) {
        rmmodel::Key k = ModelKey(s.keys[i], s.fileFlags & RM_FILE_KEY_NUMBERS, int(i));
        k.id = m.nextIndexId++;
        m.keys.push_back(k);
    }
    std::sort(m.keys.begin(), m.keys.end(),
              [](const rmmodel::Key& a, const rmmodel::Key& b) { return a.number < b.number; });
    return m;
}

void Gen::Put(std::vector<uint8_t>& r, size_t off, uint64_t v, int n) {
    for (int i = 0; i < n; ++i)
        r[off + i] = uint8_t(v >> (8 * i));
}
void Gen::PutText(std::vector<uint8_t>& r, size_t off, size_t n, const std::string& s,
                  uint8_t pad) {
    for (size_t i = 0; i < n; ++i)
        r[off + i] = i < s.size() ? uint8_t(s[i]) : pad;
}
void Gen::PutBcd(std::vector<uint8_t>& r, size_t off, int n, long v, bool negZero) {
    bool neg = v < 0 || negZero;
    unsigned long m = neg ? (unsigned long)(-v) : (unsigned long)v;
    std::vector<uint8_t> digits(size_t(2 * n - 1));
    for (size_t i = digits.size(); i-- > 0; m /= 10)
        digits[i] = uint8_t(m % 10);
    for (int i = 0; i < n; ++i)
        r[off + i] = 0;
    for (size_t i = 0; i < digits.size(); ++i)
        r[off + i / 2] |= uint8_t(i % 2 == 0 ? digits[i] << 4 : digits[i]);
    r[off + n - 1] |= neg ? (Chance(50) ? 0x0D : 0x0B) : (Chance(80) ? 0x0F : 0x0C);
}

std::vector<uint8_t> Gen::Record(const rmmodel::Model& m) {
    // Variable-length records have a tail; a fixed-length file is given more
    // now and then, of which it keeps its record length.
    size_t tail =
        size_t(m.var ? (Int(0, 3) == 0 ? 0 : Int(0, 120)) : (Chance(10) ? Int(1, 16) : 0));
    // Now and then one of the largest length a file takes, or a byte more.
    if (m.var && Chance(2)) tail = RM_MAX_RECORD_LENGTH - m.recLen + size_t(Int(0, 1));
    std::vector<uint8_t> r(m.recLen + tail, 0);
    static const std::vector<int64_t> ints = {INT32_MIN, -70000, -1,  0,     1,
                                              2,         255,    256, 70000, INT32_MAX};
    Put(r, 0, uint64_t(Chance(85) ? Int(-3000, 3000) : Pick(ints)), 4);
    static const std::vector<std::string> strs = {
        "abc", "ABC",   "Abd",   "ab",   "ab c", "\xe9t\xe9", "\xc9T\xc9", "zz",
        "",    "\xf7x", "\xd7x", "\xfe", "\xde", "\xff",      "\xdf",      "\x7f\x80"};
    PutText(r, 4, 6, Pick(strs), Chance(50) ? ' ' : 0);
    static const std::vector<int64_t> shorts = {-32768, -2, -1, 0, 1, 3, 32767};
    Put(r, 10, uint64_t(Pick(shorts)), 2);
    // Bytes of one value mix with another's in updates: no infinities, which
    // would make NaNs, whose order nobody defines.
    static const std::vector<float> floats = {-1e30f, -2.5f, -0.0f, 0.0f, 1e-30f, 2.5f, 7.0f};
    float f = Pick(floats);
    std::memcpy(&r[12], &f, 4);
    static const std::vector<double> doubles = {0.0, 0.0, -0.0, -3.25, 1e300, -1e300, 4.5};
    double d = Pick(doubles);
    std::memcpy(&r[16], &d, 8);
    static const std::vector<int> years = {255, 256, 1999, 2000, 2024};
    r[24] = uint8_t(Int(1, 31));
    r[25] = uint8_t(Int(1, 12));
    Put(r, 26, uint64_t(Pick(years)), 2);
    for (int i = 0; i < 4; ++i)
        r[28 + i] = uint8_t(Int(0, 2));
    static const std::vector<long> decs = {-100, -1, 0, 1, 99, 12345, 9999999};
    if (Chance(15))
        std::fill(r.begin() + 32, r.begin() + 36, 0);  // null for the manual key
    else
        PutBcd(r, 32, 4, Chance(70) ? Int(-99999, 99999) : Pick(decs), Chance(10));
    static const std::vector<std::string> zs = {"a", "ab", "abc", "AB", "", "\xe9t\xe9", "ABCDEF"};
    PutText(r, 36, 6, Pick(zs), 0);
    if (Chance(30)) r[41] = uint8_t(Int(1, 255));  // garbage after a short text's end
    static const std::vector<std::string> ls = {"", "a", "ab", "AB", "abcd", "b"};
    std::string l = Pick(ls);
    r[42] = uint8_t(Chance(10) ? Int(5, 255) : int(l.size()));
    PutText(r, 43, 4, l, Chance(50) ? 0 : 'x');
    Put(r, 47, uint64_t(Int(0, 3) * 0x10001 + Int(0, 1)), 3);
    r[50] = uint8_t(Int(0, 2));
    PutBcd(r, 51, 3, Pick(decs) % 100000, Chance(5));
    Put(r, 54, uint64_t(Chance(70) ? 0 : Int(-300, -1)), 2);  // below any value made
    Put(r, 56, uint64_t(Chance(60) ? 0 : Int(-3, 400)), 4);
    for (size_t i = m.recLen; i < r.size(); ++i)
        r[i] = uint8_t(Int(0, 255));
    return r;
}

std::vector<uint8_t> Gen::SearchSource(const rmmodel::Model& m) {
    std::vector<uint8_t> src = Record(m);
    if (!m.recs.empty() && Chance(60)) {
        auto it = m.recs.begin();
        std::advance(it, Int(0, int(m.recs.size()) - 1));
        src = it->second.data;
    }
    return src;
}

}  // namespace rmgen
