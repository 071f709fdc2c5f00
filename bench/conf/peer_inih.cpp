// inih hands each pair to a callback and keeps nothing. It takes part twice: with a callback that only counts, and
// with one that keeps the pairs in the simplest way a C program would, one block a pair in a list.
#include <ini.h>

#include <cstdlib>
#include <cstring>

#include "peers.h"

namespace bench {
namespace {

int count_pair(void *user, const char *, const char *, const char *) {
    ++*static_cast<size_t *>(user);
    return 1;
}

void parse_and_count(const char *path) {
    size_t pairs = 0;
    ini_parse(path, count_pair, &pairs);
}

// Section, key and value follow it in its block, each with its NUL.
struct Node {
    Node *next;
};

struct List {
    Node *first = nullptr;
    Node **end = &first;
};

int keep_pair(void *user, const char *section, const char *key, const char *value) {
    auto &list = *static_cast<List *>(user);
    const size_t section_size = std::strlen(section) + 1;
    const size_t key_size = std::strlen(key) + 1;
    const size_t value_size = std::strlen(value) + 1;
    auto *node = static_cast<Node *>(std::malloc(sizeof(Node) + section_size + key_size + value_size));
    node->next = nullptr;
    auto *text = reinterpret_cast<char *>(node + 1);
    std::memcpy(text, section, section_size);
    std::memcpy(text + section_size, key, key_size);
    std::memcpy(text + section_size + key_size, value, value_size);
    *list.end = node;
    list.end = &node->next;
    return 1;
}

void parse_and_keep(const char *path) {
    List list;
    ini_parse(path, keep_pair, &list);
    for (Node *node = list.first; node != nullptr;) {
        Node *next = node->next;
        std::free(node);
        node = next;
    }
}

struct KeySearch {
    const char *section;
    const char *key;
    std::optional<std::string> value;
};

int match_pair(void *user, const char *section, const char *key, const char *value) {
    auto &search = *static_cast<KeySearch *>(user);
    if (!search.value && std::strcmp(section, search.section) == 0 && std::strcmp(key, search.key) == 0)
        search.value = value;
    return search.value ? 0 : 1;  // 0 ends the parse where inih is built so; otherwise it reads on
}

std::optional<std::string> get(const char *path, const char *section, const char *key) {
    KeySearch search{section, key, std::nullopt};
    ini_parse(path, match_pair, &search);
    return search.value;
}

// It does not write.
Peer counting{.name = "inih", .stores = false, .parse = parse_and_count, .get = get, .set = nullptr};
Peer keeping{.name = "inih+list", .stores = true, .parse = parse_and_keep, .get = nullptr, .set = nullptr};
const bool added = add_peer(counting) && add_peer(keeping);

}  // namespace
}  // namespace bench
