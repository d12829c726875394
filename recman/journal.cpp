#include "recman/journal.h"

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <random>

#include "recman/bytes.h"

namespace recman {

namespace {

constexpr uint32_t kBodyMagic = 0x314A4D52;    // "RMJ1"
constexpr uint32_t kRecordMagic = 0x434A4D52;  // "RMJC"
constexpr uint16_t kVersion = 1;
constexpr uint16_t kMaxFiles = 4096;
constexpr uint8_t kCopyFlag = 0x01;

// CRC-64 with the ECMA-182 polynomial, bit-reflected (as xz uses it).
struct CrcTable {
    uint64_t t[256];
    CrcTable() {
        for (uint64_t i = 0; i < 256; ++i) {
            uint64_t c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? (c >> 1) ^ 0xC96C5795D7870F42ULL : c >> 1;
            t[i] = c;
        }
    }
};

void PutText(ByteWriter& w, const std::string& s) {
    w.U16(uint16_t(s.size()));
    w.Bytes(s.data(), s.size());
}

bool GetText(ByteReader& r, std::string& s) {
    uint16_t n;
    if (!r.U16(n) || r.left() < n) return false;
    s.resize(n);
    return r.Bytes(s.data(), n);
}

}  // namespace

uint64_t Crc64(const void* p, size_t n, uint64_t crc) {
    static const CrcTable table;
    const uint8_t* b = static_cast<const uint8_t*>(p);
    crc = ~crc;
    for (size_t i = 0; i < n; ++i)
        crc = table.t[(crc ^ b[i]) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

JournalId NewJournalId() {
    // Seeded once per process; the process id, the clock and a counter make
    // ids of processes that forked from one another differ too.
    static std::mt19937_64 rng(std::random_device{}());
    static std::atomic<uint64_t> counter{0};
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    JournalId id;
    StoreLe64(id.data(), rng() ^ (uint64_t(::getpid()) << 32) ^ counter.fetch_add(1));
    StoreLe64(id.data() + 8, (uint64_t(ts.tv_sec) << 30) ^ uint64_t(ts.tv_nsec) ^ rng());
    return id;
}

std::string EncodeJournalBody(const Journal& j) {
    ByteWriter w;
    w.U32(kBodyMagic);
    w.U16(kVersion);
    w.U16(0);
    w.Bytes(j.id.data(), j.id.size());
    w.U16(uint16_t(j.files.size()));
    for (const JournalFile& f : j.files) {
        w.U8(f.copy ? kCopyFlag : 0);
        PutText(w, f.rel);
        PutText(w, f.up);
        w.U64(f.baseTxn);
        PutText(w, f.baseState);
        w.U32(uint32_t(f.changes.size()));
        w.Bytes(f.changes.data(), f.changes.size());
    }
    std::string body = w.str();
    uint8_t crc[8];
    StoreLe64(crc, Crc64(body.data(), body.size()));
    body.append(reinterpret_cast<char*>(crc), 8);
    return body;
}

std::string EncodeCommitRecord(const JournalId& id, const std::string& body) {
    ByteWriter w;
    w.U32(kRecordMagic);
    w.Bytes(id.data(), id.size());
    w.U32(uint32_t(body.size()));
    w.U64(Crc64(body.data(), body.size()));
    std::string rec = w.str();
    w.U64(Crc64(rec.data(), rec.size()));
    return w.str();
}

JournalState DecodeJournal(const uint8_t* p, size_t n, Journal& out) {
    if (n >= sizeof(kRetiredMark) && std::memcmp(p, kRetiredMark, sizeof(kRetiredMark)) == 0)
        return JournalState::Retired;
    ByteReader r(p, n);
    uint32_t magic;
    uint16_t version, flags, count;
    Journal j;
    if (!r.U32(magic) || magic != kBodyMagic || !r.U16(version) || version != kVersion ||
        !r.U16(flags) || !r.Bytes(j.id.data(), j.id.size()) || !r.U16(count) || count == 0 ||
        count > kMaxFiles)
        return JournalState::Unreadable;
    for (uint16_t i = 0; i < count; ++i) {
        JournalFile f;
        uint8_t fileFlags;
        uint32_t len;
        if (!r.U8(fileFlags) || !GetText(r, f.rel) || !GetText(r, f.up) || !r.U64(f.baseTxn) ||
            !GetText(r, f.baseState) || !r.U32(len) || r.left() < len)
            return JournalState::Unreadable;
        f.copy = fileFlags & kCopyFlag;
        f.changes.resize(len);
        r.Bytes(f.changes.data(), len);
        j.files.push_back(std::move(f));
    }
    size_t bodyLen = n - r.left();
    uint64_t crc;
    if (!r.U64(crc) || crc != Crc64(p, bodyLen)) return JournalState::Unreadable;
    bodyLen += 8;
    out = std::move(j);

    // The commit record, right after the body and naming it.
    if (r.left() < kCommitRecordSize) return JournalState::Uncommitted;
    const uint8_t* rec = p + bodyLen;
    JournalId id;
    uint32_t len;
    uint64_t bodyCrc, recCrc;
    if (!r.U32(magic) || !r.Bytes(id.data(), id.size()) || !r.U32(len) || !r.U64(bodyCrc) ||
        !r.U64(recCrc))
        return JournalState::Uncommitted;
    if (magic != kRecordMagic || id != out.id || len != bodyLen || bodyCrc != Crc64(p, bodyLen) ||
        recCrc != Crc64(rec, kCommitRecordSize - 8))
        return JournalState::Uncommitted;
    return JournalState::Committed;
}

void AppendChange(std::string& out, const Change& c) {
    ByteWriter w;
    w.U8(c.put ? 1 : 2);
    w.U8(uint8_t(c.db));
    w.U16(c.index);
    w.U16(c.keyLen);
    w.Bytes(c.key, c.keyLen);
    if (c.put) {
        w.U32(c.valueLen);
        w.Bytes(c.value, c.valueLen);
    }
    out += w.str();
}

bool ChangeReader::Next(Change& c) {
    if (!ok_ || at_ == s_.size()) return false;
    ByteReader r(s_.data() + at_, s_.size() - at_);
    uint8_t op, db;
    ok_ = r.U8(op) && (op == 1 || op == 2) && r.U8(db) && db <= uint8_t(ChangeDb::Index) &&
          r.U16(c.index) && r.U16(c.keyLen) && r.left() >= c.keyLen;
    if (!ok_) return false;
    c.put = op == 1;
    c.db = ChangeDb(db);
    size_t at = at_ + (s_.size() - at_ - r.left());
    c.key = reinterpret_cast<const uint8_t*>(s_.data()) + at;
    at += c.keyLen;
    c.value = nullptr;
    c.valueLen = 0;
    if (c.put) {
        ByteReader v(s_.data() + at, s_.size() - at);
        ok_ = v.U32(c.valueLen) && v.left() >= c.valueLen;
        if (!ok_) return false;
        c.value = reinterpret_cast<const uint8_t*>(s_.data()) + at + 4;
        at += 4 + size_t(c.valueLen);
    }
    at_ = at;
    return true;
}

}  // namespace recman
