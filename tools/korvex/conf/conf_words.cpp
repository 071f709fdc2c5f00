#include "conf/conf_words.h"

namespace korvex::cli {

void add_place(CLI::App &command, ConfPlace &place) {
    add_file(command, place.file, "The configuration file");
    add_text(command, "-s,--section", place.section, "Section of the key; without it, what is before the first one");
}

void add_key(CLI::App &command, ConfPlace &place) {
    add_text(command, "KEY", place.key, "The key").required();
}

void add_ignore_case(CLI::App &command, bool &ignore_case) {
    command.add_flag("--ignore-case", ignore_case, "Take names as equal that differ in upper and lower case alone");
}

CLI::Option &add_optional(CLI::App &command, const char *name, std::optional<std::string> &text, const char *summary) {
    return *command
                .add_option_function<std::string>(
                    name, [&text](const std::string &word) { text = word; }, summary)
                ->transform(unquote_word)
                ->type_name("TEXT");
}

}  // namespace korvex::cli
