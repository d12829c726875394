// A walk through recman: create a customer file with two keys, insert some
// customers, read them back in the order of each key, and show what Stat says.
//
// Usage: recman_walkthrough [directory]   (default: a fresh temporary folder)
#include <dbfile/recman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

// Record layout: number (4-byte integer), name (30 bytes), city (20 bytes).
struct Customer {
    int32_t number;
    char name[30];
    char city[20];
} __attribute__((packed));

const uint8_t kClient[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'D', 'M', 0, 0};

int16_t Call(uint16_t op, uint8_t* pos, void* data, uint32_t* len, void* key, int8_t keyNum) {
    return BTRCALLID(op, pos, data, len, key, 255, keyNum, kClient);
}

void Put16(uint8_t* p, uint16_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}

void Check(int16_t status, const char* what) {
    if (status != RM_OK) {
        std::fprintf(stderr, "%s failed with status %d\n", what, status);
        std::exit(1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string dir = argc > 1 ? argv[1] : "";
    if (dir.empty()) {
        char tmpl[] = "/tmp/recman-walkthrough-XXXXXX";
        dir = mkdtemp(tmpl);
    }
    std::filesystem::create_directories(dir);
    std::string path = dir + "/customers.dat";
    std::printf("recman walkthrough in %s\n\n", dir.c_str());

    // File spec (16 bytes) and three key segments of 16 bytes each.
    uint8_t spec[16 + 3 * 16] = {};
    Put16(spec, sizeof(Customer));  // record length
    Put16(spec + 2, 4096);          // page size
    Put16(spec + 4, 2);             // two keys
    uint8_t* seg = spec + 16;
    // Key 0: the customer number, a unique integer.
    Put16(seg, 1);
    Put16(seg + 2, 4);
    Put16(seg + 4, RM_KEY_EXTENDED_TYPE);
    seg[10] = RM_TYPE_INTEGER;
    seg += 16;
    // Key 1: city then name, duplicates allowed, case-insensitive, modifiable.
    Put16(seg, 35);
    Put16(seg + 2, 20);
    Put16(seg + 4, RM_KEY_EXTENDED_TYPE | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE |
                       RM_KEY_CASE_INSENSITIVE | RM_KEY_SEGMENTED);
    seg[10] = RM_TYPE_ZSTRING;
    seg += 16;
    Put16(seg, 5);
    Put16(seg + 2, 30);
    Put16(seg + 4,
          RM_KEY_EXTENDED_TYPE | RM_KEY_DUPLICATES | RM_KEY_MODIFIABLE | RM_KEY_CASE_INSENSITIVE);
    seg[10] = RM_TYPE_ZSTRING;

    char key[255] = {};
    std::strncpy(key, path.c_str(), sizeof(key) - 1);
    uint32_t len = sizeof(spec);
    Check(Call(RM_CREATE, nullptr, spec, &len, key, RM_CREATE_REPLACE), "Create");
    std::printf("Created %s with two keys: number, and city + name.\n", path.c_str());

    uint8_t pos[RM_POSITION_BLOCK_SIZE] = {};
    len = 0;
    Check(Call(RM_OPEN, pos, nullptr, &len, key, RM_OPEN_NORMAL), "Open");

    const struct {
        int32_t number;
        const char* name;
        const char* city;
    } people[] = {{1042, "Ada Lovelace", "London"},   {7, "Blaise Pascal", "Paris"},
                  {311, "Grace Hopper", "new york"},  {95, "Alan Turing", "London"},
                  {2024, "Emmy Noether", "Erlangen"}, {12, "Marie Curie", "Paris"}};
    for (const auto& p : people) {
        Customer c{};
        c.number = p.number;
        std::strncpy(c.name, p.name, sizeof(c.name) - 1);
        std::strncpy(c.city, p.city, sizeof(c.city) - 1);
        len = sizeof(c);
        Check(Call(RM_INSERT, pos, &c, &len, key, 0), "Insert");
    }
    std::printf("Inserted %zu customers.\n", std::size(people));

    auto walk = [&](int8_t keyNum, const char* title) {
        std::printf("\n%s:\n", title);
        Customer c{};
        len = sizeof(c);
        for (int16_t st = Call(RM_GET_FIRST, pos, &c, &len, key, keyNum); st == RM_OK;
             st = Call(RM_GET_NEXT, pos, &c, &len, key, keyNum)) {
            std::printf("  %5d  %-16s %s\n", c.number, c.name, c.city);
            len = sizeof(c);
        }
    };
    walk(0, "In number order (key 0)");
    walk(1, "In city, then name order, ignoring case (key 1)");

    Customer c{};
    int32_t wanted = 311;
    std::memcpy(key, &wanted, 4);
    len = sizeof(c);
    Check(Call(RM_GET_EQUAL, pos, &c, &len, key, 0), "Get Equal");
    std::printf("\nGet Equal on number 311 finds %s.\n", c.name);

    uint8_t stat[16 + 3 * 16];
    len = sizeof(stat);
    Check(Call(RM_STAT, pos, stat, &len, key, -1), "Stat");
    uint32_t records;
    std::memcpy(&records, stat + 6, 4);
    std::printf("Stat: record length %u, %u keys, %u records; key 1 has %u distinct values.\n",
                unsigned(stat[0] | stat[1] << 8), unsigned(stat[4]), records,
                unsigned(stat[16 + 16 + 6] | stat[16 + 16 + 7] << 8));

    len = 0;
    Check(Call(RM_CLOSE, pos, nullptr, &len, key, 0), "Close");
    std::printf("Closed. The file stays in %s.\n", dir.c_str());
    return 0;
}
