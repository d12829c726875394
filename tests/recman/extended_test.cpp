// Extended operations: where a scan starts, when it stops, what it returns,
// locks, and malformed descriptors.
#include <gtest/gtest.h>

#include "model.h"
#include "rm_util.h"

namespace {

using rmmodel::ExtDesc;
using rmmodel::ExtTerm;
using rmtest::Handle;
constexpr uint16_t EXT = RM_KEY_EXTENDED_TYPE, DUP = RM_KEY_DUPLICATES, MOD = RM_KEY_MODIFIABLE;

// Records of 24 bytes: id (int32, key 0), qty (int16 at 4), name (string[8]
// at 6), limit (int16 at 14), tag (zstring[8] at 16).
std::vector<uint8_t> Rec(int id, int qty, const char* name, int limit) {
    std::vector<uint8_t> r(24, 0);
    rmtest::Put32(r.data(), uint32_t(id));
    rmtest::Put16(r.data() + 4, uint16_t(qty));
    std::strncpy(reinterpret_cast<char*>(&r[6]), name, 8);
    rmtest::Put16(r.data() + 14, uint16_t(limit));
    return r;
}

ExtTerm Term(uint8_t type, uint16_t len, uint16_t off, int op, std::vector<uint8_t> value,
             int connector = 0) {
    ExtTerm t;
    t.type = type;
    t.length = len;
    t.offset = off;
    t.op = op;
    t.value = std::move(value);
    t.connector = connector;
    return t;
}

std::vector<uint8_t> I16(int v) {
    return {uint8_t(v), uint8_t(v >> 8)};
}
std::vector<uint8_t> Name(const char* s) {
    std::vector<uint8_t> v(8, 0);
    std::memcpy(v.data(), s, std::min<size_t>(std::strlen(s), 8));
    return v;
}

struct Result {
    int status;
    std::vector<int> ids;  // the first 4 bytes extracted from each record
    std::vector<uint32_t> addresses;
    bool untouched = false;  // the buffer still holds the descriptor
};

class ExtendedTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(rmtest::CreateFile(
                      path, rmtest::Spec(24, {{{1, 4, EXT, RM_TYPE_INTEGER}},
                                              {{5, 2, EXT | DUP | MOD, RM_TYPE_INTEGER}}})),
                  RM_OK);
        ASSERT_EQ(h.Open(path), RM_OK);
        const char* names[] = {"Apple", "apple", "Pear", "fig", "PLUM", "kiwi", "Lime", "date"};
        for (int i = 1; i <= 8; ++i) {
            auto r = Rec(i, i * 10, names[i - 1], 40);
            ASSERT_EQ(h.Insert(r), RM_OK);
        }
    }

    // Positions on record `id` by key 0.
    void At(int id) {
        std::vector<uint8_t> r;
        rmtest::Put32(h.key(), uint32_t(id));
        ASSERT_EQ(h.Get(RM_GET_EQUAL, 0, r), RM_OK);
    }

    Result Run(uint16_t op, ExtDesc d, uint32_t bufLen = 4096, Handle* with = nullptr,
               int8_t keyNum = 0) {
        if (d.fields.empty()) d.fields = {{4, 0}};
        std::vector<uint8_t> desc = d.Bytes();
        std::vector<uint8_t> buf(std::max<size_t>(bufLen, desc.size()));
        std::memcpy(buf.data(), desc.data(), desc.size());
        uint32_t len = bufLen;
        Result res;
        Handle& who = with ? *with : h;
        res.status = who.Call(op, buf.data(), &len, who.key(), keyNum);
        res.untouched = std::equal(desc.begin(), desc.end(), buf.begin()) && len == bufLen;
        bool list = res.status == RM_OK || res.status == RM_END_OF_FILE ||
                    (res.status == RM_RECORD_LOCKED && !res.untouched);
        if (list) {
            size_t at = 2;
            for (int i = 0; i < rmtest::Get16(buf.data()); ++i) {
                uint16_t n = rmtest::Get16(&buf[at]);
                res.addresses.push_back(rmtest::Get32(&buf[at + 2]));
                res.ids.push_back(n >= 4 ? int(rmtest::Get32(&buf[at + 6])) : -1);
                at += 6 + n;
            }
            EXPECT_EQ(len, at);
        }
        return res;
    }

    ExtDesc Desc(bool useCurrent, uint16_t max = 20, uint16_t reject = 0) {
        ExtDesc d;
        d.useCurrent = useCurrent;
        d.max = max;
        d.reject = reject;
        return d;
    }

    rmtest::TempDir dir;
    std::string path = dir.File("ext.dat");
    Handle h;
};

