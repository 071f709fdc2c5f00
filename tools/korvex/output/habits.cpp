#include "output/habits.h"

#include <array>

namespace korvex::cli {
namespace {

struct Habit {
    std::string_view command;
    std::string_view letters;
    std::string_view hint;
};

constexpr std::array kHabits{
    Habit{"cp", "rR", "cp copies a folder with all that is in it by default"},
    Habit{"cp", "adp", "use --preserve=all"},
    Habit{"cp", "f", "cp replaces a file that is there by default"},
    Habit{"du", "bkmB", "du prints sizes as people read them by default; use --json for bytes"},
    Habit{"du", "cad", "du prints one line for each PATH, and a total for several"},
    Habit{"lock", "wE", "use --wait TIME"},
    Habit{"lock", "n", "use --wait 0"},
    Habit{"lock", "c", "put the command and its words behind --"},
    Habit{"lock", "l", "use --list"},
    Habit{"ps", "aAefux", "name a program; use --names or --json for more than its ids"},
    Habit{"ps", "l", "use --names"},
    Habit{"ps", "p", "use --parent PID"},
    Habit{"rm", "rRd", "rm removes a folder with all that is in it by default; use -y to remove without a question"},
    Habit{"rm", "f", "use -y to remove without a question"},
    Habit{"", "j", "use --json"},
    Habit{"", "v", "use --verbose"},
};

std::string_view hint_for(std::string_view command, char letter) {
    for (const Habit &habit : kHabits)
        if ((habit.command.empty() || habit.command == command) && habit.letters.find(letter) != habit.letters.npos)
            return habit.hint;
    return {};
}

}  // namespace

// Several letters may stand behind one dash.
std::string_view habit_hint(std::string_view command, const std::string &option) {
    if (option.size() < 2 || option[0] != '-' || option[1] == '-')
        return {};
    for (const char letter : std::string_view(option).substr(1))
        if (const std::string_view hint = hint_for(command, letter); !hint.empty())
            return hint;
    return {};
}

}  // namespace korvex::cli
