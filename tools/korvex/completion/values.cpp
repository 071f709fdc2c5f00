#include "completion/values.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "korvex/conf_document.hpp"

namespace fs = std::filesystem;

namespace korvex::cli::completion {
namespace {

// --- words that are looked up ---

bool is_one_line(std::string_view text) {
    return std::none_of(text.begin(), text.end(),
                        [](char byte) { return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f'; });
}

// Adds a word that is not there yet. One that a line can't hold is left out.
void add_new(std::vector<Candidate> &words, std::string_view word) {
    const bool is_known =
        std::any_of(words.begin(), words.end(), [word](const Candidate &one) { return one.word == word; });
    if (!word.empty() && !is_known && is_one_line(word))
        words.push_back({std::string(word), ""});
}

void sort(std::vector<Candidate> &words) {
    std::sort(words.begin(), words.end(),
              [](const Candidate &left, const Candidate &right) { return left.word < right.word; });
}

// The configuration that the line names; nothing where it can't be read.
std::optional<conf::document> document_of(const Given &given) {
    const auto file = given.words.find("FILE");
    if (file == given.words.end())
        return {};
    try {
        return conf::document::read(file->second);
    } catch (const std::exception &) {
        return {};
    }
}

Candidates sections(const Given &given) {
    Candidates found;
    if (const std::optional<conf::document> document = document_of(given))
        for (const conf::section &section : *document)
            add_new(found.words, section.name());
    sort(found.words);
    return found;
}

Candidates keys(const Given &given) {
    Candidates found;
    const std::optional<conf::document> document = document_of(given);
    const std::optional<conf::section> section = document ? document->find(given.section) : std::nullopt;
    if (section)
        for (const conf::pair &pair : *section)
            add_new(found.words, pair.key);
    return found;
}

Candidates processes(const Given &) {
    Candidates found;
    std::error_code failure;
    fs::directory_iterator entries("/proc", failure);
    for (; !failure && entries != fs::directory_iterator(); entries.increment(failure)) {
        std::ifstream comm(entries->path() / "comm");
        std::string name;
        if (std::getline(comm, name))
            add_new(found.words, name);
    }
    sort(found.words);
    return found;
}

Candidates files(const Given &) {
    return {.kind = Kind::files};
}

Candidates folders(const Given &) {
    return {.kind = Kind::folders};
}

// The command comes behind "--", and then its own words, which may well be files.
Candidates command(const Given &given) {
    if (!given.dashes)
        return {.words = {{"--", "what follows is the command"}}};
    return {.kind = given.in_command ? Kind::files : Kind::commands};
}

// By the name of the option, or of its value, or of the word in a fixed place. What is not here has no candidates.
constexpr struct {
    std::string_view name;
    Candidates (*find)(const Given &given);
} kValues[] = {{"--section", sections}, {"SECTION", sections}, {"KEY", keys},   {"NAME", processes},
               {"COMMAND", command},    {"FOLDER", folders},   {"FILE", files}, {"PATH", files},
               {"PATH|UUID", files},    {"SOURCE", files},     {"DEST", files}, {"PEM", files},
               {"OLD", files},          {"NEW", files},        {"A", files},    {"B", files}};

// --- words that the description lists ---

std::vector<Candidate> split(std::string_view text, char separator) {
    std::vector<Candidate> words;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(separator));
        add_new(words, word);
        text.remove_prefix(std::min(text.size(), word.size() + 1));
    }
    return words;
}

// "{string,int,bool}", "INT in [1 - 9]", and "12|24": how the parser and the commands describe a choice.
std::vector<Candidate> choices_of(const std::string &type) {
    const size_t open = type.find('{');
    if (open != std::string::npos)
        return split(std::string_view{type}.substr(open + 1, type.find('}', open) - open - 1), ',');

    constexpr long kMostNumbers = 32;
    const size_t range = type.find("in [");
    if (range != std::string::npos) {
        char *rest = nullptr;
        const long first = std::strtol(type.c_str() + range + 4, &rest, 10);
        const long last = std::strtol(std::string_view(rest).starts_with(" - ") ? rest + 3 : "", nullptr, 10);
        std::vector<Candidate> words;
        for (long number = first; last - first < kMostNumbers && number <= last; ++number)
            words.push_back({std::to_string(number), ""});
        return words;
    }

    const bool is_list = type.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-|") == std::string::npos;
    return is_list ? split(type, '|') : std::vector<Candidate>();
}

}  // namespace

bool takes_value(const CLI::Option &option) {
    return option.get_type_size() != 0 && option.get_items_expected_min() > 0;
}

std::string name_of(const CLI::Option &option) {
    if (!option.get_lnames().empty())
        return "--" + option.get_lnames().front();
    return option.get_snames().empty() ? option.get_name(true) : "-" + option.get_snames().front();
}

std::string value_name(const CLI::Option &option) {
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

Candidates values_of(const CLI::Option &option, const Given &given) {
    std::vector<Candidate> choices = choices_of(option.get_type_name());
    if (!choices.empty())
        return {.words = std::move(choices)};

    const bool is_word = option.get_positional();
    if (is_word && given.on_unix)
        return files(given);
    for (const std::string &name : {name_of(option), value_name(option)})
        for (const auto &[known, find] : kValues)
            if (name == known)
                return find(given);
    return {};
}

}  // namespace korvex::cli::completion