TEST_F(ExtendedTest, UseCurrentOrStartAfterIt) {
    At(3);
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(true, 3)).ids, (std::vector<int>{3, 4, 5}));
    // The currency rests on the last record examined: EG goes on after it,
    // UC examines it again.
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(false, 2)).ids, (std::vector<int>{6, 7}));
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(true, 2)).ids, (std::vector<int>{7, 8}));
    At(3);
    EXPECT_EQ(Run(RM_GET_PREVIOUS_EXTENDED, Desc(false, 5)).ids, (std::vector<int>{2, 1}));
    // Without currency, nothing to continue from.
    Handle fresh;
    ASSERT_EQ(fresh.Open(path), RM_OK);
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(true), 4096, &fresh).status, RM_INVALID_POSITIONING);
    EXPECT_EQ(Run(RM_STEP_NEXT_EXTENDED, Desc(true), 4096, &fresh).status, RM_INVALID_POSITIONING);
    At(2);
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(true), 4096, nullptr, 1).status,
              RM_DIFFERENT_KEY_NUMBER);
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(true), 4096, nullptr, 5).status,
              RM_INVALID_KEY_NUMBER);
}

TEST_F(ExtendedTest, PhysicalOrderAndTheOtherKey) {
    std::vector<uint8_t> r;
    ASSERT_EQ(h.Get(RM_STEP_LAST, 0, r), RM_OK);
    EXPECT_EQ(Run(RM_STEP_PREVIOUS_EXTENDED, Desc(true, 3)).ids, (std::vector<int>{8, 7, 6}));
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(true)).status, RM_INVALID_POSITIONING);
    // qty descending through key 1 after a change puts record 2 last.
    At(2);
    r = Rec(2, 500, "apple", 40);
    ASSERT_EQ(h.Update(r), RM_OK);
    ASSERT_EQ(h.Get(RM_GET_FIRST, 1, r), RM_OK);
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(true), 4096, nullptr, 1).ids,
              (std::vector<int>{1, 3, 4, 5, 6, 7, 8, 2}));
}

TEST_F(ExtendedTest, EndOfFileAndRejectCount) {
    At(1);
    Result all = Run(RM_GET_NEXT_EXTENDED, Desc(true));
    EXPECT_EQ(all.status, RM_END_OF_FILE);  // the end comes with the records found
    EXPECT_EQ(all.ids.size(), 8u);
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, Desc(false)).status, RM_END_OF_FILE);
    // qty >= 60: records 6, 7, 8. Two rejects allowed.
    ExtDesc d = Desc(true, 20, 2);
    d.terms = {Term(RM_TYPE_INTEGER, 2, 4, 5, I16(60))};
    At(1);
    Result first = Run(RM_GET_NEXT_EXTENDED, d);
    EXPECT_EQ(first.status, RM_REJECT_COUNT_REACHED);  // nothing qualified in this call
    EXPECT_TRUE(first.ids.empty());
    At(5);
    Result some = Run(RM_GET_NEXT_EXTENDED, d);
    EXPECT_EQ(some.status, RM_END_OF_FILE);  // 5 rejected, then 6, 7, 8 and the end
    EXPECT_EQ(some.ids, (std::vector<int>{6, 7, 8}));
    // Records found before the count is reached come back with 0.
    d.terms = {Term(RM_TYPE_INTEGER, 2, 4, 3, I16(25))};  // qty < 25: 1 and 2
    At(1);
    Result found = Run(RM_GET_NEXT_EXTENDED, d);
    EXPECT_EQ(found.status, RM_OK);
    EXPECT_EQ(found.ids, (std::vector<int>{1, 2}));
}

