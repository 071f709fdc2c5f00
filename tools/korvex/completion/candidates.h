// What may stand at a place of the command line, found in the parser's own description of the commands. The scripts for
// the shells ask for it with 'korvex --complete WORD...', the last word being the one that is typed.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace korvex::cli::completion {

struct Candidate {
    std::string word;
    std::string summary;  // may be empty
};

// What the shell itself completes, or the words that it is to choose from.
enum class Kind { words, files, folders, commands };

struct Candidates {
    Kind kind = Kind::words;
    std::vector<Candidate> words = {};  // not narrowed by what is typed: each shell quotes in its own way
};

// `words` are those behind the program's name.
Candidates candidates_for(const CLI::App &program, const std::vector<std::string> &words);

// Prints the kind on a line of its own, then a line "WORD<tab>SUMMARY" for each word.
void print_candidates(const Candidates &candidates);

// Prints all commands with their options and words as JSON: what man/synopsis.py makes the manual's synopses of.
void print_description(const CLI::App &program);

}  // namespace korvex::cli::completion
