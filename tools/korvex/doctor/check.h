// The doctor's checks: what each is told, and what it finds. A check reads; none changes what it looks at.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace korvex::cli::doctor {

enum class Verdict { ok, warning, failure };

struct Finding {
    Verdict verdict;
    std::string check;   // the name of the check
    std::string what;    // what is so, on what
    std::string remedy;  // empty where nothing is to be done
};

// Where to look, apart from the places that are fixed.
struct Places {
    std::vector<std::string> configurations;  // folders
    bool are_named = false;                   // by the user: then a missing one is a failure
    std::string logs;                         // a folder
};

class Findings {
  public:
    void begin(std::string_view check) {
        check_ = check;
        first_ = all_.size();
    }
    void ok(std::string what) { add(Verdict::ok, std::move(what), ""); }
    void warn(std::string what, std::string remedy) { add(Verdict::warning, std::move(what), std::move(remedy)); }
    void fail(std::string what, std::string remedy) { add(Verdict::failure, std::move(what), std::move(remedy)); }
    // For a check of many things: says once that all is well, unless something was found.
    void ok_unless_more(std::string what) {
        if (all_.size() == first_)
            ok(std::move(what));
    }

    const std::vector<Finding> &all() const { return all_; }

  private:
    void add(Verdict verdict, std::string what, std::string remedy) {
        all_.push_back({verdict, check_, std::move(what), std::move(remedy)});
    }

    std::vector<Finding> all_;
    std::string check_;
    size_t first_ = 0;
};

struct Check {
    const char *name;
    void (*run)(const Places &places, Findings &findings);
};

// In the order in which they are run.
std::span<const Check> checks();

void check_lock_folder(const Places &places, Findings &findings);
void check_lock_room(const Places &places, Findings &findings);
void check_lock_creation(const Places &places, Findings &findings);
void check_locks(const Places &places, Findings &findings);

void check_configuration_folders(const Places &places, Findings &findings);
void check_leftovers(const Places &places, Findings &findings);
void check_permissions(const Places &places, Findings &findings);
void check_share_options(const Places &places, Findings &findings);

void check_mount_table(const Places &places, Findings &findings);
void check_shares(const Places &places, Findings &findings);

void check_identification(const Places &places, Findings &findings);
void check_openssl(const Places &places, Findings &findings);
void check_clock(const Places &places, Findings &findings);
void check_time_zone(const Places &places, Findings &findings);
void check_log_room(const Places &places, Findings &findings);

// --- what several checks use ---

// A word of a command line in a remedy: in quotes where the shell needs them.
std::string shell_word(const std::string &word);

// "1 file", "3 files".
std::string count_text(size_t count, const char *one, const char *several);

// "FOLDER has 2.00 MB and 1200 files left", judged by the room that is needed and the room that one would want.
void report_room(Findings &findings, const std::string &folder, uint64_t needed, uint64_t wanted);

// A regular file of a configuration folder, or of a folder in it.
struct ConfigurationFile {
    std::string path;
    struct stat status;
};
// All of a folder and the folders below it, by name; links are not followed. Folders that can't be read are passed over,
// and stand in `unreadable` where that is given.
std::vector<ConfigurationFile> configuration_files(const std::string &folder,
                                                   std::vector<std::string> *unreadable = nullptr);

// The content of a regular file of at most so many bytes, as far as it can be read. `error` is the errno where it can't.
std::string content_of(const std::string &path, size_t limit, int &error);

}  // namespace korvex::cli::doctor
