// Indexes added to and removed from a file in use.
#include <algorithm>

#include "recman/engine.h"

namespace recman {

Status Engine::CreateIndex(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (h->readOnly) return RM_ACCESS_DENIED;
    if (!r.data || !r.dataLen) return RM_DATA_BUFFER_TOO_SHORT;
    // Definitions are not part of transactions: they change outside them.
    if (r.client->txn.active) return RM_TRANSACTION_ACTIVE;
    uint8_t b = uint8_t(r.keyNum);
    int number = (b & RM_INDEX_NUMBER_GIVEN) ? (b & 0x7F) : -1;
    return RunWrite(*h, [&](Store& s, FileState& state) -> Status {
        KeyDef key;
        if (Status e = ParseIndexSpec(r.data, r.DataLen(), s.def(), number, key)) return e;
        FileDef d = s.def();
        d.nextIndexId++;
        d.AddKey(key);
        if (Status e = h->env->CreateIndexDb(s.txn(), key.id)) return e;
        if (Status e = h->env->StoreDef(s.txn(), std::move(d), state)) return e;
        // A unique key that meets duplicates fails here and nothing is kept.
        return s.BuildIndex(state, *s.def().FindKey(key.number));
    });
}

Status Engine::DropIndex(Request& r) {
    Status st;
    Handle* h = HandleOf(r, st);
    if (!h) return st;
    if (h->readOnly) return RM_ACCESS_DENIED;
    if (r.client->txn.active) return RM_TRANSACTION_ACTIVE;
    uint8_t b = uint8_t(r.keyNum);
    int number = b & 0x7F;
    bool keepNumbers = b & RM_INDEX_NUMBER_GIVEN;
    return RunWrite(*h, [&](Store& s, FileState& state) -> Status {
        const KeyDef* key = s.def().FindKey(number);
        if (!key) return RM_INVALID_KEY_NUMBER;
        uint16_t id = key->id;
        FileDef d = s.def();
        d.keys.erase(std::remove_if(d.keys.begin(), d.keys.end(),
                                    [&](const KeyDef& k) { return k.id == id; }),
                     d.keys.end());
        if (!keepNumbers)  // the higher keys move down by one
            for (KeyDef& k : d.keys)
                if (k.number > number) k.number--;
        state.unique.erase(
            std::remove_if(state.unique.begin(), state.unique.end(),
                           [&](const std::pair<uint16_t, uint32_t>& u) { return u.first == id; }),
            state.unique.end());
        if (Status e = h->env->DropIndexDb(s.txn(), id)) return e;
        return h->env->StoreDef(s.txn(), std::move(d), state);
    });
}

}  // namespace recman
