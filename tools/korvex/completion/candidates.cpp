#include "completion/candidates.h"

#include <cstdio>
#include <string_view>
#include <utility>

#include "completion/values.h"
#include "output/table.h"

namespace korvex::cli::completion {
namespace {

using Options = std::vector<const CLI::Option *>;
using Commands = std::vector<const CLI::App *>;

Options options_of(const CLI::App &command, bool in_places) {
    return command.get_options([in_places](const CLI::Option *option) {
        return option->get_positional() == in_places && !option->get_group().empty();
    });
}

Commands commands_of(const CLI::App &command) {
    return command.get_subcommands([](const CLI::App *) { return true; });
}

// --- the words before the one that is typed ---

// Goes along a command line as the parser does.
class Line {
  public:
    explicit Line(const CLI::App &program) : command_(&program), program_(program) {}

    void pass(const std::string &word) {
        if (const CLI::Option *const option = std::exchange(awaiting_, nullptr))
            take_value(*option, word);
        else if (given_.dashes)
            take_place(word);  // NOLINT(bugprone-branch-clone): what comes first counts
        else if (word == "--")
            given_.dashes = true;
        else if (word.size() > 1 && word.front() == '-')
            take_option(word);
        else if (!enter(word))
            take_place(word);
    }

    Candidates for_word(const std::string &typed) const {
        if (awaiting_ != nullptr)
            return values_of(*awaiting_, given_);
        if (!given_.dashes && typed.starts_with("--") && typed.find('=') != std::string::npos)
            return joined_values(typed);
        if (!given_.dashes && typed.starts_with('-'))
            return {.words = option_words()};
        std::vector<Candidate> words = place_ == 0 && !given_.dashes ? command_words() : std::vector<Candidate>();
        if (!words.empty())
            return {.words = std::move(words)};
        const CLI::Option *const here = option_in_place();
        return here == nullptr ? Candidates() : values_of(*here, given_);
    }

  private:
    bool enter(const std::string &word) {
        if (place_ > 0)
            return false;
        for (const CLI::App *below : commands_of(*command_)) {
            if (below->get_name() == word) {
                command_ = below;
                return true;
            }
        }
        return false;
    }

    // "--name", "--name=value", "-s", "-svalue". The program's own options may follow any command.
    void take_option(const std::string &word) {
        const bool is_long = word.starts_with("--");
        const std::string name = is_long ? word.substr(0, word.find('=')) : word.substr(0, 2);
        const CLI::Option *const option = find(name);
        if (option == nullptr)
            return;
        if (word.size() > name.size())
            take_value(*option, word.substr(name.size() + (is_long ? 1 : 0)));
        else if (takes_value(*option))
            awaiting_ = option;
        given_.on_unix |= name == "--unix";
    }

    void take_value(const CLI::Option &option, const std::string &value) {
        if (name_of(option) == "--section")
            given_.section = value;
        given_.on_unix |= name_of(option) == "--unix";
    }

    void take_place(const std::string &word) {
        if (const CLI::Option *const option = option_in_place()) {
            given_.words.emplace(option->get_name(true), word);
            given_.in_command |= option->get_name(true) == "COMMAND";
        }
        ++place_;
    }

    // The last one takes all that is left where it may repeat.
    const CLI::Option *option_in_place() const {
        const Options places = options_of(*command_, true);
        if (place_ < places.size())
            return places[place_];
        const bool repeats = !places.empty() && places.back()->get_items_expected_max() > 1;
        return repeats ? places.back() : nullptr;
    }

    const CLI::Option *find(const std::string &name) const {
        for (const CLI::App *at = command_; at != nullptr; at = at->get_parent())
            if (const CLI::Option *const option = at->get_option_no_throw(name))
                return option;
        return nullptr;
    }

    Candidates joined_values(const std::string &typed) const {
        const std::string name = typed.substr(0, typed.find('='));
        const CLI::Option *const option = find(name);
        Candidates values = option == nullptr ? Candidates() : values_of(*option, given_);
        for (Candidate &value : values.words)
            value.word = name + "=" + value.word;
        return values;
    }

    std::vector<Candidate> command_words() const {
        std::vector<Candidate> words;
        for (const CLI::App *below : commands_of(*command_))
            words.push_back({below->get_name(), below->get_description()});
        return words;
    }

    // The command's own ones and the program's, but for --version, which stands alone.
    std::vector<Candidate> option_words() const {
        std::vector<Candidate> words;
        for (const CLI::Option *option : options_of(*command_, false))
            words.push_back({name_of(*option), option->get_description()});
        if (command_ != &program_)
            for (const CLI::Option *option : options_of(program_, false))
                if (name_of(*option) != "--help" && name_of(*option) != "--version")
                    words.push_back({name_of(*option), option->get_description()});
        return words;
    }

    const CLI::App *command_;
    const CLI::App &program_;
    const CLI::Option *awaiting_ = nullptr;  // whose value comes next
    size_t place_ = 0;
    Given given_;
};

// --- the description ---

Json names_json(const CLI::Option &option) {
    Json names = Json::array();
    for (const std::string &name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string &name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

Json command_json(const CLI::App &command) {
    Json options = Json::array();
    for (const CLI::Option *option : options_of(command, false))
        options.push_back({{"names", names_json(*option)},
                           {"value", takes_value(*option) ? Json(value_name(*option)) : Json()},
                           {"required", option->get_required()},
                           {"repeats", takes_value(*option) && option->get_items_expected_max() > 1},
                           {"summary", option->get_description()}});
    Json words = Json::array();
    for (const CLI::Option *option : options_of(command, true))
        words.push_back({{"name", option->get_name(true)},
                         {"required", option->get_required()},
                         {"repeats", option->get_items_expected_max() > 1},
                         {"summary", option->get_description()}});
    Json below = Json::array();
    for (const CLI::App *one : commands_of(command))
        below.push_back(command_json(*one));
    return {{"name", command.get_name()},
            {"summary", command.get_description()},
            {"needs_command", command.get_require_subcommand_min() > 0},
            {"options", options},
            {"words", words},
            {"commands", below}};
}

}  // namespace

Candidates candidates_for(const CLI::App &program, const std::vector<std::string> &words) {
    Line line(program);
    for (size_t i = 0; i + 1 < words.size(); ++i)
        line.pass(words[i]);
    return line.for_word(words.empty() ? "" : words.back());
}

void print_candidates(const Candidates &candidates) {
    constexpr const char *kKinds[] = {"words", "files", "folders", "commands"};
    std::printf("%s\n", kKinds[static_cast<size_t>(candidates.kind)]);
    for (const auto &[word, summary] : candidates.words)
        std::printf("%s\t%s\n", word.c_str(), summary.c_str());
}

void print_description(const CLI::App &program) {
    print_json(command_json(program));
}

}  // namespace korvex::cli::completion