TEST_F(ExtendedTest, BufferTooSmallForTheNextRecord) {
    ExtDesc d = Desc(true);
    d.fields = {{24, 0}};  // whole records: 30 bytes an entry
    At(1);
    Result part = Run(RM_GET_NEXT_EXTENDED, d, 2 + 30 * 3 + 29);
    EXPECT_EQ(part.status, RM_OK);
    EXPECT_EQ(part.ids, (std::vector<int>{1, 2, 3}));
    d.useCurrent = false;  // the record that did not fit comes next
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED, d, 2 + 30 * 2).ids, (std::vector<int>{4, 5}));
}

TEST_F(ExtendedTest, TermsAndConnectors) {
    auto ids = [&](std::vector<ExtTerm> terms) {
        ExtDesc d = Desc(true);
        d.terms = std::move(terms);
        At(1);
        return Run(RM_GET_NEXT_EXTENDED, d).ids;
    };
    // Case matters unless asked otherwise.
    EXPECT_EQ(ids({Term(RM_TYPE_STRING, 8, 6, 1, Name("apple"))}), (std::vector<int>{2}));
    ExtTerm ci = Term(RM_TYPE_STRING, 8, 6, 1, Name("apple"));
    ci.noCase = true;
    EXPECT_EQ(ids({ci}), (std::vector<int>{1, 2}));
    ExtTerm lt = Term(RM_TYPE_STRING, 8, 6, 3, Name("b"));
    lt.noCase = true;  // names before "B" ignoring case
    EXPECT_EQ(ids({lt}), (std::vector<int>{1, 2}));
    // Field against field: qty (4) against limit (14), both 2-byte integers.
    ExtTerm ff;
    ff.type = RM_TYPE_INTEGER;
    ff.length = 2;
    ff.offset = 4;
    ff.op = 2;  // qty > limit
    ff.withField = true;
    ff.other = 14;
    EXPECT_EQ(ids({ff}), (std::vector<int>{5, 6, 7, 8}));
    // qty = 10 OR qty = 30 AND name = "Pear" OR qty = 80: AND binds tighter.
    EXPECT_EQ(
        ids({Term(RM_TYPE_INTEGER, 2, 4, 1, I16(10), 2), Term(RM_TYPE_INTEGER, 2, 4, 1, I16(30), 1),
             Term(RM_TYPE_STRING, 8, 6, 1, Name("Pear"), 2),
             Term(RM_TYPE_INTEGER, 2, 4, 1, I16(80))}),
        (std::vector<int>{1, 3, 8}));
    EXPECT_EQ(
        ids({Term(RM_TYPE_INTEGER, 2, 4, 1, I16(10), 2), Term(RM_TYPE_INTEGER, 2, 4, 1, I16(30), 1),
             Term(RM_TYPE_STRING, 8, 6, 1, Name("Fig"))}),
        (std::vector<int>{1}));
    // Not equal, and the zero-extracted-length selection.
    EXPECT_EQ(ids({Term(RM_TYPE_INTEGER, 2, 4, 4, I16(10))}).size(), 7u);
}

