#include "model.h"

#include <dbfile/recman.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <tuple>

namespace rmmodel {

namespace {

template <class T>
int Cmp(const T& a, const T& b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

uint8_t Fold(uint8_t c) {
    if (c >= 'a' && c <= 'z') return uint8_t(c - 'a' + 'A');
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return uint8_t(c - 0x20);
    return c;
}

int64_t Signed(const uint8_t* p, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i)
        v |= uint64_t(p[i]) << (8 * i);
    if (n < 8 && (v >> (8 * n - 1)) & 1) v |= ~uint64_t(0) << (8 * n);
    return int64_t(v);
}

double Float(const uint8_t* p, int n) {
    if (n == 4) {
        float f;
        std::memcpy(&f, p, 4);
        return f;
    }
    double d;
    std::memcpy(&d, p, 8);
    return d;
}

std::string Text(const uint8_t* p, size_t n, bool ci) {
    std::string s(reinterpret_cast<const char*>(p), n);
    if (ci)
        for (char& c : s)
            c = char(Fold(uint8_t(c)));
    return s;
}

// A packed decimal as (negative, digits); zero is never negative.
std::pair<bool, std::string> Decimal(const uint8_t* p, int n) {
    std::string digits;
    for (int i = 0; i < 2 * n - 1; ++i)
        digits.push_back(char(i % 2 == 0 ? p[i / 2] >> 4 : p[i / 2] & 0x0F));
    uint8_t sign = p[n - 1] & 0x0F;
    bool neg = (sign == 0x0D || sign == 0x0B) &&
               std::any_of(digits.begin(), digits.end(), [](char d) { return d != 0; });
    return {neg, digits};
}

}  // namespace

int CompareSegment(const Seg& s, const uint8_t* a, const uint8_t* b) {
    int n = s.len;
    switch (s.kind) {
        case RM_TYPE_INTEGER:
        case RM_TYPE_AUTOINCREMENT:
            return Cmp(Signed(a, n), Signed(b, n));
        case RM_TYPE_FLOAT:
            return Cmp(Float(a, n), Float(b, n));
        case RM_TYPE_DATE:
            return Cmp(std::make_tuple(a[2] | a[3] << 8, a[1], a[0]),
                       std::make_tuple(b[2] | b[3] << 8, b[1], b[0]));
        case RM_TYPE_TIME:
            return Cmp(std::make_tuple(a[3], a[2], a[1], a[0]),
                       std::make_tuple(b[3], b[2], b[1], b[0]));
        case RM_TYPE_DECIMAL:
        case RM_TYPE_MONEY: {
            auto x = Decimal(a, n), y = Decimal(b, n);
            if (x.first != y.first) return x.first ? -1 : 1;
            int c = Cmp(x.second, y.second);
            return x.first ? -c : c;
        }
        case RM_TYPE_LOGICAL:
        case RM_TYPE_UNSIGNED_BINARY:
            for (int i = n - 1; i >= 0; --i)
                if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
            return 0;
        case RM_TYPE_LSTRING:
            return Cmp(Text(a + 1, std::min<int>(a[0], n - 1), s.ci),
                       Text(b + 1, std::min<int>(b[0], n - 1), s.ci));
        case RM_TYPE_ZSTRING:
            return Cmp(Text(a, strnlen(reinterpret_cast<const char*>(a), n), s.ci),
                       Text(b, strnlen(reinterpret_cast<const char*>(b), n), s.ci));
        default:
            return Cmp(Text(a, n, s.ci), Text(b, n, s.ci));
    }
}

const Key* Model::Find(int number) const {
    for (const Key& k : keys)
        if (k.number == number) return &k;
    return nullptr;
}

const Key* Model::ById(int id) const {
    for (const Key& k : keys)
        if (k.id == id) return &k;
    return nullptr;
}

std::vector<uint8_t> Model::KeyOf(const Key& k, const std::vector<uint8_t>& data) const {
    std::vector<uint8_t> out;
    for (const Seg& s : k.segs)
        out.insert(out.end(), &data[s.off], &data[s.off] + s.len);
    return out;
}

bool Model::Excluded(const Key& k, const std::vector<uint8_t>& data) const {
    size_t nulls = 0;
    for (const Seg& s : k.segs)
        if (std::all_of(&data[s.off], &data[s.off] + s.len,
                        [&](uint8_t b) { return b == s.nullValue; }))
            ++nulls;
    if (k.manual && nulls > 0) return true;
    return k.nullKey && nulls == k.segs.size();
}

int Model::CompareKey(const Key& k, const uint8_t* a, const uint8_t* b) const {
    size_t at = 0;
    for (const Seg& s : k.segs) {
        int c = CompareSegment(s, a + at, b + at);
        if (s.desc) c = -c;
        if (c) return c;
        at += s.len;
    }
    return 0;
}

int Model::CompareEntry(const Key& k, const std::vector<uint8_t>& ka, uint64_t sa,
                        const std::vector<uint8_t>& kb, uint64_t sb) const {
    int c = CompareKey(k, ka.data(), kb.data());
    if (c || !k.dup) return c;
    return Cmp(sa, sb);
}

std::vector<uint32_t> Model::Ordered(const Key& k) const {
    std::vector<uint32_t> out;
    for (auto& [a, r] : recs)
        if (!Excluded(k, r.data)) out.push_back(a);
    std::sort(out.begin(), out.end(), [&](uint32_t x, uint32_t y) {
        const Rec& rx = recs.at(x);
        const Rec& ry = recs.at(y);
        return CompareEntry(k, KeyOf(k, rx.data), k.dup ? rx.seq.at(k.id) : 0, KeyOf(k, ry.data),
                            k.dup ? ry.seq.at(k.id) : 0) < 0;
    });
    return out;
}

uint32_t Model::Unique(const Key& k) const {
    std::vector<std::vector<uint8_t>> values;
    for (uint32_t a : Ordered(k)) {
        auto v = KeyOf(k, recs.at(a).data);
        if (values.empty() || CompareKey(k, values.back().data(), v.data()) != 0)
            values.push_back(v);
    }
    return uint32_t(values.size());
}

Answer Model::Deliver(Handle& h, uint32_t addr, const Key* path, bool keyOnly, uint32_t bufLen,
                      uint8_t* key) {
    const Rec& r = recs.at(addr);
    Answer a;
    if (!keyOnly) {
        uint32_t n = std::min<uint32_t>(bufLen, uint32_t(r.data.size()));
        a.data.assign(r.data.begin(), r.data.begin() + n);
        a.dataLen = n;
        if (n < r.data.size()) a.status = RM_DATA_BUFFER_TOO_SHORT;
    }
    if (path) {
        auto kv = KeyOf(*path, r.data);
        std::memcpy(key, kv.data(), kv.size());
    }
    Place(h, path, addr);
    return a;
}

void Model::Place(Handle& h, const Key* path, uint32_t addr) const {
    const Rec& r = recs.at(addr);
    h.lg = path && !Excluded(*path, r.data) ? P::On : P::None;
    if (h.lg == P::On) {
        h.keyId = path->id;
        h.key = KeyOf(*path, r.data);
        h.seq = path->dup ? r.seq.at(path->id) : 0;
    }
    h.ph = P::On;
    h.addr = addr;
    h.version = r.version;
}

Answer Model::Get(Handle& h, int op, int keyNum, bool keyOnly, uint32_t bufLen, uint8_t* key) {
    Answer a;
    const Key* k = Find(keyNum);
    if (!k) return {RM_INVALID_KEY_NUMBER};
    bool step = op == RM_GET_NEXT || op == RM_GET_PREVIOUS;
    if (step && h.lg == P::None) return {RM_INVALID_POSITIONING};
    if (step && h.keyId != k->id) return {RM_DIFFERENT_KEY_NUMBER};
    std::vector<uint32_t> order = Ordered(*k);
    auto cmpKey = [&](uint32_t addr) {
        return CompareKey(*k, KeyOf(*k, recs.at(addr).data).data(), key);
    };
    auto cmpPos = [&](uint32_t addr) {
        const Rec& r = recs.at(addr);
        return CompareEntry(*k, KeyOf(*k, r.data), k->dup ? r.seq.at(k->id) : 0, h.key, h.seq);
    };
    long found = -1, n = long(order.size());
    auto first = [&](auto pred) {
        for (long i = 0; i < n; ++i)
            if (pred(order[i])) return i;
        return -1L;
    };
    auto last = [&](auto pred) {
        for (long i = n - 1; i >= 0; --i)
            if (pred(order[i])) return i;
        return -1L;
    };
    switch (op) {
        case RM_GET_EQUAL:
            found = first([&](uint32_t x) { return cmpKey(x) == 0; });
            break;
        case RM_GET_GREATER:
            found = first([&](uint32_t x) { return cmpKey(x) > 0; });
            break;
        case RM_GET_GREATER_OR_EQUAL:
            found = first([&](uint32_t x) { return cmpKey(x) >= 0; });
            break;
        case RM_GET_LESS:
            found = last([&](uint32_t x) { return cmpKey(x) < 0; });
            break;
        case RM_GET_LESS_OR_EQUAL:
            found = last([&](uint32_t x) { return cmpKey(x) <= 0; });
            break;
        case RM_GET_FIRST:
            found = n ? 0 : -1;
            break;
        case RM_GET_LAST:
            found = n - 1;
            break;
        case RM_GET_NEXT:
            found = h.lg == P::Before ? first([&](uint32_t x) { return cmpPos(x) >= 0; })
                                      : first([&](uint32_t x) { return cmpPos(x) > 0; });
            break;
        default:
            found = h.lg == P::After ? last([&](uint32_t x) { return cmpPos(x) <= 0; })
                                     : last([&](uint32_t x) { return cmpPos(x) < 0; });
            break;
    }
    if (found < 0) {
        if (step) {
            h.lg = op == RM_GET_NEXT ? P::After : P::Before;
            h.ph = P::None;
        }
        return {op == RM_GET_EQUAL ? RM_KEY_NOT_FOUND : RM_END_OF_FILE};
    }
    return Deliver(h, order[found], k, keyOnly, bufLen, key);
}

Answer Model::Step(Handle& h, int op, uint32_t bufLen) {
    bool next = op == RM_STEP_NEXT, prev = op == RM_STEP_PREVIOUS;
    if ((next || prev) && h.ph == P::None) return {RM_INVALID_POSITIONING};
    std::vector<uint32_t> addrs;
    for (auto& [a, r] : recs)
        addrs.push_back(a);
    long found = -1, n = long(addrs.size());
    if (op == RM_STEP_FIRST) {
        found = n ? 0 : -1;
    } else if (op == RM_STEP_LAST) {
        found = n - 1;
    } else if (next) {
        for (long i = 0; i < n && found < 0; ++i)
            if (h.ph == P::Before ? addrs[i] >= h.addr : addrs[i] > h.addr) found = i;
    } else {
        for (long i = n - 1; i >= 0 && found < 0; --i)
            if (h.ph == P::After ? addrs[i] <= h.addr : addrs[i] < h.addr) found = i;
    }
    if (found < 0) {
        if (next || prev) {
            h.ph = next ? P::After : P::Before;
            h.lg = P::None;
        }
        return {RM_END_OF_FILE};
    }
    return Deliver(h, addrs[found], nullptr, false, bufLen, nullptr);
}

Answer Model::Direct(Handle& h, uint32_t address, int keyNum, uint32_t bufLen, uint8_t* key) {
    if (bufLen < 4) return {RM_DATA_BUFFER_TOO_SHORT};
    const Key* k = Find(keyNum);
    if (!k) return {RM_INVALID_KEY_NUMBER};
    auto it = recs.find(address);
    if (it == recs.end()) return {RM_INVALID_RECORD_ADDRESS};
    return Deliver(h, address, Excluded(*k, it->second.data) ? nullptr : k, false, bufLen, key);
}

Answer Model::Position(const Handle& h) const {
    if (h.ph != P::On) return {RM_INVALID_POSITIONING};
    Answer a;
    a.data.resize(4);
    std::memcpy(a.data.data(), &h.addr, 4);
    a.dataLen = 4;
    return a;
}

Answer Model::Insert(Handle& h, std::vector<uint8_t> data, int keyNum, uint8_t* key) {
    if (data.size() < recLen) return {RM_DATA_BUFFER_TOO_SHORT};
    if (var && data.size() > RM_MAX_RECORD_LENGTH) return {RM_INVALID_RECORD_LENGTH};
    if (!var) data.resize(recLen);
    const Key* path = nullptr;
    if (keyNum != -1 && !(path = Find(keyNum))) return {RM_INVALID_KEY_NUMBER};
    for (const Key& k : keys) {
        if (k.autoSeg < 0) continue;
        const Seg& s = k.segs[k.autoSeg];
        if (Signed(&data[s.off], s.len) != 0) continue;
        int64_t high = 0;
        for (auto& [a, r] : recs)
            high = std::max(high, Signed(&r.data[s.off], s.len));
        int64_t next = high + 1;
        for (int i = 0; i < s.len; ++i)
            data[s.off + i] = uint8_t(uint64_t(next) >> (8 * i));
    }
    for (const Key& k : keys) {
        if (k.dup || Excluded(k, data)) continue;
        auto kv = KeyOf(k, data);
        for (auto& [a, r] : recs)
            if (!Excluded(k, r.data) && CompareKey(k, KeyOf(k, r.data).data(), kv.data()) == 0)
                return {RM_DUPLICATE_KEY};
    }
    Rec r;
    r.data = data;
    for (const Key& k : keys)
        if (k.dup && !Excluded(k, data)) r.seq[k.id] = nextSeq++;
    uint32_t addr = nextAddr++;
    recs[addr] = r;
    if (path) {
        auto kv = KeyOf(*path, data);
        std::memcpy(key, kv.data(), kv.size());
    }
    Place(h, path, addr);
    Answer a;
    a.data = data;  // autoincrement values come back in the caller's buffer
    a.dataLen = uint32_t(data.size());
    return a;
}

Answer Model::Update(Handle& h, std::vector<uint8_t> data, int keyNum, uint8_t* key) {
    if (h.ph != P::On) return {RM_INVALID_POSITIONING};
    if (data.size() < recLen) return {RM_DATA_BUFFER_TOO_SHORT};
    if (var && data.size() > RM_MAX_RECORD_LENGTH) return {RM_INVALID_RECORD_LENGTH};
    if (!var) data.resize(recLen);
    const Key* path = nullptr;
    if (keyNum != -1) {
        if (!(path = Find(keyNum))) return {RM_INVALID_KEY_NUMBER};
    } else if (h.lg != P::None) {
        path = ById(h.keyId);
    }
    auto it = recs.find(h.addr);
    if (it == recs.end() || it->second.version != h.version) return {RM_CONFLICT};
    Rec& old = it->second;
    std::vector<bool> moved(keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        const Key& k = keys[i];
        auto ko = KeyOf(k, old.data), kn = KeyOf(k, data);
        if (!k.mod && ko != kn) return {RM_MODIFIABLE_KEY_CHANGED};
        bool oldOut = Excluded(k, old.data), newOut = Excluded(k, data);
        moved[i] = oldOut != newOut || CompareKey(k, ko.data(), kn.data()) != 0;
        if (moved[i] && !newOut && !k.dup)
            for (auto& [a, r] : recs)
                if (a != h.addr && !Excluded(k, r.data) &&
                    CompareKey(k, KeyOf(k, r.data).data(), kn.data()) == 0)
                    return {RM_DUPLICATE_KEY};
    }
    for (size_t i = 0; i < keys.size(); ++i) {
        const Key& k = keys[i];
        if (!k.dup) continue;
        if (Excluded(k, data))
            old.seq.erase(k.id);
        else if (moved[i])
            old.seq[k.id] = nextSeq++;  // last among its new duplicates
    }
    old.data = data;
    old.version++;
    if (path && keyNum != -1) {
        auto kv = KeyOf(*path, data);
        std::memcpy(key, kv.data(), kv.size());
    }
    if (path) Place(h, path, h.addr);  // without one the logical place stays as it was
    h.version = old.version;
    return {};
}

Answer Model::Delete(Handle& h) {
    if (h.ph != P::On) return {RM_INVALID_POSITIONING};
    auto it = recs.find(h.addr);
    if (it == recs.end() || it->second.version != h.version) return {RM_CONFLICT};
    recs.erase(it);
    if (h.lg == P::On) h.lg = P::Gone;
    h.ph = P::Gone;
    return {};
}

Answer Model::CreateIndex(Key key, int number) {
    if (number < 0)
        for (number = 0; Find(number); ++number) {
        }
    if (Find(number)) return {RM_INVALID_KEY_NUMBER};
    key.number = number;
    key.id = nextIndexId;
    if (!key.dup) {
        std::vector<std::vector<uint8_t>> seen;
        for (auto& [a, r] : recs) {
            if (Excluded(key, r.data)) continue;
            auto kv = KeyOf(key, r.data);
            for (auto& other : seen)
                if (CompareKey(key, other.data(), kv.data()) == 0) return {RM_DUPLICATE_KEY};
            seen.push_back(kv);
        }
    }
    ++nextIndexId;
    if (key.dup)
        for (auto& [a, r] : recs)
            if (!Excluded(key, r.data)) r.seq[key.id] = nextSeq++;
    keys.push_back(key);
    std::sort(keys.begin(), keys.end(),
              [](const Key& a, const Key& b) { return a.number < b.number; });
    return {};
}

Answer Model::DropIndex(int number, bool keep) {
    auto it =
        std::find_if(keys.begin(), keys.end(), [&](const Key& k) { return k.number == number; });
    if (it == keys.end()) return {RM_INVALID_KEY_NUMBER};
    int id = it->id;
    keys.erase(it);
    if (!keep)
        for (Key& k : keys)
            if (k.number > number) k.number--;
    for (auto& [a, r] : recs)
        r.seq.erase(id);
    return {};
}

std::vector<uint8_t> ExtDesc::Bytes() const {
    std::vector<uint8_t> b(8);
    auto put16 = [&](uint16_t v) {
        b.push_back(uint8_t(v));
        b.push_back(uint8_t(v >> 8));
    };
    b[2] = useCurrent ? 'U' : 'E';
    b[3] = useCurrent ? 'C' : 'G';
    b[4] = uint8_t(reject);
    b[5] = uint8_t(reject >> 8);
    b[6] = uint8_t(terms.size());
    b[7] = uint8_t(terms.size() >> 8);
    for (const ExtTerm& t : terms) {
        b.push_back(t.type);
        put16(t.length);
        put16(t.offset);
        b.push_back(uint8_t(t.op + (t.withField ? 64 : 0) + (t.noCase ? 128 : 0)));
        b.push_back(uint8_t(t.connector));
        if (t.withField)
            put16(t.other);
        else
            b.insert(b.end(), t.value.begin(), t.value.end());
    }
    put16(max);
    put16(uint16_t(fields.size()));
    for (auto& [len, off] : fields) {
        put16(len);
        put16(off);
    }
    b[0] = uint8_t(b.size());
    b[1] = uint8_t(b.size() >> 8);
    return b;
}

bool Model::Qualifies(const ExtDesc& d, const std::vector<uint8_t>& rec) const {
    if (d.terms.empty()) return true;
    // OR of AND-groups: split at every OR.
    std::vector<std::vector<bool>> groups(1);
    for (const ExtTerm& t : d.terms) {
        Seg s;
        s.len = t.length;
        s.kind = t.type;
        s.ci = t.noCase && (t.type == 0 || t.type == RM_TYPE_LSTRING || t.type == RM_TYPE_ZSTRING);
        const uint8_t* right = t.withField ? &rec[t.other] : t.value.data();
        int c = CompareSegment(s, &rec[t.offset], right);
        bool holds = t.op == 1   ? c == 0
                     : t.op == 2 ? c > 0
                     : t.op == 3 ? c < 0
                     : t.op == 4 ? c != 0
                     : t.op == 5 ? c >= 0
                                 : c <= 0;
        groups.back().push_back(holds);
        if (t.connector == 2) groups.emplace_back();
    }
    for (auto& g : groups)
        if (std::all_of(g.begin(), g.end(), [](bool x) { return x; })) return true;
    return false;
}

Answer Model::Extended(Handle& h, bool physical, bool forward, int keyNum, const ExtDesc& d,
                       uint32_t bufLen, const LockFn& lock) {
    const Key* k = nullptr;
    if (!physical) {
        if (!(k = Find(keyNum))) return {RM_INVALID_KEY_NUMBER};
        if (h.lg == P::None) return {RM_INVALID_POSITIONING};
        if (h.keyId != k->id) return {RM_DIFFERENT_KEY_NUMBER};
    } else if (h.ph == P::None) {
        return {RM_INVALID_POSITIONING};
    }
    // The candidates in scan order, and where the scan starts among them.
    std::vector<uint32_t> order;
    if (physical)
        for (auto& [a, r] : recs)
            order.push_back(a);
    else
        order = Ordered(*k);
    if (!forward) std::reverse(order.begin(), order.end());
    auto cmp = [&](uint32_t a) {  // candidate against the handle's position, in scan order
        int c;
        if (physical) {
            c = a < h.addr ? -1 : a > h.addr ? 1 : 0;
        } else {
            const Rec& r = recs.at(a);
            c = CompareEntry(*k, KeyOf(*k, r.data), k->dup ? r.seq.at(k->id) : 0, h.key, h.seq);
        }
        return forward ? c : -c;
    };
    P pos = physical ? h.ph : h.lg;
    bool atOrPast = d.useCurrent && pos == P::On;
    if ((forward && pos == P::Before) || (!forward && pos == P::After)) atOrPast = true;
    size_t i = 0;
    while (i < order.size() && (atOrPast ? cmp(order[i]) < 0 : cmp(order[i]) <= 0))
        ++i;

    uint32_t extract = 0;
    for (auto& f : d.fields)
        extract += f.first;
    Answer a;
    a.data.assign(2, 0);
    int found = 0, rejected = 0;
    long last = -1;
    a.status = RM_END_OF_FILE;
    for (; i < order.size(); ++i) {
        const Rec& r = recs.at(order[i]);
        if (Qualifies(d, r.data)) {
            if (a.data.size() + 6 + extract > bufLen) {
                a.status = 0;
                break;
            }
            if (int ls = lock(order[i])) {
                if (found == 0) return {ls};
                a.status = ls;
                break;
            }
            a.data.push_back(uint8_t(extract));
            a.data.push_back(uint8_t(extract >> 8));
            for (int b = 0; b < 4; ++b)
                a.data.push_back(uint8_t(order[i] >> (8 * b)));
            for (auto& [len, off] : d.fields)
                a.data.insert(a.data.end(), r.data.begin() + off, r.data.begin() + off + len);
            ++found;
        } else {
            ++rejected;
        }
        last = long(i);
        if (found == d.max) {
            a.status = 0;
            break;
        }
        if (d.reject && rejected >= d.reject) {
            a.status = found ? 0 : RM_REJECT_COUNT_REACHED;
            break;
        }
    }
    if (last >= 0) Place(h, k, order[size_t(last)]);
    a.data[0] = uint8_t(found);
    a.data[1] = uint8_t(found >> 8);
    a.dataLen = uint32_t(a.data.size());
    return a;
}

}  // namespace rmmodel
