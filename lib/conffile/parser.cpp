// Turning the text of a configuration into nodes, from a cached text or line by line from a stream.
//
// The two dialects classify lines alike. They differ in what counts as a blank, in whether "]" and "=" are cut, and in how
// bad lines are reported; users rely on each difference.
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "base/message.h"
#include "nodes.h"

namespace korvex::conffile {
namespace {

// The list under construction. When memory runs out it takes nothing more.
class ListBuilder final {
  public:
    // `function` is the one whose messages these are.
    explicit ListBuilder(const char *function) : function_(function), global_(new_section("")) {
        if (!global_)
            give_up_empty();
        else
            end_of_pairs_ = &global_->pPairs;
    }

    bool open() const { return open_; }
    void add_section(std::string_view name);
    // `follower` is the byte that ends up behind the key, before the value: NUL but for a quirk of streams.
    void add_pair(std::string_view key, char follower, std::string_view value);
    // Hands the list out: the count of its sections, or -ENOMEM.
    [[nodiscard]] int32_t finish(Sect_Node **conf);

  private:
    void give_up_empty();

    const char *function_;
    SectionList global_;  // the list's head, in the end only if it has pairs
    Sect_Node *last_ = global_.get();
    Pair_Node **end_of_pairs_ = nullptr;
    int32_t sections_ = 1;
    bool open_ = true;
};

void ListBuilder::give_up_empty() {
    LOG_ERROR_AS(function_, "Can't allocate buffer for section node error!\n");
    open_ = false;
}

// Without memory for a section, what was parsed so far is the result. Without memory for a pair the result is -ENOMEM.
void ListBuilder::add_section(std::string_view name) {
    Sect_Node *section = new_section(name);
    if (section == nullptr) {
        LOG_ERROR_AS(function_, "Can't allocate %d bytes buffer for section node error!\n",
                     static_cast<int>(section_size(name)));
        open_ = false;
        return;
    }

    last_->pNext = section;
    last_ = section;
    end_of_pairs_ = &section->pPairs;
    sections_++;
}

void ListBuilder::add_pair(std::string_view key, char follower, std::string_view value) {
    Pair_Node *pair = new_pair(key, value);
    if (pair == nullptr) {
        LOG_ERROR_AS(function_, "Can't allocate %d bytes buffer for string pair node error!\n",
                     static_cast<int>(pair_size(key, value)));
        open_ = false;
        global_.reset();
        return;
    }

    pair->szKey[key.size()] = follower;
    *end_of_pairs_ = pair;
    end_of_pairs_ = &pair->pNext;
}

int32_t ListBuilder::finish(Sect_Node **conf) {
    if (!global_)
        return -ENOMEM;

    if (global_->pPairs == nullptr) {
        *conf = std::exchange(global_->pNext, nullptr);
        return sections_ - 1;
    }
    *conf = global_.release();
    return sections_;
}

struct CacheDialect {
    static constexpr const char *kFunction = "Parse_Conf_Cache";
    static constexpr bool kCutsText = true;

    static bool is_blank(char byte) { return byte == ' ' || byte == '\t'; }

    static void report_bad_section(const char *line) {
        LOG_DEBUG_AS(kFunction, "Bad section definition line: \"%s\"!\n", line);
    }
    static void report_bad_pair(const char *line) {
        LOG_ERROR_AS(kFunction, "Bad key-value definition line: \"%s\"!\n", line);
    }
};

struct StreamDialect {
    static constexpr const char *kFunction = "Parse_Conf_Stream";
    static constexpr bool kCutsText = false;

    // Lines keep their line feed here, and so it must not get into a value.
    static bool is_blank(char byte) { return byte == ' ' || byte == '\t' || byte == '\n'; }

    static void report_bad_section(const char *line) {
        LOG_ERROR_AS(kFunction, "Bad section definition line: %s!\n", line);
    }
    static void report_bad_pair(const char *line) {
        LOG_DEBUG_AS(kFunction, "Bad key-value definition line: \"%s\"!\n", line);
    }
};

template <class Dialect>
char *skip_blanks(char *begin, const char *end) {
    while (begin < end && Dialect::is_blank(*begin))
        begin++;
    return begin;
}

// Overwrites the blanks before `end` with NULs; the new end.
template <class Dialect>
char *erase_blanks_before(char *end, const char *begin) {
    while (end > begin && Dialect::is_blank(end[-1]))
        *--end = '\0';
    return end;
}

template <class Dialect>
void parse_header(ListBuilder &list, char *line, const char *end) {
    char *const name = line + 1;
    auto *const close = static_cast<char *>(std::memchr(name, ']', static_cast<size_t>(end - name)));
    if (close == nullptr) {
        Dialect::report_bad_section(line);
        return;
    }

    if (Dialect::kCutsText)
        *close = '\0';
    list.add_section({name, static_cast<size_t>(close - name)});
}

template <class Dialect>
void parse_pair(ListBuilder &list, char *line, char *end) {
    char *const key = skip_blanks<Dialect>(line, end);
    if (key == end)
        return;

    auto *const equals = static_cast<char *>(std::memchr(key, '=', static_cast<size_t>(end - key)));
    if (equals == nullptr || equals == key) {
        Dialect::report_bad_pair(line);
        return;
    }

    if (Dialect::kCutsText)
        *equals = '\0';
    char *const key_end = erase_blanks_before<Dialect>(equals, key);
    char *const value = skip_blanks<Dialect>(equals + 1, end);
    char *const value_end = erase_blanks_before<Dialect>(end, value);

    // The byte after the key is a NUL, unless the "=" was left standing and follows it at once: then the stored key
    // runs on through it into the value.
    list.add_pair({key, static_cast<size_t>(key_end - key)}, *key_end, {value, static_cast<size_t>(value_end - value)});
}

// Parses one line; `*end` is the NUL that ends it.
template <class Dialect>
void parse_line(ListBuilder &list, char *line, char *end) {
    switch (*line) {
        case ';':
        case '#':
            return;
        case '[':
            return parse_header<Dialect>(list, line, end);
        default:
            return parse_pair<Dialect>(list, line, end);
    }
}

}  // namespace
}  // namespace korvex::conffile

using namespace korvex::conffile;

int32_t Parse_Conf_Cache(char *pszCache, Sect_Node **ppConf) {
    if (pszCache == nullptr || ppConf == nullptr)
        return -EINVAL;

    *ppConf = nullptr;
    ListBuilder list(CacheDialect::kFunction);
    char *line = pszCache;
    while (list.open()) {
        char *const end = std::strchr(line, '\n');
        if (end == nullptr)
            break;

        *end = '\0';
        parse_line<CacheDialect>(list, line, end);
        line = end + 1;
    }
    return list.finish(ppConf);
}

int32_t Parse_Conf_Stream(FILE *pfStream, Sect_Node **ppConf) {
    if (pfStream == nullptr || ppConf == nullptr)
        return -EINVAL;

    *ppConf = nullptr;
    ListBuilder list(StreamDialect::kFunction);
    std::array<char, 4096> line;  // a longer line is parsed in pieces, by contract
    while (list.open() && std::fgets(line.data(), line.size(), pfStream) != nullptr)
        parse_line<StreamDialect>(list, line.data(), line.data() + std::strlen(line.data()));
    return list.finish(ppConf);
}
