// Configurations as plain values: what a test writes down, hands to the library as lists, and compares.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <new>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "conffile.h"
#include "log_capture.h"

namespace lists {

struct Pair {
    std::string key;
    std::string value;
    bool operator==(const Pair &) const = default;
};
using Pairs = std::vector<Pair>;

struct Section {
    std::string name;
    Pairs pairs;
    bool operator==(const Section &) const = default;
};
using Conf = std::vector<Section>;

inline std::ostream &operator<<(std::ostream &out, const Pair &pair) {
    return out << testing::PrintToString(pair.key) << " = " << testing::PrintToString(pair.value);
}

inline std::ostream &operator<<(std::ostream &out, const Section &section) {
    return out << "[" << testing::PrintToString(section.name) << "] " << testing::PrintToString(section.pairs);
}

// Owns a list of the library and stands for its first node.
template <typename Node, auto release>
class OwnedList {
  public:
    OwnedList() = default;
    explicit OwnedList(Node *first) : first_(first) {}
    OwnedList(OwnedList &&other) noexcept : first_(std::exchange(other.first_, nullptr)) {}
    OwnedList &operator=(OwnedList &&other) noexcept {
        std::swap(first_, other.first_);
        return *this;
    }
    ~OwnedList() { release(first_); }

    operator Node *() const { return first_; }
    Node *operator->() const { return first_; }
    // The address of the head: for setters, and for the results of an empty list.
    Node **head() { return &first_; }

  private:
    Node *first_ = nullptr;
};
using PairList = OwnedList<Pair_Node, Free_Pair_Node>;
using ConfList = OwnedList<Sect_Node, Free_Sect_Node>;

inline PairList make_pairs(const Pairs &pairs) {
    PairList list;
    Pair_Node **link = list.head();
    for (const Pair &pair : pairs) {
        if (Create_Pair_Node(link, pair.key.c_str(), pair.value.c_str()) != 0)
            throw std::bad_alloc();
        link = &(*link)->pNext;
    }
    return list;
}

inline ConfList make_conf(const Conf &conf) {
    ConfList list;
    Sect_Node **link = list.head();
    for (const Section &section : conf) {
        if (Create_Sect_Node(link, section.name.c_str()) != 0)
            throw std::bad_alloc();
        PairList pairs = make_pairs(section.pairs);
        (*link)->pPairs = std::exchange(*pairs.head(), nullptr);
        link = &(*link)->pNext;
    }
    return list;
}

inline Pairs pairs_of(const Pair_Node *pair) {
    Pairs pairs;
    for (; pair != nullptr; pair = pair->pNext)
        pairs.push_back({pair->szKey, pair->pszValue});
    return pairs;
}

inline Conf conf_of(const Sect_Node *section) {
    Conf conf;
    for (; section != nullptr; section = section->pNext)
        conf.push_back({section->szName, pairs_of(section->pPairs)});
    return conf;
}

// What a file holds; empty, and the test fails, where it can't be read.
inline Conf conf_in_file(const std::string &path) {
    ConfList list;
    EXPECT_GE(Read_Conf_File(path.c_str(), list.head()), 0) << path;
    return conf_of(list);
}

using Messages = std::vector<std::string>;

// The library's messages while `body` runs, at a log level (1: errors, 3: debug messages, too).
inline Messages messages_at(int32_t level, const std::function<void()> &body) {
    support::LogCapture log(level);
    body();
    return log.messages();
}

}  // namespace lists