TEST_F(ExtendedTest, LockBiasLocksWhatItReturns) {
    Handle other(2);
    ASSERT_EQ(other.Open(path), RM_OK);
    At(1);
    Result r = Run(RM_GET_NEXT_EXTENDED + RM_LOCK_MULTI_NOWAIT, Desc(true, 3));
    ASSERT_EQ(r.ids, (std::vector<int>{1, 2, 3}));
    std::vector<uint8_t> rec;
    for (int id : {1, 2, 3}) {
        rmtest::Put32(other.key(), uint32_t(id));
        EXPECT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_RECORD_LOCKED);
    }
    rmtest::Put32(other.key(), 5);
    ASSERT_EQ(other.Get(RM_GET_EQUAL + RM_LOCK_MULTI_NOWAIT, 0, rec), RM_OK);
    // A record locked elsewhere ends the call with what came before it.
    Result cut = Run(RM_GET_NEXT_EXTENDED + RM_LOCK_MULTI_NOWAIT, Desc(false));
    EXPECT_EQ(cut.status, RM_RECORD_LOCKED);
    EXPECT_EQ(cut.ids, (std::vector<int>{4}));
    // Locked at once: nothing returned, nothing moved, and the descriptor is
    // still in the buffer for the caller to send again.
    Result none = Run(RM_GET_NEXT_EXTENDED + RM_LOCK_MULTI_NOWAIT, Desc(false));
    EXPECT_EQ(none.status, RM_RECORD_LOCKED);
    EXPECT_TRUE(none.untouched);
    uint32_t len = 0;
    ASSERT_EQ(other.Call(RM_UNLOCK, nullptr, &len, other.key(), RM_UNLOCK_ALL_MULTI), RM_OK);
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED + RM_LOCK_MULTI_NOWAIT, Desc(false)).ids,
              (std::vector<int>{5, 6, 7, 8}));
    At(1);  // single-record locks do not mix with the multiple ones held
    EXPECT_EQ(Run(RM_GET_NEXT_EXTENDED + RM_LOCK_SINGLE_NOWAIT, Desc(true)).status,
              RM_INCOMPATIBLE_LOCK);
}

TEST_F(ExtendedTest, MalformedDescriptors) {
    At(1);
    auto status = [&](std::vector<uint8_t> desc, uint32_t bufLen = 4096) {
        desc.resize(std::max<size_t>(desc.size(), bufLen));
        uint32_t len = bufLen;
        return h.Call(RM_GET_NEXT_EXTENDED, desc.data(), &len, h.key(), 0);
    };
    ExtDesc d = Desc(true, 1);
    d.fields = {{4, 0}};
    d.terms = {Term(RM_TYPE_INTEGER, 2, 4, 1, I16(10))};
    std::vector<uint8_t> good = d.Bytes();
    EXPECT_EQ(status(good), RM_OK);  // record 1, and the scan rests on it
    auto bad = good;
    bad[2] = 'X';  // neither "UC" nor "EG"
    EXPECT_EQ(status(bad), RM_INVALID_DESCRIPTOR);
    bad = good;
    bad[0]++;  // the total length disagrees
    EXPECT_EQ(status(bad), RM_INVALID_DESCRIPTOR);
    EXPECT_EQ(status(good, 11), RM_INVALID_DESCRIPTOR);  // shorter than its own length
    bad = good;
    bad[8] = 9;  // unknown type
    EXPECT_EQ(status(bad), RM_INVALID_DESCRIPTOR);
    bad = good;
    bad[8 + 5] = 7;  // unknown comparison
    EXPECT_EQ(status(bad), RM_INVALID_DESCRIPTOR);
    bad = good;
    bad[8 + 6] = 1;  // the last term says AND
    EXPECT_EQ(status(bad), RM_INVALID_DESCRIPTOR);
    bad = good;
    bad[8 + 1] = 3;  // a 3-byte integer
    EXPECT_EQ(status(bad), RM_INVALID_DESCRIPTOR);
    ExtDesc far = d;
    far.terms[0].offset = 23;  // past the 24-byte record
    EXPECT_EQ(status(far.Bytes()), RM_INVALID_FIELD_OFFSET);
    far = d;
    far.fields = {{8, 20}};
    EXPECT_EQ(status(far.Bytes()), RM_INVALID_FIELD_OFFSET);
    ExtDesc none = d;
    none.max = 0;
    EXPECT_EQ(status(none.Bytes()), RM_INVALID_DESCRIPTOR);
    // The scan is where it was: "UC" finds record 1 again.
    EXPECT_EQ(status(good), RM_OK);
}

}  // namespace
