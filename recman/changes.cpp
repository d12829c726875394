#include "recman/changes.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <tuple>
#include <vector>

#include "recman/bytes.h"
#include "recman/fileenv.h"
#include "recman/guard.h"
#include "recman/recman.h"
#include "recman/status.h"
#include "recman/store.h"

namespace recman {

namespace {

constexpr char kStateKey[] = "state";

Table DbOf(FileEnv& env, ChangeDb db, uint16_t index) {
    switch (db) {
        case ChangeDb::Meta:
            return env.meta();
        case ChangeDb::Records:
            return env.records();
        case ChangeDb::Index:
            return env.Index(index);
    }
    return {};
}

struct Noted {
    ChangeDb db;
    uint16_t index;
    std::string_view key;
    bool operator<(const Noted& o) const {
        return std::tie(db, index, key) < std::tie(o.db, o.index, o.key);
    }
    bool operator==(const Noted& o) const { return db == o.db && index == o.index && key == o.key; }
};

// A change that a transaction could have written: the counters in the meta
// database, a record under a 4-byte address, an entry of a known index.
bool Plausible(FileEnv& env, const Change& c) {
    switch (c.db) {
        case ChangeDb::Meta: {
            if (c.keyLen != sizeof(kStateKey) - 1 || std::memcmp(c.key, kStateKey, c.keyLen) != 0)
                return false;
            FileState s;
            return c.put && s.Deserialize(c.value, c.valueLen);
        }
        case ChangeDb::Records: {
            if (c.keyLen != 4) return false;
            StoredRecord r;
            return !c.put || DecodeRecord(ValOf(c.value, c.valueLen), LoadLe32(c.key), r,
                                          env.def().Checksummed());
        }
        case ChangeDb::Index:
            return c.keyLen > 0 && c.keyLen <= kMaxEntry && bool(env.Index(c.index)) &&
                   (!c.put || c.valueLen >= 4);
    }
    return false;
}

}  // namespace

void ChangeSet::Note(ChangeDb db, uint16_t index, const void* key, size_t n) {
    uint8_t head[5];
    head[0] = uint8_t(db);
    StoreLe16(head + 1, index);
    StoreLe16(head + 3, uint16_t(n));
    notes_.append(reinterpret_cast<char*>(head), 5);
    notes_.append(static_cast<const char*>(key), n);
}

Status ChangeSet::Collect(FileEnv& env, Txn txn, std::string& out) const {
    std::vector<Noted> keys;
    const uint8_t* p = reinterpret_cast<const uint8_t*>(notes_.data());
    for (size_t at = 0; at + 5 <= notes_.size();) {
        uint16_t n = LoadLe16(p + at + 3);
        keys.push_back(
            {ChangeDb(p[at]), LoadLe16(p + at + 1), std::string_view(notes_.data() + at + 5, n)});
        at += 5 + size_t(n);
    }
    // A key written many times counts once, with the value it ended with.
    std::sort(keys.begin(), keys.end());
    keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
    for (const Noted& k : keys) {
        Table table = DbOf(env, k.db, k.index);
        if (!table) return RM_IO_ERROR;
        Val key = ValOf(k.key.data(), k.key.size()), val;
        int rc = txn.Get(table, &key, &val);
        if (rc != 0 && rc != MDB_NOTFOUND) return StatusOf(rc);
        Change c;
        c.put = rc == 0;
        c.db = k.db;
        c.index = k.index;
        c.key = reinterpret_cast<const uint8_t*>(k.key.data());
        c.keyLen = uint16_t(k.key.size());
        if (c.put) {
            c.value = static_cast<const uint8_t*>(val.mv_data);
            c.valueLen = uint32_t(val.mv_size);
        }
        AppendChange(out, c);
    }
    return RM_OK;
}

Status ReplayChanges(FileEnv& env, Txn txn, const std::string& changes) {
    ChangeReader reader(changes);
    Change c;
    while (reader.Next(c)) {
        if (!Plausible(env, c)) return RM_IO_ERROR;
        Table table = DbOf(env, c.db, c.index);
        Val key = ValOf(c.key, c.keyLen);
        int rc;
        if (c.put) {
            Val val = ValOf(c.value, c.valueLen);
            rc = txn.Put(table, &key, &val, 0);
        } else {
            rc = txn.Del(table, &key);
            if (rc == MDB_NOTFOUND) rc = 0;  // written and removed again inside the transaction
        }
        if (rc != 0) return rc == MDB_BAD_VALSIZE ? RM_IO_ERROR : StatusOf(rc);
    }
    return reader.ok() ? RM_OK : RM_IO_ERROR;
}

}  // namespace recman
